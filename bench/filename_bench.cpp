// File names: parsing a path text and collapsing its "." and ".." lexically,
// beside std::filesystem::path::lexically_normal. Both sides start from the
// same bytes and end with the collapsed text in their own string type.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <string>
#include <vector>

#include <keel/keel.h>

#include <keel/filename.h>

namespace {

// Paths as programs hand them over: absolute and relative, most already in
// normal form, some with "./", "../", doubled and trailing separators.
const std::vector<std::string>& typicalPaths() {
    static const std::vector<std::string> paths = {
        "/usr/lib/x86_64-linux-gnu/libkeel.so.1",
        "/home/user/projects/keel/build/native/../../src/text/string.cpp",
        "src/files/./filename.cpp",
        "../include/keel/string.h",
        "/var/log/syslog",
        "/tmp//build///objects/./files/../text/format.o/",
        "docs/performance.md",
        "/etc/keel/../keel/trace.ini",
    };
    return paths;
}

// Deep trees: 40 components of 8 to 12 characters, one ".." in ten.
const std::vector<std::string>& longPaths() {
    static const std::vector<std::string> paths = [] {
        std::vector<std::string> made;
        for (int p = 0; p < 4; ++p) {
            std::string path = p % 2 ? "" : "/";
            for (int c = 0; c < 40; ++c) {
                if (c) path += '/';
                path += c % 10 == 7 ? std::string("..") : "component" + std::to_string(c * 7 + p);
            }
            made.push_back(path);
        }
        return made;
    }();
    return paths;
}

void collapseKeel(benchmark::State& state, const std::vector<std::string>& paths) {
    for (auto _ : state) {
        for (const std::string& text : paths) {
            keel::FileNameC name(keel::StringC(text.data(), static_cast<uint32_t>(text.size()), "utf8"));
            keel::StringC collapsed = name.getCollapsedText();
            benchmark::DoNotOptimize(collapsed);
        }
    }
    state.SetItemsProcessed(state.iterations() * paths.size());
}

void collapseStd(benchmark::State& state, const std::vector<std::string>& paths) {
    for (auto _ : state) {
        for (const std::string& text : paths) {
            std::filesystem::path name(text);
            std::filesystem::path collapsed = name.lexically_normal();
            benchmark::DoNotOptimize(collapsed);
        }
    }
    state.SetItemsProcessed(state.iterations() * paths.size());
}

BENCHMARK_CAPTURE(collapseKeel, typical, typicalPaths())->Name("parse_collapse/keel/typical");
BENCHMARK_CAPTURE(collapseStd, typical, typicalPaths())->Name("parse_collapse/std_filesystem/typical");
BENCHMARK_CAPTURE(collapseKeel, long, longPaths())->Name("parse_collapse/keel/long");
BENCHMARK_CAPTURE(collapseStd, long, longPaths())->Name("parse_collapse/std_filesystem/long");

}  // namespace

BENCHMARK_MAIN();
