#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>

#include "config/confregini.h"
#include "testing/regmodel.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

const uint32_t kLM = ConfRegistryI::kLocalMachine;

StringC u(const std::string& text) { return StringC(text.c_str(), "utf8"); }

class RegistryTest : public testkit::TempDirTest {
protected:
    // A registry with `file` mounted at HKLM\Soft.
    void mount(ConfRegistryIniC& registry, const std::string& file = "f.ini") {
        ASSERT_EQ(0u, registry.mountFile(u(path(file)), u("HKLM"), u("Soft")));
    }
    std::string get(ConfRegistryIniC& registry, const std::string& key, const std::string& name) {
        StringC value;
        uint32_t code = registry.getString(kLM, u(key), u(name), &value);
        return code == 0 ? str(value) : "<" + std::to_string(code & 0xFF) + ">";
    }
};

// What the model does not reach: root handles, keys down to a mount point,
// sizes, integers, bounded texts, paths and root names.
TEST_F(RegistryTest, KeysPathsAndCodes) {
    ConfRegistryIniC registry;
    uint32_t handle = 0, other = 0, size = 0, number = 0;
    EXPECT_EQ(kRegNotFound, registry.openKey(kLM, u("X"), &handle));
    EXPECT_EQ(0u, registry.openKey(kLM, u(""), &handle));
    EXPECT_EQ(kLM, handle);
    EXPECT_EQ(kRegBadHandle, registry.openKey(0x80000003, u(""), &handle));
    writeFile("f.ini", "[A\\B]\nv=-1\nw=abc\n");
    mount(registry);
    EXPECT_EQ(kRegMissingArgument, registry.mountFile(StringC(), u("HKLM"), u("X")));
    EXPECT_EQ(kRegAlreadyMounted,
              registry.mountFile(u(path("f.ini")), u("HKEY_LOCAL_MACHINE"), u("X")));
    ASSERT_EQ(0u, registry.mountFile(u(path("g.ini")), u("HKLM"), u("Other\\App")));
    for (const char* key : {"Other", "Other\\App", "Soft\\A", "soft\\a\\b"}) {
        EXPECT_EQ(0u, registry.openKey(kLM, u(key), &handle)) << key;
    }
    EXPECT_EQ(0u, registry.openKey(kLM, u("Soft\\A\\B"), &other));
    EXPECT_EQ(handle, other);
    EXPECT_EQ(0u, registry.closeKey(handle));
    EXPECT_EQ(0u, registry.closeKey(handle));
    EXPECT_EQ(kRegBadHandle, registry.closeKey(handle));
    // A size query by value answers 0, by enumeration 0xE1370067; a buffer
    // too small leaves the caller's size alone.
    EXPECT_EQ(0u, registry.queryValue(kLM, u("Soft\\A\\B"), u("w"), nullptr, &size, nullptr));
    EXPECT_EQ(4u, size);
    char small[2];
    EXPECT_EQ(kRegMoreData,
              registry.queryValue(kLM, u("Soft\\A\\B"), u("w"), small, &number, nullptr));
    EXPECT_EQ(kRegMissingArgument,
              registry.queryValue(kLM, u("Soft\\A\\B"), u("w"), small, nullptr, nullptr));
    ASSERT_EQ(0u, registry.openKey(kLM, u("Soft\\A\\B"), &handle));
    EXPECT_EQ(kRegMoreData, registry.enumValue(handle, 1, nullptr, nullptr, nullptr, &size));
    registry.closeKey(handle);
    EXPECT_EQ(0u, registry.setInteger(kLM, u("Soft\\A\\B"), u("n"), 7));
    EXPECT_EQ("7l", get(registry, "Soft\\A\\B", "n"));
    EXPECT_EQ(0u, registry.getInteger(kLM, u("Soft\\A\\B"), u("n"), &number));
    EXPECT_EQ(7u, number);
    EXPECT_EQ(kRegNotFound, registry.getInteger(kLM, u("Soft\\A\\B"), u("v"), &number));
    EXPECT_EQ(0u, registry.setValue(kLM, u("Soft\\A\\B"), u("s"), 7, "abcdef", 3));
    EXPECT_EQ("abc", get(registry, "Soft\\A\\B", "s"));
    // A text beyond ASCII is kept whole: its bound is counted in bytes.
    EXPECT_EQ(0u, registry.setString(kLM, u("Soft\\A\\B"), u("g"), u("Gr\xC3\xBC\xC3\x9F" "e")));
    EXPECT_EQ("Gr\xC3\xBC\xC3\x9F" "e", get(registry, "Soft\\A\\B", "g"));
    uint32_t root = 0;
    StringC subKey, value;
    EXPECT_EQ(0u, registry.parsePath(u("HKLM\\A\\B\\V"), &root, &subKey, &value));
    EXPECT_EQ("A\\B\\|V", str(subKey) + "|" + str(value));
    EXPECT_EQ(kRegBadPath, registry.parsePath(u("hklm\\A"), &root, nullptr, nullptr));
    EXPECT_EQ("HKEY_DYN_DATA HKCU ", str(registry.rootKeyName(0x80000006)) + " " +
                                         str(registry.rootKeyShortName(0x80000001)) +
                                         " " + str(registry.rootKeyName(0x80000007)));
}

