// StringArrayC: an array of strings held by value (one StringC handle per
// element), and StringArrayArrayC, an array of such arrays.
//
//     #include <keel/stringar.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     StringArrayC words;
//     words.append(StringC("b", "ascii"));
//     words.append(*words.at(0));          // appending an own element is safe
//     words.sort();                        // by StringC::compare
//
// Emptying a StringArrayC (clear, or removing its last element) releases the
// handles but keeps the storage, so an array that is filled and emptied over
// and over allocates once; the storage goes with the array.
#ifndef KEEL_STRINGAR_H
#define KEEL_STRINGAR_H

#include <keel/string.h>

#include <keel/blobarr.h>
#include <keel/objarray.h>

namespace keel {

// Answers a negative number when `first` sorts before `second`.
typedef int (*StringCompareFn)(void* context, const StringC& first, const StringC& second);

class StringArrayC : public BlobArrayC {
public:
    StringArrayC() : BlobArrayC(sizeof(StringC)) {}
    // From a null-terminated array of pointers to strings; null gives an
    // empty array.
    explicit StringArrayC(const StringC* const* list);
    StringArrayC(const StringArrayC& other);
    StringArrayC& operator=(const StringArrayC& other);
    // Releases every handle, last first, then frees the storage.
    ~StringArrayC() override;

    // Releases every handle, last first; the storage stays.
    void clear() override;
    // Receives the element's address and releases the handle there.
    void destroyElement(void* element) override;
    // Sorts with StringC::compare.
    virtual void sort();
    // Sorts with `compare`, which gets copies of the two handles.
    virtual void sortWith(StringCompareFn compare, void* context);

    StringC* at(uint32_t index) const { return static_cast<StringC*>(BlobArrayC::at(index)); }

    using BlobArrayC::insertAt;
    // Copies `string` into a gap at `index` (past the end appends).
    void insertAt(uint32_t index, const StringC& string);
    void append(const StringC& string) { insertAt(size_, string); }
    // Appends each element of `other` in order; answers this array.
    StringArrayC& appendAll(const StringArrayC& other);
};

// An array of StringArrayC pointers that owns them: removing an element
// deletes the array it points to (a null element is skipped). clear() is the
// plain one: it frees the pointer storage and deletes nothing.
class StringArrayArrayC : public ObjArrayC {
public:
    StringArrayArrayC() {}
    // Removes (and so deletes) every array, last first.
    ~StringArrayArrayC() override;

    void destroyElement(void* object) override;

    StringArrayC* arrayAt(uint32_t index) const { return static_cast<StringArrayC*>(objectAt(index)); }
};

}  // namespace keel

#endif
