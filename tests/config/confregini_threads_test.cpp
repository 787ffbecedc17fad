// Registry reads on several threads at once, and what each thread keeps of
// its reads (the table of resolved paths) against changes made between them.
// Under ThreadSanitizer these show that reads with no change between them
// write nothing that another thread reads.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "config/confregini.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

const uint32_t kLM = ConfRegistryI::kLocalMachine;
const int kSections = 40;
const int kKeys = 30;  // more than a chain holds before the store indexes it

StringC u(const std::string& text) { return StringC(text.c_str(), "utf8"); }

std::string section(int s) { return "S" + std::to_string(s); }
std::string key(int k) { return "k" + std::to_string(k); }

std::string iniText(const std::string& tag) {
    std::string text;
    for (int s = 0; s < kSections; ++s) {
        text += "[" + section(s) + "]\n";
        // Short chains and one long one.
        int keys = s == 0 ? kKeys : 5;
        for (int k = 0; k < keys; ++k) text += key(k) + "=" + tag + section(s) + key(k) + "\n";
    }
    return text;
}

std::string read(ConfRegistryIniC& registry, const std::string& path, const std::string& name) {
    StringC value;
    uint32_t code = registry.getString(kLM, u(path), u(name), &value);
    return code == 0 ? str(value) : "<" + std::to_string(code & 0xFF) + ">";
}

// Threads that read in rounds; between rounds the test changes the registry
// while they wait, so that each thread meets the change with what it kept of
// the round before.
class ReadersC {
public:
    ReadersC(int count, ConfRegistryIniC** registry) : registry_(registry) {
        for (int i = 0; i < count; ++i) threads_.emplace_back([this, i] { run(i); });
    }
    ~ReadersC() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
            ++round_;
        }
        wake_.notify_all();
        for (std::thread& thread : threads_) thread.join();
    }

    // One round of reads on every thread, each expecting `expected(s, k)`;
    // answers the first mismatch, or empty.
    std::string round(std::string (*expected)(int, int)) {
        std::unique_lock<std::mutex> lock(mutex_);
        expected_ = expected;
        failure_.clear();
        done_ = 0;
        ++round_;
        wake_.notify_all();
        finished_.wait(lock, [this] { return done_ == threads_.size(); });
        return failure_;
    }

private:
    void run(int index) {
        uint64_t seen = 0;
        for (;;) {
            std::string (*expected)(int, int);
            {
                std::unique_lock<std::mutex> lock(mutex_);
                wake_.wait(lock, [&] { return round_ != seen; });
                seen = round_;
                if (stop_) return;
                expected = expected_;
            }
            std::string failure;
            ConfRegistryIniC& registry = **registry_;
            for (int pass = 0; pass < 3 && failure.empty(); ++pass) {
                for (int s = 0; s < kSections && failure.empty(); ++s) {
                    int keys = s == 0 ? kKeys : 5;
                    int k = (s * 7 + index + pass) % keys;
                    std::string path = "Soft\\" + section((s + index) % kSections);
                    std::string want = expected((s + index) % kSections, k);
                    std::string got = read(registry, path, key(k));
                    if (got != want) failure = path + " " + key(k) + ": " + got + " != " + want;
                }
            }
            std::lock_guard<std::mutex> lock(mutex_);
            if (failure_.empty()) failure_ = failure;
            if (++done_ == threads_.size()) finished_.notify_one();
        }
    }

    ConfRegistryIniC** registry_;
    std::vector<std::thread> threads_;
    std::mutex mutex_;
    std::condition_variable wake_;
    std::condition_variable finished_;
    uint64_t round_ = 0;
    bool stop_ = false;
    std::string (*expected_)(int, int) = nullptr;
    std::string failure_;
    size_t done_ = 0;
};

std::string firstFile(int s, int k) {
    return s == 0 || k < 5 ? "a" + section(s) + key(k) : "<105>";
}

class RegistryThreadTest : public testkit::TempDirTest {};

