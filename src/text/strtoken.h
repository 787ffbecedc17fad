// Trimming a set of characters from both ends of a string, and the system's
// default set of blanks (space and tab).
//
//     StringC value = keel::trimString(raw, keel::defaultTrimSet());
//
// The default set is built at load time, before any program code runs, and
// released at exit.
#ifndef KEEL_TEXT_STRTOKEN_H
#define KEEL_TEXT_STRTOKEN_H

#include <keel/string.h>

namespace keel {

// A new string: `source` without the characters of `set` at either end. A
// text made only of such characters gives the empty string.
StringC trimString(const StringC& source, const StringC& set);

// The process-wide default trim set, " \t".
const StringC& defaultTrimSet();

}  // namespace keel

#endif
