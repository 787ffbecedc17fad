#include "text/trim.h"

#include <gtest/gtest.h>

#include <string>

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

TEST(Trim, LeftAndRight) {
    StringC s = u8("  x ");
    trimLeft(s, u8(" "));
    EXPECT_EQ("x ", bytesOf(s));
    EXPECT_EQ(2, s.length());
    trimRight(s, u8(" "));
    EXPECT_EQ("x", bytesOf(s));
    EXPECT_EQ(1, s.length());
}

TEST(Trim, EverythingInTheSet) {
    StringC blanks = u8("   ");
    trimRight(blanks, u8(" "));
    EXPECT_TRUE(blanks.isEmpty());
    EXPECT_EQ(0, blanks.length());
    StringC tabs = u8("\t \t");
    trimLeft(tabs, u8(" \t"));
    EXPECT_TRUE(tabs.isEmpty());
}

TEST(Trim, NothingToTrim) {
    StringC s = u8("abc");
    trimLeft(s, u8(" "));
    trimRight(s, u8(" "));
    EXPECT_EQ("abc", bytesOf(s));
    // An empty set keeps everything.
    trimLeft(s, StringC());
    trimRight(s, StringC());
    EXPECT_EQ("abc", bytesOf(s));
    StringC empty;
    trimLeft(empty, u8(" "));
    trimRight(empty, u8(" "));
    EXPECT_TRUE(empty.isEmpty());
}

TEST(Trim, SharedStringsAreNotChangedThroughTheOtherHandle) {
    StringC original = u8("--a--");
    StringC copy = original;
    trimLeft(copy, u8("-"));
    trimRight(copy, u8("-"));
    EXPECT_EQ("a", bytesOf(copy));
    EXPECT_EQ("--a--", bytesOf(original));
}

TEST(Trim, MultiByteCharacters) {
    StringC s = u8("\xC2\xA0\xE2\x80\x83mot\xC3\xA9\xC2\xA0");  // nbsp, em space, "moté", nbsp
    StringC spaces = u8("\xC2\xA0\xE2\x80\x83");
    trimLeft(s, spaces);
    EXPECT_EQ("mot\xC3\xA9\xC2\xA0", bytesOf(s));
    trimRight(s, spaces);
    EXPECT_EQ("mot\xC3\xA9", bytesOf(s));
    EXPECT_EQ(4, s.length());
}

}  // namespace
}  // namespace keel
