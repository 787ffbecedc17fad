// Case-blind comparison of plain 8-bit text by the C library's case rules
// (ASCII in the default locale). Used where names from the system are
// compared without regard to case.
//
//     #include <keel/stricmp.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     if (keel::compareTextNoCase(name, "README") == 0) { ... }   // "readme" matches
#ifndef KEEL_STRICMP_H
#define KEEL_STRICMP_H

namespace keel {

// Negative, 0 or positive as `first` sorts before, equal to or after
// `second` with upper-case letters folded to lower case. At the end of
// either text the answer is the difference of the two current bytes.
int compareTextNoCase(const char* first, const char* second);

}  // namespace keel

#endif
