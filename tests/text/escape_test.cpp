#include <keel/escape.h>

#include <gtest/gtest.h>

#include <keel/stringar.h>
#include "testing/scantest.h"

namespace keel {
namespace {

TEST(EscapeString, EscapesSpecialsAndTheEscapeAndGrowsTheSet) {
    const struct { const char *specials, *source, *escaped, *grownSet; uint32_t escape; } cases[] = {
        {";", "a;b\\c", "a\\;b\\\\c", ";\\", '\\'},
        {",", "", "", ",\\", '\\'},
        {"", "plain", "plain", "\\", '\\'},
        // A euro sign and "=" as specials, the section sign as the escape.
        {"\xE2\x82\xAC=", "1\xE2\x82\xAC=\xC2\xA7x", "1\xC2\xA7\xE2\x82\xAC\xC2\xA7=\xC2\xA7\xC2\xA7x",
         "\xE2\x82\xAC=\xC2\xA7", 0xA7},
    };
    for (const auto& c : cases) {
        StringC specials = *c.specials ? raw(c.specials) : StringC();
        StringC escaped = escapeString(*c.source ? raw(c.source) : StringC(), specials, c.escape);
        EXPECT_EQ(str(escaped), c.escaped);
        EXPECT_EQ(str(specials), c.grownSet);
        EXPECT_EQ(str(unescapeString(escaped, c.escape)), c.source);
    }
}

// That any text, broken sequences included, comes back unchanged from
// escape and unescape is fuzz/textops_fuzz.cpp's check on every input.
TEST(UnescapeString, KeepsTheCharacterBehindEachEscape) {
    const struct { const char *source, *unescaped; } cases[] = {
        {"\\a\\b", "ab"},   {"a\\\\b", "a\\b"}, {"a\\\\\\", "a\\"}, {"abc\\", "abc"},
        {"\\", ""},         {"x\\\xC3\xA9y", "x\xC3\xA9y"},
    };
    for (const auto& c : cases) EXPECT_EQ(str(unescapeString(raw(c.source), '\\')), c.unescaped) << c.source;
}

TEST(JoinStrings, PlainAndEscaped) {
    StringArrayC array;
    EXPECT_TRUE(joinStrings(array, raw(", ")).isEmpty());
    EXPECT_TRUE(joinEscaped(array, raw(";"), ';').isEmpty());
    array.append(raw("one"));
    EXPECT_EQ("one", str(joinStrings(array, raw(", "))));
    array.append(StringC());
    array.append(raw("a;b\\c,\xC3\xA9"));
    EXPECT_EQ("one, , a;b\\c,\xC3\xA9", str(joinStrings(array, raw(", "))));
    EXPECT_EQ("onea;b\\c,\xC3\xA9", str(joinStrings(array, StringC())));
    EXPECT_EQ("one;;a\\;b\\\\c,\xC3\xA9", str(joinEscaped(array, raw(";"), ';')));
    EXPECT_EQ("one,,a;b\\\\c\\,\xC3\xA9", str(joinEscaped(array, raw(","), ',')));
}

}  // namespace
}  // namespace keel
