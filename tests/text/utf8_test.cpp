// The UTF-8 walker: lengths by lead byte and by value, writing and reading
// back up to 31 bits, and how broken sequences are stepped over.
#include "text/utf8.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace keel {
namespace {

TEST(Utf8Test, SequenceLengthByLeadingBits) {
    const struct { uint8_t first; uint32_t length; } cases[] = {
        {0x00, 1}, {0x7F, 1}, {0x80, 1}, {0xBF, 1}, {0xC0, 2}, {0xDF, 2}, {0xE0, 3}, {0xEF, 3}, {0xF0, 4},
        {0xF7, 4}, {0xF8, 5}, {0xFB, 5}, {0xFC, 6}, {0xFD, 6}, {0xFE, 1}, {0xFF, 1}};
    for (const auto& c : cases) EXPECT_EQ(c.length, utf8SequenceLength(&c.first)) << int(c.first);
}

TEST(Utf8Test, PutAndNextRoundTripUpTo31Bits) {
    // Values at every length boundary; above 31 bits nothing is written.
    const struct { uint32_t value, length; uint8_t lead; } cases[] = {
        {0, 1, 0x00},          {0x7F, 1, 0x7F},         {0x80, 2, 0xC2},         {0x7FF, 2, 0xDF},
        {0x800, 3, 0xE0},      {0xD800, 3, 0xED},       {0xFFFF, 3, 0xEF},       {0x10000, 4, 0xF0},
        {0x10FFFF, 4, 0xF4},   {0x1FFFFF, 4, 0xF7},     {0x200000, 5, 0xF8},     {0x3FFFFFF, 5, 0xFB},
        {0x4000000, 6, 0xFC},  {0x3FFFFFFF, 6, 0xFC},   {0x40000000, 6, 0xFD},   {0x7FFFFFFF, 6, 0xFD},
        {0x80000000u, 0, 0xAA}, {0xFFFFFFFFu, 0, 0xAA},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        uint8_t buffer[8] = {0xAA, 0xAA};
        uint8_t* end = buffer;
        utf8Put(end, c.value);
        EXPECT_EQ(c.length, utf8EncodedLength(c.value));
        ASSERT_EQ(c.length, static_cast<uint32_t>(end - buffer));
        EXPECT_EQ(c.lead, buffer[0]);
        if (c.length == 0) continue;
        EXPECT_EQ(c.length, utf8SequenceLength(buffer));
        const uint8_t* p = buffer;
        EXPECT_EQ(c.value, utf8Next(p));
        EXPECT_EQ(end, p);
    }
}

TEST(Utf8Test, BrokenSequencesAndUncheckedForms) {
    // Each step: the value read and the bytes it moved over.
    const struct { const char* bytes; std::vector<std::pair<uint32_t, int>> steps; } cases[] = {
        {"\xE4\xB8", {{0xFFFD, 2}}},                   // cut by the terminator: stops in front of it
        {"\xF0\x41", {{0xFFFD, 1}, {0x41, 1}}},        // no continuation: one byte
        {"\xF0\x9F\x98\x41", {{0xFFFD, 3}, {0x41, 1}}},  // continuations skipped, at most the length
        {"\x80\xFF\xFE\xBF", {{0xFFFD, 1}, {0xFFFD, 1}, {0xFFFD, 1}, {0xFFFD, 1}}},
        {"\xC0\x80", {{0, 2}}},  // overlong forms and surrogates pass unchecked
        {"\xE0\x80\x80", {{0, 3}}},
        {"\xED\xA0\x80", {{0xD800, 3}}},
    };
    for (const auto& c : cases) {
        const uint8_t* p = reinterpret_cast<const uint8_t*>(c.bytes);
        for (const auto& step : c.steps) {
            const uint8_t* before = p;
            EXPECT_EQ(step.first, utf8Next(p)) << c.bytes;
            EXPECT_EQ(step.second, p - before) << c.bytes;
        }
        EXPECT_EQ(0, *p);
    }
}

}  // namespace
}  // namespace keel
