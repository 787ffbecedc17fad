#include "text/strtoken.h"

#include <gtest/gtest.h>

#include "testing/scantest.h"

namespace keel {
namespace {

TEST(TrimString, BothEndsIntoANewString) {
    EXPECT_EQ(str(defaultTrimSet()), " \t");
    EXPECT_EQ(defaultTrimSet().length(), 2);
    // A null set stands for the default set.
    const struct { const char *text, *set, *trimmed; } cases[] = {
        {"  a b \t", nullptr, "a b"}, {" \t \t", nullptr, ""},    {"", nullptr, ""},
        {"\na\n", nullptr, "\na\n"},  {"xxaxbxx", "x", "axb"},    {"-=a=-", "=-", "a"},
        {" a ", "", " a "},           {"\xe2\x82\xac\xc3\xa9x\xc3\xa9", "\xc3\xa9\xe2\x82\xac", "x"},
    };
    for (const auto& c : cases) {
        StringC source = u8(c.text);
        EXPECT_EQ(str(trimString(source, c.set ? u8(c.set) : defaultTrimSet())), c.trimmed) << c.text;
        EXPECT_EQ(str(source), c.text);
    }
}

}  // namespace
}  // namespace keel
