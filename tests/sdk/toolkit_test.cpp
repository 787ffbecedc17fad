// The toolkit archive as a client links it beside libkeel.so: it holds no
// unit that must exist once per process, and its units, which reach strings
// through the public handles only, answer as the library's do.
#include <regex>
#include <set>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <keel/keel.h>
#include <keel/toolkit.h>

#include "testing/symbols.h"

using namespace keel;

namespace {

// A second string factory, load steps, exit actions or process-wide objects
// in the archive would be a second copy of them in every program that links
// it beside the shared object.
TEST(ToolkitArchiveTest, HoldsNothingThatExistsOncePerProcess) {
    std::set<std::string> names = testkit::definedSymbols(KEEL_TOOLKIT_ARCHIVE, "-C");
    ASSERT_FALSE(names.empty()) << "nm found nothing in " << KEEL_TOOLKIT_ARCHIVE;
    EXPECT_TRUE(
        names.count("keel::quickSort(void*, unsigned int, unsigned int, int (*)(void*, void "
                    "const*, void const*), void*)"));
    const std::regex forbidden(
        "getStringFactory|getErrBuf|getLocale|getTracer|getTraceController|getConfiguration|"
        "StringImplFactoryC|StringImplC|loadStep|registerExitAction|emptyArgList|"
        "defaultTrimSet|LatchC|_GLOBAL__sub_I|OsVersionC");
    for (const std::string& name : names) EXPECT_FALSE(std::regex_search(name, forbidden)) << name;
}

StringC u8(std::string_view text) { return StringC(text); }

// String keys through the handles: the same hash as the bytes of the text,
// and equal keys of every representation meet.
TEST(ToolkitArchiveTest, StringKeysThroughTheHandles) {
    for (const char* word : {"", "a", "word", "\xc3\xa9t\xc3\xa9", "a longer key of text"}) {
        StringC key = u8(word);
        std::string_view bytes = key.view();
        EXPECT_EQ(hashOfBytes(bytes.data(), static_cast<int32_t>(bytes.size())), hashOfString(key))
            << word;
        StringC secure = StringC::fromNew(getStringFactory()->secureFromText(word, "utf8"));
        EXPECT_TRUE(stringKeysEqual(key, secure, false)) << word;
    }
}

TEST(ToolkitArchiveTest, ScannersAndCopies) {
    StringArrayC* parts = splitString(u8(" a, b ,,c\\,d "), u8(","), true, false, '\\');
    ASSERT_EQ(3u, parts->size());
    EXPECT_EQ("c\\,d", parts->at(2)->toStdString());
    delete parts;
    uint32_t error = 0;
    EXPECT_EQ(31, parseInt32(u8("0x1F"), &error, 0));
    EXPECT_EQ(0u, error);
    EXPECT_EQ("Hello world", trimString(u8(" \tHello world\t"), u8(" \t")).toStdString());
    StringC original = u8("Hello World");
    StringC sharer = original;
    EXPECT_EQ("hello world", lowerCaseCopy(original).toStdString());
    EXPECT_EQ("Hello World", sharer.toStdString());
    EXPECT_EQ("a/b/c",
              replaceString(u8("a\\b\\c"), u8("\\"), u8("/"), true, -1, false).toStdString());
    char name[8];
    EXPECT_EQ(10u, copyTextBounded(name, "libkeel.so", sizeof name));
    EXPECT_STREQ("libkeel", name);
    EXPECT_STREQ("libkeel.so", baseNameOf("/usr/lib/libkeel.so"));
    FileNameC path(u8("//usr/./lib//x.so/"));
    EXPECT_EQ("/usr/./lib/x.so", path.toString().toStdString());
    EXPECT_EQ("/usr/lib/x.so", path.getCollapsedText().toStdString());
    EXPECT_EQ("x", path.getBaseName(u8(".so")).toStdString());
}

}  // namespace
