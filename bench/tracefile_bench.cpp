// A trace line written to a trace file beside spdlog's basic file sink
// writing the same line to a file of its own.
//
// tracefile_line/keel: traceLine on an enabled point, dispatched under the
// trace control latch to the tracer's own file consumer (the one a program
// traces to: it cannot make another) with no prefix and a flush every 1,000
// lines; spdlog: a logger on basic_file_sink_st with the pattern "%v" (the
// message alone), flushed when its buffer fills.
// tracefile_line_flushed: the same with a flush after every line, the file
// consumer's default (flush_freq 1) and spdlog's flush_on(trace).
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <keel/keel.h>

namespace {

std::string scratch(const char* name) {
    const char* dir = getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/keel-bench-" + std::to_string(getpid()) +
           "-" + name;
}

void keelLine(benchmark::State& state, int32_t flushEvery, const char* path) {
    std::string name = scratch(path);
    keel::TraceControllerI* controller = getTraceController();
    keel::TraceDefaultConsumerI* consumer = keel::tracerI()->getDefaultConsumer();
    consumer->setFilename(name.c_str());
    consumer->setFlushFrequency(flushEvery);
    std::string pointPath = std::string("Bench/File/") + path;
    controller->enablePath(consumer, pointPath.c_str());
    keel::TracePointT point = {nullptr, pointPath.c_str()};
    for (auto _ : state) keel::traceLine(point, "opened connection %d to %s", 7, "db.example.org");
    // Off again, and the file closed (with its last lines) by a new name.
    controller->inheritPath(consumer, pointPath.c_str());
    consumer->setFilename("/tmp/%p%t.trc");
    consumer->setFlushFrequency(1);
    unlink(name.c_str());
}

void spdlogLine(benchmark::State& state, bool flushEach, const char* path) {
    std::string name = scratch(path);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(name, true);
    spdlog::logger logger("bench", sink);
    logger.set_pattern("%v");
    logger.set_level(spdlog::level::trace);
    if (flushEach) logger.flush_on(spdlog::level::trace);
    for (auto _ : state) logger.info("opened connection {} to {}", 7, "db.example.org");
    unlink(name.c_str());
}

void lineKeel(benchmark::State& state) { keelLine(state, 1000, "buffered"); }
void lineSpdlog(benchmark::State& state) { spdlogLine(state, false, "spdlog-buffered"); }
void flushedKeel(benchmark::State& state) { keelLine(state, 1, "flushed"); }
void flushedSpdlog(benchmark::State& state) { spdlogLine(state, true, "spdlog-flushed"); }
BENCHMARK(lineKeel)->Name("tracefile_line/keel");
BENCHMARK(lineSpdlog)->Name("tracefile_line/spdlog");
BENCHMARK(flushedKeel)->Name("tracefile_line_flushed/keel");
BENCHMARK(flushedSpdlog)->Name("tracefile_line_flushed/spdlog");

}  // namespace

BENCHMARK_MAIN();
