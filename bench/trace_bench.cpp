// Tracing and error reporting beside what a C++ programmer would use instead.
//
// trace_disabled: a trace point whose path is off, with its cell filled,
// against a bare load-and-test of a static word and spdlog's level check
// (a logger on a null sink, level above the call's).
// trace_line: an enabled line with two arguments to a consumer that discards
// it, against spdlog writing the same line to a null sink and snprintf into
// a thread-local buffer.
// report_error: reportErrorFormat with a two-argument format (fetch, render,
// store, trace lookup), against the same two anchors.
// get_err_buf: the calling thread's buffer after the first call.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <stdio.h>

#include <memory>

#include <keel/keel.h>

#include "errors/errapi.h"

namespace {

using keel::TracePointT;

// The inlined test of a disabled point, out of line here only so that its
// machine code can be shown (objdump --disassemble=tracePointProbe).
TracePointT probePoint = {nullptr, "Bench/Probe"};
}  // namespace

extern "C" __attribute__((noinline)) uint32_t tracePointProbe() {
    return keel::traceActive(probePoint);
}

namespace {

uint32_t staticWord = 0;

void disabledStaticWord(benchmark::State& state) {
    uint64_t hits = 0;
    for (auto _ : state) {
        if (__atomic_load_n(&staticWord, __ATOMIC_RELAXED)) ++hits;
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(hits);
}
BENCHMARK(disabledStaticWord)->Name("trace_disabled/static_word");

void disabledKeel(benchmark::State& state) {
    static TracePointT point = {nullptr, "Bench/Disabled/Point"};
    keel::traceActive(point);  // fills the cell
    uint64_t hits = 0;
    for (auto _ : state) {
        if (keel::traceActive(point)) ++hits;
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(hits);
}
BENCHMARK(disabledKeel)->Name("trace_disabled/keel");

std::shared_ptr<spdlog::logger> nullLogger(spdlog::level::level_enum level) {
    auto logger =
        std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::null_sink_st>());
    logger->set_level(level);
    return logger;
}

void disabledSpdlog(benchmark::State& state) {
    auto logger = nullLogger(spdlog::level::info);
    uint64_t hits = 0;
    for (auto _ : state) {
        if (logger->should_log(spdlog::level::trace)) ++hits;
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(hits);
}
BENCHMARK(disabledSpdlog)->Name("trace_disabled/spdlog");

class DiscardingConsumer : public keel::TraceConsumerI {
public:
    uint32_t write(const char*, int32_t, const char*, keel::ArgListC) override { return 0; }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char*) override { return 0; }
};

void lineKeel(benchmark::State& state) {
    static DiscardingConsumer consumer;
    getTraceController()->addConsumer(&consumer, 0, 9);
    getTraceController()->enablePath(&consumer, "Bench/Line");
    static TracePointT point = {nullptr, "Bench/Line/Point"};
    int i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(keel::traceLine(point, "value %d of %s", ++i, "name"));
    getTraceController()->removeConsumer(&consumer);
}
BENCHMARK(lineKeel)->Name("trace_line/keel");

void lineSpdlog(benchmark::State& state) {
    auto logger = nullLogger(spdlog::level::trace);
    int i = 0;
    for (auto _ : state) logger->info("value {} of {}", ++i, "name");
}
BENCHMARK(lineSpdlog)->Name("trace_line/spdlog");

thread_local char lineBuffer[256];

void lineSnprintf(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            snprintf(lineBuffer, sizeof lineBuffer, "value %d of %s", ++i, "name"));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(lineSnprintf)->Name("trace_line/snprintf_tls");

void reportKeel(benchmark::State& state) {
    keel::ErrBufI* errors = getErrBuf();
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            keel::reportErrorFormat(0xE0CB0010, "Failed to open file %d of %s", ++i, "name"));
        errors->removeEntry(0);
    }
}
BENCHMARK(reportKeel)->Name("report_error/keel");

void reportSpdlog(benchmark::State& state) {
    auto logger = nullLogger(spdlog::level::trace);
    int i = 0;
    for (auto _ : state) logger->error("Failed to open file {} of {}", ++i, "name");
}
BENCHMARK(reportSpdlog)->Name("report_error/spdlog");

void reportSnprintf(benchmark::State& state) {
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            snprintf(lineBuffer, sizeof lineBuffer, "Failed to open file %d of %s", ++i, "name"));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(reportSnprintf)->Name("report_error/snprintf_tls");

void errBufKeel(benchmark::State& state) {
    getErrBuf();
    for (auto _ : state) benchmark::DoNotOptimize(getErrBuf());
}
BENCHMARK(errBufKeel)->Name("get_err_buf/keel");

}  // namespace

BENCHMARK_MAIN();
