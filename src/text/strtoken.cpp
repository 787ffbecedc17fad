#include "text/strtoken.h"

#include <new>

#include "frame/loadorder.h"

namespace keel {

namespace {

// The set lives in plain static storage: a StringC object here would have a
// constructor of its own, which the compiler runs after the load steps and
// which would overwrite what the step built.
alignas(StringC) unsigned char trimSetStorage[sizeof(StringC)];

StringC& trimSet() { return *reinterpret_cast<StringC*>(trimSetStorage); }

// Releases the set's text. The handle is left on the empty string rather
// than on freed memory, so a trim that still runs later in the exit trims
// nothing instead of reading a dead representation.
void releaseTrimSet(void*) { trimSet() = StringC(); }

}  // namespace

void loadStepStrtoken() {
    new (trimSetStorage) StringC(" \t", "system-8");
    registerExitAction(releaseTrimSet, nullptr);
}

const StringC& defaultTrimSet() { return trimSet(); }

}  // namespace keel
