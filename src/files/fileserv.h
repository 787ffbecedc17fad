// FlnFileServiceC: the file service of POSIX systems, the only
// implementation of FileServiceI (declared with its operations in
// <keel/fileserv.h>).
//
// The process-wide service is a static object made at the first instance()
// call; setInstance can put another service in its place (a test double of a
// program, never of this library's own tests). The service holds no lock:
// only the copy totals and the list of names to remove at exit are state,
// and callers keep those to one thread.
//
// A name becomes native text at each system call in one of four fixed ways
// (toString or getCollapsedText, in "system-8" or "utf8"); NativeNameC below
// makes that text and refuses a name whose text would hold a NUL, since the
// system would see only the part in front of it, which names another file.
#ifndef KEEL_FILES_FILESERV_H
#define KEEL_FILES_FILESERV_H

#include <stdint.h>

#include <typeinfo>
#include <sys/stat.h>

#include <keel/fileserv.h>

#include <keel/filename.h>
#include "files/filenarr.h"
#include "files/osvers.h"

namespace keel {

// The native text of a name for one system call, released when this dies.
class NativeNameC {
public:
    // `collapsed`: from getCollapsedText, else from toString. `utf8`: in
    // "utf8", else in "system-8".
    NativeNameC(const FileNameC& name, bool collapsed, bool utf8);
    ~NativeNameC();
    // The text, or null with errno EINVAL when it holds a NUL.
    const char* get() const;
    // True when the text is empty.
    bool isEmpty() const { return length == 0; }

private:
    NativeNameC(const NativeNameC&) = delete;
    NativeNameC& operator=(const NativeNameC&) = delete;

    StringC string;
    bool utf8;
    const char* text;
    uint32_t length;
};

// Fills a FileInfoC from a stat record (type by the file type, the nine
// permission bits, size, times in whole seconds, device and owner).
void fillFileInfo(FileInfoC* info, const struct stat64& record);

class FlnFileServiceC : public FileServiceI {
public:
    FlnFileServiceC();
    // Removes what removeAtExit queued, in the order it was queued.
    ~FlnFileServiceC() override;

    // The process-wide service, made at the first call.
    static FileServiceI* instance();
    // True when `service` is this class itself, not a replacement put in
    // place with setInstance: callers may then take shortcuts that give the
    // answers this class's operations give.
    static bool isLibraryService(const FileServiceI* service) {
        return service && typeid(*service) == typeid(FlnFileServiceC);
    }
    // Puts `service` in place and answers the one it replaced.
    static FileServiceI* setInstance(FileServiceI* service);

    FileNameArrayC* getRoots() override;
    FileNameC* getCurrentDirectory() override;
    uint32_t reservedQueryA() override { return 0; }
    FileNameC* copyNameA(const FileNameC* name) override { return new FileNameC(name); }
    FileNameC* copyNameB(const FileNameC* name) override { return new FileNameC(name); }
    uint32_t reservedQueryB() override { return 0; }
    bool canRead(const FileNameC* name) override;
    bool canWrite(const FileNameC* name) override;
    bool isReadOnly(const FileNameC* name) override;
    bool exists(const FileNameC* name) override;
    bool isDirectory(const FileNameC* name) override;
    bool isDirectoryEmpty(const FileNameC* name) override;
    bool isSymbolicLink(const FileNameC* name) override;
    FileNameC* readSymbolicLink(const FileNameC* name) override;
    bool isFile(const FileNameC* name) override;
    bool isHidden(const FileNameC* name) override;
    uint32_t reservedQueryC() override { return 0; }
    int64_t getSize(const FileNameC* name, int32_t* fileCount) override;
    int32_t getModifiedTime(const FileNameC* name) override;
    uint32_t setModifiedTime(const FileNameC* name, int32_t time) override;
    uint32_t reservedQueryD() override { return 0; }
    uint32_t reservedSetter() override { return 0xE0CB000Du; }
    bool setReadOnly(const FileNameC* name, bool readOnly) override;
    uint32_t copyAttributes(const FileNameC* source, const FileNameC* destination) override;
    int64_t getFreeSpace(const FileNameC* name) override;
    FileNameC* createTempName(const StringC& prefix) override;
    StringC getTempDirectory() override;
    uint32_t createSecureTempFile(StringC& outPath, int32_t* outDescriptor,
                                  const FileNameC* directory, const StringC& prefix) override;
    FileNameC* createUniqueName(const FileNameC* directory, const StringC& prefix,
                                const StringC& suffix, bool create) override;
    bool remove(const FileNameC* name, bool force, bool recursive) override;
    void removeAtExit(const FileNameC* name) override;
    uint32_t removeFile(const FileNameC* name) override;
    bool createDirectory(const FileNameC* name, bool withParents) override;
    uint32_t move(const FileNameC* source, const FileNameC* destination) override;
    uint32_t moveAlias(const FileNameC* source, const FileNameC* destination) override;
    uint32_t copy(const FileNameC* source, const FileNameC* destination, CopyProgressFn progress,
                  void* context) override;
    FileListerI* createLister(const FileNameC* name, uint32_t flags) override;
    bool isSystem(const FileNameC* name) override;
    uint32_t setHidden(const FileNameC* name) override;
    uint32_t reservedFileCheck(const FileNameC* name) override;
    IOStreamC* openStream(const FileNameC* name, uint32_t creationMode, uint32_t accessMode,
                          uint32_t shareMode, bool wait) override;
    uint32_t setCurrentDirectory(const FileNameC* name) override;
    FileInfoC* getFileInfo(const FileNameC* name, bool followLinks) override;
    uint32_t reservedCodeA() override { return 0x80000001u; }
    uint32_t reservedCodeB() override { return 0x80000001u; }
    int32_t openVerified(const char* path, struct stat64* record) override;
    bool isSameFile(const char* path, const struct stat64* record) override;

    const OsVersionC& getOsVersion() const { return osVersion; }

private:
    // Removes every entry of the directory (recursively, links as links),
    // then the directory; true only when all of that worked.
    bool removeChildren(const FileNameC* directory, bool force);
    // One file's contents in blocks of 4,096 bytes. `syncDestination` flushes
    // it to the disk before closing; a failed flush or close is a failed
    // write, whose system code goes to *closeCode when given.
    uint32_t copyFile(const FileNameC* source, const FileNameC* destination,
                      CopyProgressFn progress, void* context, bool syncDestination,
                      uint32_t* closeCode);
    // Makes the directory (an existing one will do) with the source's mode.
    uint32_t copyDirectoryNode(const FileNameC* source, const FileNameC* destination);
    // The source is a symbolic link to a directory on its own path.
    bool linksToAncestor(const FileNameC* source);

    // While copy walks a tree: its bytes and files; otherwise 0.
    int64_t copyTotalBytes;
    uint32_t copyTotalFiles;
    // Names queued by removeAtExit, owned.
    FileNameArrayC removeAtExitList;
    OsVersionC osVersion;
};

// Load step 1: the current-service cell goes back to null.
void loadStepFileserv();

}  // namespace keel

#endif
