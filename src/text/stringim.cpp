#include "text/stringim.h"

#include <string.h>

#include <algorithm>
#include <new>

#include "text/case.h"
#include "text/textencoding.h"
#include "text/utf8.h"

#if defined(__i386__) || defined(__x86_64__)
#include <immintrin.h>
#define KEEL_CLEAN_AVX2 1
#else
#define KEEL_CLEAN_AVX2 0
#endif

namespace keel {

namespace {

// What a representation without a buffer reads as.
const uint8_t emptyText[1] = {0};

bool isInternalForm(const char* encoding) { return encoding && encodingNamesEqual(encoding, "vutf8"); }

bool isUtf8(const char* encoding) { return encoding && encodingNamesEqual(encoding, "utf8"); }

// A decoder or encoder of one conversion, made in place inside this object
// instead of on the heap: for the library's own encoding objects, the class
// that their newDecoder or newEncoder would make, given the same encoding;
// for any other object, what it hands out. One allocation less for every
// string made from outside bytes and every text given out.
template <class Interface, size_t kRoom>
class LocalCoderM {
public:
    LocalCoderM() : coder_(nullptr), onHeap_(false) {}
    ~LocalCoderM() {
        if (onHeap_) {
            delete coder_;
        } else if (coder_) {
            coder_->~Interface();
        }
    }
    LocalCoderM(const LocalCoderM&) = delete;
    LocalCoderM& operator=(const LocalCoderM&) = delete;
    Interface* get() const { return coder_; }

protected:
    template <class Coder>
    void place(TextEncodingI* encoding) {
        static_assert(sizeof(Coder) <= kRoom && alignof(Coder) <= alignof(void*), "room for the coder");
        coder_ = new (room_) Coder(encoding);
    }
    void adopt(Interface* coder) {
        coder_ = coder;
        onHeap_ = true;
    }

private:
    alignas(void*) unsigned char room_[kRoom];
    Interface* coder_;
    bool onHeap_;
};

class LocalDecoderC : public LocalCoderM<TextDecoderI, 64> {
public:
    explicit LocalDecoderC(TextEncodingI* encoding) {
        if (encoding == utf8Encoding() || encoding == system8Encoding()) {
            place<UTF8TextDecoderC>(encoding);
        } else if (encoding == utf16Encoding() || encoding == utf16leEncoding() || encoding == utf16beEncoding()) {
            place<UTF16TextDecoderC>(encoding);
        } else if (encoding == wcharEncoding()) {
            place<WCharTextDecoderC>(encoding);
        } else if (encoding == latin1Encoding()) {
            place<Latin1TextDecoderC>(encoding);
        } else if (encoding == asciiEncoding()) {
            place<ASCIITextDecoderC>(encoding);
        } else {
            adopt(encoding->newDecoder());
        }
    }
};

// With no encoding (an unknown name) it holds no encoder.
class LocalEncoderC : public LocalCoderM<TextEncoderI, 64> {
public:
    explicit LocalEncoderC(TextEncodingI* encoding) {
        if (!encoding) return;
        if (encoding == utf16Encoding() || encoding == utf16leEncoding() || encoding == utf16beEncoding()) {
            place<UTF16TextEncoderC>(encoding);
        } else if (encoding == wcharEncoding()) {
            place<WCharTextEncoderC>(encoding);
        } else if (encoding == latin1Encoding()) {
            place<Latin1TextEncoderC>(encoding);
        } else if (encoding == utf8Encoding() || encoding == system8Encoding()) {
            place<UTF8TextEncoderC>(encoding);
        } else if (encoding == asciiEncoding()) {
            place<ASCIITextEncoderC>(encoding);
        } else {
            adopt(encoding->newEncoder());
        }
    }
};

// An encoder for `encoding` while it is in scope; unknown names have none.
class OutputC {
public:
    explicit OutputC(const char* encoding)
        : found_(encoding ? findEncoding(encoding) : nullptr), local_(found_) {
        encoder_ = local_.get();
        unitWidth_ = found_ ? found_->unitWidth() : 0;
    }
    OutputC(const OutputC&) = delete;
    OutputC& operator=(const OutputC&) = delete;

    bool known() const { return encoder_ != nullptr; }
    uint32_t unitWidth() const { return unitWidth_; }
    uint32_t encodedSize(const uint8_t* internal, uint32_t length) {
        return encoder_->encodedSize(internal, length);
    }
    uint32_t encode(const uint8_t* internal, uint32_t length, void* output, uint32_t room, bool* lost) {
        return encoder_->encode(internal, length, output, room, lost);
    }

private:
    TextEncodingI* found_;
    LocalEncoderC local_;
    TextEncoderI* encoder_;
    uint32_t unitWidth_;
};

uint32_t utf8LengthOf(StringImplI* string) { return string->textLength("utf8"); }

// One character forward by the length its first byte announces. A sequence
// cut off by the end of the text would step over the NUL into whatever lies
// behind it; it ends at the end instead, as one character.
template <typename Byte>
Byte* stepForward(Byte* p, const uint8_t* end) {
    Byte* next = p + utf8SequenceLength(p);
    return next > end ? p + (end - p) : next;
}

// --- Clean UTF-8 in one pass ------------------------------------------------
//
// A string made from "utf8" or "system-8" bytes is mostly made from text that
// is already what the UTF-8 decoder would write: whole sequences in their
// shortest form. For such a head the decoder's two passes (size, then decode)
// come down to a copy and a character count, which copyCleanUtf8 does in one
// pass. It is only a short cut: whatever it does not take goes through the
// decoder as before, and it stops in front of anything it is unsure of.

inline bool isContinuationByte(uint8_t b) { return (b & 0xC0) == 0x80; }

// The length of the sequence at `p` when it is whole before `end`, of one to
// four bytes, in its shortest form and at most U+10FFFF: utf8Next reads it
// and utf8Put writes the same bytes back. 0 for anything else.
inline uint32_t cleanSequenceLength(const uint8_t* p, const uint8_t* end) {
    uint8_t b = p[0];
    if (b < 0x80) return 1;
    size_t left = static_cast<size_t>(end - p);
    if (b < 0xC2) return 0;  // continuation byte, or C0/C1 (overlong)
    if (b < 0xE0) return left >= 2 && isContinuationByte(p[1]) ? 2 : 0;
    if (b < 0xF0) {
        return left >= 3 && isContinuationByte(p[1]) && isContinuationByte(p[2]) &&
                       (b != 0xE0 || p[1] >= 0xA0)
                   ? 3
                   : 0;
    }
    if (b < 0xF5) {
        return left >= 4 && isContinuationByte(p[1]) && isContinuationByte(p[2]) &&
                       isContinuationByte(p[3]) && (b != 0xF0 || p[1] >= 0x90) &&
                       (b != 0xF4 || p[1] < 0x90)
                   ? 4
                   : 0;
    }
    return 0;
}

#if KEEL_CLEAN_AVX2
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

KEEL_AVX2 inline __m256i table16(uint8_t t0, uint8_t t1, uint8_t t2, uint8_t t3, uint8_t t4, uint8_t t5,
                                 uint8_t t6, uint8_t t7, uint8_t t8, uint8_t t9, uint8_t t10,
                                 uint8_t t11, uint8_t t12, uint8_t t13, uint8_t t14, uint8_t t15) {
    return _mm256_setr_epi8(char(t0), char(t1), char(t2), char(t3), char(t4), char(t5), char(t6),
                            char(t7), char(t8), char(t9), char(t10), char(t11), char(t12), char(t13),
                            char(t14), char(t15), char(t0), char(t1), char(t2), char(t3), char(t4),
                            char(t5), char(t6), char(t7), char(t8), char(t9), char(t10), char(t11),
                            char(t12), char(t13), char(t14), char(t15));
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
    t.low1 = table16(kCarry | kOverlong3 | kOverlong2 | kOverlong4, kCarry | kOverlong2, kCarry, kCarry,
                     kCarry | kTooLarge, big, big, big, big, big, big, big, big, big | kSurrogate, big,
                     big);
    const uint8_t cont = kTooLong | kOverlong2 | kTwoConts;
    t.high2 = table16(S, S, S, S, S, S, S, S, cont | kOverlong3 | kTooLarge1000 | kOverlong4,
                      cont | kOverlong3 | kTooLarge, cont | kSurrogate | kTooLarge,
                      cont | kSurrogate | kTooLarge, S, S, S, S);
    t.nibble = _mm256_set1_epi8(0x0F);
    // A lead byte among the last three that its sequence does not fit behind.
    t.incompleteLimit = _mm256_setr_epi8(
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF),
        char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xFF), char(0xF0 - 1), char(0xE0 - 1),
        char(0xC0 - 1));
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
KEEL_AVX2 uint32_t copyClean(uint8_t* out, const uint8_t* in, uint32_t length, uint32_t* characters) {
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
        if (isContinuationByte(byte)) continue;
        if (byte >= 0xC0 && cleanSequenceLength(in + at - back, in + at) == 0) {
            at -= back;
            --chars;
        }
        break;
    }
    *characters = chars;
    return at;
}

