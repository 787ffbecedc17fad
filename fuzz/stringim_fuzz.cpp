// The block paths of the string representation against the character paths:
// a string made from UTF-8 bytes (one-pass copy of the clean head) and the
// searches for an ASCII character and for ASCII sets (32-byte steps over
// valid blocks) must give the same bytes, counts, capacity, answers and
// cursor with the block paths on as with them off; a string made from
// "utf8" or "system-8" bytes holds exactly the bytes and count the UTF-8
// decoder alone gives.
//
// Two more pairs of paths must agree on the same text: a representation
// whose first buffer lies in its own block (make) with one whose buffer is
// apart, through growth, case mapping, erase and reset, for text of any of
// the eight encodings; the text in the wide encodings written in one pass
// (short text) with what copyText's two passes write; and a string made
// with an encoding object with the one its name makes.
//
// Input layout: byte 0 picks the encoding name (bits 0-1: "utf8", "system-8",
// "vutf8") and the searched character (bits 2-7, mapped into 0x40-0x7F);
// byte 1 seeds where charAt moves the cursor between searches (bit 0 also
// picks the secure class, bits 1-3 the encoding of the one-block check,
// bits 4-7 that of the encoding object's); the rest is the text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include <keel/keel.h>

#include "text/string.h"
#include "text/stringim.h"
#include "text/textencoding.h"
#include "text/utf8.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "mismatch: %s\n", what);
        abort();
    }
}

std::vector<int64_t> run(const uint8_t* text, size_t size, const char* encoding, uint32_t character,
                         uint32_t seed, bool vector, bool secure) {
    keel::StringImplC::setVectorPaths(vector);
    keel::StringImplC* s =
        secure ? new keel::SecureStringImplC(text, static_cast<uint32_t>(size), encoding)
               : new keel::StringImplC(text, static_cast<uint32_t>(size), encoding);
    s->addRef();
    std::vector<int64_t> trace;
    trace.push_back(s->byteCount());
    trace.push_back(s->byteCapacity());
    trace.push_back(s->storedCharCount());
    for (uint32_t i = 0; i < s->byteCount(); ++i) trace.push_back(s->bytes()[i]);
    auto note = [&](int64_t answer) {
        trace.push_back(answer);
        trace.push_back(s->storedCursorIndex());
        trace.push_back(s->storedCursorOffset());
    };
    int32_t count = s->length();
    int32_t last = count < 400 ? count : 400;
    for (int32_t after = -1; after <= last; ++after) {
        seed = seed * 1103515245u + 12345u;
        if ((seed >> 16) % 4 == 0) note(s->charAt(static_cast<int32_t>((seed >> 8) % (count + 1))));
        note(s->findChar(character, after));
    }
    int32_t steps = 0;
    for (int32_t at = s->findChar(character, -1); at >= 0 && steps < 2000;
         at = s->findChar(character, at), ++steps) {
        note(at);
    }
    // The searches for ASCII sets take the same block steps.
    char setText[] = {static_cast<char>(character), ',', 0};
    keel::StringC set(setText, "ascii"), others("x", "ascii");
    steps = 0;
    for (int32_t at = s->findFirstOf(set.getImpl(), -1); at >= 0 && steps < 2000;
         at = s->findFirstOf(set.getImpl(), at), ++steps) {
        note(at);
    }
    steps = 0;
    for (int32_t at = s->findFirstNotOf(others.getImpl(), -1); at >= 0 && steps < 2000;
         at = s->findFirstNotOf(others.getImpl(), at), ++steps) {
        note(at);
    }
    s->release();
    keel::StringImplC::setVectorPaths(true);
    return trace;
}

// A string made from "utf8" or "system-8" bytes holds what the UTF-8 decoder
// alone gives for the whole input: the same bytes and character count, and
// the capacity that the first reserve picks for them.
void checkAgainstDecoder(const uint8_t* text, size_t size, const char* encoding, bool secure) {
    keel::UTF8TextDecoderC decoder;
    uint32_t n = static_cast<uint32_t>(size);
    uint32_t decodedSize = decoder.decodedSize(text, n);
    std::vector<uint8_t> out(decodedSize + 1, 0);
    uint32_t characters = 0;
    decoder.decode(text, n, out.data(), decodedSize, &characters);
    keel::StringImplC* s = secure ? new keel::SecureStringImplC(text, n, encoding)
                                  : new keel::StringImplC(text, n, encoding);
    s->addRef();
    check(s->byteCount() == decodedSize && memcmp(s->bytes(), out.data(), decodedSize) == 0 &&
              s->bytes()[decodedSize] == 0,
          "the bytes differ from the decoder's");
    check(s->storedCharCount() == static_cast<int32_t>(characters),
          "the count differs from the decoder's");
    check(s->byteCapacity() == (decodedSize | 7) + 1, "the capacity is not the first reserve's");
    s->release();
}

