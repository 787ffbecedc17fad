// TraceConsumerFileC: the consumer that the tracer makes for itself. It
// writes trace lines to a file and reads the trace control file, with which
// an operator turns tracing on without touching the program:
//
//     # comments run to the end of the line
//     timestamp = 1          key = value: the options below
//     show_threads = yes
//     filename = /var/tmp/app%_u.trc
//     Error                  a path to trace ("+Error" too; "-Error/Occurrence" turns one off)
//     3,Net/Socket           with a detail digit
//     *Catalog               every path with a component "Catalog", as it comes into being
//
// A line reads, with every option on:
//
//     2026-11-24 17:32:16123 (+0.0012), pid 4711, thread 0x7f..., (Net/Open): <indent>message
//
// The file is opened by the first line that is written, not before, with
// checks that refuse a symbolic link or a file of another owner planted under
// the expanded name (the default place is /tmp). The consumer has no lock of
// its own: dispatch calls it under the trace control latch.
#ifndef KEEL_TRACING_TRACEFIL_H
#define KEEL_TRACING_TRACEFIL_H

#include <stdint.h>
#include <stdio.h>

#include <keel/trace.h>
#include <keel/tracectl.h>

namespace keel {

const uint32_t kTraceUnknownKey = 0xE0150006u;

// The settings of a file consumer, as a plain record (for diagnostics).
struct TraceFileOptionsT {
    const char* filename;
    uint8_t timeOfDay, timestamp, timeDeltas, traceCounters, traceTimers, showClass, showProcess,
        showThreads;
    int32_t flushFrequency, maxIndent, maxDetail;
    uint32_t patternCount;
    const char* const* patterns;
};

class TraceConsumerFileC : public TraceDefaultConsumerI {
public:
    // `controller` receives the paths of the control file and of patterns.
    explicit TraceConsumerFileC(TraceControllerI* controller);

    uint32_t write(const char* path, int32_t indent, const char* format, ArgListC args) override;
    uint32_t valueChanged(const char* path, int32_t indent) override;
    uint32_t variableCreated(const char* path) override;
    // 0, or 0xE0150006 for a key it does not know.
    uint32_t setOption(const char* key, const char* value) override;
    uint32_t setTimestamp(uint8_t on) override;
    uint32_t setTimeDeltas(uint8_t on) override;
    uint32_t setTraceTimers(uint8_t on) override;
    uint32_t setTraceCounters(uint8_t on) override;
    // A new name pattern; an open file is closed and the next line opens the new name.
    uint32_t setFilename(const char* pattern) override;
    uint32_t setFlushFrequency(int32_t lines) override;
    uint32_t setMaxIndent(int32_t blanks) override;
    uint32_t setMaxDetail(int32_t level) override;
    virtual ~TraceConsumerFileC();

    // Reads the control file: 0, or the system error of opening it. Lines
    // it does not understand are skipped.
    uint32_t readControlFile(const char* path);
    void getMaxDetail(int32_t* out) const { *out = maxDetail; }
    void setShowProcess(uint8_t on) { showProcess = on; }
    void setShowThreads(uint8_t on) { showThreads = on; }
    TraceFileOptionsT options() const {
        return {filename,    timeOfDay, timestamp,    timeDeltas,  traceCounters,
                traceTimers, showClass, showProcess,  showThreads, flushFrequency,
                maxIndent,   maxDetail, patternCount, patterns};
    }

    // The file name of attempt `attempt` (0 to 99): '%' sequences expanded
    // into at most 4,095 bytes. `exclusive` tells whether %u was used.
    static void expandName(const char* pattern, uint32_t attempt, char* out, bool* exclusive);

private:
    uint32_t open();
    void closeStream();
    void writeSeconds(int64_t ticks);
    uint32_t writeFormat(const char* path, int32_t indent, const char* format, ...);
    // What one line of the control file asks for, applied.
    void controlLine(const TraceControlLineT& line);

    TraceControllerI* controller;
    FILE* stream;
    char* filename;
    uint8_t timeOfDay;
    uint8_t timestamp;
    uint8_t timeDeltas;
    uint8_t traceCounters;
    uint8_t traceTimers;
    uint8_t showClass;
    int64_t firstTick;
    int64_t lastTick;
    uint64_t ticksPerSecond;
    int32_t flushFrequency;
    int32_t linesUnflushed;
    int32_t maxIndent;
    int32_t maxDetail;
    uint8_t showProcess;
    uint8_t showThreads;
    char** patterns;
    uint32_t patternCount;
    uint32_t patternCapacity;
};

}  // namespace keel

#endif
