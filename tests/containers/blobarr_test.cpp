#include "containers/blobarr.h"

#include <gtest/gtest.h>
#include <stdint.h>

#include <vector>

namespace keel {
namespace {

// Elements are 32-bit numbers; destroyElement records what it was given.
class NumberArrayC : public BlobArrayC {
public:
    NumberArrayC() : BlobArrayC(sizeof(uint32_t)) {}
    ~NumberArrayC() override {}
    void destroyElement(void* element) override {
        destroyed.push_back(*static_cast<uint32_t*>(element));
        addresses.push_back(element);
    }
    void clear() override {
        ++clears;
        BlobArrayC::clear();
    }
    void put(uint32_t index, uint32_t value) { *static_cast<uint32_t*>(insertAt(index)) = value; }
    uint32_t get(uint32_t index) const { return *static_cast<const uint32_t*>(at(index)); }
    std::vector<uint32_t> all() const {
        std::vector<uint32_t> values;
        for (uint32_t i = 0; i < size(); ++i) values.push_back(get(i));
        return values;
    }

    std::vector<uint32_t> destroyed;
    std::vector<void*> addresses;
    int clears = 0;
};

TEST(BlobArray, NewArrayHoldsNothing) {
    NumberArrayC array;
    EXPECT_EQ(0u, array.size());
    EXPECT_EQ(0u, array.capacity());
    EXPECT_EQ(nullptr, array.data());
    EXPECT_EQ(nullptr, array.at(0));
    EXPECT_EQ(4u, array.elementSize());
}

TEST(BlobArray, CapacityFollowsTheGrowthRule) {
    std::vector<uint32_t> steps;
    uint32_t capacity = 0;
    for (int i = 0; i < 10; ++i) steps.push_back(capacity = nextArrayCapacity(capacity));
    EXPECT_EQ((std::vector<uint32_t>{32, 64, 128, 224, 352, 544, 832, 1280, 1952, 2944}), steps);
    EXPECT_THROW(nextArrayCapacity(0xC0000000u), std::bad_alloc);
    EXPECT_EQ(0xAAAAAAC0u, nextArrayCapacity(0x71C71C71u));

    NumberArrayC array;
    std::vector<uint32_t> seen;
    for (uint32_t i = 0; i < 1281; ++i) {
        array.put(array.size(), i);
        if (seen.empty() || seen.back() != array.capacity()) seen.push_back(array.capacity());
    }
    // The first insertion allocates 32; the 33rd raises the capacity to 64.
    EXPECT_EQ((std::vector<uint32_t>{32, 64, 128, 224, 352, 544, 832, 1280, 1952}), seen);
    for (uint32_t i = 0; i < 1281; ++i) ASSERT_EQ(i, array.get(i));
}

TEST(BlobArray, ThirtyThirdInsertionGrows) {
    NumberArrayC array;
    for (uint32_t i = 0; i < 32; ++i) array.put(i, i);
    EXPECT_EQ(32u, array.capacity());
    const void* before = array.data();
    array.put(0, 99);
    EXPECT_EQ(64u, array.capacity());
    EXPECT_NE(before, array.data());
    EXPECT_EQ(99u, array.get(0));
    EXPECT_EQ(31u, array.get(32));
}

TEST(BlobArray, InsertOpensGapsAndAppendsPastTheEnd) {
    NumberArrayC array;
    array.put(5, 1);  // past the end of an empty array: appends
    array.put(1, 3);  // == size: appends
    array.put(0, 0);
    array.put(2, 2);
    array.put(1000, 4);
    array.put(0xFFFFFFFFu, 5);
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 2, 3, 4, 5}), array.all());
    EXPECT_EQ(nullptr, array.at(6));
    EXPECT_EQ(nullptr, array.at(0xFFFFFFFFu));
}

TEST(BlobArray, RemoveDestroysAndClosesTheGap) {
    NumberArrayC array;
    for (uint32_t i = 0; i < 5; ++i) array.put(i, 10 + i);
    array.removeAt(5);  // at size: nothing
    array.removeAt(77);
    array.removeAt(0xFFFFFFFFu);
    EXPECT_TRUE(array.destroyed.empty());
    EXPECT_EQ(5u, array.size());

    array.removeAt(1);
    EXPECT_EQ((std::vector<uint32_t>{11}), array.destroyed);
    EXPECT_EQ(array.data(), static_cast<char*>(array.addresses[0]) - 4);
    EXPECT_EQ((std::vector<uint32_t>{10, 12, 13, 14}), array.all());
    array.removeAt(3);  // the last: nothing moves
    EXPECT_EQ((std::vector<uint32_t>{10, 12, 13}), array.all());
    EXPECT_EQ(0, array.clears);

    array.removeAt(0);
    array.removeAt(0);
    EXPECT_EQ(0, array.clears);
    array.removeAt(0);
    // Emptying the array runs the virtual clear, which frees the storage.
    EXPECT_EQ(1, array.clears);
    EXPECT_EQ((std::vector<uint32_t>{11, 14, 10, 12, 13}), array.destroyed);
    EXPECT_EQ(0u, array.capacity());
    EXPECT_EQ(nullptr, array.data());
    // Usable again afterwards.
    array.put(0, 7);
    EXPECT_EQ(32u, array.capacity());
}

