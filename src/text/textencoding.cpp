// The eight encodings, their decoders and encoders, and the walk that carries
// a cut sequence over from one call to the next.
//
// Every loop here runs over input that has no terminator, so each one asks how
// long a sequence is before it reads it and stops in front of one that the
// input does not hold whole; the caller keeps that tail for the next call.
// Each conversion loop is the plain character loop, which is the reference,
// with one call of a block kernel (codecblocks.h) at its head: the kernel
// takes whole blocks of ASCII and of well-formed text and gives exactly what
// the character loop would give. The tests hold them to it, in every split
// of the input and at every offset of a block.
#include "text/textencoding.h"

#include <string.h>

#include "frame/nodestroy.h"
#include "text/codecblocks.h"
#include "text/ucs4.h"
#include "text/utf16.h"
#include "text/utf16scan.h"
#include "text/utf8.h"
#include "text/utf8scan.h"
#include "text/wordbits.h"

namespace keel {

using namespace codecblocks;

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
    if (b >= 0xC0 && b < 0xE0 && have >= 2 && utf8IsContinuation(p[1])) {
        *value = ((b & 0x1Fu) << 6) | (p[1] & 0x3Fu);
        p += 2;
        return true;
    }
    if (b >= 0xE0 && b < 0xF0 && have >= 3 && utf8IsContinuation(p[1]) &&
        utf8IsContinuation(p[2])) {
        *value = ((b & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
        p += 3;
        return true;
    }
    if (utf8SequenceLength(p) > have) return false;
    *value = utf8Next(p);
    return true;
}

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
// destroyed (NoDestroyM): a caller may still convert text while the process exits.
TextEncodingI* asciiEncoding() {
    static NoDestroyM<AsciiEncodingC> object;
    return object.get();
}

TextEncodingI* system8Encoding() {
    static NoDestroyM<System8EncodingC> object;
    return object.get();
}

TextEncodingI* latin1Encoding() {
    static NoDestroyM<Latin1EncodingC> object;
    return object.get();
}

TextEncodingI* utf8Encoding() {
    static NoDestroyM<Utf8EncodingC> object(kUtf8Mark);
    return object.get();
}

TextEncodingI* utf16Encoding() {
    static NoDestroyM<Utf16EncodingC> object(kLittleEndianMark);
    return object.get();
}

TextEncodingI* utf16beEncoding() {
    static NoDestroyM<Utf16EncodingC> object(kBigEndianMark);
    return object.get();
}

TextEncodingI* utf16leEncoding() {
    static NoDestroyM<Utf16EncodingC> object(kLittleEndianMark);
    return object.get();
}

TextEncodingI* wcharEncoding() {
    static NoDestroyM<WCharEncodingC> object;
    return object.get();
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
    // The names that nearly every string is made with, spelled as the
    // library and its callers spell them, are known without the table; any
    // other spelling goes through the table, which gives the same object.
    if (name) {
        if (name[0] == 'u' && name[1] == 't' && name[2] == 'f' && name[3] == '8' && name[4] == 0) {
            return utf8Encoding();
        }
        if (name[0] == 'a' && name[1] == 's' && name[2] == 'c' && name[3] == 'i' &&
            name[4] == 'i' && name[5] == 0) {
            return asciiEncoding();
        }
        if (name[0] == 'u' && name[1] == 't' && name[2] == 'f' && name[3] == '1' &&
            name[4] == '6' && name[5] == 0) {
            return utf16Encoding();
        }
        if (name[0] == 's' && strcmp(name, "system-8") == 0) return system8Encoding();
    }
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
            written +=
                raw(p, total, &consumed, output ? output + written : nullptr, room - written);
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
    uint32_t written = heldWalk(static_cast<const uint8_t*>(bytes), length,
                                static_cast<uint8_t*>(output), room, false, raw);
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
    p = byteDecodeBlocks<High>(p, end, o, oend);
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
        const uint8_t* start = p;
        p = utf8CleanSpan(p, end);
        size += static_cast<uint32_t>(p - start);
        if (p >= end) break;
        uint32_t n = utf8SequenceLength(p);
        if (n > left(p, end)) break;
        size += utf8EncodedLength(utf8Next(p));
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    return size;
}

namespace {

// The loop of rawDecode, counting characters into `chars`. Inlined into a
// caller that drops the count, the counting goes away with it.
__attribute__((always_inline)) inline uint32_t utf8DecodeWhole(const uint8_t* bytes,
                                                               uint32_t length, uint32_t* consumed,
                                                               uint8_t* output, uint32_t room,
                                                               uint32_t& chars) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint8_t* o = output;
    uint8_t* oend = o ? o + room : o;
    while (p < end) {
        // Whole blocks of 64 clean bytes through the run-time chosen kernel
        // where the processor has it, then the baseline blocks.
        uint32_t wide = left(o, oend) < left(p, end) ? left(o, oend) : left(p, end);
        if (wide >= 64 && haveUtf8VectorPaths()) {
            uint32_t counted = 0;
            uint32_t taken = copyCleanUtf8Blocks(o, p, wide, &counted);
            p += taken;
            o += taken;
            chars += counted;
        }
        p = utf8CleanCopy(p, end, o, oend, chars);
        if (p >= end) break;
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
    return static_cast<uint32_t>(o - output);
}

}  // namespace

uint32_t UTF8TextDecoderC::rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed,
                                     uint8_t* output, uint32_t room, uint32_t* characters) {
    uint32_t chars = 0;
    uint32_t written = utf8DecodeWhole(bytes, length, consumed, output, room, chars);
    *characters = chars;
    return written;
}

// Without a count wanted (the text reader's blocks), the same walk as the
// base class's decode with a loop that does not count.
uint32_t UTF8TextDecoderC::decode(const void* bytes, uint32_t length, void* output, uint32_t room,
                                  uint32_t* characters) {
    if (characters) {
        return TextDecoderWithUnusedBytesC::decode(bytes, length, output, room, characters);
    }
    auto raw = [](const uint8_t* p, uint32_t n, uint32_t* consumed, uint8_t* out, uint32_t r) {
        uint32_t uncounted = 0;
        return utf8DecodeWhole(p, n, consumed, out, r, uncounted);
    };
    if (output == nullptr) room = 0;
    return heldWalk(static_cast<const uint8_t*>(bytes), length, static_cast<uint8_t*>(output), room,
                    false, raw);
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
        p = utf16SizeBlocks(p, end, swapped, size);
        if (left(p, end) < 2) break;
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
        // Blocks of sixteen units through the run-time chosen kernel where
        // the processor has it, then the baseline blocks.
        if (left(p, end) >= 32 && left(o, oend) >= 64 && haveUtf16VectorPaths()) {
            uint32_t written = 0;
            uint32_t taken =
                decodeUtf16Blocks(p, left(p, end), swapped, o, left(o, oend), &written);
            p += taken;
            o += written;
            chars += taken / 2;
        }
        p = utf16DecodeBlocks(p, end, swapped, o, oend, chars);
        if (left(p, end) < 2) break;
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

uint32_t WCharTextDecoderC::rawDecodedSize(const uint8_t* bytes, uint32_t length,
                                           uint32_t* consumed) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint32_t size = 0;
    p = wcharSizeBlocks(p, end, size);
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
        p = wcharDecodeBlocks(p, end, o, oend, chars);
        if (left(p, end) < 4) break;
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
        p = cleanCountBlocks(p, end, chars, *quads);
        if (p >= end) break;
        uint32_t value;
        if (!readChar(p, end, &value)) break;
        per(value);
        ++chars;
    }
    *consumed = static_cast<uint32_t>(p - bytes);
    return chars;
}

