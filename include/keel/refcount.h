// RefCountI / RefCountC: the reference count under strings and argument lists.
//
// A new object starts at count 0, not 1: the first handle that takes it calls
// addRef. release() deletes the object when the count it leaves is 0. The
// bodies are inline so that a program can build reference-counted values that
// the library later releases, and the other way round.
#ifndef KEEL_REFCOUNT_H
#define KEEL_REFCOUNT_H

#include <stdint.h>

#include <keel/atomic.h>

namespace keel {

class RefCountI {
public:
    virtual int32_t addRef() = 0;   // answers the new count
    virtual int32_t release() = 0;  // answers the new count; deletes at 0
    virtual ~RefCountI() {}
};

class RefCountC : public RefCountI {
public:
    RefCountC() : count_(0) {}
    int32_t addRef() override { return atomicAddAcqRel(&count_, 1); }
    int32_t release() override {
        int32_t left = atomicAddAcqRel(&count_, -1);
        if (left == 0) delete this;
        return left;
    }
    ~RefCountC() override {}

    // The first reference of an object that its maker has not handed to
    // any other thread yet: the count goes from 0 to 1 by a plain store,
    // which nobody can tell from the increment.
    void firstRef() { atomicStoreRelaxed(&count_, 1); }

    // The current count, for isShared-style questions. An acquire load: a
    // thread that sees 1 here goes on to change the object in place, and it
    // must be ordered after every other handle's reads, which ended with
    // their release (a relaxed load would let those reads see the change).
    // On x86 it is still a plain load.
    int32_t refCount() const { return atomicLoadAcquire(&count_); }

private:
    int32_t count_;
};

}  // namespace keel

#endif
