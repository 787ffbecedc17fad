// The block kernels of the text conversions: the paths that take many
// bytes or units at a time, for the decoders and encoders of
// textencoding.cpp. Each kernel takes as many whole blocks as it can from the
// place it is given and stops in front of the first block it cannot take
// (too short, not clean, or more output than the room holds for certain);
// the caller then takes one character through its plain loop, which is the
// reference: a kernel writes and counts exactly what that loop would for the
// blocks it took, and only ever stops early. The tests hold every conversion
// to the plain loop in every split of the input and at every block offset.
//
// Dispatch: SSE2 belongs to the x86-64 baseline and is used at compile time
// under `#if defined(__SSE2__)`, sixteen bytes a step; the other branch (the
// i386 build) is the eight-byte word loop of wordbits.h. Nothing here needs
// more than the baseline, so there is no run-time choice. The kernels are
// inline: they run inside the conversion loops, where a call per block would
// cost more than short text takes to convert.
#ifndef KEEL_TEXT_CODECBLOCKS_H
#define KEEL_TEXT_CODECBLOCKS_H

#include <stdint.h>
#include <string.h>

#include "text/ucs4.h"
#include "text/utf16.h"
#include "text/utf8.h"
#include "text/wordbits.h"

// SSE2 is part of every x86-64 processor; the 32-bit build goes without it
// and takes the eight-byte paths, which give the same answers.
#if defined(__SSE2__)
#include <emmintrin.h>
#define KEEL_TEXT_SSE2 1
#else
#define KEEL_TEXT_SSE2 0
#endif

