// The registry over ini files: ConfRegistryIniC with its mounted files
// (ConfRegFileC) and open keys (ConfRegKeyC).
//
// The key tree is virtual. mountFile binds an ini file at a point of the
// tree (a root key and a path below it); each section of the file is a key
// below that point, the section name being the key's path relative to the
// point, and each "name=value" line is a value. Keys are opened into numeric
// handles; every path reaches one handle, counted by its opens, and a key of
// a file leaves the table at its last close. Keys without a file (the two
// open root keys and the keys from a root down to each mount point) stay for
// ever.
//
// Every change goes to its file at once (commitFile) unless autoCommit is
// off: under the ".lck" lock the store's differences are merged into the
// file's current content under the name with ".tmp", flushed to the disk,
// moved over the file and read back. A reader notices another process's
// commit by the file's identity and modification time (refreshFile), at most
// once a second.
//
//     ConfRegistryIniC registry;
//     registry.mountFile(StringC("/etc/app.ini", "utf8"), StringC("HKLM", "utf8"), StringC("Soft\\App", "utf8"));
//     registry.setString(0x80000002, StringC("Soft\\App\\Net", "utf8"), StringC("port", "utf8"), port);
//
// Nothing here records anything in the error buffer: every operation answers
// a code of the set 311 (include/keel/config.h). The registry has no lock:
// changes are the caller's to keep apart from every other call, but reads
// of values (getString, getInteger) with no change between them may run on
// several threads at once, since a read writes only its own thread's table
// of resolved paths and a relaxed cell.
#ifndef KEEL_CONFIG_CONFREGINI_H
#define KEEL_CONFIG_CONFREGINI_H

#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include <keel/atomic.h>
#include <keel/config.h>
#include <keel/filename.h>
#include <keel/hashtbl.h>
#include <keel/string.h>

#include "config/confregini_lock.h"
#include "config/prefs.h"

namespace keel {

// The codes of the registry.
const uint32_t kRegUnsupported =
    0xE1370065u;  // also a failed commit, a section that could not be made
const uint32_t kRegNoMoreItems = 0xE1370066u;
const uint32_t kRegMoreData = 0xE1370067u;
const uint32_t kRegNotFound = 0xE1370069u;
const uint32_t kRegKeyNotEmpty = 0xE137006Au;
const uint32_t kRegBadHandle = 0xE137006Bu;
const uint32_t kRegMissingArgument = 0xE137006Eu;
const uint32_t kRegValueTooLong = 0xE1370072u;
const uint32_t kRegAlreadyMounted = 0xE1370074u;
const uint32_t kRegBadPath = 0xE1370077u;

// The file index that stands for all files in refreshFiles and commitFile.
const int32_t kRegAllFiles = 10000;
// A value this long (in bytes) or longer cannot be read.
const uint32_t kRegValueLimit = 0x100000;

// A string's "system-8" text for the scope of one call of the store or
// of the system; never null.
class SystemTextC {
public:
    explicit SystemTextC(const StringC& string) : string_(string), text_(string.textSystem()) {}
    ~SystemTextC() {
        if (text_) string_.releaseSystem(text_);
    }
    SystemTextC(const SystemTextC&) = delete;
    SystemTextC& operator=(const SystemTextC&) = delete;

    const char* get() const { return text_ ? text_ : ""; }

private:
    StringC string_;
    const char* text_;
};

// No byte of the text is above 0x7F: the text is the same in "utf8" and in
// "system-8", and its case folds as ASCII's does.
bool isAsciiText(const StringC& text);

// One open key.
class ConfRegKeyC {
public:
    ConfRegKeyC(const StringC& name, int32_t fileIndex, uint32_t refCount, const StringC& path)
        : name_(name),
          fileIndex_(fileIndex),
          refCount_(refCount),
          path_(path),
          asciiPath_(isAsciiText(path)),
          pathSize_(textSize(path)) {}

