// Dates and times beside the C library.
//
// datetime_render: a full stamp with three digits of fraction, from a tick
// count whose calendar fields are not known yet, by DateTimeC::format against
// gmtime_r and strftime with the milliseconds put behind by snprintf.
// datetime_parse: "2024-02-29T12:30:45.123Z" to a tick count, by
// DateTimeC::parse against strptime, the fraction read by strtol, and timegm.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <keel/keel.h>

#include "locale/datetime.h"

namespace {

const int64_t kStart =
    (1709209845LL + keel::DateTimeC::kUnixEpochSeconds) * keel::DateTimeC::kTicksPerSecond;

void renderKeel(benchmark::State& state) {
    int64_t ticks = kStart + 12300000;
    for (auto _ : state) {
        keel::DateTimeC value(ticks, false);
        keel::StringC text = value.format(8 + 32 + 3);
        benchmark::DoNotOptimize(text.getImpl());
        ticks += keel::DateTimeC::kTicksPerSecond + 1;
    }
}
BENCHMARK(renderKeel)->Name("datetime_render/keel");

void renderStrftime(benchmark::State& state) {
    time_t seconds = 1709209845;
    long milliseconds = 123;
    char text[64];
    for (auto _ : state) {
        struct tm fields;
        gmtime_r(&seconds, &fields);
        size_t length = strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
        snprintf(text + length, sizeof text - length, "%03ldZ", milliseconds);
        benchmark::DoNotOptimize(text);
        ++seconds;
    }
}
BENCHMARK(renderStrftime)->Name("datetime_render/strftime");

void parseKeel(benchmark::State& state) {
    keel::StringC input("2024-02-29T12:30:45.123Z", "utf8");
    for (auto _ : state) {
        keel::StringC text = input;
        keel::DateTimeC value = keel::DateTimeC::parse(text);
        benchmark::DoNotOptimize(value.getTicks());
    }
}
BENCHMARK(parseKeel)->Name("datetime_parse/keel");

void parseStrptime(benchmark::State& state) {
    const char* input = "2024-02-29T12:30:45.123Z";
    for (auto _ : state) {
        struct tm fields;
        memset(&fields, 0, sizeof fields);
        const char* rest = strptime(input, "%Y-%m-%dT%H:%M:%S", &fields);
        long fraction = 0;
        if (rest && (*rest == '.' || *rest == ',')) fraction = strtol(rest + 1, nullptr, 10);
        int64_t ticks =
            (static_cast<int64_t>(timegm(&fields)) + keel::DateTimeC::kUnixEpochSeconds) *
                keel::DateTimeC::kTicksPerSecond +
            fraction * 100000;
        benchmark::DoNotOptimize(ticks);
    }
}
BENCHMARK(parseStrptime)->Name("datetime_parse/strptime");

}  // namespace

BENCHMARK_MAIN();
