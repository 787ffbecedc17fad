#include <keel/dirname.h>

#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>

namespace keel {
namespace {

// Paths and buffer sizes of every kind are pathtext_fuzz's, against a model
// of the steps; here the documented cases. The directory keeps the slash
// behind it; a refusal ("<null>") leaves the output cleared. In place, the
// byte under the temporary terminator comes back after the cut, so "b/"
// keeps a character behind the answer.
TEST(DirectoryOf, DocumentedCases) {
    struct Case {
        const char* path;
        size_t size;
        const char *dir, *inPlace;
    };
    const Case cases[] = {
        {"a/b", 64, "a/", "a/"},  {"/a/b", 64, "/a/", "/a/"}, {"a/b/", 64, "a/", "a/"},
        {"b", 64, ".", "."},      {"/", 64, "/", "/"},        {"", 64, ".", nullptr},
        {"b/", 64, ".", "./"},    {"a/b", 2, "<null>", "a/"},
    };
    for (const Case& c : cases) {
        char path[64], output[64];
        strcpy(path, c.path);
        memset(output, 'Z', sizeof output);
        char* result = directoryOf(path, output, c.size);
        EXPECT_EQ(c.dir, std::string(result ? result : "<null>")) << c.path << " in " << c.size;
        EXPECT_TRUE(result ? result == output : output[0] == '\0') << c.path << " in " << c.size;
        EXPECT_STREQ(c.path, path);
        EXPECT_EQ(c.inPlace ? path : nullptr, directoryOfInPlace(path)) << c.path;
        EXPECT_STREQ(c.inPlace ? c.inPlace : c.path, path);
    }
    EXPECT_EQ(nullptr, directoryOf(nullptr, nullptr, 10));
    EXPECT_EQ(nullptr, directoryOfInPlace(nullptr));
    // Nothing is written into a path that has no trailing "/".
    char output[16];
    EXPECT_STREQ("dir/", directoryOf(const_cast<char*>("dir/file"), output, sizeof output));
}

TEST(GetWorkingDirectoryText, CopiesAndTellsTheRoomNeeded) {
    char expected[PATH_MAX], buffer[PATH_MAX];
    ASSERT_NE(nullptr, getcwd(expected, sizeof expected));
    size_t length = strlen(expected);
    EXPECT_EQ(length, getWorkingDirectoryText(buffer, sizeof buffer));
    EXPECT_STREQ(expected, buffer);
    EXPECT_EQ(length, getWorkingDirectoryText(nullptr, 100));
    memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(length, getWorkingDirectoryText(buffer, length - 1));
    EXPECT_EQ('Z', buffer[0]);
    // A size equal to the length copies all but the last character.
    EXPECT_EQ(length, getWorkingDirectoryText(buffer, length));
    EXPECT_EQ(std::string(expected, length - 1), buffer);
    // At the root.
    ASSERT_EQ(0, chdir("/"));
    EXPECT_EQ(1u, getWorkingDirectoryText(buffer, 16));
    EXPECT_STREQ("/", buffer);
    ASSERT_EQ(0, chdir(expected));
}

}  // namespace
}  // namespace keel
