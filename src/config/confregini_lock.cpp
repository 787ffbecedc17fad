// The writers' lock of an ini file: an fcntl write lock on "<ini>.lck".
//
// Invariants: `descriptor` is -1 or an open descriptor of a file that bore
// the lock file's name when it was locked; a held lock is always one whose
// device and inode matched the name at the moment of locking. The lock is
// never waited for inside fcntl (F_SETLK, not F_SETLKW), so a writer that
// cannot get it pauses between attempts and gives up after a bounded count.
// Nothing here reports into the error buffer.
#include "config/confregini_lock.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <keel/atomic.h>

#include "config/confregini.h"

namespace keel {

namespace {

void pauseOneSecond() { sleep(1); }

// Null: the default pause. Written by tests before any lock is tried.
AtomicM<ConfRegLockC::PauseFn>& pauseCell() {
    static AtomicM<ConfRegLockC::PauseFn> cell;
    return cell;
}

}  // namespace

ConfRegLockC::ConfRegLockC(const FileNameC& file)
    : lockFile(StringC(file.toString(), StringC(".lck", "ascii"))), descriptor(-1), record() {
    record.l_type = F_WRLCK;
    record.l_whence = SEEK_SET;
    record.l_start = 0;
    record.l_len = 0;
}

ConfRegLockC::~ConfRegLockC() {}

void ConfRegLockC::setPauseForTesting(PauseFn pause) { pauseCell().exchange(pause); }

void ConfRegLockC::closeDescriptor() {
    if (descriptor == -1) return;
    ::close(descriptor);
    descriptor = -1;
}

int32_t ConfRegLockC::tryLock() {
    SystemTextC path(lockFile.toString());
    if (descriptor == -1) {
        descriptor = ::open(path.get(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        if (descriptor < 0) {
            descriptor = -1;
            return -2;
        }
    }
    if (fcntl(descriptor, F_SETLK64, &record) != 0) {
        // The next attempt opens the file afresh.
        closeDescriptor();
        return -1;
    }
    // Zeroed records: a failed fstat or stat leaves them unequal to any real
    // file's (inode 0 is no file), so the lock is then given up.
    struct stat64 opened = {};
    struct stat64 named = {};
    bool seen = fstat64(descriptor, &opened) == 0;
    if (stat64(path.get(), &named) != 0 || !seen) {
        closeDescriptor();
        return -1;
    }
    if (opened.st_dev == named.st_dev && opened.st_ino == named.st_ino) return 0;
    // The previous holder removed the file between our open and our fcntl:
    // what we locked is no longer the lock.
    closeDescriptor();
    return -1;
}

int32_t ConfRegLockC::lockWithRetry(uint32_t attempts) {
    if (attempts == 0) return -1;
    for (uint32_t count = 0;;) {
        int32_t result = tryLock();
        if (result != -1) return result;
        ++count;
        PauseFn pause = pauseCell().load();
        (pause ? pause : pauseOneSecond)();
        if (count >= attempts) return -1;
    }
}

bool ConfRegLockC::unlock() {
    if (descriptor == -1) return true;
    // The name goes first: a waiter that locks the old file afterwards finds
    // the name gone or on a new file, and tries again.
    {
        SystemTextC path(lockFile.toString());
        ::unlink(path.get());
    }
    // Linux releases the descriptor whatever close answers (EINTR and EIO
    // alike), so it is forgotten in every case: keeping the number would let
    // a later unlock close a descriptor that another part of the process has
    // opened since, and would make isHeld claim a lock that no longer
    // exists. A failed close still answers false.
    bool closed = ::close(descriptor) == 0 || errno == EINTR;
    descriptor = -1;
    if (!closed) return false;
    return true;
}

}  // namespace keel
