// Splitting a string into pieces at any character of a separator set.
//
//     #include <keel/split.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     StringArrayC* parts = keel::splitString(line, StringC(",", "ascii"), true, false, '\\');
//     ...
//     delete parts;
//
// "a, b ,c" gives "a", "b", "c" with trimming; "a\,b" with the escape "\" is
// one piece that keeps its backslash.
#ifndef KEEL_SPLIT_H
#define KEEL_SPLIT_H

#include <stdint.h>

#include <keel/string.h>

#include <keel/stringar.h>

namespace keel {

// Values of `escape` whose low 16 bits are 0xFFFE or 0xFFFF: no escape.
const uint32_t kNoEscape = 0xFFFF;

// A new array, owned by the caller, of the pieces of `text` between the
// characters of `separators`. With `trim` each piece loses the blanks and
// tabs at its ends. Empty pieces are kept only with `keepEmpty`. A separator
// directly behind the `escape` character does not split (the escape stays in
// the piece). An empty text gives an empty array.
StringArrayC* splitString(const StringC& text, const StringC& separators, bool trim,
                          bool keepEmpty, uint32_t escape);

}  // namespace keel

#endif
