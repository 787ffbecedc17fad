#include "errors/errapi.h"

#include <string.h>

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
    if (ErrBufI* buffer = threadErrBuf())
        static_cast<ErrBufImplC*>(buffer)->addReported(code, severity,
                                                       static_cast<StringC&&>(text));
    return code;
}

// The same for a text that the report has just rendered: a new
// representation (count 0) that no handle holds yet. The buffer's entry
// takes it; a text that is not stored is freed here.
uint32_t storeNew(uint32_t code, uint32_t severity, StringImplI* fresh) {
    if (severity != 0) {
        if (ErrBufI* buffer = threadErrBuf()) {
            static_cast<ErrBufImplC*>(buffer)->addRendered(code, severity, fresh);
            return code;
        }
    }
    StringC::fromNew(fresh);
    return code;
}

ErrCatSwitchC* catalogSwitch() { return static_cast<ErrCatSwitchC*>(getCatalogSwitch()); }

// What StringC::format of `fetched` with `args` makes, as a new
// representation.
StringImplI* formattedNew(const StringC& fetched, ArgListC args) {
    StringImplI* pattern = fetched.getImpl();
    return pattern->getFactory()->format(pattern, static_cast<ArgListC&&>(args));
}

StringImplI* renderedPlainNew(const char* plain, size_t length, const FormatEntriesT& entries) {
    return renderFormatBytesToNew(reinterpret_cast<const uint8_t*>(plain), length, entries);
}

// The fetched text rendered with the list that fromFormat makes of the
// format in "system-8", as a new representation.
StringImplI* renderedV(uint32_t* severity, uint32_t code, const char* format, va_list arguments) {
    if (!format) format = "";
    // A plain default text is rendered at once, so its arguments are taken
    // into entries on the stack instead, where they fit.
    StringC fetched = noText();
    size_t length = 0;
    const char* plain =
        catalogSwitch()->fetchOrPlainDefault(severity, code, format, &fetched, &length);
    if (!plain) return formattedNew(fetched, argListFromText(format, arguments));
    LocalArgumentsC local;
    va_list copy;
    va_copy(copy, arguments);
    // A message that is the whole format has the format's length.
    bool fits = local.take(format, plain == format ? length : strlen(format), copy);
    va_end(copy);
    if (fits) return renderedPlainNew(plain, length, formatEntriesOf(local));
    ArgListC list = argListFromText(format, arguments);
    return renderedPlainNew(plain, length, formatEntriesOf(list));
}

// errorText with a list, as a new representation. A default text whose
// message is plain ASCII is rendered from its bytes, as the library's
// factory renders the string decoded from them, without that string.
StringImplI* renderedNew(uint32_t* severity, uint32_t code, const char* defaultText,
                         ArgListC& args) {
    StringC fetched = noText();
    size_t length = 0;
    const char* plain =
        catalogSwitch()->fetchOrPlainDefault(severity, code, defaultText, &fetched, &length);
    if (plain) return renderedPlainNew(plain, length, formatEntriesOf(args));
    return formattedNew(fetched, static_cast<ArgListC&&>(args));
}

}  // namespace

StringC errorText(uint32_t* severity, uint32_t code, const char* defaultText) {
    return getCatalogSwitch()->fetch(severity, code, defaultText, nullptr);
}

StringC errorText(uint32_t* severity, uint32_t code, const char* defaultText, ArgListC args) {
    return StringC::fromNew(renderedNew(severity, code, defaultText, args));
}

StringC errorTextFormat(uint32_t* severity, uint32_t code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringImplI* text = renderedV(severity, code, format, arguments);
    va_end(arguments);
    return StringC::fromNew(text);
}

StringC errorText(uint32_t code, const char* defaultText) {
    return errorText(nullptr, code, defaultText);
}

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
    StringImplI* text = renderedNew(&severity, code, defaultText, args);
    return storeNew(code, severity, text);
}

uint32_t reportErrorV(uint32_t code, const char* format, va_list arguments) {
    uint32_t severity = 4;
    StringImplI* text = renderedV(&severity, code, format, arguments);
    return storeNew(code, severity, text);
}

uint32_t reportErrorFormat(uint32_t code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    uint32_t result = reportErrorV(code, format, arguments);
    va_end(arguments);
    return result;
}

uint32_t reportSystemError() {
    return reportError(systemErrorCode(errno), nullptr, emptyArgList());
}

}  // namespace keel
