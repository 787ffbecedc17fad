// Conversions between the internal form and the eight encodings: lookup,
// marks, the replacements, and the bytes held between pieces.
#include "text/textencoding.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace keel;

namespace {

typedef std::vector<uint8_t> Bytes;

Bytes bytesOf(const char* s) { return Bytes(s, s + strlen(s)); }

// Decodes in one call with room from decodedSize.
Bytes decodeAll(const char* name, const Bytes& in, uint32_t* chars = nullptr) {
    TextDecoderI* d = findEncoding(name)->newDecoder();
    uint32_t size = d->decodedSize(in.data(), static_cast<uint32_t>(in.size()));
    Bytes out(size + 1);
    uint32_t n = d->decode(in.data(), static_cast<uint32_t>(in.size()), out.data(), size, chars);
    delete d;
    EXPECT_EQ(size, n);
    out.resize(n);
    return out;
}

Bytes encodeAll(const char* name, const Bytes& in, bool* lost = nullptr) {
    TextEncoderI* e = findEncoding(name)->newEncoder();
    uint32_t size = e->encodedSize(in.data(), static_cast<uint32_t>(in.size()));
    Bytes out(size + 1);
    uint32_t n = e->encode(in.data(), static_cast<uint32_t>(in.size()), out.data(), size, lost);
    delete e;
    EXPECT_EQ(size, n);
    out.resize(n);
    return out;
}

}  // namespace

TEST(TextEncodingLookup, FindsTheEightNamesOnly) {
    const char* names[] = {"ascii", "system-8", "iso-8859-1", "utf8",
                           "utf16", "utf16be",  "utf16le",    "wchar_t"};
    for (const char* name : names) {
        EXPECT_NE(nullptr, findEncoding(name)) << name;
        EXPECT_EQ(findEncoding(name), findEncoding(name)) << name;
    }
    EXPECT_EQ(findEncoding("utf16le"), findEncoding("UTF16LE"));
    EXPECT_EQ(nullptr, findEncoding("vutf8"));
    EXPECT_EQ(nullptr, findEncoding("latin1"));
    EXPECT_EQ(nullptr, findEncoding("utf-8"));
    EXPECT_EQ(nullptr, findEncoding(nullptr));
    EXPECT_NE(findEncoding("utf16"), findEncoding("utf16le"));
    EXPECT_NE(findEncoding("utf8"), findEncoding("system-8"));
}

TEST(TextEncodingBasics, Utf8RoundTrip) {
    Bytes text = bytesOf("abc\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
    uint32_t chars = 0;
    EXPECT_EQ(text, decodeAll("utf8", text, &chars));
    EXPECT_EQ(6u, chars);
    bool lost = true;
    EXPECT_EQ(text, encodeAll("system-8", text, &lost));
    EXPECT_FALSE(lost);
}
