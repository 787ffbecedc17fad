// Conversions between the internal form and the eight encodings: lookup,
// marks, the replacements, the bytes held between pieces, and agreement of
// the fast paths with a plain character-by-character model.
#include "text/textencoding.h"

#include <gtest/gtest.h>
#include <keel/string.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "text/ucs4.h"
#include "text/utf16.h"
#include "text/utf8.h"

using namespace keel;
using keel::StringC;

namespace {

typedef std::vector<uint8_t> Bytes;

const char* const kNames[] = {"ascii", "system-8", "iso-8859-1", "utf8",
                              "utf16", "utf16be",  "utf16le",    "wchar_t"};

Bytes bytesOf(const char* s) { return Bytes(s, s + strlen(s)); }

Bytes cat(const Bytes& a, const Bytes& b) {
    Bytes r(a);
    r.insert(r.end(), b.begin(), b.end());
    return r;
}

// Internal form of a list of values.
Bytes internal(std::initializer_list<uint32_t> values) {
    Bytes r;
    for (uint32_t v : values) {
        uint8_t buf[8];
        uint8_t* p = buf;
        utf8Put(p, v);
        r.insert(r.end(), buf, p);
    }
    return r;
}

Bytes units16(std::initializer_list<uint16_t> units, bool bigEndian) {
    Bytes r;
    for (uint16_t u : units) {
        if (bigEndian) {
            r.push_back(static_cast<uint8_t>(u >> 8));
            r.push_back(static_cast<uint8_t>(u));
        } else {
            r.push_back(static_cast<uint8_t>(u));
            r.push_back(static_cast<uint8_t>(u >> 8));
        }
    }
    return r;
}

Bytes words32(std::initializer_list<uint32_t> words) {
    Bytes r;
    for (uint32_t w : words) {
        uint8_t buf[4];
        memcpy(buf, &w, 4);
        r.insert(r.end(), buf, buf + 4);
    }
    return r;
}

struct Result {
    Bytes out;
    uint32_t chars = 0;
    bool lost = false;
    Bytes heldAfter;
};

const UnusedByteBufferC* bufferOf(TextDecoderI* d) { return dynamic_cast<UnusedByteBufferC*>(d); }
const UnusedByteBufferC* bufferOf(TextEncoderI* e) { return dynamic_cast<UnusedByteBufferC*>(e); }

Bytes heldOf(const UnusedByteBufferC* b) {
    if (!b) return Bytes();
    return Bytes(b->heldBytes(), b->heldBytes() + b->heldCount());
}

// Feeds `in` to one decoder in the given pieces, with room from decodedSize
// for each piece. Checks on the way that every decodedSize is exact and
// leaves the held bytes alone.
Result decodePieces(const char* name, const Bytes& in, const std::vector<size_t>& cuts) {
    TextDecoderI* d = findEncoding(name)->newDecoder();
    Result r;
    size_t from = 0;
    for (size_t i = 0; i <= cuts.size(); ++i) {
        size_t to = i < cuts.size() ? cuts[i] : in.size();
        const uint8_t* piece = in.data() + from;
        uint32_t length = static_cast<uint32_t>(to - from);
        Bytes heldBefore = heldOf(bufferOf(d));
        uint32_t size = d->decodedSize(piece, length);
        EXPECT_EQ(heldBefore, heldOf(bufferOf(d))) << name << " decodedSize changed held bytes";
        EXPECT_EQ(size, d->decodedSize(piece, length)) << name;
        Bytes out(size + 8, 0xA5);
        uint32_t chars = 0;
        uint32_t n = d->decode(piece, length, out.data(), size, &chars);
        EXPECT_EQ(size, n) << name << " piece " << from << ".." << to;
        for (size_t k = size; k < out.size(); ++k) EXPECT_EQ(0xA5, out[k]) << name;
        r.out.insert(r.out.end(), out.begin(), out.begin() + n);
        r.chars += chars;
        from = to;
    }
    r.heldAfter = heldOf(bufferOf(d));
    delete d;
    return r;
}

Result encodePieces(const char* name, const Bytes& in, const std::vector<size_t>& cuts) {
    TextEncoderI* e = findEncoding(name)->newEncoder();
    Result r;
    size_t from = 0;
    for (size_t i = 0; i <= cuts.size(); ++i) {
        size_t to = i < cuts.size() ? cuts[i] : in.size();
        const uint8_t* piece = in.data() + from;
        uint32_t length = static_cast<uint32_t>(to - from);
        Bytes heldBefore = heldOf(bufferOf(e));
        uint32_t size = e->encodedSize(piece, length);
        EXPECT_EQ(heldBefore, heldOf(bufferOf(e))) << name << " encodedSize changed held bytes";
        Bytes out(size + 8, 0xA5);
        bool lost = true;
        uint32_t n = e->encode(piece, length, out.data(), size, &lost);
        EXPECT_EQ(size, n) << name << " piece " << from << ".." << to;
        for (size_t k = size; k < out.size(); ++k) EXPECT_EQ(0xA5, out[k]) << name;
        r.out.insert(r.out.end(), out.begin(), out.begin() + n);
        r.lost = r.lost || lost;
        from = to;
    }
    if (const UnusedByteBufferC* b = bufferOf(e)) r.heldAfter = heldOf(b);
    delete e;
    return r;
}

Result decodeAll(const char* name, const Bytes& in) { return decodePieces(name, in, {}); }
Result encodeAll(const char* name, const Bytes& in) { return encodePieces(name, in, {}); }

void expectSame(const Result& a, const Result& b, const std::string& what) {
    EXPECT_EQ(a.out, b.out) << what;
    EXPECT_EQ(a.chars, b.chars) << what;
    EXPECT_EQ(a.lost, b.lost) << what;
    EXPECT_EQ(a.heldAfter, b.heldAfter) << what;
}

// Every single split point, then random splits into up to eight pieces.
void checkSplits(bool decoding, const char* name, const Bytes& in, std::mt19937& rng) {
    Result whole = decoding ? decodeAll(name, in) : encodeAll(name, in);
    for (size_t cut = 0; cut <= in.size(); ++cut) {
        Result split = decoding ? decodePieces(name, in, {cut}) : encodePieces(name, in, {cut});
        expectSame(whole, split, std::string(name) + " cut at " + std::to_string(cut));
    }
    for (int round = 0; round < 40; ++round) {
        std::vector<size_t> cuts;
        size_t pieces = rng() % 8;
        for (size_t i = 0; i < pieces; ++i) cuts.push_back(rng() % (in.size() + 1));
        std::sort(cuts.begin(), cuts.end());
        Result split = decoding ? decodePieces(name, in, cuts) : encodePieces(name, in, cuts);
        std::string where;
        for (size_t c : cuts) where += " " + std::to_string(c);
        expectSame(whole, split, std::string(name) + " cuts at" + where);
    }
}

// --- Plain models of the loops, one character at a time ---------------------

void put8(Bytes& out, uint32_t v) {
    uint8_t buf[8];
    uint8_t* p = buf;
    utf8Put(p, v);
    out.insert(out.end(), buf, p);
}

// Whole input only: what a decoder gives for input in one piece, and the tail
// it keeps.
Result modelDecode(const std::string& name, const Bytes& in) {
    Result r;
    const uint8_t* p = in.data();
    const uint8_t* end = p + in.size();
    if (name == "ascii" || name == "iso-8859-1") {
        for (uint8_t b : in) put8(r.out, b < 0x80 || name != "ascii" ? b : 0xFFFD);
        r.chars = static_cast<uint32_t>(in.size());
        return r;
    }
    if (name == "utf8" || name == "system-8") {
        while (p < end && utf8SequenceLength(p) <= static_cast<size_t>(end - p)) {
            put8(r.out, utf8Next(p));
            ++r.chars;
        }
    } else if (name == "wchar_t") {
        while (end - p >= 4) {
            put8(r.out, ucs4Next(p));
            ++r.chars;
        }
    } else {
        if (in.size() >= 2) {
            bool big = name == "utf16be" || (name == "utf16" && in[0] == 0xFE && in[1] == 0xFF);
            if (big ? (in[0] == 0xFE && in[1] == 0xFF) : (in[0] == 0xFF && in[1] == 0xFE)) p += 2;
            while (end - p >= 2 && 2 * utf16UnitsAt(p, big) <= static_cast<size_t>(end - p)) {
                put8(r.out, utf16Next(p, big));
                ++r.chars;
            }
        }
    }
    r.heldAfter = Bytes(p, end);
    return r;
}

Result modelEncode(const std::string& name, const Bytes& in) {
    Result r;
    const uint8_t* p = in.data();
    const uint8_t* end = p + in.size();
    bool big = name == "utf16be";
    while (p < end && utf8SequenceLength(p) <= static_cast<size_t>(end - p)) {
        uint32_t v = utf8Next(p);
        if (name == "ascii" || name == "iso-8859-1") {
            uint32_t limit = name == "ascii" ? 0x7F : 0xFF;
            if (v > limit) {
                v = 0x7E;
                r.lost = true;
            }
            r.out.push_back(static_cast<uint8_t>(v));
        } else if (name == "wchar_t") {
            uint8_t buf[4];
            uint8_t* q = buf;
            ucs4Put(q, v);
            r.out.insert(r.out.end(), buf, q);
        } else if (name == "utf8" || name == "system-8") {
            put8(r.out, v);
        } else {
            if (v >= 0x110000) r.lost = true;
            uint8_t buf[4];
            uint8_t* q = buf;
            utf16Put(q, v, big);
            r.out.insert(r.out.end(), buf, q);
        }
    }
    r.heldAfter = Bytes(p, end);
    return r;
}

// Sequences at the edges of what the fast paths take: overlong forms, values
// above U+10FFFF, surrogates, five and six bytes, and bytes that start nothing.
const char* const kEdgeSequences[] = {
    "\xC0\x80", "\xC1\xBF", "\xC2\x80", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xE0\xA0\x80",
    "\xED\xA0\x80", "\xEF\xBF\xBF", "\xF0\x80\x80\x80", "\xF0\x8F\xBF\xBF",
    "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
    "\xF7\xBF\xBF\xBF", "\xF8\x88\x80\x80\x80", "\xFC\x84\x80\x80\x80\x80",
    "\xFD\xBF\xBF\xBF\xBF\xBF", "\xFE", "\xFF", "\x80", "\xBF", "\xE4\xB8", "\xF0\x9F\x98",
    "\xF0", "\xF0\x80", "\xF4", "\xC3", "\xE4", "\xF0\x9F\x98\x80"};

void putEdge(Bytes& r, std::mt19937& rng) {
    const char* e = kEdgeSequences[rng() % (sizeof kEdgeSequences / sizeof kEdgeSequences[0])];
    r.insert(r.end(), e, e + strlen(e));
}

// Random text of runs: ASCII (long enough for the eight-byte paths), Latin-1,
// two- and three-byte characters, supplementary ones, edge sequences and junk.
Bytes randomInternal(std::mt19937& rng, size_t items) {
    Bytes r;
    for (size_t i = 0; i < items; ++i) {
        switch (rng() % 8) {
        case 7: putEdge(r, rng); break;
        case 0:
        case 1: {
            size_t n = rng() % 20;
            for (size_t k = 0; k < n; ++k) r.push_back(static_cast<uint8_t>(0x20 + rng() % 0x5F));
            break;
        }
        case 2: put8(r, 0x80 + rng() % 0x80); break;
        case 3: put8(r, 0x100 + rng() % 0x700); break;
        case 4: put8(r, 0x800 + rng() % 0xF000); break;
        case 5: put8(r, 0x10000 + rng() % 0x100000); break;
        default: r.push_back(static_cast<uint8_t>(rng())); break;
        }
    }
    return r;
}

// Random bytes in an outside encoding, mostly well-formed with some junk.
Bytes randomOutside(const std::string& name, std::mt19937& rng, size_t items) {
    Bytes r;
    bool big = name == "utf16be";
    for (size_t i = 0; i < items; ++i) {
        uint32_t kind = rng() % 6;
        uint32_t v;
        if (kind < 2) {
            size_t n = rng() % 20;
            for (size_t k = 0; k < n; ++k) {
                v = 0x20 + rng() % 0x5F;
                if (name == "wchar_t") {
                    Bytes w = words32({v});
                    r.insert(r.end(), w.begin(), w.end());
                } else if (name.compare(0, 5, "utf16") == 0) {
                    Bytes u = units16({static_cast<uint16_t>(v)}, big);
                    r.insert(r.end(), u.begin(), u.end());
                } else {
                    r.push_back(static_cast<uint8_t>(v));
                }
            }
            continue;
        }
        if (name == "ascii" || name == "iso-8859-1") {
            r.push_back(static_cast<uint8_t>(rng()));
        } else if (name == "utf8" || name == "system-8") {
            if (kind == 5) {
                if (rng() % 2) {
                    putEdge(r, rng);
                } else {
                    r.push_back(static_cast<uint8_t>(rng()));
                }
            } else {
                put8(r, kind == 2 ? 0x80 + rng() % 0x780 : kind == 3 ? 0x800 + rng() % 0xF800
                                                                       : 0x10000 + rng() % 0x100000);
            }
        } else if (name == "wchar_t") {
            v = kind == 5 ? static_cast<uint32_t>(rng()) : rng() % 0x110000;
            Bytes w = words32({v});
            r.insert(r.end(), w.begin(), w.end());
        } else {
            // No U+FEFF: a block that starts with it loses it, so it would
            // not come out the same for every split.
            v = kind == 5 ? 0xD800 + rng() % 0x800 : kind == 4 ? 0x10000 + rng() % 0x100000
                                                              : 0x80 + rng() % 0xFE00;
            if (v == 0xFEFF) v = 0xFEFE;
            uint8_t buf[4];
            uint8_t* q = buf;
            utf16Put(q, v, big);
            r.insert(r.end(), buf, q);
            if (kind == 5 && rng() % 4 == 0) r.push_back(static_cast<uint8_t>(0x41));  // odd byte
        }
    }
    // An odd byte shifts the units, so a mark could still turn up in either
    // order: no byte FE at all.
    if (name.compare(0, 5, "utf16") == 0) {
        for (auto& b : r) if (b == 0xFE) b = 0xFD;
    }
    return r;
}

}  // namespace

