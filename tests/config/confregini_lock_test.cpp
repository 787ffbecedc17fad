// The writers' lock of an ini file, between real processes. The pause
// between attempts goes through the test hook, so no test sleeps.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "config/confregini_lock.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

int pauses = 0;
pid_t holder = -1;

void endHolder(int signal) {
    kill(holder, signal);
    waitpid(holder, nullptr, 0);
    holder = -1;
}
void countPause() { ++pauses; }
// The second pause ends the holder, so the attempt after it succeeds.
void pauseThenEndHolder() {
    if (++pauses == 2) endHolder(SIGTERM);
}

// The exit status of `body` run in a child process.
template <typename F>
int inChild(F body) {
    pid_t child = fork();
    if (child == 0) _exit(body());
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class ConfRegLockTest : public testkit::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        pauses = 0;
        ConfRegLockC::setPauseForTesting(countPause);
    }
    void TearDown() override {
        ConfRegLockC::setPauseForTesting(nullptr);
        if (holder > 0) endHolder(SIGKILL);
        TempDirTest::TearDown();
    }

    // A child that holds the lock of "a.ini" until it is ended.
    void startHolder() {
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        holder = fork();
        if (holder == 0) {
            ConfRegLockC lock(name("a.ini"));
            char answer = lock.tryLock() == 0 ? 'y' : 'n';
            if (write(ready[1], &answer, 1) == 1) pause();
            _exit(0);
        }
        char answer = 0;
        ASSERT_EQ(1, read(ready[0], &answer, 1));
        close(ready[0]);
        close(ready[1]);
        ASSERT_EQ('y', answer);
    }
};

TEST_F(ConfRegLockTest, HeldElsewhereIsRefusedUntilTheHolderEnds) {
    startHolder();
    ConfRegLockC lock(name("a.ini"));
    EXPECT_EQ(path("a.ini.lck"), str(lock.getLockFile().toString()));
    EXPECT_EQ(-1, lock.lockWithRetry(20));
    EXPECT_EQ(20, pauses) << "a pause after every failed attempt, the last one too";
    EXPECT_FALSE(lock.isHeld());

    pauses = 0;
    ConfRegLockC::setPauseForTesting(pauseThenEndHolder);
    EXPECT_EQ(0, lock.lockWithRetry(20));
    EXPECT_EQ(2, pauses);
    EXPECT_TRUE(lock.isHeld());
    // Another file that takes the name: what this descriptor locks is no
    // longer the lock, and the next attempt takes the new file.
    writeFile("other", "");
    ASSERT_EQ(0, rename(path("other").c_str(), path("a.ini.lck").c_str()));
    EXPECT_EQ(-1, lock.tryLock());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ(0, lock.tryLock());
    EXPECT_TRUE(lock.unlock());
    EXPECT_FALSE(lock.isHeld());
    EXPECT_EQ("<missing>", readFile("a.ini.lck"));
    EXPECT_TRUE(lock.unlock());
}

TEST_F(ConfRegLockTest, LockFileOfAKilledProcessHasNoEffect) {
    startHolder();
    endHolder(SIGKILL);
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
    EXPECT_EQ(-1, missing.lockWithRetry(0));
    // A directory without write permission does not refuse root, so the
    // attempt runs in a child that is no longer root.
    ASSERT_EQ(0, mkdir(path("ro").c_str(), 0555));
    ASSERT_EQ(0, chmod(dir.c_str(), 0755));
    EXPECT_EQ(0, inChild([&] {
                  if (isRoot() && (setgid(65534) != 0 || setuid(65534) != 0)) return 3;
                  return ConfRegLockC(name("ro/a.ini")).lockWithRetry(20) == -2 && pauses == 0 ? 0
                                                                                               : 1;
              }));
    EXPECT_EQ(0, pauses);
}

TEST_F(ConfRegLockTest, WritersUnderTheLockLoseNoUpdate) {
    writeFile("count", "0");
    const int kWriters = 4, kRounds = 25;
    pid_t writers[kWriters];
    for (pid_t& writer : writers) {
        if ((writer = fork()) != 0) continue;
        ConfRegLockC::setPauseForTesting([] { usleep(200); });
        ConfRegLockC lock(name("a.ini"));
        for (int round = 0; round < kRounds; ++round) {
            if (lock.lockWithRetry(1000000) != 0) _exit(1);
            int value = std::stoi(readFile("count"));
            usleep(100);  // widens the window a lost update would need
            writeFile("count", std::to_string(value + 1));
            if (!lock.unlock()) _exit(1);
        }
        _exit(0);
    }
    for (pid_t writer : writers) {
        int status = 0;
        ASSERT_EQ(writer, waitpid(writer, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(std::to_string(kWriters * kRounds), readFile("count"));
    EXPECT_EQ("<missing>", readFile("a.ini.lck"));
}

}  // namespace
}  // namespace keel
