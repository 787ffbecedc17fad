// String sets.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>

#include "containers/printcapture.h"
#include "containers/strset.h"

namespace keel {
namespace {

StringC u8(const char* text) { return StringC(text, "utf8"); }

std::string utf8Of(const StringC& s) {
    const char* text = s.textUtf8();
    std::string out(text, s.textUtf8Length());
    s.releaseUtf8(text);
    return out;
}

TEST(StringSetTest, AddContainsRemoveClear) {
    StringSetC set(false);
    EXPECT_EQ(set.size(), 0u);
    set.add(u8("alpha"));
    set.add(u8("beta"));
    set.add(u8("alpha"));  // held once
    EXPECT_EQ(set.size(), 2u);
    EXPECT_TRUE(set.contains(u8("alpha")));
    EXPECT_FALSE(set.contains(u8("ALPHA")));
    EXPECT_FALSE(set.contains(u8("gamma")));
    EXPECT_TRUE(set.remove(u8("alpha")));
    EXPECT_FALSE(set.remove(u8("alpha")));
    EXPECT_EQ(set.size(), 1u);
    for (int i = 0; i < 50; ++i) set.add(u8(("s" + std::to_string(i)).c_str()));
    EXPECT_EQ(set.size(), 51u);
    uint32_t lists = set.listCount();
    set.clear();
    EXPECT_EQ(set.size(), 0u);
    EXPECT_EQ(set.listCount(), lists);
    EXPECT_FALSE(set.contains(u8("beta")));
    EXPECT_TRUE(set.check());
}

TEST(StringSetTest, CaseBlindSetKeepsTheNewestSpelling) {
    StringSetC set(true);
    set.add(u8("Alpha"));
    set.add(u8("ALPHA"));
    EXPECT_EQ(set.size(), 1u);
    EXPECT_TRUE(set.contains(u8("alpha")));
    StringC probe = u8("aLpHa");
    StringSetEntryC* entry = static_cast<StringSetEntryC*>(set.find(&probe));
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(utf8Of(*entry), "ALPHA");
    set.add(u8("\xc3\x89t\xc3\xa9"));
    EXPECT_TRUE(set.contains(u8("\xc3\xa9T\xc3\x89")));
    EXPECT_TRUE(set.check());
}

TEST(StringSetTest, EntriesDetachThemselves) {
    StringSetC set(false);
    StringSetEntryC* entry = new StringSetEntryC(u8("solo"));
    set.insert(entry);
    set.add(u8("other"));
    EXPECT_EQ(set.size(), 2u);
    delete entry;
    EXPECT_EQ(set.size(), 1u);
    EXPECT_FALSE(set.contains(u8("solo")));
    EXPECT_TRUE(set.check());

    // An entry that was never linked is simply deleted.
    delete new StringSetEntryC(u8("loose"));
}

TEST(StringSetTest, PrintHashedShowsTheString) {
    StringSetEntryC entry(u8("word"));
    entry.hash = 0xABCD;
    std::string text = testing_print::captured([&](FILE* s) { entry.printHashed(s, 0xFF); });
    char expected[96];
    snprintf(expected, sizeof expected, "\"word\"@%p(0xCD)", static_cast<void*>(static_cast<HashElemI*>(&entry)));
    EXPECT_EQ(text, expected);
}

}  // namespace
}  // namespace keel
