// The vector kernels of utf8scan.h: AVX2, chosen at run time by one
// processor check (utf8VectorPathsFound), and nothing on other machines.
//
// Invariant: a kernel takes only what the plain loop in utf8scan.h would
// take, in the same way, and stops in front of anything it is unsure of.
#include "text/utf8scan.h"

#include <keel/atomic.h>

#if defined(__i386__) || defined(__x86_64__)
#include <immintrin.h>
#define KEEL_UTF8SCAN_AVX2 1
#else
#define KEEL_UTF8SCAN_AVX2 0
#endif

namespace keel {

namespace {

#if KEEL_UTF8SCAN_AVX2
// Thirty-two bytes at a time: a byte-pair classification by three table
// lookups (high and low half of the previous byte, high half of this one)
// whose results AND to 0 only for a valid pair, and a test that the second
// and third bytes behind a three- or four-byte lead are continuation bytes.
// It accepts exactly UTF-8 in the strict sense (no surrogates, nothing above
// U+10FFFF), all of which is clean; what it refuses goes the careful way.
namespace avx2 {

#define KEEL_AVX2 __attribute__((target("avx2,popcnt")))

const uint8_t kTooShort = 1 << 0;   // a lead byte not followed by a continuation
const uint8_t kTooLong = 1 << 1;    // a continuation behind ASCII
const uint8_t kOverlong3 = 1 << 2;  // E0 80-9F
const uint8_t kTooLarge = 1 << 3;   // F4 90-BF, F5-FF
const uint8_t kSurrogate = 1 << 4;  // ED A0-BF
const uint8_t kOverlong2 = 1 << 5;  // C0, C1
const uint8_t kTooLarge1000 = 1 << 6;
const uint8_t kOverlong4 = 1 << 6;  // F0 80-8F
const uint8_t kTwoConts = 1 << 7;   // a continuation behind a continuation
const uint8_t kCarry = kTooShort | kTooLong | kTwoConts;

KEEL_AVX2 inline __m256i table16(uint8_t t0, uint8_t t1, uint8_t t2, uint8_t t3, uint8_t t4,
                                 uint8_t t5, uint8_t t6, uint8_t t7, uint8_t t8, uint8_t t9,
                                 uint8_t t10, uint8_t t11, uint8_t t12, uint8_t t13, uint8_t t14,
                                 uint8_t t15) {
    return _mm256_setr_epi8(char(t0), char(t1), char(t2), char(t3), char(t4), char(t5), char(t6),
                            char(t7), char(t8), char(t9), char(t10), char(t11), char(t12),
                            char(t13), char(t14), char(t15), char(t0), char(t1), char(t2), char(t3),
                            char(t4), char(t5), char(t6), char(t7), char(t8), char(t9), char(t10),
                            char(t11), char(t12), char(t13), char(t14), char(t15));
}

struct TablesT {
    __m256i high1, low1, high2, nibble, incompleteLimit;
};

KEEL_AVX2 inline TablesT makeTables() {
    TablesT t;
    const uint8_t L = kTooLong, C = kTwoConts, S = kTooShort;
    t.high1 = table16(L, L, L, L, L, L, L, L, C, C, C, C, S | kOverlong2, S,
                      S | kOverlong3 | kSurrogate, S | kTooLarge | kTooLarge1000 | kOverlong4);
    const uint8_t big = kCarry | kTooLarge | kTooLarge1000;
    t.low1 = table16(kCarry | kOverlong3 | kOverlong2 | kOverlong4, kCarry | kOverlong2, kCarry,
                     kCarry, kCarry | kTooLarge, big, big, big, big, big, big, big, big,
                     big | kSurrogate, big, big);
    const uint8_t cont = kTooLong | kOverlong2 | kTwoConts;
    t.high2 = table16(S, S, S, S, S, S, S, S, cont | kOverlong3 | kTooLarge1000 | kOverlong4,
                      cont | kOverlong3 | kTooLarge, cont | kSurrogate | kTooLarge,
                      cont | kSurrogate | kTooLarge, S, S, S, S);
    t.nibble = _mm256_set1_epi8(0x0F);
    // A lead byte among the last three that its sequence does not fit behind.
    t.incompleteLimit = _mm256_setr_epi8(
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xF0 - 1), char(0xE0 - 1), char(0xC0 - 1));
    return t;
}

// The 32 bytes that end `n` bytes before the start of `input`.
template <int n>
KEEL_AVX2 inline __m256i previous(__m256i input, __m256i before) {
    return _mm256_alignr_epi8(input, _mm256_permute2x128_si256(before, input, 0x21), 16 - n);
}

KEEL_AVX2 inline __m256i highNibble(__m256i v, __m256i nibble) {
    return _mm256_and_si256(_mm256_srli_epi16(v, 4), nibble);
}

// Nonzero bytes where the 32 bytes of `input`, behind `before`, are not valid.
KEEL_AVX2 inline __m256i blockErrors(const TablesT& t, __m256i input, __m256i before) {
    __m256i prev1 = previous<1>(input, before);
    __m256i special = _mm256_and_si256(
        _mm256_and_si256(_mm256_shuffle_epi8(t.high1, highNibble(prev1, t.nibble)),
                         _mm256_shuffle_epi8(t.low1, _mm256_and_si256(prev1, t.nibble))),
        _mm256_shuffle_epi8(t.high2, highNibble(input, t.nibble)));
    __m256i prev2 = previous<2>(input, before);
    __m256i prev3 = previous<3>(input, before);
    __m256i third = _mm256_subs_epu8(prev2, _mm256_set1_epi8(char(0xE0 - 1)));
    __m256i fourth = _mm256_subs_epu8(prev3, _mm256_set1_epi8(char(0xF0 - 1)));
    __m256i must = _mm256_cmpgt_epi8(_mm256_or_si256(third, fourth), _mm256_setzero_si256());
    return _mm256_xor_si256(_mm256_and_si256(must, _mm256_set1_epi8(char(0x80))), special);
}

// Characters in 32 bytes: the bytes that are not continuation bytes.
KEEL_AVX2 inline uint32_t charactersIn(__m256i v) {
    uint32_t starts = static_cast<uint32_t>(
        _mm256_movemask_epi8(_mm256_cmpgt_epi8(v, _mm256_set1_epi8(char(0xBF)))));
    return static_cast<uint32_t>(__builtin_popcount(starts));
}

// Copies and checks whole blocks of 64 bytes; answers how many bytes it took
// as clean, always at the end of a sequence, and counts their characters.
KEEL_AVX2 uint32_t copyClean(uint8_t* out, const uint8_t* in, uint32_t length,
                             uint32_t* characters) {
    const TablesT t = makeTables();
    __m256i before = _mm256_setzero_si256();
    __m256i incomplete = _mm256_setzero_si256();
    uint32_t chars = 0;
    uint32_t at = 0;
    for (; length - at >= 64; at += 64) {
        __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + at));
        __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + at + 32));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at), a);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + at + 32), b);
        if (_mm256_movemask_epi8(_mm256_or_si256(a, b)) == 0) {
            // ASCII: valid unless the block in front ended inside a sequence.
            if (!_mm256_testz_si256(incomplete, incomplete)) break;
            chars += 64;
        } else {
            __m256i errors = _mm256_or_si256(blockErrors(t, a, before), blockErrors(t, b, a));
            if (!_mm256_testz_si256(errors, errors)) break;
            incomplete = _mm256_subs_epu8(b, t.incompleteLimit);
            chars += charactersIn(a) + charactersIn(b);
        }
        before = b;
    }
    // The pairs that the last lead byte in front of `at` makes with the bytes
    // behind `at` were not checked: a sequence that runs on behind `at`, or
    // a lead byte that no sequence may start with (F5 to FF) at the very
    // end, is left with its lead byte to the caller.
    for (uint32_t back = 1; back <= 3 && back <= at; ++back) {
        uint8_t byte = in[at - back];
        if (utf8IsContinuation(byte)) continue;
        if (byte >= 0xC0 && utf8CleanLength(in + at - back, in + at) == 0) {
            at -= back;
            --chars;
        }
        break;
    }
    *characters = chars;
    return at;
}

