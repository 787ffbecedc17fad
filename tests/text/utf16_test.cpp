// The 16-bit and 32-bit walkers: pairs, lone surrogates, the values that have
// no 16-bit form, and byte order.
#include "text/utf16.h"

#include <gtest/gtest.h>

#include <vector>

#include "text/ucs4.h"

using namespace keel;

TEST(Utf16Walker, PairsAndLoneSurrogates) {
    const uint16_t units[] = {0xD800, 0x0041, 0xD83D, 0xDE00, 0xDC00, 0xDBFF, 0xDFFF, 0xD800,
                              0xDC00, 0xD800, 0xD800, 0xDC00, 0xD7FF, 0xE000, 0xFFFF, 0xFEFF};
    // High without a partner, pair, lone low, the last pair, the first pair,
    // high before high, then non-surrogates around the range.
    const struct { uint32_t value; int units; } steps[] = {
        {0xFFFD, 1}, {0x41, 1}, {0x1F600, 2}, {0xFFFD, 1}, {0x10FFFF, 2}, {0x10000, 2}, {0xFFFD, 1},
        {0x10000, 2}, {0xD7FF, 1}, {0xE000, 1}, {0xFFFF, 1}, {0xFEFF, 1}};
    const uint16_t* p = units;
    for (const auto& step : steps) {
        const uint16_t* before = p;
        EXPECT_EQ(step.value, utf16Next(p, false)) << before - units;
        EXPECT_EQ(step.units, p - before) << before - units;
    }
    for (uint32_t value : {0xFFFFu, 0x110000u, 0xD800u}) EXPECT_EQ(1u, utf16UnitsFor(value)) << value;
    for (uint32_t value : {0x10000u, 0x10FFFFu}) EXPECT_EQ(2u, utf16UnitsFor(value)) << value;
    // 0x00D8 read the other way round is 0xD800.
    const struct { uint16_t unit; bool swapped; uint32_t units; } leads[] = {
        {0xD7FF, false, 1}, {0xD800, false, 2}, {0xDBFF, false, 2},
        {0xDC00, false, 1}, {0x00D8, true, 2},  {0x00D8, false, 1}};
    for (const auto& l : leads) EXPECT_EQ(l.units, utf16UnitsAt(&l.unit, l.swapped)) << l.unit;
}

TEST(Utf16Walker, PutAndReadBackInBothOrdersOnUnalignedBytes) {
    // Beyond Unicode one U+FFFD; a surrogate value goes out unchanged.
    const struct { uint32_t value; bool swapped; std::vector<uint8_t> bytes; uint32_t back; } cases[] = {
        {0x110000, false, {0xFD, 0xFF}, 0xFFFD},         {0xFFFFFFFFu, false, {0xFD, 0xFF}, 0xFFFD},
        {0x1F600, false, {0x3D, 0xD8, 0x00, 0xDE}, 0x1F600}, {0x1F600, true, {0xD8, 0x3D, 0xDE, 0x00}, 0x1F600},
        {0xDC00, false, {0x00, 0xDC}, 0xFFFD},           {0xE9, true, {0x00, 0xE9}, 0xE9},
    };
    for (const auto& c : cases) {
        uint8_t buf[6] = {};
        uint8_t* p = buf + 1;  // deliberately odd
        utf16Put(p, c.value, c.swapped);
        EXPECT_EQ(std::vector<uint8_t>(buf + 1, p), c.bytes) << c.value;
        const uint8_t* q = buf + 1;
        EXPECT_EQ(c.back, utf16Next(q, c.swapped)) << c.value;
        EXPECT_EQ(p, q);
    }
}

TEST(Ucs4Walker, WordsAreNeverChecked) {
    uint8_t buf[13];
    uint8_t* p = buf + 1;
    for (uint32_t value : {0x80000000u, 0xD800u, 0x41u}) ucs4Put(p, value);
    const uint8_t* q = buf + 1;
    for (uint32_t value : {0x80000000u, 0xD800u, 0x41u}) EXPECT_EQ(value, ucs4Next(q));
    EXPECT_EQ(buf + 13, q);
    const wchar_t wide[] = L"a\U0001F600";
    const wchar_t* w = wide;
    EXPECT_EQ(0x61u, ucs4Next(w));
    EXPECT_EQ(0x1F600u, ucs4Next(w));
    EXPECT_TRUE(ucs4IsValid(0xFFFFFFFFu));
}