// --- Lookup and the encoding objects ----------------------------------------

TEST(TextEncodingLookup, FindsTheEightNamesOnly) {
    for (const char* name : kNames) {
        EXPECT_NE(nullptr, findEncoding(name)) << name;
        EXPECT_EQ(findEncoding(name), findEncoding(name)) << name;
    }
    EXPECT_EQ(findEncoding("utf16le"), findEncoding("UTF16LE"));
    EXPECT_EQ(findEncoding("utf16be"), findEncoding("Utf16Be"));
    EXPECT_EQ(nullptr, findEncoding("vutf8"));
    EXPECT_EQ(nullptr, findEncoding("latin1"));
    EXPECT_EQ(nullptr, findEncoding("utf-8"));
    EXPECT_EQ(nullptr, findEncoding(" utf8"));
    EXPECT_EQ(nullptr, findEncoding(""));
    EXPECT_EQ(nullptr, findEncoding(nullptr));
    // Eight distinct objects.
    for (const char* a : kNames) {
        for (const char* b : kNames) {
            if (a != b) {
                EXPECT_NE(findEncoding(a), findEncoding(b)) << a << " " << b;
            }
        }
    }
}

TEST(TextEncodingLookup, NamesIgnoreBitFiveOnEveryByte) {
    EXPECT_TRUE(encodingNamesEqual("UTF8", "utf8"));
    EXPECT_TRUE(encodingNamesEqual("system\x0D" "8", "system-8"));  // 0x0D ^ 0x2D == 0x20
    EXPECT_EQ(findEncoding("system-8"), findEncoding("SYSTEM\x0D" "8"));
    EXPECT_FALSE(encodingNamesEqual("utf8", "utf8x"));
    EXPECT_FALSE(encodingNamesEqual("utf8x", "utf8"));
    EXPECT_FALSE(encodingNamesEqual("utf8 ", "utf8"));  // a blank is not the terminator
    EXPECT_TRUE(encodingNamesEqual("", ""));
    const char* same = "not a name at all";
    EXPECT_TRUE(encodingNamesEqual(same, same));
    EXPECT_FALSE(encodingNamesEqual(nullptr, "utf8"));
    EXPECT_TRUE(encodingNamesEqual(nullptr, nullptr));
}

