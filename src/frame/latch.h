// LatchC: the library's lock, one pthread mutex of one of two kinds.
//
// The kind is chosen where the lock is declared: recursive (the owner may lock
// again) or error-checking (relocking by the owner fails instead of hanging).
// Every latch sets up mutex attributes of its own kind while it is made, so
// two threads making latches at once never share an attribute object. Each
// kind keeps a ready flag, set by every latch of the kind and cleared by the
// load step of this unit.
//
//     static LatchC latch(LatchC::Recursive);
//     LatchGuardC guard(latch);     // locked until the end of the scope
#ifndef KEEL_FRAME_LATCH_H
#define KEEL_FRAME_LATCH_H

#include <pthread.h>

namespace keel {

class LatchC {
public:
    // The values are the arguments of pthread_mutexattr_settype.
    enum Kind { Recursive = PTHREAD_MUTEX_RECURSIVE, ErrorChecking = PTHREAD_MUTEX_ERRORCHECK };

    explicit LatchC(Kind kind);
    ~LatchC();
    LatchC(const LatchC&) = delete;
    LatchC& operator=(const LatchC&) = delete;

    // Each answers 0 or the error number of the pthread call (an
    // error-checking latch answers EDEADLK when its owner locks again).
    int lock();
    int unlock();
    int tryLock();

    Kind kind() const { return kind_; }

    // Load step: puts both ready flags back to false until the next latch of
    // each kind is made.
    static void resetReadyFlags();
    // Whether a latch of `kind` was made since the last reset.
    static bool isReady(Kind kind);

private:
    pthread_mutex_t mutex_;
    Kind kind_;
};

// Holds a latch locked for the lifetime of the guard.
class LatchGuardC {
public:
    explicit LatchGuardC(LatchC& latch) : latch_(latch) { latch_.lock(); }
    ~LatchGuardC() { latch_.unlock(); }
    LatchGuardC(const LatchGuardC&) = delete;
    LatchGuardC& operator=(const LatchGuardC&) = delete;

private:
    LatchC& latch_;
};

}  // namespace keel

#endif
