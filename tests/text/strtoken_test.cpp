#include "text/strtoken.h"

#include <gtest/gtest.h>

#include <string>

namespace keel {
namespace {

std::string str(const StringC& s) {
    const char* text = s.textUtf8();
    std::string copy(text ? text : "", s.textUtf8Length());
    s.releaseUtf8(text);
    return copy;
}

TEST(DefaultTrimSet, BlankAndTab) {
    EXPECT_EQ(str(defaultTrimSet()), " \t");
    EXPECT_EQ(defaultTrimSet().length(), 2);
}

}  // namespace
}  // namespace keel
