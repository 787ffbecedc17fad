// LocalArgumentsC: the arguments of a variadic call as the entries that
// ArgListC::fromFormat makes of them, held in a block of the caller's stack
// for a rendering that happens at once and keeps nothing.
//
//     LocalArgumentsC local;
//     va_list copy; va_copy(copy, arguments);
//     bool fits = local.take(format, copy);     // or take(format, strlen(format), copy)
//     va_end(copy);
//     if (fits) renderFormatBytesToNew(text, formatEntriesOf(local));
//
// It is the public ArgListStackBodyC (see <keel/arglist.h>: no allocation,
// a %s entry points at the caller's text) with the library's remembered scan
// of the format as a second way of taking the arguments.
#ifndef KEEL_TEXT_FORMAT_LOCAL_H
#define KEEL_TEXT_FORMAT_LOCAL_H

#include <stdarg.h>
#include <stdint.h>

#include <keel/arglist.h>

#include "text/format.h"

namespace keel {

// formatparse::scanFormat for a format of `length` bytes up to its NUL
// (strlen): the same table, with the `%` signs looked for eight bytes at a
// time.
void scanFormatOfLength(formatparse::PositionTableT& table, const uint8_t* format, size_t length);
// The same table for top and slots (not `next`), answered from a small table
// of the calling thread when the same bytes at the same place were scanned
// lately.
void scanFormatRemembered(formatparse::PositionTableT& table, const uint8_t* format, size_t length);

class LocalArgumentsC : public ArgListStackBodyC {
public:
    using ArgListStackBodyC::take;
    // take(format, arguments) for a format of `length` bytes up to its NUL
    // (strlen), scanned by scanFormatRemembered.
    bool take(const char* format, size_t length, va_list arguments);
};

}  // namespace keel

#endif
