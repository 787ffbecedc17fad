// The last component of a plain 8-bit path.
//
//     const char* name = keel::baseNameOf("/usr/lib/libkeel.so");   // "libkeel.so"
#ifndef KEEL_FILES_BASENAME_H
#define KEEL_FILES_BASENAME_H

namespace keel {

// Points behind the last "/" of `path`, or at `path` when it has none. Null
// stays null. Nothing is copied, so "a/" gives the empty text.
const char* baseNameOf(const char* path);

}  // namespace keel

#endif
