// The configuration service of the process and its latch.
//
// Invariants: the latch is a function-local static made on the first call,
// whatever the version, and destroyed at exit in its turn; the one
// ConfigurationIniC is made under it and never destroyed, so that a pointer
// handed out stays valid through exit.
#include "config/configuration.h"

#include <keel/atomic.h>

#include "frame/latch.h"
#include "frame/nodestroy.h"

namespace keel {

namespace {

// Written under the latch only; never destroyed, like what it points to.
AtomicM<ConfigurationIniC*>& theConfiguration() {
    static NoDestroyM<AtomicM<ConfigurationIniC*>> cell;
    return *cell;
}

}  // namespace

ConfigurationIniC* configurationInstance(int version) {
    static LatchC latch(LatchC::Recursive);
    if (version < 1 || version > 2) return nullptr;
    LatchGuardC guard(latch);
    ConfigurationIniC* configuration = theConfiguration().load();
    if (!configuration) {
        configuration = new ConfigurationIniC;
        theConfiguration().exchange(configuration);
    }
    return configuration;
}

ConfigurationIniC* existingConfiguration() { return theConfiguration().load(); }

}  // namespace keel
