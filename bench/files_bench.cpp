// Trees and copies: a recursive lister over a tree of 100,000 entries beside
// nftw and std::filesystem::recursive_directory_iterator; copying a tree of
// 10,000 small files and one file of 256 MiB beside the floor the copy's
// fixed 4,096-byte block allows (a plain read/write loop of that size) and,
// for reference, std::filesystem::copy. The trees and the big file are made
// once per process in the temporary directory and removed at its end.
#include <benchmark/benchmark.h>

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <keel/filelister.h>
#include <keel/fileserv.h>
#include <keel/filename.h>
#include <keel/keel.h>

#include "files/fileserv.h"

namespace {

namespace fs = std::filesystem;
using keel::FileNameC;
using keel::StringC;

const int kWalkDirectories = 100;
const int kWalkFilesEach = 999;  // 100 directories + 99,900 files
const int kCopyDirectories = 100;
const int kCopyFilesEach = 100;  // 10,000 files of 1 KiB
const int64_t kBigFileSize = int64_t(256) << 20;

std::string scratch() {
    const char* tmp = getenv("TMPDIR");
    return std::string(tmp && *tmp ? tmp : "/tmp") + "/keel_files_bench." +
           std::to_string(getpid());
}

void writeFile(const std::string& path, const char* data, size_t size) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) abort();
    while (size) {
        ssize_t n = write(fd, data, size);
        if (n <= 0) abort();
        data += n;
        size -= static_cast<size_t>(n);
    }
    close(fd);
}

// The inputs, made on first use and removed when the process ends.
struct TreesT {
    std::string root = scratch();
    std::string walkTree = root + "/walk";
    std::string copyTree = root + "/small";
    std::string bigFile = root + "/big.bin";
    std::string target = root + "/target";

    TreesT() {
        fs::create_directories(walkTree);
        fs::create_directories(copyTree);
        for (int d = 0; d < kWalkDirectories; ++d) {
            std::string dir = walkTree + "/d" + std::to_string(d);
            mkdir(dir.c_str(), 0755);
            for (int f = 0; f < kWalkFilesEach; ++f)
                writeFile(dir + "/f" + std::to_string(f), "", 0);
        }
        std::string kib(1024, 'k');
        for (int d = 0; d < kCopyDirectories; ++d) {
            std::string dir = copyTree + "/d" + std::to_string(d);
            mkdir(dir.c_str(), 0755);
            for (int f = 0; f < kCopyFilesEach; ++f)
                writeFile(dir + "/f" + std::to_string(f) + ".txt", kib.data(), kib.size());
        }
        std::vector<char> block(1 << 20);
        for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 131 + 7);
        int fd = open(bigFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        for (int64_t done = 0; done < kBigFileSize; done += int64_t(block.size()))
            if (write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size()))
                abort();
        close(fd);
    }
    ~TreesT() {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
};

TreesT& trees() {
    static TreesT made;
    return made;
}

FileNameC nameOf(const std::string& path) { return FileNameC(StringC(path.c_str(), "utf8")); }

// --- walking ---------------------------------------------------------------

// With each entry's status, as nftw gives it.
void BM_walk_keel_next(benchmark::State& state) {
    FileNameC root = nameOf(trees().walkTree);
    keel::FileServiceI* files = keel::FlnFileServiceC::instance();
    for (auto _ : state) {
        keel::FileListerI* lister = files->createLister(&root, 1);
        FileNameC* name;
        keel::FileInfoC* info;
        int64_t count = 0;
        while (lister->next(&name, &info) == 0) {
            count += name != nullptr;
            delete name;
            delete info;
        }
        if (count != kWalkDirectories * (kWalkFilesEach + 1)) state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * kWalkDirectories * (kWalkFilesEach + 1));
}
BENCHMARK(BM_walk_keel_next)->Unit(benchmark::kMillisecond);

// Names and kinds only, as recursive_directory_iterator gives them.
void BM_walk_keel_nextName(benchmark::State& state) {
    FileNameC root = nameOf(trees().walkTree);
    keel::FileServiceI* files = keel::FlnFileServiceC::instance();
    for (auto _ : state) {
        keel::FileListerI* lister = files->createLister(&root, 1);
        FileNameC* name;
        bool isDirectory;
        int64_t count = 0;
        while (lister->nextName(&name, &isDirectory) == 0) {
            count += name != nullptr;
            delete name;
        }
        if (count != kWalkDirectories * (kWalkFilesEach + 1)) state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * kWalkDirectories * (kWalkFilesEach + 1));
}
BENCHMARK(BM_walk_keel_nextName)->Unit(benchmark::kMillisecond);

int64_t nftwCount;
int countEntry(const char*, const struct stat*, int, struct FTW*) {
    ++nftwCount;
    return 0;
}

