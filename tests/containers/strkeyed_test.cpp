// String-keyed tables, the two string hashes, string maps, the dump and string sets.
#include <gtest/gtest.h>

#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <tuple>

#include "testing/hashmodel.h"
#include "testing/modelrun.h"
#include "testing/printcapture.h"
#include "testing/scantest.h"
#include <keel/strkeyed.h>
#include <keel/strset.h>

namespace keel {
namespace {

// String maps pass over elements by their stored hash; a map whose hash
// makes no promise compares every key.
static_assert(storedHashDecides<StringMapHashOf<StringC>>::value, "string maps test hashes first");
static_assert(!storedHashDecides<hashOf<unsigned long>>::value, "other maps compare every key");

using testing_print::captured;
using testing_print::pointerText;

// The case-sensitive hash is the byte hash of the UTF-8 text. Reference
// values of the case-blind one computed once with Python, outside this library:
//   for each character: c = b | 0x20 below 0x80, else ord(ch.lower())
//   h = (h + c) * 1025 % 2**32; h ^= h >> 6
//   at the end: h = h * 9 % 2**32; h ^= h >> 11; h = h * 32769 % 2**32
TEST(StringHashTest, HashesMatchReferenceValues) {
    const std::pair<const char*, uint32_t> rows[] = {
        {"", 0u},
        {"a", 0xca2e9442u},
        {"A", 0xca2e9442u},
        {"Key", 0xe9806307u},
        {"KEY", 0xe9806307u},
        {"caf\xc3\xa9", 0xeefbf723u},
        {"CAF\xc3\x89", 0xeefbf723u},
        {"\xce\xa3x", 0xa853975du},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        EXPECT_EQ(row.second, hashOfStringNoCase(u8(row.first)));
        EXPECT_EQ(hashOfBytes(row.first, static_cast<int32_t>(strlen(row.first))),
                  hashOfString(u8(row.first)));
    }
    EXPECT_EQ(hashOfString(u8("abc")), StringMapHashOf<StringC>()(u8("abc")));
    EXPECT_NE(hashOfString(u8("Key")), hashOfString(u8("KEY")));
    // OR 0x20 is no folding: '@' and '`' meet, though they never compare equal.
    EXPECT_EQ(hashOfStringNoCase(u8("@")), hashOfStringNoCase(u8("`")));
    EXPECT_FALSE(stringKeysEqual(u8("@"), u8("`"), true));
    // Keys of different lengths never match.
    EXPECT_TRUE(equal<StringC>()(u8("abc"), u8("abc")));
    EXPECT_FALSE(equal<StringC>()(u8("abc"), u8("abcd")));
    EXPECT_FALSE(equal<StringC>()(u8("abc"), u8("ABC")));
    EXPECT_TRUE(stringKeysEqual(u8("abc"), u8("ABC"), true));
    EXPECT_FALSE(stringKeysEqual(u8("abc"), u8("ABCD"), true));
}

// Deleting a linked element detaches it from its table. The dump shows the
// table as the format engine shows a pointer: "0x" and at least 8 capital
// digits; each element shows its key and its masked hash.
TEST(StringKeyedTest, DeletedElementDetachesItselfAndTheDump) {
    StringKeyedHashC table(true);
    char head[160], expected[160];
    snprintf(head, sizeof head, "Dumping table at 0x%08" PRIXPTR ", size=",
             reinterpret_cast<uintptr_t>(static_cast<HashTableC*>(&table)));
    EXPECT_EQ(std::string(head) + "1 (1 empty), mask=0\n",
              captured([&](FILE* s) { table.dump(s); }));
    StringKeyedHashElemC* a = new StringKeyedHashElemC(u8("Name"));
    table.insert(a);
    snprintf(expected, sizeof expected, "\"Name\"@%s(0x%X)", pointerText(a).c_str(),
             a->hash & 0xFF);
    EXPECT_EQ(expected, captured([&](FILE* s) { a->printHashed(s, 0xFF); }));
    // Two lists, one empty; a list shows its index and its elements.
    snprintf(expected, sizeof expected, "2 (1 empty), mask=1\n\t0x%X: \"Name\"@%s(0x%X)\n",
             a->hash & 1, pointerText(a).c_str(), a->hash & 1);
    EXPECT_EQ(head + std::string(expected), captured([&](FILE* s) { table.dump(s); }));
    table.insert(new StringKeyedHashElemC(u8("other")));
    StringC upper = u8("NAME");
    EXPECT_EQ(a, table.find(&upper));
    uint32_t generation = table.currentGeneration();
    delete a;
    EXPECT_EQ(1u, table.size);
    EXPECT_EQ(generation + 1, table.currentGeneration());
    EXPECT_EQ(nullptr, table.find(&upper));
    EXPECT_TRUE(table.check());
}

// The string-keyed table with either hash and the typed string map, each
// with few keys (long lists of equal keys) and with many (splits).
TEST(HashModelTest, EveryStringTableAgainstTheModel) {
    using namespace hashmodel;
    for (uint32_t keys : {30u, 300u}) {
        EXPECT_EQ("", testkit::runSeeded<DriverC<KeyedT<false>>>(2, 1200, keys));
        EXPECT_EQ("", testkit::runSeeded<DriverC<KeyedT<true>>>(2, 1200, keys));
        EXPECT_EQ("", testkit::runSeeded<DriverC<MapT>>(2, 1200, keys));
    }
}

// A case-blind set holds a key once, in its newest spelling; a
// case-sensitive one tells the spellings apart.
TEST(StringSetTest, AddContainsRemoveClear) {
    for (bool blind : {false, true}) {
        StringSetC set(blind);
        for (const char* key : {"alpha", "beta", "ALPHA", "\xc3\x89t\xc3\xa9"}) set.add(u8(key));
        EXPECT_EQ(std::make_tuple(blind ? 3u : 4u, blind, blind),
                  std::make_tuple(set.size(), set.contains(u8("aLpHa")),
                                  set.contains(u8("\xc3\xa9T\xc3\x89"))));
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
    EXPECT_EQ(std::make_tuple(1u, false, true),
              std::make_tuple(set.size(), set.contains(u8("solo")), set.check()));
    delete new StringSetEntryC(u8("loose"));  // never linked: simply deleted
    StringSetEntryC word(u8("word"));
    word.hash = 0xABCD;
    EXPECT_EQ("\"word\"@" + pointerText(static_cast<HashElemI*>(&word)) + "(0xCD)",
              captured([&](FILE* s) { word.printHashed(s, 0xFF); }));
}

}  // namespace
}  // namespace keel
