#include "files/basename.h"

#include <gtest/gtest.h>

#include <string.h>

#include <string>

namespace keel {
namespace {

TEST(BaseNameOf, PointsBehindTheLastSlash) {
    const char* path = "/usr/lib/libkeel.so";
    EXPECT_EQ(baseNameOf(path), path + 9);
    const char* plain = "file";
    EXPECT_EQ(baseNameOf(plain), plain);
    EXPECT_STREQ(baseNameOf("dir/"), "");
    EXPECT_STREQ(baseNameOf("/"), "");
    EXPECT_STREQ(baseNameOf(""), "");
    EXPECT_EQ(baseNameOf(nullptr), nullptr);
}

}  // namespace
}  // namespace keel
