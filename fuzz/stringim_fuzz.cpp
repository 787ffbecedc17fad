// The block paths of the string representation against the character paths:
// a string made from UTF-8 bytes (one-pass copy of the clean head) and the
// searches for an ASCII character and for ASCII sets (32-byte steps over
// valid blocks) must give the same bytes, counts, capacity, answers and
// cursor with the block paths on as with them off; a string made from
// "utf8" or "system-8" bytes holds exactly the bytes and count the UTF-8
// decoder alone gives.
//
// Input layout: byte 0 picks the encoding name (bits 0-1: "utf8", "system-8",
// "vutf8") and the searched character (bits 2-7, mapped into 0x40-0x7F);
// byte 1 seeds where charAt moves the cursor between searches; the rest is
// the text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include <keel/keel.h>

#include "text/stringim.h"
#include "text/textencoding.h"

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
    keel::StringImplC* s = secure ? new keel::SecureStringImplC(text, static_cast<uint32_t>(size), encoding)
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
    for (int32_t at = s->findChar(character, -1); at >= 0 && steps < 2000; at = s->findChar(character, at), ++steps) {
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
    keel::StringImplC* s = secure ? new keel::SecureStringImplC(text, n, encoding) : new keel::StringImplC(text, n, encoding);
    s->addRef();
    check(s->byteCount() == decodedSize && memcmp(s->bytes(), out.data(), decodedSize) == 0 &&
              s->bytes()[decodedSize] == 0,
          "the bytes differ from the decoder's");
    check(s->storedCharCount() == static_cast<int32_t>(characters), "the count differs from the decoder's");
    check(s->byteCapacity() == (decodedSize | 7) + 1, "the capacity is not the first reserve's");
    s->release();
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
    return 0;
}
