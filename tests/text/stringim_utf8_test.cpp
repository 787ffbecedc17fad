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

// The next number of a small generator, so the inputs are the same on every run.
uint32_t next(uint32_t& seed) { return (seed = seed * 1103515245u + 12345u) >> 16; }

// findChar of an ASCII character takes 32-byte steps over text that the
// block check finds valid. Every answer and the cursor behind it must be
// those of the character-by-character walk, also on broken text, where the
// walk's steps are not those of a decoder, and whatever the cursor held.
// The trace is each answer with the cursor index and offset behind it.
std::vector<int32_t> runFinds(const std::string& text, const char* encoding, uint32_t character, bool vector) {
    StringImplC::setVectorPaths(vector);
    StringImplC* s = new StringImplC(text.data(), static_cast<uint32_t>(text.size()), encoding);
    s->addRef();
    std::vector<int32_t> trace;
    auto note = [&](int32_t answer) { trace.insert(trace.end(), {answer, s->storedCursorIndex(), s->storedCursorOffset()}); };
    int32_t count = s->length();
    uint32_t seed = static_cast<uint32_t>(text.size());
    for (int32_t after = -1; after <= count; ++after) {
        // Now and then the cursor is put somewhere else first.
        uint32_t r = next(seed);
        if (r % 5 == 0) note(static_cast<int32_t>(s->charAt(static_cast<int32_t>((r >> 3) % (count + 1)))));
        note(s->findChar(character, after));
    }
    for (int32_t at = s->findChar(character, -1); at >= 0; at = s->findChar(character, at)) note(at);
    s->release();
    StringImplC::setVectorPaths(true);
    return trace;
}

TEST(StringFindAsciiTest, BlocksOfValidTextAndEveryKindOfBreak) {
    // Without AVX2 both runs take the character walk and the comparison
    // would hold whatever the block path did.
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("popcnt")) {
        GTEST_SKIP() << "no AVX2 on this processor: the block path cannot run";
    }
    const char* const kPieces[] = {"e", ",", "abc", "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80",
                                   "\xE2\x82\xAC", "eeee", "xyz,", "\xC1\xA5" /* overlong e */,
                                   "\x80", "\xFF", "\xE4\x65" /* cut by an e */, "\xF8\x88\x80\x80\x80",
                                   "\xED\xA0\x80", "\xF4\x90\x80\x80"};
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
            for (size_t i = 0; i < n; ++i) units.push_back(i % 5 == 4 ? 0x4E2D : static_cast<uint16_t>('a' + i % 26));
            units.push_back(0);
            memcpy(buffer + offset, units.data(), 2 * units.size());
            StringC s(reinterpret_cast<const uint16_t*>(buffer + offset));
            EXPECT_EQ(static_cast<int32_t>(n), s.length()) << "offset " << offset << " length " << n;
            const uint16_t* back = s.textUtf16();
            EXPECT_EQ(0, memcmp(back, units.data(), 2 * units.size()));
            s.releaseUtf16(back);
            delete[] buffer;
        }
    }
}

}  // namespace
}  // namespace keel
