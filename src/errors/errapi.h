// The reporting functions that every part of the library calls.
//
// Each report fetches the code's text through the catalog switch (a catalog
// text beats the default text written here), renders it with the arguments,
// stores it in the calling thread's buffer unless its severity is 0, and
// answers the code it was given, so that a failing function can end with
//
//     return reportError(0xE0CB0011, "\x01\x01" "e\x01" "Cannot change to directory '%1$S'", args);
//
// The variadic forms have names of their own (a two-argument call could not
// be told from a variadic one): reportErrorFormat, errorTextFormat. Their
// format is the default text too.
#ifndef KEEL_ERRORS_ERRAPI_H
#define KEEL_ERRORS_ERRAPI_H

#include <errno.h>
#include <stdarg.h>
#include <stdint.h>

#include <keel/arglist.h>
#include <keel/string.h>

namespace keel {

// The text stored as fetched: no rendering, a '%' in it stays.
uint32_t reportError(uint32_t code, const char* defaultText);
// The text rendered with `args`.
uint32_t reportError(uint32_t code, const char* defaultText, ArgListC args);
uint32_t reportErrorFormat(uint32_t code, const char* format, ...);
uint32_t reportErrorV(uint32_t code, const char* format, va_list arguments);

// The same texts without storing them; `severity` may be null.
StringC errorText(uint32_t* severity, uint32_t code, const char* defaultText);
StringC errorText(uint32_t* severity, uint32_t code, const char* defaultText, ArgListC args);
StringC errorTextFormat(uint32_t* severity, uint32_t code, const char* format, ...);
StringC errorText(uint32_t code, const char* defaultText);
StringC errorText(uint32_t code, const char* defaultText, ArgListC args);

// 0xE0000000 with the low 16 bits of an errno value, or 0 for 0.
inline uint32_t systemErrorCode(int errorNumber) {
    return errorNumber == 0 ? 0 : 0xE0000000u | (static_cast<uint32_t>(errorNumber) & 0xFFFFu);
}
// Reports systemErrorCode(errno), with no default text, and answers it.
uint32_t reportSystemError();

}  // namespace keel

#endif
