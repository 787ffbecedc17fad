#include "text/split.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "text/scantest.h"

namespace keel {
namespace {

using scantest::str;
using scantest::u8;

std::vector<std::string> pieces(const StringC& text, const char* separators, bool trim,
                                bool keepEmpty, uint32_t escape = kNoEscape) {
    std::unique_ptr<StringArrayC> array(splitString(text, u8(separators), trim, keepEmpty, escape));
    std::vector<std::string> out;
    for (uint32_t i = 0; i < array->size(); ++i) out.push_back(str(*array->at(i)));
    return out;
}

std::vector<std::string> pieces(const char* text, const char* separators, bool trim, bool keepEmpty,
                                uint32_t escape = kNoEscape) {
    return pieces(u8(text), separators, trim, keepEmpty, escape);
}

typedef std::vector<std::string> Pieces;

TEST(SplitString, EmptyPiecesOnlyWhenKept) {
    EXPECT_EQ(pieces("a,,b", ",", false, false), (Pieces{"a", "b"}));
    EXPECT_EQ(pieces("a,,b", ",", false, true), (Pieces{"a", "", "b"}));
    EXPECT_EQ(pieces(",a,", ",", false, true), (Pieces{"", "a", ""}));
    EXPECT_EQ(pieces(",a,", ",", false, false), (Pieces{"a"}));
    EXPECT_EQ(pieces(",", ",", false, true), (Pieces{"", ""}));
    EXPECT_EQ(pieces(",", ",", false, false), Pieces{});
    EXPECT_EQ(pieces("abc", ",", false, false), (Pieces{"abc"}));
}

TEST(SplitString, EmptyTextGivesNoPieces) {
    EXPECT_EQ(pieces("", ",", false, true), Pieces{});
    EXPECT_EQ(pieces("", ",", true, true), Pieces{});
}

TEST(SplitString, AnyCharacterOfTheSetSplits) {
    EXPECT_EQ(pieces("a,b;c d", ",; ", false, false), (Pieces{"a", "b", "c", "d"}));
    EXPECT_EQ(pieces("a,b", "", false, false), (Pieces{"a,b"}));
    // Separators outside ASCII, mixed with ASCII ones.
    EXPECT_EQ(pieces("x\xc2\xb7y\xe2\x80\x94z,w", "\xe2\x80\x94\xc2\xb7,", false, false),
              (Pieces{"x", "y", "z", "w"}));
    // Non-ASCII text around ASCII separators keeps its bytes.
    EXPECT_EQ(pieces("\xc3\xa9,\xe2\x82\xac", ",", false, false), (Pieces{"\xc3\xa9", "\xe2\x82\xac"}));
}

TEST(SplitString, TrimWithTheDefaultSet) {
    EXPECT_EQ(pieces(" a , b\t,\tc ", ",", true, false), (Pieces{"a", "b", "c"}));
    EXPECT_EQ(pieces(" a , b\t,\tc ", ",", false, false), (Pieces{" a ", " b\t", "\tc "}));
    // A piece of blanks is empty after trimming.
    EXPECT_EQ(pieces("a,  ,b", ",", true, false), (Pieces{"a", "b"}));
    EXPECT_EQ(pieces("a,  ,b", ",", true, true), (Pieces{"a", "", "b"}));
    // Only blank and tab are trimmed, and only at the ends.
    EXPECT_EQ(pieces("\na b\r", ",", true, false), (Pieces{"\na b\r"}));
    EXPECT_EQ(pieces("\xc2\xa0x\xc2\xa0", ",", true, false), (Pieces{"\xc2\xa0x\xc2\xa0"}));
}

TEST(SplitString, Escape) {
    EXPECT_EQ(pieces("a\\,b", ",", false, false, '\\'), (Pieces{"a\\,b"}));
    EXPECT_EQ(pieces("a\\,b,c", ",", false, false, '\\'), (Pieces{"a\\,b", "c"}));
    // Only the separator directly behind the escape stays.
    EXPECT_EQ(pieces("a\\x,b", ",", false, false, '\\'), (Pieces{"a\\x", "b"}));
    // An escape that is itself behind an escape still escapes.
    EXPECT_EQ(pieces("a\\\\,b", ",", false, false, '\\'), (Pieces{"a\\\\,b"}));
    EXPECT_EQ(pieces("a\\", ",", false, false, '\\'), (Pieces{"a\\"}));
    // Without an escape character the backslash is plain text.
    EXPECT_EQ(pieces("a\\,b", ",", false, false), (Pieces{"a\\", "b"}));
    EXPECT_EQ(pieces("a\\,b", ",", false, false, 0xFFFE), (Pieces{"a\\", "b"}));
    EXPECT_EQ(pieces("a\\,b", ",", false, false, 0x1FFFF), (Pieces{"a\\", "b"}));
    // 0xFFFD is a character, and an escape like any other.
    EXPECT_EQ(pieces("a\xef\xbf\xbd,b", ",", false, false, 0xFFFD), (Pieces{"a\xef\xbf\xbd,b"}));
    // A separator may be its own escape: the second of two does not split.
    EXPECT_EQ(pieces("a,,b", ",", false, true, ','), (Pieces{"a", ",b"}));
    // A non-ASCII escape.
    EXPECT_EQ(pieces("a\xc2\xa7;b;c", ";", false, false, 0xA7), (Pieces{"a\xc2\xa7;b", "c"}));
    // Trimming keeps the escape in the piece.
    EXPECT_EQ(pieces(" a\\, ,b", ",", true, false, '\\'), (Pieces{"a\\,", "b"}));
}

TEST(SplitString, StopsAtEmbeddedNul) {
    EXPECT_EQ(pieces(StringC("a,b\0,c", 6, "utf8"), ",", false, true), (Pieces{"a", "b"}));
}

TEST(SplitString, ManyPieces) {
    std::string text;
    for (int i = 0; i < 1000; ++i) {
        if (i) text += ';';
        text += std::to_string(i);
    }
    Pieces result = pieces(text.c_str(), ";", false, false);
    ASSERT_EQ(result.size(), 1000u);
    EXPECT_EQ(result[0], "0");
    EXPECT_EQ(result[999], "999");
}

}  // namespace
}  // namespace keel
