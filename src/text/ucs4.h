// Walkers of the 32-bit form: one word per character in machine order, which
// is what `wchar_t` text is on this platform. Values are never checked: any
// 32-bit word reads as itself and any value is written as it is. The unit and
// validity questions exist so that code written for the 16-bit form has the
// same set of walkers here.
#ifndef KEEL_TEXT_UCS4_H
#define KEEL_TEXT_UCS4_H

#include <stdint.h>
#include <string.h>

namespace keel {

inline uint32_t ucs4UnitsFor(uint32_t) { return 1; }
inline uint32_t ucs4UnitsAt(const void*) { return 1; }
inline bool ucs4IsValid(uint32_t) { return true; }

// Reads one word and moves `p` by it. The byte version reads through memcpy
// and so takes unaligned buffers.
inline uint32_t ucs4Next(const uint8_t*& p) {
    uint32_t value;
    memcpy(&value, p, 4);
    p += 4;
    return value;
}

inline uint32_t ucs4Next(const uint32_t*& p) { return *p++; }

inline uint32_t ucs4Next(const wchar_t*& p) { return static_cast<uint32_t>(*p++); }

// Writes one word and moves `p` by it.
inline void ucs4Put(uint8_t*& p, uint32_t value) {
    memcpy(p, &value, 4);
    p += 4;
}

inline void ucs4Put(uint32_t*& p, uint32_t value) { *p++ = value; }

inline void ucs4Put(wchar_t*& p, uint32_t value) { *p++ = static_cast<wchar_t>(value); }

static_assert(sizeof(wchar_t) == 4, "wchar_t text is one 32-bit word per character");

}  // namespace keel

#endif
