#include <keel/basename.h>

#include <gtest/gtest.h>

#include <string.h>

#include <string>

namespace keel {
namespace {

TEST(BaseNameOf, PointsBehindTheLastSlash) {
    const char* path = "/usr/lib/libkeel.so";
    EXPECT_EQ(path + 9, baseNameOf(path));
    EXPECT_EQ(path + 9, baseNameOf(path + 9));
    EXPECT_STREQ("", baseNameOf("dir/"));
    EXPECT_EQ(nullptr, baseNameOf(nullptr));
}

// Into a separate buffer the path stays as it is; "<null>" stands for a null
// answer. A suffix is cut only at the end and never at position 0.
TEST(BaseNameInto, TrailingSlashesSuffixAndBounds) {
    struct Case {
        const char* path;
        const char* suffix;
        size_t size;
        const char* base;
    };
    const Case cases[] = {
        {"/a/b.txt/", ".txt", 64, "b"},
        {"/a/b.txt", nullptr, 64, "b.txt"},
        {".txt", ".txt", 64, ".txt"},
        {"a/.txt", ".txt", 64, ""},
        {"b.txt.bak", ".txt", 64, "b.txt.bak"},
        {"b.txt", "", 64, "b.txt"},
        {"a/b///", nullptr, 64, "b"},
        {"///", nullptr, 64, ""},
        {"", nullptr, 64, "<null>"},
        {"/d/caf\xc3\xa9.txt", ".txt", 64, "caf\xc3\xa9"},  // non-ASCII names keep their bytes
        {"/a/longname", nullptr, 5, "long"},
        {"/a/longname", nullptr, 1, ""},
    };
    for (const Case& c : cases) {
        char path[64], output[64];
        strcpy(path, c.path);
        memset(output, 'Z', sizeof output);
        char* result = baseNameInto(path, output, c.size, c.suffix);
        EXPECT_EQ(c.base, std::string(result ? result : "<null>")) << c.path;
        EXPECT_TRUE(!result || result == output) << c.path;
        EXPECT_STREQ(c.path, path);
    }
    EXPECT_EQ(nullptr, baseNameInto(nullptr, nullptr, 0, nullptr));
}

TEST(BaseNameInto, IntoThePathItself) {
    char path[] = "/usr/lib/libkeel.so/";
    EXPECT_EQ(path, baseNameInto(path, nullptr, 0, ".so"));
    EXPECT_EQ(std::string("libkeel\0\0\0\0\0\0\0\0\0\0\0\0\0", 21),
              std::string(path, sizeof path));  // the rest cleared
    // An invalid byte reads as U+FFFD, three bytes that do not fit in the
    // place of one: the name is cut to the path's storage.
    char invalid[] = "\xfe";
    EXPECT_EQ(invalid, baseNameInto(invalid, nullptr, 0, nullptr));
    EXPECT_STREQ("\xef", invalid);
    char fits[] = "\xff/\xfe";
    EXPECT_STREQ("\xef\xbf\xbd", baseNameInto(fits, nullptr, 0, nullptr));
}

}  // namespace
}  // namespace keel
