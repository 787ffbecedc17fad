// The registry over ini files beside GLib's GKeyFile and the floor of a
// durable file replacement. The file: 10,000 keys in 500 sections.
//
// registry_read: one value by key path, the sections and keys chosen at
// random among all, through ConfRegistryI::getString (open the key, read,
// close) against g_key_file_get_string on a GKeyFile loaded from the same
// file. Both hand out a new copy of the text.
// registry_commit: one changed key of the file written through the lock and
// commit protocol (lock, merge of the change into the file's content under
// ".tmp", flush of its data, move over the file, flush of the directory,
// read back, unlock), against the floor: the file's bytes written once to a
// temporary name, flushed and renamed. registry_commit_noflush: both without
// their flushes, so that the cost of the flushes shows. Wall time: the
// flushes wait for the disk.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "config/confregini.h"

namespace {

const int kSections = 500;
const int kKeysPerSection = 20;
const uint32_t kLM = keel::ConfRegistryI::kLocalMachine;

std::string sectionName(int section) { return "Section" + std::to_string(section); }
std::string keyName(int key) { return "key" + std::to_string(key); }

struct FilesT {
    std::string dir;
    std::string ini;
    std::string bytes;
};

const FilesT& files() {
    static FilesT made = [] {
        FilesT files;
        char pattern[] = "/tmp/keel-regbench-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        files.dir = pattern;
        files.ini = files.dir + "/big.ini";
        files.bytes = "; 10,000 keys in 500 sections\n";
        for (int s = 0; s < kSections; ++s) {
            files.bytes += "\n[" + sectionName(s) + "]\n";
            for (int k = 0; k < kKeysPerSection; ++k) {
                files.bytes += keyName(k) + "=value " + std::to_string(s * kKeysPerSection + k) +
                               " of the file\n";
            }
        }
        FILE* out = fopen(files.ini.c_str(), "wb");
        if (!out || fwrite(files.bytes.data(), 1, files.bytes.size(), out) != files.bytes.size())
            abort();
        fclose(out);
        return files;
    }();
    return made;
}

keel::StringC text(const std::string& value) { return keel::StringC(value.c_str(), "utf8"); }

void BM_ReadKeel(benchmark::State& state) {
    keel::ConfRegistryIniC registry;
    registry.mountFile(text(files().ini), text("HKLM"), text("Software\\Bench"));
    std::mt19937 random(1);
    std::vector<std::pair<keel::StringC, keel::StringC>> paths;
    for (int i = 0; i < 1024; ++i) {
        paths.emplace_back(text("Software\\Bench\\" + sectionName(random() % kSections)),
                           text(keyName(random() % kKeysPerSection)));
    }
    size_t i = 0;
    for (auto _ : state) {
        const auto& path = paths[i++ & 1023];
        keel::StringC value;
        if (registry.getString(kLM, path.first, path.second, &value) != 0)
            state.SkipWithError("not found");
        benchmark::DoNotOptimize(value);
    }
}

void BM_ReadGlib(benchmark::State& state) {
    GKeyFile* file = g_key_file_new();
    if (!g_key_file_load_from_file(file, files().ini.c_str(), G_KEY_FILE_NONE, nullptr)) abort();
    std::mt19937 random(1);
    std::vector<std::pair<std::string, std::string>> paths;
    for (int i = 0; i < 1024; ++i) {
        paths.emplace_back(sectionName(random() % kSections), keyName(random() % kKeysPerSection));
    }
    size_t i = 0;
    for (auto _ : state) {
        const auto& path = paths[i++ & 1023];
        gchar* value =
            g_key_file_get_string(file, path.first.c_str(), path.second.c_str(), nullptr);
        if (!value) state.SkipWithError("not found");
        benchmark::DoNotOptimize(value);
        g_free(value);
    }
    g_key_file_free(file);
}

void commitKeel(benchmark::State& state, bool flush) {
    // A file of its own, so that the floor's renames do not touch it.
    std::string ini = files().dir + (flush ? "/commit.ini" : "/commit-noflush.ini");
    FILE* out = fopen(ini.c_str(), "wb");
    if (!out || fwrite(files().bytes.data(), 1, files().bytes.size(), out) != files().bytes.size())
        abort();
    fclose(out);
    keel::ConfRegistryIniC registry;
    registry.setFlushCommits(flush);
    registry.mountFile(text(ini), text("HKLM"), text("Software\\Bench"));
    const keel::StringC section = text("Software\\Bench\\" + sectionName(kSections / 2));
    const keel::StringC key = text(keyName(kKeysPerSection / 2));
    const keel::StringC values[2] = {text("first"), text("second")};
    int i = 0;
    for (auto _ : state) {
        registry.setString(kLM, section, key, values[i++ & 1]);
    }
    if (registry.commitFile(0) != 0) state.SkipWithError("commit failed");
}

void commitFloor(benchmark::State& state, bool flush) {
    std::string ini = files().dir + "/floor.ini";
    std::string temporary = ini + ".tmp";
    const std::string& bytes = files().bytes;
    for (auto _ : state) {
        int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        if (fd < 0 || write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            abort();
        if (flush && fdatasync(fd) != 0) abort();
        close(fd);
        if (rename(temporary.c_str(), ini.c_str()) != 0) abort();
    }
}

void BM_CommitKeel(benchmark::State& state) { commitKeel(state, true); }
void BM_CommitFloor(benchmark::State& state) { commitFloor(state, true); }
void BM_CommitKeelNoFlush(benchmark::State& state) { commitKeel(state, false); }
void BM_CommitFloorNoFlush(benchmark::State& state) { commitFloor(state, false); }

}  // namespace

BENCHMARK(BM_ReadKeel)->Name("registry_read/keel/10000");
BENCHMARK(BM_ReadGlib)->Name("registry_read/glib/10000");
BENCHMARK(BM_CommitKeel)->Name("registry_commit/keel/10000")->UseRealTime();
BENCHMARK(BM_CommitFloor)->Name("registry_commit/floor/10000")->UseRealTime();
BENCHMARK(BM_CommitKeelNoFlush)->Name("registry_commit_noflush/keel/10000")->UseRealTime();
BENCHMARK(BM_CommitFloorNoFlush)->Name("registry_commit_noflush/floor/10000")->UseRealTime();

BENCHMARK_MAIN();