namespace keel {
namespace codecblocks {

// The number of bytes that have bit 7 set in a word with no other bits set.
// A multiplication adds them up: the machine's baseline instruction set has no
// population count, and the library call would cost more than the loop.
inline uint32_t countByteFlags(uint64_t flags) {
    return static_cast<uint32_t>(((flags >> 7) * kLowBits) >> 56);
}

// Bytes of 0x80 and above among the eight.
inline uint32_t highBytes(uint64_t x) { return countByteFlags(x & kHighBits); }

// Swaps the bytes of each of the four 16-bit units.
inline uint64_t swapUnits(uint64_t x) {
    return ((x >> 8) & 0x00FF00FF00FF00FFull) | ((x & 0x00FF00FF00FF00FFull) << 8);
}

#if !KEEL_TEXT_SSE2
// Eight ASCII bytes widened to eight 16-bit units in the given order.
inline void widen8To16(uint8_t* o, uint64_t x, bool swapped) {
    uint64_t lo = x & 0xFFFFFFFFu;
    uint64_t hi = x >> 32;
    uint64_t a =
        (lo & 0xFF) | ((lo & 0xFF00) << 8) | ((lo & 0xFF0000) << 16) | ((lo & 0xFF000000) << 24);
    uint64_t b =
        (hi & 0xFF) | ((hi & 0xFF00) << 8) | ((hi & 0xFF0000) << 16) | ((hi & 0xFF000000) << 24);
    if (swapped) {
        a <<= 8;
        b <<= 8;
    }
    memcpy(o, &a, 8);
    memcpy(o + 8, &b, 8);
}

// Eight ASCII bytes widened to eight 32-bit words.
inline void widen8To32(uint8_t* o, uint64_t x) {
    uint32_t w[8];
    for (int i = 0; i < 8; ++i) w[i] = static_cast<uint8_t>(x >> (8 * i));
    memcpy(o, w, 32);
}
#endif

inline uint32_t left(const uint8_t* p, const uint8_t* end) {
    return static_cast<uint32_t>(end - p);
}

#if !KEEL_TEXT_SSE2
// What scanClean found at the head of a block of internal form.
struct CleanRunT {
    uint32_t length;  // bytes of whole clean sequences at the front; 0 for none
    uint32_t chars;   // characters in them
    uint32_t quads;   // four-byte characters among them (two UTF-16 units each)
    uint64_t starts;  // where the characters start: a flag per byte (see startOf)
};

// Looks at the eight bytes at `p`, the first of which starts a character, all
// at once. A clean sequence is whole, of one to four bytes, in its shortest
// form and at most U+10FFFF: there utf8Next gives the plain UTF-8 reading,
// utf8Put writes the same bytes back, and UTF-16 needs one unit per character
// plus one per four-byte character. The run stops in front of a sequence cut
// by the end of the eight bytes; anything unclean in it gives length 0, and
// the caller walks that character the careful way.
__attribute__((always_inline)) inline CleanRunT scanClean8(const uint8_t* p) {
    const uint64_t h = kHighBits;
    CleanRunT run = {0, 0, 0, 0};
    uint64_t x = load64(p);
    uint64_t hi = x & h;
    if (hi == 0) {
        run.length = 8;
        run.chars = 8;
        run.starts = h;
        return run;
    }
    // Bit k of every byte, moved to bit 7 of the same byte.
    uint64_t b6 = (x << 1) & h, b5 = (x << 2) & h, b4 = (x << 3) & h, b3 = (x << 4) & h;
    uint64_t b2 = (x << 5) & h, b1 = (x << 6) & h, b0 = (x << 7) & h;
    uint64_t lead2 = hi & b6;     // 11xxxxxx
    uint64_t lead3 = lead2 & b5;  // 111xxxxx
    uint64_t lead4 = lead3 & b4;  // 1111xxxx
    uint64_t cont = hi ^ lead2;   // 10xxxxxx
    // Every continuation byte where a lead byte asks for one, and nowhere
    // else; no sequence of five or six bytes, no FE or FF.
    if (((lead2 << 8) | (lead3 << 16) | (lead4 << 24)) != cont || (lead4 & b3)) return run;
    uint32_t length = 8;
    uint64_t keep = ~0ull;
    if ((lead2 >> 56) | (lead3 >> 48) | (lead4 >> 40)) {
        length = static_cast<uint32_t>(63 - __builtin_clzll(lead2)) >> 3;
        keep = length ? (~0ull >> (64 - 8 * length)) : 0;
    }
    // Bits 5 and 4 of the following byte.
    uint64_t n5 = (x >> 6) & h, n4 = (x >> 5) & h;
    uint64_t overlong2 = lead2 & ~lead3 & ~(b4 | b3 | b2 | b1);        // C0, C1
    uint64_t overlong3 = lead3 & ~lead4 & ~(b3 | b2 | b1 | b0) & ~n5;  // E0 80-9F
    uint64_t overlong4 = lead4 & ~(b2 | b1 | b0) & ~(n5 | n4);         // F0 80-8F
    uint64_t beyond = lead4 & b2 & (b1 | b0 | n5 | n4);                // F4 90 up, F5-F7
    if ((overlong2 | overlong3 | overlong4 | beyond) & keep) return run;
    run.length = length;
    run.starts = ~cont & h & keep;
    run.chars = countByteFlags(run.starts);
    run.quads = countByteFlags(lead4 & keep);
    return run;
}

#endif

#if KEEL_TEXT_SSE2
inline uint32_t countBits(uint32_t x) {
    x = x - ((x >> 1) & 0x55555555u);
    x = (x & 0x33333333u) + ((x >> 2) & 0x33333333u);
    x = (x + (x >> 4)) & 0x0F0F0F0Fu;
    return (x * 0x01010101u) >> 24;
}

// The width of the block paths.
const uint32_t kScanBytes = 16;

// What walkClean16 found in a block of sixteen bytes.
struct CleanBlockT {
    uint32_t starts;  // a bit per byte where a character starts
    uint32_t quads;   // a bit per byte where a four-byte character starts
    bool ascii;       // all sixteen are ASCII
};

// Walks clean blocks of sixteen bytes at a fixed stride from `p`, which
// starts a character. A block is clean when every sequence that starts in it
// is clean (see scanClean8) and the continuation bytes that the block before
// asked for are there; sequences run over the end of a block into the next,
// so no block waits for the one before to be measured. visit(p, block) is
// called for each. The walk stops in front of the first block that is not
// clean, or when fewer than 19 bytes are left before `end` (visitors read up
// to three bytes behind a block; a block of ASCII needs only its own 16). A
// character started by the last visited block whose continuation was not checked is given back: undo(lead, bytes)
// is told where it starts and how many of its bytes the visits covered, and
// the walk answers the place of that lead. So the answer is always where a
// character starts.
template <class Visit, class Undo>
__attribute__((always_inline)) inline const uint8_t* walkClean16(const uint8_t* p,
                                                                 const uint8_t* end, Visit visit,
                                                                 Undo undo) {
    uint32_t carry = 0;
    while (left(p, end) >= 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        uint32_t hi = static_cast<uint32_t>(_mm_movemask_epi8(v));
        if ((hi | carry) == 0) {
            visit(p, CleanBlockT{0xFFFF, 0, true});
            p += 16;
            continue;
        }
        if (left(p, end) < 19) break;
        auto above = [v](int limit) {
            return static_cast<uint32_t>(
                _mm_movemask_epi8(_mm_cmpgt_epi8(v, _mm_set1_epi8(static_cast<char>(limit)))));
        };
        auto equal = [v](int value) {
            return static_cast<uint32_t>(
                _mm_movemask_epi8(_mm_cmpeq_epi8(v, _mm_set1_epi8(static_cast<char>(value)))));
        };
        uint32_t lead2 = above(-65) & hi;  // C0 and up
        uint32_t lead3 = above(-33) & hi;  // E0 and up
        uint32_t lead4 = above(-17) & hi;  // F0 and up
        uint32_t cont = hi & ~lead2;
        uint32_t expected = carry | (lead2 << 1) | (lead3 << 2) | (lead4 << 3);
        if ((expected & 0xFFFF) != cont || (above(-9) & hi)) break;
        // The byte behind each, from a load one byte further on.
        __m128i n = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
        uint32_t next90 = static_cast<uint32_t>(
            _mm_movemask_epi8(_mm_cmplt_epi8(n, _mm_set1_epi8(static_cast<char>(-112)))));
        uint32_t nextA0 = static_cast<uint32_t>(
            _mm_movemask_epi8(_mm_cmplt_epi8(n, _mm_set1_epi8(static_cast<char>(-96)))));
        uint32_t bad = (equal(-64) | equal(-63))  // C0, C1
                       | (equal(-32) & nextA0)    // E0 80-9F
                       | (equal(-16) & next90)    // F0 80-8F
                       | (equal(-12) & ~next90)   // F4 90 and up
                       | (above(-12) & hi);       // F5 to F7
        if (bad) break;
        visit(p, CleanBlockT{~cont & 0xFFFF, lead4, false});
        carry = expected >> 16;
        p += 16;
    }
    if (carry) {
        const uint8_t* lead = p;
        do {
            --lead;
        } while (utf8IsContinuation(*lead));
        undo(lead, static_cast<uint32_t>(p - lead));
        p = lead;
    }
    return p;
}
#else
const uint32_t kScanBytes = 8;
__attribute__((always_inline)) inline CleanRunT scanClean(const uint8_t* p) {
    return scanClean8(p);
}
inline bool asciiBlock(const uint8_t* p) { return (load64(p) & kHighBits) == 0; }
inline uint32_t startOf(uint64_t starts) {
    return static_cast<uint32_t>(__builtin_ctzll(starts)) >> 3;
}
#endif

// Per 16-bit lane: 0x8000 where the lane is not zero.
inline uint64_t lanesNotZero(uint64_t x) {
    const uint64_t low15 = 0x7FFF7FFF7FFF7FFFull;
    return (((x & low15) + low15) | x) & ~low15;
}

// UTF-8 bytes of a value below 0x10000, in the order they are written, and
// their number.
inline uint32_t utf8Bytes16(uint32_t u, uint32_t* length) {
    if (u < 0x80) {
        *length = 1;
        return u;
    }
    if (u < 0x800) {
        *length = 2;
        return (0xC0 | (u >> 6)) | ((0x80 | (u & 0x3F)) << 8);
    }
    *length = 3;
    return (0xE0 | (u >> 12)) | ((0x80 | ((u >> 6) & 0x3F)) << 8) | ((0x80 | (u & 0x3F)) << 16);
}

inline void store32(uint8_t* o, uint32_t x) { memcpy(o, &x, 4); }

const uint64_t kLaneTops = 0x8000800080008000ull;

// Lanes (0x8000 each) of the four units that are high or low surrogates.
inline uint64_t highSurrogateLanes(uint64_t x) {
    return ~lanesNotZero((x & 0xFC00FC00FC00FC00ull) ^ 0xD800D800D800D800ull) & kLaneTops;
}

inline uint64_t lowSurrogateLanes(uint64_t x) {
    return ~lanesNotZero((x & 0xFC00FC00FC00FC00ull) ^ 0xDC00DC00DC00DC00ull) & kLaneTops;
}

// The sum of the four 16-bit lanes, each below 0x4000.
inline uint32_t sumLanes(uint64_t x) {
    return static_cast<uint32_t>((x * 0x0001000100010001ull) >> 48);
}

#if KEEL_TEXT_SSE2

// Eight 16-bit units in machine order.
inline __m128i loadUnits(const uint8_t* p, bool swapped) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    return swapped ? _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8)) : v;
}

