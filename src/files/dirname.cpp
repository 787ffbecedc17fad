#include <keel/dirname.h>

#include <string.h>
#include <unistd.h>

#include <keel/strlcpy.h>

namespace keel {

char* directoryOf(char* path, char* output, size_t size) {
    if (!path) return nullptr;
    size_t length = strlen(path);

    // Trailing "/" characters are not part of the last component; the first
    // character is always kept, so "/" stays the root.
    size_t kept = length;
    while (kept > 1 && path[kept - 1] == '/') --kept;
    // The terminator goes in only where it changes something: a path without
    // trailing "/" may then live in read-only storage.
    char saved = path[kept];
    if (saved != '\0') path[kept] = '\0';

    char* result;
    char* slash = kept > 0 ? strrchr(path, '/') : nullptr;
    if (slash) {
        size_t part = static_cast<size_t>(slash - path) + 1;
        if (output == path) {
            path[part] = '\0';
            result = path;
        } else if (part >= size || !output) {
            // The output is cleared only where it has room for the terminator.
            if (output && size > 0) output[0] = '\0';
            result = nullptr;
        } else {
            memcpy(output, path, part);
            output[part] = '\0';
            result = output;
        }
    } else if (size > 1 && output) {
        output[0] = '.';
        output[1] = '\0';
        result = output;
    } else {
        if (output && size > 0) output[0] = '\0';
        result = nullptr;
    }

    // The byte is put back on every way out, also when the output is the
    // path itself: there it lands behind the new terminator, so "b/" cut in
    // place reads "./" and "//" reads "//".
    if (saved != '\0') path[kept] = saved;
    return result;
}

char* directoryOfInPlace(char* path) {
    if (!path) return nullptr;
    return directoryOf(path, path, strlen(path) + 1);
}

size_t getWorkingDirectoryText(char* buffer, size_t size) {
    char local[4096];
    // getcwd may leave the buffer untouched on failure; what it holds then
    // is measured, so it starts out as an empty text.
    local[0] = '\0';
    local[sizeof local - 1] = '\0';
    if (!getcwd(local, sizeof local)) return strlen(local);
    size_t length = strlen(local);
    if (size < length || !buffer) return length;
    copyTextBounded(buffer, local, size);
    if (length >= 2 && local[length - 1] == '/') buffer[length - 1] = '\0';
    return length;
}

}  // namespace keel