// The walk of findChar for an ASCII character other than NUL and of the
// searches with a set of ASCII characters, from the walk position `place`
// with character index `index`, 32 bytes a step. In a block that the check
// finds valid, each walk step is one valid sequence, so the characters are
// the bytes that are not continuation bytes, every ASCII byte is a character
// of its own value, and no other character has an ASCII value. `hitsOf(v,
// starts)` marks the bytes that start a character the search wants, never
// a NUL. Answers 1 with `place` and `index` at the match, -1 when a NUL
// character ends the walk first, or 0 with `place` and `index` at a walk
// position from which the caller goes on the careful way: in front of the
// first block it was not sure of, or of the end.
template <class HitsOf>
KEEL_AVX2 inline int scanValid(const uint8_t*& place, const uint8_t* end, int32_t& index,
                               const HitsOf& hitsOf) {
    const TablesT t = makeTables();
    const __m256i zero = _mm256_setzero_si256();
    const __m256i lastContinuation = _mm256_set1_epi8(char(0xBF));
    // What stands in front of `place` is taken as ASCII: a walk position
    // inside a sequence then shows up as a continuation byte behind ASCII.
    __m256i before = zero;
    __m256i incomplete = zero;
    const uint8_t* q = place;
    int32_t at = index;
    while (end - q >= 32) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q));
        if (_mm256_movemask_epi8(v) == 0) {
            if (!_mm256_testz_si256(incomplete, incomplete)) break;
        } else {
            __m256i errors = blockErrors(t, v, before);
            if (!_mm256_testz_si256(errors, errors)) break;
            incomplete = _mm256_subs_epu8(v, t.incompleteLimit);
        }
        uint32_t starts =
            static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(v, lastContinuation)));
        uint32_t hits = hitsOf(v, starts);
        uint32_t stops =
            hits | static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, zero)));
        if (stops) {
            uint32_t k = static_cast<uint32_t>(__builtin_ctz(stops));
            at += __builtin_popcount(starts & ((1u << k) - 1));
            place = q + k;
            index = at;
            return (hits >> k) & 1 ? 1 : -1;
        }
        at += __builtin_popcount(starts);
        before = v;
        q += 32;
    }
    // As in copyClean: a sequence that runs on behind `q`, or a lead byte
    // that starts none right in front of it, is walked by the caller.
    for (uint32_t back = 1; back <= 3 && back <= static_cast<uint32_t>(q - place); ++back) {
        uint8_t byte = q[-static_cast<int32_t>(back)];
        if (utf8IsContinuation(byte)) continue;
        if (byte >= 0xC0 && utf8CleanLength(q - back, q) == 0) {
            q -= back;
            --at;
        }
        break;
    }
    place = q;
    index = at;
    return 0;
}