// Lanes (all ones) of the high and of the low surrogates among eight units.
inline void surrogateUnits(__m128i u, __m128i* high, __m128i* low) {
    __m128i top6 = _mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFC00)));
    *high = _mm_cmpeq_epi16(top6, _mm_set1_epi16(static_cast<short>(0xD800)));
    *low = _mm_cmpeq_epi16(top6, _mm_set1_epi16(static_cast<short>(0xDC00)));
}

// Lanes (all ones) of 16-bit values below 0x80 and below 0x800.
inline __m128i below80(__m128i u) {
    return _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xFF80))),
                           _mm_setzero_si128());
}
inline __m128i below800(__m128i u) {
    return _mm_cmpeq_epi16(_mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800))),
                           _mm_setzero_si128());
}

// The UTF-8 bytes of four values below 0x10000 that are no surrogates, one
// to three in each 32-bit lane in the order they are written.
inline __m128i utf8Words(__m128i u) {
    __m128i low6 = _mm_or_si128(_mm_and_si128(u, _mm_set1_epi32(0x3F)), _mm_set1_epi32(0x80));
    __m128i mid6 = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0x3F)),
                                _mm_set1_epi32(0x80));
    __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 6), _mm_set1_epi32(0xC0)),
                               _mm_slli_epi32(low6, 8));
    __m128i three =
        _mm_or_si128(_mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 12), _mm_set1_epi32(0xE0)),
                                  _mm_slli_epi32(mid6, 8)),
                     _mm_slli_epi32(low6, 16));
    __m128i isOne = _mm_cmplt_epi32(u, _mm_set1_epi32(0x80));
    __m128i isTwo = _mm_cmplt_epi32(u, _mm_set1_epi32(0x800));
    __m128i w = _mm_or_si128(_mm_and_si128(isTwo, two), _mm_andnot_si128(isTwo, three));
    return _mm_or_si128(_mm_and_si128(isOne, u), _mm_andnot_si128(isOne, w));
}

// The four UTF-8 bytes of four values from 0x10000 to 0x1FFFFF, in the
// order they are written.
inline __m128i utf8FourByteWords(__m128i u) {
    __m128i six = _mm_set1_epi32(0x3F), top = _mm_set1_epi32(0x80);
    __m128i b0 = _mm_or_si128(_mm_srli_epi32(u, 18), _mm_set1_epi32(0xF0));
    __m128i b1 = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(u, 12), six), top);
    __m128i b2 = _mm_or_si128(_mm_and_si128(_mm_srli_epi32(u, 6), six), top);
    __m128i b3 = _mm_or_si128(_mm_and_si128(u, six), top);
    return _mm_or_si128(_mm_or_si128(b0, _mm_slli_epi32(b1, 8)),
                        _mm_or_si128(_mm_slli_epi32(b2, 16), _mm_slli_epi32(b3, 24)));
}

// utf8Words for values below 0x200000, which take up to four bytes.
inline __m128i utf8Words4(__m128i u) {
    __m128i isFour = _mm_cmpgt_epi32(u, _mm_set1_epi32(0xFFFF));
    return _mm_or_si128(_mm_and_si128(isFour, utf8FourByteWords(u)),
                        _mm_andnot_si128(isFour, utf8Words(u)));
}

// The four 32-bit lanes of a vector, taken out into registers.
struct LanesT {
    uint32_t w0, w1, w2, w3;
};

inline LanesT lanesOf(__m128i x) {
    return LanesT{static_cast<uint32_t>(_mm_cvtsi128_si32(x)),
                  static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_shuffle_epi32(x, 1))),
                  static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_shuffle_epi32(x, 2))),
                  static_cast<uint32_t>(_mm_cvtsi128_si32(_mm_shuffle_epi32(x, 3)))};
}

// Writes four words of one to four UTF-8 bytes each (see utf8Words): each
// is stored as four bytes and the pointer moves by its length, read off the
// word itself, so up to three bytes behind the end are written over; the
// room takes them.
inline void putUtf8Words(uint8_t*& o, __m128i words) {
    // All four are taken out before the first store: a store through a byte
    // pointer could change anything in memory as far as the compiler knows.
    LanesT w = lanesOf(words);
    uint8_t* q = o;
    auto put = [&q](uint32_t x) {
        store32(q, x);
        q += 1 + (x > 0xFF) + (x > 0xFFFF) + (x > 0xFFFFFF);
    };
    put(w.w0);
    put(w.w1);
    put(w.w2);
    put(w.w3);
    o = q;
}

// Writes eight values below 0x10000 without surrogates (16-bit lanes) as
// UTF-8.
inline void putUtf8Units(uint8_t*& o, __m128i u) {
    const __m128i zero = _mm_setzero_si128();
    putUtf8Words(o, utf8Words(_mm_unpacklo_epi16(u, zero)));
    putUtf8Words(o, utf8Words(_mm_unpackhi_epi16(u, zero)));
}

// Writes eight values below 0x800 (16-bit lanes) as UTF-8, one or two bytes
// each, stored as two bytes and moved by the length. The values are taken
// out of the vector into registers before the first store: through a byte
// pointer the compiler must assume that a store changes any buffer in memory,
// and reading one back after each store is what costs.
inline void putUtf8Below800(uint8_t*& o, __m128i u) {
    // Two bytes 110xxxxx 10xxxxxx in the order they are written, or the
    // value itself below 0x80.
    __m128i two = _mm_or_si128(
        _mm_or_si128(_mm_srli_epi16(u, 6), _mm_set1_epi16(0xC0)),
        _mm_slli_epi16(_mm_or_si128(_mm_and_si128(u, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80)),
                       8));
    __m128i one = below80(u);
    __m128i w = _mm_or_si128(_mm_and_si128(one, u), _mm_andnot_si128(one, two));
    uint32_t w0 = static_cast<uint32_t>(_mm_extract_epi16(w, 0));
    uint32_t w1 = static_cast<uint32_t>(_mm_extract_epi16(w, 1));
    uint32_t w2 = static_cast<uint32_t>(_mm_extract_epi16(w, 2));
    uint32_t w3 = static_cast<uint32_t>(_mm_extract_epi16(w, 3));
    uint32_t w4 = static_cast<uint32_t>(_mm_extract_epi16(w, 4));
    uint32_t w5 = static_cast<uint32_t>(_mm_extract_epi16(w, 5));
    uint32_t w6 = static_cast<uint32_t>(_mm_extract_epi16(w, 6));
    uint32_t w7 = static_cast<uint32_t>(_mm_extract_epi16(w, 7));
    uint8_t* q = o;
    auto put = [&q](uint32_t x) {
        uint16_t h = static_cast<uint16_t>(x);
        memcpy(q, &h, 2);
        q += 1 + (x > 0xFF);
    };
    put(w0);
    put(w1);
    put(w2);
    put(w3);
    put(w4);
    put(w5);
    put(w6);
    put(w7);
    o = q;
}

