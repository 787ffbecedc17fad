// ConfRegLockC: the writers' lock of one ini file, between processes.
//
// The lock is an fcntl write lock on the file's companion with ".lck"
// appended. It is never waited for inside fcntl and never judged by its age:
// a process that dies loses its lock in the kernel, and the ".lck" it leaves
// behind is an unlocked file that the next writer opens, locks and unlinks.
//
//     keel::ConfRegLockC lock(iniName);        // touches nothing on disk
//     if (lock.lockWithRetry(20) == 0) {      // up to 20 attempts, a second apart
//         ... merge into "<ini>.tmp", move it over the ini file ...
//         lock.unlock();                      // unlinks the ".lck", then closes it
//     }
//
// The holder unlinks the name before it closes the descriptor, and a new
// holder checks that the file it locked still bears the name; so two writers
// never both believe they hold the lock.
#ifndef KEEL_CONFIG_CONFREGINI_LOCK_H
#define KEEL_CONFIG_CONFREGINI_LOCK_H

#include <fcntl.h>
#include <stdint.h>

#include <keel/filename.h>

namespace keel {

class ConfRegLockC {
public:
    // The lock of the ini file `file`; the constructor does not touch the
    // disk.
    explicit ConfRegLockC(const FileNameC& file);
    // Destroys the name only: it neither closes nor unlinks.
    ~ConfRegLockC();

    // 0 locked; -1 not locked this time; -2 the lock file cannot be opened.
    int32_t tryLock();
    // tryLock up to `attempts` times with a pause of one second after every
    // attempt that gave -1; -1 when the attempts are used up (at once for 0
    // attempts). Any other answer of tryLock is returned at once.
    int32_t lockWithRetry(uint32_t attempts);
    // Unlinks the lock file and closes it. True, or false when the close
    // failed (the descriptor is then kept).
    bool unlock();
    bool isHeld() const { return descriptor != -1; }

    const FileNameC& getLockFile() const { return lockFile; }

    // The pause between two attempts of lockWithRetry: sleep(1) unless a
    // test puts a function of its own here (null restores the default).
    typedef void (*PauseFn)();
    static void setPauseForTesting(PauseFn pause);

private:
    ConfRegLockC(const ConfRegLockC&) = delete;
    ConfRegLockC& operator=(const ConfRegLockC&) = delete;

    void closeDescriptor();

    FileNameC lockFile;
    int32_t descriptor;
    // The whole file, exclusive.
    struct flock64 record;
};

}  // namespace keel

#endif
