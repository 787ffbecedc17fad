// The library's exported entry points. Only these plain names are visible
// outside the shared object (see keel.map); everything else is reached
// through the interfaces they hand out.
#include <keel/config.h>
#include <keel/errors.h>
#include <keel/locale.h>
#include <keel/string.h>
#include <keel/trace.h>

#include "config/configuration.h"
#include "errors/errimpl.h"
#include "frame/nodestroy.h"
#include "locale/locale.h"
#include "text/string.h"
#include "tracing/tracer.h"

// Made by the first string of the process, at load, while one thread runs;
// never destroyed, so strings stay usable through exit.
extern "C" KEEL_EXPORT keel::StringImplFactoryI* getStringFactory() {
    static keel::NoDestroyM<keel::StringImplFactoryC> factory;
    return factory.get();
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

extern "C" KEEL_EXPORT keel::LocaleI* getLocale(keel::StringC& name) {
    return keel::localeOfProcess(name);
}

extern "C" KEEL_EXPORT keel::ConfigurationI* getConfiguration(int version) {
    return keel::configurationInstance(version);
}
