// Conversions between the internal form and the eight encodings: lookup,
// marks, the replacements, the bytes held between pieces, and agreement of
// the block paths with the plain loop (fuzz/encoding_fuzz.cpp holds both to
// a character-by-character model on any input).
#include "text/textencoding.h"

#include <gtest/gtest.h>
#include <keel/string.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "text/utf8.h"

using namespace keel;
using keel::StringC;

namespace {

typedef std::vector<uint8_t> Bytes;

const char* const kNames[] = {"ascii", "system-8", "iso-8859-1", "utf8",
                              "utf16", "utf16be",  "utf16le",    "wchar_t"};

Bytes bytesOf(const char* s) { return Bytes(s, s + strlen(s)); }
uint32_t size32(const Bytes& b) { return static_cast<uint32_t>(b.size()); }

void put8(Bytes& out, uint32_t v) {
    uint8_t buf[8];
    uint8_t* p = buf;
    utf8Put(p, v);
    out.insert(out.end(), buf, p);
}

// Internal form of a list of values.
Bytes internal(std::initializer_list<uint32_t> values) {
    Bytes r;
    for (uint32_t v : values) put8(r, v);
    return r;
}

Bytes units16(std::initializer_list<uint16_t> units, bool bigEndian) {
    Bytes r;
    for (uint16_t u : units) {
        r.push_back(static_cast<uint8_t>(bigEndian ? u >> 8 : u));
        r.push_back(static_cast<uint8_t>(bigEndian ? u : u >> 8));
    }
    return r;
}

Bytes words32(std::initializer_list<uint32_t> words) {
    Bytes r(4 * words.size());
    memcpy(r.data(), words.begin(), r.size());
    return r;
}

struct Result {
    Bytes out;
    uint32_t chars = 0;
    bool lost = false;
    Bytes heldAfter;
};

Bytes heldOf(const UnusedByteBufferC* b) {
    return b ? Bytes(b->heldBytes(), b->heldBytes() + b->heldCount()) : Bytes();
}

// One decoder or encoder behind one face, so every check runs both ways.
struct Coder {
    TextDecoderI* d = nullptr;
    TextEncoderI* e = nullptr;
    Coder(bool decoding, const char* name) {
        if (decoding) {
            d = findEncoding(name)->newDecoder();
        } else {
            e = findEncoding(name)->newEncoder();
        }
    }
    ~Coder() {
        delete d;
        delete e;
    }
    const UnusedByteBufferC* buffer() const {
        return d ? dynamic_cast<UnusedByteBufferC*>(d) : dynamic_cast<UnusedByteBufferC*>(e);
    }
    uint32_t size(const uint8_t* in, uint32_t length) { return d ? d->decodedSize(in, length) : e->encodedSize(in, length); }
    uint32_t run(const uint8_t* in, uint32_t length, uint8_t* out, uint32_t room, uint32_t* chars = nullptr,
                 bool* lost = nullptr) {
        return d ? d->decode(in, length, out, room, chars) : e->encode(in, length, out, room, lost);
    }
};

// Feeds `in` in the given pieces, with room from the size question for each
// piece. Checks on the way that every size is exact and leaves the held
// bytes alone.
Result pieces(bool decoding, const char* name, const Bytes& in, const std::vector<size_t>& cuts) {
    Coder c(decoding, name);
    Result r;
    size_t from = 0;
    for (size_t i = 0; i <= cuts.size(); ++i) {
        size_t to = i < cuts.size() ? cuts[i] : in.size();
        const uint8_t* piece = in.data() + from;
        uint32_t length = static_cast<uint32_t>(to - from);
        Bytes heldBefore = heldOf(c.buffer());
        uint32_t size = c.size(piece, length);
        EXPECT_EQ(heldBefore, heldOf(c.buffer())) << name << " the size question changed held bytes";
        EXPECT_EQ(size, c.size(piece, length)) << name;
        Bytes out(size + 8, 0xA5);
        uint32_t chars = 0;
        bool lost = !decoding;  // the encoder must clear it
        uint32_t n = c.run(piece, length, out.data(), size, &chars, &lost);
        EXPECT_EQ(size, n) << name << " piece " << from << ".." << to;
        for (size_t k = size; k < out.size(); ++k) EXPECT_EQ(0xA5, out[k]) << name;
        r.out.insert(r.out.end(), out.begin(), out.begin() + n);
        r.chars += chars;
        r.lost = r.lost || (!decoding && lost);
        from = to;
    }
    r.heldAfter = heldOf(c.buffer());
    return r;
}

Result decodeAll(const char* name, const Bytes& in) { return pieces(true, name, in, {}); }
Result encodeAll(const char* name, const Bytes& in) { return pieces(false, name, in, {}); }

// One byte at a time: no block is ever whole, so every character takes the
// plain loop (and the bytes held between calls).
Result byteByByte(bool decoding, const char* name, const Bytes& in) {
    std::vector<size_t> cuts;
    for (size_t i = 1; i < in.size(); ++i) cuts.push_back(i);
    return pieces(decoding, name, in, cuts);
}

// Nothing is written past `room`, and what stayed held is still usable by
// the next call.
void expectWithinRoom(bool decoding, const char* name, const Bytes& in, uint32_t room) {
    Coder c(decoding, name);
    Bytes out(room + 40, 0xA5), more(4 * in.size() + 64);
    EXPECT_LE(c.run(in.data(), size32(in), out.data(), room), room) << name;
    for (size_t k = room; k < out.size(); ++k) ASSERT_EQ(0xA5, out[k]) << name << " room " << room;
    c.run(in.data(), size32(in), more.data(), size32(more));
    c.size(in.data(), size32(in));
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
const size_t kEdges = sizeof kEdgeSequences / sizeof kEdgeSequences[0];

void putEdge(Bytes& r, size_t e) { r.insert(r.end(), kEdgeSequences[e], kEdgeSequences[e] + strlen(kEdgeSequences[e])); }

// Random text of runs: ASCII (long enough for the eight-byte paths), Latin-1,
// two- and three-byte characters, supplementary ones, edge sequences and junk.
Bytes randomInternal(std::mt19937& rng, size_t items) {
    Bytes r;
    for (size_t i = 0; i < items; ++i) {
        switch (rng() % 8) {
        case 7: putEdge(r, rng() % kEdges); break;
        case 0:
        case 1:
            for (size_t k = 0, n = rng() % 20; k < n; ++k) r.push_back(static_cast<uint8_t>(0x20 + rng() % 0x5F));
            break;
        case 2: put8(r, 0x80 + rng() % 0x80); break;
        case 3: put8(r, 0x100 + rng() % 0x700); break;
        case 4: put8(r, 0x800 + rng() % 0xF000); break;
        case 5: put8(r, 0x10000 + rng() % 0x100000); break;
        default: r.push_back(static_cast<uint8_t>(rng())); break;
        }
    }
    return r;
}

// Random bytes in an outside encoding: random text as the encoder writes it,
// with some bytes overwritten by junk.
Bytes randomOutside(const std::string& name, std::mt19937& rng, size_t items) {
    Bytes r = randomInternal(rng, items);  // UTF-8 as it is, edge sequences included
    if (name != "utf8" && name != "system-8") r = encodeAll(name.c_str(), r).out;
    for (size_t i = 0, n = rng() % 4; i < n && !r.empty(); ++i) r[rng() % r.size()] = static_cast<uint8_t>(rng());
    // A block that starts with a mark loses it, and an odd byte shifts the
    // units, so a mark could turn up in either order: no byte FE at all.
    if (name.compare(0, 5, "utf16") == 0) std::replace(r.begin(), r.end(), uint8_t(0xFE), uint8_t(0xFD));
    return r;
}

}  // namespace

// --- Lookup and the encoding objects ----------------------------------------

TEST(TextEncodingLookup, FindsTheEightNamesIgnoringBitFive) {
    for (const char* a : kNames) {
        EXPECT_NE(nullptr, findEncoding(a)) << a;
        for (const char* b : kNames) EXPECT_EQ(a == b, findEncoding(a) == findEncoding(b)) << a << " " << b;
    }
    EXPECT_EQ(findEncoding("utf16le"), findEncoding("UTF16LE"));
    EXPECT_EQ(findEncoding("system-8"), findEncoding("SYSTEM\x0D" "8"));  // 0x0D ^ 0x2D == 0x20
    for (const char* name : {"vutf8", "latin1", "utf-8", " utf8", ""}) EXPECT_EQ(nullptr, findEncoding(name)) << name;
    EXPECT_EQ(nullptr, findEncoding(nullptr));
    EXPECT_FALSE(encodingNamesEqual("utf8", "utf8x"));
    EXPECT_FALSE(encodingNamesEqual("utf8x", "utf8"));
    EXPECT_FALSE(encodingNamesEqual("utf8 ", "utf8"));  // a blank is not the terminator
    EXPECT_TRUE(encodingNamesEqual("", ""));
    const char* same = "not a name at all";
    EXPECT_TRUE(encodingNamesEqual(same, same));
    EXPECT_FALSE(encodingNamesEqual(nullptr, "utf8"));
    EXPECT_TRUE(encodingNamesEqual(nullptr, nullptr));
}

TEST(TextEncodingObjects, MarksUnitWidthsAndTheEncodingOfEachCoder) {
    struct Row { const char* name; const char* mark; uint32_t width; };
    const Row rows[] = {{"ascii", "", 1},          {"system-8", "", 1},    {"iso-8859-1", "", 1},
                        {"utf8", "\xEF\xBB\xBF", 1}, {"utf16", "\xFF\xFE", 2}, {"utf16be", "\xFE\xFF", 2},
                        {"utf16le", "\xFF\xFE", 2},  {"wchar_t", "", 4}};
    for (const Row& row : rows) {
        TextEncodingI* enc = findEncoding(row.name);
        uint32_t length = 99;
        const uint8_t* mark = enc->byteOrderMark(&length);
        EXPECT_EQ(bytesOf(row.mark), mark ? Bytes(mark, mark + length) : Bytes()) << row.name;
        EXPECT_EQ(*row.mark ? mark : nullptr, enc->byteOrderMark(nullptr)) << row.name;
        EXPECT_EQ(strlen(row.mark), length) << row.name;
        EXPECT_EQ(row.width, enc->unitWidth()) << row.name;
        // The UTF-8 classes answer the "utf8" object, also when "system-8"
        // made them; that is how a writer on "system-8" finds its direct path.
        TextEncodingI* answered = strcmp(row.name, "system-8") ? enc : findEncoding("utf8");
        Coder d(true, row.name), e(false, row.name);
        EXPECT_EQ(answered, d.d->getEncoding()) << row.name;
        EXPECT_EQ(answered, e.e->getEncoding()) << row.name;
    }
    // The library's load steps have run before any test: the byte order of
    // the UTF-16 classes is told by these two addresses.
    EXPECT_EQ(findEncoding("utf16be"), utf16OrderObject(true));
    EXPECT_EQ(findEncoding("utf16le"), utf16OrderObject(false));
}

TEST(TextEncodingObjectsThread, ConcurrentFirstUseGivesOneObjectEach) {
    std::vector<std::thread> threads;
    std::vector<std::vector<TextEncodingI*>> seen(8);
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &seen] {
            for (const char* name : kNames) seen[t].push_back(findEncoding(name));
            Bytes be = units16({0xFEFF, 0x00E9}, true);
            uint8_t out[8];
            Coder(true, "utf16").run(be.data(), size32(be), out, sizeof out);
        });
    }
    for (auto& th : threads) th.join();
    for (int t = 1; t < 8; ++t) EXPECT_EQ(seen[0], seen[t]);
}