// The text, capacity and count of a one-block and a two-block form after
// each of the same changes.
void checkOneBlockForm(const uint8_t* text, uint32_t size, const char* encoding) {
    keel::StringImplC* one = keel::StringImplC::make(text, size, encoding);
    keel::StringImplC* two = new keel::StringImplC(text, size, encoding);
    keel::StringImplC* tail = new keel::StringImplC("xyz\xC3\xA9", 5, "utf8");
    for (keel::StringImplC* s : {one, two, tail}) s->addRef();
    for (int step = 0; step < 7; ++step) {
        for (keel::StringImplC* s : {one, two}) {
            if (step == 1) s->append(tail);
            if (step == 2) s->toUpper();
            if (step == 3) s->erase(1, 3);
            if (step == 4) s->reserve(s->byteCapacity() + 1);
            if (step == 5) s->appendChar(0x4E2D);
            if (step == 6) s->reset();
        }
        bool sameText = one->bytes() && two->bytes()
                            ? one->byteCount() == two->byteCount() &&
                                  memcmp(one->bytes(), two->bytes(), one->byteCount()) == 0
                            : !one->bytes() && !two->bytes();
        check(sameText, "the one-block form's text differs");
        check(one->byteCapacity() == two->byteCapacity(), "the one-block form's capacity differs");
        check(one->storedCharCount() == two->storedCharCount(),
              "the one-block form's count differs");
    }
    for (keel::StringImplC* s : {one, two, tail}) s->release();
}

// Internal form up to its first NUL, out in each wide encoding by text()
// (one pass below kOnePassText bytes) and by copyText: the same units, the
// same loss flag, the size without the terminator that textLength answers,
// and the terminator in place also when the text ends inside a sequence.
void checkWideText(const uint8_t* text, size_t size) {
    uint32_t n = static_cast<uint32_t>(strnlen(reinterpret_cast<const char*>(text), size));
    keel::StringImplC* s = new keel::StringImplC(text, n, "vutf8");
    s->addRef();
    for (const char* encoding : {"utf16", "utf16be", "wchar_t"}) {
        uint32_t needed = 0, unit = encoding[0] == 'w' ? 4 : 2;
        bool whole = s->copyText(nullptr, &needed, encoding);
        check(needed == s->textLength(encoding), "copyText's size differs from textLength");
        std::vector<uint8_t> expected(needed += unit);
        check(whole == s->copyText(expected.data(), &needed, encoding),
              "copyText's loss flag differs");
        void* out = nullptr;
        check(whole == s->text(&out, encoding), "text's loss flag differs from copyText's");
        check(memcmp(out, expected.data(), expected.size()) == 0, "text differs from copyText");
        check(std::vector<uint8_t>(unit, 0) ==
                  std::vector<uint8_t>(expected.end() - unit, expected.end()),
              "the terminator is missing");
        s->releaseText(out, encoding);
    }
    s->release();
}

// A string made with an encoding object is the one its name makes: the
// cached objects where those stand (no text, or one byte below 0x80), and
// otherwise the same text, count and room; also for no object at all, which
// is an unknown name.
void checkEncodingObject(const uint8_t* text, uint32_t size, uint32_t pick) {
    static const char* const kNames[] = {"system-8", "utf8", "iso-8859-1", "utf16", "no-such"};
    keel::TextEncodingI* const objects[] = {keel::system8Encoding(), keel::utf8Encoding(),
                                            keel::latin1Encoding(), keel::utf16Encoding(), nullptr};
    keel::StringC byName(text, size, kNames[pick % 5]);
    keel::StringC known = keel::stringFromEncoded(text, size, objects[pick % 5]);
    bool cached = size == 0 || (size == 1 && text[0] > 0 && text[0] < 0x80);
    check(cached == (byName.getImpl() == known.getImpl()), "a cached object is not shared");
    auto* a = dynamic_cast<keel::StringImplC*>(byName.getImpl());
    auto* b = dynamic_cast<keel::StringImplC*>(known.getImpl());
    check(a && b && a->byteCapacity() == b->byteCapacity(), "the rooms differ");
    check(byName.valid() == known.valid() && byName.length() == known.length() &&
              byName.toStdString() == known.toStdString(),
          "the texts differ");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    static const char* const kNames[] = {"utf8", "system-8", "vutf8", "utf8"};
    const char* encoding = kNames[data[0] & 3];
    uint32_t character = 0x40 + (data[0] >> 2);
    uint32_t seed = data[1];
    const uint8_t* text = data + 2;
    size_t length = size - 2;
    bool secure = (data[1] & 1) != 0;
    check(run(text, length, encoding, character, seed, true, secure) ==
              run(text, length, encoding, character, seed, false, secure),
          "block paths and character paths differ");
    if (strcmp(encoding, "vutf8") != 0) checkAgainstDecoder(text, length, encoding, secure);
    static const char* const kAll[] = {"utf8",       "vutf8", "utf16",   "utf16be",
                                       "iso-8859-1", "ascii", "wchar_t", "system-8"};
    checkOneBlockForm(text, static_cast<uint32_t>(length), kAll[(data[1] >> 1) & 7]);
    checkWideText(text, length);
    checkEncodingObject(text, static_cast<uint32_t>(length), data[1] >> 4);
    return 0;
}
