// Arrays of fixed-size elements, of typed values, of object pointers and of
// string arrays.
#include <keel/blobarr.h>
#include <keel/objarray.h>
#include <keel/stringar.h>

#include <gtest/gtest.h>
#include <stdint.h>

#include <vector>

#include "testing/arraymodel.h"
#include "testing/modelrun.h"

namespace keel {
namespace {

// Elements are 32-bit numbers; destroyElement records what it was given.
class NumberArrayC : public BlobArrayC {
public:
    NumberArrayC() : BlobArrayC(sizeof(uint32_t)) {}
    void destroyElement(void* element) override {
        destroyed.push_back(*static_cast<uint32_t*>(element));
        offsets.push_back(static_cast<char*>(element) - static_cast<const char*>(data()));
    }
    void clear() override {
        ++clears;
        BlobArrayC::clear();
    }
    void put(uint32_t index, uint32_t value) { *static_cast<uint32_t*>(insertAt(index)) = value; }
    std::vector<uint32_t> all() const {
        const uint32_t* first = static_cast<const uint32_t*>(data());
        return std::vector<uint32_t>(first, first + size());
    }
    std::vector<uint32_t> destroyed;
    std::vector<ptrdiff_t> offsets;  // of the destroyed elements, before the gap closes
    int clears = 0;
};

// The capacity grows to ((capacity * 3) / 2 OR 31) + 1; that an array
// follows the rule is checked on every step of the model run below.
TEST(BlobArray, CapacityFollowsTheGrowthRule) {
    std::vector<uint32_t> steps;
    for (uint32_t capacity = 0; steps.size() < 10;)
        steps.push_back(capacity = nextArrayCapacity(capacity));
    EXPECT_EQ((std::vector<uint32_t>{32, 64, 128, 224, 352, 544, 832, 1280, 1952, 2944}), steps);
    EXPECT_THROW(nextArrayCapacity(0xC0000000u), std::bad_alloc);
    EXPECT_EQ(0xAAAAAAC0u, nextArrayCapacity(0x71C71C71u));
}

// destroyElement sees each element in place before the gap closes, and
// emptying the array runs the virtual clear.
TEST(BlobArray, RemovalDestroysInPlaceAndEmptyingClears) {
    NumberArrayC array;
    for (uint32_t i = 0; i < 6; ++i) array.put(i, i);
    array.removeAt(1);
    array.removeAt(4);  // the last: nothing moves
    EXPECT_EQ((std::vector<uint32_t>{0, 2, 3, 4}), array.all());
    for (int i = 0; i < 3; ++i) array.removeAt(0);
    EXPECT_EQ(0, array.clears);
    // Emptying the array runs the virtual clear, which frees the storage.
    array.removeAt(0);
    EXPECT_EQ((std::vector<uint32_t>{1, 5, 0, 2, 3, 4}), array.destroyed);
    EXPECT_EQ((std::vector<ptrdiff_t>{4, 16, 0, 0, 0, 0}), array.offsets);
    EXPECT_TRUE(array.clears == 1 && array.capacity() == 0 && array.data() == nullptr);
    // Usable again; clear itself destroys no element.
    for (uint32_t i = 0; i < 40; ++i) array.put(i, i);
    array.clear();
    EXPECT_TRUE(array.destroyed.size() == 6 && array.size() == 0 && array.data() == nullptr);
}

// Random insertions (of new values and of the array's own elements),
// removals in and out of range and removeAll against a std::vector, with the
// count of live elements and the growth rule checked after every step.
TEST(ArrayM, RandomOperationsAgreeWithTheModel) {
    EXPECT_EQ("", testkit::runSeeded<arraymodel::DriverC>(100, 300));
    EXPECT_EQ(0, arraymodel::TrackedT::live()) << "the destructor removes what is left";
}

TEST(ArrayMDeathTest, IndexOutOfRangeEndsTheProcess) {
    ArrayM<uint32_t> array;
    array.append(1);
    EXPECT_EQ(1u, array[0]);
    EXPECT_EQ(nullptr, array.at(1));
    EXPECT_DEATH(array[1], "");
}

struct ThingT {
    int key;
};

// An object array that records what destroyElement receives.
class RecordingArrayC : public ObjArrayC {
public:
    void destroyElement(void* object) override { received.push_back(object); }
    std::vector<void*> received;
};

TEST(ObjArray, HoldsPointersAndHandsThemToDestroyElement) {
    ThingT things[3] = {{1}, {2}, {3}};
    RecordingArrayC array;
    EXPECT_EQ(sizeof(void*), array.elementSize());
    array.append(&things[0]);
    array.append(&things[2]);
    array.insertAt(1, &things[1]);
    array.insertAt(99, nullptr);  // past the end appends
    for (uint32_t i = 0; i < 5; ++i)
        EXPECT_EQ(i < 3 ? &things[i] : nullptr, array.objectAt(i)) << i;
    array.removeAt(4);
    array.removeAt(1);
    EXPECT_EQ(&things[2], array.objectAt(1));
    while (array.size() > 0) array.removeAt(0);
    EXPECT_EQ((std::vector<void*>{&things[1], &things[0], &things[2], nullptr}), array.received);
    EXPECT_EQ(nullptr, array.data());  // the last removal frees the storage
    array.append(&things[0]);
    array.clear();  // destroys no object
    EXPECT_EQ(4u, array.received.size());
}

int compareThings(void* context, void* first, void* second) {
    ++*static_cast<int*>(context);
    return static_cast<ThingT*>(first)->key - static_cast<ThingT*>(second)->key;
}

TEST(ObjArray, SortObjectsComparesTheObjects) {
    std::vector<ThingT> things;
    for (int i = 0; i < 60; ++i) things.push_back(ThingT{(i * 13) % 60});
    ObjArrayC array;
    for (ThingT& thing : things) array.append(&thing);
    int calls = 0;
    array.sortObjects(compareThings, &calls);
    EXPECT_GT(calls, 0);
    for (uint32_t i = 0; i < 60; ++i)
        ASSERT_EQ(static_cast<int>(i), static_cast<ThingT*>(array.objectAt(i))->key);
}

// Removal and the destructor delete the inner arrays; the leak checker sees
// the outcome.
TEST(StringArrayArray, RemovalDeletesTheInnerArrays) {
    StringArrayArrayC arrays;
    arrays.append(new StringArrayC());
    arrays.append(nullptr);
    arrays.append(new StringArrayC());
    EXPECT_NE(nullptr, arrays.arrayAt(0));
    EXPECT_EQ(nullptr, arrays.arrayAt(1));
    arrays.removeAt(1);  // a null element is skipped
    arrays.removeAt(0);
    EXPECT_EQ(1u, arrays.size());
}

}  // namespace
}  // namespace keel