// Writes eight values from 0x800 to 0xFFFF without surrogates as UTF-8:
// three bytes each.
inline void putUtf8Three(uint8_t*& o, __m128i u) {
    const __m128i zero = _mm_setzero_si128();
    LanesT a = lanesOf(utf8Words(_mm_unpacklo_epi16(u, zero)));
    LanesT b = lanesOf(utf8Words(_mm_unpackhi_epi16(u, zero)));
    store32(o, a.w0);
    store32(o + 3, a.w1);
    store32(o + 6, a.w2);
    store32(o + 9, a.w3);
    store32(o + 12, b.w0);
    store32(o + 15, b.w1);
    store32(o + 18, b.w2);
    store32(o + 21, b.w3);
    o += 24;
}

// The same with proper pairs among them (`pairHigh` marks the lanes of their
// high halves; a low half adds nothing). Each lane is stored as four bytes and
// the pointer moves by its length, so bytes behind the end are written over:
// up to three, and four when the last lane is a low half, which moves the
// pointer by 0 and still stores its word there. Six three-byte units and a
// pair advance 22 bytes and store up to byte 25; the caller's room must take
// 8 * 3 + 2 bytes (see rawDecode).
inline void putUtf8UnitsAndPairs(uint8_t*& o, __m128i u, __m128i pairHigh) {
    const __m128i zero = _mm_setzero_si128();
    __m128i next = _mm_srli_si128(u, 2);
    auto words = [](__m128i value, __m128i low, __m128i isPair) {
        __m128i w = utf8Words(value);
        // 0x10000 + (high - 0xD800) * 0x400 + (low - 0xDC00)
        __m128i v =
            _mm_sub_epi32(_mm_add_epi32(_mm_slli_epi32(value, 10), low), _mm_set1_epi32(0x35FDC00));
        return _mm_or_si128(_mm_and_si128(isPair, utf8FourByteWords(v)),
                            _mm_andnot_si128(isPair, w));
    };
    __m128i a = words(_mm_unpacklo_epi16(u, zero), _mm_unpacklo_epi16(next, zero),
                      _mm_unpacklo_epi16(pairHigh, pairHigh));
    __m128i b = words(_mm_unpackhi_epi16(u, zero), _mm_unpackhi_epi16(next, zero),
                      _mm_unpackhi_epi16(pairHigh, pairHigh));
    // 3, less one below 0x800 and one below 0x80; 4 for a high half, 0 for
    // a low half.
    __m128i pairLow = _mm_slli_si128(pairHigh, 2);
    __m128i n = _mm_add_epi16(_mm_set1_epi16(3), _mm_add_epi16(below80(u), below800(u)));
    n = _mm_sub_epi16(n, pairHigh);
    n = _mm_add_epi16(n, _mm_add_epi16(pairLow, _mm_add_epi16(pairLow, pairLow)));
    // Everything is taken out of the vectors before the first store (see
    // putUtf8Below800).
    LanesT wa = lanesOf(a), wb = lanesOf(b);
    uint8_t* q = o;
    store32(q, wa.w0);
    q += _mm_extract_epi16(n, 0);
    store32(q, wa.w1);
    q += _mm_extract_epi16(n, 1);
    store32(q, wa.w2);
    q += _mm_extract_epi16(n, 2);
    store32(q, wa.w3);
    q += _mm_extract_epi16(n, 3);
    store32(q, wb.w0);
    q += _mm_extract_epi16(n, 4);
    store32(q, wb.w1);
    q += _mm_extract_epi16(n, 5);
    store32(q, wb.w2);
    q += _mm_extract_epi16(n, 6);
    store32(q, wb.w3);
    q += _mm_extract_epi16(n, 7);
    o = q;
}

inline uint32_t sumLanes32(__m128i x) {
    uint32_t lanes[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), x);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}
#endif

// utf8EncodedLength without branches: every word of wide text may be of
// another length than the one before.
inline uint32_t encodedLengthOf(uint32_t v) {
    uint32_t n = 1 + (v > 0x7F) + (v > 0x7FF) + (v > 0xFFFF) + (v > 0x1FFFFF) + (v > 0x3FFFFFF);
    return v < 0x80000000u ? n : 0;
}

// The value of a clean sequence (see walkClean16), without branches: in text
// of mixed lengths each branch would be a guess. Reads up to three bytes
// behind the lead byte, which the callers have.
__attribute__((always_inline)) inline uint32_t cleanValue(const uint8_t* p) {
    uint32_t b0 = p[0];
    uint32_t b1 = p[1] & 0x3Fu, b2 = p[2] & 0x3Fu, b3 = p[3] & 0x3Fu;
    uint32_t v2 = ((b0 & 0x1Fu) << 6) | b1;
    uint32_t v3 = ((b0 & 0x0Fu) << 12) | (b1 << 6) | b2;
    uint32_t v4 = ((b0 & 0x07u) << 18) | (b1 << 12) | (b2 << 6) | b3;
    uint32_t v = b0 < 0xF0 ? v3 : v4;
    v = b0 < 0xE0 ? v2 : v;
    return b0 < 0x80 ? b0 : v;
}

