#include <keel/stringar.h>

namespace keel {

namespace {

// What StringArrayC::sortWith hands to the quicksort; on the sorting
// thread's stack.
struct StringCompareT {
    StringCompareFn compare;
    void* context;
};

// The elements are handles; the comparison gets its own copies of them, so
// that the bytes the quicksort moves around are never the caller's objects.
int compareStrings(void* context, const void* first, const void* second) {
    const StringCompareT* adapter = static_cast<const StringCompareT*>(context);
    StringC firstCopy(*static_cast<const StringC*>(first));
    StringC secondCopy(*static_cast<const StringC*>(second));
    return adapter->compare(adapter->context, firstCopy, secondCopy);
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
    StringCompareT adapter = {compare, context};
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
