// ObjArrayC: an array of object pointers, the base of the arrays whose
// elements are objects on the heap (StringArrayArrayC, FileNameArrayC,
// ErrEntryArrayC).
//
//     #include <keel/objarray.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     ObjArrayC list;
//     list.append(object);
//     Thing* first = static_cast<Thing*>(list.objectAt(0));
//     list.sortObjects(byName, nullptr);   // compare gets the object pointers
//
// ObjArrayC does not own its objects: its destroyElement does nothing and its
// destructor frees only the pointer storage. A derived class that owns its
// objects overrides destroyElement, which receives the object pointer read
// from the element (not the element's address), and empties itself in its
// destructor. Removing the last element frees the storage.
#ifndef KEEL_OBJARRAY_H
#define KEEL_OBJARRAY_H

#include <keel/blobarr.h>

namespace keel {

// Answers a negative number when object `first` sorts before `second`.
typedef int (*ObjectCompareFn)(void* context, void* first, void* second);

class ObjArrayC : public BlobArrayC {
public:
    ObjArrayC() : BlobArrayC(sizeof(void*)) {}

    // Receives the object pointer; the plain object array leaves it alone.
    void destroyElement(void* object) override;

    using BlobArrayC::insertAt;
    // Stores `object` at `index` (an index past the end appends).
    void insertAt(uint32_t index, void* object) {
        void* slot = BlobArrayC::insertAt(index);
        memcpy(slot, &object, sizeof object);
    }
    void append(void* object) { insertAt(size_, object); }

    // The object pointer at `index`, or null when out of range.
    void* objectAt(uint32_t index) const {
        void* object = nullptr;
        if (const void* slot = at(index)) memcpy(&object, slot, sizeof object);
        return object;
    }

    // As BlobArrayC::removeAt, but destroyElement gets the object pointer
    // read from the element.
    void removeAt(uint32_t index);

    // Sorts by the objects: `compare` gets the two object pointers.
    void sortObjects(ObjectCompareFn compare, void* context);
};

}  // namespace keel

#endif
