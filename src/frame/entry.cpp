// The library's exported entry points. Only these plain names are visible
// outside the shared object (see keel.map); everything else is reached
// through the interfaces they hand out.
#include <keel/errors.h>
#include <keel/locale.h>
#include <keel/string.h>
#include <keel/trace.h>

#include "errors/errimpl.h"
#include "locale/locale.h"
#include "text/string.h"
#include "tracing/tracer.h"

namespace {
// Made by the first string of the process, at load, while one thread runs;
// never destroyed, so strings stay usable through exit.
keel::StringImplFactoryI* stringFactory = nullptr;
}  // namespace

extern "C" KEEL_EXPORT keel::StringImplFactoryI* getStringFactory() {
    keel::StringImplFactoryI* factory = __atomic_load_n(&stringFactory, __ATOMIC_ACQUIRE);
    if (!factory) {
        factory = new keel::StringImplFactoryC();
        __atomic_store_n(&stringFactory, factory, __ATOMIC_RELEASE);
    }
    return factory;
}

extern "C" KEEL_EXPORT void* getTracer(int version) {
    keel::TracerC* tracer = keel::tracerInstance();
    // Version 1 is the older face; every other value, even a wrong one, the newest.
    if (version == 1) return tracer->v1Face();
    return tracer->tracerFace();
}

extern "C" KEEL_EXPORT keel::TraceControllerI* getTraceController() {
    return keel::tracerInstance()->controllerFace();
}

extern "C" KEEL_EXPORT keel::ErrBufI* getErrBuf() { return keel::threadErrBuf(); }

extern "C" KEEL_EXPORT keel::LocaleI* getLocale(keel::StringC& name) { return keel::localeOfProcess(name); }
