// Every decoder and encoder is fed one input whole and in the pieces the
// fuzzer chooses: the output, the character count, the lost flag and the held
// bytes must be the same either way, the predicted sizes exact, and decoded
// output must always be well-formed internal text. The whole input must also
// give what a plain model of each loop, one character at a time, gives (the
// block paths' answers; tests/text/textencoding_test.cpp holds them to the
// plain loop on random text). Each piece is converted
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
#include <string>
#include <vector>

#include "text/textencoding.h"
#include "text/ucs4.h"
#include "text/utf16.h"
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
        for (uint32_t k = 1; k < n; ++k)
            check((out[i + k] & 0xC0) == 0x80, "missing continuation byte");
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

// --- Plain models of the loops, one character at a time, for whole input ----

typedef std::vector<uint8_t> Bytes;

void put8(Bytes& out, uint32_t v) {
    uint8_t buf[8];
    uint8_t* p = buf;
    keel::utf8Put(p, v);
    out.insert(out.end(), buf, p);
}

// What a decoder gives for input in one piece, and the tail it keeps.
Result modelDecode(const std::string& name, const uint8_t* in, size_t n) {
    Result r;
    const uint8_t* p = in;
    const uint8_t* end = in + n;
    if (name == "ascii" || name == "iso-8859-1") {
        for (; p < end; ++p) put8(r.out, *p < 0x80 || name != "ascii" ? *p : 0xFFFD);
        r.count = static_cast<uint32_t>(n);
        return r;
    }
    if (name == "utf8" || name == "system-8") {
        for (; p < end && keel::utf8SequenceLength(p) <= static_cast<size_t>(end - p); ++r.count) {
            put8(r.out, keel::utf8Next(p));
        }
    } else if (name == "wchar_t") {
        for (; end - p >= 4; ++r.count) put8(r.out, keel::ucs4Next(p));
    } else if (n >= 2) {
        bool big = name == "utf16be" || (name == "utf16" && in[0] == 0xFE && in[1] == 0xFF);
        if (big ? (in[0] == 0xFE && in[1] == 0xFF) : (in[0] == 0xFF && in[1] == 0xFE)) p += 2;
        for (; end - p >= 2 && 2 * keel::utf16UnitsAt(p, big) <= static_cast<size_t>(end - p);
             ++r.count) {
            put8(r.out, keel::utf16Next(p, big));
        }
    }
    r.held.assign(p, end);
    return r;
}

// What an encoder gives for internal form in one piece; a cut sequence at
// the end is the tail it keeps.
Result modelEncode(const std::string& name, const uint8_t* in, size_t n) {
    Result r;
    const uint8_t* p = in;
    const uint8_t* end = in + n;
    while (p < end && keel::utf8SequenceLength(p) <= static_cast<size_t>(end - p)) {
        uint32_t v = keel::utf8Next(p);
        uint8_t buf[4];
        uint8_t* q = buf;
        if (name == "ascii" || name == "iso-8859-1") {
            uint32_t top = name == "ascii" ? 0x7Fu : 0xFFu;
            r.lost = r.lost || v > top;
            r.out.push_back(static_cast<uint8_t>(v > top ? 0x7E : v));
        } else if (name == "wchar_t") {
            keel::ucs4Put(q, v);
        } else if (name == "utf8" || name == "system-8") {
            put8(r.out, v);
        } else {
            r.lost = r.lost || v >= 0x110000;
            keel::utf16Put(q, v, name == "utf16be");
        }
        r.out.insert(r.out.end(), buf, q);
    }
    r.held.assign(p, end);
    return r;
}

Result decodeInPieces(keel::TextEncodingI* enc, const uint8_t* text, size_t n,
                      const std::vector<size_t>& cuts) {
    keel::TextDecoderI* d = enc->newDecoder();
    Result r;
    size_t at = 0;
    for (size_t k = 0; k <= cuts.size(); ++k) {
        size_t len = k < cuts.size() ? std::min(cuts[k], n - at) : n - at;
        uint32_t size = d->decodedSize(text + at, static_cast<uint32_t>(len));
        std::unique_ptr<uint8_t[]> piece(new uint8_t[size]);
        uint32_t chars = 0;
        uint32_t wrote =
            d->decode(text + at, static_cast<uint32_t>(len), piece.get(), size, &chars);
        check(wrote == size, "decodedSize differs from what decode wrote");
        r.out.insert(r.out.end(), piece.get(), piece.get() + wrote);
        r.count += chars;
        at += len;
    }
    r.held = heldOf(d);
    delete d;
    return r;
}

Result encodeInPieces(keel::TextEncodingI* enc, const uint8_t* text, size_t n,
                      const std::vector<size_t>& cuts) {
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
    const char* name = kNames[data[0] % 8];
    keel::TextEncodingI* enc = keel::findEncoding(name);
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
            if ((text[i] == 0xFF && text[i + 1] == 0xFE) ||
                (text[i] == 0xFE && text[i + 1] == 0xFF)) {
                comparable = false;
            }
        }
    }

    Result whole = decode ? decodeInPieces(enc, text, n, {}) : encodeInPieces(enc, text, n, {});
    Result pieces =
        decode ? decodeInPieces(enc, text, n, cuts) : encodeInPieces(enc, text, n, cuts);
    if (!comparable) return 0;
    check(whole.out == pieces.out, "output differs between whole and pieces");
    check(whole.lost == pieces.lost, "lost flag differs between whole and pieces");
    check(whole.held == pieces.held, "held bytes differ between whole and pieces");
    Result model = decode ? modelDecode(name, text, n) : modelEncode(name, text, n);
    check(whole.out == model.out, "output differs from the model's");
    check(whole.lost == model.lost, "lost flag differs from the model's");
    if (decode) {
        check(whole.count == pieces.count, "character count differs between whole and pieces");
        check(whole.count == model.count, "character count differs from the model's");
        check(whole.held == model.held, "held bytes differ from the model's");
        checkInternalForm(whole.out);
        // A fresh decoder's output for any input stays within maxOutput.
        keel::TextDecoderI* fresh = enc->newDecoder();
        check(fresh->decodedSize(text, static_cast<uint32_t>(n)) <=
                  fresh->maxOutput(static_cast<uint32_t>(n)),
              "decodedSize beyond maxOutput");
        delete fresh;
    } else if (strcmp(name, "utf8") != 0 && strcmp(name, "system-8") != 0) {
        check(whole.held == model.held, "held bytes differ from the model's");
    }
    return 0;
}