// The walk of findChar for an ASCII character other than NUL, from the walk
// position `place` with character index `index`, 32 bytes a step. In a block
// that the check finds valid, each walk step is one valid sequence, so the
// characters are the bytes that are not continuation bytes, every ASCII byte
// is a character of its own value, and no other character has an ASCII
// value. Answers 1 with `place` and `index` at the match, -1 when a NUL
// character ends the walk first, or 0 with `place` and `index` at a walk
// position from which the caller goes on the careful way: in front of the
// first block it was not sure of, or of the end.
KEEL_AVX2 int findAscii(const uint8_t*& place, const uint8_t* end, uint8_t character, int32_t& index) {
    const TablesT t = makeTables();
    const __m256i zero = _mm256_setzero_si256();
    const __m256i needle = _mm256_set1_epi8(static_cast<char>(character));
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
        uint32_t hits = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, needle)));
        uint32_t stops = hits | static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, zero)));
        uint32_t starts = static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpgt_epi8(v, lastContinuation)));
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
        if (isContinuationByte(byte)) continue;
        if (byte >= 0xC0 && cleanSequenceLength(q - back, q) == 0) {
            q -= back;
            --at;
        }
        break;
    }
    place = q;
    index = at;
    return 0;
}

#undef KEEL_AVX2

}  // namespace avx2

bool vectorPathsOff = false;

bool haveAvx2() {
    static const bool have = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
    return have && !__atomic_load_n(&vectorPathsOff, __ATOMIC_RELAXED);
}
#endif

// Copies the longest head of `in` that is made of clean sequences (see
// cleanSequenceLength) to `out`, which has room for `length` bytes, answers
// its length and counts its characters.
uint32_t copyCleanUtf8(uint8_t* out, const uint8_t* in, uint32_t length, uint32_t* characters) {
    uint32_t at = 0;
    uint32_t chars = 0;
#if KEEL_CLEAN_AVX2
    if (length >= 64 && haveAvx2()) at = avx2::copyClean(out, in, length, &chars);
#endif
    const uint8_t* p = in + at;
    const uint8_t* end = in + length;
    uint8_t* o = out + at;
    while (p < end) {
        if (end - p >= 8) {
            uint64_t word;
            memcpy(&word, p, 8);
            if ((word & 0x8080808080808080ull) == 0) {
                memcpy(o, &word, 8);
                p += 8;
                o += 8;
                chars += 8;
                continue;
            }
        }
        uint32_t n = cleanSequenceLength(p, end);
        if (n == 0) break;
        for (uint32_t i = 0; i < n; ++i) o[i] = p[i];
        p += n;
        o += n;
        ++chars;
    }
    *characters = chars;
    return static_cast<uint32_t>(p - in);
}

}  // namespace

void StringImplC::setVectorPaths(bool on) {
#if KEEL_CLEAN_AVX2
    __atomic_store_n(&vectorPathsOff, !on, __ATOMIC_RELAXED);
#else
    (void)on;
#endif
}

// --- Construction ------------------------------------------------------------

// Count 0, every cached field 0 and no buffer; then reset puts the fields
// into their empty state.
StringImplC::StringImplC()
    : data(nullptr), charCount(0), byteLength(0), capacity(0), cursor(0) {
    StringImplC::reset();
}

StringImplC::StringImplC(const void* bytes, uint32_t byteCount, const char* encoding) : StringImplC() {
    store(bytes, byteCount, encoding);
}

StringImplC::StringImplC(StringImplI* first, StringImplI* second) : StringImplC() {
    storeJoined(first, second);
}

void StringImplC::storeJoined(StringImplI* first, StringImplI* second) {
    uint32_t firstLength = utf8LengthOf(first);
    uint32_t secondLength = utf8LengthOf(second);
    void* firstText = nullptr;
    void* secondText = nullptr;
    first->text(&firstText, "utf8");
    second->text(&secondText, "utf8");
    reserve(firstLength + secondLength + 1);
    if (firstLength) memcpy(data, firstText, firstLength);
    if (secondLength) memcpy(data + firstLength, secondText, secondLength);
    // The second's NUL; written here since a representation without a
    // buffer has no NUL to copy.
    data[firstLength + secondLength] = 0;
    byteLength = firstLength + secondLength;
    // Counting both parts here also gives them their counts.
    charCount = first->length() + second->length();
    first->releaseText(firstText, "utf8");
    second->releaseText(secondText, "utf8");
}

