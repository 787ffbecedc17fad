// Word-at-a-time helpers: eight bytes read as one 64-bit word, and the masks
// that test all eight at once. The one place for these constants; the block
// loops of the text units build on them.
#ifndef KEEL_TEXT_WORDBITS_H
#define KEEL_TEXT_WORDBITS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace keel {

// Bit 0 and bit 7 of every byte.
const uint64_t kLowBits = 0x0101010101010101ull;
const uint64_t kHighBits = 0x8080808080808080ull;

// Eight bytes from any address, first in memory in the low byte on x86.
inline uint64_t load64(const uint8_t* p) {
    uint64_t x;
    memcpy(&x, p, 8);
    return x;
}

// Whether the `length` bytes at `p` are all below 0x80, eight at a time.
inline bool allAscii(const uint8_t* p, size_t length) {
    size_t i = 0;
    for (; length - i >= 8; i += 8) {
        if (load64(p + i) & kHighBits) return false;
    }
    for (; i < length; ++i) {
        if (p[i] >= 0x80) return false;
    }
    return true;
}

}  // namespace keel

#endif
