#include <keel/objarray.h>

namespace keel {

namespace {

// What sortObjects hands to the quicksort: the caller's comparison and its
// context. It lives on the sorting thread's stack.
struct ObjectCompareT {
    ObjectCompareFn compare;
    void* context;
};

int compareObjects(void* context, const void* first, const void* second) {
    const ObjectCompareT* adapter = static_cast<const ObjectCompareT*>(context);
    void* firstObject;
    void* secondObject;
    memcpy(&firstObject, first, sizeof firstObject);
    memcpy(&secondObject, second, sizeof secondObject);
    return adapter->compare(adapter->context, firstObject, secondObject);
}

}  // namespace

void ObjArrayC::destroyElement(void*) {}

void ObjArrayC::removeAt(uint32_t index) {
    if (index >= size_) return;
    destroyElement(objectAt(index));
    closeGap(index);
}

void ObjArrayC::sortObjects(ObjectCompareFn compare, void* context) {
    ObjectCompareT adapter = {compare, context};
    sortWith(compareObjects, &adapter);
}

}  // namespace keel
