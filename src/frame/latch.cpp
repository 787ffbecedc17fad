#include "frame/latch.h"

#include <keel/atomic.h>

#include "frame/loadorder.h"

namespace keel {

namespace {

// The flag that says a latch of one kind was made since the last reset.
struct LatchKindStateT {
    AtomicM<bool> ready;
};

// Made on first use and never destroyed (trivial destructor, so no exit
// action is registered): latches may still be made and destroyed during
// exit.
LatchKindStateT& kindState(LatchC::Kind kind) {
    static LatchKindStateT states[2];
    return states[kind == LatchC::Recursive ? 0 : 1];
}

}  // namespace

LatchC::LatchC(Kind kind) : kind_(kind) {
    // Each latch sets up an attribute object of its own, on the stack, and
    // drops it once the mutex is made. One process-wide object per kind,
    // set up when its ready flag reads false, is shared by threads making
    // latches at the same time: while one initialises it (init resets the
    // type to the default before settype sets it again), another may make
    // its mutex from it and get a plain mutex instead of a recursive one,
    // whose owner then hangs on its own second lock. The ready flag is still
    // kept, for what it tells (isReady) and for the load step that clears it.
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, kind);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
    LatchKindStateT& state = kindState(kind);
    if (!state.ready.load()) state.ready = true;
}

LatchC::~LatchC() { pthread_mutex_destroy(&mutex_); }

int LatchC::lock() { return pthread_mutex_lock(&mutex_); }

int LatchC::unlock() { return pthread_mutex_unlock(&mutex_); }

int LatchC::tryLock() { return pthread_mutex_trylock(&mutex_); }

void LatchC::resetReadyFlags() {
    kindState(Recursive).ready = false;
    kindState(ErrorChecking).ready = false;
}

bool LatchC::isReady(Kind kind) { return kindState(kind).ready.load(); }

// Step 9 runs after the latches of steps 2 to 4 were made, so the flags read
// false again until the next latch of each kind is made.
void loadStepLatch() { LatchC::resetReadyFlags(); }

}  // namespace keel
