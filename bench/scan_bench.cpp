// The scanners beside what a program would otherwise use: parseInt32 beside
// strtol on the same numbers, splitString beside a split of a std::string
// into a vector.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <string>
#include <vector>

#include <keel/keel.h>

#include <keel/stringar.h>
#include <keel/number.h>
#include <keel/split.h>

namespace {

using keel::StringC;

// 256 decimal numbers of one to ten digits, some signed, some with blanks.
std::vector<std::string> makeNumbers() {
    std::vector<std::string> numbers;
    uint32_t seed = 12345;
    for (int i = 0; i < 256; ++i) {
        seed = seed * 1103515245 + 12345;
        int digits = 1 + static_cast<int>((seed >> 16) % 10);
        std::string text = (i % 3 == 0) ? "-" : "";
        if (i % 7 == 0) text = " " + text;
        for (int d = 0; d < digits; ++d) {
            seed = seed * 1103515245 + 12345;
            text += static_cast<char>('0' + (d == 0 ? 1 + (seed >> 16) % 8 : (seed >> 16) % 10));
        }
        // Ten digits may pass 2^31: keep every number in range for both.
        if (digits == 10) text[text.size() - 10] = '1';
        numbers.push_back(text);
    }
    return numbers;
}

void parseKeel(benchmark::State& state) {
    std::vector<StringC> numbers;
    for (const std::string& text : makeNumbers()) numbers.emplace_back(text.c_str(), "utf8");
    for (auto _ : state) {
        int64_t sum = 0;
        for (const StringC& number : numbers) {
            uint32_t error;
            sum += keel::parseInt32(number, &error, 10, nullptr);
            benchmark::DoNotOptimize(error);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * numbers.size());
}
BENCHMARK(parseKeel)->Name("parse_int32/keel/256");

void parseStrtol(benchmark::State& state) {
    std::vector<std::string> numbers = makeNumbers();
    for (auto _ : state) {
        int64_t sum = 0;
        for (const std::string& number : numbers) {
            char* end;
            sum += strtol(number.c_str(), &end, 10);
            benchmark::DoNotOptimize(end);
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * numbers.size());
}
BENCHMARK(parseStrtol)->Name("parse_int32/strtol/256");

void parseAutoKeel(benchmark::State& state) {
    std::vector<StringC> numbers;
    for (const std::string& text : makeNumbers()) numbers.emplace_back(("0x" + text.substr(text.find_first_of("0123456789"), 7)).c_str(), "utf8");
    for (auto _ : state) {
        int64_t sum = 0;
        for (const StringC& number : numbers) sum += keel::parseInt32(number, nullptr, 0, nullptr);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * numbers.size());
}
BENCHMARK(parseAutoKeel)->Name("parse_int32_hex_prefix/keel/256");

void parseAutoStrtol(benchmark::State& state) {
    std::vector<std::string> numbers;
    for (const std::string& text : makeNumbers()) numbers.push_back("0x" + text.substr(text.find_first_of("0123456789"), 7));
    for (auto _ : state) {
        int64_t sum = 0;
        for (const std::string& number : numbers) sum += strtol(number.c_str(), nullptr, 0);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * numbers.size());
}
BENCHMARK(parseAutoStrtol)->Name("parse_int32_hex_prefix/strtol/256");

// A line of `fields` comma-separated fields of three to twelve characters.
std::string makeLine(int fields) {
    std::string line;
    uint32_t seed = 777;
    for (int i = 0; i < fields; ++i) {
        if (i) line += ',';
        seed = seed * 1103515245 + 12345;
        int length = 3 + static_cast<int>((seed >> 16) % 10);
        for (int c = 0; c < length; ++c) line += static_cast<char>('a' + (c + i) % 26);
    }
    return line;
}

void splitKeel(benchmark::State& state) {
    std::string line = makeLine(static_cast<int>(state.range(0)));
    StringC text(line.c_str(), "utf8");
    StringC comma(",", "ascii");
    for (auto _ : state) {
        keel::StringArrayC* pieces = keel::splitString(text, comma, false, false, keel::kNoEscape);
        benchmark::DoNotOptimize(pieces->size());
        delete pieces;
    }
    state.SetBytesProcessed(state.iterations() * line.size());
}
BENCHMARK(splitKeel)->Name("split/keel")->Arg(8)->Arg(256);

void splitStd(benchmark::State& state) {
    std::string line = makeLine(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        // The same rule: pieces between commas, empty ones left out.
        std::vector<std::string> pieces;
        size_t start = 0;
        for (;;) {
            size_t comma = line.find(',', start);
            size_t end = comma == std::string::npos ? line.size() : comma;
            if (end > start) pieces.emplace_back(line, start, end - start);
            if (comma == std::string::npos) break;
            start = comma + 1;
        }
        benchmark::DoNotOptimize(pieces.size());
    }
    state.SetBytesProcessed(state.iterations() * line.size());
}
BENCHMARK(splitStd)->Name("split/std_string")->Arg(8)->Arg(256);

void splitTrimKeel(benchmark::State& state) {
    std::string line = makeLine(static_cast<int>(state.range(0)));
    for (char& c : line) {
        if (c == 'e') c = ' ';
    }
    StringC text(line.c_str(), "utf8");
    StringC comma(",", "ascii");
    for (auto _ : state) {
        keel::StringArrayC* pieces = keel::splitString(text, comma, true, false, '\\');
        benchmark::DoNotOptimize(pieces->size());
        delete pieces;
    }
    state.SetBytesProcessed(state.iterations() * line.size());
}
BENCHMARK(splitTrimKeel)->Name("split_trim_escape/keel")->Arg(256);

}  // namespace

BENCHMARK_MAIN();
