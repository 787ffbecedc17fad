// The 16-bit and 32-bit walkers: pairs, lone surrogates, the values that have
// no 16-bit form, and byte order.
#include "text/utf16.h"

#include <gtest/gtest.h>

#include "text/ucs4.h"

using namespace keel;

TEST(Utf16Walker, HighSurrogateWithoutPartnerMovesOneUnit) {
    const uint16_t units[] = {0xD800, 0x0041, 0};
    const uint16_t* p = units;
    EXPECT_EQ(0xFFFDu, utf16Next(p, false));
    EXPECT_EQ(units + 1, p);
    EXPECT_EQ(0x41u, utf16Next(p, false));
    EXPECT_EQ(units + 2, p);
}

TEST(Utf16Walker, PairsAndLoneLowSurrogates) {
    const uint16_t units[] = {0xD83D, 0xDE00, 0xDC00, 0xDBFF, 0xDFFF, 0xD800, 0xDC00, 0xD800, 0xD800, 0xDC00};
    const uint16_t* p = units;
    EXPECT_EQ(0x1F600u, utf16Next(p, false));
    EXPECT_EQ(units + 2, p);
    EXPECT_EQ(0xFFFDu, utf16Next(p, false));  // lone low
    EXPECT_EQ(0x10FFFFu, utf16Next(p, false));
    EXPECT_EQ(0x10000u, utf16Next(p, false));
    EXPECT_EQ(0xFFFDu, utf16Next(p, false));  // high followed by high
    EXPECT_EQ(0x10000u, utf16Next(p, false));
    EXPECT_EQ(units + 10, p);
    // Non-surrogates around the range pass as they are.
    const uint16_t edges[] = {0xD7FF, 0xE000, 0xFFFF, 0xFEFF};
    p = edges;
    for (uint16_t u : edges) EXPECT_EQ(u, utf16Next(p, false));
}

TEST(Utf16Walker, UnitsForAndAt) {
    EXPECT_EQ(1u, utf16UnitsFor(0xFFFF));
    EXPECT_EQ(2u, utf16UnitsFor(0x10000));
    EXPECT_EQ(2u, utf16UnitsFor(0x10FFFF));
    EXPECT_EQ(1u, utf16UnitsFor(0x110000));  // written as one U+FFFD
    EXPECT_EQ(1u, utf16UnitsFor(0xD800));
    const uint16_t units[] = {0xD7FF, 0xD800, 0xDBFF, 0xDC00};
    EXPECT_EQ(1u, utf16UnitsAt(units, false));
    EXPECT_EQ(2u, utf16UnitsAt(units + 1, false));
    EXPECT_EQ(2u, utf16UnitsAt(units + 2, false));
    EXPECT_EQ(1u, utf16UnitsAt(units + 3, false));
    // Swapped: the unit 0x00D8 read the other way round is 0xD800.
    const uint16_t swappedHigh = 0x00D8;
    EXPECT_EQ(2u, utf16UnitsAt(&swappedHigh, true));
    EXPECT_EQ(1u, utf16UnitsAt(&swappedHigh, false));
}

TEST(Utf16Walker, PutWritesUnitsPairsAndReplacement) {
    uint16_t out[8] = {};
    uint16_t* p = out;
    utf16Put(p, 0x110000, false);
    EXPECT_EQ(out + 1, p);
    EXPECT_EQ(0xFFFD, out[0]);
    utf16Put(p, 0x1F600, false);
    EXPECT_EQ(0xD83D, out[1]);
    EXPECT_EQ(0xDE00, out[2]);
    utf16Put(p, 0xDC00, false);  // a surrogate value goes out unchanged
    EXPECT_EQ(0xDC00, out[3]);
    utf16Put(p, 0xFFFFFFFFu, false);
    EXPECT_EQ(0xFFFD, out[4]);
    EXPECT_EQ(out + 5, p);
}

TEST(Utf16Walker, SwappedOrderOnUnalignedBytes) {
    uint8_t buf[9] = {};
    uint8_t* p = buf + 1;  // deliberately odd
    utf16Put(p, 0x1F600, true);
    utf16Put(p, 0x00E9, true);
    EXPECT_EQ(buf + 7, p);
    const uint8_t expect[] = {0xD8, 0x3D, 0xDE, 0x00, 0x00, 0xE9};
    EXPECT_EQ(0, memcmp(expect, buf + 1, 6));
    const uint8_t* q = buf + 1;
    EXPECT_EQ(0x1F600u, utf16Next(q, true));
    EXPECT_EQ(0xE9u, utf16Next(q, true));
    EXPECT_EQ(buf + 7, q);
    q = buf + 5;
    EXPECT_EQ(0xE900u, utf16Next(q, false));
}

TEST(Ucs4Walker, WordsAreNeverChecked) {
    uint8_t buf[13];
    uint8_t* p = buf + 1;
    ucs4Put(p, 0x80000000u);
    ucs4Put(p, 0xD800);
    ucs4Put(p, 0x41);
    const uint8_t* q = buf + 1;
    EXPECT_EQ(0x80000000u, ucs4Next(q));
    EXPECT_EQ(0xD800u, ucs4Next(q));
    EXPECT_EQ(0x41u, ucs4Next(q));
    EXPECT_EQ(buf + 13, q);
    const wchar_t wide[] = L"a\U0001F600";
    const wchar_t* w = wide;
    EXPECT_EQ(0x61u, ucs4Next(w));
    EXPECT_EQ(0x1F600u, ucs4Next(w));
    EXPECT_EQ(1u, ucs4UnitsFor(0x1F600));
    EXPECT_EQ(1u, ucs4UnitsAt(wide));
    EXPECT_TRUE(ucs4IsValid(0xFFFFFFFFu));
}