void BM_walk_nftw(benchmark::State& state) {
    const std::string& root = trees().walkTree;
    for (auto _ : state) {
        nftwCount = 0;
        nftw(root.c_str(), countEntry, 64, FTW_PHYS);
        // nftw reports the start directory as well.
        if (nftwCount != kWalkDirectories * (kWalkFilesEach + 1) + 1)
            state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * kWalkDirectories * (kWalkFilesEach + 1));
}
BENCHMARK(BM_walk_nftw)->Unit(benchmark::kMillisecond);

void BM_walk_std_recursive_directory_iterator(benchmark::State& state) {
    const std::string& root = trees().walkTree;
    for (auto _ : state) {
        int64_t count = 0;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
            benchmark::DoNotOptimize(entry.is_directory());  // the kind, as nextName gives it
            ++count;
        }
        if (count != kWalkDirectories * (kWalkFilesEach + 1)) state.SkipWithError("wrong count");
    }
    state.SetItemsProcessed(state.iterations() * kWalkDirectories * (kWalkFilesEach + 1));
}
BENCHMARK(BM_walk_std_recursive_directory_iterator)->Unit(benchmark::kMillisecond);

// --- copying ---------------------------------------------------------------

// The floor: what the copy must at least do with its fixed block size.
bool copyFilePlain(const std::string& from, const std::string& to) {
    int in = open(from.c_str(), O_RDONLY);
    if (in < 0) return false;
    int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (out < 0) {
        close(in);
        return false;
    }
    char block[4096];
    ssize_t got;
    bool ok = true;
    while ((got = read(in, block, sizeof block)) > 0) {
        if (write(out, block, static_cast<size_t>(got)) != got) {
            ok = false;
            break;
        }
    }
    close(in);
    close(out);
    return ok && got == 0;
}

void copyTreePlain(const std::string& from, const std::string& to) {
    mkdir(to.c_str(), 0777);
    DIR* dir = opendir(from.c_str());
    if (!dir) return;
    while (struct dirent* entry = readdir(dir)) {
        const char* n = entry->d_name;
        if (n[0] == '.' && (n[1] == 0 || (n[1] == '.' && n[2] == 0))) continue;
        std::string a = from + "/" + n, b = to + "/" + n;
        if (entry->d_type == DT_DIR)
            copyTreePlain(a, b);
        else
            copyFilePlain(a, b);
    }
    closedir(dir);
}

void clearTarget() {
    std::error_code ignored;
    fs::remove_all(trees().target, ignored);
}

// Counts the calls, so that the call-back's cost is part of what is measured.
bool countProgress(const FileNameC*, const FileNameC*, int64_t, int32_t, int64_t, int64_t,
                   void* context) {
    ++*static_cast<int64_t*>(context);
    return true;
}

template <class CopyF>
void runCopy(benchmark::State& state, const std::string& source, int64_t bytes, CopyF copyOnce) {
    for (auto _ : state) {
        state.PauseTiming();
        clearTarget();
        state.ResumeTiming();
        if (!copyOnce(source, trees().target)) state.SkipWithError("copy failed");
    }
    clearTarget();
    state.SetBytesProcessed(state.iterations() * bytes);
}

bool keelCopy(const std::string& from, const std::string& to) {
    FileNameC a = nameOf(from), b = nameOf(to);
    int64_t calls = 0;
    return keel::FlnFileServiceC::instance()->copy(&a, &b, countProgress, &calls) == 0;
}

bool stdCopy(const std::string& from, const std::string& to) {
    std::error_code error;
    fs::copy(from, to, fs::copy_options::recursive, error);
    return !error;
}

void BM_copy_tree_keel(benchmark::State& state) {
    runCopy(state, trees().copyTree, int64_t(kCopyDirectories) * kCopyFilesEach * 1024, keelCopy);
}
void BM_copy_tree_plain_4096(benchmark::State& state) {
    runCopy(state, trees().copyTree, int64_t(kCopyDirectories) * kCopyFilesEach * 1024,
            [](const std::string& from, const std::string& to) {
                copyTreePlain(from, to);
                return true;
            });
}
void BM_copy_tree_std_filesystem(benchmark::State& state) {
    runCopy(state, trees().copyTree, int64_t(kCopyDirectories) * kCopyFilesEach * 1024, stdCopy);
}
BENCHMARK(BM_copy_tree_keel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_copy_tree_plain_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_copy_tree_std_filesystem)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_copy_256MiB_keel(benchmark::State& state) {
    runCopy(state, trees().bigFile, kBigFileSize, keelCopy);
}
void BM_copy_256MiB_plain_4096(benchmark::State& state) {
    runCopy(state, trees().bigFile, kBigFileSize, copyFilePlain);
}
void BM_copy_256MiB_std_filesystem(benchmark::State& state) {
    runCopy(state, trees().bigFile, kBigFileSize,
            [](const std::string& from, const std::string& to) {
                std::error_code error;
                return fs::copy_file(from, to, error);
            });
}
BENCHMARK(BM_copy_256MiB_keel)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_copy_256MiB_plain_4096)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_copy_256MiB_std_filesystem)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
