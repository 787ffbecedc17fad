// The UTF-16 block kernel: UTF-16 units without surrogates into the internal
// form (UTF-8), sixteen units a step, for the UTF-16 decoder of
// textencoding.cpp. Its reference is the decoder's plain character loop
// there (utf16Load, then utf8Put of the unit), which takes every block the
// kernel refuses.
//
// Invariant: the kernel writes and counts exactly what that loop would for
// the blocks it takes, and only ever stops early: in front of a block that
// holds a surrogate, or when fewer than 32 bytes or 64 bytes of room are
// left. It is chosen at run time by one processor check (see "Dispatch" in
// docs/design.md) and switched off with the other kernels
// (StringImplC::setVectorPaths); without it, it takes nothing.
#ifndef KEEL_TEXT_UTF16SCAN_H
#define KEEL_TEXT_UTF16SCAN_H

#include <stdint.h>

#include <keel/atomic.h>

#include "text/utf8scan.h"

namespace keel {

bool utf16VectorPathsFound();
inline bool haveUtf16VectorPaths() {
    static const bool have = utf16VectorPathsFound();
    return have && !atomicLoadRelaxed(&utf8VectorPathsOff);
}

// Decodes whole blocks of sixteen units (in the byte order `swapped` says)
// from the `length` bytes at `in` into `out`, which has room for `room`
// bytes; answers the input bytes taken, sets `*written` to the output bytes.
// Every unit taken is one character.
uint32_t decodeUtf16Blocks(const uint8_t* in, uint32_t length, bool swapped, uint8_t* out,
                           uint32_t room, uint32_t* written);

}  // namespace keel

#endif
