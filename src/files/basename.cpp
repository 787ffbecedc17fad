#include <keel/basename.h>

#include <string.h>

#include <keel/string.h>

#include <keel/strlcpy.h>

namespace keel {

const char* baseNameOf(const char* path) {
    if (!path) return nullptr;
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

char* baseNameInto(char* path, char* output, size_t size, const char* suffix) {
    if (!path) return nullptr;
    StringC name(path, "system-8");
    if (name.isEmpty()) return nullptr;

    const uint32_t slash = '/';
    int32_t length = name.length();
    while (length > 0 && name.charAt(length - 1) == slash) {
        name.erase(length - 1, 1);
        --length;
    }
    if (suffix) {
        StringC tail(suffix, "system-8");
        int32_t tailLength = tail.length();
        int32_t at = name.find(tail);
        if (at > 0 && tailLength <= length && name.substring(length - tailLength).compare(tail) == 0) {
            name.erase(length - tailLength);
        }
    }
    int32_t lastSlash = name.findLast(slash);
    if (lastSlash >= 0) name = name.substring(lastSlash + 1);

    const char* text = name.textSystem();
    char* result;
    if (output) {
        copyTextBounded(output, text, size);
        result = output;
    } else {
        // The name is never longer than the path it came from, except where
        // invalid bytes of the path were read as U+FFFD; the copy is bounded
        // by the path's own storage either way.
        size_t oldLength = strlen(path);
        memset(path, 0, oldLength);
        copyTextBounded(path, text, oldLength + 1);
        result = path;
    }
    name.releaseSystem(text);
    return result;
}

}  // namespace keel
