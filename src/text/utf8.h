// Walkers of the internal text form: extended UTF-8, sequences of one to six
// bytes, so any value below 0x80000000 can be stored.
//
// utf8Next decodes one character and moves the pointer; it needs no end
// pointer because every buffer of internal form ends in a NUL, which is never
// a continuation byte. Code that walks bytes without a terminator asks
// utf8SequenceLength first.
#ifndef KEEL_TEXT_UTF8_H
#define KEEL_TEXT_UTF8_H

#include <stdint.h>

namespace keel {

// A byte of the form 10xxxxxx, which continues a sequence.
inline bool utf8IsContinuation(uint8_t b) { return (b & 0xC0) == 0x80; }

// Length of the sequence that starts with this byte, by its leading 1 bits:
// 1 for ASCII, a stray continuation byte, 0xFE and 0xFF.
inline uint32_t utf8SequenceLength(const uint8_t* p) {
    uint8_t b = *p;
    if (b < 0xC0) return 1;
    if (b < 0xE0) return 2;
    if (b < 0xF0) return 3;
    if (b < 0xF8) return 4;
    if (b < 0xFC) return 5;
    if (b < 0xFE) return 6;
    return 1;
}

// Bytes needed to store `value`; 0 for values of 0x80000000 and above.
inline uint32_t utf8EncodedLength(uint32_t value) {
    if (value < 0x80) return 1;
    if (value < 0x800) return 2;
    if (value < 0x10000) return 3;
    if (value < 0x200000) return 4;
    if (value < 0x4000000) return 5;
    if (value < 0x80000000u) return 6;
    return 0;
}

// Decodes one character and moves `p` past it. Overlong forms and surrogate
// values pass unchecked; a broken sequence gives one U+FFFD and is skipped
// with the continuation bytes behind its first byte, at most its length.
inline uint32_t utf8Next(const uint8_t*& p) {
    uint8_t b = *p;
    if (b < 0x80) {
        ++p;
        return b;
    }
    uint32_t n = utf8SequenceLength(p);
    if (n == 1) {
        ++p;
        return 0xFFFD;
    }
    uint32_t value = b & (0x7Fu >> n);
    for (uint32_t i = 1; i < n; ++i) {
        uint8_t c = p[i];
        if (!utf8IsContinuation(c)) {
            // Skip the first byte and the run of continuation bytes behind it.
            uint32_t skip = 1;
            while (skip < n && utf8IsContinuation(p[skip])) ++skip;
            p += skip;
            return 0xFFFD;
        }
        value = (value << 6) | (c & 0x3F);
    }
    p += n;
    return value;
}

// Encodes `value` at `p` and moves `p`; writes nothing for values that have
// no encoded form.
inline void utf8Put(uint8_t*& p, uint32_t value) {
    uint32_t n = utf8EncodedLength(value);
    switch (n) {
    case 1:
        *p++ = static_cast<uint8_t>(value);
        return;
    case 0:
        return;
    default:
        break;
    }
    static const uint8_t lead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
    for (uint32_t i = n - 1; i > 0; --i) {
        p[i] = static_cast<uint8_t>(0x80 | (value & 0x3F));
        value >>= 6;
    }
    // For six bytes the remaining bit is bit 30 of the value: 0xFD or 0xFC.
    p[0] = static_cast<uint8_t>(lead[n] | value);
    p += n;
}

}  // namespace keel

#endif
