// Latches of each kind, alone and on several threads.
//
// The reference count under contention: many threads taking and dropping
// references on one object leave the count exact, and the object dies once,
// on the release that reaches zero, whichever thread makes it.
#include "frame/latch.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>

#include <keel/refcount.h>

#include "locale/locale.h"
#include "testing/threads.h"
#include "tracing/tracecim.h"
#include "tracing/tracing.h"

namespace keel {
namespace {

// A recursive latch lets its owner lock again and is free once fully
// unlocked; an error-checking one refuses a relock and an unlock by a thread
// that does not hold it.
void expectItsKind(LatchC& latch, LatchC::Kind kind) {
    EXPECT_EQ(0, latch.lock());
    EXPECT_EQ(kind == LatchC::Recursive ? 0 : EDEADLK, latch.lock());
    EXPECT_EQ(0, latch.unlock());
    EXPECT_EQ(kind == LatchC::Recursive ? 0 : EPERM, latch.unlock());
    EXPECT_EQ(0, latch.tryLock());
    EXPECT_EQ(0, latch.unlock());
}

// Resetting the ready flags makes the next latch of a kind set up its
// attribute object again, and it still gives that kind.
TEST(LatchTest, EachKindBehavesAsDeclaredAlsoAfterAReset) {
    for (LatchC::Kind kind : {LatchC::Recursive, LatchC::ErrorChecking}) {
        LatchC::resetReadyFlags();
        EXPECT_FALSE(LatchC::isReady(LatchC::Recursive));
        EXPECT_FALSE(LatchC::isReady(LatchC::ErrorChecking));
        LatchC first(kind);
        EXPECT_TRUE(LatchC::isReady(kind));
        EXPECT_FALSE(
            LatchC::isReady(kind == LatchC::Recursive ? LatchC::ErrorChecking : LatchC::Recursive));
        expectItsKind(first, kind);
        LatchC::resetReadyFlags();
        LatchC again(kind);
        expectItsKind(again, kind);
    }
}

// The load steps made the tracer latch (error-checking), the trace control
// latch and the locale latch (recursive).
TEST(LatchTest, TheLoadStepsLatchesAreOfTheirKinds) {
    expectItsKind(tracerLatch(), LatchC::ErrorChecking);
    expectItsKind(traceControlLatch(), LatchC::Recursive);
    expectItsKind(localeLatch(), LatchC::Recursive);
}

TEST(LatchThreadTest, GuardExcludesOtherThreads) {
    LatchC latch(LatchC::Recursive);
    int64_t counter = 0;
    testkit::onThreads(4, [&](int) {
        for (int i = 0; i < 20000; ++i) {
            LatchGuardC guard(latch);
            LatchGuardC nested(latch);  // recursive: the owner may lock again
            ++counter;
        }
    });
    EXPECT_EQ(80000, counter);
}

// Latches made on several threads at once each get their own kind: a
// recursive one lets its owner lock again (tried, so that a wrong kind
// fails the test instead of hanging it), an error-checking one refuses.
TEST(LatchThreadTest, LatchesMadeAtOnceKeepTheirKind) {
    std::atomic<int> wrong{0};
    testkit::onThreads(4, [&wrong](int t) {
        for (int i = 0; i < 3000; ++i) {
            if (i % 500 == 0) LatchC::resetReadyFlags();
            LatchC::Kind kind = (i + t) % 2 ? LatchC::Recursive : LatchC::ErrorChecking;
            LatchC latch(kind);
            if (latch.lock() != 0) ++wrong;
            int again = latch.tryLock();
            if (again != (kind == LatchC::Recursive ? 0 : EBUSY)) ++wrong;
            if (again == 0) latch.unlock();
            latch.unlock();
        }
    });
    EXPECT_EQ(0, wrong.load());
}

std::atomic<int> destroyed{0};

class TrackedC : public RefCountC {
public:
    ~TrackedC() override { destroyed.fetch_add(1); }
};

TEST(RefCountThreadTest, ConcurrentAddRefAndReleaseStayExact) {
    destroyed = 0;
    TrackedC* object = new TrackedC();
    ASSERT_EQ(1, object->addRef());
    testkit::onThreads(4, [object](int) {
        for (int i = 0; i < 20000; ++i) {
            object->addRef();
            object->release();
        }
    });
    EXPECT_EQ(0, destroyed.load());
    EXPECT_EQ(1, object->refCount());

    // Hand the last references to several threads: exactly one release reaches zero.
    for (int i = 0; i < 3; ++i) object->addRef();
    std::atomic<int> zeros{0};
    testkit::onThreads(4, [object, &zeros](int) {
        if (object->release() == 0) zeros.fetch_add(1);
    });
    EXPECT_EQ(1, zeros.load());
    EXPECT_EQ(1, destroyed.load());
}

}  // namespace
}  // namespace keel