TEST(BlobArray, ClearDestroysNoElement) {
    NumberArrayC array;
    for (uint32_t i = 0; i < 40; ++i) array.put(i, i);
    array.clear();
    EXPECT_TRUE(array.destroyed.empty());
    EXPECT_EQ(0u, array.size());
    EXPECT_EQ(0u, array.capacity());
    EXPECT_EQ(nullptr, array.data());
}

int compareNumbers(void* context, const void* a, const void* b) {
    ++*static_cast<int*>(context);
    uint32_t x = *static_cast<const uint32_t*>(a), y = *static_cast<const uint32_t*>(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}

TEST(BlobArray, SortWithPassesElementAddressesAndContext) {
    NumberArrayC array;
    int calls = 0;
    array.sortWith(compareNumbers, &calls);
    EXPECT_EQ(0, calls);
    for (uint32_t i = 0; i < 100; ++i) array.put(0, (i * 37) % 100);
    array.sortWith(compareNumbers, &calls);
    EXPECT_GT(calls, 0);
    for (uint32_t i = 0; i < 100; ++i) ASSERT_EQ(i, array.get(i));
}

// Owns a heap block (so it is movable by bytes, as array elements must be)
// and counts live objects, so that leaks and double destruction show.
struct TrackedT {
    static int live;
    int* value;
    explicit TrackedT(int v) : value(new int(v)) { ++live; }
    TrackedT(const TrackedT& other) : value(new int(*other.value)) { ++live; }
    TrackedT& operator=(const TrackedT&) = delete;
    ~TrackedT() {
        delete value;
        --live;
    }
};
int TrackedT::live = 0;

TEST(ArrayM, TypedArrayKeepsTheRules) {
    {
        ArrayM<TrackedT> array;
        EXPECT_EQ(nullptr, array.at(0));
        for (int i = 0; i < 40; ++i) array.append(TrackedT(i));
        EXPECT_EQ(40, TrackedT::live);
        EXPECT_EQ(64u, array.capacity());
        array.insertAt(0, TrackedT(-1));
        array.insertAt(500, TrackedT(-2));
        EXPECT_EQ(-1, *array[0].value);
        EXPECT_EQ(0, *array[1].value);
        EXPECT_EQ(-2, *array[41].value);
        // Inserting an element of the same array copies it first.
        for (int i = 0; i < 30; ++i) array.insertAt(0, array[array.size() - 1]);
        EXPECT_EQ(-2, *array[0].value);
        EXPECT_EQ(72, TrackedT::live);
        array.removeAt(72);
        array.removeAt(0);
        EXPECT_EQ(71, TrackedT::live);
        while (array.size() > 1) array.removeAt(0);
        EXPECT_EQ(1u, array.size());
        EXPECT_NE(0u, array.capacity());
        array.removeAt(0);
        // The last removal frees the storage.
        EXPECT_EQ(0u, array.capacity());
        EXPECT_EQ(0, TrackedT::live);
        for (int i = 0; i < 5; ++i) array.append(TrackedT(5));
    }
    // The destructor removed the remaining five.
    EXPECT_EQ(0, TrackedT::live);
}

TEST(ArrayM, PlainArraySortsThroughTheQuicksort) {
    PlainArrayM<uint32_t> array;
    for (uint32_t i = 0; i < 50; ++i) array.append((i * 7) % 50);
    int calls = 0;
    array.sortWith(compareNumbers, &calls);
    for (uint32_t i = 0; i < 50; ++i) ASSERT_EQ(i, array[i]);
}

TEST(ArrayMDeathTest, IndexOutOfRangeEndsTheProcess) {
    ArrayM<uint32_t> array;
    array.append(1);
    EXPECT_EQ(1u, array[0]);
    EXPECT_EQ(nullptr, array.at(1));
    EXPECT_DEATH(array[1], "");
}

}  // namespace
}  // namespace keel
