// Error reporting: the per-thread error buffer, its entries, and the
// interface of a message catalog.
//
// A failing operation returns a 32-bit code and leaves the same code with its
// rendered message in the calling thread's buffer. The caller decides with
// the code; the message waits until a higher level takes it (takeText),
// traces it (reportAll) or withdraws it because the failure was expected:
//
//     keel::ErrBufI* errors = getErrBuf();
//     uint32_t mark = errors->getMark();
//     if (tryOneWay() != 0 && tryAnother() == 0) errors->recover(mark);
//
// Codes: bits 27-16 the message set, bits 15-0 the number, bit 29 set in
// every code that can have a text, the top digit always E. Set 0 is the
// operating system's: 0xE0000000 | errno. Severities: 0 "None" (never
// stored), 1 "Monitor", 2 "Information", 3 "Warning", 4 "Error", 5 "Fatal".
//
// A program supplies translated texts through a catalog set on the default
// locale's language facet (LocaleLanguageI::openCatalog), not through this
// header.
#ifndef KEEL_ERRORS_H
#define KEEL_ERRORS_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

// A stored error. Its text is three parts: the problem, why it happened (the
// reason) and what to do (the solution), each possibly empty.
class ErrEntryI {
public:
    virtual uint32_t getCode() = 0;
    // The problem, then the reason and the solution on lines of their own
    // when they are not empty.
    virtual StringC getText() = 0;
    virtual uint32_t getSeverity() = 0;
    virtual uint32_t getSequence() = 0;
    virtual ErrEntryI* setSeverity(uint32_t severity) = 0;
    virtual StringC getProblem() = 0;
    virtual StringC getReason() = 0;
    virtual StringC getSolution() = 0;
    virtual ~ErrEntryI() {}
};

// The buffer of one thread. Only that thread may use it (there is no lock);
// getErrBuf hands out the calling thread's own.
class ErrBufI {
public:
    // Stores a message; the text's parts are separated by U+0001.
    virtual void addError(uint32_t code, uint32_t severity, const StringC& text) = 0;
    virtual uint32_t getCount() = 0;
    // Entry `index` from 0, oldest first, still owned by the buffer; null
    // when out of range.
    virtual ErrEntryI* getEntry(uint32_t index) = 0;
    // Traces every entry under the role "Report" and empties the buffer.
    virtual void reportAll() = 0;
    // The sequence number that the next entry will get.
    virtual uint32_t getMark() = 0;
    // Withdraws every entry made since `mark` was taken.
    virtual void recover(uint32_t mark) = 0;
    // All texts, one per line, oldest first; empties the buffer and gives
    // the highest severity seen (0 when it was empty).
    virtual StringC takeText(uint32_t* highestSeverity) = 0;
    virtual uint32_t addRef() = 0;
    virtual uint32_t release() = 0;
    // Drops one entry without tracing it; an index out of range is ignored.
    virtual uint32_t removeEntry(uint32_t index) = 0;
    virtual ~ErrBufI() {}
};

// Anything that supplies message texts.
class ErrCatalogI {
public:
    virtual ~ErrCatalogI() {}
    // The text of `code` (empty when the catalog has none) and its severity.
    // `defaultText` is what to fall back on; `selector` picks a group of a
    // structured text and is null everywhere in this library.
    virtual StringC fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                          const char* selector) = 0;
    virtual uint32_t setQualifiers(StringC qualifiers) = 0;
};

}  // namespace keel

// The calling thread's buffer, made at its first call and released when the
// thread ends. Callers never delete it.
extern "C" KEEL_EXPORT keel::ErrBufI* getErrBuf();

#endif
