#include "files/textwriter.h"

#include <new>

#include "frame/loadorder.h"
#include "frame/nodestroy.h"
#include <keel/replace.h>

namespace keel {

namespace {

// Storage made in place: the strings are constructed by the load step, not by
// a static initialiser, and released by exit actions in reverse order.
InPlaceM<StringC> crLfStorage;
InPlaceM<StringC> crStorage;
InPlaceM<StringC> lfStorage;

void releaseString(void* storage) { static_cast<InPlaceM<StringC>*>(storage)->destroy(); }

}  // namespace

void loadStepTextwriter() {
    crLfStorage.make("\r\n", "ascii");
    registerExitAction(releaseString, &crLfStorage);
    crStorage.make(uint32_t(13));
    registerExitAction(releaseString, &crStorage);
    lfStorage.make(uint32_t(10));
    registerExitAction(releaseString, &lfStorage);
}

const StringC& crLfString() { return *crLfStorage; }
const StringC& crString() { return *crStorage; }
const StringC& lfString() { return *lfStorage; }

TextWriterC::TextWriterC() : lineEnd(lfString()) {}

StringC TextWriterC::convertLineEnds(const StringC& text) const {
    StringC result = replaceString(text, crLfString(), lfString(), true, -1, false);
    result = replaceString(result, crString(), lfString(), true, -1, false);
    return replaceString(result, lfString(), lineEnd, true, -1, false);
}

}  // namespace keel
