// The library's start-up and exit order.
//
// Twelve load-time steps run in a fixed order when the library is loaded, one
// per source unit, because later units use what earlier ones set up. Each
// unit defines its step function below (in namespace keel); the table in
// loadorder.cpp calls them in step order from one constructor of the highest
// priority, before any other static initialiser of the library runs. A step
// whose unit is not part of the build is skipped.
//
// Exit actions are registered with registerExitAction. They go through
// __cxa_atexit with this library's module handle, so they run when the
// process exits or the library is unloaded, in exact reverse order of
// registration, interleaved correctly with the destructors of function-local
// statics (which the compiler registers the same way at their first use).
#ifndef KEEL_FRAME_LOADORDER_H
#define KEEL_FRAME_LOADORDER_H

namespace keel {

// The steps, in the order they run.
void loadStepFileserv();      //  1 current-file-service cell
void loadStepLocale();        //  2 locale latch and map of locales
void loadStepTracing();       //  3 tracer latch
void loadStepTracecim();      //  4 trace control latch
void loadStepError();         //  5 process-catalog cell
void loadStepErrimpl();       //  6 error thread key
void loadStepPrefs();         //  7 scratch thread key
void loadStepTextwriter();    //  8 line-end string constants (and the string factory)
void loadStepLatch();         //  9 latch ready flags back to false
void loadStepArglist();       // 10 shared empty argument list handle
void loadStepStrtoken();      // 11 default trim set
void loadStepTextencoding();  // 12 the two UTF-16 encoding objects

typedef void (*ExitActionFn)(void* argument);

// Registers `action(argument)` to run at exit (or unload), before every
// action registered earlier.
void registerExitAction(ExitActionFn action, void* argument);

// Registers the destruction of `object` (with delete) as an exit action.
template <typename T>
void registerExitDelete(T* object) {
    registerExitAction([](void* argument) { delete static_cast<T*>(argument); }, object);
}

// How many load steps have run (12 once load is complete; steps whose unit
// is absent count as run). For tests and assertions.
int loadStepsCompleted();

}  // namespace keel

#endif
