#include <keel/split.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "testing/scantest.h"

namespace keel {
namespace {

typedef std::vector<std::string> Pieces;

Pieces pieces(const StringC& text, const char* separators, bool trim, bool keepEmpty, uint32_t escape) {
    std::unique_ptr<StringArrayC> array(splitString(text, u8(separators), trim, keepEmpty, escape));
    Pieces out;
    for (uint32_t i = 0; i < array->size(); ++i) out.push_back(str(*array->at(i)));
    return out;
}

TEST(SplitString, TrimKeepEmptyAndEscape) {
    const uint32_t none = kNoEscape;
    const struct { const char *text, *separators; bool trim, keepEmpty; uint32_t escape; Pieces expected; } cases[] = {
        {"a,,b", ",", false, false, none, {"a", "b"}},
        {",a,", ",", false, true, none, {"", "a", ""}},
        {",", ",", false, true, none, {"", ""}},
        {"", ",", true, true, none, {}},
        {"a,b;c d", ",; ", false, false, none, {"a", "b", "c", "d"}},
        {"a,b", "", false, false, none, {"a,b"}},
        {"\xc3\xa9\xc2\xb7y\xe2\x80\x94z,\xe2\x82\xac", "\xe2\x80\x94\xc2\xb7,", false, false, none,
         {"\xc3\xa9", "y", "z", "\xe2\x82\xac"}},
        // Trimming takes only blanks and tabs, and only at the ends.
        {" a , b\t,\tc ", ",", true, false, none, {"a", "b", "c"}},
        {" a , b\t,\tc ", ",", false, false, none, {" a ", " b\t", "\tc "}},
        {"a,  ,b", ",", true, false, none, {"a", "b"}},
        {"a,  ,b", ",", true, true, none, {"a", "", "b"}},
        {"\n\xc2\xa0x y\xc2\xa0\r", ",", true, false, none, {"\n\xc2\xa0x y\xc2\xa0\r"}},
        // Only the separator right behind the escape stays, with the escape.
        {"a\\,b,c", ",", false, false, '\\', {"a\\,b", "c"}},
        {"a\\x,b", ",", false, false, '\\', {"a\\x", "b"}},
        {"a\\\\,b", ",", false, false, '\\', {"a\\\\,b"}},  // an escaped escape still escapes
        {"a\\", ",", false, false, '\\', {"a\\"}},
        {"a\\,b", ",", false, false, 0xFFFE, {"a\\", "b"}},
        {"a\\,b", ",", false, false, 0x1FFFF, {"a\\", "b"}},  // low 16 bits are 0xFFFF
        {"a\xef\xbf\xbd,b", ",", false, false, 0xFFFD, {"a\xef\xbf\xbd,b"}},
        {"a,,b", ",", false, true, ',', {"a", ",b"}},  // a separator as its own escape
        {"a\xc2\xa7;b;c", ";", false, false, 0xA7, {"a\xc2\xa7;b", "c"}},
        {" a\\, ,b", ",", true, false, '\\', {"a\\,", "b"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(pieces(u8(c.text), c.separators, c.trim, c.keepEmpty, c.escape), c.expected)
            << "'" << c.text << "' escape " << c.escape;
    }
    EXPECT_EQ(pieces(StringC("a,b\0,c", 6, "utf8"), ",", false, true, none), (Pieces{"a", "b"}));
    std::string many;
    for (int i = 0; i < 1000; ++i) many += std::to_string(i) + ";";
    Pieces result = pieces(u8(many.c_str()), ";", false, false, none);
    EXPECT_TRUE(result.size() == 1000u && result[999] == "999");
}

}  // namespace
}  // namespace keel
