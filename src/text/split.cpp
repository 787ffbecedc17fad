// Splitting a string into pieces at any character of a separator set.
// Stateless; part of the toolkit.
#include <keel/split.h>

#include <new>
#include <vector>

#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// The separators as a bit table for ASCII and a list for the rest, so that
// the usual ASCII separators cost one test per byte.
class SeparatorSetC {
public:
    explicit SeparatorSetC(const StringC& set) {
        Utf8ViewC data(set);
        const uint8_t* p = data.data();
        while (*p) {
            uint32_t c = utf8Next(p);
            if (c < 0x80) {
                ascii[c >> 5] |= 1u << (c & 31);
            } else {
                others.push_back(c);
            }
        }
    }
    bool contains(uint32_t c) const {
        if (c < 0x80) return (ascii[c >> 5] >> (c & 31)) & 1;
        for (uint32_t other : others) {
            if (other == c) return true;
        }
        return false;
    }

private:
    uint32_t ascii[4] = {0, 0, 0, 0};
    std::vector<uint32_t> others;
};

// Appends the piece of internal form from `begin` to `end`, trimmed of blanks
// and tabs (the default trim set) when asked, and when empty only if asked.
void appendPiece(StringArrayC* pieces, const uint8_t* begin, const uint8_t* end, bool trim,
                 bool keepEmpty) {
    if (trim) {
        while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
        while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
    }
    if (begin == end && !keepEmpty) return;
    // The handle is made in the array's new slot itself, which spares the
    // copy into the array and the release of a temporary for every piece.
    void* slot = pieces->insertAt(pieces->size());
    new (slot) StringC(begin, static_cast<uint32_t>(end - begin), "vutf8");
}

}  // namespace

StringArrayC* splitString(const StringC& text, const StringC& separators, bool trim, bool keepEmpty,
                          uint32_t escape) {
    StringArrayC* pieces = new StringArrayC();
    if (text.isEmpty()) return pieces;

    SeparatorSetC set(separators);
    bool escapes = (escape & 0xFFFE) != 0xFFFE;
    Utf8ViewC data(text);
    const uint8_t* p = data.data();
    const uint8_t* start = p;
    bool escaped = false;
    while (*p) {
        const uint8_t* next = p;
        uint32_t c = *p < 0x80 ? *next++ : utf8Next(next);
        if (!escaped && set.contains(c)) {
            appendPiece(pieces, start, p, trim, keepEmpty);
            start = next;
        }
        escaped = escapes && c == escape;
        p = next;
    }
    appendPiece(pieces, start, p, trim, keepEmpty);
    return pieces;
}

}  // namespace keel
