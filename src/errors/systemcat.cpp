#include "errors/systemcat.h"

#include <string.h>

#include "errors/error.h"
#include "frame/latch.h"
#include "frame/nodestroy.h"

namespace keel {

namespace {

// The system text latch: strerror may use one shared buffer.
LatchC& systemTextLatch() {
    static LatchC latch(LatchC::ErrorChecking);
    return latch;
}

}  // namespace

StringC ErrSystemCatalogC::fetch(uint32_t* severity, uint32_t code, const char*, const char*) {
    if (severity) *severity = 4;
    LatchC& latch = systemTextLatch();
    if (!errorHasText(code) || errorSet(code) != 0) return StringC();
    LatchGuardC guard(latch);
    return StringC(strerror(static_cast<int>(errorNumber(code))), "system-8");
}

uint32_t ErrSystemCatalogC::setQualifiers(StringC) { return 0; }

ErrSystemCatalogC* systemCatalog() {
    static NoDestroyM<ErrSystemCatalogC> catalog;
    return catalog.get();
}

}  // namespace keel
