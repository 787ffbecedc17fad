// The toolkit in one include: arrays and their sort, hash tables with the
// typed maps and sets, intrusive lists, number and text scanners, splitting,
// trimming, replacing, escaping, case copies, character services, the
// 8-bit text and file-name helpers, and the reader of trace control files.
//
//     #include <keel/toolkit.h>
//
//     CMake:      find_package(keel CONFIG REQUIRED)
//                 target_link_libraries(app PRIVATE keel::toolkit)
//     pkg-config: c++ -std=c++17 app.cpp $(pkg-config --cflags --libs keel-toolkit)
//
// The toolkit is a static archive (libkeel_toolkit.a) linked into the
// program beside libkeel.so. It holds only units without process-wide state
// and reaches strings through StringC and the string factory of libkeel.so,
// so a process has one string factory however many of its modules link the
// toolkit. Each header below starts with an example of its own.
#ifndef KEEL_TOOLKIT_H
#define KEEL_TOOLKIT_H

#include <keel/string.h>

#include <keel/blobarr.h>   // BlobArrayC, PlainArrayM<T>, ArrayM<T>
#include <keel/objarray.h>  // ObjArrayC
#include <keel/stringar.h>  // StringArrayC, StringArrayArrayC
#include <keel/qsort.h>     // quickSort
#include <keel/hashtbl.h>   // HashTableC, HashMapM, iterators, hashOfBytes
#include <keel/strkeyed.h>  // StringKeyedHashC, StringMapM, hashOfString
#include <keel/strset.h>    // StringSetC
#include <keel/list.h>      // ListSingleC, ListDoubleC, chains

#include <keel/case.h>     // digitValue, toLowerChar, toUpperChar, ...
#include <keel/number.h>   // parseInt32, parseInt64, parseBool
#include <keel/split.h>    // splitString
#include <keel/trim.h>     // trimString, trimLeft, trimRight
#include <keel/replace.h>  // replaceString, translateChars, lowerCaseCopy, upperCaseCopy
#include <keel/escape.h>   // escapeString, unescapeString, joinStrings, joinEscaped

#include <keel/filename.h>  // FileNameC: paths in normal form, collapse, match
#include <keel/basename.h>  // baseNameOf, baseNameInto
#include <keel/dirname.h>   // directoryOf, getWorkingDirectoryText
#include <keel/strdup.h>    // duplicateText
#include <keel/stricmp.h>   // compareTextNoCase
#include <keel/strlcpy.h>   // copyTextBounded, measureText
#include <keel/strtrws.h>   // trimTextRight

#include <keel/tracectl.h>  // the trace control file: parseTraceControlLine, expandTraceFileName

#endif
