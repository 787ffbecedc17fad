// The last component of a plain 8-bit path.
//
//     #include <keel/basename.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     const char* name = keel::baseNameOf("/usr/lib/libkeel.so");   // "libkeel.so"
//     char stem[64];
//     keel::baseNameInto("/a/b.txt/", stem, sizeof stem, ".txt");    // "b"
#ifndef KEEL_BASENAME_H
#define KEEL_BASENAME_H

#include <stddef.h>

namespace keel {

// Points behind the last "/" of `path`, or at `path` when it has none. Null
// stays null. Nothing is copied, so "a/" gives the empty text.
const char* baseNameOf(const char* path);

// The last component of `path` (read as "system-8") without trailing "/"
// characters, and without `suffix` when the text ends in it and its first
// occurrence does not open the text. The name goes into `output` (cut to
// `size`, see copyTextBounded) and `output` is returned; with a null output
// it replaces the path's own text. Null for an empty path.
char* baseNameInto(char* path, char* output, size_t size, const char* suffix);

}  // namespace keel

#endif
