// The text helpers: copyTextBounded, duplicateText, compareTextNoCase,
// trimTextRight.
#include <keel/strlcpy.h>

#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include <keel/stricmp.h>
#include <keel/strdup.h>
#include <keel/strtrws.h>

namespace keel {
namespace {

// The answer is the source length; the copy is cut to size - 1 and ends in a
// NUL, and a size of 0 (or no source) writes nothing.
TEST(CopyTextBounded, CutsAndAnswersTheSourceLength) {
    struct Case {
        const char* source;
        size_t size, answer;
        const char* buffer;
    };
    const Case cases[] = {
        {"abc", 8, 3, "abc\0ZZZZ"},   {"abcdefghij", 8, 10, "abcdefg"},
        {"1234567", 8, 7, "1234567"}, {"12345678", 8, 8, "1234567"},
        {"abc", 1, 3, "\0ZZZZZZZ"},   {"abc", 0, 3, "ZZZZZZZZ"},
        {nullptr, 8, 0, "ZZZZZZZZ"},
    };
    for (const Case& c : cases) {
        char buffer[8];
        memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(c.answer, copyTextBounded(buffer, c.source, c.size)) << c.source;
        EXPECT_EQ(std::string(c.buffer, 8), std::string(buffer, 8)) << c.source << " in " << c.size;
    }
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
// after "_" (0x5F) as "a" (0x61) does; at the end of either text the
// difference of the current bytes, which are unsigned.
TEST(CompareTextNoCase, FoldsUpperCaseOnly) {
    struct Case {
        const char *a, *b;
        int want;
    };
    const Case cases[] = {
        {"Hello", "hELLO", 0},     {"", "", 0},
        {"abc", "ABD", 'c' - 'd'}, {"ab", "abc", -'c'},
        {"abC", "ab", 'C'},        {"A", "_", 'a' - '_'},
        {"_", "A", '_' - 'a'},     {"a1", "a2", '1' - '2'},
        {"\xe9", "e", 0xe9 - 'e'},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.want, compareTextNoCase(c.a, c.b)) << c.a << " / " << c.b;
}

// Spaces, tabs, CR and LF go; vertical tab and form feed stay.
TEST(TrimTextRight, RemovesTrailingBlanksInPlace) {
    const std::pair<const char*, const char*> cases[] = {
        {"line \t\r\n", "line"}, {"   ", ""}, {" keep leading", " keep leading"},
        {"x\v\f", "x\v\f"},      {"", ""},
    };
    for (const auto& c : cases) {
        char text[16];
        strcpy(text, c.first);
        EXPECT_EQ(text, trimTextRight(text));
        EXPECT_STREQ(c.second, text);
    }
    EXPECT_EQ(nullptr, trimTextRight(nullptr));
}

}  // namespace
}  // namespace keel