#if KEEL_TEXT_SSE2
// For a clean block without four-byte sequences: at every byte place the
// value of a sequence that would start there, as sixteen-bit lanes (places 0
// to 7 in `lo`, 8 to 15 in `hi`). Only the places where characters start
// mean anything. Reads two bytes behind the block.
__attribute__((always_inline)) inline void cleanValues16(const uint8_t* p, __m128i* lo,
                                                         __m128i* hi) {
    const __m128i zero = _mm_setzero_si128();
    __m128i v0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i v1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
    __m128i v2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2));
    auto values = [zero](__m128i b0, __m128i b1, __m128i b2) {
        __m128i c1 = _mm_and_si128(b1, _mm_set1_epi16(0x3F));
        __m128i c2 = _mm_and_si128(b2, _mm_set1_epi16(0x3F));
        __m128i two = _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x1F)), 6), c1);
        __m128i three =
            _mm_or_si128(_mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x0F)), 12),
                                      _mm_slli_epi16(c1, 6)),
                         c2);
        __m128i isThree = _mm_cmpgt_epi16(b0, _mm_set1_epi16(0xDF));
        __m128i isAscii = _mm_cmplt_epi16(b0, _mm_set1_epi16(0x80));
        __m128i v = _mm_or_si128(_mm_and_si128(isThree, three), _mm_andnot_si128(isThree, two));
        (void)zero;
        return _mm_or_si128(_mm_and_si128(isAscii, b0), _mm_andnot_si128(isAscii, v));
    };
    *lo = values(_mm_unpacklo_epi8(v0, zero), _mm_unpacklo_epi8(v1, zero),
                 _mm_unpacklo_epi8(v2, zero));
    *hi = values(_mm_unpackhi_epi8(v0, zero), _mm_unpackhi_epi8(v1, zero),
                 _mm_unpackhi_epi8(v2, zero));
}
#endif

// --- Output sides of the encoder kernel ---
// What encodeCleanBlocks writes for each target:
//   kPerByte          most output bytes for one input byte
//   kSlack            output bytes that a sequence cut by the end of a block
//                     may take beyond kPerByte for each of its bytes there
//   ascii(o, p)       writes the kScanBytes ASCII characters at p
//   put(o, v, lost)   writes a value of a clean sequence
//   block(o, p, starts, lost)  (SSE2) writes the characters of a clean block
//                     without four-byte sequences, `starts` marking them
//   undo(o, lead)     takes back what put or block wrote for the character
//                     at `lead`, cut by the end of the walk

struct ByteBlocksT {
    static const uint32_t kPerByte = 1;
    static const uint32_t kSlack = 0;
    uint32_t limit;
    void ascii(uint8_t*& o, const uint8_t* p) {
        memcpy(o, p, kScanBytes);
        o += kScanBytes;
    }
    void put(uint8_t*& o, uint32_t v, bool& lost) {
        bool over = v > limit;
        lost = lost || over;
        *o++ = static_cast<uint8_t>(over ? 0x7E : v);
    }
#if KEEL_TEXT_SSE2
    void block(uint8_t*& o, const uint8_t* p, uint32_t starts, bool& lost) {
        __m128i lo, hi;
        cleanValues16(p, &lo, &hi);
        // The limit is 0x7F or 0xFF: a value is over it when it has a bit
        // above (unsigned, which the signed comparisons of SSE2 are not).
        const __m128i above = _mm_set1_epi16(static_cast<short>(~limit));
        const __m128i zero = _mm_setzero_si128();
        __m128i fitLo = _mm_cmpeq_epi16(_mm_and_si128(lo, above), zero);
        __m128i fitHi = _mm_cmpeq_epi16(_mm_and_si128(hi, above), zero);
        uint32_t fit = static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(fitLo, fitHi)));
        lost = lost || (~fit & starts) != 0;
        __m128i tilde = _mm_set1_epi16(0x7E);
        lo = _mm_or_si128(_mm_and_si128(fitLo, lo), _mm_andnot_si128(fitLo, tilde));
        hi = _mm_or_si128(_mm_and_si128(fitHi, hi), _mm_andnot_si128(fitHi, tilde));
        uint8_t bytes[16];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), _mm_packus_epi16(lo, hi));
        for (; starts != 0; starts &= starts - 1) *o++ = bytes[__builtin_ctz(starts)];
    }
#endif
    void undo(uint8_t*& o, const uint8_t*) { --o; }
};

struct Utf16BlocksT {
    static const uint32_t kPerByte = 2;
    // A pair for a four-byte sequence whose lead byte ends a block: four
    // bytes for one. (A pair in full is four bytes for four.)
    static const uint32_t kSlack = 2;
    bool swapped;
    void ascii(uint8_t*& o, const uint8_t* p) {
#if KEEL_TEXT_SSE2
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        __m128i zero = _mm_setzero_si128();
        __m128i a = swapped ? _mm_unpacklo_epi8(zero, v) : _mm_unpacklo_epi8(v, zero);
        __m128i b = swapped ? _mm_unpackhi_epi8(zero, v) : _mm_unpackhi_epi8(v, zero);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o), a);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 16), b);
#else
        widen8To16(o, load64(p), swapped);
#endif
        o += 2 * kScanBytes;
    }
    void put(uint8_t*& o, uint32_t v, bool&) { utf16Put(o, v, swapped); }
    // A character cut by the end of the walk was decoded from whatever
    // followed its lead byte, and that value tells how many units went out.
    void undo(uint8_t*& o, const uint8_t* lead) {
        o -= *lead >= 0xF0 ? 2 * utf16UnitsFor(cleanValue(lead)) : 2;
    }
#if KEEL_TEXT_SSE2
    void block(uint8_t*& o, const uint8_t* p, uint32_t starts, bool&) {
        __m128i lo, hi;
        cleanValues16(p, &lo, &hi);
        if (swapped) {
            lo = _mm_or_si128(_mm_slli_epi16(lo, 8), _mm_srli_epi16(lo, 8));
            hi = _mm_or_si128(_mm_slli_epi16(hi, 8), _mm_srli_epi16(hi, 8));
        }
        uint16_t units[16];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(units), lo);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(units + 8), hi);
        for (; starts != 0; starts &= starts - 1) {
            memcpy(o, &units[__builtin_ctz(starts)], 2);
            o += 2;
        }
    }
#endif
};

