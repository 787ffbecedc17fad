// String handle benchmarks: copying, construction and indexed walks, each
// beside what a program would otherwise use.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <keel/keel.h>
#include <keel/stringar.h>

#include "textgen.h"

namespace {

using keel::StringC;

void copyKeel(benchmark::State& state) {
    std::string text = bench::makeUtf8(bench::Ascii, state.range(0));
    StringC source(text.data(), static_cast<uint32_t>(text.size()), "utf8");
    for (auto _ : state) {
        StringC copy(source);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyKeel)->Name("copy_handle/keel")->Arg(64)->Arg(4096);

void copyStd(benchmark::State& state) {
    std::string source = bench::makeUtf8(bench::Ascii, state.range(0));
    for (auto _ : state) {
        std::string copy(source);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copyStd)->Name("copy_handle/std_string")->Arg(64)->Arg(4096);

// The floor of a shared value with an atomic reference count: a
// std::shared_ptr copied and dropped.
// libstdc++ counts without atomics while the process has never had a second
// thread (__libc_single_threaded); a handle that other threads may hold
// cannot, so one thread is started and joined first to measure the count
// that a threaded program pays.
void copySharedPtr(benchmark::State& state) {
    std::thread([] {}).join();
    auto source = std::make_shared<std::string>(bench::makeUtf8(bench::Ascii, state.range(0)));
    for (auto _ : state) {
        std::shared_ptr<std::string> copy(source);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copySharedPtr)->Name("copy_handle/std_shared_ptr")->Arg(64)->Arg(4096);

void assignKeel(benchmark::State& state) {
    std::string text = bench::makeUtf8(bench::Ascii, state.range(0));
    StringC a(text.data(), static_cast<uint32_t>(text.size()), "utf8");
    StringC b(a);
    StringC target;
    for (auto _ : state) {
        target = a;
        target = b;
        benchmark::DoNotOptimize(target);
    }
}
BENCHMARK(assignKeel)->Name("assign_handle/keel")->Arg(64)->Arg(4096);

void assignStd(benchmark::State& state) {
    std::string a = bench::makeUtf8(bench::Ascii, state.range(0));
    std::string b = bench::makeUtf8(bench::Latin1Heavy, state.range(0));
    std::string target;
    for (auto _ : state) {
        // Two different sources, as above, so neither side can skip the work.
        target = a;
        target = b;
        benchmark::DoNotOptimize(target);
    }
}
BENCHMARK(assignStd)->Name("assign_handle/std_string")->Arg(64)->Arg(4096);

void constructKeel(benchmark::State& state) {
    std::string text = bench::makeUtf8(static_cast<int>(state.range(1)), state.range(0));
    for (auto _ : state) {
        StringC s(text.data(), static_cast<uint32_t>(text.size()), "utf8");
        benchmark::DoNotOptimize(s);
    }
    state.SetBytesProcessed(state.iterations() * text.size());
}
BENCHMARK(constructKeel)->Name("construct_utf8/keel")->ArgsProduct({{64, 4096}, {0, 3}});

void constructStd(benchmark::State& state) {
    std::string text = bench::makeUtf8(static_cast<int>(state.range(1)), state.range(0));
    for (auto _ : state) {
        std::string s(text.data(), text.size());
        benchmark::DoNotOptimize(s);
    }
    state.SetBytesProcessed(state.iterations() * text.size());
}
BENCHMARK(constructStd)->Name("construct_utf8/std_string")->ArgsProduct({{64, 4096}, {0, 3}});

// Indexed walks over a long non-ASCII text. The cursor keeps each step near
// the previous one, so the time per character must not grow with the size;
// the anchor is a plain UTF-8 decoding loop over the same bytes.
//
// Each size walks texts of that size cut from one long text, about 2 MiB of
// them in all, one after the other. A single short text walked over and over
// would be learnt by the branch predictor, and its walk would look cheaper
// per character than the same walk over text the processor has not just seen.
std::vector<std::vector<uint32_t>> distinctPieces(size_t bytes) {
    size_t count = (size_t(2) << 20) / bytes;
    if (count < 2) count = 2;
    std::vector<uint32_t> all = bench::makeCodePoints(bench::Mixed, bytes * count + bytes);
    std::vector<std::vector<uint32_t>> pieces(1);
    size_t size = 0;
    for (uint32_t c : all) {
        if (size >= bytes) {
            if (pieces.size() == count) break;
            pieces.emplace_back();
            size = 0;
        }
        pieces.back().push_back(c);
        size += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    }
    return pieces;
}

std::vector<std::string> distinctTexts(size_t bytes) {
    std::vector<std::string> texts;
    for (const std::vector<uint32_t>& piece : distinctPieces(bytes)) {
        texts.emplace_back();
        for (uint32_t c : piece) bench::putUtf8(texts.back(), c);
    }
    return texts;
}

std::vector<StringC> distinctStrings(size_t bytes) {
    std::vector<StringC> strings;
    for (const std::string& text : distinctTexts(bytes)) {
        strings.emplace_back(text.data(), static_cast<uint32_t>(text.size()), "utf8");
    }
    return strings;
}

void charAtKeel(benchmark::State& state) {
    std::vector<StringC> strings = distinctStrings(state.range(0));
    size_t next = 0;
    int64_t characters = 0;
    for (auto _ : state) {
        const StringC& s = strings[next++ % strings.size()];
        int32_t n = s.length();
        uint32_t sum = 0;
        for (int32_t i = 0; i < n; ++i) sum += s.charAt(i);
        benchmark::DoNotOptimize(sum);
        characters += n;
    }
    state.SetItemsProcessed(characters);
}
BENCHMARK(charAtKeel)->Name("charat_walk/keel")->Arg(10 << 10)->Arg(1 << 20);

// The same walk with the character range of the handle (range-for).
void charsKeel(benchmark::State& state) {
    std::vector<StringC> strings = distinctStrings(state.range(0));
    size_t next = 0;
    int64_t characters = 0;
    for (auto _ : state) {
        const StringC& s = strings[next++ % strings.size()];
        uint32_t sum = 0;
        int64_t n = 0;
        for (char32_t c : s.chars()) {
            sum += c;
            ++n;
        }
        benchmark::DoNotOptimize(sum);
        characters += n;
    }
    state.SetItemsProcessed(characters);
}
BENCHMARK(charsKeel)->Name("charat_walk/keel_chars_range")->Arg(10 << 10)->Arg(1 << 20);

void decodeLoop(benchmark::State& state) {
    std::vector<std::string> texts = distinctTexts(state.range(0));
    size_t next = 0;
    for (auto _ : state) {
        const std::string& text = texts[next++ % texts.size()];
        uint32_t sum = 0;
        const unsigned char* p = reinterpret_cast<const unsigned char*>(text.data());
        const unsigned char* end = p + text.size();
        while (p < end) {
            unsigned char b = *p;
            uint32_t c;
            int n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
            c = n == 1 ? b : b & (0x7F >> n);
            for (int i = 1; i < n; ++i) c = (c << 6) | (p[i] & 0x3F);
            p += n;
            sum += c;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(decodeLoop)->Name("charat_walk/utf8_decode_loop")->Arg(10 << 10)->Arg(1 << 20);

void findKeel(benchmark::State& state) {
    std::vector<StringC> strings = distinctStrings(state.range(0));
    size_t next = 0;
    uint32_t target = 'e';
    for (auto _ : state) {
        const StringC& s = strings[next++ % strings.size()];
        int32_t found = 0;
        for (int32_t at = s.find(target); at >= 0; at = s.find(target, at)) ++found;
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(findKeel)->Name("find_char_loop/keel")->Arg(10 << 10)->Arg(1 << 20);

// The same pieces as UTF-32 strings.
std::vector<std::u32string> distinctU32Texts(size_t bytes) {
    std::vector<std::u32string> texts;
    for (const std::vector<uint32_t>& piece : distinctPieces(bytes)) {
        texts.emplace_back();
        for (uint32_t c : piece) texts.back() += char32_t(c);
    }
    return texts;
}

void findU32(benchmark::State& state) {
    std::vector<std::u32string> texts = distinctU32Texts(state.range(0));
    size_t next = 0;
    for (auto _ : state) {
        const std::u32string& text = texts[next++ % texts.size()];
        int32_t found = 0;
        for (size_t at = text.find(U'e'); at != std::u32string::npos; at = text.find(U'e', at + 1))
            ++found;
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(findU32)->Name("find_char_loop/std_u32string")->Arg(10 << 10)->Arg(1 << 20);

// The words of a text found with a small set of separators, the way a word
// count runs: the same set at every call.
const char32_t kSeparators[] = U" ,.;";

void findFirstOfKeel(benchmark::State& state) {
    std::vector<StringC> strings = distinctStrings(state.range(0));
    StringC set(reinterpret_cast<const char*>(u8" ,.;"), "utf8");
    size_t next = 0;
    for (auto _ : state) {
        const StringC& s = strings[next++ % strings.size()];
        int32_t found = 0;
        for (int32_t at = s.findFirstOf(set); at >= 0; at = s.findFirstOf(set, at)) ++found;
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(findFirstOfKeel)->Name("find_first_of_loop/keel")->Arg(10 << 10);

void findFirstOfU32(benchmark::State& state) {
    std::vector<std::u32string> texts = distinctU32Texts(state.range(0));
    size_t next = 0;
    for (auto _ : state) {
        const std::u32string& text = texts[next++ % texts.size()];
        int32_t found = 0;
        for (size_t at = text.find_first_of(kSeparators); at != std::u32string::npos;
             at = text.find_first_of(kSeparators, at + 1))
            ++found;
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(findFirstOfU32)->Name("find_first_of_loop/std_u32string")->Arg(10 << 10);

}  // namespace

// std::sort of 10,000 short words: the handles move (no reference counts
// touched) where a copy would cost two atomic operations per step.
std::vector<std::string> sortWords() {
    std::mt19937 random(14);
    std::vector<std::string> words;
    for (int i = 0; i < 10000; ++i) {
        std::string word;
        for (int k = 3 + random() % 9; k > 0; --k) word += static_cast<char>('a' + random() % 26);
        words.push_back(word);
    }
    return words;
}

void sortKeel(benchmark::State& state) {
    std::vector<StringC> words;
    for (const std::string& w : sortWords()) words.emplace_back(w);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<StringC> copy = words;
        state.ResumeTiming();
        std::sort(copy.begin(), copy.end());
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(sortKeel)->Name("sort_10000_words/keel");

// The same sort as handles had it before they could move: every step a copy.
struct CopiedHandleT {
    explicit CopiedHandleT(const StringC& s) : string(s) {}
    CopiedHandleT(const CopiedHandleT& other) : string(other.string) {}
    CopiedHandleT& operator=(const CopiedHandleT& other) {
        string = other.string;
        return *this;
    }
    bool operator<(const CopiedHandleT& other) const { return string < other.string; }
    StringC string;
};

void sortKeelCopying(benchmark::State& state) {
    std::vector<CopiedHandleT> words;
    for (const std::string& w : sortWords()) words.emplace_back(StringC(w));
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<CopiedHandleT> copy = words;
        state.ResumeTiming();
        std::sort(copy.begin(), copy.end());
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(sortKeelCopying)->Name("sort_10000_words/keel_copying_handles");

void sortStd(benchmark::State& state) {
    std::vector<std::string> words = sortWords();
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::string> copy = words;
        state.ResumeTiming();
        std::sort(copy.begin(), copy.end());
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(sortStd)->Name("sort_10000_words/std_string");

// StringArrayC::sortWith of 100,000 words beside std::sort of a
// std::vector<StringC> with the same comparison.
std::vector<StringC> manyWords() {
    std::mt19937 random(15);
    std::vector<StringC> words;
    for (int i = 0; i < 100000; ++i) {
        std::string word;
        for (int k = 3 + random() % 9; k > 0; --k) word += static_cast<char>('a' + random() % 26);
        words.emplace_back(word);
    }
    return words;
}

int compareWords(void*, const StringC& first, const StringC& second) {
    return first.compare(second);
}

void sortWithKeel(benchmark::State& state) {
    std::vector<StringC> words = manyWords();
    for (auto _ : state) {
        state.PauseTiming();
        keel::StringArrayC array;
        for (const StringC& w : words) array.append(w);
        state.ResumeTiming();
        array.sortWith(compareWords, nullptr);
        benchmark::DoNotOptimize(array.data());
        state.PauseTiming();
        array.clear();
        state.ResumeTiming();
    }
}
BENCHMARK(sortWithKeel)->Name("sort_with/keel/100000")->Unit(benchmark::kMillisecond);

void sortWithStd(benchmark::State& state) {
    std::vector<StringC> words = manyWords();
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<StringC> copy = words;
        state.ResumeTiming();
        std::sort(copy.begin(), copy.end(), [](const StringC& a, const StringC& b) {
            return compareWords(nullptr, a, b) < 0;
        });
        benchmark::DoNotOptimize(copy.data());
        state.PauseTiming();
        copy.clear();
        state.ResumeTiming();
    }
}
BENCHMARK(sortWithStd)->Name("sort_with/std_sort_vector/100000")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
