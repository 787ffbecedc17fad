// Rebuilding strings by simple rules: replacing text, translating single
// characters, and case conversion in place or into a copy.
//
//     #include <keel/replace.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     StringC path = keel::replaceString(raw, StringC("\\", "ascii"), StringC("/", "ascii"),
//                                        true, -1, false);
//     StringC key = keel::upperCaseCopy(name);
//     if (keel::equalsNoCase(a, b)) { ... }
//
// All of them but lowerCase and upperCase leave their source alone and may be
// called on a string that other threads read.
#ifndef KEEL_REPLACE_H
#define KEEL_REPLACE_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

// Equal length and StringC::compareNoCase answers 0.
bool equalsNoCase(const StringC& first, const StringC& second);

// Case conversion of `string` itself, through its own (unshared) representation.
void lowerCase(StringC& string);
void upperCase(StringC& string);
// The same into a new string.
StringC lowerCaseCopy(const StringC& string);
StringC upperCaseCopy(const StringC& string);

// `source` with the first occurrence of `find` behind `startIndex` (-1 for
// the start, as StringC::find) replaced by `replacement`; with `all` every
// occurrence, each search resuming behind the text just put in, so a
// replacement that contains `find` is not searched again. `ignoreCase`
// compares the upper-case forms.
StringC replaceString(const StringC& source, const StringC& find, const StringC& replacement,
                      bool all, int32_t startIndex, bool ignoreCase);

// `source` with the first character behind `startIndex` that occurs in
// `from` replaced by the character at the same place in `to` (with `all`,
// every such character). When the two differ in length, the caller's `from`
// is cut to the length of `to` and stays cut. Each search continues behind
// the character just replaced, so a `to` that maps back into `from` ends.
StringC translateChars(const StringC& source, StringC& from, const StringC& to, bool all,
                       int32_t startIndex);

}  // namespace keel

#endif