TEST(TextEncodingObjects, MarksAndUnitWidths) {
    uint32_t length = 99;
    EXPECT_EQ(nullptr, findEncoding("system-8")->byteOrderMark(&length));
    EXPECT_EQ(0u, length);
    const uint8_t* mark = findEncoding("utf8")->byteOrderMark(&length);
    ASSERT_EQ(3u, length);
    EXPECT_EQ(bytesOf("\xEF\xBB\xBF"), Bytes(mark, mark + 3));
    mark = findEncoding("utf16")->byteOrderMark(&length);
    ASSERT_EQ(2u, length);
    EXPECT_EQ(0xFF, mark[0]);
    EXPECT_EQ(0xFE, mark[1]);
    mark = findEncoding("utf16le")->byteOrderMark(nullptr);
    EXPECT_EQ(0xFF, mark[0]);
    EXPECT_EQ(0xFE, mark[1]);
    mark = findEncoding("utf16be")->byteOrderMark(&length);
    ASSERT_EQ(2u, length);
    EXPECT_EQ(0xFE, mark[0]);
    EXPECT_EQ(0xFF, mark[1]);
    for (const char* name : {"ascii", "iso-8859-1", "wchar_t"}) {
        EXPECT_EQ(nullptr, findEncoding(name)->byteOrderMark(&length)) << name;
        EXPECT_EQ(0u, length) << name;
    }
    EXPECT_EQ(4u, findEncoding("wchar_t")->unitWidth());
    EXPECT_EQ(2u, findEncoding("utf16")->unitWidth());
    EXPECT_EQ(2u, findEncoding("utf16be")->unitWidth());
    EXPECT_EQ(1u, findEncoding("utf8")->unitWidth());
    EXPECT_EQ(1u, findEncoding("system-8")->unitWidth());
    EXPECT_EQ(1u, findEncoding("ascii")->unitWidth());
}

TEST(TextEncodingObjects, LoadKeptTheTwoFixedOrderObjects) {
    // The library's load steps have run before any test: the byte order of
    // the UTF-16 classes is told by these two addresses.
    EXPECT_EQ(findEncoding("utf16be"), utf16OrderObject(true));
    EXPECT_EQ(findEncoding("utf16le"), utf16OrderObject(false));
}

TEST(TextEncodingObjects, GetEncodingOfDecodersAndEncoders) {
    TextEncodingI* utf8 = findEncoding("utf8");
    for (const char* name : kNames) {
        TextEncodingI* enc = findEncoding(name);
        TextDecoderI* d = enc->newDecoder();
        TextEncoderI* e = enc->newEncoder();
        bool eightBit = strcmp(name, "utf8") == 0 || strcmp(name, "system-8") == 0;
        // The UTF-8 classes answer the "utf8" object, also when "system-8"
        // made them; that is how a writer on "system-8" finds its direct path.
        EXPECT_EQ(eightBit ? utf8 : enc, d->getEncoding()) << name;
        EXPECT_EQ(eightBit ? utf8 : enc, e->getEncoding()) << name;
        delete d;
        delete e;
    }
}

TEST(TextEncodingObjects, Utf16DecoderSettlesItsOrderAtTheFirstData) {
    TextEncodingI* utf16 = findEncoding("utf16");
    TextDecoderI* d = utf16->newDecoder();
    EXPECT_EQ(utf16, d->getEncoding());
    uint8_t out[8];
    Bytes one = bytesOf("\xFE");
    // One byte settles nothing.
    EXPECT_EQ(0u, d->decode(one.data(), 1, out, sizeof out, nullptr));
    EXPECT_EQ(utf16, d->getEncoding());
    Bytes rest = units16({0x0041}, true);
    rest.insert(rest.begin(), 0xFF);
    uint32_t chars = 0;
    EXPECT_EQ(1u, d->decode(rest.data(), 3, out, sizeof out, &chars));
    EXPECT_EQ(1u, chars);
    EXPECT_EQ('A', out[0]);
    EXPECT_EQ(findEncoding("utf16be"), d->getEncoding());
    delete d;

    // A size question may settle it as well.
    d = utf16->newDecoder();
    Bytes le = units16({0x0041}, false);
    EXPECT_EQ(1u, d->decodedSize(le.data(), 2));
    EXPECT_EQ(findEncoding("utf16le"), d->getEncoding());
    delete d;
}

TEST(TextEncodingObjectsThread, ConcurrentFirstUseGivesOneObjectEach) {
    std::vector<std::thread> threads;
    std::vector<std::vector<TextEncodingI*>> seen(8);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &seen] {
            for (const char* name : kNames) seen[t].push_back(findEncoding(name));
            TextDecoderI* d = findEncoding("utf16")->newDecoder();
            Bytes be = units16({0xFEFF, 0x00E9}, true);
            uint8_t out[8];
            d->decode(be.data(), static_cast<uint32_t>(be.size()), out, sizeof out, nullptr);
            delete d;
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 1; t < 8; ++t) EXPECT_EQ(seen[0], seen[t]);
}