    // With a file: the section name, the path below the mount point.
    // Without: the full path from the root name on.
    const StringC& name() const { return name_; }
    // Index in the file table, or -1 for a key without a file.
    int32_t fileIndex() const { return fileIndex_; }
    // Count of opens not yet closed.
    uint32_t refCount() const { return refCount_; }
    // The full path of the key (getKeyPath), kept so that looking a path up
    // among the open keys builds no text.
    const StringC& path() const { return path_; }

private:
    friend class ConfRegistryIniC;

    StringC name_;
    int32_t fileIndex_;
    uint32_t refCount_;
    StringC path_;
    // The path is plain ASCII, so that a read may compare it byte by byte.
    bool asciiPath_;
    // Its size in bytes as "utf8": a read passes over the open keys of
    // other sizes without looking at their bytes.
    uint32_t pathSize_;

    static uint32_t textSize(const StringC& text);
};

// One mounted file; it owns its store and its lock.
class ConfRegFileC {
public:
    // Reads the file at once when it exists (refreshFile(false)); a missing
    // file leaves the store empty.
    ConfRegFileC(const FileNameC& path, const StringC& rootName, const StringC& subPath);
    ConfRegFileC(const ConfRegFileC&) = delete;
    ConfRegFileC& operator=(const ConfRegFileC&) = delete;

    // Reloads the store when the file changed since the last load, looking
    // at the disk at most once a second; with `force` always (a missing
    // file then empties the store). A failed load keeps the old content.
    // Answers 0. `written`, when given, is what the caller has just saved
    // to the file under the lock (PrefsC::loadWritten).
    uint32_t refreshFile(bool force, const std::string* written = nullptr);

    // The changes of the registry, made in the store and kept until a
    // commit has written them: a reload (another process changed the file)
    // applies them again to what it read, so that a change whose commit
    // failed is carried by the next commit instead of being dropped.
    // Each answers what the store answers.
    bool setValue(const char* section, const char* key, const char* value);
    bool deleteKey(const char* section, const char* key);
    bool createSection(const char* section);
    bool deleteSection(const char* section);
    // The store holds what a commit has just written (`written`, the file's
    // bytes): the changes are forgotten and the file read back, from those
    // bytes where they read back as they were written.
    void committed(const std::string& written);
    bool hasPendingChanges() const { return !pending_.empty(); }

    const FileNameC& path() const { return path_; }
    const StringC& rootName() const { return rootName_; }
    const StringC& subPath() const { return subPath_; }
    // rootName, a backslash and subPath.
    const StringC& mountPath() const { return mountPath_; }
    bool asciiMount() const { return asciiMount_; }
    // The path as "system-8" text, NUL-terminated, as the store wants it.
    const char* systemPath() const { return systemPath_; }
    PrefsC& prefs() { return prefs_; }
    ConfRegLockC& lock() { return lock_; }
    int32_t modifiedTime() const { return modifiedTime_; }
    int32_t lastCheck() const { return atomicLoadRelaxed(&lastCheck_); }

    ~ConfRegFileC();

private:
    friend class ConfRegistryIniC;

    FileNameC path_;
    StringC rootName_;
    StringC subPath_;
    PrefsC prefs_;
    int32_t modifiedTime_;
    // Written by every read that looks at the file (at most once a second),
    // on whichever thread reads: a relaxed cell, so that reads running at
    // once on several threads do not race on it.
    int32_t lastCheck_;
    ConfRegLockC lock_;
    StringC mountPath_;
    bool asciiMount_;
    char* systemPath_;
    // Identity of the file at the last load: a file replaced within the
    // second of that load has the same modification time but another inode.
    dev_t device_;
    ino_t inode_;
    long modifiedNanoseconds_;
    // The changes since the last commit that wrote them, in their order.
    struct PendingT {
        enum Kind { SetValue, DeleteKey, CreateSection, DeleteSection } kind;
        std::string section;
        std::string key;
        std::string value;
        bool hasValue;
    };
    std::vector<PendingT> pending_;
    // The store is being read or merged: a report made meanwhile by the
    // file layer fetches its text through the module catalog, which may
    // read the registry again on this thread; that read must not reload
    // the store under the load or the merge.
    bool busy_;
};

class ConfRegistryIniC : public ConfRegistryI {
public:
    // Opens the root keys 0x80000002 and 0x80000001.
    ConfRegistryIniC();
    ~ConfRegistryIniC() override;
    ConfRegistryIniC(const ConfRegistryIniC&) = delete;
    ConfRegistryIniC& operator=(const ConfRegistryIniC&) = delete;

