#include "tracing/tracing.h"

#include <new>

#include "frame/loadorder.h"
#include "frame/nodestroy.h"
#include "tracing/tracer.h"

namespace keel {

namespace {

InPlaceM<LatchC> tracerLatchStorage;

void destroyTracerLatch(void*) { tracerLatchStorage.destroy(); }

}  // namespace

void loadStepTracing() {
    tracerLatchStorage.make(LatchC::ErrorChecking);
    registerExitAction(destroyTracerLatch, nullptr);
}

LatchC& tracerLatch() { return *tracerLatchStorage; }

TracerC* tracerInstance() {
    // The one tracer: made once, never destroyed, so trace points and
    // consumers may still use it during exit.
    static NoDestroyM<TracerC> tracer;
    return tracer.get();
}

}  // namespace keel
