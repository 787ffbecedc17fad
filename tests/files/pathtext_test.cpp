// The plain 8-bit path and text helpers: directoryOf, baseNameOf and
// baseNameInto, getWorkingDirectoryText, copyTextBounded, duplicateText,
// compareTextNoCase and trimTextRight. Paths, suffixes, texts and buffer
// sizes of every kind are pathtext_fuzz's, against models of their steps;
// here the documented cases, null arguments, bytes beyond ASCII and the
// 16 MiB bound of the measure.
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <tuple>

#include <keel/basename.h>
#include <keel/dirname.h>
#include <keel/stricmp.h>
#include <keel/strdup.h>
#include <keel/strlcpy.h>
#include <keel/strtrws.h>

namespace keel {
namespace {

// The text of an answer, "<null>" for none.
std::string textOf(const char* answer) { return answer ? answer : "<null>"; }

// A suffix is never cut at position 0.
TEST(BaseNameInto, DocumentedCases) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"/a/b.txt/", ".txt", "b"},
        {".txt", ".txt", ".txt"},
        {"", nullptr, "<null>"},
        {"/d/caf\xc3\xa9.txt", ".txt", "caf\xc3\xa9"},  // non-ASCII names keep their bytes
    };
    for (const auto& [input, suffix, base] : cases) {
        char path[64], output[64];
        strcpy(path, input);
        EXPECT_EQ(base, textOf(baseNameInto(path, output, sizeof output, suffix))) << input;
        EXPECT_STREQ(input, path);
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

// The directory keeps the slash behind it; a refusal leaves the output
// cleared. In place, the byte under the temporary terminator comes back
// after the cut, so "b/" keeps a character behind the answer.
TEST(DirectoryOf, DocumentedCases) {
    const std::tuple<const char*, size_t, const char*, const char*> cases[] = {
        {"a/b", 64, "a/", "a/"}, {"/a/b", 64, "/a/", "/a/"}, {"a/b/", 64, "a/", "a/"},
        {"b", 64, ".", "."},     {"/", 64, "/", "/"},        {"", 64, ".", nullptr},
        {"b/", 64, ".", "./"},   {"a/b", 2, "<null>", "a/"},
    };
    for (const auto& [input, size, dir, inPlace] : cases) {
        char path[64], output[64];
        strcpy(path, input);
        memset(output, 'Z', sizeof output);
        char* result = directoryOf(path, output, size);
        EXPECT_EQ(dir, textOf(result)) << input << " in " << size;
        EXPECT_TRUE(result ? result == output : output[0] == '\0') << input << " in " << size;
        EXPECT_STREQ(input, path);
        EXPECT_EQ(inPlace ? path : nullptr, directoryOfInPlace(path)) << input;
        EXPECT_STREQ(inPlace ? inPlace : input, path);
    }
    EXPECT_EQ(nullptr, directoryOf(nullptr, nullptr, 10));
    EXPECT_EQ(nullptr, directoryOfInPlace(nullptr));
    // Nothing is written into a path that has no trailing "/".
    char output[16];
    EXPECT_STREQ("dir/", directoryOf(const_cast<char*>("dir/file"), output, sizeof output));
}

// The length is the answer whatever the room; a size equal to the length
// copies all but the last character, and too little room copies nothing.
TEST(GetWorkingDirectoryText, CopiesAndTellsTheRoomNeeded) {
    char expected[PATH_MAX], buffer[PATH_MAX];
    ASSERT_NE(nullptr, getcwd(expected, sizeof expected));
    size_t length = strlen(expected);
    EXPECT_EQ(length, getWorkingDirectoryText(nullptr, 100));
    for (size_t size : {sizeof buffer, length, length - 1}) {
        memset(buffer, 'Z', sizeof buffer);
        EXPECT_EQ(length, getWorkingDirectoryText(buffer, size));
        EXPECT_EQ(size < length ? "Z" : std::string(expected, std::min(length, size - 1)),
                  std::string(buffer, size < length ? 1 : strlen(buffer)));
    }
    ASSERT_EQ(0, chdir("/"));
    EXPECT_EQ(1u, getWorkingDirectoryText(buffer, 16));
    EXPECT_STREQ("/", buffer);
    ASSERT_EQ(0, chdir(expected));
}

TEST(CopyTextBounded, NullArguments) {
    char buffer[4] = "ZZZ";
    EXPECT_EQ(0u, copyTextBounded(buffer, nullptr, sizeof buffer));
    EXPECT_STREQ("ZZZ", buffer);
    EXPECT_EQ(4u, copyTextBounded(nullptr, "abcd", 10));
}

TEST(DuplicateText, CopiesWithTerminatorAndMeasuresAtMost16MiB) {
    EXPECT_EQ(nullptr, duplicateText(nullptr));
    std::string huge(kMaxMeasuredText + 100, 'y');
    for (const char* original : {"some text", "", huge.c_str()}) {
        char* copy = duplicateText(original);
        EXPECT_NE(original, copy);
        EXPECT_EQ(std::string(original, std::min(strlen(original), kMaxMeasuredText)), copy);
        delete[] copy;
    }
    char buffer[4];
    EXPECT_EQ(kMaxMeasuredText, copyTextBounded(buffer, huge.c_str(), sizeof buffer));
    EXPECT_STREQ("yyy", buffer);
}

// Upper-case letters are folded before the difference is taken, so "A" sorts
// after "_" (0x5F) as "a" (0x61) does; bytes are unsigned.
TEST(CompareTextNoCase, FoldsUpperCaseOnly) {
    EXPECT_EQ(0, compareTextNoCase("Hello", "hELLO"));
    EXPECT_EQ('a' - '_', compareTextNoCase("A", "_"));
    EXPECT_EQ(0xe9 - 'e', compareTextNoCase("\xe9", "e"));
    char blanks[] = "   ", line[] = "line \t\r\n\v";
    EXPECT_STREQ("", trimTextRight(blanks));
    EXPECT_STREQ("line \t\r\n\v", trimTextRight(line));  // a vertical tab stays
    EXPECT_EQ(nullptr, trimTextRight(nullptr));
}

}  // namespace
}  // namespace keel
