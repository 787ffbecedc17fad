// TextWriterC: text out, with every line end turned into one form (a line
// feed). StreamWriterC (streamwriter.h) writes it onto a byte stream in an
// encoding.
//
// The three line-end strings are made at load step 8 ("textwriter") and
// released at exit: CR LF, CR and LF.
#ifndef KEEL_FILES_TEXTWRITER_H
#define KEEL_FILES_TEXTWRITER_H

#include <stdint.h>

#include <keel/string.h>

#include "text/textencoding.h"

namespace keel {

class TextWriterC {
public:
    TextWriterC();
    virtual ~TextWriterC() {}
    virtual TextEncodingI* getEncoding() = 0;
    virtual uint32_t close() { return 0; }
    virtual uint32_t flush() { return 0; }
    virtual uint32_t write(const StringC& text) = 0;

    // CR LF becomes LF, then CR becomes LF, then LF becomes lineEnd; each
    // pass goes on behind the text it has just put in.
    StringC convertLineEnds(const StringC& text) const;

protected:
    // A single line feed; nothing changes it.
    StringC lineEnd;
};

// The constants of load step 8.
const StringC& crLfString();
const StringC& crString();
const StringC& lfString();

void loadStepTextwriter();

}  // namespace keel

#endif
