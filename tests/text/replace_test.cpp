#include <keel/replace.h>

#include <gtest/gtest.h>

#include "testing/scantest.h"

namespace keel {
namespace {

struct ReplaceT { const char *source, *find, *with; bool all; int32_t start; bool noCase; const char* expected; };

TEST(ReplaceString, FirstAllStartAndCase) {
    const ReplaceT cases[] = {
        {"a-b-c", "-", "+", false, -1, false, "a+b-c"}, {"a-b-c", "-", "", true, -1, false, "abc"},
        {"aaaa", "aa", "b", true, -1, false, "bb"},      {"", "a", "b", true, -1, false, ""},
        {"abc", "", "x", true, -1, false, "abc"},  // an empty find text is never found
        {"aaa", "a", "aa", true, -1, false, "aaaaaa"},  // each search starts behind the text put in
        // The start index is exclusive.
        {"a-b-c", "-", "+", true, 1, false, "a-b+c"},    {"-b", "-", "+", false, 0, false, "-b"},
        {"a-b-c", "-", "+", true, 99, false, "a-b-c"},
        {"\xe2\x82\xac\xe2\x82\xac", "\xe2\x82\xac", "E", false, 0, false, "\xe2\x82\xac" "E"},
        {"Hello HELLO hello", "hello", "bye", true, -1, true, "bye bye bye"},
        {"Hello HELLO hello", "hello", "bye", true, -1, false, "Hello HELLO bye"},
        {"xAbCx", "abc", "dEf", false, -1, true, "xdEfx"},
        {"\xc3\x89t\xc3\xa9", "\xc3\xa9", "e", true, -1, true, "ete"},
    };
    for (const auto& c : cases) {
        StringC source = u8(c.source);
        EXPECT_EQ(str(replaceString(source, u8(c.find), u8(c.with), c.all, c.start, c.noCase)), c.expected)
            << c.source << " / " << c.find << " / " << c.start;
        EXPECT_EQ(str(source), c.source);
    }
}

struct TranslateT { const char *source, *from, *to; bool all; int32_t start; const char *expected, *fromAfter; };

TEST(TranslateChars, MapsAndCutsFrom) {
    const TranslateT cases[] = {
        {"aabbcc", "abc", "xyz", true, -1, "xxyyzz", "abc"}, {"cab", "abc", "xyz", false, -1, "zab", "abc"},
        {"aabbcc", "abc", "xyz", true, 2, "aabyzz", "abc"},
        // `from` is cut to the length of `to`, and stays cut.
        {"abcabc", "abc", "xy", true, -1, "xycxyc", "ab"}, {"abc", "a", "xyz", true, -1, "xbc", "a"},
        {"abc", "abc", "", true, -1, "abc", ""},
        // Each search goes on behind the character put in, so these end; the first place in `from` decides.
        {"abba", "ab", "ba", true, -1, "baab", "ab"}, {"aaa", "a", "a", true, -1, "aaa", "a"},
        {"a", "aa", "xy", true, -1, "x", "aa"},
        {"\xe2\x82\xac \xc3\xa9!", "\xc3\xa9\xe2\x82\xac", "eE", true, -1, "E e!", "\xc3\xa9\xe2\x82\xac"},
        {"bee", "e", "\xf0\x9f\x98\x80", true, -1, "b\xf0\x9f\x98\x80\xf0\x9f\x98\x80", "e"},
    };
    for (const auto& c : cases) {
        StringC from = u8(c.from);
        EXPECT_EQ(str(translateChars(u8(c.source), from, u8(c.to), c.all, c.start)), c.expected) << c.source;
        EXPECT_EQ(str(from), c.fromAfter);
    }
}

TEST(CaseConversion, InPlaceAndCopies) {
    const char* mixed = "Stra\xc3\x9f" "e \xce\xa3";
    StringC shared = u8(mixed), other = shared;
    EXPECT_EQ(str(lowerCaseCopy(shared)), "stra\xc3\x9f" "e \xcf\x83");
    EXPECT_EQ(str(upperCaseCopy(shared)), "STRA\xc3\x9f" "E \xce\xa3");
    upperCase(other);
    EXPECT_EQ(str(other), "STRA\xc3\x9f" "E \xce\xa3");
    lowerCase(other);
    EXPECT_EQ(str(other), "stra\xc3\x9f" "e \xcf\x83");
    EXPECT_EQ(str(shared), mixed);
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
    // Folding that changes the encoded length (the Kelvin sign) compares by byte length.
    const struct { const char *a, *b; bool equal; } cases[] = {
        {"Hello", "hELLO", true}, {"", "", true}, {"Hello", "Hell", false}, {"Hello", "Help!", false},
        {"\xce\xa3", "\xcf\x83", true}, {"\xe2\x84\xaa", "k", false}};
    for (const auto& c : cases) EXPECT_EQ(c.equal, equalsNoCase(u8(c.a), u8(c.b))) << c.a << " " << c.b;
}

}  // namespace
}  // namespace keel
