#include "tracing/tracer.h"

#include <stdarg.h>
#include <unistd.h>

#include <keel/format.h>

#include <keel/strdup.h>

namespace keel {

TracerC::TracerC() : indent(0), fileConsumer(new TraceConsumerFileC(this)) {
    addConsumer(fileConsumer, 0, 9);
}

// Never run in practice (the tracer lives to the end of the process); the
// controller's destructor empties the tree. Consumers that others added are
// theirs to delete; the file consumer is the tracer's own.
TracerC::~TracerC() {
    removeConsumer(fileConsumer);
    delete fileConsumer;
}

uint32_t TracerC::init(const char* newName, const char* controlFile, const char* newInfo) {
    LatchGuardC guard(traceControlLatch());
    if (newName) {
        delete[] name;
        name = duplicateText(newName);
    }
    if (newInfo) {
        delete[] info;
        info = duplicateText(newInfo);
    }
    processId = static_cast<uint32_t>(getpid());
    if (!controlFile) return 0;
    // A control file that cannot be read leaves tracing as it was.
    fileConsumer->readControlFile(controlFile);
    int32_t level = 9;
    fileConsumer->getMaxDetail(&level);
    setConsumerLevel(fileConsumer, level);
    return 0;
}

uint32_t TracerC::reserved1() { return 0; }

TraceDefaultConsumerI* TracerC::getDefaultConsumer() { return fileConsumer; }

void TracerC::reserved2() {}

uint32_t TracerC::isEnabled(const char* path, TraceValuesT** handle) {
    if (handle) {
        if (TraceValuesT* values = atomicLoadAcquire(handle)) {
            return atomicLoadRelaxed(&values->active);
        }
    }
    TraceControlVarC* variable = findVariable(path);
    if (!variable) return 0;
    // Racing threads store the same pointer: a path's variable never changes.
    if (handle) atomicStoreRelease(handle, static_cast<TraceValuesT*>(variable));
    return atomicLoadRelaxed(&variable->active);
}

uint32_t TracerC::trace(const char* path, TraceValuesT** handle, const char* format,
                        ArgListC args) {
    if (!handle) return 0;
    uint32_t mask = isEnabled(path, handle);
    if (mask == 0) return 0;
    // A list held on the caller's stack (traceLine's) is good for this call
    // only. The tracer's own file consumer renders it and keeps nothing, so
    // it reads it in place; any other consumer may keep what it receives,
    // and they all get one list on the heap with the same entries, made at
    // the first of them.
    bool onStack = ArgListStackBodyC::isOnStack(args);
    ArgListC kept;
    bool keptMade = false;
    LatchGuardC guard(traceControlLatch());
    int32_t lineIndent = currentIndent();
    // Read by index on every turn: a consumer may add or remove consumers
    // from inside write.
    for (uint32_t i = 0; i < TraceConsumerArrayC::size(); ++i) {
        if (!(mask & (1u << (i % 32)))) continue;
        TraceConsumerI* consumer = at(i)->consumer;
        if (!consumer) continue;
        const ArgListC* passed = &args;
        if (onStack && consumer != fileConsumer) {
            if (!keptMade) {
                kept = static_cast<ArgListStackBodyC*>(args.getImpl())->toList();
                keptMade = true;
            }
            passed = &kept;
        }
        // A consumer that fails once is out for good.
        if (consumer->write(path, lineIndent, format, *passed) != 0) removeConsumer(consumer);
    }
    return 1;
}

uint32_t TracerC::traceFormat(const char* path, TraceValuesT** handle, const char* format, ...) {
    if (!format) format = "";
    va_list arguments;
    va_start(arguments, format);
    uint32_t passed = trace(path, handle, format, argListFromText(format, arguments));
    va_end(arguments);
    return passed;
}

uint32_t TracerC::enter(const char* path, TraceValuesT** handle) {
    if (isEnabled(path, handle) == 0) return 0;
    atomicAddRelaxed(&indent, 1);
    return 1;
}

void TracerC::leave() { atomicAddRelaxed(&indent, -1); }

TraceControlVarC* TracerC::variableOf(const char* path, TraceValuesT** handle) {
    if (handle) {
        if (TraceValuesT* values = atomicLoadAcquire(handle)) {
            return static_cast<TraceControlVarC*>(values);
        }
    }
    TraceControlVarC* variable = findVariable(path);
    if (variable && handle) atomicStoreRelease(handle, static_cast<TraceValuesT*>(variable));
    return variable;
}

uint32_t TracerC::count(const char* path, TraceValuesT** handle, int32_t delta) {
    TraceControlVarC* variable = variableOf(path, handle);
    if (!variable) return 0;
    // Atomic but unordered: a counter shared by threads loses nothing, and
    // nothing else is ordered by it.
    atomicAddRelaxed(&variable->counter, delta);
    notifyValueChanged(path, currentIndent());
    return 0;
}

uint32_t TracerC::uncount(const char* path, TraceValuesT** handle, int32_t delta) {
    // The negation of the most negative delta is itself, in 32-bit arithmetic.
    return count(path, handle, static_cast<int32_t>(0u - static_cast<uint32_t>(delta)));
}

uint32_t TracerC::startTimer(const char* path, TraceValuesT** handle) {
    TraceControlVarC* variable = variableOf(path, handle);
    if (!variable) return 0;
    int64_t now = 0;
    if (getTime(&now) == 0) variable->started = now;
    return 1;
}

void TracerC::stopTimer(const char* path, TraceValuesT** handle) {
    if (!handle) return;
    TraceValuesT* values = atomicLoadAcquire(handle);
    if (!values) return;
    // A timer is meant for one thread at a time: `started` and `total` are
    // plain fields (64-bit, and only 4-byte aligned on i386).
    int64_t started = values->started;
    if (started == 0) return;
    int64_t now = 0;
    getTime(&now);
    values->total += now - started;
    notifyValueChanged(path, currentIndent());
    values->started = 0;
}

uint32_t TracerC::getValues(const char* path, TraceValuesT** handle, int32_t* counter,
                            int64_t* total, uint64_t* ticksPerSecond) {
    TraceControlVarC* variable = variableOf(path, handle);
    if (!variable) return 0;
    if (counter) *counter = atomicLoadRelaxed(&variable->counter);
    if (total) *total = variable->total;
    if (ticksPerSecond) getTicksPerSecond(ticksPerSecond);
    return 1;
}

}  // namespace keel
