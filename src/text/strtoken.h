// The system's default set of blanks (space and tab) for trimming. The
// copying trim itself, trimString, is in <keel/trim.h>.
//
//     StringC value = keel::trimString(raw, keel::defaultTrimSet());
//
// The default set is built at load time, before any program code runs, and
// released at exit. It is one object per process, which is why it stays in
// the shared object and out of the toolkit.
#ifndef KEEL_TEXT_STRTOKEN_H
#define KEEL_TEXT_STRTOKEN_H

#include <keel/string.h>
#include <keel/trim.h>

namespace keel {

// The process-wide default trim set, " \t".
const StringC& defaultTrimSet();

}  // namespace keel

#endif
