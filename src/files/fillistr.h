// Directory listers: a depth-first walk of one directory or a tree that
// holds one open directory handle per level, never the tree.
//
//     keel::FileListerI* lister = keel::FlnFileServiceC::instance()->createLister(&start, 1);
//     keel::FileNameC* name; keel::FileInfoC* info;
//     while (lister->next(&name, &info) == 0) {   // non-zero: the lister is gone
//         if (name) ...; delete name; delete info;
//     }
//
// A lister deletes itself when one of its pull operations (stepToSink,
// nextName, next, finish) answers non-zero: do not touch it afterwards.
// runToSink answers 0 with the lister alive when the walk emptied; its
// owner then deletes it (isAlive tells which case it was).
//
// Flags: 1 recursive, 2 follow symbolic links (stat instead of lstat, so a
// link to a directory is entered), 4 names relative to the start, 8 report
// "..". ".." is reported but never entered, by a pull or through a sink.
#ifndef KEEL_FILES_FILLISTR_H
#define KEEL_FILES_FILLISTR_H

#include <stdint.h>

#include <keel/blobarr.h>
#include <keel/fileserv.h>
#include <keel/stringar.h>

#include <keel/filename.h>

struct __dirstream;

namespace keel {

// The end of a walk: no text, never reported.
const uint32_t kListerEnd = 0xE0CB0001u;

class FileListSinkI {
public:
    virtual ~FileListSinkI() {}
    // Answers: 0 go on (a directory is entered when the lister is
    // recursive), 1 go on without entering it, 2 leave the directory being
    // read, 3 end the walk. The name belongs to the sink.
    virtual int32_t onFile(FileNameC* name) = 0;
    virtual int32_t onDirectory(FileNameC* name) = 0;
    // A directory that cannot be opened; the name stays the lister's.
    virtual int32_t onError(const FileNameC* name, int error) = 0;
};

class FileListerI {
public:
    virtual ~FileListerI() {}
    virtual uint32_t stepToSink(FileListSinkI* sink) = 0;
    virtual uint32_t runToSink(FileListSinkI* sink) = 0;
    // *name may be null with an answer of 0 (a directory failed to open).
    virtual uint32_t nextName(FileNameC** name, bool* isDirectory) = 0;
    virtual uint32_t next(FileNameC** name, FileInfoC** info) = 0;
    // Deletes the lister; answers kListerEnd.
    virtual uint32_t finish() = 0;
    // Refuses the directory just returned, else leaves the current one.
    virtual uint32_t skipDirectory() = 0;
    virtual FileListerI* clearStatus() = 0;
    virtual uint32_t step(FileNameC** name, FileInfoC** info, FileListSinkI* sink) = 0;
    virtual bool accepts(const FileNameC* name, bool isDirectory) = 0;
};

// The open directories of a walk, outermost first. Each element owns its
// name and its handle; destroying one deletes the name and closes the handle.
class DIRStackC : public BlobArrayC {
public:
    struct ElementS {
        FileNameC* name;
        struct __dirstream* handle;
    };
    DIRStackC() : BlobArrayC(sizeof(ElementS)) {}
    ~DIRStackC() override;
    void destroyElement(void* element) override;

    ElementS* top() const { return size() ? static_cast<ElementS*>(at(size() - 1)) : nullptr; }
    void push(FileNameC* name, struct __dirstream* handle);
    void pop() { removeAt(size() - 1); }
    void popAll() {
        while (size()) pop();
    }
};

class FileListerC : public FileListerI {
public:
    FileListerC(const FileNameC* name, uint32_t flags);
    ~FileListerC() override;

    uint32_t stepToSink(FileListSinkI* sink) override;
    uint32_t runToSink(FileListSinkI* sink) override;
    uint32_t nextName(FileNameC** name, bool* isDirectory) override;
    uint32_t next(FileNameC** name, FileInfoC** info) override;
    uint32_t finish() override;
    uint32_t skipDirectory() override;
    FileListerI* clearStatus() override;
    uint32_t step(FileNameC** name, FileInfoC** info, FileListSinkI* sink) override;
    bool accepts(const FileNameC* name, bool isDirectory) override;

    // After runToSink answered: false when the walk reached its end (or
    // failed) and so deleted the lister. Set before the lister is deleted,
    // into a flag its caller owns (see FileListingC).
    void setAliveFlag(bool* flag) { aliveFlag = flag; }

protected:
    bool recursive;
    bool followLinks;
    bool relativeNames;
    bool includeParent;
    int32_t lastSinkResult;
    FileNameC* base;
    FileNameC* pending;
    uint32_t status;
    DIRStackC stack;

private:
    FileListerC(const FileListerC&) = delete;
    FileListerC& operator=(const FileListerC&) = delete;
    void dispatch(FileListSinkI* sink, FileNameC* name, int state, bool isDirectory, bool isParent);
    void destroy();

    bool* aliveFlag;
};

// Accepts files whose name ends in one of its suffixes; never a directory.
class FileFindListerC : public FileListerC {
public:
    FileFindListerC(const FileNameC* name, uint32_t flags) : FileListerC(name, flags) {}
    // 1 for a null array, else 0.
    uint32_t addSuffixes(const StringArrayC* list);
    bool accepts(const FileNameC* name, bool isDirectory) override;

private:
    StringArrayC suffixes;
};

// Accepts files whose base name matches a wildcard pattern (case-sensitive).
class FileWildcardListerC : public FileListerC {
public:
    FileWildcardListerC(const FileNameC* name, const StringC& pattern, uint32_t flags)
        : FileListerC(name, flags), pattern(pattern) {}
    bool accepts(const FileNameC* name, bool isDirectory) override;

private:
    StringC pattern;
};

}  // namespace keel

#endif
