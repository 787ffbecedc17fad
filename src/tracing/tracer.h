// TracerC: the one process-wide tracer, with its three faces: TracerI for
// code that traces, TraceControllerI (of its base) for code that decides what
// is traced, and the older TracerV1I, whose operations forward to the same
// implementation and hold no state of their own.
//
// Trace operations have no failure path for their callers: a path that names
// no variable (null, or longer than kTraceMaxPath) is simply off. Nothing here
// reports into the error buffer, so that error reporting can be traced
// without recursion.
#ifndef KEEL_TRACING_TRACER_H
#define KEEL_TRACING_TRACER_H

#include <keel/trace.h>

#include "tracing/tracecim.h"
#include "tracing/tracefil.h"

namespace keel {

class TracerC : public TracerI, public TraceControllerC, private TracerV1I {
public:
    TracerC();
    ~TracerC() override;

    uint32_t init(const char* name, const char* controlFile, const char* info) override;
    uint32_t reserved1() override;
    TraceDefaultConsumerI* getDefaultConsumer() override;
    void reserved2() override;
    uint32_t isEnabled(const char* path, TraceValuesT** handle) override;
    uint32_t trace(const char* path, TraceValuesT** handle, const char* format,
                   ArgListC args) override;
    uint32_t enter(const char* path, TraceValuesT** handle) override;
    void leave() override;
    uint32_t count(const char* path, TraceValuesT** handle, int32_t delta) override;
    uint32_t uncount(const char* path, TraceValuesT** handle, int32_t delta) override;
    uint32_t startTimer(const char* path, TraceValuesT** handle) override;
    void stopTimer(const char* path, TraceValuesT** handle) override;
    uint32_t getValues(const char* path, TraceValuesT** handle, int32_t* counter, int64_t* total,
                       uint64_t* ticksPerSecond) override;

    // Builds the argument list from the variadic block (whether or not the
    // path is on) and traces with it.
    uint32_t traceFormat(const char* path, TraceValuesT** handle, const char* format, ...) override;

    TracerI* tracerFace() { return this; }
    TracerV1I* v1Face() { return this; }
    TraceControllerI* controllerFace() { return this; }

    int32_t currentIndent() const { return atomicLoadRelaxed(&indent); }

private:
    // The path's variable through the cell (filled on the way) or by lookup.
    TraceControlVarC* variableOf(const char* path, TraceValuesT** handle);

    int32_t indent;
    // The file consumer the tracer makes for itself: consumer 0, with level
    // 9 until a control file sets its max_detail. It writes nothing until a
    // path is enabled for it.
    TraceConsumerFileC* fileConsumer;
};

// The one tracer, made under the tracer latch at the first call.
TracerC* tracerInstance();

}  // namespace keel

#endif
