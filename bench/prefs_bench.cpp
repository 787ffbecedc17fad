// Loading an ini file of 10,000 keys in 500 sections: PrefsC::load beside
// inih (ini_parse with a handler that keeps nothing) and GLib's GKeyFile
// (g_key_file_load_from_file, which keeps every group, key and value as keel
// does). The file is made once in the temporary directory, with a comment
// and a blank line in every section as configuration files have them.
#include <benchmark/benchmark.h>

#include <glib.h>
#include <ini.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include <keel/keel.h>

#include "config/prefs.h"

namespace {

const int kSections = 500;
const int kKeysPerSection = 20;

const std::string& iniPath() {
    static std::string path = [] {
        const char* tmp = getenv("TMPDIR");
        std::string name = std::string(tmp && *tmp ? tmp : "/tmp") + "/keel-prefs-bench-" +
                           std::to_string(getpid()) + ".ini";
        std::string text = "# generated for the load benchmark\n";
        for (int s = 0; s < kSections; ++s) {
            text += "\n[Section" + std::to_string(s) + "]\n# settings of part " +
                    std::to_string(s) + "\n";
            for (int k = 0; k < kKeysPerSection; ++k) {
                text += "key" + std::to_string(k) + "_" + std::to_string(s % 7) +
                        " = value number " + std::to_string(s * kKeysPerSection + k) +
                        (k % 3 == 0 ? " with some more words" : "") + "\n";
            }
        }
        FILE* file = fopen(name.c_str(), "wb");
        if (!file || fwrite(text.data(), 1, text.size(), file) != text.size()) abort();
        fclose(file);
        atexit([] { ::remove(iniPath().c_str()); });
        return name;
    }();
    return path;
}

void BM_LoadKeel(benchmark::State& state) {
    const std::string& path = iniPath();
    for (auto _ : state) {
        keel::PrefsC prefs;
        if (!prefs.load(path.c_str(), false, false)) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(prefs.findSection("Section499", false));
    }
}

int countingHandler(void* user, const char*, const char*, const char*) {
    ++*static_cast<long*>(user);
    return 1;
}

void BM_LoadInih(benchmark::State& state) {
    const std::string& path = iniPath();
    for (auto _ : state) {
        long count = 0;
        if (ini_parse(path.c_str(), countingHandler, &count) != 0)
            state.SkipWithError("ini_parse failed");
        benchmark::DoNotOptimize(count);
    }
}

void BM_LoadGKeyFile(benchmark::State& state) {
    const std::string& path = iniPath();
    for (auto _ : state) {
        GKeyFile* file = g_key_file_new();
        if (!g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_NONE, nullptr))
            state.SkipWithError("g_key_file_load_from_file failed");
        benchmark::DoNotOptimize(g_key_file_has_group(file, "Section499"));
        g_key_file_free(file);
    }
}

}  // namespace

BENCHMARK(BM_LoadKeel)
    ->Name("ini_load/keel/10000_keys_500_sections")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadInih)
    ->Name("ini_load/inih/10000_keys_500_sections")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadGKeyFile)
    ->Name("ini_load/gkeyfile/10000_keys_500_sections")
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
