// Every decoder and encoder is fed one input whole and in the pieces the
// fuzzer chooses: the output, the character count, the lost flag and the held
// bytes must be the same either way, the predicted sizes exact, and decoded
// output must always be well-formed internal text. Each piece is converted
// into a heap buffer of exactly the size announced for it, so that a block
// path storing past what it advances meets the address checker.
//
// Input layout: byte 0 picks the encoding, byte 1 the direction, byte 2 the
// number of cut points (0-7) that the next bytes give as piece lengths; the
// rest is the text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "text/textencoding.h"
#include "text/utf8.h"

namespace {

const char* const kNames[] = {"ascii", "system-8", "iso-8859-1", "utf8",
                              "utf16", "utf16be",  "utf16le",    "wchar_t"};

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "invariant broken: %s\n", what);
        abort();
    }
}

// Sequences of one to six bytes with the right continuation bytes: never a
// stray continuation byte, 0xFE or 0xFF, or a cut sequence.
void checkInternalForm(const std::vector<uint8_t>& out) {
    size_t i = 0;
    while (i < out.size()) {
        uint8_t b = out[i];
        check((b & 0xC0) != 0x80 && b < 0xFE, "decoded output starts a sequence with a bad byte");
        uint32_t n = keel::utf8SequenceLength(&out[i]);
        check(i + n <= out.size(), "decoded output ends inside a sequence");
        for (uint32_t k = 1; k < n; ++k) check((out[i + k] & 0xC0) == 0x80, "missing continuation byte");
        i += n;
    }
}

template <class Converter>
std::vector<uint8_t> heldOf(Converter* c) {
    keel::UnusedByteBufferC* buffer = dynamic_cast<keel::UnusedByteBufferC*>(c);
    if (!buffer) return {};
    return std::vector<uint8_t>(buffer->heldBytes(), buffer->heldBytes() + buffer->heldCount());
}

struct Result {
    std::vector<uint8_t> out;
    uint32_t count = 0;
    bool lost = false;
    std::vector<uint8_t> held;
};

Result decodeInPieces(keel::TextEncodingI* enc, const uint8_t* text, size_t n, const std::vector<size_t>& cuts) {
    keel::TextDecoderI* d = enc->newDecoder();
    Result r;
    size_t at = 0;
    for (size_t k = 0; k <= cuts.size(); ++k) {
        size_t len = k < cuts.size() ? std::min(cuts[k], n - at) : n - at;
        uint32_t size = d->decodedSize(text + at, static_cast<uint32_t>(len));
        std::unique_ptr<uint8_t[]> piece(new uint8_t[size]);
        uint32_t chars = 0;
        uint32_t wrote = d->decode(text + at, static_cast<uint32_t>(len), piece.get(), size, &chars);
        check(wrote == size, "decodedSize differs from what decode wrote");
        r.out.insert(r.out.end(), piece.get(), piece.get() + wrote);
        r.count += chars;
        at += len;
    }
    r.held = heldOf(d);
    delete d;
    return r;
}

Result encodeInPieces(keel::TextEncodingI* enc, const uint8_t* text, size_t n, const std::vector<size_t>& cuts) {
    keel::TextEncoderI* e = enc->newEncoder();
    Result r;
    size_t at = 0;
    for (size_t k = 0; k <= cuts.size(); ++k) {
        size_t len = k < cuts.size() ? std::min(cuts[k], n - at) : n - at;
        uint32_t size = e->encodedSize(text + at, static_cast<uint32_t>(len));
        std::unique_ptr<uint8_t[]> piece(new uint8_t[size]);
        bool lost = false;
        uint32_t wrote = e->encode(text + at, static_cast<uint32_t>(len), piece.get(), size, &lost);
        check(wrote == size, "encodedSize differs from what encode wrote");
        r.out.insert(r.out.end(), piece.get(), piece.get() + wrote);
        r.lost = r.lost || lost;
        at += len;
    }
    r.held = heldOf(e);
    delete e;
    return r;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    keel::TextEncodingI* enc = keel::findEncoding(kNames[data[0] % 8]);
    check(enc != nullptr, "a named encoding is missing");
    bool decode = (data[1] & 1) == 0;
    size_t cutCount = data[2] % 8;
    if (size < 3 + cutCount) return 0;
    std::vector<size_t> cuts;
    for (size_t k = 0; k < cutCount; ++k) cuts.push_back(data[3 + k] % 16);
    const uint8_t* text = data + 3 + cutCount;
    size_t n = size - 3 - cutCount;

    // A UTF-16 decoder looks for the order mark at the head of every block it
    // converts, so a piece that starts with FF FE or FE FF legitimately reads
    // differently from the same bytes inside a whole. Such inputs are still
    // converted (for faults and exact sizes) but not compared.
    bool comparable = true;
    if (decode && data[0] % 8 >= 4 && data[0] % 8 <= 6) {
        for (size_t i = 0; i + 1 < n; ++i) {
            if ((text[i] == 0xFF && text[i + 1] == 0xFE) || (text[i] == 0xFE && text[i + 1] == 0xFF)) {
                comparable = false;
            }
        }
    }

    Result whole = decode ? decodeInPieces(enc, text, n, {}) : encodeInPieces(enc, text, n, {});
    Result pieces = decode ? decodeInPieces(enc, text, n, cuts) : encodeInPieces(enc, text, n, cuts);
    if (!comparable) return 0;
    check(whole.out == pieces.out, "output differs between whole and pieces");
    check(whole.lost == pieces.lost, "lost flag differs between whole and pieces");
    check(whole.held == pieces.held, "held bytes differ between whole and pieces");
    if (decode) {
        check(whole.count == pieces.count, "character count differs between whole and pieces");
        checkInternalForm(whole.out);
    }
    return 0;
}
