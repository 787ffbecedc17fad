#include <keel/strdup.h>

#include <string.h>

#include <keel/strlcpy.h>

namespace keel {

char* duplicateText(const char* text) {
    if (!text) return nullptr;
    size_t length = measureText(text);
    char* copy = new char[length + 1];
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

}  // namespace keel
