// The writers' lock of an ini file, between real processes: a lock held
// elsewhere is refused and obtained once its holder ends, a ".lck" left by a
// killed process has no effect, an unusable lock file answers at once, and
// writers that count through a shared file under the lock lose no update.
// The pause between attempts goes through the test hook, so no test sleeps.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "config/confregini_lock.h"
#include "testing/process.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

int pauses = 0;
pid_t holder = -1;

void countPause() { ++pauses; }
// The second pause ends the holder, so the attempt after it succeeds.
void pauseThenEndHolder() {
    if (++pauses == 2) {
        kill(holder, SIGTERM);
        waitpid(holder, nullptr, 0);
        holder = -1;
    }
}
void shortPause() { usleep(200); }

class ConfRegLockTest : public testkit::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        pauses = 0;
        ConfRegLockC::setPauseForTesting(countPause);
    }
    void TearDown() override {
        ConfRegLockC::setPauseForTesting(nullptr);
        if (holder > 0) {
            kill(holder, SIGKILL);
            waitpid(holder, nullptr, 0);
            holder = -1;
        }
        TempDirTest::TearDown();
    }

    // A child that takes the lock of `ini`, says so through a pipe and
    // waits to be ended.
    void startHolder(const std::string& ini) {
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        holder = fork();
        ASSERT_GE(holder, 0);
        if (holder == 0) {
            ConfRegLockC lock(name(ini));
            char answer = lock.tryLock() == 0 ? 'y' : 'n';
            if (write(ready[1], &answer, 1) != 1) _exit(2);
            for (;;) pause();
        }
        close(ready[1]);
        char answer = 0;
        ASSERT_EQ(1, read(ready[0], &answer, 1));
        close(ready[0]);
        ASSERT_EQ('y', answer);
    }
};

TEST_F(ConfRegLockTest, HeldElsewhereIsRefusedUntilTheHolderEnds) {
    startHolder("a.ini");
    ConfRegLockC lock(name("a.ini"));
    EXPECT_EQ(path("a.ini.lck"), testkit::textOf(lock.getLockFile().toString()));
    EXPECT_EQ(-1, lock.tryLock());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ(-1, lock.lockWithRetry(20));
    EXPECT_EQ(20, pauses) << "a pause after every failed attempt, the last one too";

    pauses = 0;
    ConfRegLockC::setPauseForTesting(pauseThenEndHolder);
    EXPECT_EQ(0, lock.lockWithRetry(20));
    EXPECT_EQ(2, pauses);
    EXPECT_TRUE(lock.isHeld());
    EXPECT_TRUE(lock.unlock());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ("<missing>", readFile("a.ini.lck"));
    EXPECT_TRUE(lock.unlock());
}

TEST_F(ConfRegLockTest, LockFileOfAKilledProcessHasNoEffect) {
    startHolder("a.ini");
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    holder = -1;
    ASSERT_NE("<missing>", readFile("a.ini.lck"));
    ConfRegLockC lock(name("a.ini"));
    EXPECT_EQ(0, lock.lockWithRetry(20));
    EXPECT_EQ(0, pauses);
    EXPECT_TRUE(lock.unlock());
    EXPECT_EQ("<missing>", readFile("a.ini.lck"));
}

TEST_F(ConfRegLockTest, UnusableLockFileAnswersAtOnce) {
    ConfRegLockC missing(name("no/such/dir/a.ini"));
    EXPECT_EQ(-2, missing.lockWithRetry(20));
    EXPECT_EQ(0, pauses);
    EXPECT_EQ(-1, missing.lockWithRetry(0));

    // A directory without write permission. Root is not refused by it, so
    // the attempt runs in a child that drops to an unprivileged user first.
    ASSERT_EQ(0, mkdir(path("ro").c_str(), 0555));
    ASSERT_EQ(0, chmod(dir.c_str(), 0755));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (isRoot() && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(3);
        ConfRegLockC readOnly(name("ro/a.ini"));
        _exit(readOnly.lockWithRetry(20) == -2 && pauses == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(ConfRegLockTest, ALockWhoseNameWasReplacedIsGivenUp) {
    ConfRegLockC lock(name("a.ini"));
    ASSERT_EQ(0, lock.tryLock());
    // Another file now bears the name: what this descriptor locks is no
    // longer the lock.
    writeFile("other", "");
    ASSERT_EQ(0, rename(path("other").c_str(), path("a.ini.lck").c_str()));
    EXPECT_EQ(-1, lock.tryLock());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ(0, lock.tryLock());
    EXPECT_TRUE(lock.unlock());
}

TEST_F(ConfRegLockTest, WritersUnderTheLockLoseNoUpdate) {
    writeFile("count", "0");
    const int kWriters = 4, kRounds = 25;
    pid_t children[kWriters];
    for (pid_t& child : children) {
        child = fork();
        ASSERT_GE(child, 0);
        if (child != 0) continue;
        ConfRegLockC::setPauseForTesting(shortPause);
        ConfRegLockC lock(name("a.ini"));
        for (int round = 0; round < kRounds; ++round) {
            if (lock.lockWithRetry(1000000) != 0) _exit(1);
            int value = std::stoi(readFile("count"));
            usleep(100);  // widen the window a lost update would need
            writeFile("count", std::to_string(value + 1));
            if (!lock.unlock()) _exit(1);
        }
        _exit(0);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(std::to_string(kWriters * kRounds), readFile("count"));
    EXPECT_EQ("<missing>", readFile("a.ini.lck"));
}

}  // namespace
}  // namespace keel
