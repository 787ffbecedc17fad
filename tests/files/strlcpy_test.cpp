// The text helpers: copyTextBounded, duplicateText, compareTextNoCase,
// trimTextRight.
#include "files/strlcpy.h"

#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "files/stricmp.h"
#include "files/strdup.h"
#include "files/strtrws.h"

namespace keel {
namespace {

TEST(CopyTextBounded, CutsAndAnswersTheSourceLength) {
    char buffer[8];
    memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(copyTextBounded(buffer, "abc", sizeof buffer), 3u);
    EXPECT_STREQ(buffer, "abc");

    memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(copyTextBounded(buffer, "abcdefghij", sizeof buffer), 10u);
    EXPECT_STREQ(buffer, "abcdefg");

    // Exactly size - 1 fits; size bytes do not.
    EXPECT_EQ(copyTextBounded(buffer, "1234567", 8), 7u);
    EXPECT_STREQ(buffer, "1234567");
    EXPECT_EQ(copyTextBounded(buffer, "12345678", 8), 8u);
    EXPECT_STREQ(buffer, "1234567");

    memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(copyTextBounded(buffer, "abc", 1), 3u);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'Z');

    memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(copyTextBounded(buffer, "abc", 0), 3u);
    EXPECT_EQ(buffer[0], 'Z');
    EXPECT_EQ(copyTextBounded(nullptr, "abcd", 10), 4u);
    EXPECT_EQ(copyTextBounded(buffer, nullptr, 8), 0u);
    EXPECT_EQ(buffer[0], 'Z');
}

TEST(CopyTextBounded, MeasuresAtMost16MiB) {
    std::string huge(kMaxMeasuredText + 100, 'x');
    char buffer[4];
    EXPECT_EQ(copyTextBounded(buffer, huge.c_str(), sizeof buffer), kMaxMeasuredText);
    EXPECT_STREQ(buffer, "xxx");
}

TEST(DuplicateText, CopiesWithTerminator) {
    EXPECT_EQ(duplicateText(nullptr), nullptr);
    const char* original = "some text";
    char* copy = duplicateText(original);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, original);
    EXPECT_STREQ(copy, original);
    delete[] copy;
    char* empty = duplicateText("");
    ASSERT_NE(empty, nullptr);
    EXPECT_STREQ(empty, "");
    delete[] empty;
}

TEST(DuplicateText, CutsBeyond16MiB) {
    std::string huge(kMaxMeasuredText + 5, 'y');
    char* copy = duplicateText(huge.c_str());
    EXPECT_EQ(strlen(copy), kMaxMeasuredText);
    delete[] copy;
}

int sign(int value) { return (value > 0) - (value < 0); }

TEST(CompareTextNoCase, FoldsUpperCaseOnly) {
    EXPECT_EQ(compareTextNoCase("Hello", "hELLO"), 0);
    EXPECT_EQ(compareTextNoCase("", ""), 0);
    EXPECT_LT(compareTextNoCase("abc", "ABD"), 0);
    EXPECT_GT(compareTextNoCase("ABD", "abc"), 0);
    // At the end of either text: the difference of the current bytes.
    EXPECT_EQ(compareTextNoCase("ab", "abc"), -'c');
    EXPECT_EQ(compareTextNoCase("abC", "ab"), 'C');
    // An upper-case letter is folded before the difference is taken, so "A"
    // sorts after "_" (0x5F) as "a" (0x61) does, not before it as 0x41.
    EXPECT_EQ(compareTextNoCase("A", "_"), 'a' - '_');
    EXPECT_EQ(compareTextNoCase("_", "A"), '_' - 'a');
    // Neither upper case: plain difference.
    EXPECT_EQ(compareTextNoCase("a1", "a2"), '1' - '2');
    // Bytes above 0x7F compare as unsigned values.
    EXPECT_EQ(sign(compareTextNoCase("\xe9", "e")), 1);
}

TEST(TrimTextRight, RemovesTrailingBlanksInPlace) {
    char a[] = "line \t\r\n";
    EXPECT_EQ(trimTextRight(a), a);
    EXPECT_STREQ(a, "line");
    char b[] = "   ";
    EXPECT_STREQ(trimTextRight(b), "");
    char c[] = " keep leading";
    EXPECT_STREQ(trimTextRight(c), " keep leading");
    // Vertical tab and form feed are not trimmed.
    char d[] = "x\v\f";
    EXPECT_STREQ(trimTextRight(d), "x\v\f");
    char e[] = "";
    EXPECT_EQ(trimTextRight(e), e);
    EXPECT_EQ(trimTextRight(nullptr), nullptr);
}

}  // namespace
}  // namespace keel
