// Comparing and searching in the library's own string representation: the
// three comparisons, the character and string searches and the set searches,
// with their private helpers (the other string's text taken once, a list and
// a set of characters).
//
// Invariant: the searches write nothing but the cursor and the count, which
// are cached fields; the texts are only read.
#include "text/stringim.h"

#include <string.h>

#include <algorithm>

#include <keel/atomic.h>

#include "text/case.h"
#include "text/utf8.h"
#include "text/utf8scan.h"
#include "text/utf8view.h"

namespace keel {

// The searches read a character the way charAt does: characters start where
// the cursor's stepping puts them (by the length the first byte tells) and
// their value is what utf8Next decodes there. So an index a search answers is
// the index that charAt, substring and erase mean, even on broken text. The
// comparisons only walk, and decode with utf8Next throughout.

namespace {

// The next character's place, stepped as seek steps: by the length the
// first byte tells, but a sequence cut off by the end of the text ends there.
inline const uint8_t* nextPlace(const uint8_t* p, const uint8_t* end) {
    const uint8_t* next = p + utf8SequenceLength(p);
    return next > end ? end : next;
}

// The previous character's place: one byte back, then over continuation
// bytes. `p` must be behind `start`. A run of continuation bytes at the very
// start of the text stops at the start instead of in front of it.
inline const uint8_t* previousPlace(const uint8_t* p, const uint8_t* start) {
    do {
        --p;
    } while (p > start && utf8IsContinuation(*p));
    return p;
}

inline uint32_t charValue(const uint8_t* p) {
    if (*p < 0x80) return *p;
    return utf8Next(p);
}

// A one-byte character's value, for texts known to have only those.
inline uint32_t byteValue(uint8_t b) { return b < 0x80 ? b : 0xFFFD; }

inline uint32_t foldAscii(uint32_t c) { return c - 'A' < 26u ? c + 32 : c; }

// A growable list of characters that lives on the stack while it is short.
class CharBufferC {
public:
    CharBufferC() : items_(inline_), count_(0), capacity_(kInline) {}
    ~CharBufferC() {
        if (items_ != inline_) delete[] items_;
    }
    CharBufferC(const CharBufferC&) = delete;
    CharBufferC& operator=(const CharBufferC&) = delete;

