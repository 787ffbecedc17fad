#include <keel/basename.h>

#include <gtest/gtest.h>

#include <string.h>

#include <string>

namespace keel {
namespace {

// ASCII paths, suffixes and sizes of every kind are pathtext_fuzz's, against
// a model of the steps; here the documented cases and bytes beyond ASCII.
// "<null>" stands for a null answer; a suffix is never cut at position 0.
TEST(BaseNameInto, DocumentedCases) {
    struct Case {
        const char *path, *suffix, *base;
    };
    const Case cases[] = {
        {"/a/b.txt/", ".txt", "b"},
        {".txt", ".txt", ".txt"},
        {"", nullptr, "<null>"},
        {"/d/caf\xc3\xa9.txt", ".txt", "caf\xc3\xa9"},  // non-ASCII names keep their bytes
    };
    for (const Case& c : cases) {
        char path[64], output[64];
        strcpy(path, c.path);
        char* result = baseNameInto(path, output, sizeof output, c.suffix);
        EXPECT_EQ(c.base, std::string(result ? result : "<null>")) << c.path;
        EXPECT_STREQ(c.path, path);
    }
    EXPECT_EQ(nullptr, baseNameInto(nullptr, nullptr, 0, nullptr));
    EXPECT_EQ(nullptr, baseNameOf(nullptr));
    EXPECT_STREQ("b", baseNameOf("a/b"));
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
