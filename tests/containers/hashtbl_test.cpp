// The linear-hashing table, its typed map layer, iterators and hash functions.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <vector>

#include "containers/hashmodel.h"
#include "containers/hashtbl.h"
#include "containers/printcapture.h"

namespace keel {
namespace {

// A table whose hash is the key itself, so tests can place elements.
struct IdElem : HashElemI {
    explicit IdElem(uint32_t key, int tag = 0) : keyValue(key), tag(tag) {}
    uintptr_t* nextLink() override { return &chain; }
    uint32_t* hashSlot() override { return &hash; }
    const void* key() override { return &keyValue; }
    bool matchesKey(const void* key, HashTableC*) override { return keyValue == *static_cast<const uint32_t*>(key); }
    uintptr_t chain = 0;
    uint32_t hash = 0;
    uint32_t keyValue;
    int tag;
};

struct IdTable : HashTableC {
    ~IdTable() override { eraseAll(); }
    uint32_t hashValue(const void* key) override { return *static_cast<const uint32_t*>(key); }
};

// The elements of one list, in order.
std::vector<HashElemI*> listOf(HashTableC& table, uint32_t index) {
    std::vector<HashElemI*> out;
    for (uintptr_t w = *table.listHead(index); !(w & 1); w = *reinterpret_cast<ListElemI*>(w)->nextLink()) {
        out.push_back(static_cast<HashElemI*>(reinterpret_cast<ListElemI*>(w)));
    }
    return out;
}

using testing_print::captured;
using testing_print::pointerText;

TEST(HashTableTest, NewTableHasOneEmptyList) {
    IdTable table;
    EXPECT_EQ(table.listCount(), 1u);
    EXPECT_EQ(table.bits_mask, 0u);
    EXPECT_EQ(table.empty_lists, 1u);
    EXPECT_EQ(table.size, 0u);
    EXPECT_EQ(table.generation, 0u);
    uint32_t key = 5;
    EXPECT_EQ(table.find(&key), nullptr);
    EXPECT_TRUE(table.check());
    EXPECT_EQ(*table.listHead(0), reinterpret_cast<uintptr_t>(static_cast<HashTableC*>(&table)) | 1);
}

TEST(HashTableTest, ListCountsOverTheFirstInsertions) {
    IdTable table;
    std::vector<uint32_t> counts;
    for (uint32_t i = 0; i < 10; ++i) {
        table.insert(new IdElem(i * 7919));
        counts.push_back(table.listCount());
    }
    // The tenth insertion splits twice: 10/11 is still above 0.9.
    EXPECT_EQ(counts, (std::vector<uint32_t>{2, 3, 4, 5, 6, 7, 8, 9, 10, 12}));
    EXPECT_EQ(table.bits_mask, 15u);
    EXPECT_TRUE(table.check());
    // Removal never shrinks, not even eraseAll.
    table.eraseAll();
    EXPECT_EQ(table.listCount(), 12u);
    EXPECT_EQ(table.empty_lists, 12u);
    EXPECT_EQ(table.size, 0u);
    EXPECT_TRUE(table.check());
}

TEST(HashTableTest, IndexRuleMasksAgainAboveTheListCount) {
    IdTable table;
    for (uint32_t i = 0; i < 4; ++i) table.insert(new IdElem(100 + i));
    ASSERT_EQ(table.listCount(), 5u);
    ASSERT_EQ(table.bits_mask, 7u);
    // 5 AND 7 is 5, not below 5 lists, so it is masked with 3: list 1.
    EXPECT_EQ(table.listIndex(5), 1u);
    EXPECT_EQ(table.listIndex(4), 4u);
    EXPECT_EQ(table.listIndex(7), 3u);
    EXPECT_EQ(table.listIndex(0xFFFFFFF9u), 1u);
    IdElem* five = new IdElem(5);
    table.insert(five);  // 5/5 is above 0.9: a sixth list comes first, and 5 has it
    EXPECT_EQ(table.listIndex(5), 5u);
    EXPECT_EQ(listOf(table, 5).front(), five);
    EXPECT_TRUE(table.check());
}

TEST(HashTableTest, SplitMovesOneListKeepingOrder) {
    IdTable table;
    // Keys with distinct low bits end up spread; keys 0, 4, 8, ... meet in
    // list 0 while there are four lists and are dealt out by bit 2 later.
    std::vector<IdElem*> elems;
    for (uint32_t i = 0; i < 3; ++i) {
        elems.push_back(new IdElem(i * 4));  // 0, 4, 8
        table.insert(elems.back());
    }
    ASSERT_EQ(table.listCount(), 4u);
    EXPECT_EQ(listOf(table, 0), (std::vector<HashElemI*>{elems[2], elems[1], elems[0]}));
    // The fourth insertion adds list 4, split from list 0 by bit 2: 4 moves,
    // 8 and 0 stay in their order, and 12 then lands on top of 4.
    IdElem* twelve = new IdElem(12);
    table.insert(twelve);
    ASSERT_EQ(table.listCount(), 5u);
    EXPECT_EQ(listOf(table, 0), (std::vector<HashElemI*>{elems[2], elems[0]}));
    EXPECT_EQ(listOf(table, 4), (std::vector<HashElemI*>{twelve, elems[1]}));
    EXPECT_EQ(table.empty_lists, 3u);
    EXPECT_TRUE(table.check());
}

TEST(HashTableTest, EqualKeysCoexistNewestFirst) {
    IdTable table;
    IdElem* older = new IdElem(42, 1);
    IdElem* newer = new IdElem(42, 2);
    table.insert(older);
    table.insert(newer);
    table.insert(new IdElem(7));
    uint32_t key = 42;
    EXPECT_EQ(table.find(&key), newer);
    EXPECT_EQ(table.findNext(newer, &key), older);
    EXPECT_EQ(table.findNext(nullptr, &key), older);
    EXPECT_EQ(table.findNext(older, &key), nullptr);

    uint32_t status = 1;
    int all = 0, visible = 0;
    HashIteratorC every(&table, true);
    while (every.next(status)) ++all;
    HashIteratorC shown(&table, false);
    while (HashElemI* e = shown.next(status)) {
        ++visible;
        EXPECT_NE(e, older);
    }
    EXPECT_EQ(all, 3);
    EXPECT_EQ(visible, 2);

    EXPECT_TRUE(table.erase(&key));  // only the newer one
    EXPECT_EQ(table.size, 2u);
    EXPECT_EQ(table.find(&key), older);
    EXPECT_EQ(table.replace(new IdElem(42, 3)), older);
    EXPECT_EQ(*older->nextLink(), 0u);
    delete older;
    EXPECT_EQ(static_cast<IdElem*>(table.find(&key))->tag, 3);
    EXPECT_TRUE(table.check());

    uint32_t absent = 43;
    EXPECT_FALSE(table.erase(&absent));
    EXPECT_EQ(table.detachKey(&absent), nullptr);
    EXPECT_EQ(table.findNext(nullptr, &absent), nullptr);
}

TEST(HashTableTest, DetachAnswersAndSelfDetach) {
    IdTable table, other;
    IdElem loose(1);
    EXPECT_FALSE(table.detach(&loose));
    EXPECT_FALSE(selfDetach(&loose));

    IdElem* a = new IdElem(1);
    IdElem* b = new IdElem(1);
    table.insert(a);
    other.insert(b);
    // b is in another table: not found in its list here.
    EXPECT_FALSE(table.detach(b));
    EXPECT_EQ(other.size, 1u);
    // selfDetach finds the right table through the end mark.
    EXPECT_EQ(chainOwner(b), static_cast<HashTableC*>(&other));
    uint32_t generation = other.generation;
    EXPECT_TRUE(selfDetach(b));
    EXPECT_EQ(other.size, 0u);
    EXPECT_EQ(other.generation, generation + 1);
    EXPECT_EQ(other.empty_lists, other.listCount());
    delete b;
    EXPECT_TRUE(table.detach(a));
    delete a;
    EXPECT_TRUE(table.check());
    EXPECT_TRUE(other.check());
}

TEST(HashTableTest, HeadArrayClearUnlinksAndFrees) {
    HashArrayC heads;
    int owner = 0;
    for (int i = 0; i < 40; ++i) heads.appendList(&owner);  // grows past 32: heads move
    EXPECT_EQ(heads.size(), 40u);
    EXPECT_EQ(*static_cast<uintptr_t*>(heads.at(39)), reinterpret_cast<uintptr_t>(&owner) | 1);
    IdElem a(1), b(2), c(3);
    chainAppend(heads.heads() + 3, &a);
    chainAppend(heads.heads() + 3, &b);
    chainAppend(heads.heads() + 39, &c);
    heads.clear();
    EXPECT_EQ(heads.size(), 0u);
    EXPECT_EQ(heads.capacity(), 0u);
    EXPECT_EQ(heads.data(), nullptr);
    EXPECT_EQ(a.chain, 0u);
    EXPECT_EQ(b.chain, 0u);
    EXPECT_EQ(c.chain, 0u);
}

TEST(HashTableTest, DetachAllLeavesElementsAlive) {
    IdTable table;
    std::vector<IdElem*> elems;
    for (uint32_t i = 0; i < 20; ++i) {
        elems.push_back(new IdElem(i));
        table.insert(elems.back());
    }
    uint32_t lists = table.listCount();
    uint32_t generation = table.generation;
    table.detachAll();
    EXPECT_EQ(table.size, 0u);
    EXPECT_EQ(table.empty_lists, lists);
    EXPECT_EQ(table.generation, generation + 1);
    for (IdElem* e : elems) {
        EXPECT_EQ(e->chain, 0u);
        delete e;
    }
    EXPECT_TRUE(table.check());
}

TEST(HashTableTest, IteratorDetectsForeignChangesAndSurvivesItsOwn) {
    IdTable table;
    for (uint32_t i = 0; i < 6; ++i) table.insert(new IdElem(i));
    uint32_t status = 0;
    HashIteratorC it(&table, true);
    ASSERT_NE(it.next(status), nullptr);
    HashElemI* held = it.current(status);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(it.current(status), held);  // current does not move

    HashIteratorC bystander(&table, true);
    bystander.next(status);
    // Own removals keep the iterator valid; the bystander sees a change.
    HashElemI* removed = it.removeCurrent(status);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(removed, held);
    delete removed;
    EXPECT_NE(it.current(status), held);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(bystander.next(status), nullptr);
    EXPECT_EQ(status, 0xE0CA0002u);
    bystander.reset();
    EXPECT_NE(bystander.next(status), nullptr);
    EXPECT_EQ(status, 0u);

    // An insertion from outside invalidates it until reset.
    table.insert(new IdElem(99));
    EXPECT_EQ(it.next(status), nullptr);
    EXPECT_EQ(status, 0xE0CA0002u);
    it.reset();
    uint32_t removedCount = 0;
    while (HashElemI* e = it.removeCurrent(status)) {
        EXPECT_EQ(status, 0u);
        delete e;
        ++removedCount;
    }
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(removedCount, 6u);
    EXPECT_EQ(table.size, 0u);
    EXPECT_TRUE(table.check());
}

TEST(HashTableTest, CheckRepairsTheMaskAndReportsOtherFaults) {
    IdTable table;
    for (uint32_t i = 0; i < 4; ++i) table.insert(new IdElem(i));
    ASSERT_EQ(table.bits_mask, 7u);

    table.bits_mask = 3;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(table.check());
    std::string text = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(text, "bits_mask 0x3 incorrect, should be 0x7\nconsistency check failed\n");
    EXPECT_EQ(table.bits_mask, 7u);
    EXPECT_TRUE(table.check());

    // A wrong stored hash is reported twice when it also points elsewhere.
    uint32_t key = 2;
    IdElem* two = static_cast<IdElem*>(table.find(&key));
    two->hash = 0x10000003;
    table.empty_lists = 9;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(table.check());
    text = ::testing::internal::GetCapturedStderr();
    std::string shown = pointerText(two) + "(0x10000003)";
    EXPECT_EQ(text, "Element hash value wrong: " + shown + "\nElement in wrong list: " + shown +
                        "\nempty_lists 9 incorrect, should be 1\nconsistency check failed\n");
    // Only the mask is mended.
    EXPECT_EQ(table.empty_lists, 9u);
    two->hash = 2;
    table.empty_lists = 1;
    EXPECT_TRUE(table.check());
}

TEST(HashTableTest, ExpectedMaskForListCounts) {
    IdTable table;
    // One list wants mask 0; 2 wants 1; 3 and 4 want 3; 5 to 8 want 7; 9 wants 15.
    std::vector<uint32_t> masks;
    for (uint32_t i = 0; i < 8; ++i) {
        table.insert(new IdElem(i));
        masks.push_back(table.bits_mask);
        EXPECT_TRUE(table.check());
    }
    EXPECT_EQ(masks, (std::vector<uint32_t>{1, 3, 3, 7, 7, 7, 7, 15}));
}

TEST(HashTableTest, PrintHashedForm) {
    IdElem e(0x1234);
    e.hash = 0x1234;
    EXPECT_EQ(captured([&](FILE* s) { e.printHashed(s, 0xFF); }), pointerText(&e) + "(0x34)");
    EXPECT_EQ(captured([&](FILE* s) { e.print(s); }), pointerText(&e) + "(n " + pointerText(nullptr) + ")");
}

// Reference values computed once, outside this library, with Python:
//   step(h, w) = rotl32(((h ^ w) * 1103515245 + 12345) % 2**32, 6) ^ w
//   hashOfBytes: w = int.from_bytes(group, 'big') for each group of four
//   hashOfCString: w = int.from_bytes(group, 'little')
TEST(HashFunctionTest, ByteAndTextHashesMatchReferenceValues) {
    struct Row {
        const char* text;
        uint32_t bytes;
        uint32_t cstring;
    };
    const Row rows[] = {
        {"", 0x0, 0x0},
        {"a", 0x08f9e1da, 0x08f9e1da},
        {"ab", 0x6860ddb6, 0x8a6803d4},
        {"abc", 0x40aefa67, 0x944b03eb},
        {"abcd", 0x405c1009, 0xf04b03ce},
        {"abcde", 0xef058d01, 0x1436827e},
        {"Hello, world", 0xeb0c375b, 0xea33ed52},
        {"keel hash table!", 0x0a90f46f, 0xe0073831},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(hashOfBytes(row.text, static_cast<int32_t>(strlen(row.text))), row.bytes);
        EXPECT_EQ(hashOfCString(row.text), row.cstring);
    }
    EXPECT_NE(hashOfBytes("abcd", 4), hashOfCString("abcd"));
    for (int32_t length = -4; length <= 0; ++length) EXPECT_EQ(hashOfBytes("abcd", length), 0u);
    // The text hash stops at the first zero byte.
    EXPECT_EQ(hashOfCString("ab\0cd"), hashOfCString("ab"));
}

TEST(HashFunctionTest, UnsignedLongKeys) {
    hashOf<unsigned long> hash;
    // key * 1103515245 - 740563387 modulo 2**32
    EXPECT_EQ(hash(0ul), 0xd3dbe645u);
    EXPECT_EQ(hash(1ul), 0x15a234b2u);
    EXPECT_EQ(hash(12345ul), 0xa7b7cc8au);
    EXPECT_EQ(hash(0xFFFFFFFFul), 0x921597d8u);
    EXPECT_TRUE(equal<unsigned long>()(3ul, 3ul));
    EXPECT_FALSE(equal<unsigned long>()(3ul, 4ul));
}

// A value that counts its live copies, to see what a result destroys.
struct Counted {
    static int live;
    int n;
    explicit Counted(int n) : n(n) { ++live; }
    Counted(const Counted& other) : n(other.n) { ++live; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --live; }
};
int Counted::live = 0;

typedef HashMapM<unsigned long, Counted, hashOf<unsigned long>, equal<unsigned long>> CountedMap;

TEST(HashMapTest, ResultsBorrowOrOwn) {
    Counted::live = 0;
    {
        CountedMap map;
        map.add(1, Counted(10));
        map.add(1, Counted(11));
        map.add(2, Counted(20));
        EXPECT_EQ(Counted::live, 3);
        EXPECT_EQ(map.size, 3u);

        {
            CountedMap::ResultT hit = map.lookup(1);
            ASSERT_TRUE(hit.found());
            EXPECT_FALSE(hit.isOwned());
            EXPECT_EQ(hit.value().n, 11);
            EXPECT_EQ(hit.key(), 1ul);
        }
        EXPECT_EQ(Counted::live, 3);  // a borrowing result destroys nothing
        EXPECT_FALSE(map.lookup(3).found());

        {
            CountedMap::ResultT displaced = map.put(1, Counted(12));
            ASSERT_TRUE(displaced.found());
            EXPECT_TRUE(displaced.isOwned());
            EXPECT_EQ(displaced.value().n, 11);
            EXPECT_EQ(displaced.get()->chain, 0u);
            EXPECT_EQ(Counted::live, 4);
            // Copying an owning result copies the element.
            CountedMap::ResultT copy(displaced);
            EXPECT_NE(copy.get(), displaced.get());
            EXPECT_EQ(copy.value().n, 11);
            EXPECT_EQ(Counted::live, 5);
            // Assigning destroys what the target owned first.
            CountedMap::ResultT other = map.lookup(2);
            other = copy;
            EXPECT_EQ(Counted::live, 6);
            copy = map.lookup(2);
            EXPECT_EQ(Counted::live, 5);
            EXPECT_EQ(copy.value().n, 20);
            copy = copy;
            EXPECT_EQ(copy.value().n, 20);
        }
        EXPECT_EQ(Counted::live, 3);
        EXPECT_EQ(map.lookup(1).value().n, 12);
        EXPECT_EQ(map.size, 3u);

        {
            CountedMap::ResultT gone = map.remove(1);
            EXPECT_TRUE(gone.isOwned());
            EXPECT_EQ(gone.value().n, 12);
            EXPECT_EQ(map.size, 2u);
        }
        EXPECT_EQ(Counted::live, 2);
        EXPECT_EQ(map.lookup(1).value().n, 10);
        EXPECT_FALSE(map.remove(5).found());
        EXPECT_TRUE(map.check());
    }
    // The map's destructor erases what is left.
    EXPECT_EQ(Counted::live, 0);
}

TEST(HashMapTest, TypedIterator) {
    CountedMap map;
    for (unsigned long k = 0; k < 5; ++k) map.add(k, Counted(static_cast<int>(k)));
    HashIteratorM<unsigned long, Counted, hashOf<unsigned long>, equal<unsigned long>> it(&map);
    uint32_t status = 0;
    int sum = 0;
    for (auto r = it.current(status); r.found(); it.next(status), r = it.current(status)) {
        EXPECT_FALSE(r.isOwned());
        sum += r.value().n;
    }
    EXPECT_EQ(sum, 10);
    it.reset();
    delete it.removeCurrent(status);
    EXPECT_EQ(map.size, 4u);
    EXPECT_EQ(status, 0u);
}

TEST(HashMapTest, FindElementAgreesWithFind) {
    CountedMap map;
    for (unsigned long k = 0; k < 300; ++k) map.add(k % 97, Counted(static_cast<int>(k)));
    for (unsigned long k = 0; k < 120; ++k) {
        EXPECT_EQ(static_cast<HashElemI*>(map.findElement(k)), map.find(&k));
    }
}

// The model over unsigned long keys.
struct ULongTraits {
    typedef HashMapM<unsigned long, uint32_t, hashOf<unsigned long>, equal<unsigned long>> Table;
    typedef Table::ElemT Elem;
    typedef unsigned long Key;
    static Table* makeTable() { return new Table; }
    // Small indexes give repeated keys; every fifth index is spread wide.
    static unsigned long keyOf(uint32_t keyIndex) {
        return keyIndex % 5 == 0 ? static_cast<unsigned long>(keyIndex) * 2654435761ul : keyIndex;
    }
    static Elem* make(uint32_t keyIndex, uint32_t seq, std::mt19937&) { return new Elem(keyOf(keyIndex), seq); }
    static Key key(uint32_t keyIndex, std::mt19937&) { return keyOf(keyIndex); }
    static std::string norm(uint32_t keyIndex) { return std::to_string(keyOf(keyIndex)); }
    static std::string norm(Elem* e) { return std::to_string(e->storedKey); }
    static uint32_t seq(Elem* e) { return e->value; }
};

TEST(HashModelTest, UnsignedLongKeys) {
    for (uint32_t seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        testing_model::HashModelRunner<ULongTraits> runner(seed, seed % 2 ? 40 : 400);
        runner.run(1500);
        if (HasFailure()) return;
    }
}

}  // namespace
}  // namespace keel
