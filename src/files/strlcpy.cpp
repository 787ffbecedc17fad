#include <keel/strlcpy.h>

#include <string.h>

namespace keel {

size_t measureText(const char* text) {
    return strnlen(text, kMaxMeasuredText);
}

size_t copyTextBounded(char* destination, const char* source, size_t size) {
    if (!source) return 0;
    size_t length = measureText(source);
    if (!destination || size == 0) return length;
    size_t count = length < size - 1 ? length : size - 1;
    memmove(destination, source, count);
    destination[count] = '\0';
    return length;
}

}  // namespace keel