void StringImplC::store(const void* bytes, uint32_t byteCount, const char* encoding) {
    if (!bytes || byteCount == 0) {
        reserve(1);
        data[0] = 0;
        charCount = 0;
        return;
    }
    if (isInternalForm(encoding)) {
        // Bytes out of another string: copied as they are, not checked.
        reserve(byteCount + 1);
        byteLength = byteCount;
        memcpy(data, bytes, byteCount);
        data[byteCount] = 0;
        return;
    }
    TextEncodingI* found = encoding ? findEncoding(encoding) : nullptr;
    if (!found) return;  // unknown name: no buffer, byteLength 0, charCount -1
    if ((found == utf8Encoding() || found == system8Encoding()) &&
        storeUtf8(static_cast<const uint8_t*>(bytes), byteCount, found)) {
        return;
    }
    LocalDecoderC local(found);
    TextDecoderI* decoder = local.get();
    uint32_t size = decoder->decodedSize(bytes, byteCount);
    byteLength = size;
    reserve(size + 1);
    uint32_t characters = 0;
    uint32_t written = decoder->decode(bytes, byteCount, data, size, &characters);
    // A decoder that wrote less than it announced leaves no unset bytes.
    if (written < size) memset(data + written, 0, size - written);
    data[size] = 0;
    charCount = static_cast<int32_t>(characters);
}

// The UTF-8 decoder writes clean sequences as they are, so a clean head is
// copied in one pass (copyCleanUtf8) into a buffer of the size the bytes have,
// and only the rest, if any, is decoded. The result is that of the decoder on
// the whole input: the head ends at a character boundary, where a fresh
// decoder holds nothing. When the rest makes the text a size that would give
// another capacity, the head is dropped by reset and the answer is false: the
// caller then decodes everything the ordinary way.
bool StringImplC::storeUtf8(const uint8_t* bytes, uint32_t byteCount, TextEncodingI* encoding) {
    reserve(byteCount + 1);
    uint32_t characters = 0;
    uint32_t clean = copyCleanUtf8(data, bytes, byteCount, &characters);
    if (clean == byteCount) {
        byteLength = byteCount;
        data[byteCount] = 0;
        charCount = static_cast<int32_t>(characters);
        return true;
    }
    LocalDecoderC local(encoding);
    TextDecoderI* decoder = local.get();
    uint32_t restSize = decoder->decodedSize(bytes + clean, byteCount - clean);
    uint32_t size = clean + restSize;
    if (grownCapacity(0, size + 1) != capacity) {
        // What was copied is in the buffer up to `clean`; a secure string
        // wipes it there.
        byteLength = clean;
        data[clean] = 0;
        reset();
        return false;
    }
    uint32_t restCharacters = 0;
    uint32_t written = decoder->decode(bytes + clean, byteCount - clean, data + clean, restSize, &restCharacters);
    if (written < restSize) memset(data + clean + written, 0, restSize - written);
    byteLength = size;
    data[size] = 0;
    charCount = static_cast<int32_t>(characters + restCharacters);
    return true;
}

StringImplC::~StringImplC() { freeBuffer(); }

void StringImplC::freeBuffer() {
    delete[] data;
    data = nullptr;
}

// --- Counting ----------------------------------------------------------------

int32_t StringImplC::addRef() { return RefCountC::addRef(); }

int32_t StringImplC::release() { return RefCountC::release(); }

bool StringImplC::isShared() { return refCount() > 1; }

StringImplFactoryI* StringImplC::getFactory() { return getStringFactory(); }

// --- Storage -----------------------------------------------------------------

void StringImplC::reset() {
    freeBuffer();
    charCount = -1;
    byteLength = 0;
    capacity = 0;
    clearCursor();
}

// The first allocation is exact to 8 bytes; later growth is by half and
// lands on a multiple of 32.
uint32_t StringImplC::grownCapacity(uint32_t capacity, uint32_t wanted) {
    uint32_t rounded = ((wanted - 1) | 7) + 1;
    if (capacity != 0) capacity = (((capacity * 3) >> 1) | 31) + 1;
    return rounded > capacity ? rounded : capacity;
}

void StringImplC::reserve(uint32_t wanted) {
    if (capacity >= wanted) return;
    capacity = grownCapacity(capacity, wanted);
    uint8_t* grown = new uint8_t[capacity];
    if (data) {
        memcpy(grown, data, byteLength + 1);
        delete[] data;
    } else {
        // A first buffer reads as the empty text until the caller fills it.
        grown[0] = 0;
    }
    data = grown;
}

const uint8_t* StringImplC::textBytes() const { return data ? data : emptyText; }

// --- The position cursor -----------------------------------------------------

namespace {

inline uint64_t packCursor(int32_t index, int32_t offset) {
    return static_cast<uint64_t>(static_cast<uint32_t>(index)) |
           (static_cast<uint64_t>(static_cast<uint32_t>(offset)) << 32);
}

}  // namespace

StringImplC::CursorT StringImplC::loadCursor() const {
    uint64_t both = cursor.load();
    CursorT pair = {static_cast<int32_t>(static_cast<uint32_t>(both)),
                    static_cast<int32_t>(static_cast<uint32_t>(both >> 32))};
    return pair;
}

void StringImplC::clearCursor() { cursor = packCursor(-1, 0); }

// Index and offset go into the one cell together: a reader on another
// thread sees the whole of one cursor or the whole of another, never one's
// index with the other's offset.
//
// The walk to an index past the end of a counted text answers the end. Kept
// as it is asked, that index would stand at the end's offset, and every
// later backward walk from this cursor would land as many characters early
// as the index lay past the end (after charAt(length + 2), charAt(length - 1)
// would answer the character two places in front). The end's own index, the
// count, is stored instead; the place is the same.
void StringImplC::setCursor(int32_t index, const uint8_t* place) {
    if (index < 1) return;
    int32_t known = charCount.load();
    if (known >= 0 && index > known) {
        index = known;
        if (index < 1) return;
    }
    cursor = packCursor(index, static_cast<int32_t>(place - data));
}

uint8_t* StringImplC::seek(int32_t index) {
    int32_t reached = 0;
    return seek(index, &reached);
}

