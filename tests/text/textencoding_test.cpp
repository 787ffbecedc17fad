// Conversions between the internal form and the eight encodings: lookup,
// marks, the replacements, the bytes held between pieces, and agreement of
// the block paths with the plain loop (fuzz/encoding_fuzz.cpp holds both to
// a character-by-character model on any input).
#include "text/textencoding.h"

#include <gtest/gtest.h>
#include <keel/string.h>
#include <string.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "testing/stringmodel.h"
#include "testing/threads.h"

using namespace keel;
using namespace std::string_literals;
using testkit::utf8Of;

namespace {

// Bytes in and out, as a string so that failures print them escaped.
typedef std::string Bytes;

const char* const kNames[] = {"ascii", "system-8", "iso-8859-1", "utf8",
                              "utf16", "utf16be",  "utf16le",    "wchar_t"};

const uint8_t* at(const Bytes& b) { return reinterpret_cast<const uint8_t*>(b.data()); }
uint8_t* at(Bytes& b) { return reinterpret_cast<uint8_t*>(&b[0]); }
uint32_t size32(const Bytes& b) { return static_cast<uint32_t>(b.size()); }

Bytes units16(const std::u16string& units, bool bigEndian) {
    Bytes r;
    for (char16_t u : units) {
        r += static_cast<char>(bigEndian ? u >> 8 : u);
        r += static_cast<char>(bigEndian ? u : u >> 8);
    }
    return r;
}

Bytes words32(const std::u32string& words) {
    return Bytes(reinterpret_cast<const char*>(words.data()), 4 * words.size());
}

struct Result {
    Bytes out;
    uint32_t chars = 0;
    bool lost = false;
    Bytes heldAfter;
};

// One decoder or encoder behind one face, so every check runs both ways.
struct Coder {
    std::unique_ptr<TextDecoderI> d;
    std::unique_ptr<TextEncoderI> e;
    Coder(bool decoding, const char* name)
        : d(decoding ? findEncoding(name)->newDecoder() : nullptr),
          e(decoding ? nullptr : findEncoding(name)->newEncoder()) {}
    Bytes held() const {
        auto* b = d ? dynamic_cast<UnusedByteBufferC*>(d.get())
                    : dynamic_cast<UnusedByteBufferC*>(e.get());
        if (!b || b->heldCount() == 0) return Bytes();
        return Bytes(reinterpret_cast<const char*>(b->heldBytes()), b->heldCount());
    }
    uint32_t size(const Bytes& in) {
        return d ? d->decodedSize(at(in), size32(in)) : e->encodedSize(at(in), size32(in));
    }
    uint32_t run(const Bytes& in, Bytes& out, uint32_t room, uint32_t* chars = nullptr,
                 bool* lost = nullptr) {
        return d ? d->decode(at(in), size32(in), at(out), room, chars)
                 : e->encode(at(in), size32(in), at(out), room, lost);
    }
};

// Feeds `in` in the given pieces, with room from the size question for each
// piece. Checks on the way that every size is exact and leaves the held
// bytes alone.
Result pieces(bool decoding, const char* name, const Bytes& in, std::vector<size_t> cuts = {}) {
    Coder c(decoding, name);
    Result r;
    cuts.push_back(in.size());
    for (size_t i = 0, from = 0; i < cuts.size(); from = cuts[i++]) {
        Bytes piece = in.substr(from, cuts[i] - from), heldBefore = c.held();
        uint32_t size = c.size(piece);
        EXPECT_EQ(heldBefore, c.held()) << name << " the size question changed held bytes";
        EXPECT_EQ(size, c.size(piece)) << name;
        Bytes out(size + 8, '\xA5');
        uint32_t chars = 0;
        bool lost = !decoding;  // the encoder must clear it
        EXPECT_EQ(size, c.run(piece, out, size, &chars, &lost)) << name << " piece from " << from;
        EXPECT_EQ(Bytes(8, '\xA5'), out.substr(size)) << name;
        r.out += out.substr(0, size);
        r.chars += chars;
        r.lost = r.lost || (!decoding && lost);
    }
    r.heldAfter = c.held();
    return r;
}

// One byte at a time: no block is ever whole, so every character takes the
// plain loop (and the bytes held between calls).
Result byteByByte(bool decoding, const char* name, const Bytes& in) {
    std::vector<size_t> cuts(in.empty() ? 0 : in.size() - 1);
    std::iota(cuts.begin(), cuts.end(), 1);
    return pieces(decoding, name, in, cuts);
}

// Nothing is written past `room`, and what stayed held is still usable by
// the next call.
void expectWithinRoom(bool decoding, const char* name, const Bytes& in, uint32_t room) {
    Coder c(decoding, name);
    Bytes out(room + 40, '\xA5'), more(4 * in.size() + 64, 0);
    EXPECT_LE(c.run(in, out, room), room) << name;
    ASSERT_EQ(Bytes(40, '\xA5'), out.substr(room)) << name << " room " << room;
    c.run(in, more, size32(more));
    c.size(in);
}

// Sequences at the edges of what the fast paths take: overlong forms, values
// above U+10FFFF, surrogates, five and six bytes, and bytes that start nothing.
const char kEdgeSequences[] =
    "\xC0\x80 \xC1\xBF \xC2\x80 \xE0\x80\x80 \xE0\x9F\xBF \xE0\xA0\x80 \xED\xA0\x80 \xEF\xBF\xBF "
    "\xF0\x80\x80\x80 \xF0\x8F\xBF\xBF \xF0\x90\x80\x80 \xF4\x8F\xBF\xBF \xF4\x90\x80\x80 "
    "\xF5\x80\x80\x80 \xF7\xBF\xBF\xBF \xF8\x88\x80\x80\x80 \xFC\x84\x80\x80\x80\x80 "
    "\xFD\xBF\xBF\xBF\xBF\xBF \xFE \xFF \x80 \xBF \xE4\xB8 \xF0\x9F\x98 \xF0 \xF0\x80 \xF4 \xC3 "
    "\xE4 \xF0\x9F\x98\x80";

// Random text of runs: ASCII (long enough for the eight-byte paths), Latin-1,
// two- and three-byte characters, supplementary ones, edge sequences and junk.
Bytes randomInternal(std::mt19937& rng, size_t items) {
    static const uint32_t ranges[][2] = {
        {0x80, 0x80}, {0x100, 0x700}, {0x800, 0xF000}, {0x10000, 0x100000}};
    static const std::vector<std::string> edges = [] {
        std::istringstream in(kEdgeSequences);
        return std::vector<std::string>(std::istream_iterator<std::string>(in), {});
    }();
    Bytes r;
    for (size_t i = 0; i < items; ++i) {
        uint32_t kind = rng() % 8;
        if (kind < 2) {
            for (size_t k = 0, n = rng() % 20; k < n; ++k)
                r += static_cast<char>(0x20 + rng() % 0x5F);
        } else if (kind < 6) {
            r += utf8Of(std::u32string(1, ranges[kind - 2][0] + rng() % ranges[kind - 2][1]));
        } else if (kind == 6) {
            r += static_cast<char>(rng());
        } else {
            r += edges[rng() % edges.size()];
        }
    }
    return r;
}

// Random bytes in an outside encoding: random text as the encoder writes it,
// with some bytes overwritten by junk.
Bytes randomOutside(const std::string& name, std::mt19937& rng, size_t items) {
    Bytes r = randomInternal(rng, items);  // UTF-8 as it is, edge sequences included
    if (name != "utf8" && name != "system-8") r = pieces(false, name.c_str(), r).out;
    for (size_t i = 0, n = rng() % 4; i < n && !r.empty(); ++i)
        r[rng() % r.size()] = static_cast<char>(rng());
    // A block that starts with a mark loses it, and an odd byte shifts the
    // units, so a mark could turn up in either order: no byte FE at all.
    if (name.compare(0, 5, "utf16") == 0) std::replace(r.begin(), r.end(), '\xFE', '\xFD');
    return r;
}

}  // namespace

