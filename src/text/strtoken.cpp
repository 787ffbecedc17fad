// The default trim set (space and tab), made by the load step and released
// by its exit action; the state that keeps strtoken out of the toolkit.
#include "text/strtoken.h"

#include <new>

#include "frame/loadorder.h"
#include "frame/nodestroy.h"

namespace keel {

namespace {

// The set lives in plain static storage (InPlaceM): a StringC object here would have a
// constructor of its own, which the compiler runs after the load steps and
// which would overwrite what the step built.
InPlaceM<StringC> trimSetStorage;

StringC& trimSet() { return *trimSetStorage; }

// Releases the set's text. The handle is left on the empty string rather
// than on freed memory, so a trim that still runs later in the exit trims
// nothing instead of reading a dead representation.
void releaseTrimSet(void*) { trimSet() = StringC(); }

}  // namespace

void loadStepStrtoken() {
    trimSetStorage.make(" \t", "system-8");
    registerExitAction(releaseTrimSet, nullptr);
}

const StringC& defaultTrimSet() { return trimSet(); }

}  // namespace keel
