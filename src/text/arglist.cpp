#include "text/arglist.h"

#include <new>

#include "frame/loadorder.h"

namespace keel {

namespace {

// Raw storage, so that the handle is made by the load step (and not by
// whatever order the static initialisers happen to run in) and released by
// the exit action the step registers. Static storage starts zeroed, which is
// the null cell of an empty list, so even a read before the step answers
// "no entries".
alignas(ArgListC) unsigned char emptyStorage[sizeof(ArgListC)];

ArgListC* emptyHandle() { return reinterpret_cast<ArgListC*>(emptyStorage); }

void releaseEmptyArgList(void*) { emptyHandle()->~ArgListC(); }

}  // namespace

const ArgListC& emptyArgList() { return *emptyHandle(); }

void loadStepArglist() {
    new (emptyStorage) ArgListC();
    registerExitAction(releaseEmptyArgList, nullptr);
}

}  // namespace keel
