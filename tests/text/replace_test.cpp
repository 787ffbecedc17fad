#include "text/replace.h"

#include <gtest/gtest.h>

#include <string>

#include "text/scantest.h"

namespace keel {
namespace {

using scantest::str;
using scantest::u8;

std::string replaced(const char* source, const char* find, const char* with, bool all,
                     int32_t start = -1, bool ignoreCase = false) {
    return str(replaceString(u8(source), u8(find), u8(with), all, start, ignoreCase));
}

TEST(ReplaceString, FirstOrAll) {
    EXPECT_EQ(replaced("a-b-c", "-", "+", false), "a+b-c");
    EXPECT_EQ(replaced("a-b-c", "-", "+", true), "a+b+c");
    EXPECT_EQ(replaced("a-b-c", "x", "+", true), "a-b-c");
    EXPECT_EQ(replaced("a-b-c", "-", "", true), "abc");
    EXPECT_EQ(replaced("--", "-", "", true), "");
    EXPECT_EQ(replaced("abab", "ab", "xyz", true), "xyzxyz");
    EXPECT_EQ(replaced("aaaa", "aa", "b", true), "bb");
    EXPECT_EQ(replaced("", "a", "b", true), "");
    // An empty find text is never found.
    EXPECT_EQ(replaced("abc", "", "x", true), "abc");
}

TEST(ReplaceString, ResumesBehindTheInsertedText) {
    // "a" in "aaa" by "aa": each search starts behind what was put in.
    EXPECT_EQ(replaced("aaa", "a", "aa", true), "aaaaaa");
    EXPECT_EQ(replaced("ab", "a", "ba", true), "bab");
    EXPECT_EQ(replaced("x.y", ".", "..", true), "x..y");
}

TEST(ReplaceString, StartIndexIsExclusive) {
    EXPECT_EQ(replaced("a-b-c", "-", "+", true, 1), "a-b+c");
    EXPECT_EQ(replaced("a-b-c", "-", "+", true, 0), "a+b+c");
    EXPECT_EQ(replaced("-b", "-", "+", false, 0), "-b");
    EXPECT_EQ(replaced("a-b-c", "-", "+", true, 99), "a-b-c");
}

TEST(ReplaceString, IgnoreCase) {
    EXPECT_EQ(replaced("Hello HELLO hello", "hello", "bye", true, -1, true), "bye bye bye");
    EXPECT_EQ(replaced("Hello HELLO hello", "hello", "bye", true, -1, false), "Hello HELLO bye");
    // The replacement goes in as it is, and the rest of the source keeps its case.
    EXPECT_EQ(replaced("xAbCx", "abc", "dEf", false, -1, true), "xdEfx");
    EXPECT_EQ(replaced("\xc3\x89t\xc3\xa9", "\xc3\xa9", "e", true, -1, true), "ete");
}

TEST(ReplaceString, NonAsciiIndexes) {
    EXPECT_EQ(replaced("\xc3\xa9-\xe2\x82\xac-\xc3\xa9", "-", "\xe2\x80\x94", true),
              "\xc3\xa9\xe2\x80\x94\xe2\x82\xac\xe2\x80\x94\xc3\xa9");
    EXPECT_EQ(replaced("\xe2\x82\xac\xe2\x82\xac", "\xe2\x82\xac", "E", false, 0), "\xe2\x82\xac" "E");
}

TEST(ReplaceString, SourceUnchanged) {
    StringC source = u8("a a a");
    StringC result = replaceString(source, u8("a"), u8("b"), true, -1, false);
    EXPECT_EQ(str(source), "a a a");
    EXPECT_EQ(str(result), "b b b");
}

TEST(TranslateChars, MapsSingleCharacters) {
    StringC from = u8("abc");
    EXPECT_EQ(str(translateChars(u8("aabbcc"), from, u8("xyz"), true, -1)), "xxyyzz");
    EXPECT_EQ(str(translateChars(u8("aabbcc"), from, u8("xyz"), false, -1)), "xabbcc");
    EXPECT_EQ(str(translateChars(u8("cab"), from, u8("xyz"), false, -1)), "zab");
    EXPECT_EQ(str(translateChars(u8("aabbcc"), from, u8("xyz"), true, 2)), "aabyzz");
    EXPECT_EQ(str(translateChars(u8("nothing"), from, u8("xyz"), true, -1)), "nothing");
    EXPECT_EQ(str(from), "abc");
}

TEST(TranslateChars, FromIsCutToTheLengthOfTo) {
    StringC from = u8("abc");
    StringC result = translateChars(u8("abcabc"), from, u8("xy"), true, -1);
    EXPECT_EQ(str(result), "xycxyc");
    EXPECT_EQ(str(from), "ab");

    // A shorter `from` stays as it is; the extra characters of `to` are unused.
    StringC shortFrom = u8("a");
    EXPECT_EQ(str(translateChars(u8("abc"), shortFrom, u8("xyz"), true, -1)), "xbc");
    EXPECT_EQ(str(shortFrom), "a");

    // An empty `to` empties `from`, and nothing is translated.
    StringC gone = u8("abc");
    EXPECT_EQ(str(translateChars(u8("abc"), gone, u8(""), true, -1)), "abc");
    EXPECT_TRUE(gone.isEmpty());
}

TEST(TranslateChars, MappingBackIntoFromEnds) {
    // a -> b and b -> a: each search goes on behind the character put in.
    StringC from = u8("ab");
    EXPECT_EQ(str(translateChars(u8("abba"), from, u8("ba"), true, -1)), "baab");
    // A character mapped to itself.
    StringC same = u8("a");
    EXPECT_EQ(str(translateChars(u8("aaa"), same, u8("a"), true, -1)), "aaa");
    // The first place in `from` decides for a repeated character.
    StringC twice = u8("aa");
    EXPECT_EQ(str(translateChars(u8("a"), twice, u8("xy"), true, -1)), "x");
}

TEST(TranslateChars, CharactersOfAnyLength) {
    StringC from = u8("\xc3\xa9\xe2\x82\xac");
    EXPECT_EQ(str(translateChars(u8("\xe2\x82\xac \xc3\xa9!"), from, u8("eE"), true, -1)), "E e!");
    StringC ascii = u8("e");
    EXPECT_EQ(str(translateChars(u8("bee"), ascii, u8("\xf0\x9f\x98\x80"), true, -1)),
              "b\xf0\x9f\x98\x80\xf0\x9f\x98\x80");
}

TEST(CaseConversion, InPlaceAndCopies) {
    StringC shared = u8("Stra\xc3\x9f" "e \xce\xa3");
    StringC other = shared;
    StringC lower = lowerCaseCopy(shared);
    StringC upper = upperCaseCopy(shared);
    EXPECT_EQ(str(lower), "stra\xc3\x9f" "e \xcf\x83");
    EXPECT_EQ(str(upper), "STRA\xc3\x9f" "E \xce\xa3");
    EXPECT_EQ(str(shared), "Stra\xc3\x9f" "e \xce\xa3");

    upperCase(other);
    EXPECT_EQ(str(other), "STRA\xc3\x9f" "E \xce\xa3");
    // The other handle on the same text is untouched.
    EXPECT_EQ(str(shared), "Stra\xc3\x9f" "e \xce\xa3");
    lowerCase(other);
    EXPECT_EQ(str(other), "stra\xc3\x9f" "e \xcf\x83");

    StringC empty;
    lowerCase(empty);
    EXPECT_TRUE(empty.isEmpty());
    // A cached one-character string is not changed for everybody else.
    StringC a = u8("a");
    upperCase(a);
    EXPECT_EQ(str(a), "A");
    EXPECT_EQ(str(u8("a")), "a");
}

TEST(EqualsNoCase, LengthAndFold) {
    EXPECT_TRUE(equalsNoCase(u8("Hello"), u8("hELLO")));
    EXPECT_TRUE(equalsNoCase(u8(""), u8("")));
    EXPECT_FALSE(equalsNoCase(u8("Hello"), u8("Hell")));
    EXPECT_FALSE(equalsNoCase(u8("Hello"), u8("Help!")));
    EXPECT_TRUE(equalsNoCase(u8("\xce\xa3"), u8("\xcf\x83")));
    // Folding that changes the encoded length compares by byte length.
    EXPECT_FALSE(equalsNoCase(u8("\xe2\x84\xaa"), u8("k")));
}

}  // namespace
}  // namespace keel