struct WCharBlocksT {
    static const uint32_t kPerByte = 4;
    static const uint32_t kSlack = 0;
    void ascii(uint8_t*& o, const uint8_t* p) {
#if KEEL_TEXT_SSE2
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        __m128i zero = _mm_setzero_si128();
        __m128i a = _mm_unpacklo_epi8(v, zero);
        __m128i b = _mm_unpackhi_epi8(v, zero);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_unpacklo_epi16(a, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 16), _mm_unpackhi_epi16(a, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 32), _mm_unpacklo_epi16(b, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(o + 48), _mm_unpackhi_epi16(b, zero));
#else
        widen8To32(o, load64(p));
#endif
        o += 4 * kScanBytes;
    }
    void put(uint8_t*& o, uint32_t v, bool&) { ucs4Put(o, v); }
    void undo(uint8_t*& o, const uint8_t*) { o -= 4; }
#if KEEL_TEXT_SSE2
    void block(uint8_t*& o, const uint8_t* p, uint32_t starts, bool&) {
        __m128i lo, hi;
        cleanValues16(p, &lo, &hi);
        const __m128i zero = _mm_setzero_si128();
        uint32_t words[16];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(words), _mm_unpacklo_epi16(lo, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(words + 4), _mm_unpackhi_epi16(lo, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(words + 8), _mm_unpacklo_epi16(hi, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(words + 12), _mm_unpackhi_epi16(hi, zero));
        for (; starts != 0; starts &= starts - 1) {
            memcpy(o, &words[__builtin_ctz(starts)], 4);
            o += 4;
        }
    }
#endif
};

// --- Kernels ---

// Bytes of 0x80 and above in `length` bytes ("ascii" and "iso-8859-1" in).
inline uint32_t countHighBytes(const uint8_t* p, uint32_t length) {
    const uint8_t* end = p + length;
    uint32_t high = 0;
    for (; left(p, end) >= 8; p += 8) high += highBytes(load64(p));
    for (; p < end; ++p) high += *p >> 7;
    return high;
}

// "ascii" and "iso-8859-1" in, eight bytes a step: ASCII as it is, others
// through High::putInBlock while the room takes eight of their longest
// output (see ByteTextDecoderM).
template <class High>
__attribute__((always_inline)) inline const uint8_t* byteDecodeBlocks(const uint8_t* p,
                                                                      const uint8_t* end,
                                                                      uint8_t*& o, uint8_t* oend) {
    while (left(p, end) >= 8 && left(o, oend) >= 8) {
        uint64_t x = load64(p);
        if ((x & kHighBits) == 0) {
            memcpy(o, &x, 8);
            p += 8;
            o += 8;
            continue;
        }
        if (left(o, oend) < High::kBlockRoom) break;
        p += 8;
        for (int i = 0; i < 8; ++i) High::putInBlock(o, static_cast<uint8_t>(x >> (8 * i)));
    }
    return p;
}

// "utf8" in, sizes: the clean sequences from `p` on. They keep their bytes,
// so their decoded size is the distance walked.
__attribute__((always_inline)) inline const uint8_t* utf8CleanSpan(const uint8_t* p,
                                                                   const uint8_t* end) {
#if KEEL_TEXT_SSE2
    return walkClean16(
        p, end, [](const uint8_t*, CleanBlockT) {}, [](const uint8_t*, uint32_t) {});
#else
    while (left(p, end) >= kScanBytes) {
        CleanRunT run = scanClean(p);
        if (!run.length) break;
        p += run.length;
    }
    return p;
#endif
}

// "utf8" in: clean sequences are already what utf8Put would write, so they
// are copied a block at a time, no further than the room goes, and counted.
__attribute__((always_inline)) inline const uint8_t* utf8CleanCopy(const uint8_t* p,
                                                                   const uint8_t* end, uint8_t*& o,
                                                                   uint8_t* oend, uint32_t& chars) {
#if KEEL_TEXT_SSE2
    const uint8_t* walkEnd = left(o, oend) < left(p, end) ? p + left(o, oend) : end;
    const uint8_t* start = p;
    uint8_t* q = o;
    p = walkClean16(
        p, walkEnd,
        [&q, &chars](const uint8_t* block, CleanBlockT b) {
            memcpy(q, block, 16);
            q += 16;
            chars += countBits(b.starts);
        },
        [&chars](const uint8_t*, uint32_t) { --chars; });
    o += p - start;
#else
    // The whole block is copied, which stays inside the room; the bytes
    // behind the run are written over next.
    while (left(p, end) >= kScanBytes && left(o, oend) >= kScanBytes) {
        CleanRunT run = scanClean(p);
        if (!run.length) break;
        memcpy(o, p, kScanBytes);
        p += run.length;
        o += run.length;
        chars += run.chars;
    }
#endif
    return p;
}

// "utf16" in, sizes: one byte a unit, one more from 0x80 and one more from
// 0x800; a proper pair is four bytes where its two units would count three
// each; any other surrogate is U+FFFD, three bytes, as counted. A high
// surrogate in the last lane of a block would need the next block: the
// plain loop takes it.
__attribute__((always_inline)) inline const uint8_t* utf16SizeBlocks(const uint8_t* p,
                                                                     const uint8_t* end,
                                                                     bool swapped, uint32_t& size) {
    // With SSE2 a word step is tried once where a wide block was refused,
    // and then the wide blocks again; without, the word steps loop.
    for (;;) {
#if KEEL_TEXT_SSE2
        {
            // Eight units at once, with the pairs found by comparing each lane
            // with the next.
            const __m128i ones = _mm_set1_epi16(1);
            __m128i sums = _mm_setzero_si128();
            uint32_t ascii = 0;
            while (left(p, end) >= 16) {
                __m128i u = loadUnits(p, swapped);
                if (_mm_movemask_epi8(below80(u)) == 0xFFFF) {
                    ascii += 8;
                    p += 16;
                    continue;
                }
                __m128i high, low;
                surrogateUnits(u, &high, &low);
                if (_mm_movemask_epi8(high) & 0xC000) break;
                __m128i pairHigh = _mm_and_si128(high, _mm_srli_si128(low, 2));
                __m128i inPair = _mm_or_si128(pairHigh, _mm_slli_si128(pairHigh, 2));
                // 3, less one below 0x800, one below 0x80, one in a pair.
                __m128i lanes = _mm_add_epi16(_mm_add_epi16(_mm_set1_epi16(3), inPair),
                                              _mm_add_epi16(below80(u), below800(u)));
                sums = _mm_add_epi32(sums, _mm_madd_epi16(lanes, ones));
                p += 16;
            }
            size += ascii + sumLanes32(sums);
        }
#endif
        // Four units at once.
        if (!(left(p, end) >= 8)) break;
        uint64_t x = load64(p);
        if (swapped) x = swapUnits(x);
        uint64_t high = highSurrogateLanes(x);
        uint64_t low = lowSurrogateLanes(x);
        if ((high << 16) != low || (high >> 48)) break;
        uint64_t from80 = lanesNotZero(x & 0xFF80FF80FF80FF80ull);
        uint64_t from800 = lanesNotZero(x & 0xF800F800F800F800ull) & ~(high | low);
        size += sumLanes(0x0001000100010001ull + (from80 >> 15) + (from800 >> 15));
        p += 8;
    }
    return p;
}

// "utf16" in: blocks of units without stray surrogates, while the room
// takes their longest output.
__attribute__((always_inline)) inline const uint8_t* utf16DecodeBlocks(const uint8_t* p,
                                                                       const uint8_t* end,
                                                                       bool swapped, uint8_t*& o,
                                                                       uint8_t* oend,
                                                                       uint32_t& chars) {
    // With SSE2 a word step is tried once where a wide block was refused,
    // and then the wide blocks again; without, the word steps loop.
    for (;;) {
#if KEEL_TEXT_SSE2
        // Eight units at once.
        while (left(p, end) >= 16 && left(o, oend) >= 8) {
            __m128i u = loadUnits(p, swapped);
            if (_mm_movemask_epi8(below80(u)) == 0xFFFF) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(o), _mm_packus_epi16(u, u));
                o += 8;
                chars += 8;
            } else {
                // At most two bytes each, stored two at a time: sixteen.
                if (left(o, oend) < 8 * 2) break;
                if (_mm_movemask_epi8(below800(u)) == 0xFFFF) {
                    putUtf8Below800(o, u);
                    chars += 8;
                    p += 16;
                    continue;
                }
                // At most three bytes each, or four for a pair of two units,
                // stored four at a time.
                if (left(o, oend) < 8 * 3 + 1) break;
                // Surrogates only in proper pairs within the eight; anything
                // else goes the careful way.
                __m128i top5 = _mm_and_si128(u, _mm_set1_epi16(static_cast<short>(0xF800)));
                if (_mm_movemask_epi8(
                        _mm_cmpeq_epi16(top5, _mm_set1_epi16(static_cast<short>(0xD800)))) == 0) {
                    if (_mm_movemask_epi8(below800(u)) == 0) {
                        putUtf8Three(o, u);
                    } else {
                        putUtf8Units(o, u);
                    }
                    chars += 8;
                    p += 16;
                    continue;
                }
                __m128i high, low;
                surrogateUnits(u, &high, &low);
                __m128i pairHigh = _mm_and_si128(high, _mm_srli_si128(low, 2));
                __m128i pairLow = _mm_slli_si128(pairHigh, 2);
                uint32_t strays = static_cast<uint32_t>(_mm_movemask_epi8(_mm_or_si128(
                    _mm_andnot_si128(pairHigh, high), _mm_andnot_si128(pairLow, low))));
                if (strays) break;
                // Testing the room for the eight units' largest output plus one,
                // as the paths above do, is one byte short here: a low half in
                // the last lane stores four bytes at the end of what the block
                // writes (up to byte 25 of 22 written). With a room of exactly
                // the decoded size (six three-byte units, a pair, one more
                // unit: 25 bytes) that store went one byte past the room. The
                // block takes this path only when its widest store fits.
                if (left(o, oend) < 8 * 3 + 2) break;
                putUtf8UnitsAndPairs(o, u, pairHigh);
                chars += 8 - countBits(static_cast<uint32_t>(_mm_movemask_epi8(pairLow))) / 2;
            }
            p += 16;
        }
#endif
        // Four units at once without surrogates.
        if (!(left(p, end) >= 8 && left(o, oend) >= 16)) break;
        uint64_t x = load64(p);
        if (swapped) x = swapUnits(x);
        if ((x & 0xFF80FF80FF80FF80ull) == 0) {
            uint32_t four =
                static_cast<uint32_t>((x & 0xFF) | ((x >> 8) & 0xFF00) | ((x >> 16) & 0xFF0000) |
                                      ((x >> 24) & 0xFF000000));
            store32(o, four);
            p += 8;
            o += 4;
            chars += 4;
            continue;
        }
        uint64_t surrogates =
            ~lanesNotZero((x & 0xF800F800F800F800ull) ^ 0xD800D800D800D800ull) & kLaneTops;
        if (surrogates != 0) break;
        // One to three bytes each. Each is stored as four bytes, the extra
        // ones written over by the next (the room takes them).
        for (int i = 0; i < 4; ++i) {
            uint32_t n;
            uint32_t w = utf8Bytes16(static_cast<uint32_t>(x >> (16 * i)) & 0xFFFF, &n);
            store32(o, w);
            o += n;
        }
        p += 8;
        chars += 4;
    }
    return p;
}

