// Tracing: trace points, the tracer, the trace controller and consumers.
//
// A trace point is a static pair of a handle cell and a path. The first test
// of the point finds (or creates) the path's control variable and caches its
// address in the cell; every later test is two loads and one compare, with
// no call and no lock:
//
//     static keel::TracePointT point = {nullptr, "Net/Socket/Open"};
//     if (keel::traceActive(point)) keel::traceLine(point, "opened %s", name);
//
// A path may start with a detail digit 0 to 9 and an optional comma
// ("0Error/Catalog/Open", "0,Error/..."); the digit is the variable's detail
// level (1 without one) and is not part of its name. Control variables form a
// tree that mirrors the path; what is traced, and who receives it, is decided
// through TraceControllerI by code that adds consumers and enables paths.
//
// getTracer hands out an untyped pointer because its answer is a different
// interface by version: use tracerI() and tracerV1I() below.
#ifndef KEEL_TRACE_H
#define KEEL_TRACE_H

#include <stdint.h>

#include <keel/arglist.h>
#include <keel/format.h>
#include <keel/string.h>

namespace keel {

// The public record of a control variable. The mask comes first, so that a
// trace point's test is a load of the cell and a load of the first word.
struct TraceValuesT {
    uint32_t active;     // bit i: consumer i receives this path; computed, never set
    uint32_t enabled;    // bit i: on, for the consumers with a setting here
    uint32_t explicit_;  // bit i: this variable has a setting of its own for consumer i
    int16_t detail;      // detail level, 0 to 9
    int32_t counter;     // the counter of count()
    int64_t total;       // accumulated time in ticks
    int64_t started;     // tick at which the running timer started, 0 when none runs
};

// What the controller calls on a receiver of trace lines.
class TraceConsumerI {
public:
    // One line: `path` as the trace point gave it (prefix included), the
    // process-wide indentation, an 8-bit format and its arguments. An answer
    // other than 0 makes the controller drop the consumer for good.
    virtual uint32_t write(const char* path, int32_t indent, const char* format, ArgListC args) = 0;
    // The counter or the timer of `path` changed.
    virtual uint32_t valueChanged(const char* path, int32_t indent) = 0;
    // A control variable was made for `path`; the consumer may enable it.
    virtual uint32_t variableCreated(const char* path) = 0;

protected:
    ~TraceConsumerI() {}
};

// What can be set on the consumer that comes with the tracer.
class TraceDefaultConsumerI : public TraceConsumerI {
public:
    virtual uint32_t setOption(const char* key, const char* value) = 0;
    virtual uint32_t setTimestamp(uint8_t on) = 0;
    virtual uint32_t setTimeDeltas(uint8_t on) = 0;
    virtual uint32_t setTraceTimers(uint8_t on) = 0;
    virtual uint32_t setTraceCounters(uint8_t on) = 0;
    virtual uint32_t setFilename(const char* pattern) = 0;
    virtual uint32_t setFlushFrequency(int32_t lines) = 0;
    virtual uint32_t setMaxIndent(int32_t blanks) = 0;
    virtual uint32_t setMaxDetail(int32_t level) = 0;

protected:
    ~TraceDefaultConsumerI() {}
};

// The face for code that traces (getTracer with any version but 1).
// `handle` is the trace point's cell; it may be null where noted.
class TracerI {
public:
    // Stores `name` and `info` (null keeps the old ones) and the process id;
    // with a control file, has the default consumer read it. Answers 0.
    virtual uint32_t init(const char* name, const char* controlFile, const char* info) = 0;
    virtual uint32_t reserved1() = 0;
    virtual TraceDefaultConsumerI* getDefaultConsumer() = 0;
    virtual void reserved2() = 0;
    // The `active` mask of the path; fills the cell when one is given.
    virtual uint32_t isEnabled(const char* path, TraceValuesT** handle) = 0;
    // Hands the line to every consumer in the mask: 1 if it was passed on.
    // A null handle never traces.
    virtual uint32_t trace(const char* path, TraceValuesT** handle, const char* format,
                           ArgListC args) = 0;
    // 1 and one more level of indentation when the path is enabled, else 0.
    virtual uint32_t enter(const char* path, TraceValuesT** handle) = 0;
    // One level less; call it only after an enter that gave 1.
    virtual void leave() = 0;
    virtual uint32_t count(const char* path, TraceValuesT** handle, int32_t delta) = 0;
    virtual uint32_t uncount(const char* path, TraceValuesT** handle, int32_t delta) {
        return count(path, handle, -delta);
    }
    virtual uint32_t startTimer(const char* path, TraceValuesT** handle) = 0;
    virtual void stopTimer(const char* path, TraceValuesT** handle) = 0;
    virtual uint32_t getValues(const char* path, TraceValuesT** handle, int32_t* counter,
                               int64_t* total, uint64_t* ticksPerSecond) = 0;

protected:
    ~TracerI() {}
};

// The older face (getTracer(1)): the sixth operation takes its arguments in
// variadic form, and there is no getValues.
class TracerV1I {
public:
    virtual uint32_t init(const char* name, const char* controlFile, const char* info) = 0;
    virtual uint32_t reserved1() = 0;
    virtual TraceDefaultConsumerI* getDefaultConsumer() = 0;
    virtual void reserved2() = 0;
    virtual uint32_t isEnabled(const char* path, TraceValuesT** handle) = 0;
    virtual uint32_t traceFormat(const char* path, TraceValuesT** handle, const char* format,
                                 ...) = 0;
    virtual uint32_t enter(const char* path, TraceValuesT** handle) = 0;
    virtual void leave() = 0;
    virtual uint32_t count(const char* path, TraceValuesT** handle, int32_t delta) = 0;
    virtual uint32_t uncount(const char* path, TraceValuesT** handle, int32_t delta) = 0;
    virtual uint32_t startTimer(const char* path, TraceValuesT** handle) = 0;
    virtual void stopTimer(const char* path, TraceValuesT** handle) = 0;

protected:
    ~TracerV1I() {}
};

// The face for code that decides what is traced and who receives it.
// Consumers are numbered by their slot; a slot's bit is theirs in all masks.
class TraceControllerI {
public:
    // Takes the first free slot (or a new one) for `consumer` and sets its
    // detail budget. `reserved` is ignored. 0 or 0xE0150002.
    virtual uint32_t addConsumer(TraceConsumerI* consumer, uintptr_t reserved, int32_t level) = 0;
    // Frees the consumer's slot; 0 or 0xE0150003 when it has none.
    virtual uint32_t removeConsumer(TraceConsumerI* consumer) = 0;
    // The detail budget, clamped to 0 to 9.
    virtual uint32_t setConsumerLevel(TraceConsumerI* consumer, int32_t level) = 0;
    // A setting of the consumer's own on `path`: on, off, or none (inherit).
    virtual uint32_t enablePath(TraceConsumerI* consumer, const char* path) = 0;
    virtual uint32_t disablePath(TraceConsumerI* consumer, const char* path) = 0;
    virtual uint32_t inheritPath(TraceConsumerI* consumer, const char* path) = 0;
    // The path's record (made if needed); it stays valid for the life of the tracer.
    virtual uint32_t getVariable(const char* path, TraceValuesT** result) = 0;
    // Copies enabled, explicit_, counter, total and detail (clamped) in.
    virtual uint32_t setVariable(const char* path, const TraceValuesT* values) = 0;
    // These two never create a variable.
    virtual uint32_t getChildCount(const char* path, uint32_t* result) = 0;
    virtual uint32_t getChildName(const char* path, int32_t index, const char** result) = 0;
    // Microseconds since the tracer was made; 0 or 0xE0150005.
    virtual uint32_t getTime(int64_t* ticks) = 0;
    virtual uint32_t getTicksPerSecond(uint64_t* result) = 0;
    virtual uint32_t getName(const char** result) = 0;
    virtual uint32_t getProcessId(uint32_t* result) = 0;
    virtual uint32_t getInfo(const char** result) = 0;

protected:
    ~TraceControllerI() {}
};

}  // namespace keel

