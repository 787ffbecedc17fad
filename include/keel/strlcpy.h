// Bounded copying of plain 8-bit text.
//
// copyTextBounded copies as much of a text as fits into a buffer, always
// terminates it, and answers the length of the whole source, so a caller
// tells a cut copy by a result that is not below the buffer's size:
//
//     #include <keel/strlcpy.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     char name[64];
//     if (keel::copyTextBounded(name, source, sizeof name) >= sizeof name) { ... cut ... }
#ifndef KEEL_STRLCPY_H
#define KEEL_STRLCPY_H

#include <stddef.h>
#include <stdint.h>

namespace keel {

// The longest text the 8-bit helpers measure; longer texts count as this long.
const size_t kMaxMeasuredText = 0x1000000;

// Length of `text`, counting at most kMaxMeasuredText bytes.
size_t measureText(const char* text);

// Copies up to size - 1 bytes of `source` into `destination` and terminates
// it. A null source answers 0; a null destination or a size of 0 copies
// nothing. The answer is the length of `source`.
size_t copyTextBounded(char* destination, const char* source, size_t size);

}  // namespace keel

#endif
