// String sets.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>

#include "testing/printcapture.h"
#include "testing/scantest.h"
#include <keel/strset.h>

namespace keel {
namespace {

// A case-blind set holds a key once, in its newest spelling; a
// case-sensitive one tells the spellings apart.
TEST(StringSetTest, AddContainsRemoveClear) {
    for (bool blind : {false, true}) {
        StringSetC set(blind);
        for (const char* key : {"alpha", "beta", "ALPHA", "\xc3\x89t\xc3\xa9"}) set.add(u8(key));
        EXPECT_EQ(blind ? 3u : 4u, set.size());
        EXPECT_EQ(blind, set.contains(u8("aLpHa")));
        EXPECT_EQ(blind, set.contains(u8("\xc3\xa9T\xc3\x89")));
        StringC probe = u8("alpha");
        EXPECT_EQ(0, static_cast<StringSetEntryC*>(set.find(&probe))
                         ->compare(u8(blind ? "ALPHA" : "alpha")));
        EXPECT_TRUE(set.remove(u8("alpha")));
        EXPECT_FALSE(set.remove(u8("alpha")));
        EXPECT_TRUE(set.contains(u8("beta")));
        EXPECT_TRUE(set.check());
        set.clear();
        EXPECT_EQ(0u, set.size());
        EXPECT_FALSE(set.contains(u8("beta")));
    }
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
    EXPECT_EQ("\"word\"@" + testing_print::pointerText(static_cast<HashElemI*>(&word)) + "(0xCD)",
              testing_print::captured([&](FILE* s) { word.printHashed(s, 0xFF); }));
}

}  // namespace
}  // namespace keel
