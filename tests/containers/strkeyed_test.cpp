// String-keyed tables, the two string hashes, string maps and the dump.
#include <gtest/gtest.h>

#include <inttypes.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "containers/hashmodel.h"
#include "containers/printcapture.h"
#include "containers/strkeyed.h"

namespace keel {
namespace {

StringC u8(const char* text) { return StringC(text, "utf8"); }

struct NamedEntry : StringKeyedHashElemC {
    NamedEntry(const StringC& key, int tag) : StringKeyedHashElemC(key), tag(tag) {}
    int tag;
};

using testing_print::captured;
using testing_print::pointerText;

// How the format engine shows a pointer: "0x" and at least 8 capital digits.
std::string enginePointer(const void* p) {
    char buffer[64];
    snprintf(buffer, sizeof buffer, "0x%08" PRIXPTR, reinterpret_cast<uintptr_t>(p));
    return buffer;
}

TEST(StringHashTest, CaseSensitiveHashIsTheByteHashOfTheUtf8Text) {
    for (const char* text : {"", "a", "abcd", "caf\xc3\xa9", "Key-12345"}) {
        EXPECT_EQ(hashOfString(u8(text)), hashOfBytes(text, static_cast<int32_t>(strlen(text)))) << text;
    }
    EXPECT_EQ(StringMapHashOf<StringC>()(u8("abc")), hashOfString(u8("abc")));
    EXPECT_NE(hashOfString(u8("Key")), hashOfString(u8("KEY")));
}

// Reference values computed once with Python, outside this library:
//   for each character: c = b | 0x20 below 0x80, else ord(ch.lower())
//   h = (h + c) * 1025 % 2**32; h ^= h >> 6
//   at the end: h = h * 9 % 2**32; h ^= h >> 11; h = h * 32769 % 2**32
TEST(StringHashTest, CaseBlindHashMatchesReferenceValues) {
    EXPECT_EQ(hashOfStringNoCase(u8("")), 0u);
    EXPECT_EQ(hashOfStringNoCase(u8("a")), 0xca2e9442u);
    EXPECT_EQ(hashOfStringNoCase(u8("A")), 0xca2e9442u);
    EXPECT_EQ(hashOfStringNoCase(u8("Key")), 0xe9806307u);
    EXPECT_EQ(hashOfStringNoCase(u8("KEY")), 0xe9806307u);
    EXPECT_EQ(hashOfStringNoCase(u8("caf\xc3\xa9")), 0xeefbf723u);
    EXPECT_EQ(hashOfStringNoCase(u8("CAF\xc3\x89")), 0xeefbf723u);
    EXPECT_EQ(hashOfStringNoCase(u8("\xce\xa3x")), 0xa853975du);
    // OR 0x20 is no folding: '@' and '`' meet, though they never compare equal.
    EXPECT_EQ(hashOfStringNoCase(u8("@")), hashOfStringNoCase(u8("`")));
    EXPECT_FALSE(stringKeysEqual(u8("@"), u8("`"), true));
}

TEST(StringKeyedTest, CaseBlindAndCaseSensitiveTables) {
    StringKeyedHashC blind(true), exact(false);
    NamedEntry* a = new NamedEntry(u8("Name"), 1);
    NamedEntry* b = new NamedEntry(u8("Name"), 2);
    blind.insert(a);
    exact.insert(b);
    StringC upper = u8("NAME"), same = u8("Name"), longer = u8("Names");
    EXPECT_EQ(blind.find(&upper), a);
    EXPECT_EQ(blind.find(&same), a);
    EXPECT_EQ(blind.find(&longer), nullptr);
    EXPECT_EQ(exact.find(&upper), nullptr);
    EXPECT_EQ(exact.find(&same), b);
    StringC accented = u8("CAF\xc3\x89");
    blind.insert(new NamedEntry(u8("caf\xc3\xa9"), 3));
    ASSERT_NE(blind.find(&accented), nullptr);
    EXPECT_EQ(static_cast<NamedEntry*>(blind.find(&accented))->tag, 3);
    EXPECT_TRUE(blind.check());
    EXPECT_TRUE(exact.check());
}

TEST(StringKeyedTest, DeletingALinkedElementDetachesIt) {
    StringKeyedHashC table(false);
    std::vector<NamedEntry*> entries;
    for (int i = 0; i < 30; ++i) {
        entries.push_back(new NamedEntry(u8(("k" + std::to_string(i)).c_str()), i));
        table.insert(entries.back());
    }
    uint32_t generation = table.generation;
    delete entries[7];
    delete entries[0];
    EXPECT_EQ(table.size, 28u);
    EXPECT_EQ(table.generation, generation + 2);
    StringC gone = u8("k7");
    EXPECT_EQ(table.find(&gone), nullptr);
    EXPECT_TRUE(table.check());
    // erase destroys through the element's own deleting destructor.
    StringC k8 = u8("k8");
    EXPECT_TRUE(table.erase(&k8));
    EXPECT_EQ(table.size, 27u);
    EXPECT_TRUE(table.check());
}

TEST(StringKeyedTest, PrintHashedAndDump) {
    StringKeyedHashC table(false);
    NamedEntry* entry = new NamedEntry(u8("alpha"), 0);
    table.insert(entry);
    uint32_t hash = entry->hash;
    char expected[128];
    snprintf(expected, sizeof expected, "(0x%lX)", static_cast<unsigned long>(hash & 0xFF));
    EXPECT_EQ(captured([&](FILE* s) { entry->printHashed(s, 0xFF); }),
              "\"alpha\"@" + pointerText(entry) + expected);

    table.insert(new NamedEntry(u8("beta"), 0));
    table.insert(new NamedEntry(u8("gamma"), 0));
    std::string text = captured([&](FILE* s) { table.dump(s); });
    char head[160];
    snprintf(head, sizeof head, ", size=%u (%u empty), mask=%X\n", table.listCount(), table.empty_lists,
             table.bits_mask);
    std::string want = "Dumping table at " + enginePointer(static_cast<HashTableC*>(&table)) + head;
    for (uint32_t i = 0; i < table.listCount(); ++i) {
        uintptr_t word = *table.listHead(i);
        if (word & 1) continue;
        char index[32];
        snprintf(index, sizeof index, "\t0x%X:", i);
        want += index;
        while (!(word & 1)) {
            HashElemI* e = static_cast<HashElemI*>(reinterpret_cast<ListElemI*>(word));
            want += " " + captured([&](FILE* s) { e->printHashed(s, table.bits_mask); });
            word = *e->nextLink();
        }
        want += "\n";
    }
    EXPECT_EQ(text, want);
    EXPECT_EQ(text.compare(0, 17, "Dumping table at "), 0);
}

TEST(StringKeyedTest, DumpOfANewTable) {
    StringKeyedHashC table(true);
    EXPECT_EQ(captured([&](FILE* s) { table.dump(s); }),
              "Dumping table at " + enginePointer(static_cast<HashTableC*>(&table)) + ", size=1 (1 empty), mask=0\n");
}

// Values that must not be destroyed by the map (like a bare object pointer).
struct Held {
    int n;
};

TEST(StringMapTest, LookupPutRemove) {
    Held one{1}, two{2}, three{3};
    {
        StringMapM<Held*> map;
        map.add(u8("one"), &one);
        map.add(u8("two"), &two);
        EXPECT_EQ(map.lookup(u8("one")).value(), &one);
        EXPECT_FALSE(map.lookup(u8("ONE")).found());
        {
            auto displaced = map.put(u8("two"), &three);
            EXPECT_TRUE(displaced.isOwned());
            EXPECT_EQ(displaced.value(), &two);
        }
        EXPECT_EQ(map.lookup(u8("two")).value(), &three);
        EXPECT_EQ(map.remove(u8("one")).value(), &one);
        EXPECT_FALSE(map.lookup(u8("one")).found());
        EXPECT_EQ(map.size, 1u);
        for (int i = 0; i < 1000; ++i) map.add(u8(("key" + std::to_string(i)).c_str()), &one);
        for (int i = 0; i < 1000; i += 37) {
            StringC key = u8(("key" + std::to_string(i)).c_str());
            EXPECT_EQ(map.lookup(key).value(), &one);
            EXPECT_EQ(static_cast<HashElemI*>(map.findElement(key)), map.find(&key));
        }
        EXPECT_TRUE(map.check());
    }
    // The map held bare pointers: what they point at is untouched.
    EXPECT_EQ(one.n + two.n + three.n, 6);
}

TEST(StringMapTest, KeysOfDifferentLengthNeverMatch) {
    EXPECT_TRUE(equal<StringC>()(u8("abc"), u8("abc")));
    EXPECT_FALSE(equal<StringC>()(u8("abc"), u8("abcd")));
    EXPECT_FALSE(equal<StringC>()(u8("abc"), u8("ABC")));
    EXPECT_TRUE(stringKeysEqual(u8("abc"), u8("ABC"), true));
    EXPECT_FALSE(stringKeysEqual(u8("abc"), u8("ABCD"), true));
}

// The model over string keys, with either hash.
struct SeqEntry : StringKeyedHashElemC {
    SeqEntry(const StringC& key, uint32_t seq, const std::string& norm)
        : StringKeyedHashElemC(key), seq(seq), norm(norm) {}
    uint32_t seq;
    std::string norm;
};

template <bool CaseBlind>
struct StringTraits {
    struct Table : StringKeyedHashC {
        Table() : StringKeyedHashC(CaseBlind) {}
    };
    typedef SeqEntry Elem;
    typedef StringC Key;
    static Table* makeTable() { return new Table; }
    static std::string norm(uint32_t keyIndex) {
        return (keyIndex % 7 == 0 ? "caf\xc3\xa9-" : "key-") + std::to_string(keyIndex);
    }
    // A case-blind table gets the key in a random mixture of cases.
    static std::string spelled(uint32_t keyIndex, std::mt19937& rng) {
        std::string text = norm(keyIndex);
        if (!CaseBlind) return text;
        std::string out;
        for (size_t i = 0; i < text.size(); ++i) {
            bool upper = rng() & 1;
            unsigned char c = static_cast<unsigned char>(text[i]);
            if (c == 0xC3 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) == 0xA9) {
                out += upper ? "\xc3\x89" : "\xc3\xa9";
                ++i;
            } else {
                out += upper && c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : static_cast<char>(c);
            }
        }
        return out;
    }
    static Elem* make(uint32_t keyIndex, uint32_t seq, std::mt19937& rng) {
        return new SeqEntry(u8(spelled(keyIndex, rng).c_str()), seq, norm(keyIndex));
    }
    static Key key(uint32_t keyIndex, std::mt19937& rng) { return u8(spelled(keyIndex, rng).c_str()); }
    static std::string norm(Elem* e) { return e->norm; }
    static uint32_t seq(Elem* e) { return e->seq; }
};

TEST(HashModelTest, CaseSensitiveStringKeys) {
    for (uint32_t seed = 11; seed <= 14; ++seed) {
        SCOPED_TRACE(seed);
        testing_model::HashModelRunner<StringTraits<false>> runner(seed, seed % 2 ? 30 : 300);
        runner.run(1200);
        if (HasFailure()) return;
    }
}

TEST(HashModelTest, CaseBlindStringKeys) {
    for (uint32_t seed = 21; seed <= 24; ++seed) {
        SCOPED_TRACE(seed);
        testing_model::HashModelRunner<StringTraits<true>> runner(seed, seed % 2 ? 30 : 300);
        runner.run(1200);
        if (HasFailure()) return;
    }
}

}  // namespace
}  // namespace keel
