// The integer scanners (value, code and end index together) and parseBool.
#include <keel/number.h>

#include <gtest/gtest.h>

#include "testing/scantest.h"

namespace keel {
namespace {

struct ScanT { const char* text; int base; int64_t value; uint32_t error, end; };

template <typename T>
void expectScans(T (*parse)(const StringC&, uint32_t*, int, uint32_t*), std::initializer_list<ScanT> cases) {
    for (const ScanT& c : cases) {
        SCOPED_TRACE(testing::Message() << "'" << c.text << "' base " << c.base);
        uint32_t error = 0xDEADBEEF, end = 0xDEADBEEF;
        EXPECT_EQ(static_cast<T>(c.value), parse(u8(c.text), &error, c.base, &end));
        EXPECT_EQ(c.error, error);
        EXPECT_EQ(c.end, end);
    }
}

const uint32_t kTrail = kScanTrailingText, kNone = kScanNoDigits, kOver = kScanOverflow, kBad = kScanBadDigit;

// One case for each rule; fuzz/number_fuzz.cpp checks every base and
// outcome against a plain reference of the rules on arbitrary text.
TEST(ParseInt32, OneCaseForEachRule) {
    expectScans(parseInt32, {
        // Base 0: 0x gives 16, 0b 2, a leading 0 8; a prefix only with its own base.
        {"-0x10", 0, -16, 0, 5}, {"0B101", 0, 5, 0, 5}, {"010", 0, 8, 0, 3}, {"123", 0, 123, 0, 3},
        {"08", 0, 0, kTrail, 1},
        {"0x", 0, 0, kNone, 2}, {"0x10", 10, 0, kTrail, 1}, {"0b11", 16, 0xb11, 0, 4},
        // Base limits: 1 is a tally in which 0 counts as a mark of value 0.
        {"12", 37, 0, kScanBadBase, 0}, {"zz", 36, 36 * 35 + 35, 0, 2}, {"101", 1, 2, 0, 3},
        // Blanks around the number and behind the sign; form feed is none.
        {" \t\r\n", 10, 0, kNone, 4}, {"\xc2\xa0" "7\xc2\xa0", 10, 7, 0, 3}, {"- 5", 10, -5, 0, 3},
        {"+-5", 10, 0, kBad, 1}, {"\f1", 10, 0, kBad, 0}, {"12  x", 10, 12, kTrail, 4},
        // Digits of any script, mixed; the end index counts characters.
        {"\xef\xbc\x91\xef\xbc\x92\xe0\xa5\xab", 10, 125, 0, 3}, {"\xd9\xa0x1F", 0, 31, 0, 4},
        {"\xd9\xa9", 8, 0, kBad, 0},
        // Out of range: the bits as read; digits past the width: 0, the end at the first that did not fit.
        {"-2147483648", 10, INT32_MIN, 0, 11}, {"2147483648", 10, INT32_MIN, kOver, 10},
        {"4294967296", 10, 0, kOver, 9}, {"3000000000 x", 10, -1294967296, kOver, 11},
    });
    expectScans(parseInt64, {
        {"-9223372036854775808", 10, INT64_MIN, 0, 20}, {"18446744073709551615", 10, -1, kOver, 20},
        {"0x10000000000000000", 0, 0, kOver, 18}, {"1y2p0ij32e8e7", 36, INT64_MAX, 0, 13},
    });
}

TEST(ParseInt32, DefaultsNullOutputsAndEmbeddedNul) {
    EXPECT_EQ(parseInt32(u8("  -17 ")), -17);
    EXPECT_EQ(parseInt64(u8("")), 0);
    EXPECT_EQ(parseInt32(u8("0x10"), nullptr, 0, nullptr), 16);
    uint32_t end = 99, error = 99;
    EXPECT_EQ(parseInt32(u8("12ab"), nullptr, 10, &end), 12);
    EXPECT_EQ(parseInt32(u8("12ab"), &error, 10, nullptr), 12);
    EXPECT_EQ(end, 2u);
    EXPECT_EQ(error, kScanTrailingText);
    EXPECT_EQ(parseInt32(StringC("12\0" "34", 5, "utf8"), &error, 10, &end), 12);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(end, 2u);
}

TEST(ParseBool, WholeWordsCaseAside) {
    for (const char* word : {"TRUE", "true", "T", "t", "1", "YES", "on", "Ok", "enabled", "ACTIVE"}) {
        EXPECT_TRUE(parseBool(u8(word))) << word;
    }
    // The Kelvin sign folds to "k", but its longer encoding keeps "OK" apart.
    for (const char* word : {"No", "0", "", "TRUE ", " TRUE", "false", "2", "y", "activ", "actives", "+1", "01",
                             "T1", "O\xe2\x84\xaa", "\xc3\xa9"}) {
        EXPECT_FALSE(parseBool(u8(word))) << "'" << word << "'";
    }
    EXPECT_FALSE(parseBool(StringC("on\0x", 4, "utf8")));  // the byte count goes past the NUL
}

}  // namespace
}  // namespace keel
