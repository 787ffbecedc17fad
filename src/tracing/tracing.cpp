#include "tracing/tracing.h"

#include <new>

#include "frame/loadorder.h"
#include "tracing/tracer.h"

namespace keel {

namespace {

alignas(LatchC) unsigned char tracerLatchStorage[sizeof(LatchC)];

void destroyTracerLatch(void*) { reinterpret_cast<LatchC*>(tracerLatchStorage)->~LatchC(); }

// The one tracer: made once, never destroyed, so trace points and consumers
// may still use it during exit.
TracerC* theTracer = nullptr;

}  // namespace

void loadStepTracing() {
    new (tracerLatchStorage) LatchC(LatchC::ErrorChecking);
    registerExitAction(destroyTracerLatch, nullptr);
}

LatchC& tracerLatch() { return *reinterpret_cast<LatchC*>(tracerLatchStorage); }

TracerC* tracerInstance() {
    // Once the tracer exists the pointer never changes, so a set cell is
    // the answer without the latch; only its creation is serialised.
    TracerC* tracer = __atomic_load_n(&theTracer, __ATOMIC_ACQUIRE);
    if (tracer) return tracer;
    LatchGuardC guard(tracerLatch());
    tracer = __atomic_load_n(&theTracer, __ATOMIC_ACQUIRE);
    if (!tracer) {
        tracer = new TracerC();
        __atomic_store_n(&theTracer, tracer, __ATOMIC_RELEASE);
    }
    return tracer;
}

}  // namespace keel
