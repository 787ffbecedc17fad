#include <keel/filename.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include <keel/stringar.h>
#include "testing/scantest.h"

namespace keel {
namespace {

FileNameC N(const std::string& text) { return FileNameC(u8(text)); }

// What the normal form holds and how it collapses, in the cases whose
// answers the invariants of filename_fuzz leave open (toString is the root
// and the text; the flags are false). The last rows: Windows syntax is
// ordinary text, a NUL is an ordinary character, and the "fewer than three
// characters" rule counts characters, not bytes.
TEST(FileName, NormalFormAndCollapse) {
    typedef std::tuple<std::string, bool, std::string> AnswersT;  // text, rooted, collapsed
    const std::pair<std::string, AnswersT> cases[] = {
        {"", {"", false, ""}},
        {"/", {"", true, "/"}},
        {"///a", {"a", true, "/a"}},
        {"a//b", {"a/b", false, "a/b"}},
        {".", {".", false, ""}},
        {"./", {".", false, ""}},
        {"a/.", {"a/.", false, "a/"}},
        {"ab/.", {"ab/.", false, "ab"}},
        {"a/..", {"a/..", false, "."}},
        {"/a/..", {"a/..", true, "/."}},
        {"a/b/..", {"a/b/..", false, "a/"}},
        {"/..", {"..", true, "/.."}},
        {"/a/../..", {"a/../..", true, "/.."}},
        {"a/../../b/./c/", {"a/../../b/./c", false, "../b/c"}},
        {"x/../a/..", {"x/../a/..", false, "."}},
        {"C:\\dir\\f", {"C:\\dir\\f", false, "C:\\dir\\f"}},
        {std::string("a\0//b/", 6), {std::string("a\0/b", 4), false, std::string("a\0/b", 4)}},
        {"\xc3\xa9/.", {"\xc3\xa9/.", false, "\xc3\xa9/"}},
        {"\xc3\xa9x/.", {"\xc3\xa9x/.", false, "\xc3\xa9x"}},
    };
    for (const auto& [input, answers] : cases) {
        FileNameC name = N(input);
        EXPECT_EQ(answers,
                  AnswersT(str(name.getText()), name.isRooted(), str(name.getCollapsedText())))
            << input;
    }
    // Names of 4,096 bytes and more have no limit of their own.
    std::string deep, collapsed = "/";
    for (int i = 0; i < 1000; ++i) deep += "//dir/.";
    for (int i = 0; i < 999; ++i) collapsed += "dir/";
    FileNameC deepName = N(deep + "/../x/");
    EXPECT_EQ(2002, deepName.getComponentCount());
    EXPECT_EQ(collapsed + "x", str(deepName.getCollapsedText()));
    // Text in normal form keeps its representation.
    StringC normal = u8("usr/lib/x.so");
    EXPECT_EQ(normal.getImpl(), FileNameC(normal).getText().getImpl());
}

// Joins, queries, components, prefixes and relative names of every text are
// filename_fuzz's, against their steps taken literally; here the documented
// cases. Joining a directory and a name looks only at the raw ends.
TEST(FileName, Join) {
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"a", "/b", "ab"}, {"a/", "/b", "a/b"}, {".", "/b", "b"},
        {"", "/b", "/b"},  {"/a", "b", "/a/b"},
    };
    for (const auto& [dir, name, result] : cases)
        EXPECT_EQ(result, str(FileNameC(u8(dir), u8(name)).toString())) << dir << " + " << name;
    EXPECT_TRUE(FileNameC(static_cast<const FileNameC*>(nullptr), u8("/x")).toString().isEmpty());
    EXPECT_TRUE(FileNameC(static_cast<const FileNameC*>(nullptr)).toString().isEmpty());

    StringArrayC parts;
    EXPECT_TRUE(FileNameC(parts).getText().isEmpty());
    for (const char* part : {"", "usr", "", "lib/"}) parts.append(u8(part));
    FileNameC joined(parts);
    EXPECT_EQ("/usr/lib", str(joined.toString()));
}