    uint32_t count() const { return count_; }
    uint32_t operator[](uint32_t i) const { return items_[i]; }
    void push(uint32_t c) { insertAt(count_, c); }
    void insertAt(uint32_t at, uint32_t c) {
        if (count_ == capacity_) {
            uint32_t* grown = new uint32_t[capacity_ * 2];
            memcpy(grown, items_, count_ * sizeof(uint32_t));
            if (items_ != inline_) delete[] items_;
            items_ = grown;
            capacity_ *= 2;
        }
        memmove(items_ + at + 1, items_ + at, (count_ - at) * sizeof(uint32_t));
        items_[at] = c;
        ++count_;
    }
    // The place of the first item not below `c`, in a sorted buffer.
    uint32_t lowerBound(uint32_t c) const {
        return static_cast<uint32_t>(std::lower_bound(items_, items_ + count_, c) - items_);
    }

private:
    static const uint32_t kInline = 32;
    uint32_t* items_;
    uint32_t count_;
    uint32_t capacity_;
    uint32_t inline_[kInline];
};

// The characters of another string, decoded once up to its first NUL. The
// text stays taken while the list lives.
class CharListC {
public:
    explicit CharListC(StringImplI* other) : text_(other), ascii_(true) {
        const uint8_t* p = text_.data();
        const uint8_t* end = p + text_.size();
        while (p < end && *p != 0) {
            if (*p >= 0x80) ascii_ = false;
            chars_.push(charValue(p));
            p = nextPlace(p, end);
        }
    }
    uint32_t count() const { return chars_.count(); }
    uint32_t operator[](uint32_t i) const { return chars_[i]; }
    // True when every character is a one-byte ASCII character; then
    // needle() is the same characters as a C text.
    bool ascii() const { return ascii_; }
    const char* needle() const { return reinterpret_cast<const char*>(text_.data()); }

private:
    Utf8ViewC text_;
    bool ascii_;
    CharBufferC chars_;
};

// A set of characters: a bitmap for ASCII, a sorted list for the rest.
class CharSetC {
public:
    explicit CharSetC(const CharListC& list) {
        memset(ascii_, 0, sizeof(ascii_));
        for (uint32_t i = 0; i < list.count(); ++i) {
            uint32_t c = list[i];
            if (c < 0x80) {
                ascii_[c >> 5] |= 1u << (c & 31);
            } else {
                uint32_t at = others_.lowerBound(c);
                if (at == others_.count() || others_[at] != c) others_.insertAt(at, c);
            }
        }
    }
    bool contains(uint32_t c) const {
        if (c < 0x80) return (ascii_[c >> 5] >> (c & 31)) & 1u;
        uint32_t at = others_.lowerBound(c);
        return at < others_.count() && others_[at] == c;
    }

private:
    uint32_t ascii_[4];
    CharBufferC others_;
};

// The sign of a byte-length difference, kept whatever the lengths.
inline int lengthDifference(uint32_t mine, uint32_t theirs) {
    int64_t difference = static_cast<int64_t>(mine) - static_cast<int64_t>(theirs);
    if (difference > INT32_MAX) return INT32_MAX;
    if (difference < INT32_MIN) return INT32_MIN;
    return static_cast<int>(difference);
}

// A decimal number read from `p` while the characters are digits, in 32
// bits; the position stops in front of the first other character.
inline int32_t readNumber(const uint8_t*& p, const uint8_t* end) {
    uint32_t number = 0;
    while (p < end) {
        const uint8_t* q = p;
        int32_t digit = digitValue(utf8Next(q));
        if (digit == -1) break;
        // Unsigned arithmetic: a long run wraps as 32-bit arithmetic does,
        // without the undefined behaviour of a signed overflow.
        number = number * 10 + static_cast<uint32_t>(digit);
        p = q;
    }
    return static_cast<int32_t>(number);
}

// The first index of a forward search behind `after`, or -1 when it lies
// beyond any text. Anything below -1 is taken as -1, the start.
inline int32_t forwardStart(int32_t after) {
    if (after < -1) return 0;
    if (after == INT32_MAX) return -1;
    return after + 1;
}

// True when every character of the text is one byte long, as the count
// tells; then an index is a byte offset, as seek takes it.
inline bool oneBytePerChar(StringImplC& s) {
    int32_t known = s.storedCharCount();
    return known >= 0 && static_cast<uint32_t>(known) == s.byteCount();
}

// The first place of a forward search: the character at `index`, or null
// when the search starts at or past the end of the text (or there is no
// buffer). A count already known answers for an index past the end without
// a walk, and the cursor is not moved out there.
inline const uint8_t* forwardPlace(StringImplC& s, int32_t index) {
    if (index < 0) return nullptr;
    int32_t known = s.storedCharCount();
    if (known >= 0 && index >= known) return nullptr;
    const uint8_t* p = s.seek(index);
    if (!p || *p == 0) return nullptr;
    return p;
}

// Where a backward search starts: in front of index `before`, or of the end
// for -1, in which case the count is taken first. An index past the end is
// taken as the end, so that the indexes counted back from it are those of
// the characters. Null for an index below -1 or a text without a buffer.
inline const uint8_t* backwardPlace(StringImplC& s, int32_t before, int32_t& index) {
    if (before < -1) return nullptr;
    int32_t known = s.storedCharCount();
    if (before == -1 || (known >= 0 && before > known)) {
        before = s.length();
    }
    const uint8_t* p = s.seek(before);
    if (p && *p == 0 && before > 0) {
        // The walk reached the end early: the count says where that is.
        int32_t count = s.length();
        if (before > count) {
            before = count;
            p = s.seek(before);
        }
    }
    index = before;
    return p;
}

// What a search found: the index to answer, and where the cursor goes.
struct HitT {
    int32_t index;
    int32_t cursorIndex;
    const uint8_t* cursorPlace;
};

inline HitT noHit() {
    HitT hit = {-1, 0, nullptr};
    return hit;
}

inline HitT makeHit(int32_t index, int32_t cursorIndex, const uint8_t* cursorPlace) {
    HitT hit = {index, cursorIndex, cursorPlace};
    return hit;
}

// A set of ASCII characters read straight from its bytes (up to the first
// NUL, as CharListC reads it) into a bitmap. A search calls this first and
// builds the list and the sorted set only when the set has other
// characters: a loop that searches with the same few separators at every
// call would otherwise spend most of its time making the set again.
class AsciiSetC {
public:
    explicit AsciiSetC(const Utf8ViewC& text) : ascii_(true), empty_(true) {
        memset(bits_, 0, sizeof(bits_));
        const uint8_t* p = text.data();
        const uint8_t* end = p + text.size();
        for (; p < end && *p != 0; ++p) {
            if (*p >= 0x80) {
                ascii_ = false;
                return;
            }
            bits_[*p >> 5] |= 1u << (*p & 31);
            empty_ = false;
        }
    }
    bool ascii() const { return ascii_; }
    bool empty() const { return empty_; }
    bool contains(uint32_t c) const { return c < 0x80 && ((bits_[c >> 5] >> (c & 31)) & 1u); }
    const uint32_t* bits() const { return bits_; }

private:
    uint32_t bits_[4];
    bool ascii_;
    bool empty_;
};

// The forward walk over characters from `p` (index `index`) on: the first
// whose membership in `lookup` is `wanted`. The cursor goes behind it.
template <class Lookup>
inline HitT walkForwardInSet(const uint8_t* p, const uint8_t* end, int32_t index,
                             const Lookup& lookup, bool wanted) {
    while (*p != 0) {
        const uint8_t* next = nextPlace(p, end);
        if (lookup.contains(charValue(p)) == wanted) return makeHit(index, index + 1, next);
        p = next;
        ++index;
    }
    return noHit();
}

// The same walk for a set of ASCII characters. A sequence of two or more
// bytes decodes below 0x80 only in an overlong form, whose lead byte is one
// of C0, C1, E0, F0, F8, FC; every other sequence (and every broken one,
// U+FFFD) is a character outside the set, known without decoding it.
inline HitT walkForwardInAsciiSet(const uint8_t* p, const uint8_t* end, int32_t index,
                                  const AsciiSetC& lookup, bool wanted) {
    for (;;) {
        uint32_t b = *p;
        if (b < 0x80) {
            if (b == 0) return noHit();
            if (lookup.contains(b) == wanted) return makeHit(index, index + 1, p + 1);
            ++p;
            ++index;
            continue;
        }
        bool member = false;
        if (b <= 0xC1 || b == 0xE0 || b == 0xF0 || b == 0xF8 || b == 0xFC) {
            member = lookup.contains(charValue(p));
        }
        const uint8_t* next = nextPlace(p, end);
        if (member == wanted) return makeHit(index, index + 1, next);
        p = next;
        ++index;
    }
}

// The forward set searches: the first character from `index` on that is in
// the set (`wanted` true) or not in it (`wanted` false). The cursor goes
// behind it.
HitT findForwardInSet(StringImplC& s, StringImplI* set, int32_t index, bool wanted) {
    Utf8ViewC setText(set);
    AsciiSetC asciiSet(setText);
    if (asciiSet.ascii()) {
        if (wanted && asciiSet.empty()) return noHit();
        const uint8_t* p = forwardPlace(s, index);
        if (!p) return noHit();
        const uint8_t* data = s.bytes();
        if (oneBytePerChar(s)) {
            // Bytes at or above 0x80 read as U+FFFD, which an ASCII set
            // lacks, so the byte spans of the C library give the same answer.
            const char* text = reinterpret_cast<const char*>(p);
            const uint8_t* at =
                p + (wanted ? strcspn(text, setText.chars()) : strspn(text, setText.chars()));
            if (*at == 0) return noHit();
            int32_t found = static_cast<int32_t>(at - data);
            return makeHit(found, found + 1, at + 1);
        }
        const uint8_t* end = data + s.byteCount();
        // Non-ASCII text: a block step over valid text, the careful walk
        // below for the rest.
        if (end - p >= 64 && haveUtf8VectorPaths()) {
            int found = findAsciiSetBlocks(p, end, asciiSet.bits(), wanted, index);
            if (found < 0) return noHit();
            if (found > 0) return makeHit(index, index + 1, nextPlace(p, end));
        }
        return walkForwardInAsciiSet(p, end, index, asciiSet, wanted);
    }
    CharListC members(set);
    if (wanted && members.count() == 0) return noHit();
    const uint8_t* p = forwardPlace(s, index);
    if (!p) return noHit();
    const uint8_t* data = s.bytes();
    const uint8_t* end = data + s.byteCount();
    CharSetC lookup(members);
    return walkForwardInSet(p, end, index, lookup, wanted);
}

// The backward set searches; the cursor stays at the character found.
template <class Lookup>
HitT walkBackwardInSet(StringImplC& s, const uint8_t* p, int32_t index, const Lookup& lookup,
                       bool wanted) {
    const uint8_t* data = s.bytes();
    if (oneBytePerChar(s)) {
        while (p > data) {
            --p;
            --index;
            if (lookup.contains(byteValue(*p)) == wanted) return makeHit(index, index, p);
        }
        return noHit();
    }
    while (p > data) {
        p = previousPlace(p, data);
        --index;
        if (lookup.contains(charValue(p)) == wanted) return makeHit(index, index, p);
    }
    return noHit();
}

HitT findBackwardInSet(StringImplC& s, StringImplI* set, int32_t before, bool wanted) {
    {
        Utf8ViewC setText(set);
        AsciiSetC asciiSet(setText);
        if (asciiSet.ascii()) {
            if (wanted && asciiSet.empty()) return noHit();
            int32_t index = 0;
            const uint8_t* p = backwardPlace(s, before, index);
            if (!p) return noHit();
            return walkBackwardInSet(s, p, index, asciiSet, wanted);
        }
    }
    CharListC members(set);
    if (wanted && members.count() == 0) return noHit();
    int32_t index = 0;
    const uint8_t* p = backwardPlace(s, before, index);
    if (!p) return noHit();
    CharSetC lookup(members);
    return walkBackwardInSet(s, p, index, lookup, wanted);
}

}  // namespace

// Both texts are compared as bytes, which on valid text is code-point order;
// NULs inside either text count like any other byte.
int StringImplC::compare(StringImplI* other) {
    if (other == this) return 0;
    Utf8ViewC theirs(other);
    const uint8_t* a = textBytes();
    const uint8_t* b = theirs.data();
    uint32_t common = byteLength < theirs.size() ? byteLength : theirs.size();
    if (memcmp(a, b, common) != 0) {
        uint32_t i = 0;
        while (a[i] == b[i]) ++i;
        return static_cast<int>(a[i]) - static_cast<int>(b[i]);
    }
    return lengthDifference(byteLength, theirs.size());
}

// The walk is bounded by this string's bytes alone: where two characters
// that fold alike have encodings of different lengths, the positions drift
// apart and the byte lengths decide the tail.
int StringImplC::compareNoCase(StringImplI* other) {
    if (other == this) return 0;
    Utf8ViewC theirs(other);
    const uint8_t* p1 = textBytes();
    const uint8_t* p2 = theirs.data();
    const uint8_t* end2 = p2 + theirs.size();
    const uint8_t* bound = p1 + (byteLength < theirs.size() ? byteLength : theirs.size());
    while (p1 < bound) {
        uint32_t c1 = utf8Next(p1);
        uint32_t c2;
        if (p2 < end2) {
            c2 = utf8Next(p2);
        } else {
            // The other position has drifted onto its terminator. It stays
            // there and reads 0 again, instead of walking past the buffer.
            c2 = 0;
        }
        if ((c1 | c2) < 0x80) {
            c1 = foldAscii(c1);
            c2 = foldAscii(c2);
        } else {
            c1 = toLowerChar(c1);
            c2 = toLowerChar(c2);
        }
        if (c1 != c2) return static_cast<int>(c1 - c2);
    }
    return lengthDifference(byteLength, theirs.size());
}

// Digit runs compare by their value. A digit's value serves as a truth
// value: a digit zero counts as no digit, so a run that starts with one is
// compared character by character. Two non-digits are compared as two
// characters (folded when asked); read as numbers they would both give 0
// without moving, and the walk would never end.
int StringImplC::compareNatural(StringImplI* other, bool foldCase) {
    if (other == this) return 0;
    Utf8ViewC theirs(other);
    const uint8_t* p1 = textBytes();
    const uint8_t* end1 = p1 + byteLength;
    const uint8_t* p2 = theirs.data();
    const uint8_t* end2 = p2 + theirs.size();
    for (;;) {
        if (p1 >= end1 || p2 >= end2) {
            if (p2 < end2) return -1;
            if (p1 < end1) return 1;
            return 0;
        }
        const uint8_t* before1 = p1;
        const uint8_t* before2 = p2;
        uint32_t c1 = utf8Next(p1);
        uint32_t c2 = utf8Next(p2);
        uint32_t d1 = static_cast<uint32_t>(digitValue(c1)) & 0xFF;
        uint32_t d2 = static_cast<uint32_t>(digitValue(c2)) & 0xFF;
        if (d1 == 0xFF && d2 == 0xFF) {
            if (foldCase) {
                c1 = toLowerChar(c1);
                c2 = toLowerChar(c2);
            }
            if (c1 != c2) return c1 < c2 ? -1 : 1;
            continue;
        }
        if (d1 != 0 && d2 != 0) {
            p1 = before1;
            p2 = before2;
            int32_t n1 = readNumber(p1, end1);
            int32_t n2 = readNumber(p2, end2);
            if (n1 != n2) return n1 < n2 ? -1 : 1;
            continue;
        }
        if (d1 != d2) return d1 != 0 ? -1 : 1;
        if (foldCase) {
            c1 = toLowerChar(c1);
            c2 = toLowerChar(c2);
        }
        if (c1 != c2) return c1 < c2 ? -1 : 1;
    }
}

int32_t StringImplC::findChar(uint32_t character, int32_t after) {
    int32_t index = forwardStart(after);
    const uint8_t* p = forwardPlace(*this, index);
    if (!p) return -1;
    const uint8_t* end = data + byteLength;
    if (oneBytePerChar(*this)) {
        // Every character is one byte here, and the index is the offset.
        const uint8_t* hit = nullptr;
        if (character != 0 && character < 0x80) {
            hit = reinterpret_cast<const uint8_t*>(
                strchr(reinterpret_cast<const char*>(p), static_cast<int>(character)));
        } else if (character == 0xFFFD) {
            for (const uint8_t* q = p; *q != 0; ++q) {
                if (*q >= 0x80) {
                    hit = q;
                    break;
                }
            }
        }
        if (!hit) return -1;
        index = static_cast<int32_t>(hit - data);
        setCursor(index + 1, hit + 1);
        return index;
    }
    // Separators and the like in non-ASCII text: a block step over valid
    // text, the careful walk below for the rest.
    if (character - 1 < 0x7F && end - p >= 64 && haveUtf8VectorPaths()) {
        int found = findAsciiBlocks(p, end, static_cast<uint8_t>(character), index);
        if (found < 0) return -1;
        if (found > 0) {
            setCursor(index + 1, p + 1);
            return index;
        }
    }
    while (*p != 0) {
        const uint8_t* next = nextPlace(p, end);
        if (charValue(p) == character) {
            setCursor(index + 1, next);
            return index;
        }
        p = next;
        ++index;
    }
    return -1;
}

int32_t StringImplC::findLastChar(uint32_t character, int32_t before) {
    int32_t index = 0;
    const uint8_t* p = backwardPlace(*this, before, index);
    if (!p) return -1;
    if (oneBytePerChar(*this)) {
        const uint8_t* hit = nullptr;
        if (character < 0x80) {
            hit = static_cast<const uint8_t*>(memrchr(data, static_cast<int>(character), p - data));
        } else if (character == 0xFFFD) {
            for (const uint8_t* q = p; q > data;) {
                if (*--q >= 0x80) {
                    hit = q;
                    break;
                }
            }
        }
        if (!hit) return -1;
        index = static_cast<int32_t>(hit - data);
        setCursor(index, hit);
        return index;
    }
    while (p > data) {
        p = previousPlace(p, data);
        --index;
        if (charValue(p) == character) {
            setCursor(index, p);
            return index;
        }
    }
    return -1;
}

// A plain search with restart: after a partial match that fails, the next
// candidate is the character behind the last candidate.
int32_t StringImplC::findString(StringImplI* other, int32_t after) {
    CharListC pattern(other);
    uint32_t m = pattern.count();
    if (m == 0) return -1;
    int32_t index = forwardStart(after);
    const uint8_t* p = forwardPlace(*this, index);
    if (!p) return -1;
    const uint8_t* end = data + byteLength;
    int32_t length = static_cast<int32_t>(m);
    if (oneBytePerChar(*this) && pattern.ascii()) {
        // Bytes at or above 0x80 read as U+FFFD here and match no ASCII
        // character, so a byte search finds the same place.
        const char* hit = strstr(reinterpret_cast<const char*>(p), pattern.needle());
        if (!hit) return -1;
        const uint8_t* at = reinterpret_cast<const uint8_t*>(hit);
        index = static_cast<int32_t>(at - data);
        setCursor(index + length, at + m);
        return index;
    }
    uint32_t first = pattern[0];
    while (*p != 0) {
        if (charValue(p) == first) {
            const uint8_t* q = nextPlace(p, end);
            uint32_t k = 1;
            while (k < m && *q != 0 && charValue(q) == pattern[k]) {
                q = nextPlace(q, end);
                ++k;
            }
            if (k == m) {
                setCursor(index + length, q);
                return index;
            }
            // The text ended inside this candidate: no later one fits.
            if (*q == 0) return -1;
        }
        p = nextPlace(p, end);
        ++index;
    }
    return -1;
}

// The match must end at or in front of `before`: the first candidate lies
// the pattern's length in front of it, and the candidates move back one
// character at a time. The cursor goes behind the match.
int32_t StringImplC::findLastString(StringImplI* other, int32_t before) {
    CharListC pattern(other);
    uint32_t m = pattern.count();
    if (m == 0) return -1;
    int32_t index = 0;
    const uint8_t* p = backwardPlace(*this, before, index);
    if (!p) return -1;
    const uint8_t* end = data + byteLength;
    for (uint32_t k = 0; k < m; ++k) {
        if (p <= data) return -1;
        p = previousPlace(p, data);
        --index;
    }
    for (;;) {
        const uint8_t* q = p;
        uint32_t k = 0;
        while (k < m && *q != 0 && charValue(q) == pattern[k]) {
            q = nextPlace(q, end);
            ++k;
        }
        if (k == m) {
            setCursor(index + static_cast<int32_t>(m), q);
            return index;
        }
        if (p <= data) return -1;
        p = previousPlace(p, data);
        --index;
    }
}

int32_t StringImplC::findFirstOf(StringImplI* set, int32_t after) {
    HitT hit = findForwardInSet(*this, set, forwardStart(after), true);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

int32_t StringImplC::findLastOf(StringImplI* set, int32_t before) {
    HitT hit = findBackwardInSet(*this, set, before, true);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

int32_t StringImplC::findFirstNotOf(StringImplI* set, int32_t after) {
    HitT hit = findForwardInSet(*this, set, forwardStart(after), false);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

int32_t StringImplC::findLastNotOf(StringImplI* set, int32_t before) {
    HitT hit = findBackwardInSet(*this, set, before, false);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

}  // namespace keel
