#include <keel/objarray.h>

#include <gtest/gtest.h>

#include <vector>

#include <keel/stringar.h>

namespace keel {
namespace {

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
    for (uint32_t i = 0; i < 5; ++i) EXPECT_EQ(i < 3 ? &things[i] : nullptr, array.objectAt(i)) << i;
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
    for (uint32_t i = 0; i < 60; ++i) ASSERT_EQ(static_cast<int>(i), static_cast<ThingT*>(array.objectAt(i))->key);
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
