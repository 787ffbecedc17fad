// The writers' lock of an ini file and the registry's commit under it,
// between real processes: the lock file of a killed process, registry
// writers in parallel that lose nothing, a commit that waits for a held lock,
// and a writer killed at every step of its commit. The pause between
// attempts goes through the test hook, so no test sleeps unasked.
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "config/confregini.h"
#include "config/confregini_lock.h"
#include "testing/process.h"
#include "testing/regmodel.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

const uint32_t kLM = ConfRegistryI::kLocalMachine;
using regmodel::getText;
using regmodel::u;

int pauses = 0, endHolderAt = 0;  // the pause that ends the holder (0: none)
pid_t holder = -1;
const char* stopAt = nullptr;  // the commit step where a forked writer stops itself

// Kills the child that holds the lock or stopped itself, and waits for it.
void endHolder() {
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    holder = -1;
}
void countPause() {
    if (++pauses == endHolderAt) endHolder();
}
void stopHere(const char* step) {
    if (stopAt && strcmp(step, stopAt) == 0) raise(SIGSTOP);
}

const char kOriginal[] = "; settings\n[s]\nunknown line\nkeep=1\n\n; tail\n[t]\nx=1\n";

class ConfRegLockTest : public testkit::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        pauses = endHolderAt = 0;
        ConfRegLockC::setPauseForTesting(countPause);
    }
    void TearDown() override {
        ConfRegLockC::setPauseForTesting(nullptr);
        ConfRegistryIniC::setCommitStepForTesting(nullptr);
        if (holder > 0) endHolder();
        TempDirTest::TearDown();
    }

    // A child that runs `body` until it stops itself (SIGSTOP); it stays
    // until endHolder.
    void startStopped(const std::function<void()>& body) {
        if ((holder = fork()) == 0) {
            body();
            _exit(1);
        }
        int status = 0;
        ASSERT_EQ(holder, waitpid(holder, &status, WUNTRACED));
        ASSERT_TRUE(WIFSTOPPED(status));
    }
    // A child that holds the lock of "a.ini".
    void startHolder() {
        startStopped([this] {
            ConfRegLockC lock(name("a.ini"));
            if (lock.tryLock() == 0) raise(SIGSTOP);
        });
    }
    // A registry with "a.ini" mounted at HKLM\Soft.
    void mount(ConfRegistryIniC& registry) {
        ASSERT_EQ(0u, registry.mountFile(u(path("a.ini")), u("HKLM"), u("Soft")));
    }
};

