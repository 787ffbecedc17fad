// The shared empty argument list: made by the load step, released by its exit
// action. The rest of ArgListC is inline in <keel/arglist.h>.
//
// Invariant: the storage is zero before the step, which reads as a list with
// no entries.
#include "text/arglist.h"

#include <new>

#include "frame/loadorder.h"
#include "frame/nodestroy.h"

namespace keel {

namespace {

// Storage made in place, so that the handle is made by the load step (and not by
// whatever order the static initialisers happen to run in) and released by
// the exit action the step registers. Static storage starts zeroed, which is
// the null cell of an empty list, so even a read before the step answers
// "no entries".
InPlaceM<ArgListC> emptyStorage;

void releaseEmptyArgList(void*) { emptyStorage.destroy(); }

}  // namespace

const ArgListC& emptyArgList() { return *emptyStorage; }

void loadStepArglist() {
    emptyStorage.make();
    registerExitAction(releaseEmptyArgList, nullptr);
}

}  // namespace keel
