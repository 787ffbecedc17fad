// Helper of ExitTest: releases string handles from an exit handler that runs
// after the library's empty string cache has been emptied at exit.
#include <keel/keel.h>

#include <stdio.h>
#include <stdlib.h>

namespace {

keel::StringC* lateEmpty = nullptr;
keel::StringC* lateText = nullptr;

void releaseLate() {
    // Registered before the cache came to be, so this runs after its exit
    // action.
    delete lateEmpty;
    delete lateText;
    // Handles made during exit still work, as empty strings.
    keel::StringC fresh;
    keel::StringC copy(fresh);
    copy = fresh;
    if (!fresh.isEmpty() || fresh.length() != 0) _Exit(3);
    fflush(stdout);
}

}  // namespace

int main() {
    if (atexit(releaseLate) != 0) return 2;
    lateEmpty = new keel::StringC();
    lateText = new keel::StringC("late", "utf8");
    keel::StringC secure;
    lateEmpty->append(secure);
    return lateEmpty->isEmpty() && lateText->length() == 4 ? 0 : 1;
}