// --- The replacements and the edge cases of each encoding --------------------

TEST(TextEncodingAscii, HighBytesInAndHighCharactersOut) {
    Result r = decodeAll("ascii", bytesOf("A\xE9"));
    EXPECT_EQ(internal({0x41, 0xFFFD}), r.out);
    EXPECT_EQ(2u, r.chars);
    r = encodeAll("ascii", internal({0x41, 0xE9, 0x4E2D, 0x1F600}));
    EXPECT_EQ(bytesOf("A~~~"), r.out);
    EXPECT_TRUE(r.lost);
    r = encodeAll("ascii", bytesOf("plain text, nothing lost"));
    EXPECT_EQ(bytesOf("plain text, nothing lost"), r.out);
    EXPECT_FALSE(r.lost);
    // Broken internal form is one U+FFFD per sequence, which ASCII cannot hold.
    r = encodeAll("ascii", bytesOf("a\xE4\x41z"));
    EXPECT_EQ(bytesOf("a~Az"), r.out);
    EXPECT_TRUE(r.lost);
}

TEST(TextEncodingAscii, DecodedSizeCountsThreeForAHighByte) {
    TextDecoderI* d = findEncoding("ascii")->newDecoder();
    EXPECT_EQ(4u, d->decodedSize("A\xE9", 2));
    EXPECT_EQ(6u * 1000, d->maxOutput(2000));
    delete d;
}

TEST(TextEncodingLatin1, EveryByteRoundTrips) {
    Bytes all;
    for (int b = 1; b < 256; ++b) all.push_back(static_cast<uint8_t>(b));
    Result in = decodeAll("iso-8859-1", all);
    EXPECT_EQ(255u, in.chars);
    EXPECT_EQ(127u + 2 * 128, in.out.size());
    const uint8_t* p = in.out.data();
    for (int b = 1; b < 256; ++b) EXPECT_EQ(static_cast<uint32_t>(b), utf8Next(p));
    Result out = encodeAll("iso-8859-1", in.out);
    EXPECT_EQ(all, out.out);
    EXPECT_FALSE(out.lost);
}

TEST(TextEncodingLatin1, CharactersAboveFfBecomeTilde) {
    Result r = encodeAll("iso-8859-1", internal({0x100}));
    EXPECT_EQ(bytesOf("\x7E"), r.out);
    EXPECT_TRUE(r.lost);
    r = encodeAll("iso-8859-1", internal({0xE9}));
    EXPECT_EQ(bytesOf("\xE9"), r.out);
    EXPECT_FALSE(r.lost);
    // Overlong two-byte forms decode to their value like anywhere else.
    r = encodeAll("iso-8859-1", bytesOf("\xC1\x81"));
    EXPECT_EQ(bytesOf("A"), r.out);
    EXPECT_FALSE(r.lost);
}

TEST(TextEncodingUtf8, ValidTextPassesAndBrokenSequencesAreReplaced) {
    Bytes text = internal({'a', 0xE9, 0x4E2D, 0x1F600, 0x7FFFFFFF, 0xD800});
    Result r = decodeAll("utf8", text);
    EXPECT_EQ(text, r.out);
    EXPECT_EQ(6u, r.chars);
    // E4 41 42: one replacement, then the two letters.
    EXPECT_EQ(internal({0xFFFD, 'A', 'B'}), decodeAll("utf8", bytesOf("\xE4\x41\x42")).out);
    // Overlong forms are rewritten in their shortest form.
    EXPECT_EQ(internal({0, 'A'}), decodeAll("utf8", Bytes{0xC0, 0x80, 0x41}).out);
    EXPECT_EQ(internal({'/'}), decodeAll("utf8", Bytes{0xE0, 0x80, 0xAF}).out);
    // Stray continuation bytes and FE, FF one by one.
    EXPECT_EQ(internal({0xFFFD, 0xFFFD, 0xFFFD}), decodeAll("utf8", Bytes{0x80, 0xFE, 0xFF}).out);
    // The mark is no business of the decoder: it arrives as U+FEFF.
    EXPECT_EQ(internal({0xFEFF, 'x'}), decodeAll("utf8", bytesOf("\xEF\xBB\xBFx")).out);
}

TEST(TextEncodingUtf8, EncodersOfUtf8AndSystem8WriteTheSameAndLoseNothing) {
    Bytes text = cat(internal({'a', 0xE9, 0x4E2D, 0x1F600}), bytesOf("\xE4\x41\x42"));
    Result a = encodeAll("utf8", text);
    Result b = encodeAll("system-8", text);
    EXPECT_EQ(a.out, b.out);
    EXPECT_EQ(internal({'a', 0xE9, 0x4E2D, 0x1F600, 0xFFFD, 'A', 'B'}), a.out);
    EXPECT_FALSE(a.lost);
    EXPECT_FALSE(b.lost);
}

TEST(TextEncodingUtf8, CutSequenceIsHeldAndFinishedByTheNextPiece) {
    TextDecoderI* d = findEncoding("utf8")->newDecoder();
    uint8_t out[8];
    uint32_t chars = 9;
    EXPECT_EQ(0u, d->decodedSize("\xE4\xB8", 2));
    EXPECT_EQ(0u, bufferOf(d)->heldCount());
    EXPECT_EQ(0u, d->decode("\xE4\xB8", 2, out, sizeof out, &chars));
    EXPECT_EQ(0u, chars);
    EXPECT_EQ(2u, bufferOf(d)->heldCount());
    EXPECT_EQ(3u, d->decodedSize("\xAD", 1));
    EXPECT_EQ(2u, bufferOf(d)->heldCount());
    EXPECT_EQ(3u, d->decode("\xAD", 1, out, sizeof out, &chars));
    EXPECT_EQ(1u, chars);
    EXPECT_EQ(internal({0x4E2D}), Bytes(out, out + 3));
    EXPECT_EQ(0u, bufferOf(d)->heldCount());
    delete d;
}

TEST(TextEncodingUtf8, AStringInOneGoDropsTheCutTail) {
    // decodedSize and decode of the whole, then the decoder dies with E4 held.
    Result r = decodeAll("utf8", bytesOf("abc\xE4"));
    EXPECT_EQ(bytesOf("abc"), r.out);
    EXPECT_EQ(3u, r.chars);
    EXPECT_EQ(bytesOf("\xE4"), r.heldAfter);
}

