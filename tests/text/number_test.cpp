#include "text/number.h"

#include <gtest/gtest.h>

#include <stdint.h>

#include <string>

#include "text/scantest.h"

namespace keel {
namespace {

using scantest::u8;

// One scan: value, error and end index together.
template <typename T>
struct Scan {
    T value;
    uint32_t error;
    uint32_t end;
};

template <typename T>
Scan<T> scan(T (*parse)(const StringC&, uint32_t*, int, uint32_t*), const char* text, int base) {
    Scan<T> r;
    r.error = 0xDEADBEEF;
    r.end = 0xDEADBEEF;
    r.value = parse(u8(text), &r.error, base, &r.end);
    return r;
}

#define EXPECT_SCAN(parse, text, base, value_, error_, end_)              \
    do {                                                                  \
        auto r_ = scan(parse, text, base);                                \
        EXPECT_EQ(r_.value, value_) << "'" << text << "' base " << base;  \
        EXPECT_EQ(r_.error, error_) << "'" << text << "' base " << base;  \
        EXPECT_EQ(r_.end, uint32_t(end_)) << "'" << text << "' base " << base; \
    } while (0)
#define EXPECT_SCAN32(...) EXPECT_SCAN(parseInt32, __VA_ARGS__)
#define EXPECT_SCAN64(...) EXPECT_SCAN(parseInt64, __VA_ARGS__)

TEST(ParseInt32, AutomaticBase) {
    EXPECT_SCAN32("0x10", 0, 16, 0u, 4);
    EXPECT_SCAN32("0X1f", 0, 31, 0u, 4);
    EXPECT_SCAN32("010", 0, 8, 0u, 3);
    EXPECT_SCAN32("0b11", 0, 3, 0u, 4);
    EXPECT_SCAN32("0B101", 0, 5, 0u, 5);
    EXPECT_SCAN32("0", 0, 0, 0u, 1);
    EXPECT_SCAN32("123", 0, 123, 0u, 3);
    // A leading zero makes the rest octal: 8 is no digit there.
    EXPECT_SCAN32("08", 0, 0, kScanTrailingText, 1);
    // "0 " has a character behind the zero: octal, and a blank behind.
    EXPECT_SCAN32("0 ", 0, 0, 0u, 2);
    EXPECT_SCAN32("0x", 0, 0, kScanNoDigits, 2);
    EXPECT_SCAN32("0b", 0, 0, kScanNoDigits, 2);
    EXPECT_SCAN32("0xg", 0, 0, kScanBadDigit, 2);
    EXPECT_SCAN32("0b2", 0, 0, kScanBadDigit, 2);
    EXPECT_SCAN32("-0x10", 0, -16, 0u, 5);
}

TEST(ParseInt32, PrefixesOnlyWithTheirBase) {
    // Base 10: the zero is a digit and "x" ends the number.
    EXPECT_SCAN32("0x10", 10, 0, kScanTrailingText, 1);
    EXPECT_SCAN32("0x10", 16, 16, 0u, 4);
    EXPECT_SCAN32("0x", 16, 0, kScanNoDigits, 2);
    EXPECT_SCAN32("0b11", 2, 3, 0u, 4);
    // In base 16 "b" is a digit, not a prefix.
    EXPECT_SCAN32("0b11", 16, 0xb11, 0u, 4);
    // In base 2 "x" is no prefix and ends the number.
    EXPECT_SCAN32("0x1", 2, 0, kScanTrailingText, 1);
    // A leading zero in an explicit base stays a digit.
    EXPECT_SCAN32("010", 10, 10, 0u, 3);
    EXPECT_SCAN32("077", 8, 63, 0u, 3);
}

TEST(ParseInt32, BlanksAndSigns) {
    EXPECT_SCAN32("", 10, 0, kScanNoDigits, 0);
    EXPECT_SCAN32("   ", 10, 0, kScanNoDigits, 3);
    EXPECT_SCAN32(" \t\r\n", 10, 0, kScanNoDigits, 4);
    EXPECT_SCAN32("  42  ", 10, 42, 0u, 6);
    EXPECT_SCAN32("\xc2\xa0" "7\xc2\xa0", 10, 7, 0u, 3);
    EXPECT_SCAN32("+5", 10, 5, 0u, 2);
    EXPECT_SCAN32("- 5", 10, -5, 0u, 3);
    EXPECT_SCAN32("-", 10, 0, kScanNoDigits, 1);
    EXPECT_SCAN32(" + ", 10, 0, kScanNoDigits, 3);
    EXPECT_SCAN32("+-5", 10, 0, kScanBadDigit, 1);
    EXPECT_SCAN32("abc", 10, 0, kScanBadDigit, 0);
    // Form feed and vertical tab are not blanks.
    EXPECT_SCAN32("\f1", 10, 0, kScanBadDigit, 0);
    EXPECT_SCAN32("1\v", 10, 1, kScanTrailingText, 1);
    // The end index stands behind the blanks that follow the number.
    EXPECT_SCAN32("12  x", 10, 12, kScanTrailingText, 4);
    EXPECT_SCAN32("12x", 10, 12, kScanTrailingText, 2);
}

TEST(ParseInt32, BaseLimits) {
    EXPECT_SCAN32("12", 37, 0, kScanBadBase, 0);
    EXPECT_SCAN32("", 37, 0, kScanBadBase, 0);
    EXPECT_SCAN32("zz", 36, 36 * 35 + 35, 0u, 2);
    EXPECT_SCAN32("ZZ", 36, 36 * 35 + 35, 0u, 2);
    EXPECT_SCAN32("z", 35, 0, kScanBadDigit, 0);
    EXPECT_SCAN32("9", 8, 0, kScanBadDigit, 0);
    EXPECT_SCAN32("19", 8, 1, kScanTrailingText, 1);
    EXPECT_SCAN32("a", 10, 0, kScanBadDigit, 0);
    EXPECT_SCAN32("A", 11, 10, 0u, 1);
    EXPECT_SCAN32("101", 2, 5, 0u, 3);
    EXPECT_SCAN32("102", 2, 2, kScanTrailingText, 2);
    // A base below 0 has no digits.
    EXPECT_SCAN32("5", -3, 0, kScanBadDigit, 0);
}

TEST(ParseInt32, TallyBase) {
    EXPECT_SCAN32("11111", 1, 5, 0u, 5);
    EXPECT_SCAN32("1", 1, 1, 0u, 1);
    // The digit 0 is below the base, so it counts as a mark of value 0.
    EXPECT_SCAN32("101", 1, 2, 0u, 3);
    EXPECT_SCAN32("12", 1, 1, kScanTrailingText, 1);
    EXPECT_SCAN32("2", 1, 0, kScanBadDigit, 0);
}

TEST(ParseInt32, Range) {
    EXPECT_SCAN32("2147483647", 10, INT32_MAX, 0u, 10);
    EXPECT_SCAN32("-2147483648", 10, INT32_MIN, 0u, 11);
    // Out of range: the code, and the bits as read.
    EXPECT_SCAN32("2147483648", 10, INT32_MIN, kScanOverflow, 10);
    EXPECT_SCAN32("4294967295", 10, -1, kScanOverflow, 10);
    EXPECT_SCAN32("-2147483649", 10, INT32_MAX, kScanOverflow, 11);
    EXPECT_SCAN32("-4294967295", 10, 1, kScanOverflow, 11);
    EXPECT_SCAN32("0xFFFFFFFF", 0, -1, kScanOverflow, 10);
    EXPECT_SCAN32("0x80000000", 0, INT32_MIN, kScanOverflow, 10);
    EXPECT_SCAN32("-0x80000000", 0, INT32_MIN, 0u, 11);
    // Past the width: 0, with the end at the digit that did not fit.
    EXPECT_SCAN32("4294967296", 10, 0, kScanOverflow, 9);
    EXPECT_SCAN32("99999999999", 10, 0, kScanOverflow, 9);
    EXPECT_SCAN32("12345678901234567890", 10, 0, kScanOverflow, 10);
    EXPECT_SCAN32("0x100000000", 0, 0, kScanOverflow, 10);
    EXPECT_SCAN32("11111111111111111111111111111111", 2, -1, kScanOverflow, 32);
    EXPECT_SCAN32("111111111111111111111111111111111", 2, 0, kScanOverflow, 32);
    EXPECT_SCAN32("1z141z3", 36, -1, kScanOverflow, 7);
    EXPECT_SCAN32("1z141z4", 36, 0, kScanOverflow, 6);
    // The overflow ends the scan before trailing text is looked at.
    EXPECT_SCAN32("99999999999 x", 10, 0, kScanOverflow, 9);
    // A trailing text does not hide an out-of-range value.
    EXPECT_SCAN32("3000000000 x", 10, -1294967296, kScanOverflow, 11);
}

TEST(ParseInt64, Range) {
    EXPECT_SCAN64("9223372036854775807", 10, INT64_MAX, 0u, 19);
    EXPECT_SCAN64("-9223372036854775808", 10, INT64_MIN, 0u, 20);
    EXPECT_SCAN64("9223372036854775808", 10, INT64_MIN, kScanOverflow, 19);
    EXPECT_SCAN64("18446744073709551615", 10, -1, kScanOverflow, 20);
    EXPECT_SCAN64("-9223372036854775809", 10, INT64_MAX, kScanOverflow, 20);
    EXPECT_SCAN64("18446744073709551616", 10, 0, kScanOverflow, 19);
    EXPECT_SCAN64("0xFFFFFFFFFFFFFFFF", 0, -1, kScanOverflow, 18);
    EXPECT_SCAN64("0x10000000000000000", 0, 0, kScanOverflow, 18);
    EXPECT_SCAN64("4294967296", 10, INT64_C(4294967296), 0u, 10);
    EXPECT_SCAN64("-0b1", 0, -1, 0u, 4);
    EXPECT_SCAN64("1y2p0ij32e8e7", 36, INT64_MAX, 0u, 13);
    EXPECT_SCAN64("1y2p0ij32e8e8", 36, INT64_MIN, kScanOverflow, 13);
    EXPECT_SCAN64("", 37, 0, kScanBadBase, 0);
    EXPECT_SCAN64("111", 1, 3, 0u, 3);
}

TEST(ParseInt32, DigitsOfOtherScripts) {
    // Arabic-Indic 3 and 4.
    EXPECT_SCAN32("\xd9\xa3\xd9\xa4", 10, 34, 0u, 2);
    // Fullwidth 1 2, Devanagari 5: scripts may be mixed.
    EXPECT_SCAN32("\xef\xbc\x91\xef\xbc\x92\xe0\xa5\xab", 10, 125, 0u, 3);
    // Tamil starts at one; the Hangzhou zero U+3007 opens an octal number.
    EXPECT_SCAN32("\xe0\xaf\xa7", 10, 1, 0u, 1);
    EXPECT_SCAN32("\xe3\x80\x87" "7", 0, 7, 0u, 2);
    // Arabic-Indic zero then x: a hex prefix.
    EXPECT_SCAN32("\xd9\xa0x1F", 0, 31, 0u, 4);
    // Other digits in base 16 alongside Latin letters.
    EXPECT_SCAN32("\xd9\xa1" "f", 16, 31, 0u, 2);
    // A digit beyond the base.
    EXPECT_SCAN32("\xd9\xa9", 8, 0, kScanBadDigit, 0);
    // A letter that is not Latin is no digit of base 36.
    EXPECT_SCAN32("\xce\xb1", 36, 0, kScanBadDigit, 0);
    // The end index counts characters, not bytes.
    EXPECT_SCAN32("\xd9\xa3 \xc3\xa9", 10, 3, kScanTrailingText, 2);
}

TEST(ParseInt32, NullOutParametersAndDefaults) {
    EXPECT_EQ(parseInt32(u8("  -17 ")), -17);
    EXPECT_EQ(parseInt32(u8("0x10"), nullptr, 0, nullptr), 16);
    EXPECT_EQ(parseInt32(u8("zz"), nullptr, 37, nullptr), 0);
    uint32_t end = 99;
    EXPECT_EQ(parseInt32(u8("12ab"), nullptr, 10, &end), 12);
    EXPECT_EQ(end, 2u);
    uint32_t error = 99;
    EXPECT_EQ(parseInt32(u8("12ab"), &error, 10, nullptr), 12);
    EXPECT_EQ(error, kScanTrailingText);
    EXPECT_EQ(parseInt64(u8("")), 0);
}

TEST(ParseInt32, StopsAtEmbeddedNul) {
    StringC text("12\0" "34", 5, "utf8");
    uint32_t error = 0, end = 0;
    EXPECT_EQ(parseInt32(text, &error, 10, &end), 12);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(end, 2u);
}

TEST(ParseBool, TrueWords) {
    for (const char* word : {"TRUE", "true", "True", "T", "t", "1", "YES", "yes", "ON", "on", "Ok",
                             "OK", "enabled", "Enabled", "ACTIVE", "active"}) {
        EXPECT_TRUE(parseBool(u8(word))) << word;
    }
    for (const char* word : {"No", "0", "", "TRUE ", " TRUE", "false", "2", "y", "activ", "actives",
                             "off", "+1", "01", "T1"}) {
        EXPECT_FALSE(parseBool(u8(word))) << "'" << word << "'";
    }
}

TEST(ParseBool, NonAsciiText) {
    // The Kelvin sign folds to "k", but its longer encoding makes the
    // case-blind comparison differ: not "ok".
    EXPECT_FALSE(parseBool(u8("O\xe2\x84\xaa")));
    EXPECT_FALSE(parseBool(u8("\xc3\xa9")));
    // A NUL inside: the length stops there, the byte count does not.
    EXPECT_FALSE(parseBool(StringC("on\0x", 4, "utf8")));
}

}  // namespace
}  // namespace keel