// The bytes equal to one ASCII character.
struct CharHitsT {
    __m256i needle;
    KEEL_AVX2 uint32_t operator()(__m256i v, uint32_t) const {
        return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, needle)));
    }
};

KEEL_AVX2 int findAscii(const uint8_t*& place, const uint8_t* end, uint8_t character,
                        int32_t& index) {
    CharHitsT hits = {_mm256_set1_epi8(static_cast<char>(character))};
    return scanValid(place, end, index, hits);
}

// Membership in a set of ASCII characters, 32 bytes at once: the low nibble
// picks a byte of bits, one per high nibble 0 to 7, and the high nibble
// picks its bit (none for bytes of 0x80 and above). With `wanted` the hits
// are the members; without, every character outside the set, NUL aside (a
// NUL ends the walk).
struct SetHitsT {
    __m256i rowTable;
    __m256i bitTable;
    bool wanted;
    KEEL_AVX2 uint32_t operator()(__m256i v, uint32_t starts) const {
        const __m256i nibble = _mm256_set1_epi8(0x0F);
        const __m256i zero = _mm256_setzero_si256();
        __m256i row = _mm256_shuffle_epi8(rowTable, _mm256_and_si256(v, nibble));
        __m256i bit = _mm256_shuffle_epi8(bitTable, highNibble(v, nibble));
        uint32_t members = ~static_cast<uint32_t>(
            _mm256_movemask_epi8(_mm256_cmpeq_epi8(_mm256_and_si256(row, bit), zero)));
        if (wanted) return members;
        uint32_t nul = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, zero)));
        return starts & ~members & ~nul;
    }
};

KEEL_AVX2 int findAsciiSet(const uint8_t*& place, const uint8_t* end, const uint32_t bits[4],
                           bool wanted, int32_t& index) {
    alignas(16) uint8_t rows[16];
    for (uint32_t low = 0; low < 16; ++low) {
        uint32_t row = 0;
        for (uint32_t high = 0; high < 8; ++high) {
            uint32_t c = high * 16 + low;
            row |= ((bits[c >> 5] >> (c & 31)) & 1u) << high;
        }
        rows[low] = static_cast<uint8_t>(row);
    }
    SetHitsT hits = {
        _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(rows))),
        _mm256_setr_epi8(1, 2, 4, 8, 16, 32, 64, char(128), 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 4, 8, 16,
                         32, 64, char(128), 0, 0, 0, 0, 0, 0, 0, 0),
        wanted};
    return scanValid(place, end, index, hits);
}

#undef KEEL_AVX2

}  // namespace avx2

#endif

}  // namespace

bool utf8VectorPathsOff = false;

// The processor has AVX2 and the population count its kernels use.
bool utf8VectorPathsFound() {
#if KEEL_UTF8SCAN_AVX2
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
#else
    return false;
#endif
}

uint32_t copyCleanUtf8Blocks(uint8_t* out, const uint8_t* in, uint32_t length,
                             uint32_t* characters) {
#if KEEL_UTF8SCAN_AVX2
    return avx2::copyClean(out, in, length, characters);
#else
    (void)out;
    (void)in;
    (void)length;
#endif
    *characters = 0;
    return 0;
}

int findAsciiBlocks(const uint8_t*& place, const uint8_t* end, uint8_t character, int32_t& index) {
#if KEEL_UTF8SCAN_AVX2
    return avx2::findAscii(place, end, character, index);
#else
    (void)place;
    (void)end;
    (void)character;
    (void)index;
#endif
    return 0;
}

int findAsciiSetBlocks(const uint8_t*& place, const uint8_t* end, const uint32_t bits[4],
                       bool wanted, int32_t& index) {
#if KEEL_UTF8SCAN_AVX2
    return avx2::findAsciiSet(place, end, bits, wanted, index);
#else
    (void)place;
    (void)end;
    (void)bits;
    (void)wanted;
    (void)index;
#endif
    return 0;
}

void setUtf8VectorPaths(bool on) { atomicStoreRelaxed(&utf8VectorPathsOff, !on); }

}  // namespace keel
