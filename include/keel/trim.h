// Trimming a set of characters off the ends of a string: into a new string
// (trimString) or in place (trimLeft, trimRight).
//
//     #include <keel/trim.h>          // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     keel::StringC blanks(" \t", "ascii");
//     keel::StringC value = keel::trimString(raw, blanks);    // raw is left alone
//     keel::trimRight(line, keel::StringC(" \t\r\n", "ascii"));  // line changes
//
// A set is a string whose characters are taken one by one; the empty set
// trims nothing.
#ifndef KEEL_TRIM_H
#define KEEL_TRIM_H

#include <keel/string.h>

namespace keel {

// A new string: `source` without the characters of `set` at either end. A
// text made only of such characters gives the empty string. Safe on a string
// that other threads read.
StringC trimString(const StringC& source, const StringC& set);

// Erases the characters in front of the first one not in `set`; all of
// them when there is none. An empty string stays as it is.
void trimLeft(StringC& string, const StringC& set);

// Erases the characters behind the last one not in `set`; all of them when
// there is none. An empty string stays as it is.
void trimRight(StringC& string, const StringC& set);

}  // namespace keel

#endif
