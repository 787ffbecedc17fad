// The library's exported entry points. Only these plain names are visible
// outside the shared object (see keel.map); everything else is reached
// through the interfaces they hand out.
#include <keel/string.h>

#include "text/string.h"

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