// Reads repeated around those that the table of resolved paths leaves to
// the opening (a path beyond ASCII, or an open key of one on the walk), to
// the store's lookup by name (another spelling of a section) or to nobody
// (a section that did not exist at the first read).
TEST_F(RegistryTest, RepeatedReadsAroundTheSlowRoutes) {
    ConfRegistryIniC registry;
    writeFile("f.ini", "[A]\nv=1\n[\xC3\x84]\nv=2\n[A\\B]\nv=3\n");
    mount(registry);
    uint32_t handle = 0;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ("1", get(registry, "Soft\\A", "v"));
        EXPECT_EQ("1", get(registry, "soft\\a", "v"));
        EXPECT_EQ("2", get(registry, "Soft\\\xC3\x84", "v"));
        EXPECT_EQ("<105>", get(registry, "Soft\\C", "v"));
        EXPECT_EQ("3", get(registry, "Soft\\A\\B", "v"));
        if (round == 0) {
            ASSERT_EQ(0u, registry.openKey(kLM, u("Soft\\\xC3\x84"), &handle));
        }
        if (round == 1) {
            EXPECT_EQ(0u, registry.closeKey(handle));
            ASSERT_EQ(0u, registry.openKey(kLM, u("Soft\\A"), &handle));
            // Through the held key: no key is entered, the store changes.
            EXPECT_EQ(0u, registry.setString(kLM, u("Soft\\a"), u("v"), u("1")));
        }
    }
    registry.file(0)->prefs().setValue("C", "v", "4", true);
    EXPECT_EQ("4", get(registry, "Soft\\C", "v"));
    registry.file(0)->prefs().deleteSection("A", false);
    EXPECT_EQ("<105>", get(registry, "Soft\\A", "v"));
    EXPECT_EQ(0u, registry.closeKey(handle));
}

// Random operations against the model of tests/testing/regmodel.h, with
// mounts over and another writer, then the disk read by a registry of its own.
TEST_F(RegistryTest, RandomOperationsAgainstModel) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        std::mt19937 random(seed);
        regmodel::DriverC driver(dir, std::to_string(seed));
        for (int step = 0; step < 250; ++step) {
            uint32_t operation = random(), argument = random();
            ASSERT_EQ("", driver.step(operation, argument)) << "seed " << seed << " step " << step;
        }
        EXPECT_EQ("", driver.compareWithDisk()) << "seed " << seed;
    }
}

// --- Processes ---

// Where a forked writer stops itself (null: nowhere).
const char* stopAt = nullptr;
void stopHere(const char* step) {
    if (stopAt && strcmp(step, stopAt) == 0) raise(SIGSTOP);
}
int pauses = 0;
pid_t holder = 0;
void countPause() {
    // The lock's holder goes at the third pause: the next attempt gets it.
    if (++pauses == 3 && holder > 0) {
        kill(holder, SIGKILL);
        waitpid(holder, nullptr, 0);
        holder = 0;
    }
}

const char kOriginal[] = "; settings\n[s]\nunknown line\nkeep=1\n\n; tail\n[t]\nx=1\n";

