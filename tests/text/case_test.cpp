// The generated case tables by what their entries must satisfy, the lookups
// against a plain walk of them, and the digit, letter and ideograph classes.
#include "text/case.h"

#include <gtest/gtest.h>

namespace keel {
namespace {

TEST(CaseTables, DigraphsAndCaselessLetters) {
    const CaseTablesT& t = caseTables();
    // The upper and the lower form of each digraph title-case to the middle one.
    for (uint32_t first : {0x01C4u, 0x01C7u, 0x01CAu, 0x01F1u}) {
        EXPECT_EQ(first + 1, toTitleChar(first)) << std::hex << first;
        EXPECT_EQ(first + 1, toTitleChar(first + 2)) << std::hex << first;
    }
    // Letters without case: sorted, unchanged by both maps, letters by this list alone.
    for (uint32_t i = 0; i < t.caselessCount; ++i) {
        uint32_t c = t.caseless[i];
        EXPECT_LT(i > 0 ? t.caseless[i - 1] : 0, c);
        EXPECT_EQ(c, toLowerChar(c));
        EXPECT_EQ(c, toUpperChar(c));
        EXPECT_TRUE(isLetterChar(c)) << std::hex << c;
    }
}

// The lookup starts with a fixed probe; it must answer as a plain walk does.
TEST(CaseMapping, LookupAgreesWithAWalkOfTheTable) {
    const CaseTablesT& t = caseTables();
    auto walk = [](const CaseRangeT* table, uint32_t count, uint32_t c) {
        for (uint32_t i = 0; i < count; ++i) {
            if (c >= table[i].first && c <= table[i].last) return c + table[i].delta;
        }
        return c;
    };
    for (uint32_t c = 0; c < 0x10010; ++c) {
        ASSERT_EQ(walk(t.lower, t.lowerCount, c), toLowerChar(c)) << std::hex << c;
        ASSERT_EQ(walk(t.upper, t.upperCount, c), toUpperChar(c)) << std::hex << c;
    }
    // The ends of the tables, sigmas, letters the tables of that time did not
    // map yet, and the digraphs, whose title case is neither of the others.
    const struct { uint32_t c, lower, upper, title; } notable[] = {
        {'A', 'a', 'A', 'A'},              {'z', 'z', 'Z', 'Z'},              {0x00C9, 0x00E9, 0x00C9, 0x00C9},
        {0x00D7, 0x00D7, 0x00D7, 0x00D7},  {0x00DF, 0x00DF, 0x00DF, 0x00DF},  {0x0101, 0x0101, 0x0100, 0x0100},
        {0xFF21, 0xFF41, 0xFF21, 0xFF21},  {0xFF5A, 0xFF5A, 0xFF3A, 0xFF3A},  {0x03A3, 0x03C3, 0x03A3, 0x03A3},
        {0x03C2, 0x03C2, 0x03A3, 0x03A3},  {0x03F2, 0x03F2, 0x03A3, 0x03A3},  {0x0220, 0x0220, 0x0220, 0x0220},
        {0x10A0, 0x10A0, 0x10A0, 0x10A0},  {0x13A0, 0x13A0, 0x13A0, 0x13A0},  {0x01C4, 0x01C6, 0x01C4, 0x01C5},
        {0x01C5, 0x01C6, 0x01C4, 0x01C4},  {0x01C6, 0x01C6, 0x01C4, 0x01C5},  {0x01F3, 0x01F3, 0x01F1, 0x01F2},
        {0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu}, {0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF, 0x7FFFFFFF},
        // Maps in one direction only: dotted I, Y diaeresis, ohm, kelvin and angstrom signs, micro,
        // dotless i, long s.
        {0x0130, 'i', 0x0130, 0x0130},     {0x0178, 0x00FF, 0x0178, 0x0178},  {0x2126, 0x03C9, 0x2126, 0x2126},
        {0x212A, 'k', 0x212A, 0x212A},     {0x212B, 0x00E5, 0x212B, 0x212B},  {0x00B5, 0x00B5, 0x039C, 0x039C},
        {0x00FF, 0x00FF, 0x0178, 0x0178},  {0x0131, 0x0131, 'I', 'I'},        {0x017F, 0x017F, 'S', 'S'},
    };
    for (const auto& n : notable) {
        EXPECT_EQ(n.lower, toLowerChar(n.c)) << std::hex << n.c;
        EXPECT_EQ(n.upper, toUpperChar(n.c)) << std::hex << n.c;
        EXPECT_EQ(n.title, toTitleChar(n.c)) << std::hex << n.c;
    }
}

TEST(CharClasses, DigitsLettersAndIdeographs) {
    const struct { uint32_t c; int32_t digit; } digits[] = {
        {'0', 0},    {'9', 9},    {'/', -1},   {':', -1},   {0x0BE6, -1}, {0x0BE7, 1},     {0x0BEF, 9},
        {0x1369, 1}, {0x1371, 9}, {0x3006, -1}, {0x3007, 0}, {0x3021, 1}, {0xFF10, 0},     {0xFF19, 9},
        {0xFF1A, -1}, {0x0665, 5}, {0x10FFFF, -1}, {0xFFFFFFFFu, -1},
    };
    for (const auto& d : digits) EXPECT_EQ(d.digit, digitValue(d.c)) << std::hex << d.c;
    // 18 ranges of ten, 3 of nine and the lone Hangzhou zero.
    int count = 0;
    for (uint32_t c = 0; c < 0x10000; ++c) count += isDigit(c) ? 1 : 0;
    EXPECT_EQ(18 * 10 + 3 * 9 + 1, count);
    for (uint32_t c : {uint32_t('a'), uint32_t('Z'), 0x0138u, 0x10C5u, 0x2102u}) EXPECT_TRUE(isLetterChar(c)) << c;
    for (uint32_t c : {uint32_t('1'), uint32_t(' '), 0x4E00u, 0x0220u}) EXPECT_FALSE(isLetterChar(c)) << c;
    for (uint32_t c : {0x3006u, 0x3007u, 0x4DB5u, 0x9FA5u, 0xFA2Du}) EXPECT_TRUE(isIdeographic(c)) << c;
    for (uint32_t c : {0x3008u, 0x4DB6u, 0x9FA6u, 0xFA2Eu, uint32_t('A')}) EXPECT_FALSE(isIdeographic(c)) << c;
}

}  // namespace
}  // namespace keel
