// Duplicating plain 8-bit text onto the heap.
//
//     #include <keel/strdup.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     char* copy = keel::duplicateText(name);   // null for a null name
//     ...
//     delete[] copy;
#ifndef KEEL_STRDUP_H
#define KEEL_STRDUP_H

namespace keel {

// A new copy of `text` with its terminator, made with array new (free it with
// delete[]). A null text gives null. Texts longer than 16 MiB are cut there.
char* duplicateText(const char* text);

}  // namespace keel

#endif