TEST_F(RegistryTest, WritersInParallelKeepEveryChange) {
    writeFile("f.ini", kOriginal);
    const int writers = 4, changes = 25;
    std::vector<pid_t> children;
    for (int w = 0; w < writers; ++w) {
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ConfRegLockC::setPauseForTesting([] { usleep(10000); });
            ConfRegistryIniC registry;
            int failed = registry.mountFile(u(path("f.ini")), u("HKLM"), u("Soft")) != 0;
            for (int i = 0; i < changes; ++i) {
                std::string name = "w" + std::to_string(w) + "_" + std::to_string(i);
                failed |=
                    registry.setString(kLM, u(i % 2 ? "Soft\\s" : "Soft\\t"), u(name), u("v")) != 0;
            }
            // A change whose commit timed out is still in memory: a later
            // commit carries it.
            uint32_t code = kRegUnsupported;
            for (int attempt = 0; attempt < 100 && code != 0; ++attempt)
                code = registry.commitFile(0);
            failed |= code != 0;
            _exit(failed);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::string content = readFile("f.ini");
    for (const char* line : {"; settings\n", "unknown line\n", "keep=1\n", "; tail\n", "x=1\n"}) {
        EXPECT_NE(std::string::npos, content.find(line)) << line;
    }
    ConfRegistryIniC reader;
    mount(reader);
    for (int change = 0; change < writers * changes; ++change) {
        std::string name =
            "w" + std::to_string(change / changes) + "_" + std::to_string(change % changes);
        EXPECT_EQ("v", get(reader, change % changes % 2 ? "Soft\\s" : "Soft\\t", name)) << name;
    }
}

TEST_F(RegistryTest, WriterKilledAtEveryStepLeavesAWholeFile) {
    ConfRegistryIniC::setCommitStepForTesting(stopHere);
    for (const char* step : {"locked", "merged", "moving", "moved"}) {
        writeFile("f.ini", kOriginal);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            stopAt = step;
            ConfRegistryIniC registry;
            registry.mountFile(u(path("f.ini")), u("HKLM"), u("Soft"));
            registry.setString(kLM, u("Soft\\s"), u("new"), u("1"));
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, WUNTRACED));
        ASSERT_TRUE(WIFSTOPPED(status)) << step;
        // Dying during the merge leaves a torn ".tmp".
        if (strcmp(step, "merged") == 0) {
            ASSERT_EQ(0, truncate(path("f.ini.tmp").c_str(), 20));
        }
        std::string content = readFile("f.ini");
        bool merged = content.find("new=1") != std::string::npos &&
                      content.find("unknown line\nkeep=1\n") != std::string::npos;
        EXPECT_TRUE(content == kOriginal || merged) << step << ": " << content;
        EXPECT_EQ(strcmp(step, "moved") == 0, merged) << step;
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        // The next writer needs no cleanup, and leaves no lock file.
        ConfRegistryIniC next;
        mount(next);
        EXPECT_EQ(0u, next.setString(kLM, u("Soft\\t"), u("after"), u("2")));
        EXPECT_EQ(0u, next.commitFile(0)) << step;
        EXPECT_EQ("2", get(next, "Soft\\t", "after"));
        EXPECT_EQ("1", get(next, "Soft\\s", "keep"));
        EXPECT_EQ("<missing>", readFile("f.ini.lck")) << step;
    }
    ConfRegistryIniC::setCommitStepForTesting(nullptr);
}

TEST_F(RegistryTest, CommitWaitsForAHeldLockAndGivesUpAfterTwentyAttempts) {
    ConfRegLockC::setPauseForTesting(countPause);
    for (bool holderEnds : {true, false}) {
        writeFile("f.ini", kOriginal);
        int ready[2];
        ASSERT_EQ(0, pipe(ready));
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ConfRegLockC lock(name("f.ini"));
            char locked = lock.tryLock() == 0 ? 'y' : 'n';
            if (write(ready[1], &locked, 1) != 1) _exit(1);
            for (;;) pause();
        }
        char locked = 0;
        ASSERT_EQ(1, read(ready[0], &locked, 1));
        close(ready[0]);
        close(ready[1]);
        ASSERT_EQ('y', locked);
        pauses = 0;
        holder = holderEnds ? child : 0;
        ConfRegistryIniC registry;
        mount(registry);
        registry.setAutoCommit(false);
        registry.setString(kLM, u("Soft\\s"), u("waited"), u("1"));
        registry.setAutoCommit(true);
        if (holderEnds) {
            EXPECT_EQ(3, pauses);
            EXPECT_EQ("1", get(registry, "Soft\\s", "waited"));
        } else {
            EXPECT_EQ(kRegUnsupported, registry.commitFile(0));
            EXPECT_EQ(40, pauses);  // 20 for setAutoCommit, 20 for this commit
            EXPECT_EQ(kOriginal, readFile("f.ini"));
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            // Another writer's commit is read in, and the change that could
            // not be written goes out with the next commit.
            ConfRegistryIniC other;
            mount(other);
            other.setString(kLM, u("Soft\\t"), u("other"), u("2"));
            registry.file(0)->refreshFile(true);
            EXPECT_EQ(0u, registry.commitFile(0));
            EXPECT_EQ("1", get(registry, "Soft\\s", "waited"));
            EXPECT_EQ("2", get(registry, "Soft\\t", "other"));
        }
    }
    ConfRegLockC::setPauseForTesting(nullptr);
}

}  // namespace
}  // namespace keel
