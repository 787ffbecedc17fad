#include <keel/trim.h>

#include <gtest/gtest.h>

#include "testing/scantest.h"

namespace keel {
namespace {

StringC text(const char* t) { return *t ? u8(t) : StringC(); }

TEST(Trim, LeftAndRight) {
    const struct { const char *text, *set, *left, *right; } cases[] = {
        {"  x ", " ", "x ", "  x"}, {"   ", " ", "", ""}, {"\t \t", " \t", "", ""},
        {"abc", " ", "abc", "abc"}, {"abc", "", "abc", "abc"}, {"", " ", "", ""},
        // no-break space, em space, "moté", no-break space
        {"\xC2\xA0\xE2\x80\x83mot\xC3\xA9\xC2\xA0", "\xC2\xA0\xE2\x80\x83", "mot\xC3\xA9\xC2\xA0",
         "\xC2\xA0\xE2\x80\x83mot\xC3\xA9"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        StringC left = text(c.text), right = text(c.text);
        trimLeft(left, text(c.set));
        trimRight(right, text(c.set));
        EXPECT_EQ(str(left), c.left);
        EXPECT_EQ(str(right), c.right);
        EXPECT_EQ(left.length(), text(c.left).length());
        EXPECT_EQ(right.length(), text(c.right).length());
    }
    // Another handle on the text keeps it.
    StringC original = u8("--a--"), copy = original;
    trimLeft(copy, u8("-"));
    trimRight(copy, u8("-"));
    EXPECT_EQ(str(copy), "a");
    EXPECT_EQ(str(original), "--a--");
}

}  // namespace
}  // namespace keel
