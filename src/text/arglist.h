// The process-wide empty argument list: what code passes when a message or a
// format has no arguments.
//
//     reportSomething(code, text, emptyArgList());
//
// The handle is set up at load step 10 (loadStepArglist) and released at
// exit. Its cell stays null for the life of the process: it is handed out
// only as a const reference, and a copy that is appended to gets a body of
// its own, so the shared handle never holds entries.
#ifndef KEEL_TEXT_ARGLIST_H
#define KEEL_TEXT_ARGLIST_H

#include <keel/arglist.h>

namespace keel {

const ArgListC& emptyArgList();

// loadStepArglist (declared with the other steps in frame/loadorder.h) sets
// the handle to null and registers its release for exit.

}  // namespace keel

#endif
