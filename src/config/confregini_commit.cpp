// The commit of a mounted file: lock, merge into ".tmp", flush, move over
// the file, read back, unlock.
//
// Invariants:
// - The ini file is only ever replaced by a rename of a complete ".tmp"
//   file whose data reached the disk first, and the directory is flushed
//   after the rename; so a crash of the process, of the kernel or of the
//   power at any step leaves the file in its old or its new form. What may
//   remain is a ".tmp" file (truncated by the next commit) and a ".lck"
//   file (unlocked, and so of no effect).
// - The merge reads the file's current content while the lock is held, so
//   a writer never overwrites what another writer committed before it.
// - A lock taken further out (`held`) is never released here.
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <keel/fileserv.h>

#include "config/confregini.h"
#include "files/fileserv.h"

namespace keel {

namespace {

ConfRegistryIniC::CommitStepFn commitStep = nullptr;

void reachStep(const char* step) {
    if (commitStep) commitStep(step);
}

// The data of `path` to the disk; false when it cannot be opened or synced.
bool flushFileData(const char* path) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool flushed = fdatasync(fd) == 0;
    if (close(fd) != 0) flushed = false;
    return flushed;
}

// The directory entry of a rename to the disk.
bool flushDirectory(const char* path) {
    int fd = open(*path ? path : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool flushed = fsync(fd) == 0;
    close(fd);
    return flushed;
}

}  // namespace

void ConfRegistryIniC::setCommitStepForTesting(CommitStepFn step) { commitStep = step; }

uint32_t ConfRegistryIniC::commitFile(int32_t index) {
    if (index == kRegAllFiles) {
        for (uint32_t i = 0; i < fileCount_; ++i) {
            if (files_[i]) commitOne(static_cast<int32_t>(i));
        }
        return 0;
    }
    return commitOne(index);
}

uint32_t ConfRegistryIniC::commitOne(int32_t index) {
    ConfRegFileC* target = file(index);
    // A retired slot has no file to write.
    if (!target) return kRegUnsupported;
    if (!autoCommit_) return 0;
    FileServiceI* service = FlnFileServiceC::instance();
    const FileNameC& path = target->path();
    StringC temporaryText = path.toString();
    temporaryText.append(StringC(".tmp", "ascii"));
    FileNameC temporary(temporaryText);
    FileNameC directory = path.getParent();
    if (!service->exists(&directory)) service->createDirectory(&directory, true);

    ConfRegLockC& lock = target->lock();
    bool held = lock.isHeld();
    if (!held && lock.lockWithRetry(20) != 0) return kRegUnsupported;
    reachStep("locked");

    SystemTextC temporaryName(temporaryText);
    target->busy_ = true;
    std::string bytes;
    bool written = target->prefs().save(temporaryName.get(), true, target->systemPath(), &bytes);
    target->busy_ = false;
    reachStep("merged");
    // The new content reaches the disk before it replaces the file; a flush
    // that fails counts as a failed merge, and the ".tmp" stays behind.
    if (written && flushCommits_) written = flushFileData(temporaryName.get());
    if (!written) {
        if (!held) lock.unlock();
        return kRegUnsupported;
    }
    // The new file keeps the mode and owner of the old one (a first commit
    // has none to keep).
    service->copyAttributes(&path, &temporary);
    reachStep("moving");
    uint32_t code = service->move(&temporary, &path);
    if (code == 0 && flushCommits_) {
        SystemTextC directoryName(directory.toString());
        if (!flushDirectory(directoryName.get())) code = kRegUnsupported;
    }
    reachStep("moved");
    // Reading back clears the change marks, drops deleted records and takes
    // in what other processes committed (the merge read it under the lock,
    // so the bytes it wrote are the file's content). Changes that did not reach the
    // file stay pending.
    if (code == 0) {
        target->committed(bytes);
    } else {
        target->refreshFile(true);
    }
    if (!held) lock.unlock();
    return code;
}

}  // namespace keel
