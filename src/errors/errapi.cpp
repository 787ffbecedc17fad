#include "errors/errapi.h"

#include <keel/errors.h>
#include <keel/format.h>
#include <keel/trace.h>

#include "errors/error.h"
#include "errors/errimpl.h"
#include "text/arglist.h"
#include "text/format.h"
#include "text/format_local.h"

namespace keel {

namespace {

// `text` is the report's own string, handed over to the buffer.
uint32_t store(uint32_t code, uint32_t severity, StringC& text) {
    // Severity 0 (the letter '#' in a catalog) silences a message.
    if (severity == 0) return code;
    // The calling thread's buffer is always of this library's own class.
    if (ErrBufI* buffer = threadErrBuf()) static_cast<ErrBufImplC*>(buffer)->addReported(code, severity, text);
    return code;
}

ErrCatSwitchC* catalogSwitch() { return static_cast<ErrCatSwitchC*>(getCatalogSwitch()); }

StringC renderedPlain(const char* plain, const FormatEntriesT& entries) {
    return StringC::fromNew(renderFormatBytesToNew(reinterpret_cast<const uint8_t*>(plain), entries));
}

StringC renderedV(uint32_t* severity, uint32_t code, const char* format, va_list arguments) {
    if (!format) format = "";
    // The list is the one fromFormat makes of the format in "system-8". A
    // plain default text is rendered at once, so its arguments are taken
    // into entries on the stack instead, where they fit.
    StringC fetched;
    const char* plain = catalogSwitch()->fetchOrPlainDefault(severity, code, format, &fetched);
    if (!plain) return StringC::format(fetched, argListFromText(format, arguments));
    LocalArgumentsC local;
    va_list copy;
    va_copy(copy, arguments);
    bool fits = local.take(format, copy);
    va_end(copy);
    if (fits) return renderedPlain(plain, local.entries());
    ArgListC list = argListFromText(format, arguments);
    return renderedPlain(plain, formatEntriesOf(list));
}

}  // namespace

StringC errorText(uint32_t* severity, uint32_t code, const char* defaultText) {
    return getCatalogSwitch()->fetch(severity, code, defaultText, nullptr);
}

StringC errorText(uint32_t* severity, uint32_t code, const char* defaultText, ArgListC args) {
    // What StringC::format of the fetched text gives. A default text whose
    // message is plain ASCII is rendered from its bytes, as the library's
    // factory renders the string decoded from them, without that string.
    StringC fetched;
    const char* plain = catalogSwitch()->fetchOrPlainDefault(severity, code, defaultText, &fetched);
    if (plain) return renderedPlain(plain, formatEntriesOf(args));
    return StringC::format(fetched, static_cast<ArgListC&&>(args));
}

StringC errorTextFormat(uint32_t* severity, uint32_t code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringC text = renderedV(severity, code, format, arguments);
    va_end(arguments);
    return text;
}

StringC errorText(uint32_t code, const char* defaultText) { return errorText(nullptr, code, defaultText); }

StringC errorText(uint32_t code, const char* defaultText, ArgListC args) {
    return errorText(nullptr, code, defaultText, args);
}

uint32_t reportError(uint32_t code, const char* defaultText) {
    uint32_t severity = 4;
    StringC text = errorText(&severity, code, defaultText);
    return store(code, severity, text);
}

uint32_t reportError(uint32_t code, const char* defaultText, ArgListC args) {
    uint32_t severity = 4;
    StringC text = errorText(&severity, code, defaultText, args);
    return store(code, severity, text);
}

uint32_t reportErrorV(uint32_t code, const char* format, va_list arguments) {
    uint32_t severity = 4;
    StringC text = renderedV(&severity, code, format, arguments);
    return store(code, severity, text);
}

uint32_t reportErrorFormat(uint32_t code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    uint32_t result = reportErrorV(code, format, arguments);
    va_end(arguments);
    return result;
}

uint32_t reportSystemError() { return reportError(systemErrorCode(errno), nullptr, emptyArgList()); }

}  // namespace keel
