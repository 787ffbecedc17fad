// The reference count under contention: many threads taking and dropping
// references on one object leave the count exact, and the object dies once,
// on the release that reaches zero, whichever thread makes it.
#include <gtest/gtest.h>

#include <atomic>

#include <keel/refcount.h>

#include "testing/threads.h"

namespace {

std::atomic<int> destroyed{0};

class TrackedC : public keel::RefCountC {
public:
    ~TrackedC() override { destroyed.fetch_add(1); }
};

TEST(RefCountThreadTest, ConcurrentAddRefAndReleaseStayExact) {
    destroyed = 0;
    TrackedC* object = new TrackedC();
    ASSERT_EQ(1, object->addRef());
    keel::testkit::onThreads(4, [object](int) {
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
    keel::testkit::onThreads(4, [object, &zeros](int) {
        if (object->release() == 0) zeros.fetch_add(1);
    });
    EXPECT_EQ(1, zeros.load());
    EXPECT_EQ(1, destroyed.load());
}

}  // namespace
