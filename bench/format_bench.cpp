// Formatting benchmarks: a typical message (a text, a decimal, a string
// argument, about 60 characters out) through StringC::format, beside
// snprintf into a stack buffer and fmt::format into a std::string.
#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <stdio.h>

#include <string>

#include <keel/keel.h>

namespace {

using keel::ArgListC;
using keel::StringC;

const char kPath[] = "/var/lib/keel/settings.ini";
const int kCode = 2;

void messageKeel(benchmark::State& state) {
    StringC format("Cannot open '%S' for writing (error %d)", "utf8");
    StringC path(kPath, "utf8");
    ArgListC args;
    args.add(path).add(int32_t(kCode));
    for (auto _ : state) {
        StringC text = StringC::format(format, args);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(messageKeel)->Name("format_message/keel");

void messageSnprintf(benchmark::State& state) {
    for (auto _ : state) {
        char text[128];
        int n =
            snprintf(text, sizeof text, "Cannot open '%s' for writing (error %d)", kPath, kCode);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(messageSnprintf)->Name("format_message/snprintf");

void messageFmt(benchmark::State& state) {
    for (auto _ : state) {
        std::string text = fmt::format("Cannot open '{}' for writing (error {})", kPath, kCode);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(messageFmt)->Name("format_message/fmt");

// The message of a program's error path: the argument list is built at every
// call, with a C text for %s and a string for %S.
const char kTypical[] = "Failed to open '%s' after %d attempts: %S";

void typicalKeel(benchmark::State& state) {
    StringC format(kTypical, "utf8");
    StringC reason("No such file or directory", "utf8");
    for (auto _ : state) {
        ArgListC args;
        args.add(kPath).add(int32_t(3)).add(reason);
        StringC text = StringC::format(format, args);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(typicalKeel)->Name("format_typical_list_in_loop/keel");

void typicalSnprintf(benchmark::State& state) {
    const char* reason = "No such file or directory";
    for (auto _ : state) {
        char text[160];
        int n = snprintf(text, sizeof text, "Failed to open '%s' after %d attempts: %s", kPath, 3,
                         reason);
        std::string out(text, n > 0 ? static_cast<size_t>(n) : 0);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(typicalSnprintf)->Name("format_typical_list_in_loop/snprintf");

void typicalFmt(benchmark::State& state) {
    const char* reason = "No such file or directory";
    for (auto _ : state) {
        std::string text =
            fmt::format("Failed to open '{}' after {} attempts: {}", kPath, 3, reason);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(typicalFmt)->Name("format_typical_list_in_loop/fmt");

void emptyKeel(benchmark::State& state) {
    StringC format("", "utf8");
    StringC path(kPath, "utf8");
    ArgListC args;
    args.add(path).add(int32_t(kCode));
    for (auto _ : state) {
        StringC text = StringC::format(format, args);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(emptyKeel)->Name("format_empty/keel");

// The renderer alone: the same message into a sink that stores bytes.
struct ByteSinkT {
    char text[256];
    size_t length;
};

void storeByte(void* context, uint32_t character) {
    ByteSinkT* sink = static_cast<ByteSinkT*>(context);
    if (sink->length < sizeof sink->text) sink->text[sink->length++] = static_cast<char>(character);
}

void sinkKeel(benchmark::State& state) {
    StringC format("Cannot open '%S' for writing (error %d)", "utf8");
    StringC path(kPath, "utf8");
    ArgListC args;
    args.add(path).add(int32_t(kCode));
    for (auto _ : state) {
        ByteSinkT sink;
        sink.length = 0;
        StringC::formatTo(storeByte, &sink, format, args);
        benchmark::DoNotOptimize(sink);
    }
}
BENCHMARK(sinkKeel)->Name("format_message_to_sink/keel");

void sinkSnprintf(benchmark::State& state) {
    for (auto _ : state) {
        char text[128];
        int n =
            snprintf(text, sizeof text, "Cannot open '%s' for writing (error %d)", kPath, kCode);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(sinkSnprintf)->Name("format_message_to_sink/snprintf");

// The same message from a variadic call: the parser builds the list first.
void variadicKeel(benchmark::State& state) {
    StringC format("Cannot open '%s' for writing (error %d)", "utf8");
    for (auto _ : state) {
        StringC text = keel::formatString(&format, kPath, kCode);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(variadicKeel)->Name("format_variadic/keel");

void variadicSnprintf(benchmark::State& state) {
    for (auto _ : state) {
        char text[128];
        int n =
            snprintf(text, sizeof text, "Cannot open '%s' for writing (error %d)", kPath, kCode);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(variadicSnprintf)->Name("format_variadic/snprintf");

// Numbers with flags, widths and several bases.
void numbersKeel(benchmark::State& state) {
    StringC format("%08x %-6d %+d %#o %5u", "utf8");
    ArgListC args;
    args.add(int32_t(0xBEEF))
        .add(int32_t(-42))
        .add(int32_t(7))
        .add(int32_t(8))
        .add(uint32_t(31337));
    for (auto _ : state) {
        StringC text = StringC::format(format, args);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(numbersKeel)->Name("format_numbers/keel");

void numbersSnprintf(benchmark::State& state) {
    for (auto _ : state) {
        char text[128];
        int n = snprintf(text, sizeof text, "%08x %-6d %+d %#o %5u", 0xBEEF, -42, 7, 8, 31337u);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(numbersSnprintf)->Name("format_numbers/snprintf");

void numbersFmt(benchmark::State& state) {
    for (auto _ : state) {
        std::string text = fmt::format("{:08x} {:<6} {:+} {:#o} {:5}", 0xBEEF, -42, 7, 8, 31337u);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(numbersFmt)->Name("format_numbers/fmt");

}  // namespace

BENCHMARK_MAIN();
