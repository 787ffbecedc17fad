// The block paths of the string representation against the character
// paths: the search for an ASCII character, and the count of NUL-terminated
// 16-bit text. The one-pass copy of the clean head of "utf8" input is held to
// the UTF-8 decoder by fuzz/stringim_fuzz.cpp.
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "text/stringim.h"

namespace keel {
namespace {

// A representation whose first buffer is in its own block goes on as one
// with a buffer apart: growth, case mapping, erase and reset give the same
// text and capacity (and the sanitizers see each buffer freed once).
TEST(StringOneBlockTest, ChangesAsTheTwoBlockForm) {
    for (uint32_t length : {1u, 7u, 8u, 40u, 200u, 8191u, 8192u}) {
        std::string text;
        for (uint32_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
        for (const char* encoding : {"utf8", "vutf8"}) {
            SCOPED_TRACE(std::to_string(length) + encoding);
            StringImplC* one = StringImplC::make(text.data(), length, encoding);
            StringImplC* two = new StringImplC(text.data(), length, encoding);
            one->addRef();
            two->addRef();
            StringImplC* tail = new StringImplC("xyz\xC3\xA9", 5, "utf8");
            tail->addRef();
            for (int step = 0; step < 6; ++step) {
                for (StringImplC* s : {one, two}) {
                    switch (step) {
                    case 0:
                        s->append(tail);
                        break;
                    case 1:
                        s->toUpper();
                        break;
                    case 2:
                        s->erase(1, 3);
                        break;
                    case 3:
                        s->reserve(s->byteCapacity() + 1);
                        break;
                    case 4:
                        s->appendChar(0x4E2D);
                        break;
                    default:
                        s->reset();
                        break;
                    }
                }
                auto textOf = [](StringImplC* s) {
                    return s->bytes() ? std::string(reinterpret_cast<const char*>(s->bytes()),
                                                    s->byteCount())
                                      : std::string("(none)");
                };
                EXPECT_EQ(textOf(two), textOf(one));
                EXPECT_EQ(two->byteCapacity(), one->byteCapacity());
                EXPECT_EQ(two->storedCharCount(), one->storedCharCount());
            }
            tail->release();
            one->release();
            two->release();
        }
    }
}

// Pieces of input: clean sequences and every kind of thing the decoder
// rewrites or replaces; "" stands for the NUL byte.
const char* const kClean[] = {"a",
                              "Z",
                              "",
                              "\xC3\xA9",
                              "\xDF\xBF",
                              "\xE0\xA0\x80",
                              "\xE4\xB8\xAD",
                              "\xEF\xBF\xBF",
                              "\xF0\x90\x80\x80",
                              "\xF0\x9F\x98\x80",
                              "\xF4\x8F\xBF\xBF"};
// Stray continuations, overlong forms, a surrogate (clean for the decoder,
// refused by the block check), values above U+10FFFF, five and six bytes,
// FE, FF, and sequences cut short.
const char* const kUnclean[] = {"\x80",
                                "\xBF\xBF",
                                "\xC0\x80",
                                "\xC1\xBF",
                                "\xE0\x80\x80",
                                "\xED\xA0\x80",
                                "\xF0\x80\x80\x80",
                                "\xF4\x90\x80\x80",
                                "\xF7\xBF\xBF\xBF",
                                "\xF8\x88\x80\x80\x80",
                                "\xFC\x84\x80\x80\x80\x80",
                                "\xFE",
                                "\xFF",
                                "\xC3",
                                "\xE4\xB8",
                                "\xF0\x9F\x98"};

// The next number of a small generator, so the inputs are the same on every run.
uint32_t next(uint32_t& seed) { return (seed = seed * 1103515245u + 12345u) >> 16; }

// findChar of an ASCII character takes 32-byte steps over text that the
// block check finds valid. Every answer and the cursor behind it must be
// those of the character-by-character walk, also on broken text, where the
// walk's steps are not those of a decoder, and whatever the cursor held.
// The trace is each answer with the cursor index and offset behind it.
template <typename Search>
std::vector<int32_t> runSearches(const std::string& text, const char* encoding, Search search,
                                 bool vector) {
    StringImplC::setVectorPaths(vector);
    StringImplC* s = new StringImplC(text.data(), static_cast<uint32_t>(text.size()), encoding);
    s->addRef();
    std::vector<int32_t> trace;
    auto note = [&](int32_t answer) {
        trace.insert(trace.end(), {answer, s->storedCursorIndex(), s->storedCursorOffset()});
    };
    int32_t count = s->length();
    uint32_t seed = static_cast<uint32_t>(text.size());
    for (int32_t after = -1; after <= count; ++after) {
        // Now and then the cursor is put somewhere else first.
        uint32_t r = next(seed);
        if (r % 5 == 0)
            note(static_cast<int32_t>(s->charAt(static_cast<int32_t>((r >> 3) % (count + 1)))));
        note(search(s, after));
    }
    for (int32_t at = search(s, -1); at >= 0; at = search(s, at)) note(at);
    s->release();
    StringImplC::setVectorPaths(true);
    return trace;
}

std::vector<int32_t> runFinds(const std::string& text, const char* encoding, uint32_t character,
                              bool vector) {
    return runSearches(
        text, encoding,
        [character](StringImplC* s, int32_t after) { return s->findChar(character, after); },
        vector);
}

// The same for the forward searches with a set of ASCII characters, which
// take the same 32-byte steps: findFirstOf, and findFirstNotOf, whose hits
// are every character outside the set, non-ASCII ones included.
std::vector<int32_t> runSetFinds(const std::string& text, const char* set, bool wanted,
                                 bool vector) {
    StringImplC* members = new StringImplC(set, static_cast<uint32_t>(strlen(set)), "utf8");
    members->addRef();
    std::vector<int32_t> trace = runSearches(
        text, "vutf8",
        [members, wanted](StringImplC* s, int32_t after) {
            return wanted ? s->findFirstOf(members, after) : s->findFirstNotOf(members, after);
        },
        vector);
    members->release();
    return trace;
}

TEST(StringFindAsciiTest, BlocksOfValidTextAndEveryKindOfBreak) {
    // Without AVX2 both runs take the character walk and the comparison
    // would hold whatever the block path did.
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("popcnt")) {
        GTEST_SKIP() << "no AVX2 on this processor: the block path cannot run";
    }
    const char* const kPieces[] = {"e",
                                   ",",
                                   "abc",
                                   "\xC3\xA9",
                                   "\xE4\xB8\xAD",
                                   "\xF0\x9F\x98\x80",
                                   "\xE2\x82\xAC",
                                   "eeee",
                                   "xyz,",
                                   "\xC1\xA5" /* overlong e */,
                                   "\x80",
                                   "\xFF",
                                   "\xE4\x65" /* cut by an e */,
                                   "\xF8\x88\x80\x80\x80",
                                   "\xED\xA0\x80",
                                   "\xF4\x90\x80\x80"};
    const size_t kinds = sizeof kPieces / sizeof kPieces[0];
    uint32_t seed = 2718;
    for (int round = 0; round < 160; ++round) {
        std::string text;
        // Most rounds are clean for long stretches, some break often.
        uint32_t breakEvery = round % 4 == 0 ? 7 : 97;
        for (uint32_t i = 0, pieces = next(seed) % 160; i < pieces; ++i) {
            uint32_t r = next(seed);
            size_t kind = r % breakEvery == 0 ? 9 + r % (kinds - 9) : r % 9;
            text += kPieces[kind];
            if (r % 211 == 0) text += std::string(1, '\0');
        }
        SCOPED_TRACE(round);
        for (const char* encoding : {"vutf8", "utf8"}) {
            EXPECT_EQ(runFinds(text, encoding, 'e', true), runFinds(text, encoding, 'e', false));
        }
        if (round % 8 == 0) {
            EXPECT_EQ(runFinds(text, "vutf8", ',', true), runFinds(text, "vutf8", ',', false));
        }
        if (round % 4 == 1) {
            EXPECT_EQ(runSetFinds(text, "e,", true, true), runSetFinds(text, "e,", true, false));
            EXPECT_EQ(runSetFinds(text, "abcexyz,", false, true),
                      runSetFinds(text, "abcexyz,", false, false));
        }
    }
}

// A string from NUL-terminated 16-bit text counts the units a block at a
// time from the first 16-byte boundary on, reading whole aligned blocks.
// Every length at every alignment of the units, with the terminator in the
// last two bytes of its allocation.
TEST(StringFromUtf16Test, EveryLengthAtEveryAlignment) {
    for (size_t offset = 0; offset < 16; offset += 2) {
        for (size_t n = 0; n <= 40; ++n) {
            uint8_t* buffer = new uint8_t[offset + 2 * n + 2];
            std::vector<uint16_t> units;
            for (size_t i = 0; i < n; ++i)
                units.push_back(i % 5 == 4 ? 0x4E2D : static_cast<uint16_t>('a' + i % 26));
            units.push_back(0);
            memcpy(buffer + offset, units.data(), 2 * units.size());
            StringC s(reinterpret_cast<const uint16_t*>(buffer + offset));
            EXPECT_EQ(static_cast<int32_t>(n), s.length())
                << "offset " << offset << " length " << n;
            const uint16_t* back = s.textUtf16();
            EXPECT_EQ(0, memcmp(back, units.data(), 2 * units.size()));
            s.releaseUtf16(back);
            delete[] buffer;
        }
    }
}

}  // namespace
}  // namespace keel
