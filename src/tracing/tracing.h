// The tracer latch: it guards the creation of the one tracer object.
#ifndef KEEL_TRACING_TRACING_H
#define KEEL_TRACING_TRACING_H

#include "frame/latch.h"

namespace keel {

// Made at load (error-checking), destroyed at exit.
LatchC& tracerLatch();

}  // namespace keel

#endif
