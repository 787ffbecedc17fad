// The conveniences of the StringC handle as a client uses them: moves,
// comparisons and hashing as container keys, conversions, the character
// range and telling a string of an unknown encoding apart.
#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <gtest/gtest.h>

#include <keel/keel.h>

using namespace keel;

namespace {

StringC u8(std::string_view text) { return StringC(text); }

// The reference count of a representation, read through its own operations.
int32_t countOf(const StringC& string) {
    StringImplI* impl = string.getImpl();
    int32_t count = impl->addRef() - 1;
    impl->release();
    return count;
}

TEST(StringHandleTest, MovesTouchNoReferenceCount) {
    StringC source = u8("moved text");
    StringImplI* impl = source.getImpl();
    ASSERT_EQ(1, countOf(source));
    StringC target(std::move(source));
    EXPECT_TRUE(target.getImpl() == impl && countOf(target) == 1);
    // The moved-from handle reads as the empty string and can be reused.
    // NOLINTNEXTLINE(bugprone-use-after-move)
    EXPECT_TRUE(source.isEmpty() && source.length() == 0 && source.toStdString().empty());
    source.append(u8("again"));
    EXPECT_EQ("again", source.toStdString());

    StringC other = u8("other");
    other = std::move(target);
    EXPECT_TRUE(other.getImpl() == impl && countOf(other) == 1);
    other = std::move(other);
    EXPECT_EQ("moved text", other.toStdString());
}

TEST(StringHandleTest, SortsAndKeysContainers) {
    std::vector<StringC> words;
    for (const char* w : {"pear", "Apple", "\xc3\xa9t\xc3\xa9", "apple", "pear", "zebra", ""})
        words.push_back(u8(w));
    std::sort(words.begin(), words.end());
    std::string sorted;
    for (const StringC& w : words) sorted += w.toStdString() + "|";
    // Byte order of the UTF-8 text: upper case before lower, U+00E9 last.
    EXPECT_EQ("|Apple|apple|pear|pear|zebra|\xc3\xa9t\xc3\xa9|", sorted);

    std::map<StringC, int> ordered;
    std::unordered_map<StringC, int> hashed;
    for (const StringC& w : words) {
        ++ordered[w];
        ++hashed[w];
    }
    EXPECT_TRUE(ordered.size() == 6 && hashed.size() == 6);
    EXPECT_TRUE(ordered[u8("pear")] == 2 && hashed[u8("pear")] == 2);

    EXPECT_TRUE(u8("text") == std::string_view("text"));
    // Equal strings from different encodings hash alike.
    const unsigned char utf16[] = {'p', 0, 'e', 0, 'a', 0, 'r', 0};
    StringC fromUtf16(utf16, sizeof utf16, "utf16le");
    EXPECT_EQ(fromUtf16, u8("pear"));
    EXPECT_EQ(std::hash<StringC>()(fromUtf16), std::hash<StringC>()(u8("pear")));
}

TEST(StringHandleTest, ConvertsToAndFromUtf8) {
    std::string source = "Stra\xc3\x9f\x65 \xe2\x82\xac";
    StringC string(source);
    EXPECT_EQ(8, string.length());
    EXPECT_TRUE(string.toStdString() == source && static_cast<std::string>(string) == source);
    EXPECT_TRUE(string.view() == source && static_cast<std::string_view>(string) == source);
    // Broken UTF-8 is replaced on the way in, as "utf8" always does.
    EXPECT_EQ("a\xef\xbf\xbd\x62", u8("a\xff\x62").toStdString());
    std::ostringstream out;
    out << string << '|' << StringC("xy", "no-such-encoding") << '|';
    EXPECT_EQ(source + "||", out.str());
}

// The character range holds its own reference: changing the string meanwhile
// changes a copy.
TEST(StringHandleTest, CharacterRangeHoldsItsOwnReference) {
    StringC word = u8("abc");
    std::u32string seen;
    for (char32_t c : word.chars()) {
        seen += c;
        word.append(uint32_t('!'));
    }
    EXPECT_EQ(U"abc", seen);
    EXPECT_EQ("abc!!!", word.toStdString());
    for (char32_t c : StringC("xy", "no-such-encoding").chars()) ADD_FAILURE() << uint32_t(c);
}

TEST(StringHandleTest, ValidTellsAnUnknownEncodingApart) {
    struct CaseT {
        const char* encoding;
        bool valid;
    } cases[] = {{"utf8", true}, {"Ascii", true}, {"UTF-8", false}, {"", false}};
    for (const CaseT& c : cases) {
        StringC string("text", c.encoding);
        EXPECT_EQ(c.valid, string.valid()) << c.encoding;
        EXPECT_EQ(c.valid, string.length() > 0) << c.encoding;
    }
    // One ASCII byte and the empty text come from the factory's shared
    // strings whatever the name says.
    EXPECT_TRUE(StringC("x", "UTF-8").valid());
    // No text is not the same as empty text, but it compares equal to it.
    EXPECT_EQ(StringC(), StringC("text", "UTF-8"));
}

}  // namespace
