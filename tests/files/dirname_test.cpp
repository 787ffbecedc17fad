#include <keel/dirname.h>

#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>

namespace keel {
namespace {

// The directory keeps the slash behind it. Into a separate buffer the path
// stays as it is, and a refusal ("<null>") leaves the buffer cleared; an
// answer needs room for its terminator.
TEST(DirectoryOf, IntoABuffer) {
    struct Case {
        const char* path;
        size_t size;
        const char* dir;
    };
    const Case cases[] = {
        {"a/b", 64, "a/"},     {"/a/b", 64, "/a/"}, {"a/b///", 64, "a/"}, {"a//b", 64, "a//"},
        {"b", 64, "."},        {"b/", 64, "."},     {"/", 64, "/"},       {"//", 64, "/"},
        {"/b", 64, "/"},       {"", 64, "."},       {"a/b", 3, "a/"},     {"a/b", 2, "<null>"},
        {"/a/b", 3, "<null>"}, {"b", 2, "."},       {"b", 1, "<null>"},   {"b", 0, "<null>"},
    };
    for (const Case& c : cases) {
        char path[64], output[64];
        strcpy(path, c.path);
        memset(output, 'Z', sizeof output);
        char* result = directoryOf(path, output, c.size);
        EXPECT_EQ(c.dir, std::string(result ? result : "<null>")) << c.path << " in " << c.size;
        EXPECT_TRUE(result ? result == output : c.size == 0 || output[0] == '\0')
            << c.path << " in " << c.size;
        EXPECT_STREQ(c.path, path);
    }
    char path[] = "a/b";
    EXPECT_EQ(nullptr, directoryOf(nullptr, nullptr, 10));
    EXPECT_EQ(nullptr, directoryOf(path, nullptr, 10));
    // Nothing is written into a path that has no trailing "/".
    char output[16];
    EXPECT_STREQ("dir/", directoryOf(const_cast<char*>("dir/file"), output, sizeof output));
}

// The byte under the temporary terminator comes back after the cut, so "b/"
// and "//" keep a character behind the answer; an empty path has no room for ".".
TEST(DirectoryOf, InPlace) {
    const std::pair<const char*, const char*> cases[] = {
        {"/usr/lib/x.so", "/usr/lib/"},
        {"a/b/", "a/"},
        {"b", "."},
        {"/", "/"},
        {"b/", "./"},
        {"//", "//"},
        {"", nullptr},
    };
    for (const auto& c : cases) {
        char path[16];
        strcpy(path, c.first);
        char* result = directoryOfInPlace(path);
        EXPECT_EQ(c.second ? path : nullptr, result) << c.first;
        EXPECT_STREQ(c.second ? c.second : c.first, path);
    }
    EXPECT_EQ(nullptr, directoryOfInPlace(nullptr));
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