    uint32_t keyExists(uint32_t key, StringC subKey, StringC valueName,
                       uint32_t* handleOut) override;
    uint32_t queryValue(uint32_t key, StringC subKey, StringC valueName, void* data, uint32_t* size,
                        uint32_t* typeOut) override;
    uint32_t getString(uint32_t key, StringC subKey, StringC valueName, StringC* out) override;
    uint32_t reservedGet() override { return kRegUnsupported; }
    uint32_t getInteger(uint32_t key, StringC subKey, StringC valueName, uint32_t* out) override;
    uint32_t openKey(uint32_t key, StringC subKey, uint32_t* handleOut) override;
    uint32_t enumValue(uint32_t key, uint32_t index, StringC* nameOut, uint32_t* typeOut,
                       void* data, uint32_t* size) override;
    uint32_t enumKey(uint32_t key, uint32_t index, StringC* nameOut) override;
    uint32_t closeKey(uint32_t key) override;
    uint32_t createKey(uint32_t key, StringC subKey, uint32_t* handleOut) override;
    uint32_t setValue(uint32_t key, StringC subKey, StringC valueName, uint32_t type,
                      const void* data, uint32_t size) override;
    uint32_t setString(uint32_t key, StringC subKey, StringC valueName, StringC value) override;
    uint32_t reservedSet() override { return kRegUnsupported; }
    uint32_t setInteger(uint32_t key, StringC subKey, StringC valueName, uint32_t value) override;
    uint32_t deleteValue(uint32_t key, StringC subKey, StringC valueName) override;
    uint32_t deleteKey(uint32_t key, StringC subKey, bool recursive) override;
    uint32_t parsePath(StringC path, uint32_t* rootOut, StringC* subKeyOut,
                       StringC* valueOut) override;
    uint32_t rootKeyFromName(StringC name) override;
    StringC rootKeyName(uint32_t key) override;
    StringC rootKeyShortName(uint32_t key) override;
    uint32_t reservedRootA() override { return kRegUnsupported; }
    uint32_t reservedRootB() override { return kRegUnsupported; }
    uint32_t openKeyEx(uint32_t key, StringC subKey, uint32_t access, uint32_t* handleOut) override;
    uint32_t closeKeyEx(uint32_t key) override { return closeKey(key); }
    uint32_t mountFile(StringC fileName, StringC rootName, StringC subPath) override;
    uint32_t setAutoCommit(bool enabled) override;

    // refreshFile(false) on file `index`, or on every file for kRegAllFiles.
    uint32_t refreshFiles(int32_t index);
    // Writes file `index` (or every file, for kRegAllFiles) as the lock and
    // commit protocol says: 0, the code of the move, or kRegUnsupported.
    uint32_t commitFile(int32_t index);

    // The file table: a retired slot (a file mounted over, see mountFile)
    // holds null.
    uint32_t fileCount() const { return fileCount_; }
    ConfRegFileC* file(int32_t index) const;
    // The open key of `handle`, or null.
    const ConfRegKeyC* findKey(uint32_t handle);
    // The full path of an open key; empty for an unknown handle.
    StringC getKeyPath(uint32_t handle);
    uint32_t openKeyCount() const { return openKeys_.size; }
    bool autoCommit() const { return autoCommit_; }

    // Whether a commit flushes the ".tmp" file and the directory to the
    // disk (true). Only benchmarks turn it off, to show what it costs.
    void setFlushCommits(bool flush) { flushCommits_ = flush; }