// Finds the character at `index`, starting from whichever known place is
// nearest: the start, the cursor, or the end when the count is known. The
// place found becomes the new cursor, so that walks through a string by
// index stay linear.
uint8_t* StringImplC::seek(int32_t index, int32_t* reached) {
    // An index below 0 answers the start.
    *reached = index < 0 ? 0 : index;
    // A representation without a buffer reads as the empty text.
    if (!data) return nullptr;
    int32_t known = charCount.load();
    if (known >= 0 && static_cast<uint32_t>(known) == byteLength) {
        // All characters are one byte long. A negative index answers the
        // start, as the walk below does, instead of a place in front of the
        // buffer.
        if (index <= 0) return data;
        if (index > known) {
            *reached = known;
            return data + known;
        }
        return data + index;
    }

    // One load: the index and the offset belong to the same cursor.
    CursorT pair = loadCursor();
    int32_t cursorIndex = pair.index;
    int32_t cursorAt = pair.offset;
    // A cursor left by a text that has since become shorter is not used.
    if (cursorAt < 0 || static_cast<uint32_t>(cursorAt) > byteLength) cursorIndex = 0;
    bool haveCursor = cursorIndex >= 1;

    int32_t forwardIndex = 0;
    uint8_t* forwardPlace = data;
    if (haveCursor && index >= cursorIndex) {
        forwardIndex = cursorIndex;
        forwardPlace = data + cursorAt;
    }
    bool haveBackward = false;
    int32_t backwardIndex = 0;
    uint8_t* backwardPlace = nullptr;
    if (haveCursor && index < cursorIndex) {
        haveBackward = true;
        backwardIndex = cursorIndex;
        backwardPlace = data + cursorAt;
    } else if (known >= 0) {
        haveBackward = true;
        backwardIndex = known;
        backwardPlace = data + byteLength;
    }

    uint8_t* place;
    bool walkBackward = false;
    int64_t back = 0;
    int64_t forward = static_cast<int64_t>(index) - forwardIndex;
    if (haveBackward) {
        back = static_cast<int64_t>(backwardIndex) - index;
        walkBackward = 2 * back <= forward;
    }
    if (walkBackward) {
        if (back <= 0) {
            // Past the end of a counted text: the end, whose index is the count.
            place = data + byteLength;
            if (back < 0) *reached = backwardIndex;
        } else {
            place = backwardPlace;
            for (int64_t steps = back; steps > 0; --steps) {
                do {
                    if (place <= data) return nullptr;  // ran in front of the text
                    --place;
                } while ((*place & 0xC0) == 0x80);
            }
        }
    } else {
        place = forwardPlace;
        int64_t steps = forward;
        while (steps > 0 && *place != 0) {
            place = stepForward(place, data + byteLength);
            --steps;
        }
        if (steps > 0) {
            // The end, reached early: the cursor is left as it is.
            *reached = static_cast<int32_t>(index - steps);
            return place;
        }
    }
    setCursor(index, place);
    return place;
}

// --- Reading -----------------------------------------------------------------

int32_t StringImplC::length() {
    int32_t known = charCount.load();
    if (known >= 0) return known;
    if (!data) return 0;  // no buffer: the empty text, and nothing is stored
    int32_t counted = 0;
    const uint8_t* p = data;
    // One load, so that the count starts from an index and the offset of
    // that same index; a torn pair would store a wrong count for good.
    CursorT pair = loadCursor();
    if (pair.index >= 1 && pair.offset >= 0 && static_cast<uint32_t>(pair.offset) <= byteLength) {
        counted = pair.index;
        p = data + pair.offset;
    }
    const uint8_t* end = data + byteLength;
    while (p < end && *p != 0) {
        p = stepForward(p, end);
        ++counted;
    }
    charCount = counted;
    return counted;
}

bool StringImplC::isEmpty() { return byteLength == 0; }

uint32_t StringImplC::charAt(int32_t index) {
    const uint8_t* p = seek(index);
    if (!p || *p == 0) return 0;
    return utf8Next(p);
}

uint32_t StringImplC::textLength(const char* encoding) {
    if (isUtf8(encoding)) return byteLength;
    OutputC output(encoding);
    if (!output.known()) return 0;
    return output.encodedSize(textBytes(), byteLength);
}

bool StringImplC::text(void** out, const char* encoding) {
    if (isUtf8(encoding)) {
        *out = data;
        return true;
    }
    OutputC output(encoding);
    if (!output.known()) {
        *out = nullptr;
        return false;
    }
    // byteLength + 1 bytes: the terminator goes out as one unit of the
    // encoding.
    uint32_t needed = output.encodedSize(textBytes(), byteLength + 1);
    uint8_t* buffer = new uint8_t[needed ? needed : 1];
    bool lost = false;
    output.encode(textBytes(), byteLength + 1, buffer, needed, &lost);
    *out = buffer;
    return !lost;
}

void StringImplC::releaseText(void* text, const char* encoding) {
    if (!text || isUtf8(encoding)) return;
    delete[] static_cast<uint8_t*>(text);
}

// The caller learns the full length (without terminator) even when the
// buffer was too small, and gets as many bytes as fit, cut anywhere.
bool StringImplC::copyText(void* buffer, uint32_t* size, const char* encoding) {
    OutputC output(encoding);
    if (!output.known()) {
        *size = 0;
        return false;
    }
    uint32_t needed = output.encodedSize(textBytes(), byteLength + 1);
    bool lost = false;
    if (*size >= needed) {
        output.encode(textBytes(), byteLength + 1, buffer, needed, &lost);
    } else {
        uint8_t* temporary = new uint8_t[needed];
        output.encode(textBytes(), byteLength + 1, temporary, needed, &lost);
        // A caller that only asks for the size may pass no buffer at all.
        if (*size != 0) memcpy(buffer, temporary, *size);
        delete[] temporary;
    }
    *size = needed - output.unitWidth();
    return !lost;
}

StringImplI* StringImplC::substring(int32_t start, int32_t count) {
    if (start == 0 && count < 0) return this;
    const uint8_t* p = seek(start);
    if (!p) return nullptr;
    const uint8_t* end;
    if (count == -1) {
        end = data + byteLength;
    } else {
        end = p;
        for (int32_t steps = count; steps > 0 && *end != 0; --steps) end = stepForward(end, data + byteLength);
    }
    return new StringImplC(p, static_cast<uint32_t>(end - p), "vutf8");
}

// --- Changing ----------------------------------------------------------------

// The stored count goes down by the count asked for, not by the characters
// removed: a count that runs past the end leaves a wrong (or negative, so
// unknown) count until the next change rewrites it. Callers rely on the
// cheap arithmetic.
void StringImplC::erase(int32_t start, int32_t count) {
    // The end of the range is start + count, summed in 64 bits: in 32 bits
    // erase(1, INT32_MAX) would overflow (undefined; in practice it wraps to
    // a negative index, and nothing is erased). A range running past the end
    // of the text ends at the end, as any count past the end does.
    int64_t endIndex = static_cast<int64_t>(start) + count;
    if (endIndex > INT32_MAX) endIndex = INT32_MAX;
    if (endIndex < INT32_MIN) endIndex = INT32_MIN;
    int32_t startReached = 0;
    uint8_t* p = seek(start, &startReached);
    uint8_t* q = count == -1 ? (data ? data + byteLength : nullptr) : seek(static_cast<int32_t>(endIndex));
    if (!p || !q) return;  // no buffer, or no such place: nothing to move
    // The cursor goes to the start of the erased range, which keeps its
    // index. A start that lies past the end of a text of unknown count
    // names no character: the place is the end, and storing the index asked
    // for there would send every later walk from the cursor astray. The
    // index that the walk reached at the end is stored instead.
    // A start at or in front of 0 leaves no cursor: the walk to the end of
    // the range may have put one behind the text that is about to move.
    if (startReached < 1) {
        clearCursor();
    } else {
        setCursor(startReached, p);
    }
    // A negative count other than -1 names an end in front of the start;
    // nothing is moved then, rather than the text being pushed past its
    // buffer.
    if (q > p) {
        uint32_t tail = static_cast<uint32_t>(data + byteLength - q) + 1;
        memmove(p, q, tail);
        byteLength -= static_cast<uint32_t>(q - p);
    }
    int32_t known = charCount.load();
    if (known >= 0 && count != -1) {
        charCount = static_cast<int32_t>(static_cast<uint32_t>(known) - static_cast<uint32_t>(count));
    } else {
        charCount = -1;
    }
}

