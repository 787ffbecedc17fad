// The vector kernel of utf16scan.h: AVX-512 with byte compression (VBMI2),
// chosen at run time by one processor check (utf16VectorPathsFound), and
// nothing on other machines or in the 32-bit build.
//
// Invariant: a block is taken only when none of its sixteen units is a
// surrogate, and then each unit is written as utf8Put writes it: one byte
// below 0x80, two below 0x800, three otherwise.
#include "text/utf16scan.h"

#if defined(__x86_64__)
#include <immintrin.h>
#define KEEL_UTF16SCAN_AVX512 1
// GCC 12's AVX-512 headers start some values from a deliberately undefined
// register (a variable set from itself), which its flow analysis then
// reports as used before set wherever they are inlined.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#else
#define KEEL_UTF16SCAN_AVX512 0
#endif

namespace keel {

namespace {

#if KEEL_UTF16SCAN_AVX512
#define KEEL_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi2,popcnt")))

// Each unit is widened to a 32-bit lane that holds its UTF-8 bytes in the
// order they are written, with the lane's length in bytes beside it; the
// bytes past each length are then squeezed out in one compression.
KEEL_AVX512 uint32_t decodeBlocks(const uint8_t* in, uint32_t length, bool swapped, uint8_t* out,
                                  uint32_t room, uint32_t* written) {
    const __m256i swap = _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14, 1,
                                          0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
    const __m512i low6 = _mm512_set1_epi32(0x3F);
    const __m512i byteIndex = _mm512_set1_epi32(0x03020100);
    uint32_t taken = 0;
    uint8_t* o = out;
    uint8_t* oend = out + room;
    while (length - taken >= 32 && oend - o >= 64) {
        __m256i u = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + taken));
        if (swapped) u = _mm256_shuffle_epi8(u, swap);
        __m256i top5 = _mm256_and_si256(u, _mm256_set1_epi16(static_cast<short>(0xF800)));
        if (_mm256_cmpeq_epi16_mask(top5, _mm256_set1_epi16(static_cast<short>(0xD800))) != 0)
            break;
        __m512i w = _mm512_cvtepu16_epi32(u);
        __mmask16 one = _mm512_cmplt_epu32_mask(w, _mm512_set1_epi32(0x80));
        __mmask16 two = _mm512_cmplt_epu32_mask(w, _mm512_set1_epi32(0x800));
        __m512i tail = _mm512_or_si512(_mm512_and_si512(w, low6), _mm512_set1_epi32(0x80));
        __m512i middle = _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(w, 6), low6),
                                         _mm512_set1_epi32(0x80));
        __m512i asTwo =
            _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi32(w, 6), _mm512_set1_epi32(0xC0)),
                            _mm512_slli_epi32(tail, 8));
        __m512i asThree = _mm512_or_si512(
            _mm512_or_si512(_mm512_srli_epi32(w, 12), _mm512_set1_epi32(0xE0)),
            _mm512_or_si512(_mm512_slli_epi32(middle, 8), _mm512_slli_epi32(tail, 16)));
        __m512i bytes =
            _mm512_mask_blend_epi32(one, _mm512_mask_blend_epi32(two, asThree, asTwo), w);
        // 1, 2 or 3 in every byte of the lane, against the byte's index.
        __m512i lengths =
            _mm512_sub_epi32(_mm512_set1_epi32(0x03030303),
                             _mm512_add_epi32(_mm512_maskz_set1_epi32(one, 0x01010101),
                                              _mm512_maskz_set1_epi32(two, 0x01010101)));
        __mmask64 keep = _mm512_cmplt_epu8_mask(byteIndex, lengths);
        _mm512_storeu_si512(o, _mm512_maskz_compress_epi8(keep, bytes));
        o += __builtin_popcountll(keep);
        taken += 32;
    }
    *written = static_cast<uint32_t>(o - out);
    return taken;
}
#endif

}  // namespace

bool utf16VectorPathsFound() {
#if KEEL_UTF16SCAN_AVX512
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi2") &&
           __builtin_cpu_supports("popcnt");
#else
    return false;
#endif
}

uint32_t decodeUtf16Blocks(const uint8_t* in, uint32_t length, bool swapped, uint8_t* out,
                           uint32_t room, uint32_t* written) {
#if KEEL_UTF16SCAN_AVX512
    return decodeBlocks(in, length, swapped, out, room, written);
#else
    (void)in;
    (void)length;
    (void)swapped;
    (void)out;
    (void)room;
    *written = 0;
    return 0;
#endif
}

}  // namespace keel
