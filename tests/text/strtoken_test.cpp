#include "text/strtoken.h"

#include <gtest/gtest.h>

#include <string>

#include "text/scantest.h"

namespace keel {
namespace {

using scantest::str;
using scantest::u8;

TEST(DefaultTrimSet, BlankAndTab) {
    EXPECT_EQ(str(defaultTrimSet()), " \t");
    EXPECT_EQ(defaultTrimSet().length(), 2);
}

TEST(TrimString, BothEnds) {
    const StringC& blanks = defaultTrimSet();
    EXPECT_EQ(str(trimString(u8("  a b \t"), blanks)), "a b");
    EXPECT_EQ(str(trimString(u8("ab"), blanks)), "ab");
    EXPECT_EQ(str(trimString(u8(" \t \t"), blanks)), "");
    EXPECT_EQ(str(trimString(u8(""), blanks)), "");
    EXPECT_EQ(str(trimString(u8("\na\n"), blanks)), "\na\n");
    EXPECT_EQ(str(trimString(u8("xxaxbxx"), u8("x"))), "axb");
    EXPECT_EQ(str(trimString(u8("-=a=-"), u8("=-"))), "a");
    // An empty set trims nothing.
    EXPECT_EQ(str(trimString(u8(" a "), u8(""))), " a ");
    // Characters of any length, in the text and in the set.
    EXPECT_EQ(str(trimString(u8("\xe2\x82\xac\xc3\xa9x\xc3\xa9"), u8("\xc3\xa9\xe2\x82\xac"))), "x");
}

TEST(TrimString, SourceUnchanged) {
    StringC source = u8("  a  ");
    StringC trimmed = trimString(source, defaultTrimSet());
    EXPECT_EQ(str(source), "  a  ");
    EXPECT_EQ(str(trimmed), "a");
}

}  // namespace
}  // namespace keel
