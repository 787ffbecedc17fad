// The linear-hashing table, its typed map layer, iterators and hash
// functions. The table and the typed string map run against the model of
// tests/testing/hashmodel.h in strkeyed_test.cpp; here what the model does
// not make: foreign changes under an iterator, damage for check(), the
// results' ownership and the hashes' reference values.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <string>
#include <tuple>
#include <utility>

#include <keel/hashtbl.h>
#include "testing/printcapture.h"

namespace keel {
namespace {

// A table whose hash is the key itself, so tests can place elements.
struct IdHash {
    uint32_t operator()(const uint32_t& key) const { return key; }
};
typedef HashElemM<uint32_t, int> IdElem;
struct IdTable : HashMapM<uint32_t, int, IdHash, equal<uint32_t>> {
    // Opened up so that a test can damage them for check().
    using HashTableC::bits_mask;
    using HashTableC::empty_lists;
    explicit IdTable(std::initializer_list<uint32_t> keys) {
        for (uint32_t key : keys) insert(new IdElem(key, 0));
    }
};

using testing_print::captured;
using testing_print::pointerText;

// The table's heads move as the array grows; its clear unlinks what the
// lists still hold and frees the storage.
TEST(HashTableTest, HeadArrayClearUnlinksAndFrees) {
    HashArrayC heads;
    int owner = 0;
    for (int i = 0; i < 40; ++i) heads.appendList(&owner);
    IdElem a(1, 0), b(2, 0);
    chainAppend(heads.heads() + 3, &a);
    chainAppend(heads.heads() + 39, &b);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&owner) | 1, b.chain);
    heads.clear();
    EXPECT_EQ(nullptr, heads.data());
    EXPECT_EQ(0u, a.chain | b.chain);
}

// A change from outside invalidates an iterator (for every step) until its
// reset; its own removals do not. Each step's answer is (element, status).
TEST(HashTableTest, IteratorDetectsForeignChangesAndSurvivesItsOwn) {
    IdTable table{0, 1, 2, 3, 4, 5};
    uint32_t status = 0, removed = 0;
    HashIteratorC it(&table, true), bystander(&table, true);
    typedef std::pair<HashElemI*, uint32_t> StepT;
    const StepT invalid(nullptr, 0xE0CA0002u);
    bystander.next(status);
    HashElemI* held = it.current(status);
    EXPECT_EQ(held, it.current(status));  // current does not move
    delete it.removeCurrent(status);
    EXPECT_EQ(invalid, StepT(bystander.next(status), status));
    bystander.reset();
    EXPECT_TRUE(bystander.next(status) != nullptr && status == 0);
    table.insert(new IdElem(99, 0));
    EXPECT_EQ(invalid, StepT(it.current(status), status));
    EXPECT_EQ(invalid, StepT(it.removeCurrent(status), status));
    it.reset();
    for (; HashElemI* e = it.removeCurrent(status); ++removed) delete e;
    EXPECT_EQ(std::make_tuple(0u, 6u, 0u), std::make_tuple(status, removed, table.size));
}

// check mends a wrong mask and reports every fault it finds; a wrong stored
// hash is reported twice when it also points to another list.
TEST(HashTableTest, CheckRepairsTheMaskAndReportsOtherFaults) {
    IdTable table{0, 1, 2, 3};
    uint32_t key = 2;
    IdElem* two = static_cast<IdElem*>(table.find(&key));
    two->hash = 0x10000003;
    table.bits_mask = 3;
    table.empty_lists = 9;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(table.check());
    std::string shown = pointerText(two) + "(0x10000003)";
    EXPECT_EQ("bits_mask 0x3 incorrect, should be 0x7\nElement hash value wrong: " + shown +
                  "\nElement in wrong list: " + shown +
                  "\nempty_lists 9 incorrect, should be 1\nconsistency check failed\n",
              ::testing::internal::GetCapturedStderr());
    EXPECT_EQ(std::make_pair(7u, 9u), std::make_pair(table.bits_mask, table.empty_lists));
    two->hash = 2;
    table.empty_lists = 1;
    EXPECT_TRUE(table.check());
    // The print forms: hashed, with the masked hash, and plain, with the link.
    IdElem e(0x1234, 0);
    e.hash = 0x1234;
    EXPECT_EQ(pointerText(&e) + "(0x34)", captured([&](FILE* s) { e.printHashed(s, 0xFF); }));
    EXPECT_EQ(pointerText(&e) + "(n " + pointerText(nullptr) + ")",
              captured([&](FILE* s) { e.print(s); }));
}