TEST(TextEncodingUtf16, OrderDetectionAndMarks) {
    Bytes expect = internal({'A'});
    EXPECT_EQ(expect, decodeAll("utf16", Bytes{0xFF, 0xFE, 0x41, 0x00}).out);
    EXPECT_EQ(expect, decodeAll("utf16", Bytes{0x41, 0x00}).out);
    EXPECT_EQ(expect, decodeAll("utf16", Bytes{0xFE, 0xFF, 0x00, 0x41}).out);
    EXPECT_EQ(expect, decodeAll("utf16le", Bytes{0xFF, 0xFE, 0x41, 0x00}).out);
    EXPECT_EQ(expect, decodeAll("utf16be", Bytes{0xFE, 0xFF, 0x00, 0x41}).out);
    // The other order's mark is a character of this order: U+FFFE.
    EXPECT_EQ(internal({0xFFFE, 'A'}), decodeAll("utf16be", Bytes{0xFF, 0xFE, 0x00, 0x41}).out);
    EXPECT_EQ(internal({0xFFFE, 'A'}), decodeAll("utf16le", Bytes{0xFE, 0xFF, 0x41, 0x00}).out);
    // Only the head of a block: U+FEFF further on is a character.
    EXPECT_EQ(internal({'A', 0xFEFF}), decodeAll("utf16le", Bytes{0x41, 0x00, 0xFF, 0xFE}).out);
}

TEST(TextEncodingUtf16, EveryBlockThatStartsWithTheMarkLosesIt) {
    // Fed as two blocks, the second block's U+FEFF is taken for a mark.
    Bytes in = units16({'A', 0xFEFF, 'B'}, false);
    Result whole = decodeAll("utf16le", in);
    EXPECT_EQ(internal({'A', 0xFEFF, 'B'}), whole.out);
    Result split = decodePieces("utf16le", in, {2});
    EXPECT_EQ(internal({'A', 'B'}), split.out);
    EXPECT_EQ(2u, split.chars);
}

TEST(TextEncodingUtf16, OddTailAndFewerThanTwoBytes) {
    TextDecoderI* d = findEncoding("utf16le")->newDecoder();
    uint8_t out[8];
    uint32_t chars = 5;
    EXPECT_EQ(1u, d->decode("A\0B", 3, out, sizeof out, &chars));
    EXPECT_EQ(1u, chars);
    EXPECT_EQ(1u, bufferOf(d)->heldCount());
    EXPECT_EQ(1u, d->decode("", 1, out, sizeof out, &chars));
    EXPECT_EQ('B', out[0]);
    EXPECT_EQ(0u, bufferOf(d)->heldCount());
    EXPECT_EQ(0u, d->decode("C", 1, out, sizeof out, &chars));
    EXPECT_EQ(0u, chars);
    delete d;
}

TEST(TextEncodingUtf16, SurrogatesInAndOut) {
    for (bool big : {false, true}) {
        const char* name = big ? "utf16be" : "utf16le";
        Bytes pair = units16({0xD83D, 0xDE00}, big);
        EXPECT_EQ(internal({0x1F600}), decodeAll(name, pair).out) << name;
        // Lone surrogates of either kind, one replacement per unit.
        Result r = decodeAll(name, units16({0xDC00, 'a', 0xD800, 'b', 0xD800, 0xD800, 0xDC00}, big));
        EXPECT_EQ(internal({0xFFFD, 'a', 0xFFFD, 'b', 0xFFFD, 0x10000}), r.out) << name;
        EXPECT_EQ(6u, r.chars);
        // A high surrogate at the end waits for its partner.
        r = decodeAll(name, units16({'a', 0xD800}, big));
        EXPECT_EQ(internal({'a'}), r.out);
        EXPECT_EQ(2u, r.heldAfter.size());

        Result e = encodeAll(name, internal({'a', 0xE9, 0x4E2D, 0x1F600, 0x10FFFF}));
        EXPECT_EQ(units16({'a', 0xE9, 0x4E2D, 0xD83D, 0xDE00, 0xDBFF, 0xDFFF}, big), e.out);
        EXPECT_FALSE(e.lost);
        // A surrogate value in the internal form goes out as it is.
        e = encodeAll(name, internal({0xDC00}));
        EXPECT_EQ(units16({0xDC00}, big), e.out);
        EXPECT_FALSE(e.lost);
        e = encodeAll(name, internal({0x110000, 'z'}));
        EXPECT_EQ(units16({0xFFFD, 'z'}, big), e.out);
        EXPECT_TRUE(e.lost);
    }
    // "utf16" writes little-endian, which its mark FF FE announces.
    EXPECT_EQ(units16({'a', 0x4E2D}, false), encodeAll("utf16", internal({'a', 0x4E2D})).out);
}

TEST(TextEncodingWChar, WordsInAndOut) {
    Bytes words = words32({'a', 0xE9, 0x1F600, 0x7FFFFFFF});
    Result r = decodeAll("wchar_t", words);
    EXPECT_EQ(internal({'a', 0xE9, 0x1F600, 0x7FFFFFFF}), r.out);
    Result back = encodeAll("wchar_t", r.out);
    EXPECT_EQ(words, back.out);
    EXPECT_FALSE(back.lost);
    // A value without internal form writes nothing but is counted.
    r = decodeAll("wchar_t", words32({'a', 0x80000000u, 'b'}));
    EXPECT_EQ(bytesOf("ab"), r.out);
    EXPECT_EQ(3u, r.chars);
    // Surrogates and values above the Unicode range are not checked.
    r = decodeAll("wchar_t", words32({0xD800, 0x110000}));
    EXPECT_EQ(internal({0xD800, 0x110000}), r.out);
    // Broken internal form is U+FFFD, which is not a loss here.
    back = encodeAll("wchar_t", bytesOf("\xE4z!"));
    EXPECT_EQ(words32({0xFFFD, 'z', '!'}), back.out);
    EXPECT_FALSE(back.lost);
}

TEST(TextEncodingWChar, SixBytesGiveOneCharacterAndHoldTwo) {
    TextDecoderI* d = findEncoding("wchar_t")->newDecoder();
    Bytes in = words32({'x', 'y'});
    uint8_t out[16];
    uint32_t chars = 0;
    EXPECT_EQ(1u, d->decode(in.data(), 6, out, sizeof out, &chars));
    EXPECT_EQ(1u, chars);
    EXPECT_EQ(2u, bufferOf(d)->heldCount());
    EXPECT_EQ(1u, d->decode(in.data() + 6, 2, out, sizeof out, &chars));
    EXPECT_EQ('y', out[0]);
    delete d;
}