TEST(FileName, Queries) {
    EXPECT_EQ("b", str(N("a/b.txt").getBaseName(u8(".txt"))));
    EXPECT_EQ("", str(N("a/b").getBaseName(u8("b"))));  // the suffix is cut before the split
    EXPECT_TRUE(N("a").getParent().toString().isEmpty());
    EXPECT_TRUE(N("/a").getParent().isRoot());
    EXPECT_TRUE(N("/").getParent().isRoot());
    EXPECT_EQ("b/c", str(N("a.b/c").getExtension('.')));
    EXPECT_EQ("txt", str(N(".txt").getExtension('.')));
    EXPECT_EQ("", str(N("a/b").getExtension('.')));
    EXPECT_EQ("\xc3\xa9", str(N("x\xe2\x82\xac\xc3\xa9").getExtension(0x20AC)));
    EXPECT_EQ("", str(N("/").getComponent(0)));
    EXPECT_EQ("a", str(N("/a").getExtension('/')));  // the root's "/" stands in front
    EXPECT_FALSE(N("/").hasBaseName());
    FileNameC path = N("/usr/lib/x");
    EXPECT_EQ("lib", str(path.getComponent(1)));
    EXPECT_EQ("", str(path.getComponent(3)));
    EXPECT_EQ(nullptr, path.getComponents(0, 0));
    std::unique_ptr<StringArrayC> last(path.getComponents(9, 5));
    ASSERT_EQ(1u, last->size());
    EXPECT_EQ("x", str(*last->at(0)));
}

TEST(FileName, PrefixRelativeSuffixAndCompare) {
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"/a/b", "/a", "b"}, {"/a", "/a", "."}, {"/a", "/", "/a"}, {"/ab", "/a", "/ab"}};
    for (const auto& [name, base, relative] : cases)
        EXPECT_EQ(relative,
                  str(std::unique_ptr<FileNameC>(N(name).relativeTo(N(base)))->toString()))
            << name << " " << base;
    EXPECT_FALSE(N("/ab").hasPrefix(N("/a")));
    EXPECT_EQ("/d/x.bak", str(N("/d/x.txt").replaceSuffix(u8(".bak"), u8(".txt")).toString()));
    EXPECT_EQ("/d/x.txt.bak", str(N("/d/x.txt").replaceSuffix(u8(".bak"), u8(".c")).toString()));
    for (const char* suffix : {"", "abc"}) {
        StringC text = u8("abc");
        FileNameC::stripSuffix(text, u8(suffix));
        EXPECT_EQ(*suffix ? "" : "abc", str(text)) << suffix;
    }
    // compare orders by the full text, root included, case-sensitive.
    EXPECT_EQ(0, N("//a//b").compare(N("/a/b")));
    EXPECT_LT(N("/b").compare(N("a")), 0);
    EXPECT_GT(N("a/c").compare(N("a/b")), 0);
    EXPECT_NE(0, N("A").compare(N("a")));
    EXPECT_LT(N("/a").compare(N("/a/b")), 0);
}

// Short ASCII names and patterns are filename_fuzz's, which compares the
// matcher with its steps taken literally; here case beyond ASCII.
TEST(FileName, Wildcards) {
    EXPECT_TRUE(FileNameC::wildcardMatch(u8("x.TXT"), u8("*.txt"), false));
    EXPECT_TRUE(FileNameC::wildcardMatch(u8("\xc3\x89t\xc3\xa9"), u8("?T*"), false));
    EXPECT_TRUE(N("/d/notes.txt").matchesBaseName(u8("*.txt")));
    EXPECT_FALSE(N("/d/notes.TXT").matchesBaseName(u8("*.txt")));
    EXPECT_FALSE(N("/d.txt/notes").matchesBaseName(u8("*.txt")));
    // Many stars against a long name: the literal recursion would not end in
    // a lifetime; each star's answers are worked out once.
    std::string longName(4096, 'a'), stars = std::string(40, '*') + "a*a*a*a*a*b";
    EXPECT_FALSE(FileNameC::wildcardMatch(u8(longName), u8(stars), true));
    EXPECT_TRUE(FileNameC::wildcardMatch(u8(longName + "b"), u8(stars), true));
}

}  // namespace
}  // namespace keel