// --- The replacements and the edge cases of each encoding --------------------
// Only what the random test below cannot see: marks (its UTF-16 input has no
// byte FE), values beyond 31 bits, and the tails left held. Broken UTF-8,
// surrogates and what each encoder replaces are held to a character model by
// fuzz/encoding_fuzz.cpp; utf8_test and utf16_test pin down its steps.

TEST(TextEncodingCases, DecodersReplaceAndKeepTheirTails) {
    struct Case { const char* name; Bytes in, out; uint32_t chars; Bytes held; };
    const Case cases[] = {
        {"ascii", bytesOf("A\xE9"), internal({0x41, 0xFFFD}), 2, {}},
        {"utf8", internal({'a', 0xE9, 0x4E2D, 0x1F600, 0x7FFFFFFF, 0xD800}),
         internal({'a', 0xE9, 0x4E2D, 0x1F600, 0x7FFFFFFF, 0xD800}), 6, {}},
        // The mark is no business of the UTF-8 decoder: it arrives as U+FEFF.
        {"utf8", bytesOf("\xEF\xBB\xBFx"), internal({0xFEFF, 'x'}), 2, {}},
        // A string made in one go drops what is left held.
        {"utf8", bytesOf("abc\xE4"), bytesOf("abc"), 3, {0xE4}},
        {"utf16", {0xFF, 0xFE, 0x41, 0x00}, internal({'A'}), 1, {}},
        {"utf16", {0x41, 0x00}, internal({'A'}), 1, {}},
        {"utf16", {0xFE, 0xFF, 0x00, 0x41}, internal({'A'}), 1, {}},
        {"utf16le", {0xFF, 0xFE, 0x41, 0x00}, internal({'A'}), 1, {}},
        {"utf16be", {0xFE, 0xFF, 0x00, 0x41}, internal({'A'}), 1, {}},
        // The other order's mark is a character of this order: U+FFFE; and
        // only the head of a block can be a mark.
        {"utf16be", {0xFF, 0xFE, 0x00, 0x41}, internal({0xFFFE, 'A'}), 2, {}},
        {"utf16le", {0xFE, 0xFF, 0x41, 0x00}, internal({0xFFFE, 'A'}), 2, {}},
        {"utf16le", {0x41, 0x00, 0xFF, 0xFE}, internal({'A', 0xFEFF}), 2, {}},
        {"utf16le", {0x41, 0x00, 0x42}, internal({'A'}), 1, {0x42}},
        {"wchar_t", words32({'a', 0xE9, 0x1F600, 0x7FFFFFFF}), internal({'a', 0xE9, 0x1F600, 0x7FFFFFFF}), 4, {}},
        // A value without internal form writes nothing but is counted.
        {"wchar_t", words32({'a', 0x80000000u, 'b'}), bytesOf("ab"), 3, {}},
        // Surrogates and values above the Unicode range are not checked.
        {"wchar_t", words32({0xD800, 0x110000}), internal({0xD800, 0x110000}), 2, {}},
        {"wchar_t", Bytes(6, 'x'), internal({0x78787878}), 1, {'x', 'x'}},
    };
    for (const Case& c : cases) {
        Result r = decodeAll(c.name, c.in);
        EXPECT_EQ(c.out, r.out) << c.name << " " << &c - cases;
        EXPECT_EQ(c.chars, r.chars) << c.name << " " << &c - cases;
        EXPECT_EQ(c.held, r.heldAfter) << c.name << " " << &c - cases;
    }
    for (bool big : {false, true}) {
        const char* name = big ? "utf16be" : "utf16le";
        // A high surrogate at the end waits for its partner.
        Result r = decodeAll(name, units16({'a', 0xD800}, big));
        EXPECT_EQ(internal({'a'}), r.out);
        EXPECT_EQ(2u, r.heldAfter.size());
    }
    Coder ascii(true, "ascii");
    EXPECT_EQ(4u, ascii.size(bytesOf("A\xE9").data(), 2));
    EXPECT_EQ(6u * 1000, ascii.d->maxOutput(2000));
}