TEST(TextEncodingRoundTrip, EachEncodingKeepsWhatItCanHold) {
    struct Case {
        const char* name;
        std::initializer_list<uint32_t> text;
        std::initializer_list<uint32_t> back;
        bool lost;
    };
    const Case cases[] = {
        {"ascii", {'H', 'i', '!'}, {'H', 'i', '!'}, false},
        {"ascii", {'H', 0xE9, 0x4E2D, 0x1F600}, {'H', '~', '~', '~'}, true},
        {"iso-8859-1", {'H', 0xE9, 0xFF}, {'H', 0xE9, 0xFF}, false},
        {"iso-8859-1", {0x100, 0x4E2D, 0x1F600}, {'~', '~', '~'}, true},
        {"utf8", {'H', 0xE9, 0x4E2D, 0x1F600}, {'H', 0xE9, 0x4E2D, 0x1F600}, false},
        {"system-8", {'H', 0xE9, 0x4E2D, 0x1F600}, {'H', 0xE9, 0x4E2D, 0x1F600}, false},
        {"utf16", {'H', 0xE9, 0x4E2D, 0x1F600}, {'H', 0xE9, 0x4E2D, 0x1F600}, false},
        {"utf16be", {'H', 0xE9, 0x4E2D, 0x1F600}, {'H', 0xE9, 0x4E2D, 0x1F600}, false},
        {"utf16le", {'H', 0xE9, 0x4E2D, 0x1F600, 0x200000}, {'H', 0xE9, 0x4E2D, 0x1F600, 0xFFFD},
         true},
        {"wchar_t", {'H', 0xE9, 0x4E2D, 0x1F600, 0x200000}, {'H', 0xE9, 0x4E2D, 0x1F600, 0x200000},
         false},
    };
    for (const Case& c : cases) {
        Result out = encodeAll(c.name, internal(c.text));
        EXPECT_EQ(c.lost, out.lost) << c.name;
        Result in = decodeAll(c.name, out.out);
        EXPECT_EQ(internal(c.back), in.out) << c.name;
        EXPECT_EQ(c.back.size(), in.chars) << c.name;
    }
    // Invalid internal form comes back as one U+FFFD per broken sequence
    // wherever U+FFFD can be written.
    Bytes broken = bytesOf("a\xF0\x41\x42\x43\xC3");
    for (const char* name : {"utf8", "system-8", "utf16", "utf16be", "utf16le", "wchar_t"}) {
        Result out = encodeAll(name, broken);
        Result in = decodeAll(name, out.out);
        EXPECT_EQ(internal({'a', 0xFFFD, 'A', 'B', 'C'}), in.out) << name;
        // The UTF-8 encoder holds through its decoder, out of sight here.
        if (findEncoding(name)->unitWidth() == 1) continue;
        EXPECT_EQ(bytesOf("\xC3"), out.heldAfter) << name;  // the cut tail
    }
}

// --- Pieces: the same input in one piece and in every split ------------------

TEST(TextEncodingPieces, DecodersGiveTheSameForEverySplit) {
    std::mt19937 rng(12345);
    const Bytes samples[] = {
        bytesOf("plain ASCII that is long enough for the eight-byte path"),
        bytesOf("Gr\xC3\xBC\xC3\x9F" "e \xE4\xB8\xAD\xE6\x96\x87 \xF0\x9F\x98\x80 end"),
        bytesOf("bad \xE4\x41 \xF0\x80\x80\x41 \x80\xFE\xFF \xC0\x80 \xF8\x88\x80\x80\x80 "
                "\xFC\x84\x80\x80\x80\x80 \xE4\xB8"),
    };
    for (const char* name : kNames) {
        for (const Bytes& s : samples) checkSplits(true, name, s, rng);
    }
    for (const char* name : {"utf16", "utf16le", "utf16be"}) {
        bool big = strcmp(name, "utf16be") == 0;
        checkSplits(true, name,
                    units16({0xFEFF, 'a', 0xE9, 0x4E2D, 0xD83D, 0xDE00, 0xD800, 'b', 0xDC00,
                             0xD800, 0xD800, 0xDFFF, 'c', 'd', 'e', 'f', 'g', 'h', 0xD83D},
                            big),
                    rng);
    }
    Bytes words = words32({0xFEFF, 'a', 0xE9, 'b', 'c', 'd', 'e', 'f', 0x1F600, 0x80000000u,
                           0x7FFFFFFF, 'z'});
    words.push_back('!');
    checkSplits(true, "wchar_t", words, rng);
}