// "wchar_t" in, sizes, four words a step.
__attribute__((always_inline)) inline const uint8_t* wcharSizeBlocks(const uint8_t* p,
                                                                     const uint8_t* end,
                                                                     uint32_t& size) {
#if KEEL_TEXT_SSE2
    // While all four are below 0x10000: three bytes, less one below 0x800 and
    // one below 0x80. A group with a larger value is taken by the word step.
    __m128i sums = _mm_setzero_si128();
    while (left(p, end) >= 16) {
        __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        if (_mm_movemask_epi8(
                _mm_cmpeq_epi32(_mm_and_si128(w, _mm_set1_epi32(static_cast<int>(0xFFFF0000u))),
                                _mm_setzero_si128())) != 0xFFFF) {
            size += encodedLengthOf(ucs4Next(p));
            continue;
        }
        sums = _mm_add_epi32(
            sums, _mm_add_epi32(_mm_set1_epi32(3),
                                _mm_add_epi32(_mm_cmplt_epi32(w, _mm_set1_epi32(0x80)),
                                              _mm_cmplt_epi32(w, _mm_set1_epi32(0x800)))));
        p += 16;
    }
    size += sumLanes32(sums);
#endif
    while (left(p, end) >= 16) {
        uint64_t a = load64(p);
        uint64_t b = load64(p + 8);
        if (((a | b) & 0xFFFFFF80FFFFFF80ull) == 0) {
            size += 4;
        } else {
            size += encodedLengthOf(static_cast<uint32_t>(a)) +
                    encodedLengthOf(static_cast<uint32_t>(a >> 32)) +
                    encodedLengthOf(static_cast<uint32_t>(b)) +
                    encodedLengthOf(static_cast<uint32_t>(b >> 32));
        }
        p += 16;
    }
    return p;
}