// --- Lookup and the encoding objects ----------------------------------------

TEST(TextEncodingLookup, FindsTheEightNamesIgnoringBitFive) {
    for (const char* a : kNames) {
        EXPECT_NE(nullptr, findEncoding(a)) << a;
        for (const char* b : kNames)
            EXPECT_EQ(a == b, findEncoding(a) == findEncoding(b)) << a << " " << b;
    }
    EXPECT_EQ(findEncoding("utf16le"), findEncoding("UTF16LE"));
    EXPECT_EQ(findEncoding("system-8"), findEncoding("SYSTEM\r8"));  // 0x0D ^ 0x2D == 0x20
    for (const char* name : {"vutf8", "latin1", "utf-8", " utf8", ""})
        EXPECT_EQ(nullptr, findEncoding(name)) << name;
    EXPECT_EQ(nullptr, findEncoding(nullptr));
    // A blank is not the terminator; the same pointer is equal, whatever it says.
    const char* same = "not a name at all";
    const std::tuple<const char*, const char*, bool> pairs[] = {
        {"utf8", "utf8x", false}, {"utf8x", "utf8", false}, {"utf8 ", "utf8", false},
        {"", "", true},           {same, same, true},       {nullptr, "utf8", false},
        {nullptr, nullptr, true}};
    for (const auto& [a, b, equal] : pairs) EXPECT_EQ(equal, encodingNamesEqual(a, b)) << a;
}

