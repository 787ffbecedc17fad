#include <keel/trim.h>

namespace keel {

StringC trimString(const StringC& source, const StringC& set) {
    int32_t first = source.findFirstNotOf(set);
    if (first < 0) return StringC();
    int32_t last = source.findLastNotOf(set);
    if (first == 0 && last == source.length() - 1) return source;
    return source.substring(first, last - first + 1);
}

void trimLeft(StringC& string, const StringC& set) {
    if (string.isEmpty()) return;
    int32_t keep = string.findFirstNotOf(set);
    if (keep == -1) {
        string.erase(0, -1);
    } else if (keep > 0) {
        string.erase(0, keep);
    }
}

void trimRight(StringC& string, const StringC& set) {
    if (string.isEmpty()) return;
    int32_t last = string.findLastNotOf(set);
    if (last == -1) {
        string.erase(0, -1);
    } else if (last + 1 < string.length()) {
        // Nothing to erase behind the last character: the string is left
        // alone rather than made private for an empty erase.
        string.erase(last + 1, -1);
    }
}

}  // namespace keel
