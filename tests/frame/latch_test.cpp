#include "frame/latch.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "frame/loadorder.h"

namespace keel {
namespace {

TEST(LatchTest, RecursiveLatchLetsItsOwnerLockAgain) {
    LatchC latch(LatchC::Recursive);
    EXPECT_EQ(0, latch.lock());
    EXPECT_EQ(0, latch.lock());
    EXPECT_EQ(0, latch.unlock());
    EXPECT_EQ(0, latch.unlock());
    // Once fully unlocked it is free again.
    EXPECT_EQ(0, latch.tryLock());
    EXPECT_EQ(0, latch.unlock());
}

TEST(LatchTest, ErrorCheckingLatchRefusesRelockByItsOwner) {
    LatchC latch(LatchC::ErrorChecking);
    EXPECT_EQ(0, latch.lock());
    EXPECT_EQ(EDEADLK, latch.lock());
    EXPECT_EQ(0, latch.unlock());
    // Unlocking a latch one does not hold is refused as well.
    EXPECT_EQ(EPERM, latch.unlock());
}

TEST(LatchTest, ResetFlagsMakeTheNextLatchSetUpItsKindAgain) {
    LatchC::resetReadyFlags();
    EXPECT_FALSE(LatchC::isReady(LatchC::Recursive));
    EXPECT_FALSE(LatchC::isReady(LatchC::ErrorChecking));
    {
        LatchC recursive(LatchC::Recursive);
        EXPECT_TRUE(LatchC::isReady(LatchC::Recursive));
        EXPECT_FALSE(LatchC::isReady(LatchC::ErrorChecking));
        // The attribute object set up a second time still gives its kind.
        LatchC::resetReadyFlags();
        LatchC again(LatchC::Recursive);
        EXPECT_EQ(0, again.lock());
        EXPECT_EQ(0, again.lock());
        again.unlock();
        again.unlock();
    }
    LatchC checking(LatchC::ErrorChecking);
    EXPECT_TRUE(LatchC::isReady(LatchC::ErrorChecking));
    checking.lock();
    EXPECT_EQ(EDEADLK, checking.lock());
    checking.unlock();
}

TEST(LatchThreadTest, GuardExcludesOtherThreads) {
    LatchC latch(LatchC::Recursive);
    int64_t counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                LatchGuardC guard(latch);
                LatchGuardC nested(latch);  // recursive: the owner may lock again
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(80000, counter);
}

}  // namespace
}  // namespace keel