TEST(TextEncodingObjects, MarksUnitWidthsAndTheEncodingOfEachCoder) {
    const std::tuple<const char*, std::string, uint32_t> rows[] = {
        {"ascii", "", 1},           {"system-8", "", 1},         {"iso-8859-1", "", 1},
        {"wchar_t", "", 4},         {"utf8", "\xEF\xBB\xBF", 1}, {"utf16", "\xFF\xFE", 2},
        {"utf16be", "\xFE\xFF", 2}, {"utf16le", "\xFF\xFE", 2}};
    for (const auto& [name, mark, width] : rows) {
        SCOPED_TRACE(name);
        TextEncodingI* enc = findEncoding(name);
        uint32_t length = 99;
        const uint8_t* bytes = enc->byteOrderMark(&length);
        EXPECT_EQ(mark, bytes ? Bytes(reinterpret_cast<const char*>(bytes), length) : Bytes());
        EXPECT_EQ(mark.size(), length);
        EXPECT_EQ(mark.empty() ? nullptr : bytes, enc->byteOrderMark(nullptr));
        EXPECT_EQ(width, enc->unitWidth());
        // The UTF-8 classes answer the "utf8" object, also when "system-8"
        // made them; that is how a writer on "system-8" finds its direct path.
        TextEncodingI* answered = strcmp(name, "system-8") ? enc : findEncoding("utf8");
        EXPECT_EQ(answered, Coder(true, name).d->getEncoding());
        EXPECT_EQ(answered, Coder(false, name).e->getEncoding());
    }
    // The library's load steps have run before any test: the byte order of
    // the UTF-16 classes is told by these two addresses.
    EXPECT_EQ(findEncoding("utf16be"), utf16OrderObject(true));
    EXPECT_EQ(findEncoding("utf16le"), utf16OrderObject(false));
}

TEST(TextEncodingObjectsThread, ConcurrentFirstUseGivesOneObjectEach) {
    std::vector<std::vector<TextEncodingI*>> seen(8);
    testkit::onThreads(8, [&seen](int t) {
        for (const char* name : kNames) seen[t].push_back(findEncoding(name));
        Bytes be = units16(u"\uFEFF\u00E9", true), out(8, 0);
        Coder(true, "utf16").run(be, out, size32(out));
    });
    for (int t = 1; t < 8; ++t) EXPECT_EQ(seen[0], seen[t]);
}

// --- The replacements and the edge cases of each encoding --------------------
// What the random test below cannot see: marks (its UTF-16 input has no
// byte FE), values beyond 31 bits, and the tails left held. The rest of
// broken UTF-8, surrogates, what each encoder replaces, and sequences cut
// between pieces are held to a character model by fuzz/encoding_fuzz.cpp
// (and cut at every byte by the random test below); utf8_test and
// utf16_test pin down its steps.