// "wchar_t" in: blocks of words below 0x10000 (below 0x200000 with SSE2)
// while the room takes their longest output.
__attribute__((always_inline)) inline const uint8_t* wcharDecodeBlocks(const uint8_t* p,
                                                                       const uint8_t* end,
                                                                       uint8_t*& o, uint8_t* oend,
                                                                       uint32_t& chars) {
    // With SSE2 a word step is tried once where a wide block was refused,
    // and then the wide blocks again; without, the word steps loop.
    for (;;) {
#if KEEL_TEXT_SSE2
        // Eight words at once.
        while (left(p, end) >= 32 && left(o, oend) >= 8) {
            __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
            __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16));
            __m128i any = _mm_or_si128(a, b);
            const __m128i zero = _mm_setzero_si128();
            if (_mm_movemask_epi8(_mm_cmpeq_epi32(
                    _mm_and_si128(any, _mm_set1_epi32(static_cast<int>(0xFFFFFF80u))), zero)) ==
                0xFFFF) {
                __m128i units = _mm_packs_epi32(a, b);
                _mm_storel_epi64(reinterpret_cast<__m128i*>(o), _mm_packus_epi16(units, units));
                o += 8;
            } else if (left(o, oend) >= 8 * 3 + 1 &&
                       _mm_movemask_epi8(_mm_cmpeq_epi32(
                           _mm_and_si128(any, _mm_set1_epi32(static_cast<int>(0xFFFF0000u))),
                           zero)) == 0xFFFF) {
                // Values below 0x10000 as eight 16-bit lanes (moved down by
                // 0x8000 for the signed narrowing and back). Surrogate values
                // are not checked here: they are written as three bytes like
                // any other value of their size.
                const __m128i half = _mm_set1_epi32(0x8000);
                __m128i u =
                    _mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(a, half), _mm_sub_epi32(b, half)),
                                  _mm_set1_epi16(static_cast<short>(0x8000)));
                uint32_t small = static_cast<uint32_t>(_mm_movemask_epi8(below800(u)));
                if (small == 0xFFFF) {
                    putUtf8Below800(o, u);
                } else if (small == 0) {
                    putUtf8Three(o, u);
                } else {
                    putUtf8Units(o, u);
                }
            } else if (left(o, oend) >= 8 * 4 &&
                       _mm_movemask_epi8(_mm_cmpeq_epi32(
                           _mm_and_si128(any, _mm_set1_epi32(static_cast<int>(0xFFE00000u))),
                           zero)) == 0xFFFF) {
                // Values below 0x200000: one to four bytes.
                putUtf8Words(o, utf8Words4(a));
                putUtf8Words(o, utf8Words4(b));
            } else {
                break;
            }
            p += 32;
            chars += 8;
        }
#endif
        if (!(left(p, end) >= 16 && left(o, oend) >= 16)) break;
        uint64_t a = load64(p);
        uint64_t b = load64(p + 8);
        if (((a | b) & 0xFFFFFF80FFFFFF80ull) == 0) {
            store32(o, static_cast<uint32_t>((a & 0xFF) | ((a >> 24) & 0xFF00) |
                                             ((b & 0xFF) << 16) | ((b >> 8) & 0xFF000000)));
            p += 16;
            o += 4;
            chars += 4;
            continue;
        }
        if (((a | b) & 0xFFFF0000FFFF0000ull) != 0) break;
        // Four values below 0x10000: one to three bytes each, stored as four
        // bytes that the next one writes over.
        const uint32_t words[4] = {static_cast<uint32_t>(a), static_cast<uint32_t>(a >> 32),
                                   static_cast<uint32_t>(b), static_cast<uint32_t>(b >> 32)};
        for (uint32_t v : words) {
            uint32_t n;
            store32(o, utf8Bytes16(v, &n));
            o += n;
        }
        p += 16;
        chars += 4;
    }
    return p;
}

// Encoder sizes: the characters of the clean sequences from `p` on, and the
// four-byte ones among them in `quads`.
__attribute__((always_inline)) inline const uint8_t* cleanCountBlocks(const uint8_t* p,
                                                                      const uint8_t* end,
                                                                      uint32_t& chars,
                                                                      uint32_t& quads) {
#if KEEL_TEXT_SSE2
    uint32_t q = 0;
    p = walkClean16(
        p, end,
        [&chars, &q](const uint8_t*, CleanBlockT b) {
            chars += b.ascii ? 16 : countBits(b.starts);
            q += b.quads ? countBits(b.quads) : 0;
        },
        [&chars, &q](const uint8_t* lead, uint32_t) {
            --chars;
            if (*lead >= 0xF0) --q;
        });
    quads += q;
#else
    while (left(p, end) >= kScanBytes) {
        CleanRunT run = scanClean(p);
        if (!run.length) break;
        p += run.length;
        chars += run.chars;
        quads += run.quads;
    }
#endif
    return p;
}

// The encoders: clean sequences a block at a time (a block of ASCII at
// once), as many blocks as the room takes for certain. `Target` is one of
// the output sides above.
template <class Target>
__attribute__((always_inline)) inline const uint8_t* encodeCleanBlocks(Target& target,
                                                                       const uint8_t* p,
                                                                       const uint8_t* end,
                                                                       uint8_t*& o, uint8_t* oend,
                                                                       bool& anyLost) {
#if KEEL_TEXT_SSE2
    uint32_t room = left(o, oend);
    uint32_t blocks =
        room >= Target::kSlack ? (room - Target::kSlack) / (Target::kPerByte * 16) : 0;
    const uint8_t* walkEnd = left(p, end) / 16 > blocks ? p + 16 * blocks + 3 : end;
    uint8_t* q = o;
    bool l = anyLost;
    p = walkClean16(
        p, walkEnd,
        [&q, &l, &target](const uint8_t* block, CleanBlockT b) {
            if (b.ascii) {
                target.ascii(q, block);
            } else if (b.quads == 0) {
                target.block(q, block, b.starts, l);
            } else {
                for (uint32_t starts = b.starts; starts != 0; starts &= starts - 1) {
                    target.put(q, cleanValue(block + __builtin_ctz(starts)), l);
                }
            }
        },
        [&q, &target](const uint8_t* lead, uint32_t) { target.undo(q, lead); });
    o = q;
    anyLost = l;
#else
    while (left(p, end) >= kScanBytes + 3 && left(o, oend) >= Target::kPerByte * kScanBytes) {
        if (asciiBlock(p)) {
            target.ascii(o, p);
            p += kScanBytes;
            continue;
        }
        CleanRunT run = scanClean(p);
        if (!run.length) break;
        // The places of the characters are known from the scan, so each one
        // is decoded without waiting for the one before.
        for (uint64_t starts = run.starts; starts != 0; starts &= starts - 1) {
            target.put(o, cleanValue(p + startOf(starts)), anyLost);
        }
        p += run.length;
    }
#endif
    return p;
}

}  // namespace codecblocks
}  // namespace keel

#endif
