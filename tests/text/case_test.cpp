#include "text/case.h"

#include <gtest/gtest.h>

namespace keel {
namespace {

uint32_t coveredBy(const CaseRangeT* table, uint32_t count) {
    uint32_t covered = 0;
    for (uint32_t i = 0; i < count; ++i) covered += table[i].last - table[i].first + 1u;
    return covered;
}

const CaseRangeT* recordAt(const CaseRangeT* table, uint32_t count, uint32_t first) {
    for (uint32_t i = 0; i < count; ++i) {
        if (table[i].first == first) return &table[i];
    }
    return nullptr;
}

uint32_t countDelta(const CaseRangeT* table, uint32_t count, int32_t delta) {
    uint32_t n = 0;
    for (uint32_t i = 0; i < count; ++i) n += table[i].delta == delta ? 1 : 0;
    return n;
}

// The mapping a plain linear walk of the table gives, to check the search.
uint32_t linearMap(const CaseRangeT* table, uint32_t count, uint32_t c) {
    for (uint32_t i = 0; i < count; ++i) {
        if (c >= table[i].first && c <= table[i].last) return c + table[i].delta;
    }
    return c;
}

void expectRecord(const CaseRangeT& r, uint32_t first, uint32_t last, int32_t delta) {
    EXPECT_EQ(first, r.first);
    EXPECT_EQ(last, r.last);
    EXPECT_EQ(delta, r.delta);
}

void expectSortedRuns(const CaseRangeT* table, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        EXPECT_LE(table[i].first, table[i].last) << i;
        if (i > 0) {
            EXPECT_LT(table[i - 1].last, table[i].first) << i;
        }
    }
}

TEST(CaseTables, LowerMapFigures) {
    const CaseTablesT& t = caseTables();
    ASSERT_EQ(396u, t.lowerCount);
    EXPECT_EQ(696u, coveredBy(t.lower, t.lowerCount));
    EXPECT_EQ(8u, sizeof(CaseRangeT));
    expectSortedRuns(t.lower, t.lowerCount);
    expectRecord(t.lower[0], 0x41, 0x5A, 32);
    expectRecord(t.lower[1], 0xC0, 0xD6, 32);
    expectRecord(t.lower[t.lowerCount - 1], 0xFF21, 0xFF3A, 32);
    // Latin Extended-A pairs are one record per letter, not a strided run.
    EXPECT_EQ(326u, countDelta(t.lower, t.lowerCount, 1));
    struct { uint32_t first; int32_t delta; } telling[] = {
        {0x0130, -199}, {0x0178, -121}, {0x2126, -7517}, {0x212A, -8383}, {0x212B, -8262}};
    for (auto& row : telling) {
        const CaseRangeT* r = recordAt(t.lower, t.lowerCount, row.first);
        ASSERT_NE(nullptr, r) << std::hex << row.first;
        expectRecord(*r, row.first, row.first, row.delta);
    }
}

TEST(CaseTables, UpperMapFigures) {
    const CaseTablesT& t = caseTables();
    ASSERT_EQ(406u, t.upperCount);
    EXPECT_EQ(706u, coveredBy(t.upper, t.upperCount));
    expectSortedRuns(t.upper, t.upperCount);
    expectRecord(t.upper[0], 0x61, 0x7A, -32);
    expectRecord(t.upper[1], 0xB5, 0xB5, 743);
    expectRecord(t.upper[t.upperCount - 1], 0xFF41, 0xFF5A, -32);
    EXPECT_EQ(326u, countDelta(t.upper, t.upperCount, -1));
    struct { uint32_t first; int32_t delta; } telling[] = {{0x00FF, 121}, {0x0131, -232}, {0x017F, -300}};
    for (auto& row : telling) {
        const CaseRangeT* r = recordAt(t.upper, t.upperCount, row.first);
        ASSERT_NE(nullptr, r) << std::hex << row.first;
        expectRecord(*r, row.first, row.first, row.delta);
    }
}

TEST(CaseTables, TitleAndCaselessFigures) {
    const CaseTablesT& t = caseTables();
    ASSERT_EQ(8u, t.titleCount);
    const uint32_t chars[8] = {0x01C4, 0x01C6, 0x01C7, 0x01C9, 0x01CA, 0x01CC, 0x01F1, 0x01F3};
    for (uint32_t i = 0; i < 8; ++i) {
        EXPECT_EQ(chars[i], t.title[i].character);
        EXPECT_EQ(i % 2 == 0 ? 1 : -1, t.title[i].delta);
    }
    ASSERT_EQ(208u, t.caselessCount);
    EXPECT_EQ(0x00AAu, t.caseless[0]);
    EXPECT_EQ(0x00BAu, t.caseless[1]);
    EXPECT_EQ(0x00DFu, t.caseless[2]);
    EXPECT_EQ(0xFB17u, t.caseless[t.caselessCount - 1]);
    for (uint32_t i = 1; i < t.caselessCount; ++i) EXPECT_LT(t.caseless[i - 1], t.caseless[i]);
    // None of them is changed by a map; they are letters only by the array.
    for (uint32_t i = 0; i < t.caselessCount; ++i) {
        uint32_t c = t.caseless[i];
        EXPECT_EQ(c, toLowerChar(c));
        EXPECT_EQ(c, toUpperChar(c));
        EXPECT_TRUE(isLetterChar(c)) << std::hex << c;
    }
}

// The search with its fixed first probe must agree with a plain walk of the
// table for every character, inside the 16-bit range and a little beyond.
TEST(CaseMapping, SearchAgreesWithTableEverywhere) {
    const CaseTablesT& t = caseTables();
    for (uint32_t c = 0; c < 0x10010; ++c) {
        ASSERT_EQ(linearMap(t.lower, t.lowerCount, c), toLowerChar(c)) << std::hex << c;
        ASSERT_EQ(linearMap(t.upper, t.upperCount, c), toUpperChar(c)) << std::hex << c;
    }
    EXPECT_EQ(0xFFFFFFFFu, toLowerChar(0xFFFFFFFFu));
    EXPECT_EQ(0x7FFFFFFFu, toUpperChar(0x7FFFFFFFu));
}

TEST(CaseMapping, NotableCharacters) {
    EXPECT_EQ(0x03C3u, toLowerChar(0x03A3));
    EXPECT_EQ(0x03A3u, toUpperChar(0x03C2));
    EXPECT_EQ(0x03A3u, toUpperChar(0x03F2));  // lunate sigma maps upward only
    EXPECT_EQ(0x03F2u, toLowerChar(0x03F2));
    EXPECT_EQ(0x0220u, toLowerChar(0x0220));  // letters mapped only later
    EXPECT_EQ(0x0500u, toLowerChar(0x0500));
    EXPECT_EQ(0x10A0u, toLowerChar(0x10A0));  // Georgian
    EXPECT_EQ(0x13A0u, toLowerChar(0x13A0));  // Cherokee
    EXPECT_EQ(0x0069u, toLowerChar(0x0130));
    EXPECT_EQ(0x0049u, toUpperChar(0x0131));
    EXPECT_EQ(0x0053u, toUpperChar(0x017F));
    EXPECT_EQ(0x0178u, toUpperChar(0x00FF));
    EXPECT_EQ(0x039Cu, toUpperChar(0x00B5));
    EXPECT_EQ(0x00DFu, toUpperChar(0x00DF));  // no simple upper case
    EXPECT_EQ(0x00E9u, toLowerChar(0x00C9));
    EXPECT_EQ(0x00D7u, toLowerChar(0x00D7));  // the multiplication sign between the runs
    EXPECT_EQ(0xFF41u, toLowerChar(0xFF21));
    EXPECT_EQ(0x0101u, toLowerChar(0x0100));
    EXPECT_EQ(0x0101u, toLowerChar(0x0101));
}

TEST(CaseMapping, TitleCase) {
    EXPECT_EQ(0x01C5u, toTitleChar(0x01C4));
    EXPECT_EQ(0x01C5u, toTitleChar(0x01C6));
    EXPECT_EQ(0x01F2u, toTitleChar(0x01F3));
    EXPECT_EQ(0x01C4u, toUpperChar(0x01C6));
    EXPECT_EQ(0x01C4u, toTitleChar(0x01C5));  // not in the table: the upper map answers
    EXPECT_EQ(0x0041u, toTitleChar('a'));
    EXPECT_EQ(0x0031u, toTitleChar('1'));
}

TEST(CharClasses, DigitValues) {
    EXPECT_EQ(0, digitValue('0'));
    EXPECT_EQ(9, digitValue('9'));
    EXPECT_EQ(-1, digitValue('/'));
    EXPECT_EQ(-1, digitValue(':'));
    EXPECT_EQ(1, digitValue(0x0BE7));
    EXPECT_EQ(9, digitValue(0x0BEF));
    EXPECT_EQ(-1, digitValue(0x0BE6));
    EXPECT_EQ(1, digitValue(0x1369));
    EXPECT_EQ(9, digitValue(0x1371));
    EXPECT_EQ(1, digitValue(0x3021));
    EXPECT_EQ(0, digitValue(0x3007));
    EXPECT_EQ(-1, digitValue(0x3006));
    EXPECT_EQ(9, digitValue(0xFF19));
    EXPECT_EQ(0, digitValue(0xFF10));
    EXPECT_EQ(-1, digitValue(0xFF1A));
    EXPECT_EQ(5, digitValue(0x0665));
    EXPECT_EQ(-1, digitValue(0x10FFFF));
    EXPECT_EQ(-1, digitValue(0xFFFFFFFFu));
    // Exactly 21 ranges of ten or nine members, plus the lone Hangzhou zero.
    int count = 0;
    for (uint32_t c = 0; c < 0x10000; ++c) count += isDigit(c) ? 1 : 0;
    EXPECT_EQ(18 * 10 + 3 * 9 + 1, count);
    EXPECT_TRUE(isDigit(0x3007));
    EXPECT_FALSE(isDigit('a'));
}

TEST(CharClasses, LettersAndIdeographs) {
    EXPECT_TRUE(isLetterChar('a'));
    EXPECT_TRUE(isLetterChar('Z'));
    EXPECT_TRUE(isLetterChar(0x0138));
    EXPECT_TRUE(isLetterChar(0x10C5));
    EXPECT_TRUE(isLetterChar(0x2102));
    EXPECT_FALSE(isLetterChar('1'));
    EXPECT_FALSE(isLetterChar(' '));
    EXPECT_FALSE(isLetterChar(0x4E00));  // ideographs have no case and are not listed
    EXPECT_FALSE(isLetterChar(0x0220));
    EXPECT_TRUE(isIdeographic(0x3006));
    EXPECT_TRUE(isIdeographic(0x3007));
    EXPECT_FALSE(isIdeographic(0x3008));
    EXPECT_TRUE(isIdeographic(0x4DB5));
    EXPECT_FALSE(isIdeographic(0x4DB6));
    EXPECT_TRUE(isIdeographic(0x9FA5));
    EXPECT_FALSE(isIdeographic(0x9FA6));
    EXPECT_TRUE(isIdeographic(0xFA2D));
    EXPECT_FALSE(isIdeographic(0xFA2E));
    EXPECT_FALSE(isIdeographic('A'));
}

}  // namespace
}  // namespace keel
