// Registry reads on several threads at once, and what each thread keeps of
// its reads (the table of resolved paths) against changes made between them.
// Under ThreadSanitizer these show that reads with no change between them
// write nothing that another thread reads.
#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "config/confregini.h"
#include "testing/regmodel.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

using regmodel::getText;
using regmodel::u;
using regmodel::ValuesT;

const uint32_t kLM = ConfRegistryI::kLocalMachine;
const int kSections = 40, kThreads = 4;

// Two sections beyond ASCII, which a read finds as the opening does
// (without regard to case) but without entering a key.
std::string section(int s) {
    return s == 1 ? "\xC3\x84" : s == 2 ? "\xC3\x84\\x" : "S" + std::to_string(s);
}

// A path or name with its ASCII letters in one case.
std::string spell(std::string path, bool upper) {
    for (char& c : path)
        if (isascii(c)) c = static_cast<char>(upper ? toupper(c) : tolower(c));
    return path;
}

class RegistryThreadTest : public testkit::TempDirTest {
protected:
    // Sections of five keys, the first of 30 (more than a chain holds
    // before the store indexes it), as the file and as what the registry
    // must show.
    ValuesT writeIni(const std::string& tag) {
        ValuesT values;
        std::string text;
        for (int s = 0; s < kSections; ++s) {
            text += "[" + section(s) + "]\n";
            for (int k = 0; k < (s == 0 ? 30 : 5); ++k) {
                std::string key = "k" + std::to_string(k);
                values[section(s)][key] = tag + section(s) + key;
                text += key + "=" + values[section(s)][key] + "\n";
            }
        }
        writeFile(tag + ".ini", text);
        return values;
    }
};

// Four threads read in rounds, and between rounds the test changes the
// registry while they wait, so that each thread meets the change with what
// it kept of the round before: none, a value set, a value deleted, a
// section deleted and made again, the file mounted over by another, and a
// registry made anew at the address of the last one. No read enters a key.
TEST_F(RegistryThreadTest, ThreadsReadWhileChangesComeBetweenRounds) {
    ValuesT a = writeIni("a"), b = writeIni("b");
    const ValuesT* model = &a;  // what the registry must show
    alignas(ConfRegistryIniC) unsigned char storage[sizeof(ConfRegistryIniC)];
    ConfRegistryIniC* registry = new (storage) ConfRegistryIniC();
    auto mount = [&](const char* file, const ValuesT* values) {
        EXPECT_EQ(0u, registry->mountFile(u(path(file)), u("HKLM"), u("Soft")));
        model = values;
    };
    // A value of "a.ini" set, or deleted where null.
    auto set = [&](const std::string& s, const std::string& k, const char* v) {
        StringC key = u("Soft\\" + s);
        EXPECT_EQ(0u, v ? registry->setString(kLM, key, u(k), u(v))
                        : registry->deleteValue(kLM, key, u(k)));
        if (v) a[s][k] = v;
        if (!v) a[s].erase(k);
    };
    mount("a.ini", &a);
    const std::vector<std::function<void()>> changes = {
        [] {},
        [&] { set("S3", "k1", "changed"); },
        [&] { set("S0", "k2", nullptr); },
        [&] {
            EXPECT_EQ(0u, registry->deleteKey(kLM, u("Soft\\S5"), true));
            a.erase("S5");
        },
        [&] { set("S5", "k0", "back"); },
        [&] { mount("b.ini", &b); },
        [&] {
            registry->~ConfRegistryIniC();
            registry = new (storage) ConfRegistryIniC();
            mount("a.ini", &a);
        },
    };
    pthread_barrier_t barrier;  // the test and the readers meet here
    pthread_barrier_init(&barrier, nullptr, kThreads + 1);
    std::vector<std::string> failures(kThreads);
    // One pass of a thread: every key of every section and one key and one
    // section too many, each path in one case and each name in the other,
    // from a section of its own on; then a path that no file holds, as the
    // module catalog's lookup reads it.
    auto readAll = [&](int thread, bool upper) -> std::string {
        for (int n = 0; n <= kSections; ++n) {
            std::string name = section((n + thread) % (kSections + 1));
            auto at = model->find(name);
            for (int k = 0; k <= (name == "S0" ? 30 : 5); ++k) {
                std::string key = "k" + std::to_string(k);
                std::string want =
                    at != model->end() && at->second.count(key) ? at->second.at(key) : "<105>";
                std::string got =
                    getText(*registry, kLM, spell("Soft\\" + name, upper), spell(key, !upper));
                if (got != want) return name + " " + key + ": " + got;
            }
        }
        return getText(*registry, kLM, "SOFTWARE\\Veltrane Corp\\Veltrane", "InstallDir") == "<105>"
                   ? ""
                   : "InstallDir";
    };
    std::vector<std::thread> readers;
    for (int i = 0; i < kThreads; ++i) {
        readers.emplace_back([&, i] {
            for (size_t round = 0; round < changes.size(); ++round) {
                pthread_barrier_wait(&barrier);
                for (int pass = 0; pass < 2 && failures[i].empty(); ++pass)
                    failures[i] = readAll(i, (i + pass) % 2);
                pthread_barrier_wait(&barrier);
            }
        });
    }
    for (size_t round = 0; round < changes.size(); ++round) {
        changes[round]();
        uint32_t keys = registry->openKeyCount();
        pthread_barrier_wait(&barrier);
        pthread_barrier_wait(&barrier);
        EXPECT_EQ(std::vector<std::string>(kThreads), failures) << "round " << round;
        EXPECT_EQ(keys, registry->openKeyCount()) << "round " << round;
    }
    for (std::thread& thread : readers) thread.join();
    pthread_barrier_destroy(&barrier);
    registry->~ConfRegistryIniC();
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
            ASSERT_EQ(std::to_string(s),
                      getText(registry, kLM, "Soft\\P\\" + std::to_string(s), "v"))
                << s;
        }
    }
    EXPECT_EQ("<105>", getText(registry, kLM, "Soft\\P\\1500", "v"));
}

}  // namespace
}  // namespace keel
