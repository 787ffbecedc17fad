// Trimming a string in place: characters of a set are taken off its start
// (trimLeft) or its end (trimRight).
//
//     StringC line = ...;
//     trimRight(line, StringC(" \t\r\n", "ascii"));
//
// The copying trim that gives a new string is trimString, with the scanners.
#ifndef KEEL_TEXT_TRIM_H
#define KEEL_TEXT_TRIM_H

#include <keel/string.h>

namespace keel {

// Erases the characters in front of the first one not in `set`; all of
// them when there is none. An empty string stays as it is.
void trimLeft(StringC& string, const StringC& set);

// Erases the characters behind the last one not in `set`; all of them when
// there is none. An empty string stays as it is.
void trimRight(StringC& string, const StringC& set);

}  // namespace keel

#endif