TEST(TextEncodingPieces, EncodersGiveTheSameForEverySplit) {
    std::mt19937 rng(54321);
    const Bytes samples[] = {
        bytesOf("plain ASCII that is long enough for the eight-byte path"),
        cat(internal({'a', 0xE9, 0xFF, 0x100, 0x4E2D, 0x1F600, 0x10FFFF, 0x110000, 0xD800,
                      0x7FFFFFFF, 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i'}),
            bytesOf("\xE4\x41\xF0\x80\x80\x41\x80\xFE\xFF\xC0\x80\xE4\xB8")),
    };
    for (const char* name : kNames) {
        for (const Bytes& s : samples) checkSplits(false, name, s, rng);
    }
}

TEST(TextEncodingPieces, RandomTextAgreesWithTheModelInOnePieceAndInPieces) {
    std::mt19937 rng(777);
    for (int round = 0; round < 60; ++round) {
        Bytes text = randomInternal(rng, 30);
        for (const char* name : kNames) {
            Result model = modelEncode(name, text);
            Result whole = encodeAll(name, text);
            EXPECT_EQ(model.out, whole.out) << name << " round " << round;
            EXPECT_EQ(model.lost, whole.lost) << name << " round " << round;
            if (strcmp(name, "utf8") && strcmp(name, "system-8")) {
                EXPECT_EQ(model.heldAfter, whole.heldAfter) << name;
            }
            std::vector<size_t> cuts;
            for (size_t i = 0, n = rng() % 10; i < n; ++i) cuts.push_back(rng() % (text.size() + 1));
            std::sort(cuts.begin(), cuts.end());
            expectSame(whole, encodePieces(name, text, cuts), std::string(name) + " in pieces");
        }
        for (const char* name : kNames) {
            Bytes in = randomOutside(name, rng, 30);
            Result model = modelDecode(name, in);
            Result whole = decodeAll(name, in);
            EXPECT_EQ(model.out, whole.out) << name << " round " << round;
            EXPECT_EQ(model.chars, whole.chars) << name << " round " << round;
            std::vector<size_t> cuts;
            for (size_t i = 0, n = rng() % 10; i < n; ++i) cuts.push_back(rng() % (in.size() + 1));
            std::sort(cuts.begin(), cuts.end());
            expectSame(whole, decodePieces(name, in, cuts), std::string(name) + " in pieces");
        }
    }
}

TEST(TextEncodingPieces, EdgeSequencesAtEveryOffsetOfTheFastPaths) {
    // Each edge sequence, and each pair of them, inside plain text at every
    // offset of an eight-byte block: the block-wise paths must give what
    // the character-by-character model gives.
    const size_t edges = sizeof kEdgeSequences / sizeof kEdgeSequences[0];
    for (size_t e = 0; e < edges; ++e) {
        for (size_t f = 0; f <= edges; ++f) {
            for (size_t offset = 0; offset < 18; ++offset) {
                for (size_t tail : {0, 3, 12}) {
                    Bytes text(offset, 'a');
                    text.insert(text.end(), kEdgeSequences[e], kEdgeSequences[e] + strlen(kEdgeSequences[e]));
                    if (f < edges) {
                        text.insert(text.end(), kEdgeSequences[f], kEdgeSequences[f] + strlen(kEdgeSequences[f]));
                    }
                    text.insert(text.end(), tail, 'z');
                    for (const char* name : {"ascii", "iso-8859-1", "utf8", "utf16be", "wchar_t"}) {
                        Result model = modelEncode(name, text);
                        Result whole = encodeAll(name, text);
                        ASSERT_EQ(model.out, whole.out) << name << " " << e << " " << f << " " << offset;
                        ASSERT_EQ(model.lost, whole.lost) << name << " " << e << " " << f << " " << offset;
                    }
                    Result model = modelDecode("utf8", text);
                    Result whole = decodeAll("utf8", text);
                    ASSERT_EQ(model.out, whole.out) << e << " " << f << " " << offset;
                    ASSERT_EQ(model.chars, whole.chars) << e << " " << f << " " << offset;
                }
            }
        }
    }
}

TEST(TextEncodingPieces, LongTextInPiecesOfEachSize) {
    // A long run through every piece size from 1 to 40 bytes, so the held
    // bytes meet every position of every sequence and of the fast paths.
    std::mt19937 rng(4242);
    Bytes text = randomInternal(rng, 400);
    for (const char* name : kNames) {
        Result whole = encodeAll(name, text);
        Result decoded = decodeAll(name, whole.out);
        for (size_t step = 1; step <= 40; ++step) {
            std::vector<size_t> cuts;
            for (size_t c = step; c < text.size(); c += step) cuts.push_back(c);
            expectSame(whole, encodePieces(name, text, cuts), std::string(name) + " encode step");
            cuts.clear();
            for (size_t c = step; c < whole.out.size(); c += step) cuts.push_back(c);
            expectSame(decoded, decodePieces(name, whole.out, cuts), std::string(name) + " decode step");
        }
    }
}

// --- Output room ---------------------------------------------------------------

TEST(TextEncodingRoom, NothingIsWrittenPastTheRoom) {
    // Every decoder and encoder, every room from 0 up to the full size: the
    // bytes behind the room stay untouched.
    Bytes text = internal({'a', 0xE9, 0x4E2D, 0x1F600, 0x110000, 'b', 'c', 'd', 'e', 'f', 'g', 'h',
                           'i', 'j'});
    for (const char* name : kNames) {
        Result full = encodeAll(name, text);
        for (uint32_t room = 0; room <= full.out.size(); ++room) {
            TextEncoderI* e = findEncoding(name)->newEncoder();
            Bytes out(room + 8, 0xA5);
            uint32_t n = e->encode(text.data(), static_cast<uint32_t>(text.size()), out.data(), room,
                                   nullptr);
            EXPECT_LE(n, room) << name;
            for (size_t k = room; k < out.size(); ++k) EXPECT_EQ(0xA5, out[k]) << name << " " << room;
            // Whatever was held stays usable.
            uint8_t more[64];
            e->encode("xyz", 3, more, sizeof more, nullptr);
            delete e;
        }
        Bytes outside = full.out;
        Result decoded = decodeAll(name, outside);
        for (uint32_t room = 0; room <= decoded.out.size(); ++room) {
            TextDecoderI* d = findEncoding(name)->newDecoder();
            Bytes out(room + 8, 0xA5);
            uint32_t n = d->decode(outside.data(), static_cast<uint32_t>(outside.size()), out.data(),
                                   room, nullptr);
            EXPECT_LE(n, room) << name;
            for (size_t k = room; k < out.size(); ++k) EXPECT_EQ(0xA5, out[k]) << name << " " << room;
            uint8_t more[64];
            d->decode(outside.data(), static_cast<uint32_t>(outside.size()), more, sizeof more,
                      nullptr);
            d->decodedSize(outside.data(), static_cast<uint32_t>(outside.size()));
            delete d;
        }
    }
}

TEST(TextEncodingRoom, RandomTextAndRandomRoomStayInside) {
    // Short room in the middle of the block paths, for random text of every
    // kind; whatever stays held must still be usable by the next call.
    std::mt19937 rng(31337);
    for (int round = 0; round < 200; ++round) {
        Bytes text = randomInternal(rng, 20);
        for (const char* name : kNames) {
            TextEncoderI* e = findEncoding(name)->newEncoder();
            uint32_t size = e->encodedSize(text.data(), static_cast<uint32_t>(text.size()));
            uint32_t room = size ? static_cast<uint32_t>(rng() % (size + 1)) : 0;
            Bytes out(room + 40, 0xA5);
            uint32_t n = e->encode(text.data(), static_cast<uint32_t>(text.size()), out.data(), room,
                                   nullptr);
            EXPECT_LE(n, room) << name;
            for (size_t k = room; k < out.size(); ++k) ASSERT_EQ(0xA5, out[k]) << name << " " << room;
            Bytes more(4 * text.size() + 64);
            e->encode(text.data(), static_cast<uint32_t>(text.size()), more.data(),
                      static_cast<uint32_t>(more.size()), nullptr);
            delete e;

            Bytes outside = encodeAll(name, text).out;
            TextDecoderI* d = findEncoding(name)->newDecoder();
            size = d->decodedSize(outside.data(), static_cast<uint32_t>(outside.size()));
            room = size ? static_cast<uint32_t>(rng() % (size + 1)) : 0;
            Bytes in(room + 40, 0xA5);
            n = d->decode(outside.data(), static_cast<uint32_t>(outside.size()), in.data(), room,
                          nullptr);
            EXPECT_LE(n, room) << name;
            for (size_t k = room; k < in.size(); ++k) ASSERT_EQ(0xA5, in[k]) << name << " " << room;
            more.assign(4 * outside.size() + 64, 0);
            d->decode(outside.data(), static_cast<uint32_t>(outside.size()), more.data(),
                      static_cast<uint32_t>(more.size()), nullptr);
            delete d;
        }
    }
}

TEST(TextEncodingRoom, ShortRoomLosesTheCharacterThatDidNotFit) {
    // The buffered decoders read a character before they find no room for
    // it: it is consumed and lost, and what follows is held if it fits.
    TextDecoderI* d = findEncoding("utf8")->newDecoder();
    uint8_t out[8];
    uint32_t chars = 0;
    EXPECT_EQ(1u, d->decode("a\xC3\xA9" "bc", 5, out, 2, &chars));
    EXPECT_EQ(1u, chars);
    EXPECT_EQ(bytesOf("bc"), heldOf(bufferOf(d)));
    // The held characters come out first in the next call.
    EXPECT_EQ(3u, d->decode("d", 1, out, sizeof out, &chars));
    EXPECT_EQ(bytesOf("bcd"), Bytes(out, out + 3));
    EXPECT_EQ(3u, chars);
    delete d;

    // The 8-bit decoders count all input as used even when the room ended.
    d = findEncoding("iso-8859-1")->newDecoder();
    EXPECT_EQ(1u, d->decode("a\xE9z", 3, out, 2, &chars));
    EXPECT_EQ(3u, chars);
    delete d;
    d = findEncoding("ascii")->newDecoder();
    EXPECT_EQ(1u, d->decode("a\xE9z", 3, out, 3, &chars));
    EXPECT_EQ(3u, chars);
    delete d;

    // A pair that does not fit is not written half or past the room.
    TextEncoderI* e = findEncoding("utf16le")->newEncoder();
    Bytes pair = internal({'a', 0x1F600});
    uint8_t units[8];
    memset(units, 0xA5, sizeof units);
    EXPECT_EQ(2u, e->encode(pair.data(), static_cast<uint32_t>(pair.size()), units, 4, nullptr));
    EXPECT_EQ(0xA5, units[2]);
    delete e;
}

TEST(TextEncodingHeld, HelpersOfTheBuffer) {
    UTF8TextDecoderC d;
    d.appendHeld(reinterpret_cast<const uint8_t*>("\xF0\x9F"), 2);
    EXPECT_EQ(2u, d.heldCount());
    uint32_t taken = 9, total = 9;
    // Not enough input to finish: all of it is taken, the total is short.
    const uint8_t* p = d.completeHeld(reinterpret_cast<const uint8_t*>("\x98"), 1, &taken, &total);
    EXPECT_EQ(d.heldBytes(), p);
    EXPECT_EQ(1u, taken);
    EXPECT_EQ(3u, total);
    EXPECT_EQ(2u, d.heldCount());  // the copy behind is not held
    p = d.completeHeld(reinterpret_cast<const uint8_t*>("\x98\x80zz"), 4, &taken, &total);
    EXPECT_EQ(2u, taken);
    EXPECT_EQ(4u, total);
    EXPECT_EQ(bytesOf("\xF0\x9F\x98\x80"), Bytes(p, p + 4));

    // A tail that does not fit is dropped whole.
    d.appendHeld(reinterpret_cast<const uint8_t*>("12345"), 5);
    EXPECT_EQ(2u, d.heldCount());
    d.appendHeld(reinterpret_cast<const uint8_t*>("1234"), 4);
    EXPECT_EQ(6u, d.heldCount());
    d.snapshot();
    d.dropHeld(3);
    EXPECT_EQ(bytesOf("234"), heldOf(&d));
    d.snapshot();  // the first copy stays
    d.dropHeld(100);
    EXPECT_EQ(0u, d.heldCount());
    d.restore();
    EXPECT_EQ(bytesOf("\xF0\x9F" "1234"), heldOf(&d));
    d.restore();  // nothing kept any more
    EXPECT_EQ(6u, d.heldCount());

    d.dropHeld(6);
    taken = total = 9;
    EXPECT_EQ(nullptr, d.completeHeld(reinterpret_cast<const uint8_t*>("a"), 1, &taken, &total));
    EXPECT_EQ(0u, taken);
    EXPECT_EQ(0u, total);
}

TEST(TextEncodingHeld, MaxOutputCoversEveryInput) {
    // maxOutput is an upper bound for a fresh decoder on any input.
    std::mt19937 rng(99);
    for (const char* name : kNames) {
        for (int round = 0; round < 50; ++round) {
            Bytes in(rng() % 64);
            for (auto& b : in) b = static_cast<uint8_t>(rng());
            TextDecoderI* d = findEncoding(name)->newDecoder();
            EXPECT_LE(d->decodedSize(in.data(), static_cast<uint32_t>(in.size())),
                      d->maxOutput(static_cast<uint32_t>(in.size())))
                << name;
            delete d;
        }
    }
}

// --- Strings made from each encoding and given out in each -------------------

TEST(TextEncodingStrings, RoundTripThroughStringsInEveryEncoding) {
    struct Case {
        const char* name;
        std::initializer_list<uint32_t> text;
    };
    // What each encoding can hold, with enough ASCII around it for the fast paths.
    const Case cases[] = {
        {"ascii", {'p', 'l', 'a', 'i', 'n', ' ', 't', 'e', 'x', 't', ' ', 'o', 'n', 'l', 'y', '!', '?'}},
        {"iso-8859-1", {'G', 'r', 0xFC, 0xDF, 'e', ' ', 'a', 'u', 's', ' ', 'M', 0xFC, 'n', 'c', 'h', 'e', 'n', 0xFF}},
        {"utf8", {'a', 0xE9, 0x4E2D, 0x6587, 0x1F600, 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'}},
        {"system-8", {'a', 0xE9, 0x4E2D, 0x1F600, 'z'}},
        {"utf16", {'a', 0xE9, 0x4E2D, 0x6587, 0x1F600, 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l'}},
        {"utf16be", {'a', 0xE9, 0x4E2D, 0x1F600, 'z'}},
        {"utf16le", {'a', 0xE9, 0x4E2D, 0x1F600, 'z'}},
        {"wchar_t", {'a', 0xE9, 0x4E2D, 0x1F600, 'z', 0x10FFFF}},
    };
    for (const Case& c : cases) {
        Bytes text = internal(c.text);
        Bytes outside = encodeAll(c.name, text).out;
        StringC s(outside.data(), static_cast<uint32_t>(outside.size()), c.name);
        EXPECT_EQ(static_cast<int32_t>(c.text.size()), s.length()) << c.name;
        ASSERT_EQ(text.size(), s.textUtf8Length()) << c.name;
        const char* utf8 = s.textUtf8();
        EXPECT_EQ(0, memcmp(utf8, text.data(), text.size())) << c.name;
        s.releaseUtf8(utf8);

        // And out again in its own encoding, terminator included.
        uint32_t width = findEncoding(c.name)->unitWidth();
        uint32_t size = 0;
        uint8_t none = 0;
        EXPECT_TRUE(s.copyText(&none, &size, c.name)) << c.name;
        EXPECT_EQ(outside.size(), size) << c.name;
        Bytes back(size + width, 0xA5);
        size = static_cast<uint32_t>(back.size());
        EXPECT_TRUE(s.copyText(back.data(), &size, c.name)) << c.name;
        EXPECT_EQ(outside, Bytes(back.begin(), back.begin() + size)) << c.name;
        for (uint32_t k = 0; k < width; ++k) EXPECT_EQ(0, back[size + k]) << c.name;
    }
}

TEST(TextEncodingStrings, TextAccessorsOfEachEncoding) {
    StringC s(internal({'a', 0xE9, 0x4E2D, 0x1F600}).data(), 10, "utf8");
    ASSERT_EQ(4, s.length());
    const uint16_t* units = s.textUtf16();
    const uint16_t expect16[] = {'a', 0xE9, 0x4E2D, 0xD83D, 0xDE00, 0};
    EXPECT_EQ(0, memcmp(expect16, units, sizeof expect16));
    s.releaseUtf16(units);
    EXPECT_EQ(10u, s.textUtf16Length());
    const wchar_t* wide = s.textWide();
    EXPECT_EQ(std::wstring(L"a\u00E9\u4E2D\U0001F600"), std::wstring(wide));
    s.releaseWide(wide);
    EXPECT_EQ(16u, s.textWideLength());
    const char* latin = s.textLatin1();
    EXPECT_STREQ("a\xE9~~", latin);
    s.releaseLatin1(latin);
    const char* system = s.textSystem();
    EXPECT_STREQ("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80", system);
    s.releaseSystem(system);

    // The other ways in: 16-bit and wide text with a terminator.
    EXPECT_EQ(0, StringC(expect16).compare(s));
    EXPECT_EQ(0, StringC(L"a\u00E9\u4E2D\U0001F600").compare(s));
    // A cut sequence at the end of bytes for one string is dropped.
    EXPECT_EQ(3, StringC("abc\xE4", "utf8").length());
    // Bad input is replaced, never refused.
    StringC bad("A\xE9", "ascii");
    EXPECT_EQ(2, bad.length());
    EXPECT_EQ(0xFFFDu, bad.charAt(1));
}
