// The file service: the library's one interface to the file system.
//
// Every file operation of the library (streams, the preference store, the
// registry's commit) goes through FileServiceI, reached inside the library
// through FlnFileServiceC::instance. Names are FileNameC values; a pointer
// result is a new object that the caller deletes.
//
//     keel::FileServiceI* files = keel::FlnFileServiceC::instance();
//     if (files->isDirectory(&name)) ...
//     keel::FileInfoC* info = files->getFileInfo(&name, true);   // null when stat fails
//     keel::IOStreamC* stream = files->openStream(&name, 3, 1, 1, false);
//
// Predicates answer false and report nothing. Operations that fail report
// into the calling thread's error buffer as each says: the system error
// (0xE0000000 | errno) first, the operation's own code behind it.
//
// The order of the operations is part of the interface: several have no
// meaning on this platform and answer a constant, but keep their place.
#ifndef KEEL_FILESERV_H
#define KEEL_FILESERV_H

#include <stdint.h>
#include <sys/stat.h>

#include <keel/string.h>

namespace keel {

class FileNameC;
class FileNameArrayC;
class FileListerI;
class IOStreamC;

// What getFileInfo answers about one file.
class FileInfoC {
public:
    // type: what kind of file.
    enum : uint32_t {
        RegularFile = 0,
        Directory = 1,
        CharacterDevice = 2,
        BlockDevice = 3,
        NamedPipe = 4,
        SymbolicLink = 5,
        Socket = 6,
        Other = 7,
    };

    FileInfoC()
        : type(Other),
          permissions(0),
          size(0),
          changeTime(0),
          modifiedTime(0),
          accessTime(0),
          device(0),
          userId(0),
          groupId(0) {}
    virtual ~FileInfoC() {}

    uint32_t type;
    // The nine permission bits, owner read 0x100 down to other execute 0x1.
    uint32_t permissions;
    int64_t size;
    // Seconds since 1970.
    int32_t changeTime;
    int32_t modifiedTime;
    int32_t accessTime;
    uint64_t device;
    uint32_t userId;
    uint32_t groupId;
};

// The progress call-back of copy: answers false to stop the copy.
typedef bool (*CopyProgressFn)(const FileNameC* source, const FileNameC* destination,
                               int64_t totalBytes, int32_t totalFiles, int64_t fileSize,
                               int64_t fileDone, void* context);

class FileServiceI {
public:
    virtual ~FileServiceI() {}