// The loop of the encoders: clean runs through the block kernel, everything
// else one character at a time through Target::careful (one character with
// every test; false when the loop must stop in front of it).
template <class Target>
uint32_t encodeLoop(Target& target, const uint8_t* bytes, uint32_t length, uint8_t* output,
                    uint32_t room, bool* lost, uint32_t* consumed) {
    const uint8_t* p = bytes;
    const uint8_t* end = p + length;
    uint8_t* o = output;
    uint8_t* oend = o ? o + room : o;
    bool anyLost = false;
    for (;;) {
        p = encodeCleanBlocks(target, p, end, o, oend, anyLost);
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

// The targets: the output side of the block kernel (codecblocks.h) and the
// character step of the plain loop.
struct ByteTargetT : ByteBlocksT {
    bool careful(uint8_t*& o, uint8_t* oend, const uint8_t*& p, const uint8_t* end, bool& lost) {
        return carefulByte(o, oend, p, end, lost, limit);
    }
};

struct Utf16TargetT : Utf16BlocksT {
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

struct WCharTargetT : WCharBlocksT {
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
    ByteTargetT target;
    target.limit = 0x7F;
    return encodeLoop(target, bytes, length, output, room, lost, consumed);
}

uint32_t Latin1TextEncoderC::rawEncodedSize(const uint8_t* bytes, uint32_t length,
                                            uint32_t* consumed) {
    uint32_t quads = 0;
    return countCharacters(bytes, length, consumed, &quads, [](uint32_t) {});
}

uint32_t Latin1TextEncoderC::rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output,
                                       uint32_t room, bool* lost, uint32_t* consumed) {
    ByteTargetT target;
    target.limit = 0xFF;
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
    Utf16TargetT target;
    target.swapped = encoding == utf16BeObject();
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
