// The listers behind FileServiceI::createLister: FileListerC walks one
// directory or a tree depth-first with one open directory handle per level
// (DIRStackC), and its two filters accept files by suffix or by wildcard.
// Programs see them through FileListerI (<keel/filelister.h>).
#ifndef KEEL_FILES_FILLISTR_H
#define KEEL_FILES_FILLISTR_H

#include <stdint.h>

#include <keel/blobarr.h>
#include <keel/filelister.h>
#include <keel/fileserv.h>
#include <keel/stringar.h>

#include <keel/filename.h>

struct __dirstream;

namespace keel {

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
    uint32_t walk(FileNameC** name, FileInfoC** info, FileListSinkI* sink, bool wantInfo);
    FileInfoC* infoOf(DIRStackC::ElementS* top, const char* entryName, const StringC& text,
                      const FileNameC* full);

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
