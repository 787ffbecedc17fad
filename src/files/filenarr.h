// FileNameArrayC: an array of FileNameC pointers, the result of getRoots and
// of directory listings.
//
//     keel::FileNameArrayC names(true);      // owns: deletes its names
//     names.append(new keel::FileNameC(text));
//     names.sort();                          // by the full text, case-sensitive
//     keel::FileNameC* first = names.nameAt(0);
//
// An owning array deletes each name when it is removed, cleared or when the
// array dies; one that does not own leaves them to whoever made them.
#ifndef KEEL_FILES_FILENARR_H
#define KEEL_FILES_FILENARR_H

#include <keel/objarray.h>
#include <keel/filename.h>

namespace keel {

// Gets the caller's context and two names; negative when `first` sorts first.
typedef int (*FileNameCompareFn)(void* context, FileNameC* first, FileNameC* second);

class FileNameArrayC : public ObjArrayC {
public:
    explicit FileNameArrayC(bool owns) : owns(owns) {}
    // Removes every name, last first (deleting them when owned).
    ~FileNameArrayC() override;

    // Removes every name, last first; the storage is freed with the last.
    void clear() override;
    // Deletes the name when the array owns it.
    void destroyElement(void* object) override;
    void grow() override { ObjArrayC::grow(); }
    // By FileNameC::compare: the full text, case-sensitive.
    virtual void sort();
    virtual void sortWith(FileNameCompareFn compare, void* context);

    FileNameC* nameAt(uint32_t index) const { return static_cast<FileNameC*>(objectAt(index)); }
    bool ownsNames() const { return owns; }

private:
    bool owns;
};

}  // namespace keel

#endif
