#include "files/filenarr.h"

namespace keel {

namespace {

int compareNames(void*, void* first, void* second) {
    return static_cast<FileNameC*>(first)->compare(*static_cast<FileNameC*>(second));
}

struct NameCompareT {
    FileNameCompareFn compare;
    void* context;
};

int compareThrough(void* context, void* first, void* second) {
    NameCompareT* adapter = static_cast<NameCompareT*>(context);
    return adapter->compare(adapter->context, static_cast<FileNameC*>(first),
                            static_cast<FileNameC*>(second));
}

}  // namespace

FileNameArrayC::~FileNameArrayC() { FileNameArrayC::clear(); }

void FileNameArrayC::clear() {
    // Last first, so nothing moves; removing the last one calls clear again,
    // which then finds the array empty and frees the storage.
    while (size_ != 0) removeAt(size_ - 1);
    ObjArrayC::clear();
}

void FileNameArrayC::destroyElement(void* object) {
    if (owns) delete static_cast<FileNameC*>(object);
}

void FileNameArrayC::sort() { sortObjects(compareNames, nullptr); }

void FileNameArrayC::sortWith(FileNameCompareFn compare, void* context) {
    NameCompareT adapter = {compare, context};
    sortObjects(compareThrough, &adapter);
}

}  // namespace keel
