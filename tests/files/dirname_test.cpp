#include "files/dirname.h"

#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>

namespace keel {
namespace {

// directoryOf into a separate buffer; "<null>" when it answers null.
std::string dirOf(const char* text, size_t size = 64) {
    char path[64];
    strcpy(path, text);
    char output[64];
    memset(output, 'Z', sizeof output);
    char* result = directoryOf(path, output, size);
    // The path is given back unchanged.
    EXPECT_STREQ(path, text);
    if (!result) {
        if (size > 0) {
            EXPECT_EQ(output[0], '\0') << "output not cleared for " << text;
        }
        return "<null>";
    }
    EXPECT_EQ(result, output);
    return result;
}

TEST(DirectoryOf, KeepsTheSlashBehindTheDirectory) {
    EXPECT_EQ(dirOf("a/b"), "a/");
    EXPECT_EQ(dirOf("/a/b"), "/a/");
    EXPECT_EQ(dirOf("a/b/"), "a/");
    EXPECT_EQ(dirOf("a/b///"), "a/");
    EXPECT_EQ(dirOf("a//b"), "a//");
    EXPECT_EQ(dirOf("b"), ".");
    EXPECT_EQ(dirOf("b/"), ".");
    EXPECT_EQ(dirOf("/"), "/");
    EXPECT_EQ(dirOf("//"), "/");
    EXPECT_EQ(dirOf("/b"), "/");
    EXPECT_EQ(dirOf(""), ".");
}

TEST(DirectoryOf, OutputTooSmall) {
    // "a/" needs three bytes with its terminator.
    EXPECT_EQ(dirOf("a/b", 3), "a/");
    EXPECT_EQ(dirOf("a/b", 2), "<null>");
    EXPECT_EQ(dirOf("/a/b", 3), "<null>");
    // "." needs two.
    EXPECT_EQ(dirOf("b", 2), ".");
    EXPECT_EQ(dirOf("b", 1), "<null>");
    EXPECT_EQ(dirOf("b", 0), "<null>");
    EXPECT_EQ(directoryOf(nullptr, nullptr, 10), nullptr);
    char path[] = "a/b";
    EXPECT_EQ(directoryOf(path, nullptr, 10), nullptr);
}

TEST(DirectoryOf, ReadOnlyPathWithoutTrailingSlash) {
    // Nothing is written into a path that has no trailing "/".
    const char* constant = "dir/file";
    char output[16];
    EXPECT_STREQ(directoryOf(const_cast<char*>(constant), output, sizeof output), "dir/");
}

TEST(DirectoryOf, InPlace) {
    char a[] = "/usr/lib/x.so";
    EXPECT_EQ(directoryOfInPlace(a), a);
    EXPECT_STREQ(a, "/usr/lib/");
    char b[] = "a/b/";
    EXPECT_STREQ(directoryOfInPlace(b), "a/");
    char c[] = "b";
    EXPECT_STREQ(directoryOfInPlace(c), ".");
    char d[] = "/";
    EXPECT_STREQ(directoryOfInPlace(d), "/");
    // An empty path has no room for ".".
    char e[] = "";
    EXPECT_EQ(directoryOfInPlace(e), nullptr);
    EXPECT_STREQ(e, "");
    EXPECT_EQ(directoryOfInPlace(nullptr), nullptr);
    // The byte under the temporary terminator comes back after the cut, so
    // these two keep a character behind the answer.
    char f[] = "b/";
    EXPECT_STREQ(directoryOfInPlace(f), "./");
    char g[] = "//";
    EXPECT_STREQ(directoryOfInPlace(g), "//");
}

// Runs `body` with the working directory changed, and changes it back.
template <typename F>
void inDirectory(const char* dir, F body) {
    char saved[PATH_MAX];
    ASSERT_NE(getcwd(saved, sizeof saved), nullptr);
    ASSERT_EQ(chdir(dir), 0);
    body();
    ASSERT_EQ(chdir(saved), 0);
}

TEST(GetWorkingDirectoryText, CopiesAndTellsTheRoomNeeded) {
    char expected[PATH_MAX];
    ASSERT_NE(getcwd(expected, sizeof expected), nullptr);
    size_t length = strlen(expected);

    char buffer[PATH_MAX];
    EXPECT_EQ(getWorkingDirectoryText(buffer, sizeof buffer), length);
    EXPECT_STREQ(buffer, expected);

    EXPECT_EQ(getWorkingDirectoryText(nullptr, 100), length);
    memset(buffer, 'Z', sizeof buffer);
    EXPECT_EQ(getWorkingDirectoryText(buffer, length - 1), length);
    EXPECT_EQ(buffer[0], 'Z');
    // A size equal to the length copies all but the last character.
    EXPECT_EQ(getWorkingDirectoryText(buffer, length), length);
    EXPECT_EQ(std::string(buffer), std::string(expected, length - 1));
}

TEST(GetWorkingDirectoryText, Root) {
    inDirectory("/", [] {
        char buffer[16];
        memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(getWorkingDirectoryText(buffer, sizeof buffer), 1u);
        EXPECT_STREQ(buffer, "/");
    });
}

}  // namespace
}  // namespace keel