TEST(TextEncodingCases, DecodersReplaceAndKeepTheirTails) {
    auto decodes = [](const char* name, const Bytes& in, const std::u32string& out, uint32_t chars,
                      const Bytes& held) {
        SCOPED_TRACE(::testing::Message() << name << " " << ::testing::PrintToString(in));
        Result r = pieces(true, name, in);
        EXPECT_EQ(std::make_tuple(utf8Of(out), chars, held), std::tie(r.out, r.chars, r.heldAfter));
    };
    decodes("ascii", "A\xE9", U"A\uFFFD", 2, "");
    // The mark is no business of the UTF-8 decoder: it arrives as U+FEFF. A
    // string made in one go drops what is left held.
    decodes("utf8", "\xEF\xBB\xBFx", U"\uFEFFx", 2, "");
    decodes("utf8", "abc\xE4", U"abc", 3, "\xE4");
    decodes("utf8", utf8Of({0x7FFFFFFF, 0xD800}), {0x7FFFFFFF, 0xD800}, 2, "");
    decodes("utf16", units16(u"\uFEFFA", false), U"A", 1, "");
    decodes("utf16", units16(u"A", false), U"A", 1, "");
    decodes("utf16", units16(u"\uFEFFA", true), U"A", 1, "");
    decodes("utf16le", units16(u"\uFEFFA", false), U"A", 1, "");
    decodes("utf16be", units16(u"\uFEFFA", true), U"A", 1, "");
    // The other order's mark is a character of this order, U+FFFE, and only
    // the head of a block can be a mark.
    decodes("utf16be", units16(u"\uFFFEA", true), U"\uFFFEA", 2, "");
    decodes("utf16le", units16(u"\uFFFEA", false), U"\uFFFEA", 2, "");
    decodes("utf16le", units16(u"A\uFEFF", false), U"A\uFEFF", 2, "");
    // An odd byte, and a high surrogate at the end, wait for what follows.
    decodes("utf16le", "A\0B"s, U"A", 1, "B");
    decodes("utf16le", units16(u"a\xD800", false), U"a", 1, "\0\xD8"s);
    decodes("utf16be", units16(u"a\xD800", true), U"a", 1, "\xD8\0"s);
    // Eight units of three UTF-8 bytes each fill one block of the UTF-16
    // decoders; random text seldom gives eight in a row.
    const std::u16string eight = u"\u4E00\u0800\uFFFF\u4E2D\u4E00\uD7FF\uE000\u4E00a";
    for (bool big : {false, true})
        decodes(big ? "utf16be" : "utf16le", units16(eight, big),
                std::u32string(eight.begin(), eight.end()), 9, "");
    // A value without internal form writes nothing but is counted;
    // surrogates and values above the Unicode range are not checked.
    decodes("wchar_t", words32({'a', 0x80000000u, 'b'}), U"ab", 3, "");
    decodes("wchar_t", words32({0xD800, 0x110000, 0x7FFFFFFF}), {0xD800, 0x110000, 0x7FFFFFFF}, 3,
            "");
    decodes("wchar_t", "xxxxxx", {0x78787878}, 1, "xx");
    Coder ascii(true, "ascii");
    EXPECT_EQ(std::make_pair(4u, 6000u),
              std::make_pair(ascii.size("A\xE9"), ascii.d->maxOutput(2000)));
    // Fed as two blocks, the second block's U+FEFF is taken for a mark.
    Result split = pieces(true, "utf16le", units16(u"A\uFEFFB", false), {2});
    EXPECT_EQ(std::make_pair(Bytes("AB"), 2u), std::make_pair(split.out, split.chars));
}

// --- The block paths against the plain loop ---------------------------------

// Whole input against the same input one byte at a time; that any other cut
// gives the same, and that the plain loop agrees with a character model, is
// fuzz/encoding_fuzz.cpp's check on every input. And a random room, in the
// middle of the block paths, for the same text.
TEST(TextEncodingPieces, RandomTextAgreesWithThePlainLoopAndKeepsToItsRoom) {
    std::mt19937 rng(777);
    for (int round = 0; round < 100; ++round) {
        Bytes text = randomInternal(rng, 30);
        for (const char* name : kNames) {
            SCOPED_TRACE(::testing::Message() << name << " round " << round);
            Result plain = byteByByte(false, name, text), whole = pieces(false, name, text);
            EXPECT_EQ(std::tie(plain.out, plain.lost, plain.heldAfter),
                      std::tie(whole.out, whole.lost, whole.heldAfter));
            expectWithinRoom(false, name, text, rng() % (whole.out.size() + 1));
            Bytes in = rng() % 2 ? randomOutside(name, rng, 30) : whole.out;
            plain = byteByByte(true, name, in);
            whole = pieces(true, name, in);
            EXPECT_EQ(std::tie(plain.out, plain.chars, plain.heldAfter),
                      std::tie(whole.out, whole.chars, whole.heldAfter));
            EXPECT_LE(whole.out.size(), Coder(true, name).d->maxOutput(size32(in)));
            expectWithinRoom(true, name, in, rng() % (whole.out.size() + 1));
        }
    }
}

