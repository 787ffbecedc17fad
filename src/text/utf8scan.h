// UTF-8 block kernels: the copy of a clean head of UTF-8 into the internal
// form, and the step of an ASCII search over valid UTF-8, each as a plain
// loop (the reference, inline here) and a vector kernel beside it in
// utf8scan.cpp.
//
// A string made from "utf8" or "system-8" bytes is mostly made from text that
// is already what the UTF-8 decoder would write: whole sequences in their
// shortest form. For such a head the decoder's two passes (size, then decode)
// come down to a copy and a character count, which copyCleanUtf8 does in one
// pass. It is only a short cut: whatever it does not take goes through the
// decoder as before, and it stops in front of anything it is unsure of.
//
// Invariant: every kernel answers exactly what its plain loop answers; a
// kernel only ever stops early, never differently, and the caller finishes
// the plain way. The kernels are chosen at run time (see "Dispatch" in
// docs/design.md): where the processor lacks them, or the vector paths are
// switched off, they take nothing and answer 0.
#ifndef KEEL_TEXT_UTF8SCAN_H
#define KEEL_TEXT_UTF8SCAN_H

#include <stdint.h>
#include <string.h>

#include <keel/atomic.h>

#include "text/wordbits.h"
#include "text/utf8.h"

namespace keel {

// The length of the sequence at `p` when it is whole before `end`, of one to
// four bytes, in its shortest form and at most U+10FFFF: utf8Next reads it
// and utf8Put writes the same bytes back. 0 for anything else.
inline uint32_t utf8CleanLength(const uint8_t* p, const uint8_t* end) {
    uint8_t b = p[0];
    if (b < 0x80) return 1;
    size_t left = static_cast<size_t>(end - p);
    if (b < 0xC2) return 0;  // continuation byte, or C0/C1 (overlong)
    if (b < 0xE0) return left >= 2 && utf8IsContinuation(p[1]) ? 2 : 0;
    if (b < 0xF0) {
        return left >= 3 && utf8IsContinuation(p[1]) && utf8IsContinuation(p[2]) &&
                       (b != 0xE0 || p[1] >= 0xA0)
                   ? 3
                   : 0;
    }
    if (b < 0xF5) {
        return left >= 4 && utf8IsContinuation(p[1]) && utf8IsContinuation(p[2]) &&
                       utf8IsContinuation(p[3]) && (b != 0xF0 || p[1] >= 0x90) &&
                       (b != 0xF4 || p[1] < 0x90)
                   ? 4
                   : 0;
    }
    return 0;
}

// The one dispatch decision of the library's vector code: the processor check
// is made once (utf8VectorPathsFound, in utf8scan.cpp), and the tests may
// switch the kernels off. The kernels below may be called only where this
// answers true; it is inline so that the common test costs no call.
bool utf8VectorPathsFound();
extern bool utf8VectorPathsOff;
inline bool haveUtf8VectorPaths() {
    static const bool have = utf8VectorPathsFound();
    return have && !atomicLoadRelaxed(&utf8VectorPathsOff);
}

// The vector kernel of copyCleanUtf8: copies and checks whole blocks of 64
// bytes and answers how many bytes it took, always at the end of a sequence,
// counting their characters.
uint32_t copyCleanUtf8Blocks(uint8_t* out, const uint8_t* in, uint32_t length,
                             uint32_t* characters);

// Copies the longest head of `in` that is made of clean sequences (see
// utf8CleanLength) to `out`, which has room for `length` bytes, answers
// its length and counts its characters.
inline uint32_t copyCleanUtf8(uint8_t* out, const uint8_t* in, uint32_t length,
                              uint32_t* characters) {
    uint32_t at = 0;
    uint32_t chars = 0;
    if (length >= 64 && haveUtf8VectorPaths()) at = copyCleanUtf8Blocks(out, in, length, &chars);
    const uint8_t* p = in + at;
    const uint8_t* end = in + length;
    uint8_t* o = out + at;
    while (p < end) {
        if (end - p >= 8) {
            uint64_t word;
            memcpy(&word, p, 8);
            if ((word & kHighBits) == 0) {
                memcpy(o, &word, 8);
                p += 8;
                o += 8;
                chars += 8;
                continue;
            }
        } else if (end - in >= 8) {
            // The last eight bytes, some of them copied already (as they
            // are, so writing them again changes nothing): when all are
            // ASCII, so is the rest.
            uint64_t word;
            memcpy(&word, end - 8, 8);
            if ((word & kHighBits) == 0) {
                memcpy(out + (length - 8), &word, 8);
                chars += static_cast<uint32_t>(end - p);
                p = end;
                break;
            }
        }
        uint32_t n = utf8CleanLength(p, end);
        if (n == 0) break;
        for (uint32_t i = 0; i < n; ++i) o[i] = p[i];
        p += n;
        o += n;
        ++chars;
    }
    *characters = chars;
    return static_cast<uint32_t>(p - in);
}

// The block step of findChar for an ASCII character other than NUL, from the
// walk position `place` with character index `index`. Answers 1 with `place`
// and `index` at the match, -1 when a NUL character ends the walk first, or 0
// with `place` and `index` at a walk position from which the caller goes on
// the careful way.
int findAsciiBlocks(const uint8_t*& place, const uint8_t* end, uint8_t character, int32_t& index);

// The same block step for the searches with a set of ASCII characters
// (`bits`, one bit per character 0 to 127, NUL never in it): with `wanted`
// the first character in the set, without it the first one outside it. The
// plain loop is the character walk of findFirstOf and findFirstNotOf.
int findAsciiSetBlocks(const uint8_t*& place, const uint8_t* end, const uint32_t bits[4],
                       bool wanted, int32_t& index);

// Switches the vector kernels off (for the tests that hold them to the plain
// loops) and on again.
void setUtf8VectorPaths(bool on);

}  // namespace keel

#endif