// A cut sequence is held until the next piece (pieces() checks each piece's
// size and output, the random test below every cut of one byte).
TEST(TextEncodingCases, CutSequenceIsHeldUntilTheNextPiece) {
    // A sequence cut twice, and a unit cut in two.
    EXPECT_EQ(internal({0x1F600}), pieces(true, "utf8", bytesOf("\xF0\x9F\x98\x80"), {1, 2}).out);
    EXPECT_EQ(internal({'A', 'B'}), pieces(true, "utf16le", Bytes{0x41, 0x00, 0x42, 0x00}, {1, 3}).out);
    // Fed as two blocks, the second block's U+FEFF is taken for a mark.
    Result split = pieces(true, "utf16le", units16({'A', 0xFEFF, 'B'}, false), {2});
    EXPECT_EQ(internal({'A', 'B'}), split.out);
    EXPECT_EQ(2u, split.chars);
}

// --- The block paths against the plain loop ---------------------------------

// Whole input against the same input one byte at a time; that any other cut
// gives the same, and that the plain loop agrees with a character model, is
// fuzz/encoding_fuzz.cpp's check on every input.
TEST(TextEncodingPieces, RandomTextAgreesWithThePlainLoop) {
    std::mt19937 rng(777);
    for (int round = 0; round < 60; ++round) {
        Bytes text = randomInternal(rng, 30);
        for (const char* name : kNames) {
            SCOPED_TRACE(::testing::Message() << name << " round " << round);
            Result plain = byteByByte(false, name, text), whole = encodeAll(name, text);
            EXPECT_EQ(plain.out, whole.out);
            EXPECT_EQ(plain.lost, whole.lost);
            EXPECT_EQ(plain.heldAfter, whole.heldAfter);
            Bytes in = randomOutside(name, rng, 30);
            plain = byteByByte(true, name, in);
            whole = decodeAll(name, in);
            EXPECT_EQ(plain.out, whole.out);
            EXPECT_EQ(plain.chars, whole.chars);
            EXPECT_EQ(plain.heldAfter, whole.heldAfter);
            EXPECT_LE(whole.out.size(), Coder(true, name).d->maxOutput(size32(in)));
        }
    }
}

