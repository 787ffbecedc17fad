// The text helpers: copyTextBounded, duplicateText, compareTextNoCase,
// trimTextRight; their tables are pathtext_fuzz's.
#include <keel/strlcpy.h>

#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include <keel/stricmp.h>
#include <keel/strdup.h>
#include <keel/strtrws.h>

namespace keel {
namespace {

// Texts of every size, cut or not, and the case-blind comparison and the
// trim on any bytes are pathtext_fuzz's, against models of their steps;
// here the null arguments and the 16 MiB bound of the measure.
TEST(CopyTextBounded, NullArguments) {
    char buffer[4] = "ZZZ";
    EXPECT_EQ(0u, copyTextBounded(buffer, nullptr, sizeof buffer));
    EXPECT_STREQ("ZZZ", buffer);
    EXPECT_EQ(4u, copyTextBounded(nullptr, "abcd", 10));
}

TEST(DuplicateText, CopiesWithTerminatorAndMeasuresAtMost16MiB) {
    EXPECT_EQ(nullptr, duplicateText(nullptr));
    for (const char* original : {"some text", ""}) {
        char* copy = duplicateText(original);
        EXPECT_NE(original, copy);
        EXPECT_STREQ(original, copy);
        delete[] copy;
    }
    std::string huge(kMaxMeasuredText + 100, 'y');
    char* copy = duplicateText(huge.c_str());
    EXPECT_EQ(kMaxMeasuredText, strlen(copy));
    delete[] copy;
    char buffer[4];
    EXPECT_EQ(kMaxMeasuredText, copyTextBounded(buffer, huge.c_str(), sizeof buffer));
    EXPECT_STREQ("yyy", buffer);
}

// Upper-case letters are folded before the difference is taken, so "A" sorts
// after "_" (0x5F) as "a" (0x61) does; bytes are unsigned.
TEST(CompareTextNoCase, FoldsUpperCaseOnly) {
    EXPECT_EQ(0, compareTextNoCase("Hello", "hELLO"));
    EXPECT_EQ('a' - '_', compareTextNoCase("A", "_"));
    EXPECT_EQ(0xe9 - 'e', compareTextNoCase("\xe9", "e"));
    char blanks[] = "   ", line[] = "line \t\r\n\v";
    EXPECT_STREQ("", trimTextRight(blanks));
    EXPECT_STREQ("line \t\r\n\v", trimTextRight(line));  // a vertical tab stays
    EXPECT_EQ(nullptr, trimTextRight(nullptr));
}

}  // namespace
}  // namespace keel
