// StringArrayC and StringArrayArrayC: arrays of strings held by value.
//
// Invariant: each element is one StringC handle that owns one reference.
#include <keel/stringar.h>

#include <new>

namespace keel {

namespace {

// What StringArrayC::sortWith hands to the quicksort; on the sorting
// thread's stack. The comparison gets its own copies of the two handles, so
// that the bytes the quicksort moves around are never the caller's objects,
// and each copy counts as a reference while the comparison runs. Most calls
// share one side with the call before (the pivot of a partition, the element
// being inserted), so a copy is kept from one call to the next while its
// representation comes back: during every call each representation is
// counted exactly as with two fresh copies, and only the counting in between
// is spared. The copies go with the adapter.
class StringCompareC {
public:
    StringCompareC(StringCompareFn compare, void* context) : compare(compare), context(context) {}
    ~StringCompareC() {
        for (int i = 0; i < 2; ++i)
            if (held[i]) copy(i)->~StringC();
    }
    StringCompareC(const StringCompareC&) = delete;
    StringCompareC& operator=(const StringCompareC&) = delete;

    int operator()(const StringC& first, const StringC& second) {
        StringImplI* const a = first.getImpl();
        StringImplI* const b = second.getImpl();
        if (held[0] == a && held[1] == b) return compare(context, *copy(0), *copy(1));
        if (held[1] == a && held[0] == b) return compare(context, *copy(1), *copy(0));
        // Keep whichever copy matches a side, in either slot; make the rest.
        int firstSlot = held[0] == a ? 0 : held[1] == a ? 1 : held[0] == b ? 1 : 0;
        if (held[firstSlot] != a) hold(firstSlot, first);
        if (held[1 - firstSlot] != b) hold(1 - firstSlot, second);
        return compare(context, *copy(firstSlot), *copy(1 - firstSlot));
    }

private:
    StringC* copy(int slot) { return reinterpret_cast<StringC*>(storage[slot]); }
    void hold(int slot, const StringC& string) {
        if (held[slot]) copy(slot)->~StringC();
        held[slot] = string.getImpl();
        new (storage[slot]) StringC(string);
    }

    StringCompareFn compare;
    void* context;
    // The representation each slot's copy holds; null for an empty slot.
    StringImplI* held[2] = {nullptr, nullptr};
    alignas(StringC) unsigned char storage[2][sizeof(StringC)];
};

int compareStrings(void* context, const void* first, const void* second) {
    return (*static_cast<StringCompareC*>(context))(*static_cast<const StringC*>(first),
                                                    *static_cast<const StringC*>(second));
}

int comparePlain(void*, const StringC& first, const StringC& second) {
    return first.compare(second);
}

}  // namespace

StringArrayC::StringArrayC(const StringC* const* list) : BlobArrayC(sizeof(StringC)) {
    if (!list) return;
    for (; *list; ++list) append(**list);
}

StringArrayC::StringArrayC(const StringArrayC& other) : BlobArrayC(sizeof(StringC)) {
    appendAll(other);
}

StringArrayC& StringArrayC::operator=(const StringArrayC& other) {
    // Clearing first would empty the very source of a self-assignment.
    if (&other == this) return *this;
    clear();
    return appendAll(other);
}

StringArrayC::~StringArrayC() { StringArrayC::clear(); }

void StringArrayC::clear() {
    // Last first, so that no element moves. The removal of the last one
    // calls clear again, which then finds nothing to do: the storage stays.
    while (size_ != 0) removeAt(size_ - 1);
}

void StringArrayC::destroyElement(void* element) { static_cast<StringC*>(element)->~StringC(); }

void StringArrayC::sort() { sortWith(comparePlain, nullptr); }

void StringArrayC::sortWith(StringCompareFn compare, void* context) {
    StringCompareC adapter(compare, context);
    BlobArrayC::sortWith(compareStrings, &adapter);
}

void StringArrayC::insertAt(uint32_t index, const StringC& string) {
    // `string` may be an element of this array, which the gap moves or the
    // growth frees: hold a reference of our own until the handle is placed.
    StringC copy(string);
    new (BlobArrayC::insertAt(index)) StringC(copy);
}

StringArrayC& StringArrayC::appendAll(const StringArrayC& other) {
    // The count is taken once: appending an array to itself doubles it
    // instead of chasing its own growing end.
    const uint32_t count = other.size_;
    for (uint32_t i = 0; i < count; ++i) append(*other.at(i));
    return *this;
}

StringArrayArrayC::~StringArrayArrayC() {
    while (size_ != 0) removeAt(size_ - 1);
}

void StringArrayArrayC::destroyElement(void* object) { delete static_cast<StringArrayC*>(object); }

}  // namespace keel