// --- Output room ---------------------------------------------------------------

TEST(TextEncodingRoom, ShortRoomLosesTheCharacterThatDidNotFit) {
    // The buffered decoders read a character before they find no room for
    // it: it is consumed and lost, and what follows is held if it fits.
    // Each call's answer: the bytes written, the characters, what stays held.
    auto call = [](Coder& c, const Bytes& in, Bytes& out, uint32_t room) {
        uint32_t chars = 0, wrote = c.run(in, out, room, &chars);
        return std::make_tuple(wrote, chars, c.held());
    };
    Coder d(true, "utf8"), latin1(true, "iso-8859-1"), ascii(true, "ascii");
    Bytes out(8, '\xA5');
    EXPECT_EQ(std::make_tuple(1u, 1u, Bytes("bc")), call(d, "a\u00E9bc", out, 2));
    // The held characters come out first in the next call.
    EXPECT_EQ(std::make_tuple(3u, 3u, Bytes()), call(d, "d", out, size32(out)));
    EXPECT_EQ("bcd", out.substr(0, 3));
    // The 8-bit decoders count all input as used even when the room ended.
    for (Coder* c : {&latin1, &ascii})
        EXPECT_EQ(std::make_tuple(1u, 3u, Bytes()), call(*c, "a\xE9z", out, 2));
    // A pair that does not fit is not written half or past the room.
    Bytes pair = utf8Of(U"a\U0001F600");
    out.assign(8, '\xA5');
    EXPECT_EQ(2u, Coder(false, "utf16le").run(pair, out, 4));
    EXPECT_EQ('\xA5', out[2]);
}

// The held bytes run out and are dropped whole.
TEST(TextEncodingHeld, AnEmptyBuffer) {
    UTF8TextDecoderC d;
    d.appendHeld(at("\xF0\x9F"s), 2);
    d.dropHeld(100);
    uint32_t taken = 9, total = 9;
    EXPECT_TRUE(d.completeHeld(at("a"s), 1, &taken, &total) == nullptr && taken + total == 0);
}

// --- Strings made from each encoding and given out in each -------------------

TEST(TextEncodingStrings, RoundTripThroughStringsInEveryEncoding) {
    // What each encoding can hold, with enough ASCII around it for the fast paths.
    const std::u32string latin = U"Gr\u00FC\u00DFe aus M\u00FCnchen\u00FF",
                         wide = U"a\u00E9\u4E2D\u6587\U0001F600bcdefghijkl\U0010FFFF";
    const std::pair<const char*, std::u32string> cases[] = {{"ascii", U"plain text only!?"},
                                                            {"iso-8859-1", latin},
                                                            {"utf8", wide},
                                                            {"system-8", wide},
                                                            {"utf16", wide},
                                                            {"utf16be", wide},
                                                            {"utf16le", wide},
                                                            {"wchar_t", wide}};
    for (const auto& [name, characters] : cases) {
        SCOPED_TRACE(name);
        Bytes text = utf8Of(characters), outside = pieces(false, name, text).out;
        StringC s(outside.data(), size32(outside), name);
        EXPECT_EQ(std::make_pair(static_cast<int32_t>(characters.size()), text),
                  std::make_pair(s.length(), str(s)));
        // And out again in its own encoding, terminator included; a buffer
        // of one byte is asked for the size only.
        uint32_t width = findEncoding(name)->unitWidth(), size = 0, full = 0;
        uint8_t none = 0;
        Bytes back(outside.size() + width, '\xA5');
        size = size32(back);
        EXPECT_TRUE(s.copyText(&none, &full, name) && s.copyText(at(back), &size, name));
        EXPECT_EQ(std::make_tuple(outside + Bytes(width, 0), outside.size(), outside.size()),
                  std::tie(back, size, full));
    }
}
