// The directory part of a plain 8-bit path, and the working directory as
// text.
//
// directoryOf works like POSIX dirname, except that the "/" behind the
// directory stays, so the result can be joined with a file name directly:
//
//     #include <keel/dirname.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     char dir[PATH_MAX];
//     keel::directoryOf(path, dir, sizeof dir);   // "a/b" -> "a/", "b" -> "."
//
// The path must be writable: a terminator is put in it for the time of the
// call (the old byte is put back before returning), so two threads must not
// pass the same path at once.
#ifndef KEEL_DIRNAME_H
#define KEEL_DIRNAME_H

#include <stddef.h>

namespace keel {

// The directory of `path`, up to and including its last "/" (trailing "/"
// characters, save the first character, are not looked at), into `output`
// of `size` bytes. A path without "/" gives ".". Null for a null path, or
// with the output cleared when the directory does not fit. `output` may be
// `path` itself: then the path is cut behind its last "/".
char* directoryOf(char* path, char* output, size_t size);

// directoryOf with the path as its own output.
char* directoryOfInPlace(char* path);

// The working directory into `buffer` of `size` bytes. The answer is the
// length of the directory text, so a caller with a null buffer or one that is
// too small learns the room it needs; a copy that was made drops a trailing
// "/" from a directory other than the root.
size_t getWorkingDirectoryText(char* buffer, size_t size);

}  // namespace keel

#endif
