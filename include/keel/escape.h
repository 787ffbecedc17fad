// Joining arrays of strings, and escaping and unescaping characters in text.
//
// escapeString puts an escape character in front of every special character
// (and in front of every escape character itself); unescapeString takes the
// escapes out again, so the two make a round trip:
//
//     #include <keel/escape.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     StringC specials(";", "ascii");
//     StringC safe = escapeString(text, specials, '\\');   // specials is now ";\"
//     StringC back = unescapeString(safe, '\\');            // equals text
//
//     StringC line = joinEscaped(fields, StringC(";", "ascii"), ';');
#ifndef KEEL_ESCAPE_H
#define KEEL_ESCAPE_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

class StringArrayC;

// The elements of `array` with `separator` between them; an empty array
// gives the empty string.
StringC joinStrings(const StringArrayC& array, const StringC& separator);

// As joinStrings, but each element is first escaped with the specials
// `special` and the escape character U+005C (see escapeString).
StringC joinEscaped(const StringArrayC& array, const StringC& separator, uint32_t special);

// `escape` is appended to the caller's `specials` first, so the argument
// changes. Then a new string: every character of `source`, with `escape` in
// front of each one that occurs in `specials`.
StringC escapeString(const StringC& source, StringC& specials, uint32_t escape);

// A new string: each `escape` is dropped and the character behind it kept as
// it is, even when it is `escape` too. A lone `escape` at the end is dropped.
StringC unescapeString(const StringC& source, uint32_t escape);

}  // namespace keel

#endif