    // A test's call at each named step of commitFile: "locked" (the lock
    // taken), "merged" (the ".tmp" file written, not yet flushed), "moving"
    // (flushed, just before the move) and "moved" (the move done, before
    // the read-back and the unlock). Null (the default) calls nothing.
    typedef void (*CommitStepFn)(const char* step);
    static void setCommitStepForTesting(CommitStepFn step);

private:
    typedef HashMapM<unsigned long, ConfRegKeyC, hashOf<unsigned long>, equal<unsigned long>>
        KeyMapT;
    typedef HashElemM<unsigned long, ConfRegKeyC> KeyElemT;
    typedef HashIteratorM<unsigned long, ConfRegKeyC, hashOf<unsigned long>, equal<unsigned long>>
        KeyWalkT;

    KeyElemT* findElement(uint32_t handle) const { return openKeys_.findElement(handle); }
    // The key's file, or null for a key without one (or of a retired file).
    ConfRegFileC* fileOf(const ConfRegKeyC& key) const;
    uint32_t enterKey(const StringC& name, int32_t fileIndex, uint32_t refCount);
    // Reads a value by handle, as queryValue does after opening.
    uint32_t readValue(uint32_t handle, const StringC& valueName, uint32_t* typeOut, void* data,
                       uint32_t* size);
    // The stored text of a value of a section of a file (refreshed first),
    // or null.
    const char* lookUp(ConfRegFileC* owner, const char* section, const StringC& valueName);
    // The value of a section of a file, read as reading by handle does.
    uint32_t readFrom(ConfRegFileC* owner, const char* section, const StringC& valueName,
                      uint32_t* typeOut, void* data, uint32_t* size);
    // Where opening `subKey` below `key` would lead a read: the file and
    // the section, found without entering a key (a key opened only to be
    // closed again leaves nothing behind but a handle number). 0, or the
    // code the opening gives, or kUseOpenKey where a text is not plain
    // ASCII and only the opening's comparison is right (findBelow).
    // With `refresh` every file is refreshed first where the opening would
    // do so; without, the caller has just done that.
    static const uint32_t kUseOpenKey = 1;
    uint32_t placeForRead(uint32_t key, const StringC& subKey, ConfRegFileC** owner,
                          std::string* section, bool refresh);
    // The open keys or the file table changed: the registry takes a new
    // stamp from a count shared by all registries of the process, so that
    // nothing a thread kept of an earlier read of this registry (or of one
    // that stood at its address before) matches any more.
    void tablesChanged();
    uint32_t removeKeyTree(uint32_t handle);
    void retireKeys(int32_t index);
    // What opening `subKey` below the open key `base` finds, without
    // entering it: 0 with *known the open key of that path, or with *index
    // and *rest the file and the section path where the key exists (as a
    // section or a part of a deeper section's name); else kRegNotFound.
    // Every file is refreshed first.
    uint32_t findBelow(KeyElemT* base, const StringC& subKey, KeyElemT** known, int32_t* index,
                       StringC* rest);
    // The open key whose path is `path` (without regard to case), or null;
    // with `withoutFile` only a key without a file counts.
    KeyElemT* findByPath(const StringC& path, bool withoutFile);
    // The index of the first file, in table order, whose mount point lies
    // above `path`, with the rest of the path below it; -1 for none.
    int32_t fileAbove(const StringC& path, StringC* rest) const;
    uint32_t commitOne(int32_t index);
    void appendFile(ConfRegFileC* file);

    // The fields of the registry, in this order: the file table (data,
    // size, capacity), the open keys, the next handle, the commit switch;
    // then the stamp of its tables (tablesChanged).
    ConfRegFileC** files_;
    uint32_t fileCount_;
    uint32_t fileCapacity_;
    KeyMapT openKeys_;
    uint32_t nextHandle_;
    bool autoCommit_;
    bool flushCommits_;
    uint64_t generation_;
};

// `path` lies below `prefix` (one backslash between them), compared without
// regard to case; `rest` (when not null) then receives what follows. The
// path must be longer than the prefix and its backslash.
bool isUnderPath(const StringC& path, const StringC& prefix, StringC* rest);

}  // namespace keel

#endif
