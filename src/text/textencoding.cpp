// The eight encodings, their decoders and encoders, and the walk that carries
// a cut sequence over from one call to the next.
//
// Every loop here runs over input that has no terminator, so each one asks how
// long a sequence is before it reads it and stops in front of one that the
// input does not hold whole; the caller keeps that tail for the next call.
// Blocks of ASCII and of well-formed text take paths of their own, sixteen
// bytes at a time with SSE2 and eight without, which give exactly what the
// character-by-character loop would give: the tests hold them to it, in
// every split of the input and at every offset of a block.
#include "text/textencoding.h"

#include <string.h>

#include "text/ucs4.h"
#include "text/utf16.h"
#include "text/utf8.h"

// SSE2 is part of every x86-64 processor; the 32-bit build goes without it
// and takes the eight-byte paths, which give the same answers.
#if defined(__SSE2__)
#include <emmintrin.h>
#define KEEL_TEXT_SSE2 1
#else
#define KEEL_TEXT_SSE2 0
#endif

namespace keel {

namespace {

// Kept at load; the UTF-16 classes compare their encoding with these to know
// the byte order. Until load has set them (code run by other units' load steps
// before this one) the objects are asked for directly; they are the same
// objects either way.
TextEncodingI* utf16BeWord = nullptr;
TextEncodingI* utf16LeWord = nullptr;

inline TextEncodingI* utf16BeObject() {
    TextEncodingI* e = utf16BeWord;
    return e ? e : utf16beEncoding();
}

inline TextEncodingI* utf16LeObject() {
    TextEncodingI* e = utf16LeWord;
    return e ? e : utf16leEncoding();
}

const uint64_t kHighBits = 0x8080808080808080ull;

inline uint64_t load64(const uint8_t* p) {
    uint64_t x;
    memcpy(&x, p, 8);
    return x;
}

// The number of bytes that have bit 7 set in a word with no other bits set.
// A multiplication adds them up: the machine's baseline instruction set has no
// population count, and the library call would cost more than the loop.
inline uint32_t countByteFlags(uint64_t flags) {
    return static_cast<uint32_t>(((flags >> 7) * 0x0101010101010101ull) >> 56);
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
    uint64_t a = (lo & 0xFF) | ((lo & 0xFF00) << 8) | ((lo & 0xFF0000) << 16) |
                 ((lo & 0xFF000000) << 24);
    uint64_t b = (hi & 0xFF) | ((hi & 0xFF00) << 8) | ((hi & 0xFF0000) << 16) |
                 ((hi & 0xFF000000) << 24);
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

inline bool isContinuation(uint8_t b) { return (b & 0xC0) == 0x80; }

// utf8Next for input without a terminator: false, and nothing read, in front
// of a sequence that the input does not hold whole. The common short
// sequences are taken directly; what utf8Next would answer for them is the
// value of their bits, whether shortest or not.
__attribute__((always_inline)) inline bool readChar(const uint8_t*& p, const uint8_t* end,
                                                    uint32_t* value) {
    uint32_t b = *p;
    if (b < 0x80) {
        *value = b;
        ++p;
        return true;
    }
    uint32_t have = left(p, end);
    if (b >= 0xC0 && b < 0xE0 && have >= 2 && isContinuation(p[1])) {
        *value = ((b & 0x1Fu) << 6) | (p[1] & 0x3Fu);
        p += 2;
        return true;
    }
    if (b >= 0xE0 && b < 0xF0 && have >= 3 && isContinuation(p[1]) && isContinuation(p[2])) {
        *value = ((b & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
        p += 3;
        return true;
    }
    if (utf8SequenceLength(p) > have) return false;
    *value = utf8Next(p);
    return true;
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
    uint64_t overlong2 = lead2 & ~lead3 & ~(b4 | b3 | b2 | b1);         // C0, C1
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
// to three bytes behind a block; a block of ASCII needs only its own 16). A character started by the last visited
// block whose continuation was not checked is given back: undo(lead, bytes)
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
        } while ((*lead & 0xC0) == 0x80);
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

const uint8_t kUtf8Mark[3] = {0xEF, 0xBB, 0xBF};
const uint8_t kLittleEndianMark[2] = {0xFF, 0xFE};
const uint8_t kBigEndianMark[2] = {0xFE, 0xFF};

using AsciiEncodingC = TextEncodingM<ASCIITextDecoderC, ASCIITextEncoderC, 1, 0>;
using System8EncodingC = TextEncodingM<UTF8TextDecoderC, UTF8TextEncoderC, 1, 0>;
using Latin1EncodingC = TextEncodingM<Latin1TextDecoderC, Latin1TextEncoderC, 1, 0>;
using Utf8EncodingC = TextEncodingM<UTF8TextDecoderC, UTF8TextEncoderC, 1, 3>;
using Utf16EncodingC = TextEncodingM<UTF16TextDecoderC, UTF16TextEncoderC, 2, 2>;
using WCharEncodingC = TextEncodingM<WCharTextDecoderC, WCharTextEncoderC, 4, 0>;

}  // namespace

// The objects are made under the compiler's one-time guard and never
// destroyed: a caller may still convert text while the process exits.
TextEncodingI* asciiEncoding() {
    static TextEncodingI* const object = new AsciiEncodingC();
    return object;
}

TextEncodingI* system8Encoding() {
    static TextEncodingI* const object = new System8EncodingC();
    return object;
}

TextEncodingI* latin1Encoding() {
    static TextEncodingI* const object = new Latin1EncodingC();
    return object;
}

TextEncodingI* utf8Encoding() {
    static TextEncodingI* const object = new Utf8EncodingC(kUtf8Mark);
    return object;
}

TextEncodingI* utf16Encoding() {
    static TextEncodingI* const object = new Utf16EncodingC(kLittleEndianMark);
    return object;
}

TextEncodingI* utf16beEncoding() {
    static TextEncodingI* const object = new Utf16EncodingC(kBigEndianMark);
    return object;
}

TextEncodingI* utf16leEncoding() {
    static TextEncodingI* const object = new Utf16EncodingC(kLittleEndianMark);
    return object;
}

TextEncodingI* wcharEncoding() {
    static TextEncodingI* const object = new WCharEncodingC();
    return object;
}

void loadStepTextencoding() {
    utf16BeWord = utf16beEncoding();
    utf16LeWord = utf16leEncoding();
}

TextEncodingI* utf16OrderObject(bool bigEndian) { return bigEndian ? utf16BeWord : utf16LeWord; }

bool encodingNamesEqual(const char* a, const char* b) {
    if (a == b) return true;
    // A missing name matches nothing rather than being read.
    if (a == nullptr || b == nullptr) return false;
    for (;; ++a, ++b) {
        uint8_t x = static_cast<uint8_t>(*a);
        uint8_t y = static_cast<uint8_t>(*b);
        if (x == 0 || y == 0) return x == y;
        if ((x ^ y) & 0xDF) return false;
    }
}

TextEncodingI* findEncoding(const char* name) {
    static const struct {
        const char* name;
        TextEncodingI* (*object)();
    } encodings[] = {
        {"ascii", asciiEncoding},     {"system-8", system8Encoding}, {"iso-8859-1", latin1Encoding},
        {"utf8", utf8Encoding},       {"utf16", utf16Encoding},      {"utf16be", utf16beEncoding},
        {"utf16le", utf16leEncoding}, {"wchar_t", wcharEncoding},
    };
    for (const auto& e : encodings) {
        if (encodingNamesEqual(name, e.name)) return e.object();
    }
    return nullptr;
}

// ---------------------------------------------------------------------------
// Held bytes

// The buffer is allocated when bytes are first held: most decoders and
// encoders convert whole text and never hold any, and for short text the
// allocation would cost more than the conversion.
UnusedByteBufferC::UnusedByteBufferC(uint32_t size)
    : held(nullptr), heldUsed(0), heldSize(size), savedHeld(nullptr), savedUsed(0) {}

UnusedByteBufferC::~UnusedByteBufferC() {
    delete[] held;
    delete[] savedHeld;
}

const uint8_t* UnusedByteBufferC::completeHeld(const uint8_t* input, uint32_t inputLength,
                                               uint32_t* taken, uint32_t* total) {
    if (heldUsed == 0) {
        *taken = 0;
        *total = 0;
        return nullptr;
    }
    // The input copied here is not counted as held: the caller appends what
    // it does not use up.
    uint32_t copied = heldSize - heldUsed;
    if (copied > inputLength) copied = inputLength;
    if (copied != 0) memcpy(held + heldUsed, input, copied);
    uint32_t need = sequenceBytes(held, heldUsed + copied);
    // No sequence is longer than the buffer.
    if (need > heldSize) need = heldSize;
    // More bytes than one sequence are held only after a call whose output
    // room ran out. Taking them all as the sequence keeps `taken` from
    // wrapping below zero (which would send the caller far past its input);
    // the held bytes are then walked on their own.
    if (need < heldUsed) need = heldUsed;
    if (need - heldUsed > inputLength) {
        *taken = inputLength;
        *total = heldUsed + inputLength;
    } else {
        *total = need;
        *taken = need - heldUsed;
    }
    return held;
}

void UnusedByteBufferC::appendHeld(const uint8_t* bytes, uint32_t count) {
    if (count == 0 || count > heldSize - heldUsed) return;
    if (held == nullptr) held = new uint8_t[heldSize];
    memmove(held + heldUsed, bytes, count);
    heldUsed += count;
}

void UnusedByteBufferC::dropHeld(uint32_t count) {
    if (count >= heldUsed) {
        heldUsed = 0;
        return;
    }
    memmove(held, held + count, heldUsed - count);
    heldUsed -= count;
}

void UnusedByteBufferC::snapshot() {
    if (savedHeld != nullptr) return;
    if (held == nullptr) held = new uint8_t[heldSize];
    savedHeld = new uint8_t[heldSize];
    memcpy(savedHeld, held, heldSize);
    savedUsed = heldUsed;
}

void UnusedByteBufferC::restore() {
    if (savedHeld == nullptr) return;
    memcpy(held, savedHeld, heldSize);
    heldUsed = savedUsed;
    delete[] savedHeld;
    savedHeld = nullptr;
}

template <class Raw>
uint32_t UnusedByteBufferC::heldWalk(const uint8_t* input, uint32_t length, uint8_t* output,
                                     uint32_t room, bool sizing, Raw& raw) {
    uint32_t written = 0;
    uint32_t taken = 0;
    uint32_t total = 0;
    uint32_t consumed = 0;
    bool saved = false;
    while (heldUsed != 0) {
        const uint8_t* p = completeHeld(input, length, &taken, &total);
        consumed = 0;
        if (total != 0) {
            written += raw(p, total, &consumed, output ? output + written : nullptr, room - written);
        }
        if (consumed >= total) {
            // The held sequence and the input taken into it are done.
            if (!sizing) heldUsed = 0;
            break;
        }
        if (consumed >= total - taken) {
            // The held bytes are used up, part of the input taken is not.
            if (!sizing) heldUsed = 0;
            taken = consumed + taken - total;
            break;
        }
        // The held bytes were not all used: what was taken joins them and the
        // used ones go. A size question works on a copy that is put back.
        if (sizing && !saved) {
            snapshot();
            saved = true;
        }
        appendHeld(input, taken);
        input += taken;
        length -= taken;
        bool moved = taken != 0 || consumed != 0;
        taken = 0;
        dropHeld(consumed);
        // Without any progress (no output room left) another round would see
        // the same bytes again: go on with the rest instead of looping.
        if (!moved || length == 0) break;
    }
    input += taken;
    length -= taken;
    consumed = 0;
    written += raw(input, length, &consumed, output ? output + written : nullptr, room - written);
    if (!sizing) appendHeld(input + consumed, length - consumed);
    if (saved) restore();
    return written;
}

uint32_t TextDecoderWithUnusedBytesC::decodedSize(const void* bytes, uint32_t length) {
    auto raw = [this](const uint8_t* p, uint32_t n, uint32_t* consumed, uint8_t*, uint32_t) {
        return rawDecodedSize(p, n, consumed);
    };
    return heldWalk(static_cast<const uint8_t*>(bytes), length, nullptr, 0xFFFFFFFFu, true, raw);
}

uint32_t TextDecoderWithUnusedBytesC::decode(const void* bytes, uint32_t length, void* output,
                                             uint32_t room, uint32_t* characters) {
    uint32_t count = 0;
    auto raw = [this, &count](const uint8_t* p, uint32_t n, uint32_t* consumed, uint8_t* out,
                              uint32_t r) {
        uint32_t c = 0;
        uint32_t w = rawDecode(p, n, consumed, out, r, &c);
        count += c;
        return w;
    };
    if (output == nullptr) room = 0;
    uint32_t written =
        heldWalk(static_cast<const uint8_t*>(bytes), length, static_cast<uint8_t*>(output), room,
                 false, raw);
    if (characters) *characters = count;
    return written;
}

uint32_t FromUTF8TextEncoderC::sequenceBytes(const uint8_t* bytes, uint32_t) {
    return utf8SequenceLength(bytes);
}

uint32_t FromUTF8TextEncoderC::encodedSize(const void* internal, uint32_t length) {
    auto raw = [this](const uint8_t* p, uint32_t n, uint32_t* consumed, uint8_t*, uint32_t) {
        return rawEncodedSize(p, n, consumed);
    };
    return heldWalk(static_cast<const uint8_t*>(internal), length, nullptr, 0xFFFFFFFFu, true, raw);
}

uint32_t FromUTF8TextEncoderC::encode(const void* internal, uint32_t length, void* output,
                                      uint32_t room, bool* lost) {
    bool anyLost = false;
    auto raw = [this, &anyLost](const uint8_t* p, uint32_t n, uint32_t* consumed, uint8_t* out,
                                uint32_t r) {
        bool l = false;
        uint32_t w = rawEncode(p, n, out, r, &l, consumed);
        anyLost = anyLost || l;
        return w;
    };
    if (output == nullptr) room = 0;
    uint32_t written = heldWalk(static_cast<const uint8_t*>(internal), length,
                                static_cast<uint8_t*>(output), room, false, raw);
    if (lost) *lost = anyLost;
    return written;
}

// ---------------------------------------------------------------------------
// "ascii" and "iso-8859-1" in: no held bytes, every byte is a character.

namespace {

// Bytes of 0x80 and above, eight at a time.
inline uint32_t countHighBytes(const uint8_t* p, uint32_t length) {
    const uint8_t* end = p + length;
    uint32_t high = 0;
    for (; left(p, end) >= 8; p += 8) high += highBytes(load64(p));
    for (; p < end; ++p) high += *p >> 7;
    return high;
}

}  // namespace

// What a byte of 0x80 and above becomes is the only difference between the
// two decoders. `High` gives
//   kBytes            the bytes it writes for such a byte
//   kBlockRoom        the room the eight-byte loop needs for eight of them
//   putInBlock(o, b)  writes any byte in the eight-byte loop (it may store a
//                     little ahead, inside kBlockRoom)
//   put(o, b)         writes kBytes for a byte of 0x80 and above

// "ascii": U+FFFD.
struct AsciiHighByteT {
    static const uint32_t kBytes = 3;
    // Eight replacements, stored four bytes at a time.
    static const uint32_t kBlockRoom = 8 * 3 + 1;
    static void putInBlock(uint8_t*& o, uint32_t b) {
        store32(o, b < 0x80 ? b : 0xBDBFEFu);
        o += b < 0x80 ? 1 : 3;
    }
    static void put(uint8_t*& o, uint32_t) {
        o[0] = 0xEF;
        o[1] = 0xBF;
        o[2] = 0xBD;
        o += 3;
    }
};

// "iso-8859-1": the code point of the same value.
struct Latin1HighByteT {
    static const uint32_t kBytes = 2;
    static const uint32_t kBlockRoom = 8 * 2;
    static void putInBlock(uint8_t*& o, uint32_t b) {
        uint32_t two = (0xC0 | (b >> 6)) | ((0x80 | (b & 0x3F)) << 8);
        uint16_t w = static_cast<uint16_t>(b < 0x80 ? b : two);
        memcpy(o, &w, 2);
        o += 1 + (b >> 7);
    }
    static void put(uint8_t*& o, uint32_t b) {
        o[0] = static_cast<uint8_t>(0xC0 | (b >> 6));
        o[1] = static_cast<uint8_t>(0x80 | (b & 0x3F));
        o += 2;
    }
};

template <class High>
uint32_t ByteTextDecoderM<High>::maxOutput(uint32_t inputBytes) {
    return High::kBytes * inputBytes;
}

template <class High>
uint32_t ByteTextDecoderM<High>::decodedSize(const void* bytes, uint32_t length) {
    return length + (High::kBytes - 1) * countHighBytes(static_cast<const uint8_t*>(bytes), length);
}

template <class High>
uint32_t ByteTextDecoderM<High>::decode(const void* bytes, uint32_t length, void* output,
                                        uint32_t room, uint32_t* characters) {
    const uint8_t* p = static_cast<const uint8_t*>(bytes);
    const uint8_t* end = p + length;
    uint8_t* o = static_cast<uint8_t*>(output);
    uint8_t* oend = o ? o + room : o;
    // Eight bytes at a time: ASCII as it is, others while the room takes
    // eight of their longest output.
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
    while (p < end) {
        uint8_t b = *p;
        if (b < 0x80) {
            if (o == oend) break;
            *o++ = b;
        } else {
            // A byte whose output would run past the room ends the loop
            // instead of being written outside it.
            if (left(o, oend) < High::kBytes) break;
            High::put(o, b);
        }
        ++p;
    }
    // All input counts as used, whether or not the room took it.
    if (characters) *characters = length;
    return static_cast<uint32_t>(o - static_cast<uint8_t*>(output));
}

template class ByteTextDecoderM<AsciiHighByteT>;
template class ByteTextDecoderM<Latin1HighByteT>;

// ---------------------------------------------------------------------------
// "utf8" and "system-8" in

TextEncodingI* UTF8TextDecoderC::getEncoding() { return utf8Encoding(); }

uint32_t UTF8TextDecoderC::sequenceBytes(const uint8_t* bytes, uint32_t count) {
    return count == 0 ? 1 : utf8SequenceLength(bytes);
}

uint32_t UTF8TextDecoderC::rawDecodedSize(const uint8_t* bytes, uint32_t length,
                                          uint32_t* consumed) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint32_t size = 0;
    while (p < end) {
#if KEEL_TEXT_SSE2
        // A clean sequence keeps its bytes: the size is the bytes walked.
        const uint8_t* start = p;
        p = walkClean16(p, end, [](const uint8_t*, CleanBlockT) {},
                        [](const uint8_t*, uint32_t) {});
        size += static_cast<uint32_t>(p - start);
        if (p >= end) break;
#else
        if (left(p, end) >= kScanBytes) {
            CleanRunT run = scanClean(p);
            if (run.length) {
                p += run.length;
                size += run.length;
                continue;
            }
        }
#endif
        uint32_t n = utf8SequenceLength(p);
        if (n > left(p, end)) break;
        size += utf8EncodedLength(utf8Next(p));
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    return size;
}

uint32_t UTF8TextDecoderC::rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed,
                                     uint8_t* output, uint32_t room, uint32_t* characters) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint8_t* o = output;
    uint8_t* oend = o ? o + room : o;
    uint32_t chars = 0;
    while (p < end) {
#if KEEL_TEXT_SSE2
        {
            // Clean sequences are already what utf8Put would write: they are
            // copied a block at a time, and no further than the room goes.
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
            if (p >= end) break;
        }
#else
        if (left(p, end) >= kScanBytes && left(o, oend) >= kScanBytes) {
            // Clean sequences are already what utf8Put would write. The whole
            // block is copied, which stays inside the room; the bytes behind
            // the run are written over next.
            CleanRunT run = scanClean(p);
            if (run.length) {
                memcpy(o, p, kScanBytes);
                p += run.length;
                o += run.length;
                chars += run.chars;
                continue;
            }
        }
#endif
        // Each character is read before the room is tested: one that does
        // not fit is consumed and lost.
        uint32_t n = utf8SequenceLength(p);
        if (n > left(p, end)) break;
        uint32_t value = utf8Next(p);
        if (left(o, oend) < utf8EncodedLength(value)) break;
        utf8Put(o, value);
        ++chars;
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    *characters = chars;
    return static_cast<uint32_t>(o - output);
}

// ---------------------------------------------------------------------------
// "utf16", "utf16be", "utf16le" in

bool UTF16TextDecoderC::fixOrder(const uint8_t* bytes) {
    TextEncodingI* bigEndian = utf16BeObject();
    if (encoding == utf16Encoding()) {
        encoding = (bytes[0] == 0xFE && bytes[1] == 0xFF) ? bigEndian : utf16LeObject();
    }
    return encoding == bigEndian;
}

const uint8_t* UTF16TextDecoderC::rawStart(const uint8_t* bytes, bool* swapped) {
    *swapped = fixOrder(bytes);
    // A mark of this decoder's order at the head of the block is skipped, on
    // every call and not only on the first.
    const uint8_t* mark = *swapped ? kBigEndianMark : kLittleEndianMark;
    if (bytes[0] == mark[0] && bytes[1] == mark[1]) return bytes + 2;
    return bytes;
}

uint32_t UTF16TextDecoderC::sequenceBytes(const uint8_t* bytes, uint32_t count) {
    if (count < 2) return 4;
    bool swapped = fixOrder(bytes);
    return 2 * utf16UnitsAt(bytes, swapped);
}

namespace {

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

}  // namespace

#if KEEL_TEXT_SSE2
namespace {

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
    __m128i three = _mm_or_si128(
        _mm_or_si128(_mm_or_si128(_mm_srli_epi32(u, 12), _mm_set1_epi32(0xE0)),
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
        _mm_slli_epi16(_mm_or_si128(_mm_and_si128(u, _mm_set1_epi16(0x3F)), _mm_set1_epi16(0x80)), 8));
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
        __m128i v = _mm_sub_epi32(_mm_add_epi32(_mm_slli_epi32(value, 10), low),
                                  _mm_set1_epi32(0x35FDC00));
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

}  // namespace
#endif

uint32_t UTF16TextDecoderC::rawDecodedSize(const uint8_t* bytes, uint32_t length,
                                           uint32_t* consumed) {
    if (length < 2) {
        *consumed = 0;
        return 0;
    }
    bool swapped;
    const uint8_t* p = rawStart(bytes, &swapped);
    const uint8_t* end = bytes + length;
    uint32_t size = 0;
    while (left(p, end) >= 2) {
#if KEEL_TEXT_SSE2
        // Eight units at once, counted as below with the pairs found by
        // comparing each lane with the next. A high surrogate in the last
        // lane would need the next block: the careful loop takes it.
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
            __m128i lanes = _mm_add_epi16(
                _mm_add_epi16(_mm_set1_epi16(3), inPair), _mm_add_epi16(below80(u), below800(u)));
            sums = _mm_add_epi32(sums, _mm_madd_epi16(lanes, ones));
            p += 16;
        }
        size += ascii + sumLanes32(sums);
        if (left(p, end) < 2) break;
#endif
        if (left(p, end) >= 8) {
            // Four units at once: one byte each, one more from 0x80 and one
            // more from 0x800. A proper pair is four bytes where the two
            // units would count three each; any other surrogate is U+FFFD,
            // three bytes, as counted.
            uint64_t x = load64(p);
            if (swapped) x = swapUnits(x);
            uint64_t high = highSurrogateLanes(x);
            uint64_t low = lowSurrogateLanes(x);
            if ((high << 16) == low && !(high >> 48)) {
                uint64_t from80 = lanesNotZero(x & 0xFF80FF80FF80FF80ull);
                uint64_t from800 = lanesNotZero(x & 0xF800F800F800F800ull) & ~(high | low);
                size += sumLanes(0x0001000100010001ull + (from80 >> 15) + (from800 >> 15));
                p += 8;
                continue;
            }
        }
        uint32_t unit = utf16Load(p, swapped);
        if (unit < 0xD800 || unit > 0xDFFF) {
            p += 2;
            size += unit < 0x80 ? 1 : unit < 0x800 ? 2 : 3;
            continue;
        }
        if (unit <= 0xDBFF && left(p, end) < 4) break;
        size += utf8EncodedLength(utf16Next(p, swapped));
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    return size;
}

uint32_t UTF16TextDecoderC::rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed,
                                      uint8_t* output, uint32_t room, uint32_t* characters) {
    if (length < 2) {
        *consumed = 0;
        *characters = 0;
        return 0;
    }
    bool swapped;
    const uint8_t* p = rawStart(bytes, &swapped);
    const uint8_t* end = bytes + length;
    uint8_t* o = output;
    uint8_t* oend = o ? o + room : o;
    uint32_t chars = 0;
    while (left(p, end) >= 2) {
#if KEEL_TEXT_SSE2
        // Eight units at once while there are no surrogates.
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
                uint32_t strays = static_cast<uint32_t>(_mm_movemask_epi8(
                    _mm_or_si128(_mm_andnot_si128(pairHigh, high), _mm_andnot_si128(pairLow, low))));
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
        if (left(p, end) < 2) break;
#endif
        if (left(p, end) >= 8 && left(o, oend) >= 16) {
            uint64_t x = load64(p);
            if (swapped) x = swapUnits(x);
            if ((x & 0xFF80FF80FF80FF80ull) == 0) {
                uint32_t four = static_cast<uint32_t>((x & 0xFF) | ((x >> 8) & 0xFF00) |
                                                      ((x >> 16) & 0xFF0000) |
                                                      ((x >> 24) & 0xFF000000));
                store32(o, four);
                p += 8;
                o += 4;
                chars += 4;
                continue;
            }
            uint64_t surrogates =
                ~lanesNotZero((x & 0xF800F800F800F800ull) ^ 0xD800D800D800D800ull) & kLaneTops;
            if (surrogates == 0) {
                // Four units without surrogates: one to three bytes each. Each
                // is stored as four bytes, the extra ones written over by the
                // next (the room takes them).
                for (int i = 0; i < 4; ++i) {
                    uint32_t n;
                    uint32_t w = utf8Bytes16(static_cast<uint32_t>(x >> (16 * i)) & 0xFFFF, &n);
                    store32(o, w);
                    o += n;
                }
                p += 8;
                chars += 4;
                continue;
            }
        }
        uint32_t unit = utf16Load(p, swapped);
        uint32_t value;
        if (unit < 0xD800 || unit > 0xDFFF) {
            p += 2;
            value = unit;
        } else {
            if (unit <= 0xDBFF && left(p, end) < 4) break;
            value = utf16Next(p, swapped);
        }
        // The character is read first: one that does not fit is lost.
        if (left(o, oend) < utf8EncodedLength(value)) break;
        utf8Put(o, value);
        ++chars;
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    *characters = chars;
    return static_cast<uint32_t>(o - output);
}

// ---------------------------------------------------------------------------
// "wchar_t" in

TextEncodingI* WCharTextDecoderC::getEncoding() { return wcharEncoding(); }

uint32_t WCharTextDecoderC::sequenceBytes(const uint8_t*, uint32_t count) {
    return count < 4 ? 8 : 4;
}

namespace {

// utf8EncodedLength without branches: every word of wide text may be of
// another length than the one before.
inline uint32_t encodedLengthOf(uint32_t v) {
    uint32_t n = 1 + (v > 0x7F) + (v > 0x7FF) + (v > 0xFFFF) + (v > 0x1FFFFF) + (v > 0x3FFFFFF);
    return v < 0x80000000u ? n : 0;
}

}  // namespace

uint32_t WCharTextDecoderC::rawDecodedSize(const uint8_t* bytes, uint32_t length,
                                           uint32_t* consumed) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint32_t size = 0;
#if KEEL_TEXT_SSE2
    // Four words at once while all are below 0x10000: three bytes, less one
    // below 0x800 and one below 0x80.
    __m128i sums = _mm_setzero_si128();
    while (left(p, end) >= 16) {
        __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        if (_mm_movemask_epi8(_mm_cmpeq_epi32(
                _mm_and_si128(w, _mm_set1_epi32(static_cast<int>(0xFFFF0000u))),
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
    while (left(p, end) >= 4) size += encodedLengthOf(ucs4Next(p));
    *consumed = static_cast<uint32_t>(p - bytes);
    return size;
}

uint32_t WCharTextDecoderC::rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed,
                                      uint8_t* output, uint32_t room, uint32_t* characters) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint8_t* o = output;
    uint8_t* oend = o ? o + room : o;
    uint32_t chars = 0;
    while (left(p, end) >= 4) {
#if KEEL_TEXT_SSE2
        // Eight words at once while all are below 0x10000.
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
                __m128i u = _mm_xor_si128(
                    _mm_packs_epi32(_mm_sub_epi32(a, half), _mm_sub_epi32(b, half)),
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
        if (left(p, end) < 4) break;
#endif
        if (left(p, end) >= 16 && left(o, oend) >= 16) {
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
            if (((a | b) & 0xFFFF0000FFFF0000ull) == 0) {
                // Four values below 0x10000: one to three bytes each, stored
                // as four bytes that the next one writes over.
                const uint32_t words[4] = {
                    static_cast<uint32_t>(a), static_cast<uint32_t>(a >> 32),
                    static_cast<uint32_t>(b), static_cast<uint32_t>(b >> 32)};
                for (uint32_t v : words) {
                    uint32_t n;
                    store32(o, utf8Bytes16(v, &n));
                    o += n;
                }
                p += 16;
                chars += 4;
                continue;
            }
        }
        // Unchecked: a value of 0x80000000 or more has no internal form and
        // writes nothing, but it is a character all the same.
        uint32_t value = ucs4Next(p);
        if (left(o, oend) < utf8EncodedLength(value)) break;
        utf8Put(o, value);
        ++chars;
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    *characters = chars;
    return static_cast<uint32_t>(o - output);
}

// ---------------------------------------------------------------------------
// Encoders from the internal form. The size loops count whole clean runs
// eight bytes at a time; the converting loops go character by character,
// with a shortcut for runs of ASCII and for the common two- and three-byte
// sequences.

namespace {

// Characters of whole sequences: clean runs eight bytes at a time, the rest
// the careful way. `quads` collects the four-byte characters of the clean
// runs; `per` sees the value of each character walked the careful way.
template <class Per>
inline uint32_t countCharacters(const uint8_t* bytes, uint32_t length, uint32_t* consumed,
                                uint32_t* quads, Per per) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint32_t chars = 0;
    while (p < end) {
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
        *quads += q;
        if (p >= end) break;
#else
        if (left(p, end) >= kScanBytes) {
            CleanRunT run = scanClean(p);
            if (run.length) {
                p += run.length;
                chars += run.chars;
                *quads += run.quads;
                continue;
            }
        }
#endif
        uint32_t value;
        if (!readChar(p, end, &value)) break;
        per(value);
        ++chars;
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    return chars;
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
        __m128i three = _mm_or_si128(
            _mm_or_si128(_mm_slli_epi16(_mm_and_si128(b0, _mm_set1_epi16(0x0F)), 12),
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

// The loop of the encoders: clean runs a block at a time (a block of ASCII
// at once), everything else one character at a time through utf8Next.
// `Target` gives the output side:
//   kPerByte          most output bytes for one input byte
//   kSlack            output bytes that a sequence cut by the end of a block
//                     may take beyond kPerByte for each of its bytes there
//   ascii(o, p)       writes the kScanBytes ASCII characters at p
//   put(o, v, lost)   writes a value of a clean sequence
//   careful(o, oend, p, end, lost)  one character with every test; false
//                     when the loop must stop in front of it
template <class Target>
uint32_t encodeLoop(Target& target, const uint8_t* bytes, uint32_t length, uint8_t* output,
                    uint32_t room, bool* lost, uint32_t* consumed) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint8_t* o = output;
    uint8_t* oend = o ? o + room : o;
    bool anyLost = false;
    for (;;) {
#if KEEL_TEXT_SSE2
        {
            // As many blocks as the room takes for certain.
            uint32_t room = left(o, oend);
            uint32_t blocks =
                room >= Target::kSlack ? (room - Target::kSlack) / (Target::kPerByte * 16) : 0;
            const uint8_t* walkEnd =
                left(p, end) / 16 > blocks ? p + 16 * blocks + 3 : end;
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
        }
#else
        if (left(p, end) >= kScanBytes + 3 && left(o, oend) >= Target::kPerByte * kScanBytes) {
            if (asciiBlock(p)) {
                target.ascii(o, p);
                p += kScanBytes;
                continue;
            }
            CleanRunT run = scanClean(p);
            if (run.length) {
#if KEEL_TEXT_SSE2
                if (run.quads == 0) {
                    target.block(o, p, static_cast<uint32_t>(run.starts), anyLost);
                    p += run.length;
                    continue;
                }
#endif
                // The places of the characters are known from the scan, so
                // each one is decoded without waiting for the one before.
                for (uint64_t starts = run.starts; starts != 0; starts &= starts - 1) {
                    target.put(o, cleanValue(p + startOf(starts)), anyLost);
                }
                p += run.length;
                continue;
            }
        }
#endif
        if (p >= end || !target.careful(o, oend, p, end, anyLost)) break;
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    *lost = anyLost;
    return static_cast<uint32_t>(o - output);
}

// One character for an 8-bit target: values above `limit` become 0x7E. The
// room is tested first, so a loop that runs out of room stops in front of
// the character.
inline bool carefulByte(uint8_t*& o, uint8_t* oend, const uint8_t*& p, const uint8_t* end,
                        bool& lost, uint32_t limit) {
    if (o == oend) return false;
    uint32_t value;
    if (!readChar(p, end, &value)) return false;
    if (value > limit) {
        value = 0x7E;
        lost = true;
    }
    *o++ = static_cast<uint8_t>(value);
    return true;
}

struct ByteTargetT {
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
    bool careful(uint8_t*& o, uint8_t* oend, const uint8_t*& p, const uint8_t* end, bool& lost) {
        return carefulByte(o, oend, p, end, lost, limit);
    }
    void undo(uint8_t*& o, const uint8_t*) { --o; }
};

struct Utf16TargetT {
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
    // What put or block wrote for the character at `lead`: a character cut
    // by the end of the walk was decoded from whatever followed its lead
    // byte, and that value tells how many units went out.
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
    bool careful(uint8_t*& o, uint8_t* oend, const uint8_t*& p, const uint8_t* end, bool& lost) {
        if (left(o, oend) < 2) return false;
        const uint8_t* start = p;
        uint32_t value;
        if (!readChar(p, end, &value)) return false;
        if (value >= 0x110000) {
            lost = true;
        } else if (value >= 0x10000 && left(o, oend) < 4) {
            // A pair needs two units: rather than write past the room, stop
            // in front of it as in front of any other character that does
            // not fit.
            p = start;
            return false;
        }
        utf16Put(o, value, swapped);
        return true;
    }
};

struct WCharTargetT {
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
    bool careful(uint8_t*& o, uint8_t* oend, const uint8_t*& p, const uint8_t* end, bool&) {
        if (left(o, oend) < 4) return false;
        uint32_t value;
        if (!readChar(p, end, &value)) return false;
        ucs4Put(o, value);
        return true;
    }
};

}  // namespace

uint32_t ASCIITextEncoderC::rawEncodedSize(const uint8_t* bytes, uint32_t length,
                                           uint32_t* consumed) {
    uint32_t quads = 0;
    return countCharacters(bytes, length, consumed, &quads, [](uint32_t) {});
}

uint32_t ASCIITextEncoderC::rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output,
                                      uint32_t room, bool* lost, uint32_t* consumed) {
    ByteTargetT target = {0x7F};
    return encodeLoop(target, bytes, length, output, room, lost, consumed);
}

uint32_t Latin1TextEncoderC::rawEncodedSize(const uint8_t* bytes, uint32_t length,
                                            uint32_t* consumed) {
    uint32_t quads = 0;
    return countCharacters(bytes, length, consumed, &quads, [](uint32_t) {});
}

uint32_t Latin1TextEncoderC::rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output,
                                       uint32_t room, bool* lost, uint32_t* consumed) {
    ByteTargetT target = {0xFF};
    return encodeLoop(target, bytes, length, output, room, lost, consumed);
}

uint32_t UTF16TextEncoderC::rawEncodedSize(const uint8_t* bytes, uint32_t length,
                                           uint32_t* consumed) {
    uint32_t pairs = 0;
    uint32_t chars = countCharacters(bytes, length, consumed, &pairs,
                                     [&pairs](uint32_t v) { pairs += utf16UnitsFor(v) - 1; });
    return 2 * (chars + pairs);
}

uint32_t UTF16TextEncoderC::rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output,
                                      uint32_t room, bool* lost, uint32_t* consumed) {
    Utf16TargetT target = {encoding == utf16BeObject()};
    return encodeLoop(target, bytes, length, output, room, lost, consumed);
}

TextEncodingI* WCharTextEncoderC::getEncoding() { return wcharEncoding(); }

uint32_t WCharTextEncoderC::rawEncodedSize(const uint8_t* bytes, uint32_t length,
                                           uint32_t* consumed) {
    uint32_t quads = 0;
    return 4 * countCharacters(bytes, length, consumed, &quads, [](uint32_t) {});
}

uint32_t WCharTextEncoderC::rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output,
                                      uint32_t room, bool* lost, uint32_t* consumed) {
    WCharTargetT target;
    return encodeLoop(target, bytes, length, output, room, lost, consumed);
}

// ---------------------------------------------------------------------------
// "utf8" and "system-8" out: a validating copy through a decoder.

TextEncodingI* UTF8TextEncoderC::getEncoding() { return utf8Encoding(); }

uint32_t UTF8TextEncoderC::encodedSize(const void* internal, uint32_t length) {
    return decoder->decodedSize(internal, length);
}

uint32_t UTF8TextEncoderC::encode(const void* internal, uint32_t length, void* output,
                                  uint32_t room, bool* lost) {
    if (lost) *lost = false;
    return decoder->decode(internal, length, output, room, nullptr);
}

}  // namespace keel
