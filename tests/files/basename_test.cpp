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

// baseNameInto into a separate buffer; "<null>" when it answers null.
std::string baseInto(const char* text, const char* suffix, size_t size = 64) {
    char path[64];
    strcpy(path, text);
    char output[64];
    memset(output, 'Z', sizeof output);
    char* result = baseNameInto(path, output, size, suffix);
    EXPECT_STREQ(path, text);
    if (!result) return "<null>";
    EXPECT_EQ(result, output);
    return result;
}

TEST(BaseNameInto, TrailingSlashesAndSuffix) {
    EXPECT_EQ(baseInto("/a/b.txt/", ".txt"), "b");
    EXPECT_EQ(baseInto("/a/b.txt", nullptr), "b.txt");
    EXPECT_EQ(baseInto("b.txt", ".txt"), "b");
    // A suffix at position 0 stays.
    EXPECT_EQ(baseInto(".txt", ".txt"), ".txt");
    EXPECT_EQ(baseInto("a/.txt", ".txt"), "");
    // Only at the end.
    EXPECT_EQ(baseInto("b.txt.bak", ".txt"), "b.txt.bak");
    EXPECT_EQ(baseInto("b.txt", ".bak"), "b.txt");
    EXPECT_EQ(baseInto("b.txt", ""), "b.txt");
    EXPECT_EQ(baseInto("a/b///", nullptr), "b");
    EXPECT_EQ(baseInto("///", nullptr), "");
    EXPECT_EQ(baseInto("/", nullptr), "");
    EXPECT_EQ(baseInto("plain", nullptr), "plain");
    EXPECT_EQ(baseInto("", nullptr), "<null>");
    EXPECT_EQ(baseNameInto(nullptr, nullptr, 0, nullptr), nullptr);
    // Non-ASCII names keep their bytes.
    EXPECT_EQ(baseInto("/d/caf\xc3\xa9.txt", ".txt"), "caf\xc3\xa9");
}

TEST(BaseNameInto, BoundedOutput) {
    EXPECT_EQ(baseInto("/a/longname", nullptr, 5), "long");
    EXPECT_EQ(baseInto("/a/longname", nullptr, 1), "");
}

TEST(BaseNameInto, IntoThePathItself) {
    char path[] = "/usr/lib/libkeel.so/";
    EXPECT_EQ(baseNameInto(path, nullptr, 0, ".so"), path);
    EXPECT_STREQ(path, "libkeel");
    // The rest of the old text is cleared.
    for (size_t i = strlen(path); i < sizeof path; ++i) EXPECT_EQ(path[i], '\0');
    // An invalid byte reads as U+FFFD, three bytes that do not fit in the
    // place of one: the name is cut to the path's storage.
    char invalid[] = "\xfe";
    EXPECT_EQ(baseNameInto(invalid, nullptr, 0, nullptr), invalid);
    EXPECT_STREQ(invalid, "\xef");
    char fits[] = "\xff/\xfe";
    EXPECT_EQ(baseNameInto(fits, nullptr, 0, nullptr), fits);
    EXPECT_STREQ(fits, "\xef\xbf\xbd");
}

}  // namespace
}  // namespace keel
