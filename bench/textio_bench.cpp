// Text files line by line: TextReaderC over a FileStreamC beside the floor
// that its fixed sizes allow (a bare loop of 1,024-byte read(2) calls over
// the same file), std::getline on an std::ifstream and getline(3); writing
// the same lines with TextWriterC in UTF-8 and UTF-16 beside one write(2)
// per line, std::ofstream and fwrite. A last benchmark reads a file of
// 1 GiB line by line in a child process and reports the child's peak RSS.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "files/filestream.h"
#include "files/streamreader.h"
#include "files/streamwriter.h"

namespace {

using keel::FileNameC;
using keel::StringC;

std::string scratchDirectory() {
    const char* tmp = getenv("TMPDIR");
    return tmp && *tmp ? tmp : "/tmp";
}

// Lines of 20 to 140 characters, a few of them with accented letters and a
// euro sign, as log and configuration files have them.
const std::vector<std::string>& sampleLines() {
    static std::vector<std::string> lines;
    if (lines.empty()) {
        uint32_t state = 12345;
        for (int i = 0; i < 4096; ++i) {
            state = state * 1103515245u + 12345u;
            size_t length = 20 + (state >> 8) % 121;
            std::string line;
            while (line.size() < length) {
                state = state * 1103515245u + 12345u;
                uint32_t pick = (state >> 10) % 64;
                if (pick == 0) {
                    line += "\xC3\xA9";
                } else if (pick == 1) {
                    line += "\xE2\x82\xAC";
                } else if (pick < 10) {
                    line += ' ';
                } else {
                    line += static_cast<char>('a' + pick % 26);
                }
            }
            lines.push_back(line);
        }
    }
    return lines;
}

std::string utf16le(const std::string& utf8) {
    StringC s(utf8.c_str(), "utf8");
    const uint16_t* units = s.textUtf16();
    uint32_t count = s.textUtf16Length();
    std::string out(reinterpret_cast<const char*>(units), count * 2);
    s.releaseUtf16(units);
    return out;
}

// The test files, made once: 64 MiB of lines in UTF-8 and the same lines in
// UTF-16LE with its mark.
struct FilesT {
    std::string utf8Path;
    std::string utf16Path;
    int64_t utf8Bytes = 0;
    int64_t utf16Bytes = 0;
};

const FilesT& files() {
    static FilesT made;
    if (made.utf8Path.empty()) {
        made.utf8Path = scratchDirectory() + "/keel-bench-lines-utf8.txt";
        made.utf16Path = scratchDirectory() + "/keel-bench-lines-utf16.txt";
        FILE* out8 = fopen(made.utf8Path.c_str(), "wb");
        FILE* out16 = fopen(made.utf16Path.c_str(), "wb");
        fwrite("\xFF\xFE", 1, 2, out16);
        made.utf16Bytes = 2;
        const std::vector<std::string>& lines = sampleLines();
        std::vector<std::string> lines16;
        for (const std::string& line : lines) lines16.push_back(utf16le(line + "\n"));
        for (size_t i = 0; made.utf8Bytes < (int64_t(64) << 20); ++i) {
            const std::string& line = lines[i % lines.size()];
            fwrite(line.data(), 1, line.size(), out8);
            fputc('\n', out8);
            made.utf8Bytes += line.size() + 1;
            const std::string& line16 = lines16[i % lines.size()];
            fwrite(line16.data(), 1, line16.size(), out16);
            made.utf16Bytes += line16.size();
        }
        fclose(out8);
        fclose(out16);
    }
    return made;
}

void readFloor(benchmark::State& state, const std::string& path, int64_t bytes) {
    char buffer[1024];
    for (auto _ : state) {
        int fd = open(path.c_str(), O_RDONLY);
        int64_t total = 0;
        ssize_t got;
        while ((got = read(fd, buffer, sizeof buffer)) > 0) total += got;
        close(fd);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void BM_ReadFloor(benchmark::State& state) {
    readFloor(state, files().utf8Path, files().utf8Bytes);
}
void BM_ReadFloorUtf16(benchmark::State& state) {
    readFloor(state, files().utf16Path, files().utf16Bytes);
}

void readWithKeel(benchmark::State& state, const std::string& path, int64_t bytes) {
    FileNameC name(StringC(path.c_str(), "utf8"));
    for (auto _ : state) {
        std::unique_ptr<keel::StreamReaderC> reader(
            keel::StreamReaderC::open(&name, true, nullptr, 1, false));
        StringC line;
        int64_t lines = 0;
        while (reader->readLine(line) == 0) ++lines;
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void BM_ReadTextReaderUtf8(benchmark::State& state) {
    readWithKeel(state, files().utf8Path, files().utf8Bytes);
}
void BM_ReadTextReaderUtf16(benchmark::State& state) {
    readWithKeel(state, files().utf16Path, files().utf16Bytes);
}

void BM_ReadIfstreamGetline(benchmark::State& state) {
    const FilesT& f = files();
    for (auto _ : state) {
        std::ifstream in(f.utf8Path, std::ios::binary);
        std::string line;
        int64_t lines = 0;
        while (std::getline(in, line)) ++lines;
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(state.iterations() * f.utf8Bytes);
}

void BM_ReadGetline3(benchmark::State& state) {
    const FilesT& f = files();
    for (auto _ : state) {
        FILE* in = fopen(f.utf8Path.c_str(), "rb");
        char* line = nullptr;
        size_t room = 0;
        int64_t lines = 0;
        while (getline(&line, &room, in) >= 0) ++lines;
        free(line);
        fclose(in);
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(state.iterations() * f.utf8Bytes);
}

// Writing: 16 MiB of the sample lines per iteration.
const int64_t kWriteBytes = int64_t(16) << 20;

std::string writePath() { return scratchDirectory() + "/keel-bench-write.txt"; }

void writeFloor(benchmark::State& state, bool utf16) {
    const std::vector<std::string>& lines = sampleLines();
    std::vector<std::string> withEnds;
    for (const std::string& line : lines)
        withEnds.push_back(utf16 ? utf16le(line + "\n") : line + "\n");
    int64_t bytes = 0;
    for (auto _ : state) {
        int fd = open(writePath().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        bytes = 0;
        for (size_t i = 0; bytes < kWriteBytes; ++i) {
            const std::string& line = withEnds[i % withEnds.size()];
            if (write(fd, line.data(), line.size()) < 0) state.SkipWithError("write failed");
            bytes += utf16 ? lines[i % lines.size()].size() + 1 : line.size();
        }
        close(fd);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void BM_WriteFloor(benchmark::State& state) { writeFloor(state, false); }
void BM_WriteFloorUtf16(benchmark::State& state) { writeFloor(state, true); }

void writeWithKeel(benchmark::State& state, const char* encoding) {
    const std::vector<std::string>& lines = sampleLines();
    std::vector<StringC> strings;
    for (const std::string& line : lines) strings.push_back(StringC((line + "\n").c_str(), "utf8"));
    FileNameC name(StringC(writePath().c_str(), "utf8"));
    int64_t bytes = 0;
    for (auto _ : state) {
        std::unique_ptr<keel::StreamWriterC> writer(
            keel::StreamWriterC::open(&name, false, keel::findEncoding(encoding), true, 2, false));
        bytes = 0;
        for (size_t i = 0; bytes < kWriteBytes; ++i) {
            writer->write(strings[i % strings.size()]);
            bytes += lines[i % lines.size()].size() + 1;
        }
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void BM_WriteTextWriterUtf8(benchmark::State& state) { writeWithKeel(state, "utf8"); }
void BM_WriteTextWriterUtf16(benchmark::State& state) { writeWithKeel(state, "utf16le"); }

void BM_WriteOfstream(benchmark::State& state) {
    const std::vector<std::string>& lines = sampleLines();
    int64_t bytes = 0;
    for (auto _ : state) {
        std::ofstream out(writePath(), std::ios::binary | std::ios::trunc);
        bytes = 0;
        for (size_t i = 0; bytes < kWriteBytes; ++i) {
            const std::string& line = lines[i % lines.size()];
            out << line << '\n';
            bytes += line.size() + 1;
        }
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

void BM_WriteFwrite(benchmark::State& state) {
    const std::vector<std::string>& lines = sampleLines();
    int64_t bytes = 0;
    for (auto _ : state) {
        FILE* out = fopen(writePath().c_str(), "wb");
        bytes = 0;
        for (size_t i = 0; bytes < kWriteBytes; ++i) {
            const std::string& line = lines[i % lines.size()];
            fwrite(line.data(), 1, line.size(), out);
            fputc('\n', out);
            bytes += line.size() + 1;
        }
        fclose(out);
    }
    state.SetBytesProcessed(state.iterations() * bytes);
}

// A child reads `path` line by line (or, with `read` false, only starts) and
// answers its peak resident set in KiB.
long childPeakKiB(const std::string& path, bool readIt) {
    int channel[2];
    if (pipe(channel) != 0) return -1;
    pid_t child = fork();
    if (child == 0) {
        close(channel[0]);
        if (readIt) {
            FileNameC name(StringC(path.c_str(), "utf8"));
            keel::StreamReaderC* reader = keel::StreamReaderC::open(&name, true, nullptr, 1, false);
            StringC line;
            long lines = 0;
            while (reader && reader->readLine(line) == 0) ++lines;
            delete reader;
        }
        struct rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        long peak = usage.ru_maxrss;
        if (write(channel[1], &peak, sizeof peak) != sizeof peak) _exit(1);
        _exit(0);
    }
    close(channel[1]);
    long peak = -1;
    if (read(channel[0], &peak, sizeof peak) != sizeof peak) peak = -1;
    close(channel[0]);
    waitpid(child, nullptr, 0);
    return peak;
}

// 1 GiB of the sample lines, made once by copying the 64 MiB file sixteen
// times, and removed at exit.
const std::string& bigFile() {
    static std::string big;
    if (!big.empty()) return big;
    const FilesT& f = files();
    big = scratchDirectory() + "/keel-bench-lines-1g.txt";
    {
        FILE* in = fopen(f.utf8Path.c_str(), "rb");
        std::string all;
        char chunk[1 << 16];
        size_t got;
        while ((got = fread(chunk, 1, sizeof chunk, in)) > 0) all.append(chunk, got);
        fclose(in);
        FILE* out = fopen(big.c_str(), "wb");
        for (int i = 0; i < 16; ++i) fwrite(all.data(), 1, all.size(), out);
        fclose(out);
    }
    atexit([] { unlink(bigFile().c_str()); });
    return big;
}

void BM_ReadOneGibibyteMemory(benchmark::State& state) {
    const FilesT& f = files();
    const std::string& big = bigFile();
    long baseline = 0;
    long reading = 0;
    for (auto _ : state) {
        baseline = childPeakKiB(big, false);
        reading = childPeakKiB(big, true);
    }
    state.counters["peak_rss_KiB"] = static_cast<double>(reading);
    state.counters["idle_rss_KiB"] = static_cast<double>(baseline);
    state.counters["growth_KiB"] = static_cast<double>(reading - baseline);
    state.SetBytesProcessed(state.iterations() * f.utf8Bytes * 16);
}

}  // namespace

// Names: <work>/<implementation>/<input>, so the table pairs keel with each
// anchor; the floor is the anchor the goal is stated against.
BENCHMARK(BM_ReadFloor)->Name("read_lines/read_1024_floor/utf8")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTextReaderUtf8)->Name("read_lines/keel/utf8")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadIfstreamGetline)
    ->Name("read_lines/std_getline_ifstream/utf8")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadGetline3)->Name("read_lines/getline3/utf8")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadFloorUtf16)
    ->Name("read_lines/read_1024_floor/utf16")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadTextReaderUtf16)->Name("read_lines/keel/utf16")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteFloor)
    ->Name("write_lines/write_per_line_floor/utf8")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteTextWriterUtf8)->Name("write_lines/keel/utf8")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteOfstream)->Name("write_lines/std_ofstream/utf8")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteFwrite)->Name("write_lines/fwrite/utf8")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteFloorUtf16)
    ->Name("write_lines/write_per_line_floor/utf16")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteTextWriterUtf16)->Name("write_lines/keel/utf16")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadOneGibibyteMemory)
    ->Name("read_lines_memory/keel/1GiB")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

BENCHMARK_MAIN();
