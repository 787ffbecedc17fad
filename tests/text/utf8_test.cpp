// The UTF-8 walker: lengths by lead byte and by value, writing and reading
// back up to 31 bits, and how broken sequences are stepped over.
#include "text/utf8.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

namespace keel {
namespace {

TEST(Utf8Test, SequenceLengthByLeadingBits) {
    const std::pair<uint8_t, uint32_t> cases[] = {
        {0x00, 1}, {0x7F, 1}, {0x80, 1}, {0xBF, 1}, {0xC0, 2}, {0xDF, 2}, {0xE0, 3}, {0xEF, 3},
        {0xF0, 4}, {0xF7, 4}, {0xF8, 5}, {0xFB, 5}, {0xFC, 6}, {0xFD, 6}, {0xFE, 1}, {0xFF, 1}};
    for (const auto& [lead, length] : cases)
        EXPECT_EQ(length, utf8SequenceLength(&lead)) << int(lead);
}

TEST(Utf8Test, PutAndNextRoundTripUpTo31Bits) {
    // Values at every length boundary; above 31 bits nothing is written.
    const std::tuple<uint32_t, uint32_t, uint8_t> cases[] = {
        {0, 1, 0x00},           {0x7F, 1, 0x7F},       {0x80, 2, 0xC2},       {0x7FF, 2, 0xDF},
        {0x800, 3, 0xE0},       {0xD800, 3, 0xED},     {0xFFFF, 3, 0xEF},     {0x10000, 4, 0xF0},
        {0x10FFFF, 4, 0xF4},    {0x1FFFFF, 4, 0xF7},   {0x200000, 5, 0xF8},   {0x3FFFFFF, 5, 0xFB},
        {0x4000000, 6, 0xFC},   {0x3FFFFFFF, 6, 0xFC}, {0x40000000, 6, 0xFD}, {0x7FFFFFFF, 6, 0xFD},
        {0x80000000u, 0, 0xAA}, {0xFFFFFFFFu, 0, 0xAA}};
    for (const auto& [value, length, lead] : cases) {
        SCOPED_TRACE(value);
        uint8_t buffer[8] = {0xAA, 0xAA};
        uint8_t* end = buffer;
        utf8Put(end, value);
        EXPECT_EQ(length, utf8EncodedLength(value));
        ASSERT_EQ(length, static_cast<uint32_t>(end - buffer));
        EXPECT_EQ(lead, buffer[0]);
        if (length == 0) continue;
        // What was written is read back whole.
        const uint8_t* p = buffer;
        EXPECT_EQ(std::make_tuple(length, value),
                  std::make_tuple(utf8SequenceLength(buffer), utf8Next(p)));
        EXPECT_EQ(end, p);
    }
}

TEST(Utf8Test, BrokenSequencesAndUncheckedForms) {
    // Each step: the value read and the bytes it moved over. A sequence cut
    // by the terminator stops in front of it; a missing continuation is one
    // byte; continuations are skipped, at most the length; overlong forms
    // and surrogates pass unchecked.
    typedef std::vector<std::pair<uint32_t, long>> Steps;
    const std::pair<const char*, Steps> cases[] = {
        {"\xE4\xB8", {{0xFFFD, 2}}},
        {"\xF0\x41", {{0xFFFD, 1}, {0x41, 1}}},
        {"\xF0\x9F\x98\x41", {{0xFFFD, 3}, {0x41, 1}}},
        {"\x80\xFF\xFE\xBF", {{0xFFFD, 1}, {0xFFFD, 1}, {0xFFFD, 1}, {0xFFFD, 1}}},
        {"\xC0\x80", {{0, 2}}},
        {"\xE0\x80\x80", {{0, 3}}},
        {"\xED\xA0\x80", {{0xD800, 3}}}};
    for (const auto& [bytes, steps] : cases) {
        Steps walked;
        for (const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes); *p && walked.size() < 8;) {
            const uint8_t* before = p;
            walked.push_back({utf8Next(p), p - before});
        }
        EXPECT_EQ(steps, walked) << bytes;
    }
}

}  // namespace
}  // namespace keel
