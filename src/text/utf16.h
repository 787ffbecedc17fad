// Walkers of the 16-bit form: one character at a time between UTF-16 code
// units and 32-bit values. `swapped` says the units are in the other byte order
// than the machine's (the machine is little-endian, so swapped means
// big-endian). Each walker comes for `uint16_t` pointers and for byte pointers;
// the byte versions read and write through memcpy, so they work on the
// unaligned buffers that decoders are handed.
//
// Nothing here checks values: a surrogate value goes out as one unit, and a
// broken pair comes in as U+FFFD, one unit at a time.
#ifndef KEEL_TEXT_UTF16_H
#define KEEL_TEXT_UTF16_H

#include <stdint.h>
#include <string.h>

namespace keel {

#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the 16-bit and 32-bit walkers assume a little-endian machine"
#endif

inline uint16_t utf16Swap(uint16_t unit) {
    return static_cast<uint16_t>((unit >> 8) | (unit << 8));
}

inline uint16_t utf16Load(const uint8_t* p, bool swapped) {
    uint16_t unit;
    memcpy(&unit, p, 2);
    return swapped ? utf16Swap(unit) : unit;
}

inline void utf16Store(uint8_t* p, uint16_t unit, bool swapped) {
    if (swapped) unit = utf16Swap(unit);
    memcpy(p, &unit, 2);
}

// Units needed for `value`: 2 for the supplementary planes, else 1.
inline uint32_t utf16UnitsFor(uint32_t value) {
    return (value >= 0x10000 && value <= 0x10FFFF) ? 2 : 1;
}

// Units that the character starting here takes: 2 after a high surrogate.
// A high surrogate is answered 2 whatever follows, so that a reader waits for
// the second unit before deciding.
inline uint32_t utf16UnitsAt(const uint8_t* p, bool swapped) {
    uint16_t unit = utf16Load(p, swapped);
    return (unit >= 0xD800 && unit <= 0xDBFF) ? 2 : 1;
}

inline uint32_t utf16UnitsAt(const uint16_t* p, bool swapped) {
    return utf16UnitsAt(reinterpret_cast<const uint8_t*>(p), swapped);
}

// Decodes one character and moves `p`: one unit, or two for a proper pair.
// A lone surrogate of either kind gives U+FFFD and moves one unit, so the
// unit behind a high surrogate without its partner is read on its own.
// The caller guarantees that two units are readable after a high surrogate
// (utf16UnitsAt tells).
inline uint32_t utf16Next(const uint8_t*& p, bool swapped) {
    uint32_t unit = utf16Load(p, swapped);
    if (unit < 0xD800 || unit > 0xDFFF) {
        p += 2;
        return unit;
    }
    if (unit <= 0xDBFF) {
        uint32_t low = utf16Load(p + 2, swapped);
        if (low >= 0xDC00 && low <= 0xDFFF) {
            p += 4;
            return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    p += 2;
    return 0xFFFD;
}

inline uint32_t utf16Next(const uint16_t*& p, bool swapped) {
    const uint8_t* b = reinterpret_cast<const uint8_t*>(p);
    uint32_t value = utf16Next(b, swapped);
    p = reinterpret_cast<const uint16_t*>(b);
    return value;
}

// Encodes one character and moves `p`. Values below 0x10000 go out as one
// unit, surrogates included; the supplementary planes as a pair; anything
// above 0x10FFFF as one U+FFFD.
inline void utf16Put(uint8_t*& p, uint32_t value, bool swapped) {
    if (value < 0x10000) {
        utf16Store(p, static_cast<uint16_t>(value), swapped);
        p += 2;
    } else if (value < 0x110000) {
        value -= 0x10000;
        utf16Store(p, static_cast<uint16_t>(0xD800 + (value >> 10)), swapped);
        utf16Store(p + 2, static_cast<uint16_t>(0xDC00 + (value & 0x3FF)), swapped);
        p += 4;
    } else {
        utf16Store(p, 0xFFFD, swapped);
        p += 2;
    }
}

inline void utf16Put(uint16_t*& p, uint32_t value, bool swapped) {
    uint8_t* b = reinterpret_cast<uint8_t*>(p);
    utf16Put(b, value, swapped);
    p = reinterpret_cast<uint16_t*>(b);
}

}  // namespace keel

#endif