// The tracer, created on first use and never destroyed: the TracerV1I face
// for 1, the TracerI face for any other version (use the typed helpers).
extern "C" KEEL_EXPORT void* getTracer(int version);
// The controller face of the same object.
extern "C" KEEL_EXPORT keel::TraceControllerI* getTraceController();

namespace keel {

inline TracerI* tracerI() { return static_cast<TracerI*>(getTracer(2)); }
inline TracerV1I* tracerV1I() { return static_cast<TracerV1I*>(getTracer(1)); }

// A trace point: keep one static per place that traces.
struct TracePointT {
    TraceValuesT* handle;  // null until the first test
    const char* path;
};

// The point's `active` mask. With the cell filled this is a load of the
// cell, a load of the mask and a test: no call, no lock.
inline uint32_t traceActive(TracePointT& point) {
    TraceValuesT* values = atomicLoadAcquire(&point.handle);
    if (__builtin_expect(values != nullptr, 1)) return atomicLoadRelaxed(&values->active);
    return tracerI()->isEnabled(point.path, &point.handle);
}

// The argument list of an 8-bit format and its variadic block, as
// ArgListC::fromFormat makes it, read straight from the format's bytes:
// conversions are ASCII, so the string that fromFormat would decode first
// is not needed to find them. A null format takes nothing.
inline ArgListC argListFromText(const char* format, va_list arguments) {
    formatparse::PositionTableT table;
    if (format) formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>(format));
    if (table.top < 0) return ArgListC();
    va_list copy;
    va_copy(copy, arguments);
    ArgListC list = formatparse::takeArguments(table, copy);
    va_end(copy);
    return list;
}

// The tracer adds its own file consumer first, so it is consumer 0 and
// this is its bit in the masks (unless a program removed it and another
// consumer took its place).
const uint32_t kTraceOwnConsumerBit = 1;

// `trace` with the arguments that `format` names in `arguments` (which stay
// unread), held on this call's stack (ArgListStackBodyC) where they fit, so
// that nothing is allocated: the tracer's own file consumer reads them in
// place, and a consumer that might keep the list is handed a copy on the
// heap. Where they do not fit, they go into a list on the heap.
inline uint32_t traceOnStack(TracerI* tracer, const char* path, TraceValuesT** handle,
                             const char* format, va_list arguments) {
    ArgListStackBodyC body;
    va_list copy;
    va_copy(copy, arguments);
    bool fits = body.take(format, copy);
    va_end(copy);
    // The handle is made in the argument's place: no copy on the way.
    if (fits) return tracer->trace(path, handle, format, body.handle());
    return tracer->trace(path, handle, format, argListFromText(format, arguments));
}

// A line at the point, formatted like formatString; the arguments are only
// looked at when the point is active. A line for the tracer's own file
// consumer alone holds them on the stack; a line that another consumer
// receives, which may keep them, builds the list on the heap at once (the
// list the tracer would otherwise copy them into for it).
inline uint32_t traceLine(TracePointT& point, const char* format, ...) {
    uint32_t active = traceActive(point);
    if (!active) return 0;
    va_list arguments;
    va_start(arguments, format);
    uint32_t passed = active == kTraceOwnConsumerBit
                          ? traceOnStack(tracerI(), point.path, &point.handle, format, arguments)
                          : tracerI()->trace(point.path, &point.handle, format,
                                             argListFromText(format, arguments));
    va_end(arguments);
    return passed;
}

}  // namespace keel

#endif