// Reads on four threads at once, then changes between rounds: a value set,
// a value deleted, a section deleted and made again, the file mounted over
// by another, and a registry made anew at the address of the last one.
TEST_F(RegistryThreadTest, ThreadsReadWhileChangesComeBetweenRounds) {
    writeFile("a.ini", iniText("a"));
    writeFile("b.ini", iniText("b"));
    alignas(ConfRegistryIniC) unsigned char storage[sizeof(ConfRegistryIniC)];
    ConfRegistryIniC* registry = new (storage) ConfRegistryIniC();
    ASSERT_EQ(0u, registry->mountFile(u(path("a.ini")), u("HKLM"), u("Soft")));
    ReadersC readers(4, &registry);
    EXPECT_EQ("", readers.round(firstFile));
    EXPECT_EQ("", readers.round(firstFile));

    ASSERT_EQ(0u, registry->setString(kLM, u("Soft\\S3"), u("k1"), u("changed")));
    ASSERT_EQ(0u, registry->deleteValue(kLM, u("Soft\\S0"), u("k2")));
    EXPECT_EQ("", readers.round([](int s, int k) {
        if (s == 3 && k == 1) return std::string("changed");
        if (s == 0 && k == 2) return std::string("<105>");
        return firstFile(s, k);
    }));

    ASSERT_EQ(0u, registry->deleteKey(kLM, u("Soft\\S5"), true));
    EXPECT_EQ("", readers.round([](int s, int k) {
        if (s == 3 && k == 1) return std::string("changed");
        if ((s == 0 && k == 2) || s == 5) return std::string("<105>");
        return firstFile(s, k);
    }));
    ASSERT_EQ(0u, registry->setString(kLM, u("Soft\\S5"), u("k0"), u("back")));
    EXPECT_EQ("", readers.round([](int s, int k) {
        if (s == 3 && k == 1) return std::string("changed");
        if (s == 5) return std::string(k == 0 ? "back" : "<105>");
        if (s == 0 && k == 2) return std::string("<105>");
        return firstFile(s, k);
    }));

    // The other file at the same point retires the first.
    ASSERT_EQ(0u, registry->mountFile(u(path("b.ini")), u("HKLM"), u("Soft")));
    auto secondFile = [](int s, int k) {
        return s == 0 || k < 5 ? "b" + section(s) + key(k) : std::string("<105>");
    };
    EXPECT_EQ("", readers.round(secondFile));

    // A new registry where the last one stood, with the first file mounted
    // again: nothing a thread kept of the old one may answer for it.
    registry->~ConfRegistryIniC();
    registry = new (storage) ConfRegistryIniC();
    ASSERT_EQ(0u, registry->mountFile(u(path("a.ini")), u("HKLM"), u("Soft")));
    EXPECT_EQ("", readers.round([](int s, int k) {
        if (s == 3 && k == 1) return std::string("changed");
        if (s == 5) return std::string(k == 0 ? "back" : "<105>");
        if (s == 0 && k == 2) return std::string("<105>");
        return firstFile(s, k);
    }));
    // Reads of a path that no file holds, as the first report of a thread
    // makes them for the module catalog.
    std::vector<std::thread> missing;
    for (int i = 0; i < 3; ++i) {
        missing.emplace_back([registry] {
            for (int n = 0; n < 50; ++n) {
                EXPECT_EQ("<105>",
                          read(*registry, "SOFTWARE\\Veltrane Corp\\Veltrane", "InstallDir"));
            }
        });
    }
    for (std::thread& thread : missing) thread.join();
    // The readers wait for a round that never comes; they end with the test
    // and read nothing more.
    registry->~ConfRegistryIniC();
}

// A path beyond ASCII is found as the opening finds it (compared without
// regard to case), but no key is entered for the read: threads may read it at
// once, and the open keys stay as they were.
TEST_F(RegistryThreadTest, ThreadsReadPathsBeyondAsciiWithoutEnteringKeys) {
    writeFile("f.ini", "[\xC3\x84]\nv=2\n[\xC3\x84\\x]\nw=3\n");
    ConfRegistryIniC registry;
    ASSERT_EQ(0u, registry.mountFile(u(path("f.ini")), u("HKLM"), u("Soft")));
    uint32_t keys = registry.openKeyCount();
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&registry] {
            for (int n = 0; n < 50; ++n) {
                EXPECT_EQ("2", read(registry, "soft\\\xC3\x84", "v"));
                EXPECT_EQ("3", read(registry, "Soft\\\xC3\x84\\X", "w"));
                EXPECT_EQ("<105>", read(registry, "Soft\\\xC3\x84\\y", "w"));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(keys, registry.openKeyCount());
}

// More distinct paths than a thread keeps: the table starts afresh and every
// read still answers from the store.
TEST_F(RegistryThreadTest, MorePathsThanAThreadKeeps) {
    std::string text;
    for (int s = 0; s < 1500; ++s)
        text += "[P\\" + std::to_string(s) + "]\nv=" + std::to_string(s) + "\n";
    writeFile("many.ini", text);
    ConfRegistryIniC registry;
    ASSERT_EQ(0u, registry.mountFile(u(path("many.ini")), u("HKLM"), u("Soft")));
    for (int pass = 0; pass < 2; ++pass) {
        for (int s = 0; s < 1500; s += 1 + pass) {
            ASSERT_EQ(std::to_string(s), read(registry, "Soft\\P\\" + std::to_string(s), "v")) << s;
        }
    }
    EXPECT_EQ("<105>", read(registry, "Soft\\P\\1500", "v"));
}

}  // namespace
}  // namespace keel