// The cursor stays valid: the text in front of it does not change.
void StringImplC::append(StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    void* otherText = nullptr;
    other->text(&otherText, "utf8");
    reserve(byteLength + length + 1);
    if (length) memcpy(data + byteLength, otherText, length);
    byteLength += length;
    data[byteLength] = 0;
    charCount = -1;
    other->releaseText(otherText, "utf8");
}

void StringImplC::appendChar(uint32_t character) {
    reserve(byteLength + utf8EncodedLength(character) + 1);
    uint8_t* end = data + byteLength;
    utf8Put(end, character);
    byteLength = static_cast<uint32_t>(end - data);
    *end = 0;
    // A value of 0x80000000 or more has no encoded form and adds nothing.
    // Counting it anyway would leave a known count one above the text, and
    // length, the end of backward walks and the one-byte test of seek would
    // answer from that wrong count; the count goes up only for what was
    // written.
    int32_t known = charCount.load();
    if (known >= 0 && utf8EncodedLength(character) != 0) charCount = known + 1;
}

void StringImplC::insert(int32_t index, StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    if (length == 0) return;
    void* otherText = nullptr;
    other->text(&otherText, "utf8");
    reserve(byteLength + length + 1);
    // After the reserve, which may have moved the buffer.
    uint8_t* p = seek(index);
    if (p) {
        // seek leaves the cursor where it was for index 0, for a one-byte
        // text with its count known, and past the end. A cursor behind the
        // insertion point would then keep its old index at an offset that
        // now holds other text, and later indexed reads and length() would
        // answer wrong; it is dropped. One at or in front of the point
        // stays right, since the text in front of it does not change.
        if (loadCursor().offset > static_cast<int32_t>(p - data)) clearCursor();
        uint32_t tail = static_cast<uint32_t>(data + byteLength - p) + 1;
        memmove(p + length, p, tail);
        memcpy(p, otherText, length);
        byteLength += length;
        charCount = -1;
    }
    other->releaseText(otherText, "utf8");
}

void StringImplC::mapCharacters(CharMapFn map) {
    // No buffer reads as the empty text, which maps to itself.
    if (!data) return;
    uint8_t* old = data;
    uint32_t oldLength = byteLength;
    data = nullptr;
    reset();
    // 7 is the longest sequence plus the NUL.
    reserve(oldLength + 7);
    uint32_t offset = 0;
    int32_t characters = 0;
    const uint8_t* p = old;
    const uint8_t* end = old + oldLength;
    while (p < end) {
        uint32_t mapped = map(utf8Next(p));
        if (offset + 7 >= capacity) {
            byteLength = offset;
            data[offset] = 0;
            reserve(offset + 7);
        }
        uint8_t* at = data + offset;
        utf8Put(at, mapped);
        offset = static_cast<uint32_t>(at - data);
        ++characters;
    }
    byteLength = offset;
    charCount = characters;
    data[offset] = 0;
    delete[] old;
}

void StringImplC::toLower() { mapCharacters(toLowerChar); }

void StringImplC::toUpper() { mapCharacters(toUpperChar); }

// --- StaticStringImplC -------------------------------------------------------

int32_t StaticStringImplC::addRef() { return 1; }

int32_t StaticStringImplC::release() { return 1; }

bool StaticStringImplC::isShared() { return true; }

// --- EmptyStringImplC --------------------------------------------------------

EmptyStringImplC::EmptyStringImplC() { store(nullptr, 0, "utf8"); }

int32_t EmptyStringImplC::length() { return 0; }

bool EmptyStringImplC::isEmpty() { return true; }

int EmptyStringImplC::compare(StringImplI* other) { return other->isEmpty() ? 0 : -1; }

int EmptyStringImplC::compareNatural(StringImplI* other, bool) { return other->isEmpty() ? 0 : -1; }

int EmptyStringImplC::compareNoCase(StringImplI* other) { return other->isEmpty() ? 0 : -1; }

