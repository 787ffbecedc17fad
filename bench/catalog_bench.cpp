// Message catalogs beside the floor and glibc's catgets.
//
// catalog_lookup: the text of a random code of a 10,000-message catalog
// (10 sets of 1,000). keel reads the index from disk at every probe and
// caches nothing, so the floor is the same binary search written bare: one
// pread of 12 bytes per probe and one for the text into a new buffer.
// catgets looks the same messages up in a catalog compiled by gencat, which
// it maps into memory at catopen: no system call per lookup, shown for
// reference.
// catalog_open: opening and closing a 10,000-message catalog against a
// 10-message one (only the header is read, so the sizes cost the same).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <nl_types.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "../tools/catalog/catalogtool.h"
#include "errors/catalog.h"

namespace {

const int kSets = 10;
const int kPerSet = 1000;

struct FilesT {
    std::string dir;
    std::string large;            // 10,000 messages
    std::string small;            // 10 messages
    std::string gencat;           // the same 10,000 for catgets
    std::vector<uint32_t> codes;  // random existing codes
};

std::string text(int set, int number) {
    return "Message " + std::to_string(set) + "/" + std::to_string(number) +
           ": the file could not be opened";
}

void writeFile(const std::string& path, const std::string& bytes) {
    FILE* out = fopen(path.c_str(), "wb");
    if (!out) abort();
    fwrite(bytes.data(), 1, bytes.size(), out);
    fclose(out);
}

std::string compile(const std::string& source) {
    std::string binary;
    std::vector<keel::catalogtool::DiagnosticT> diagnostics;
    if (!keel::catalogtool::compileCatalog(source, binary, diagnostics)) abort();
    return binary;
}

const FilesT& files() {
    static FilesT made = [] {
        FilesT f;
        char pattern[] = "/tmp/keel-catalog-bench-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        f.dir = pattern;
        std::string source, gencatSource, smallSource;
        for (int set = 1; set <= kSets; ++set) {
            gencatSource += "$set " + std::to_string(set) + "\n";
            for (int number = 1; number <= kPerSet; ++number) {
                source += std::to_string(set) + " " + std::to_string(number) + " - " +
                          text(set, number) + "\n";
                gencatSource += std::to_string(number) + " " + text(set, number) + "\n";
                if (set == 1 && number <= 10)
                    smallSource += std::to_string(set) + " " + std::to_string(number) + " - " +
                                   text(set, number) + "\n";
            }
        }
        f.large = f.dir + "/large.cat";
        f.small = f.dir + "/small.cat";
        f.gencat = f.dir + "/large.gencat";
        writeFile(f.large, compile(source));
        writeFile(f.small, compile(smallSource));
        writeFile(f.dir + "/large.msg", gencatSource);
        std::string command = "gencat '" + f.gencat + "' '" + f.dir + "/large.msg'";
        if (system(command.c_str()) != 0) abort();
        std::mt19937 random(5);
        for (int i = 0; i < 4096; ++i) {
            uint32_t set = 1 + random() % kSets, number = 1 + random() % kPerSet;
            f.codes.push_back(0xE0000000u | (set << 16) | number);
        }
        return f;
    }();
    return made;
}

void lookupKeel(benchmark::State& state) {
    const FilesT& f = files();
    keel::ErrCatalogC catalog(keel::StringC(f.large.c_str(), "utf8"));
    size_t i = 0;
    for (auto _ : state) {
        char* found = catalog.lookUp(f.codes[i++ & 4095]);
        benchmark::DoNotOptimize(found);
        delete[] found;
    }
}
BENCHMARK(lookupKeel)->Name("catalog_lookup/keel/10000");

uint32_t big(const unsigned char* p, int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) value = (value << 8) | p[i];
    return value;
}

// The floor: the same search, bare.
char* floorLookup(int fd, uint32_t count, uint32_t code) {
    uint32_t set = (code >> 16) & 0xFFF, number = code & 0xFFFF;
    int64_t low = 0, high = int64_t(count) - 1;
    unsigned char record[12];
    while (low <= high) {
        int64_t middle = (low + high) / 2;
        if (pread(fd, record, 12, 12 * (middle + 1)) != 12) return nullptr;
        uint32_t s = big(record, 2), n = big(record + 4, 4);
        if (set < s || (set == s && number < n)) {
            high = middle - 1;
        } else if (set > s || number > n) {
            low = middle + 1;
        } else {
            uint32_t length = big(record + 2, 2);
            char* found = new char[length + 1];
            if (pread(fd, found, length, big(record + 8, 4)) != ssize_t(length)) {
                delete[] found;
                return nullptr;
            }
            found[length] = 0;
            return found;
        }
    }
    return nullptr;
}

void lookupFloor(benchmark::State& state) {
    const FilesT& f = files();
    int fd = open(f.large.c_str(), O_RDONLY);
    unsigned char header[12];
    if (fd < 0 || pread(fd, header, 12, 0) != 12) abort();
    uint32_t count = big(header + 8, 4);
    size_t i = 0;
    for (auto _ : state) {
        char* found = floorLookup(fd, count, files().codes[i++ & 4095]);
        benchmark::DoNotOptimize(found);
        delete[] found;
    }
    close(fd);
}
BENCHMARK(lookupFloor)->Name("catalog_lookup/pread_floor/10000");

void lookupCatgets(benchmark::State& state) {
    const FilesT& f = files();
    nl_catd catalog = catopen(f.gencat.c_str(), NL_CAT_LOCALE);
    if (catalog == reinterpret_cast<nl_catd>(-1)) {
        state.SkipWithError("catopen failed");
        return;
    }
    size_t i = 0;
    for (auto _ : state) {
        uint32_t code = f.codes[i++ & 4095];
        const char* found = catgets(catalog, (code >> 16) & 0xFFF, code & 0xFFFF, nullptr);
        benchmark::DoNotOptimize(found);
    }
    catclose(catalog);
}
BENCHMARK(lookupCatgets)->Name("catalog_lookup/catgets/10000");

void openLarge(benchmark::State& state) {
    keel::StringC name(files().large.c_str(), "utf8");
    for (auto _ : state) {
        keel::ErrCatalogC catalog(name);
        benchmark::DoNotOptimize(catalog.recordCount());
    }
}
BENCHMARK(openLarge)->Name("catalog_open/keel/10000");

void openSmall(benchmark::State& state) {
    keel::StringC name(files().small.c_str(), "utf8");
    for (auto _ : state) {
        keel::ErrCatalogC catalog(name);
        benchmark::DoNotOptimize(catalog.recordCount());
    }
}
BENCHMARK(openSmall)->Name("catalog_open/keel_10_messages/10000");

}  // namespace

BENCHMARK_MAIN();