    // A new array holding the one root, "/".
    virtual FileNameArrayC* getRoots() = 0;
    // The working directory, or null.
    virtual FileNameC* getCurrentDirectory() = 0;
    virtual uint32_t reservedQueryA() = 0;
    virtual FileNameC* copyNameA(const FileNameC* name) = 0;
    virtual FileNameC* copyNameB(const FileNameC* name) = 0;
    virtual uint32_t reservedQueryB() = 0;
    virtual bool canRead(const FileNameC* name) = 0;
    virtual bool canWrite(const FileNameC* name) = 0;
    // The owner write bit is clear.
    virtual bool isReadOnly(const FileNameC* name) = 0;
    // Follows links: a dangling link does not exist.
    virtual bool exists(const FileNameC* name) = 0;
    // Asked of the collapsed text, so "." is no directory here and "a/.." is.
    virtual bool isDirectory(const FileNameC* name) = 0;
    // A missing or unreadable directory counts as empty.
    virtual bool isDirectoryEmpty(const FileNameC* name) = 0;
    virtual bool isSymbolicLink(const FileNameC* name) = 0;
    // The link's target as a new name (not resolved against the link's
    // directory), or null.
    virtual FileNameC* readSymbolicLink(const FileNameC* name) = 0;
    virtual bool isFile(const FileNameC* name) = 0;
    // Reports 0xE0CB0012 and answers false: there is no hidden state here.
    virtual bool isHidden(const FileNameC* name) = 0;
    virtual uint32_t reservedQueryC() = 0;
    // The size of a regular file (-1 otherwise), or the total of the
    // regular files below a directory; *fileCount, when given, gets the
    // number of files counted (-1 for a name that is no directory).
    virtual int64_t getSize(const FileNameC* name, int32_t* fileCount) = 0;
    // Modification time in seconds since 1970, 0 when stat fails.
    virtual int32_t getModifiedTime(const FileNameC* name) = 0;
    // 0xE0CB000C for a null name or a negative time; the system error code
    // when utime fails. Nothing is reported.
    virtual uint32_t setModifiedTime(const FileNameC* name, int32_t time) = 0;
    virtual uint32_t reservedQueryD() = 0;
    virtual uint32_t reservedSetter() = 0;
    // Clears (or, where the owner may read, sets) the owner write bit.
    // Refuses symbolic links.
    virtual bool setReadOnly(const FileNameC* name, bool readOnly) = 0;
    // Mode, owner and group of `source` onto `destination`; the system error
    // code, unreported, when it fails. Refuses symbolic links.
    virtual uint32_t copyAttributes(const FileNameC* source, const FileNameC* destination) = 0;
    // Free bytes on the file system of the nearest existing directory of
    // the name; -1 when that cannot be asked, 0 for a null name.
    virtual int64_t getFreeSpace(const FileNameC* name) = 0;
    virtual FileNameC* createTempName(const StringC& prefix) = 0;
    // "TMPDIR", "TMP", "TEMP" (the first one set), else "/tmp".
    virtual StringC getTempDirectory() = 0;
    virtual uint32_t createSecureTempFile(StringC& outPath, int32_t* outDescriptor,
                                          const FileNameC* directory, const StringC& prefix) = 0;
    virtual FileNameC* createUniqueName(const FileNameC* directory, const StringC& prefix,
                                        const StringC& suffix, bool create) = 0;
    virtual bool remove(const FileNameC* name, bool force, bool recursive) = 0;
    virtual void removeAtExit(const FileNameC* name) = 0;
    virtual uint32_t removeFile(const FileNameC* name) = 0;
    // Makes the directory (and, with `withParents`, the missing ones above
    // it); true when it exists as a directory afterwards. Nothing reported.
    virtual bool createDirectory(const FileNameC* name, bool withParents) = 0;
    virtual uint32_t move(const FileNameC* source, const FileNameC* destination) = 0;
    virtual uint32_t moveAlias(const FileNameC* source, const FileNameC* destination) = 0;
    virtual uint32_t copy(const FileNameC* source, const FileNameC* destination,
                          CopyProgressFn progress, void* context) = 0;
    virtual FileListerI* createLister(const FileNameC* name, uint32_t flags) = 0;
    // Reports 0xE0CB0014 and answers false.
    virtual bool isSystem(const FileNameC* name) = 0;
    // Reports 0xE0CB0013 and answers it.
    virtual uint32_t setHidden(const FileNameC* name) = 0;
    virtual uint32_t reservedFileCheck(const FileNameC* name) = 0;
    // A new stream on the file, or null after reporting the system error and
    // 0xE0CB0010 "Failed to open file '%1$S'". Creation mode 0 append, 1
    // create or truncate, 2 create new, 3 open existing, 4 open or create, 5
    // truncate existing; access 1 read, 2 write, 3 both; share 0 takes a
    // write lock on the whole file, 1 a read lock, 2 and 3 none. `wait`
    // waits for a lock that another process holds instead of failing.
    virtual IOStreamC* openStream(const FileNameC* name, uint32_t creationMode, uint32_t accessMode,
                                  uint32_t shareMode, bool wait) = 0;
    // 0, or reports the system error and 0xE0CB0011 and answers that.
    virtual uint32_t setCurrentDirectory(const FileNameC* name) = 0;
    // A new record, or null (unreported) when stat fails.
    virtual FileInfoC* getFileInfo(const FileNameC* name, bool followLinks) = 0;
    virtual uint32_t reservedCodeA() = 0;
    virtual uint32_t reservedCodeB() = 0;
    // Opens `path` for reading only if it is the very file (no symbolic
    // link, not swapped meanwhile) that lstat saw; its fstat goes to
    // *record. A descriptor, or -1 with errno set.
    virtual int32_t openVerified(const char* path, struct stat64* record) = 0;
    // lstat of `path` names the device and inode of *record.
    virtual bool isSameFile(const char* path, const struct stat64* record) = 0;
};

}  // namespace keel

#endif
