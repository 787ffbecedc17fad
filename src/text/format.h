// The format engine: renders a format string with an ArgListC into a
// character sink (StringC::format, StringC::formatTo), and parses a format
// with a variadic block into an ArgListC (ArgListC::fromFormat).
#ifndef KEEL_TEXT_FORMAT_H
#define KEEL_TEXT_FORMAT_H

#include <keel/arglist.h>
#include <keel/string.h>

namespace keel {

// Renders `format` with `args`, one character at a time into `sink`.
void renderFormat(CharSinkFn sink, void* context, StringImplI* format, const ArgListC& args);

}  // namespace keel

#endif