int32_t EmptyStringImplC::findChar(uint32_t, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastChar(uint32_t, int32_t) { return -1; }

int32_t EmptyStringImplC::findString(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastString(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findFirstOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findFirstNotOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastNotOf(StringImplI*, int32_t) { return -1; }

uint32_t EmptyStringImplC::charAt(int32_t) { return 0; }

uint32_t EmptyStringImplC::textLength(const char*) { return 0; }

StringImplI* EmptyStringImplC::substring(int32_t, int32_t) { return this; }

// --- SecureStringImplC -------------------------------------------------------

namespace {
SecureStringImplC::WipeHookFn wipeHook = nullptr;
}

void SecureStringImplC::setWipeHook(WipeHookFn hook) { __atomic_store_n(&wipeHook, hook, __ATOMIC_RELEASE); }

// A volatile store per byte, so that the compiler cannot drop the writes to
// memory that is about to be freed.
void SecureStringImplC::wipe(void* buffer, uint32_t bytes) {
    if (!buffer) return;
    volatile uint8_t* p = static_cast<volatile uint8_t*>(buffer);
    for (uint32_t i = 0; i < bytes; ++i) p[i] = 0;
    WipeHookFn hook = __atomic_load_n(&wipeHook, __ATOMIC_ACQUIRE);
    if (hook) hook(buffer, bytes);
}

SecureStringImplC::SecureStringImplC(const void* bytes, uint32_t byteCount, const char* encoding) {
    store(bytes, byteCount, encoding);
}

SecureStringImplC::SecureStringImplC(StringImplI* first, StringImplI* second) { storeJoined(first, second); }

SecureStringImplC::SecureStringImplC(StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    void* otherText = nullptr;
    other->text(&otherText, "utf8");
    reserve(length + 1);
    if (length) memcpy(data, otherText, length);
    data[length] = 0;
    byteLength = length;
    charCount = other->length();
    other->releaseText(otherText, "utf8");
}

SecureStringImplC::~SecureStringImplC() {
    wipe(data, byteLength);
    // ~StringImplC frees the wiped buffer.
}

void SecureStringImplC::reset() {
    wipe(data, byteLength);
    StringImplC::reset();
}

void SecureStringImplC::reserve(uint32_t wanted) {
    if (capacity >= wanted) return;
    capacity = grownCapacity(capacity, wanted);
    uint8_t* grown = new uint8_t[capacity];
    if (data) {
        memcpy(grown, data, byteLength + 1);
        wipe(data, byteLength);
        delete[] data;
    } else {
        grown[0] = 0;
    }
    data = grown;
}

void SecureStringImplC::releaseText(void* text, const char* encoding) {
    if (!text || isUtf8(encoding)) return;
    // The encoded terminator is not wiped: it is no secret.
    wipe(text, textLength(encoding));
    delete[] static_cast<uint8_t*>(text);
}

// Comparing and searching
//
// The searches read a character the way charAt does: characters start where
// the cursor's stepping puts them (by the length the first byte tells) and
// their value is what utf8Next decodes there. So an index a search answers is
// the index that charAt, substring and erase mean, even on broken text. The
// comparisons only walk, and decode with utf8Next throughout.

namespace {

// The next character's place, stepped as seek steps: by the length the
// first byte tells, but a sequence cut off by the end of the text ends there.
inline const uint8_t* nextPlace(const uint8_t* p, const uint8_t* end) {
    const uint8_t* next = p + utf8SequenceLength(p);
    return next > end ? end : next;
}

// The previous character's place: one byte back, then over continuation
// bytes. `p` must be behind `start`. A run of continuation bytes at the very
// start of the text stops at the start instead of in front of it.
inline const uint8_t* previousPlace(const uint8_t* p, const uint8_t* start) {
    do {
        --p;
    } while (p > start && (*p & 0xC0) == 0x80);
    return p;
}

inline uint32_t charValue(const uint8_t* p) {
    if (*p < 0x80) return *p;
    return utf8Next(p);
}

// A one-byte character's value, for texts known to have only those.
inline uint32_t byteValue(uint8_t b) {
    return b < 0x80 ? b : 0xFFFD;
}

inline uint32_t foldAscii(uint32_t c) {
    return c - 'A' < 26u ? c + 32 : c;
}

// The other string's "utf8" text, taken once and released at the end.
class OtherTextC {
public:
    explicit OtherTextC(StringImplI* other) : other_(other), text_(nullptr) {
        other_->text(&text_, "utf8");
        size_ = text_ ? other_->textLength("utf8") : 0;
    }
    ~OtherTextC() { other_->releaseText(text_, "utf8"); }
    OtherTextC(const OtherTextC&) = delete;
    OtherTextC& operator=(const OtherTextC&) = delete;

    const uint8_t* bytes() const { return text_ ? static_cast<const uint8_t*>(text_) : emptyText; }
    uint32_t size() const { return size_; }

private:
    StringImplI* other_;
    void* text_;
    uint32_t size_;
};

// A growable list of characters that lives on the stack while it is short.
class CharBufferC {
public:
    CharBufferC() : items_(inline_), count_(0), capacity_(kInline) {}
    ~CharBufferC() {
        if (items_ != inline_) delete[] items_;
    }
    CharBufferC(const CharBufferC&) = delete;
    CharBufferC& operator=(const CharBufferC&) = delete;

    uint32_t count() const { return count_; }
    uint32_t operator[](uint32_t i) const { return items_[i]; }
    void push(uint32_t c) { insertAt(count_, c); }
    void insertAt(uint32_t at, uint32_t c) {
        if (count_ == capacity_) {
            uint32_t* grown = new uint32_t[capacity_ * 2];
            memcpy(grown, items_, count_ * sizeof(uint32_t));
            if (items_ != inline_) delete[] items_;
            items_ = grown;
            capacity_ *= 2;
        }
        memmove(items_ + at + 1, items_ + at, (count_ - at) * sizeof(uint32_t));
        items_[at] = c;
        ++count_;
    }
    // The place of the first item not below `c`, in a sorted buffer.
    uint32_t lowerBound(uint32_t c) const {
        return static_cast<uint32_t>(std::lower_bound(items_, items_ + count_, c) - items_);
    }

private:
    static const uint32_t kInline = 32;
    uint32_t* items_;
    uint32_t count_;
    uint32_t capacity_;
    uint32_t inline_[kInline];
};

// The characters of another string, decoded once up to its first NUL. The
// text stays taken while the list lives.
class CharListC {
public:
    explicit CharListC(StringImplI* other) : text_(other), ascii_(true) {
        const uint8_t* p = text_.bytes();
        const uint8_t* end = p + text_.size();
        while (p < end && *p != 0) {
            if (*p >= 0x80) ascii_ = false;
            chars_.push(charValue(p));
            p = nextPlace(p, end);
        }
    }
    uint32_t count() const { return chars_.count(); }
    uint32_t operator[](uint32_t i) const { return chars_[i]; }
    // True when every character is a one-byte ASCII character; then
    // needle() is the same characters as a C text.
    bool ascii() const { return ascii_; }
    const char* needle() const { return reinterpret_cast<const char*>(text_.bytes()); }

private:
    OtherTextC text_;
    bool ascii_;
    CharBufferC chars_;
};

// A set of characters: a bitmap for ASCII, a sorted list for the rest.
class CharSetC {
public:
    explicit CharSetC(const CharListC& list) {
        memset(ascii_, 0, sizeof(ascii_));
        for (uint32_t i = 0; i < list.count(); ++i) {
            uint32_t c = list[i];
            if (c < 0x80) {
                ascii_[c >> 5] |= 1u << (c & 31);
            } else {
                uint32_t at = others_.lowerBound(c);
                if (at == others_.count() || others_[at] != c) others_.insertAt(at, c);
            }
        }
    }
    bool contains(uint32_t c) const {
        if (c < 0x80) return (ascii_[c >> 5] >> (c & 31)) & 1u;
        uint32_t at = others_.lowerBound(c);
        return at < others_.count() && others_[at] == c;
    }

private:
    uint32_t ascii_[4];
    CharBufferC others_;
};

// The sign of a byte-length difference, kept whatever the lengths.
inline int lengthDifference(uint32_t mine, uint32_t theirs) {
    int64_t difference = static_cast<int64_t>(mine) - static_cast<int64_t>(theirs);
    if (difference > INT32_MAX) return INT32_MAX;
    if (difference < INT32_MIN) return INT32_MIN;
    return static_cast<int>(difference);
}

// A decimal number read from `p` while the characters are digits, in 32
// bits; the position stops in front of the first other character.
inline int32_t readNumber(const uint8_t*& p, const uint8_t* end) {
    uint32_t number = 0;
    while (p < end) {
        const uint8_t* q = p;
        int32_t digit = digitValue(utf8Next(q));
        if (digit == -1) break;
        // Unsigned arithmetic: a long run wraps as 32-bit arithmetic does,
        // without the undefined behaviour of a signed overflow.
        number = number * 10 + static_cast<uint32_t>(digit);
        p = q;
    }
    return static_cast<int32_t>(number);
}

// The first index of a forward search behind `after`, or -1 when it lies
// beyond any text. Anything below -1 is taken as -1, the start.
inline int32_t forwardStart(int32_t after) {
    if (after < -1) return 0;
    if (after == INT32_MAX) return -1;
    return after + 1;
}

// True when every character of the text is one byte long, as the count
// tells; then an index is a byte offset, as seek takes it.
inline bool oneBytePerChar(StringImplC& s) {
    int32_t known = s.storedCharCount();
    return known >= 0 && static_cast<uint32_t>(known) == s.byteCount();
}

// The first place of a forward search: the character at `index`, or null
// when the search starts at or past the end of the text (or there is no
// buffer). A count already known answers for an index past the end without
// a walk, and the cursor is not moved out there.
inline const uint8_t* forwardPlace(StringImplC& s, int32_t index) {
    if (index < 0) return nullptr;
    int32_t known = s.storedCharCount();
    if (known >= 0 && index >= known) return nullptr;
    const uint8_t* p = s.seek(index);
    if (!p || *p == 0) return nullptr;
    return p;
}

// Where a backward search starts: in front of index `before`, or of the end
// for -1, in which case the count is taken first. An index past the end is
// taken as the end, so that the indexes counted back from it are those of
// the characters. Null for an index below -1 or a text without a buffer.
inline const uint8_t* backwardPlace(StringImplC& s, int32_t before, int32_t& index) {
    if (before < -1) return nullptr;
    int32_t known = s.storedCharCount();
    if (before == -1 || (known >= 0 && before > known)) {
        before = s.length();
    }
    const uint8_t* p = s.seek(before);
    if (p && *p == 0 && before > 0) {
        // The walk reached the end early: the count says where that is.
        int32_t count = s.length();
        if (before > count) {
            before = count;
            p = s.seek(before);
        }
    }
    index = before;
    return p;
}

// What a search found: the index to answer, and where the cursor goes.
struct HitT {
    int32_t index;
    int32_t cursorIndex;
    const uint8_t* cursorPlace;
};

inline HitT noHit() {
    HitT hit = {-1, 0, nullptr};
    return hit;
}

inline HitT makeHit(int32_t index, int32_t cursorIndex, const uint8_t* cursorPlace) {
    HitT hit = {index, cursorIndex, cursorPlace};
    return hit;
}

// The forward set searches: the first character from `index` on that is in
// the set (`wanted` true) or not in it (`wanted` false). The cursor goes
// behind it.
HitT findForwardInSet(StringImplC& s, StringImplI* set, int32_t index, bool wanted) {
    CharListC members(set);
    if (wanted && members.count() == 0) return noHit();
    const uint8_t* p = forwardPlace(s, index);
    if (!p) return noHit();
    const uint8_t* data = s.bytes();
    const uint8_t* end = data + s.byteCount();
    if (oneBytePerChar(s) && members.ascii()) {
        // Bytes at or above 0x80 read as U+FFFD, which an ASCII set lacks,
        // so the byte spans of the C library give the same answer.
        const char* text = reinterpret_cast<const char*>(p);
        const uint8_t* at = p + (wanted ? strcspn(text, members.needle()) : strspn(text, members.needle()));
        if (*at == 0) return noHit();
        int32_t found = static_cast<int32_t>(at - data);
        return makeHit(found, found + 1, at + 1);
    }
    CharSetC lookup(members);
    while (*p != 0) {
        const uint8_t* next = nextPlace(p, end);
        if (lookup.contains(charValue(p)) == wanted) return makeHit(index, index + 1, next);
        p = next;
        ++index;
    }
    return noHit();
}

// The backward set searches; the cursor stays at the character found.
HitT findBackwardInSet(StringImplC& s, StringImplI* set, int32_t before, bool wanted) {
    CharListC members(set);
    if (wanted && members.count() == 0) return noHit();
    int32_t index = 0;
    const uint8_t* p = backwardPlace(s, before, index);
    if (!p) return noHit();
    const uint8_t* data = s.bytes();
    CharSetC lookup(members);
    if (oneBytePerChar(s)) {
        while (p > data) {
            --p;
            --index;
            if (lookup.contains(byteValue(*p)) == wanted) return makeHit(index, index, p);
        }
        return noHit();
    }
    while (p > data) {
        p = previousPlace(p, data);
        --index;
        if (lookup.contains(charValue(p)) == wanted) return makeHit(index, index, p);
    }
    return noHit();
}

}  // namespace

// Both texts are compared as bytes, which on valid text is code-point order;
// NULs inside either text count like any other byte.
int StringImplC::compare(StringImplI* other) {
    if (other == this) return 0;
    OtherTextC theirs(other);
    const uint8_t* a = textBytes();
    const uint8_t* b = theirs.bytes();
    uint32_t common = byteLength < theirs.size() ? byteLength : theirs.size();
    if (memcmp(a, b, common) != 0) {
        uint32_t i = 0;
        while (a[i] == b[i]) ++i;
        return static_cast<int>(a[i]) - static_cast<int>(b[i]);
    }
    return lengthDifference(byteLength, theirs.size());
}

// The walk is bounded by this string's bytes alone: where two characters
// that fold alike have encodings of different lengths, the positions drift
// apart and the byte lengths decide the tail.
int StringImplC::compareNoCase(StringImplI* other) {
    if (other == this) return 0;
    OtherTextC theirs(other);
    const uint8_t* p1 = textBytes();
    const uint8_t* p2 = theirs.bytes();
    const uint8_t* end2 = p2 + theirs.size();
    const uint8_t* bound = p1 + (byteLength < theirs.size() ? byteLength : theirs.size());
    while (p1 < bound) {
        uint32_t c1 = utf8Next(p1);
        uint32_t c2;
        if (p2 < end2) {
            c2 = utf8Next(p2);
        } else {
            // The other position has drifted onto its terminator. It stays
            // there and reads 0 again, instead of walking past the buffer.
            c2 = 0;
        }
        if ((c1 | c2) < 0x80) {
            c1 = foldAscii(c1);
            c2 = foldAscii(c2);
        } else {
            c1 = toLowerChar(c1);
            c2 = toLowerChar(c2);
        }
        if (c1 != c2) return static_cast<int>(c1 - c2);
    }
    return lengthDifference(byteLength, theirs.size());
}

// Digit runs compare by their value. A digit's value serves as a truth
// value: a digit zero counts as no digit, so a run that starts with one is
// compared character by character. Two non-digits are compared as two
// characters (folded when asked); read as numbers they would both give 0
// without moving, and the walk would never end.
int StringImplC::compareNatural(StringImplI* other, bool foldCase) {
    if (other == this) return 0;
    OtherTextC theirs(other);
    const uint8_t* p1 = textBytes();
    const uint8_t* end1 = p1 + byteLength;
    const uint8_t* p2 = theirs.bytes();
    const uint8_t* end2 = p2 + theirs.size();
    for (;;) {
        if (p1 >= end1 || p2 >= end2) {
            if (p2 < end2) return -1;
            if (p1 < end1) return 1;
            return 0;
        }
        const uint8_t* before1 = p1;
        const uint8_t* before2 = p2;
        uint32_t c1 = utf8Next(p1);
        uint32_t c2 = utf8Next(p2);
        uint32_t d1 = static_cast<uint32_t>(digitValue(c1)) & 0xFF;
        uint32_t d2 = static_cast<uint32_t>(digitValue(c2)) & 0xFF;
        if (d1 == 0xFF && d2 == 0xFF) {
            if (foldCase) {
                c1 = toLowerChar(c1);
                c2 = toLowerChar(c2);
            }
            if (c1 != c2) return c1 < c2 ? -1 : 1;
            continue;
        }
        if (d1 != 0 && d2 != 0) {
            p1 = before1;
            p2 = before2;
            int32_t n1 = readNumber(p1, end1);
            int32_t n2 = readNumber(p2, end2);
            if (n1 != n2) return n1 < n2 ? -1 : 1;
            continue;
        }
        if (d1 != d2) return d1 != 0 ? -1 : 1;
        if (foldCase) {
            c1 = toLowerChar(c1);
            c2 = toLowerChar(c2);
        }
        if (c1 != c2) return c1 < c2 ? -1 : 1;
    }
}

int32_t StringImplC::findChar(uint32_t character, int32_t after) {
    int32_t index = forwardStart(after);
    const uint8_t* p = forwardPlace(*this, index);
    if (!p) return -1;
    const uint8_t* end = data + byteLength;
    if (oneBytePerChar(*this)) {
        // Every character is one byte here, and the index is the offset.
        const uint8_t* hit = nullptr;
        if (character != 0 && character < 0x80) {
            hit = reinterpret_cast<const uint8_t*>(
                strchr(reinterpret_cast<const char*>(p), static_cast<int>(character)));
        } else if (character == 0xFFFD) {
            for (const uint8_t* q = p; *q != 0; ++q) {
                if (*q >= 0x80) {
                    hit = q;
                    break;
                }
            }
        }
        if (!hit) return -1;
        index = static_cast<int32_t>(hit - data);
        setCursor(index + 1, hit + 1);
        return index;
    }
#if KEEL_CLEAN_AVX2
    // Separators and the like in non-ASCII text: a block step over valid
    // text, the careful walk below for the rest.
    if (character - 1 < 0x7F && end - p >= 64 && haveAvx2()) {
        int found = avx2::findAscii(p, end, static_cast<uint8_t>(character), index);
        if (found < 0) return -1;
        if (found > 0) {
            setCursor(index + 1, p + 1);
            return index;
        }
    }
#endif
    while (*p != 0) {
        const uint8_t* next = nextPlace(p, end);
        if (charValue(p) == character) {
            setCursor(index + 1, next);
            return index;
        }
        p = next;
        ++index;
    }
    return -1;
}

int32_t StringImplC::findLastChar(uint32_t character, int32_t before) {
    int32_t index = 0;
    const uint8_t* p = backwardPlace(*this, before, index);
    if (!p) return -1;
    if (oneBytePerChar(*this)) {
        const uint8_t* hit = nullptr;
        if (character < 0x80) {
            hit = static_cast<const uint8_t*>(memrchr(data, static_cast<int>(character), p - data));
        } else if (character == 0xFFFD) {
            for (const uint8_t* q = p; q > data;) {
                if (*--q >= 0x80) {
                    hit = q;
                    break;
                }
            }
        }
        if (!hit) return -1;
        index = static_cast<int32_t>(hit - data);
        setCursor(index, hit);
        return index;
    }
    while (p > data) {
        p = previousPlace(p, data);
        --index;
        if (charValue(p) == character) {
            setCursor(index, p);
            return index;
        }
    }
    return -1;
}

// A plain search with restart: after a partial match that fails, the next
// candidate is the character behind the last candidate.
int32_t StringImplC::findString(StringImplI* other, int32_t after) {
    CharListC pattern(other);
    uint32_t m = pattern.count();
    if (m == 0) return -1;
    int32_t index = forwardStart(after);
    const uint8_t* p = forwardPlace(*this, index);
    if (!p) return -1;
    const uint8_t* end = data + byteLength;
    int32_t length = static_cast<int32_t>(m);
    if (oneBytePerChar(*this) && pattern.ascii()) {
        // Bytes at or above 0x80 read as U+FFFD here and match no ASCII
        // character, so a byte search finds the same place.
        const char* hit = strstr(reinterpret_cast<const char*>(p), pattern.needle());
        if (!hit) return -1;
        const uint8_t* at = reinterpret_cast<const uint8_t*>(hit);
        index = static_cast<int32_t>(at - data);
        setCursor(index + length, at + m);
        return index;
    }
    uint32_t first = pattern[0];
    while (*p != 0) {
        if (charValue(p) == first) {
            const uint8_t* q = nextPlace(p, end);
            uint32_t k = 1;
            while (k < m && *q != 0 && charValue(q) == pattern[k]) {
                q = nextPlace(q, end);
                ++k;
            }
            if (k == m) {
                setCursor(index + length, q);
                return index;
            }
            // The text ended inside this candidate: no later one fits.
            if (*q == 0) return -1;
        }
        p = nextPlace(p, end);
        ++index;
    }
    return -1;
}

// The match must end at or in front of `before`: the first candidate lies
// the pattern's length in front of it, and the candidates move back one
// character at a time. The cursor goes behind the match.
int32_t StringImplC::findLastString(StringImplI* other, int32_t before) {
    CharListC pattern(other);
    uint32_t m = pattern.count();
    if (m == 0) return -1;
    int32_t index = 0;
    const uint8_t* p = backwardPlace(*this, before, index);
    if (!p) return -1;
    const uint8_t* end = data + byteLength;
    for (uint32_t k = 0; k < m; ++k) {
        if (p <= data) return -1;
        p = previousPlace(p, data);
        --index;
    }
    for (;;) {
        const uint8_t* q = p;
        uint32_t k = 0;
        while (k < m && *q != 0 && charValue(q) == pattern[k]) {
            q = nextPlace(q, end);
            ++k;
        }
        if (k == m) {
            setCursor(index + static_cast<int32_t>(m), q);
            return index;
        }
        if (p <= data) return -1;
        p = previousPlace(p, data);
        --index;
    }
}

int32_t StringImplC::findFirstOf(StringImplI* set, int32_t after) {
    HitT hit = findForwardInSet(*this, set, forwardStart(after), true);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

int32_t StringImplC::findLastOf(StringImplI* set, int32_t before) {
    HitT hit = findBackwardInSet(*this, set, before, true);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

int32_t StringImplC::findFirstNotOf(StringImplI* set, int32_t after) {
    HitT hit = findForwardInSet(*this, set, forwardStart(after), false);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

int32_t StringImplC::findLastNotOf(StringImplI* set, int32_t before) {
    HitT hit = findBackwardInSet(*this, set, before, false);
    if (hit.index >= 0) setCursor(hit.cursorIndex, hit.cursorPlace);
    return hit.index;
}

}  // namespace keel
