// The table of the twelve load steps, run in order by one constructor of the
// first priority open to programs, and registerExitAction.
//
// Invariant: the steps run before every ordinary static initialiser, in table
// order; a step whose unit is not built is skipped (weak reference).
#include "frame/loadorder.h"

#include <keel/string.h>

extern "C" int __cxa_atexit(void (*action)(void*), void* argument, void* module);
extern "C" void* __dso_handle;

namespace keel {

// A unit that is not part of the build leaves its step function undefined;
// the weak references resolve to null and the runner skips that step. Every
// unit that exists defines its function normally and the reference binds
// to it.
void loadStepFileserv() __attribute__((weak));
void loadStepLocale() __attribute__((weak));
void loadStepTracing() __attribute__((weak));
void loadStepTracecim() __attribute__((weak));
void loadStepError() __attribute__((weak));
void loadStepErrimpl() __attribute__((weak));
void loadStepPrefs() __attribute__((weak));
void loadStepTextwriter() __attribute__((weak));
void loadStepLatch() __attribute__((weak));
void loadStepArglist() __attribute__((weak));
void loadStepStrtoken() __attribute__((weak));
void loadStepTextencoding() __attribute__((weak));

namespace {

int completedSteps = 0;

// The string factory is made by the first string of the process, which is
// the first constant of step 8. Asking for it here as well keeps that true
// whatever step 8 builds, so the factory always exists before a second
// thread can ask for it.
void makeStringFactory() { getStringFactory(); }

void runLoadSteps() {
    typedef void (*StepFn)();
    StepFn const steps[] = {
        loadStepFileserv, loadStepLocale,   loadStepTracing,      loadStepTracecim,   loadStepError,
        loadStepErrimpl,  loadStepPrefs,    makeStringFactory,    loadStepTextwriter, loadStepLatch,
        loadStepArglist,  loadStepStrtoken, loadStepTextencoding,
    };
    for (StepFn step : steps) {
        if (step) step();
        if (step != makeStringFactory) ++completedSteps;
    }
}

// Priority 101 is the first one open to programs, so the steps run before
// every ordinary static initialiser of the library (and, when the library is
// linked statically, of the program).
__attribute__((constructor(101))) void loadLibrary() { runLoadSteps(); }

}  // namespace

void registerExitAction(ExitActionFn action, void* argument) {
    __cxa_atexit(action, argument, &__dso_handle);
}

int loadStepsCompleted() { return completedSteps; }

}  // namespace keel
