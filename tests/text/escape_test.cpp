#include "text/escape.h"

#include <gtest/gtest.h>

#include <string>

#include "containers/stringar.h"

namespace keel {
namespace {

StringC u8(const std::string& bytes) {
    return StringC(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");
}

std::string bytesOf(const StringC& s) {
    const char* text = s.textUtf8();
    std::string out(text ? text : "", s.textUtf8Length());
    s.releaseUtf8(text);
    return out;
}

TEST(EscapeString, EscapesSpecialsAndTheEscapeItself) {
    StringC specials = u8(";");
    StringC escaped = escapeString(u8("a;b\\c"), specials, '\\');
    EXPECT_EQ("a\\;b\\\\c", bytesOf(escaped));
    // The caller's specials gained the escape character.
    EXPECT_EQ(";\\", bytesOf(specials));
    EXPECT_EQ("a;b\\c", bytesOf(unescapeString(escaped, '\\')));
}

TEST(EscapeString, NonAsciiSpecialsAndEscape) {
    StringC specials = u8("\xE2\x82\xAC=");           // € and =
    const uint32_t section = 0xA7;                     // § as the escape
    StringC escaped = escapeString(u8("1\xE2\x82\xAC=\xC2\xA7x"), specials, section);
    EXPECT_EQ("1\xC2\xA7\xE2\x82\xAC\xC2\xA7=\xC2\xA7\xC2\xA7x", bytesOf(escaped));
    EXPECT_EQ("1\xE2\x82\xAC=\xC2\xA7x", bytesOf(unescapeString(escaped, section)));
}

TEST(EscapeString, EmptySourceAndNothingSpecial) {
    StringC specials = u8(",");
    EXPECT_TRUE(escapeString(StringC(), specials, '\\').isEmpty());
    EXPECT_EQ(",\\", bytesOf(specials));
    StringC none;
    EXPECT_EQ("plain", bytesOf(escapeString(u8("plain"), none, '\\')));
    EXPECT_EQ("\\", bytesOf(none));
}

TEST(UnescapeString, KeepsTheCharacterBehindEachEscape) {
    EXPECT_EQ("ab", bytesOf(unescapeString(u8("\\a\\b"), '\\')));
    EXPECT_EQ("a\\b", bytesOf(unescapeString(u8("a\\\\b"), '\\')));
    EXPECT_EQ("a\\", bytesOf(unescapeString(u8("a\\\\\\"), '\\')));  // the lone last one goes
    EXPECT_EQ("abc", bytesOf(unescapeString(u8("abc\\"), '\\')));
    EXPECT_EQ("", bytesOf(unescapeString(u8("\\"), '\\')));
    EXPECT_EQ("x\xC3\xA9y", bytesOf(unescapeString(u8("x\\\xC3\xA9y"), '\\')));
    EXPECT_EQ("no escapes", bytesOf(unescapeString(u8("no escapes"), '\\')));
}

// Any text comes back unchanged, broken sequences included.
TEST(UnescapeString, RoundTrip) {
    const std::string texts[] = {
        "", "a", "\\", "\\\\", ";;", "a;b;c\\", "caf\xC3\xA9;\xE2\x82\xAC\\;",
        "bad \xFF\xC3( \xF0\x9F\x98 end", "\xF0\x9F\x98\x80;\\\xF0\x9F\x98\x80",
    };
    for (const std::string& text : texts) {
        StringC specials = u8(";\xE2\x82\xAC");
        StringC escaped = escapeString(u8(text), specials, '\\');
        EXPECT_EQ(text, bytesOf(unescapeString(escaped, '\\'))) << text;
    }
}

TEST(JoinStrings, SeparatorBetweenElements) {
    StringArrayC array;
    EXPECT_TRUE(joinStrings(array, u8(", ")).isEmpty());
    array.append(u8("one"));
    EXPECT_EQ("one", bytesOf(joinStrings(array, u8(", "))));
    array.append(StringC());
    array.append(u8("dr\xC3\xA9i"));
    EXPECT_EQ("one, , dr\xC3\xA9i", bytesOf(joinStrings(array, u8(", "))));
    EXPECT_EQ("onedr\xC3\xA9i", bytesOf(joinStrings(array, StringC())));
}

TEST(JoinEscaped, EscapesEachElement) {
    StringArrayC array;
    EXPECT_TRUE(joinEscaped(array, u8(";"), ';').isEmpty());
    array.append(u8("a;b"));
    array.append(u8("c\\d"));
    array.append(u8("e,f"));
    EXPECT_EQ("a\\;b;c\\\\d;e,f", bytesOf(joinEscaped(array, u8(";"), ';')));
    EXPECT_EQ("a;b,c\\\\d,e\\,f", bytesOf(joinEscaped(array, u8(","), ',')));
}

}  // namespace
}  // namespace keel
