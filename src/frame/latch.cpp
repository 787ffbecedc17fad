#include "frame/latch.h"

#include <keel/atomic.h>

#include "frame/loadorder.h"

namespace keel {

namespace {

// The attribute object of one kind and the flag that says it was set up.
struct LatchKindStateT {
    pthread_mutexattr_t attributes;
    AtomicM<bool> ready;
};

// Made on first use and never destroyed (trivial destructor, so no exit
// action is registered): latches may still be made and destroyed during
// exit, and they need the attribute objects.
LatchKindStateT& kindState(LatchC::Kind kind) {
    static LatchKindStateT states[2];
    return states[kind == LatchC::Recursive ? 0 : 1];
}

}  // namespace

LatchC::LatchC(Kind kind) : kind_(kind) {
    LatchKindStateT& state = kindState(kind);
    // A plain read with no lock: two threads may both initialise the
    // attribute object, which gives it the same contents twice.
    if (!state.ready.load()) {
        pthread_mutexattr_init(&state.attributes);
        pthread_mutexattr_settype(&state.attributes, kind);
        state.ready = true;
    }
    pthread_mutex_init(&mutex_, &state.attributes);
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

// Step 9 runs after the latches of steps 2 to 4 were made, so the first latch
// made after load sets up its kind's attribute object a second time. That is
// harmless and keeps every kind's set-up in one place.
void loadStepLatch() { LatchC::resetReadyFlags(); }

}  // namespace keel
