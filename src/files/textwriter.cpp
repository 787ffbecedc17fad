#include "files/textwriter.h"

#include <new>

#include "frame/loadorder.h"
#include "text/replace.h"

namespace keel {

namespace {

// Raw storage: the strings are constructed by the load step, not by a static
// initialiser, and released by exit actions in reverse order.
alignas(StringC) unsigned char crLfStorage[sizeof(StringC)];
alignas(StringC) unsigned char crStorage[sizeof(StringC)];
alignas(StringC) unsigned char lfStorage[sizeof(StringC)];

void releaseString(void* storage) { static_cast<StringC*>(storage)->~StringC(); }

}  // namespace

void loadStepTextwriter() {
    new (crLfStorage) StringC("\r\n", "ascii");
    registerExitAction(releaseString, crLfStorage);
    new (crStorage) StringC(uint32_t(13));
    registerExitAction(releaseString, crStorage);
    new (lfStorage) StringC(uint32_t(10));
    registerExitAction(releaseString, lfStorage);
}

const StringC& crLfString() { return *reinterpret_cast<StringC*>(crLfStorage); }
const StringC& crString() { return *reinterpret_cast<StringC*>(crStorage); }
const StringC& lfString() { return *reinterpret_cast<StringC*>(lfStorage); }

TextWriterC::TextWriterC() : lineEnd(lfString()) {}

StringC TextWriterC::convertLineEnds(const StringC& text) const {
    StringC result = replaceString(text, crLfString(), lfString(), true, -1, false);
    result = replaceString(result, crString(), lfString(), true, -1, false);
    return replaceString(result, lfString(), lineEnd, true, -1, false);
}

}  // namespace keel