// --- Output room ---------------------------------------------------------------

TEST(TextEncodingRoom, NothingIsWrittenPastTheRoom) {
    // A random room, in the middle of the block paths, for random text of every kind.
    std::mt19937 rng(31337);
    for (int round = 0; round < 200; ++round) {
        Bytes random = randomInternal(rng, 20);
        for (const char* name : kNames) {
            Bytes outside = encodeAll(name, random).out;
            expectWithinRoom(false, name, random, static_cast<uint32_t>(rng() % (outside.size() + 1)));
            uint32_t decoded = Coder(true, name).size(outside.data(), size32(outside));
            expectWithinRoom(true, name, outside, static_cast<uint32_t>(rng() % (decoded + 1)));
        }
    }
}

// Eight units of three UTF-8 bytes each fill one block of the UTF-16
// decoders; random text seldom gives eight in a row.
TEST(TextEncodingRoom, BlockOfEightThreeByteUnits) {
    for (bool big : {false, true}) {
        const char* name = big ? "utf16be" : "utf16le";
        Bytes in = units16({0x4E00, 0x800, 0xFFFF, 0x4E2D, 0x4E00, 0xD7FF, 0xE000, 0x4E00, 'a'}, big);
        Result whole = decodeAll(name, in);
        EXPECT_EQ(internal({0x4E00, 0x800, 0xFFFF, 0x4E2D, 0x4E00, 0xD7FF, 0xE000, 0x4E00, 'a'}), whole.out) << name;
        EXPECT_EQ(9u, whole.chars) << name;
    }
}

