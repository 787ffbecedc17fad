// String sets.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>

#include "testing/printcapture.h"
#include "testing/scantest.h"
#include <keel/strset.h>

namespace keel {
namespace {

TEST(StringSetTest, AddContainsRemoveClear) {
    StringSetC set(false);
    set.add(u8("alpha"));
    set.add(u8("beta"));
    set.add(u8("alpha"));  // held once
    EXPECT_EQ(2u, set.size());
    EXPECT_FALSE(set.contains(u8("ALPHA")));
    EXPECT_TRUE(set.remove(u8("alpha")));
    EXPECT_FALSE(set.remove(u8("alpha")));
    EXPECT_TRUE(set.contains(u8("beta")));
    set.clear();
    EXPECT_EQ(0u, set.size());
    EXPECT_FALSE(set.contains(u8("beta")));
}

TEST(StringSetTest, CaseBlindSetKeepsTheNewestSpelling) {
    StringSetC set(true);
    set.add(u8("Alpha"));
    set.add(u8("ALPHA"));
    EXPECT_EQ(1u, set.size());
    StringC probe = u8("aLpHa");
    StringSetEntryC* entry = static_cast<StringSetEntryC*>(set.find(&probe));
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(0, entry->compare(u8("ALPHA")));
    set.add(u8("\xc3\x89t\xc3\xa9"));
    EXPECT_TRUE(set.contains(u8("\xc3\xa9T\xc3\x89")));
    EXPECT_TRUE(set.check());
}

TEST(StringSetTest, EntriesDetachThemselvesAndPrintTheirString) {
    StringSetC set(false);
    StringSetEntryC* entry = new StringSetEntryC(u8("solo"));
    set.insert(entry);
    set.add(u8("other"));
    delete entry;
    EXPECT_EQ(1u, set.size());
    EXPECT_FALSE(set.contains(u8("solo")));
    EXPECT_TRUE(set.check());
    delete new StringSetEntryC(u8("loose"));  // never linked: simply deleted
    StringSetEntryC word(u8("word"));
    word.hash = 0xABCD;
    char expected[96];
    snprintf(expected, sizeof expected, "\"word\"@%p(0xCD)", static_cast<void*>(static_cast<HashElemI*>(&word)));
    EXPECT_EQ(expected, testing_print::captured([&](FILE* s) { word.printHashed(s, 0xFF); }));
}

}  // namespace
}  // namespace keel