// Reference values computed once, outside this library, with Python:
//   step(h, w) = rotl32(((h ^ w) * 1103515245 + 12345) % 2**32, 6) ^ w
//   hashOfBytes: w = int.from_bytes(group, 'big') for each group of four
//   hashOfCString: w = int.from_bytes(group, 'little')
//   hashOf<unsigned long>: key * 1103515245 - 740563387 modulo 2**32
TEST(HashFunctionTest, HashesMatchReferenceValues) {
    struct Row {
        const char* text;
        uint32_t bytes, cstring;
    };
    const Row rows[] = {{"", 0x0, 0x0},
                        {"a", 0x08f9e1da, 0x08f9e1da},
                        {"ab", 0x6860ddb6, 0x8a6803d4},
                        {"abc", 0x40aefa67, 0x944b03eb},
                        {"abcd", 0x405c1009, 0xf04b03ce},
                        {"abcde", 0xef058d01, 0x1436827e},
                        {"Hello, world", 0xeb0c375b, 0xea33ed52},
                        {"keel hash table!", 0x0a90f46f, 0xe0073831}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(row.bytes, hashOfBytes(row.text, static_cast<int32_t>(strlen(row.text))));
        EXPECT_EQ(row.cstring, hashOfCString(row.text));
    }
    for (int32_t length = -4; length <= 0; ++length) EXPECT_EQ(0u, hashOfBytes("abcd", length));
    // The text hash stops at the first zero byte.
    EXPECT_EQ(hashOfCString("ab"), hashOfCString("ab\0cd"));
    const std::pair<unsigned long, uint32_t> longs[] = {{0ul, 0xd3dbe645u},
                                                        {1ul, 0x15a234b2u},
                                                        {12345ul, 0xa7b7cc8au},
                                                        {0xFFFFFFFFul, 0x921597d8u}};
    for (const auto& row : longs) EXPECT_EQ(row.second, hashOf<unsigned long>()(row.first));
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

// A borrowing result destroys nothing; an owning one (put, remove) deletes
// its element, a copy of it copies the element, and assigning destroys what
// the target owned first.
TEST(HashMapTest, ResultsBorrowOrOwn) {
    Counted::live = 0;
    {
        CountedMap map;
        for (int n : {10, 11, 20}) map.add(n / 10, Counted(n));
        EXPECT_EQ(std::make_tuple(false, 11, false, 3),
                  std::make_tuple(map.lookup(1).isOwned(), map.lookup(1).value().n,
                                  map.lookup(3).found(), Counted::live));
        {
            CountedMap::ResultT displaced = map.put(1, Counted(12));
            EXPECT_EQ(std::make_pair(11, uintptr_t(0)),
                      std::make_pair(displaced.value().n, displaced.get()->chain));
            CountedMap::ResultT copy(displaced), other = map.lookup(2);
            EXPECT_NE(copy.get(), displaced.get());
            other = copy;
            EXPECT_EQ(6, Counted::live);
            copy = map.lookup(2);
            copy = copy;
            EXPECT_EQ(std::make_pair(5, 20), std::make_pair(Counted::live, copy.value().n));
        }
        EXPECT_EQ(12, map.remove(1).value().n);
        EXPECT_EQ(std::make_tuple(2, 10, false),
                  std::make_tuple(Counted::live, map.lookup(1).value().n, map.remove(5).found()));
        // findElement gives what find gives, with one walk of its own.
        for (unsigned long k = 0; k < 300; ++k) map.add(k % 97, Counted(0));
        for (unsigned long k = 0; k < 120; ++k)
            EXPECT_EQ(static_cast<HashElemI*>(map.findElement(k)), map.find(&k));
    }
    EXPECT_EQ(0, Counted::live);  // the map's destructor erases what is left
}

}  // namespace
}  // namespace keel
