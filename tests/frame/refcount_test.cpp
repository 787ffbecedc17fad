// The reference count under contention: many threads taking and dropping
// references on one object leave the count exact, and the object dies once,
// on the release that reaches zero, whichever thread makes it.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include <keel/refcount.h>

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
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([object] {
            for (int i = 0; i < 20000; ++i) {
                object->addRef();
                object->release();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, destroyed.load());
    EXPECT_EQ(1, object->refCount());

    // Hand the last references to several threads: exactly one release reaches zero.
    for (int i = 0; i < 3; ++i) object->addRef();
    threads.clear();
    std::atomic<int> zeros{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([object, &zeros] {
            if (object->release() == 0) zeros.fetch_add(1);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(1, zeros.load());
    EXPECT_EQ(1, destroyed.load());
}

}  // namespace