TEST(TextEncodingRoom, ShortRoomLosesTheCharacterThatDidNotFit) {
    // The buffered decoders read a character before they find no room for
    // it: it is consumed and lost, and what follows is held if it fits.
    Coder d(true, "utf8");
    uint8_t out[8];
    uint32_t chars = 0;
    EXPECT_EQ(1u, d.run(bytesOf("a\xC3\xA9" "bc").data(), 5, out, 2, &chars));
    EXPECT_EQ(1u, chars);
    EXPECT_EQ(bytesOf("bc"), heldOf(d.buffer()));
    // The held characters come out first in the next call.
    EXPECT_EQ(3u, d.run(bytesOf("d").data(), 1, out, sizeof out, &chars));
    EXPECT_EQ(bytesOf("bcd"), Bytes(out, out + 3));
    EXPECT_EQ(3u, chars);
    // The 8-bit decoders count all input as used even when the room ended.
    for (const char* name : {"iso-8859-1", "ascii"}) {
        EXPECT_EQ(1u, Coder(true, name).run(bytesOf("a\xE9z").data(), 3, out, 2, &chars)) << name;
        EXPECT_EQ(3u, chars) << name;
    }
    // A pair that does not fit is not written half or past the room.
    Bytes pair = internal({'a', 0x1F600});
    memset(out, 0xA5, sizeof out);
    EXPECT_EQ(2u, Coder(false, "utf16le").run(pair.data(), size32(pair), out, 4));
    EXPECT_EQ(0xA5, out[2]);
}

// The held bytes run out and are dropped whole.
TEST(TextEncodingHeld, AnEmptyBuffer) {
    UTF8TextDecoderC d;
    d.appendHeld(bytesOf("\xF0\x9F").data(), 2);
    d.dropHeld(100);
    uint32_t taken = 9, total = 9;
    EXPECT_EQ(nullptr, d.completeHeld(bytesOf("a").data(), 1, &taken, &total));
    EXPECT_EQ(0u, taken + total);
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
        StringC s(outside.data(), size32(outside), c.name);
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
        size = size32(back);
        EXPECT_TRUE(s.copyText(back.data(), &size, c.name)) << c.name;
        EXPECT_EQ(outside, Bytes(back.begin(), back.begin() + size)) << c.name;
        EXPECT_EQ(Bytes(width, 0), Bytes(back.begin() + size, back.end())) << c.name;
    }
}