// A lock held elsewhere, and the lock file of a killed holder, are the
// commit test's. Here the lock file is taken over by another file: what this
// descriptor locks is no longer the lock, and the next attempt takes the new
// file; an unlock removes it.
TEST_F(ConfRegLockTest, LockFileTakenOverAndRemoved) {
    ConfRegLockC lock(name("a.ini"));
    EXPECT_EQ(path("a.ini.lck"), str(lock.getLockFile().toString()));
    EXPECT_EQ(0, lock.tryLock());
    EXPECT_TRUE(lock.isHeld());
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

TEST_F(ConfRegLockTest, UnusableLockFileAnswersAtOnce) {
    ConfRegLockC missing(name("no/such/dir/a.ini"));
    EXPECT_EQ(-2, missing.lockWithRetry(20));
    EXPECT_EQ(-1, missing.lockWithRetry(0));
    // A directory without write permission does not refuse root, so the
    // attempt runs in a child that is no longer root.
    ASSERT_EQ(0, mkdir(path("ro").c_str(), 0555));
    ASSERT_EQ(0, chmod(dir.c_str(), 0755));
    EXPECT_TRUE(testkit::runForked(1, [this](int) {
        if (isRoot() && (setgid(65534) != 0 || setuid(65534) != 0)) return 3;
        return ConfRegLockC(name("ro/a.ini")).lockWithRetry(20) == -2 && pauses == 0 ? 0 : 1;
    }));
    EXPECT_EQ(0, pauses);
}

// Registries in processes of their own, each with changes in both sections
// and commits that may time out, keep every change and every line that the
// store does not understand.
TEST_F(ConfRegLockTest, RegistryWritersInParallelKeepEveryChange) {
    writeFile("a.ini", kOriginal);
    const int kWriters = 4, kChanges = 25;
    auto valueName = [](int change) {
        return "w" + std::to_string(change / kChanges) + "_" + std::to_string(change % kChanges);
    };
    auto section = [](int change) { return change % kChanges % 2 ? "Soft\\s" : "Soft\\t"; };
    EXPECT_TRUE(testkit::runForked(kWriters, [&](int w) {
        ConfRegLockC::setPauseForTesting([] { usleep(10000); });
        ConfRegistryIniC registry;
        bool failed = registry.mountFile(u(path("a.ini")), u("HKLM"), u("Soft")) != 0;
        for (int change = w * kChanges; change < (w + 1) * kChanges; ++change)
            failed |=
                registry.setString(kLM, u(section(change)), u(valueName(change)), u("v")) != 0;
        // A change whose commit timed out is still in memory: a later
        // commit carries it.
        uint32_t code = kRegUnsupported;
        for (int attempt = 0; attempt < 100 && code != 0; ++attempt) code = registry.commitFile(0);
        return int(failed || code != 0);
    }));
    std::string content = readFile("a.ini");
    for (const char* line : {"; settings\n", "unknown line\n", "keep=1\n", "; tail\n", "x=1\n"})
        EXPECT_NE(std::string::npos, content.find(line)) << line;
    ConfRegistryIniC reader;
    mount(reader);
    for (int change = 0; change < kWriters * kChanges; ++change)
        EXPECT_EQ("v", getText(reader, kLM, section(change), valueName(change))) << change;
}

// A commit waits for a lock held elsewhere and goes through once the holder
// ends (at the third pause); otherwise it gives up after twenty attempts,
// and the change that could not be written goes out with the next commit,
// with another writer's commit read in meanwhile.
TEST_F(ConfRegLockTest, CommitWaitsForAHeldLockAndGivesUpAfterTwentyAttempts) {
    for (bool holderEnds : {true, false}) {
        SCOPED_TRACE(holderEnds ? "the holder ends" : "the holder stays");
        writeFile("a.ini", kOriginal);
        startHolder();
        pauses = 0;
        endHolderAt = holderEnds ? 3 : 0;
        ConfRegistryIniC registry;
        mount(registry);
        registry.setAutoCommit(false);
        registry.setString(kLM, u("Soft\\s"), u("waited"), u("1"));
        registry.setAutoCommit(true);
        EXPECT_EQ(holderEnds ? 3 : 20, pauses);
        if (!holderEnds) {
            EXPECT_EQ(kRegUnsupported, registry.commitFile(0));
            EXPECT_EQ(40, pauses);  // 20 for setAutoCommit, 20 for this commit
            EXPECT_EQ(kOriginal, readFile("a.ini"));
            endHolder();
            ConfRegistryIniC other;
            mount(other);
            other.setString(kLM, u("Soft\\t"), u("other"), u("2"));
            registry.file(0)->refreshFile(true);
            EXPECT_EQ(0u, registry.commitFile(0));
            EXPECT_EQ("2", getText(registry, kLM, "Soft\\t", "other"));
        }
        EXPECT_EQ("1", getText(registry, kLM, "Soft\\s", "waited"));
    }
}

TEST_F(ConfRegLockTest, WriterKilledAtEveryStepOfACommitLeavesAWholeFile) {
    ConfRegistryIniC::setCommitStepForTesting(stopHere);
    for (const char* step : {"locked", "merged", "moving", "moved"}) {
        SCOPED_TRACE(step);
        writeFile("a.ini", kOriginal);
        startStopped([&] {
            stopAt = step;
            ConfRegistryIniC registry;
            registry.mountFile(u(path("a.ini")), u("HKLM"), u("Soft"));
            registry.setString(kLM, u("Soft\\s"), u("new"), u("1"));
        });
        // Dying during the merge leaves a torn ".tmp".
        if (strcmp(step, "merged") == 0) {
            ASSERT_EQ(0, truncate(path("a.ini.tmp").c_str(), 20));
        }
        std::string content = readFile("a.ini");
        bool merged = content.find("new=1") != std::string::npos &&
                      content.find("unknown line\nkeep=1\n") != std::string::npos;
        EXPECT_TRUE(content == kOriginal || merged) << content;
        EXPECT_EQ(strcmp(step, "moved") == 0, merged);
        endHolder();
        // The next writer needs no cleanup, and leaves no lock file.
        ConfRegistryIniC next;
        mount(next);
        EXPECT_EQ(0u, next.setString(kLM, u("Soft\\t"), u("after"), u("2")));
        EXPECT_EQ(0u, next.commitFile(0));
        EXPECT_EQ("2 1", getText(next, kLM, "Soft\\t", "after") + " " +
                             getText(next, kLM, "Soft\\s", "keep"));
        EXPECT_EQ("<missing>", readFile("a.ini.lck"));
    }
}

}  // namespace
}  // namespace keel
