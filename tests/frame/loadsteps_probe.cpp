// The load-step runner of the library with every step replaced by one that
// writes its number: linked with loadorder.cpp alone, so the real table and
// the real constructor run, and this program checks the order they ran in.
// Exit status 0 when every step ran once, in order, with the string factory
// made between steps 7 and 8; 1 otherwise (the order seen is on stderr).
#include <stdio.h>
#include <string.h>

#include "frame/loadorder.h"

#include <keel/string.h>

namespace {
// Plain zero-initialised data: written by the steps, which run before any
// dynamic initialiser.
char trace[64];
size_t traced = 0;
void mark(char c) {
    if (traced + 1 < sizeof trace) trace[traced++] = c;
}
}  // namespace

extern "C" keel::StringImplFactoryI* getStringFactory() {
    mark('F');
    return nullptr;
}

namespace keel {
void loadStepFileserv() { mark('a'); }
void loadStepLocale() { mark('b'); }
void loadStepTracing() { mark('c'); }
void loadStepTracecim() { mark('d'); }
void loadStepError() { mark('e'); }
void loadStepErrimpl() { mark('f'); }
void loadStepPrefs() { mark('g'); }
void loadStepTextwriter() { mark('h'); }
void loadStepLatch() { mark('i'); }
void loadStepArglist() { mark('j'); }
void loadStepStrtoken() { mark('k'); }
void loadStepTextencoding() { mark('l'); }
}  // namespace keel

int main() {
    const char expected[] = "abcdefgFhijkl";
    bool ok = traced == strlen(expected) && memcmp(trace, expected, traced) == 0 &&
              keel::loadStepsCompleted() == 12;
    if (!ok) fprintf(stderr, "load steps ran as \"%.*s\", expected \"%s\"\n", int(traced), trace, expected);
    return ok ? 0 : 1;
}
