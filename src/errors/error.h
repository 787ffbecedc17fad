// Message texts and the catalog switch.
//
// A message text, whether written into the code as a default text or held
// by a catalog, is 8-bit text of one of three shapes, told by its first byte:
//
//   0x01  groups of five fields, each introduced by 0x01: selector, severity
//         letters, problem, reason, solution. Default texts of this library
//         start with 01 01 'e' 01: the general group, severity "e".
//   '{'   a severity in braces, then the text: "{w} Disk almost full".
//   else  the whole text, severity 4.
//
// The switch asks, in order, the module catalog (installed with the library),
// the process catalog (on the default locale's language facet) and then takes
// the default text: a translated text anywhere beats the text in the code,
// and a program with no catalogs still gets its default texts. Set 0 (the
// operating system's errors) is answered by the system catalog behind the
// process catalog.
#ifndef KEEL_ERRORS_ERROR_H
#define KEEL_ERRORS_ERROR_H

#include <stdint.h>

#include <keel/atomic.h>
#include <keel/errors.h>
#include <keel/string.h>

namespace keel {

// The name of a severity 0 to 5 ("None" ... "Fatal"); null for any other.
const char* severityName(uint32_t severity);

// A handle that holds no representation, as a moved-from handle does: it
// reads as the empty string in every operation, and making and dropping it
// calls nothing (the default constructor takes a reference on the shared
// empty string, a virtual call each way). For strings that a report makes
// and most often leaves empty.
inline StringC noText() { return StringC::fromNew(nullptr); }

inline uint32_t errorSet(uint32_t code) { return (code >> 16) & 0xFFF; }
inline uint32_t errorNumber(uint32_t code) { return code & 0xFFFF; }
// Bit 29: a code that can have a text.
inline bool errorHasText(uint32_t code) { return (code & 0x20000000u) != 0; }

// Reads severity letters from `letters` up to a NUL, a 0x01 or a '}', and
// answers where it stopped. '#', 'm', 'i', 'w', 'e', 'f' set the severity 0
// to 5; a capital letter makes the next letter count only if the capital is
// a qualifier, and the qualifier set is always empty here.
const char* scanSeverityLetters(const char* letters, uint32_t* severity);

// Parses a message text and gives its message, decoded as "utf8", with the severity (4 unless letters say
// otherwise). A group whose selector is `selector` (a pointer comparison, so
// with the null that every caller passes none is ever chosen) would be
// taken; other selected groups are skipped.
StringC parseMessageText(const char* text, uint32_t* severity, const char* selector);

// The same as a pointer into `text` and a length in bytes: the message part
// that parseMessageText decodes, or null where it gives the empty string.
const char* messageTextPart(const char* text, uint32_t* severity, const char* selector,
                            size_t* length);

// The switch: made once on first use and never destroyed.
class ErrCatSwitchC : public ErrCatalogI {
public:
    ~ErrCatSwitchC() override {}
    StringC fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                  const char* selector) override;
    uint32_t setQualifiers(StringC qualifiers) override;

    // fetch with no selector, for a text that is about to be rendered: when
    // the answer is the default text's message part and that part is ASCII
    // up to the default text's end, it is answered as those bytes (the
    // string would hold the same characters), and `text` is left alone.
    // Otherwise the answer is null and `text` receives what fetch answers.
    // `severity` is set in both cases, and `length` to the length of the
    // bytes answered (up to their NUL) in the first.
    const char* fetchOrPlainDefault(uint32_t* severity, uint32_t code, const char* defaultText,
                                    StringC* text, size_t* length);

private:
    // The module and then the process catalog; true when one had the text.
    bool fetchFromCatalogs(uint32_t* severity, uint32_t code, const char* selector, StringC* text);
    // The default text's message, when no catalog had one.
    StringC defaultMessage(uint32_t* severity, const char* defaultText, const char* selector);
};

// The switch that every message text is asked of. While the module catalog
// is not open, this opens it: "allcat.%L.cat" below "/lib/" of the
// directory that the registry value "InstallDir" of HKEY_LOCAL_MACHINE
// "SOFTWARE\\Veltrane Corp\\Veltrane" names, or in the current directory.
ErrCatalogI* getCatalogSwitch();
// That opening on its own: the cell gets the new catalog, and the one it
// held (or null) is answered, not destroyed.
ErrCatalogI* openModuleCatalog();

// The module catalog: null until it is opened (the switch then skips it).
// It is never closed, so messages can be fetched during exit.
AtomicM<ErrCatalogI*>& moduleCatalogCell();
// The process catalog, set on the default locale's language facet.
AtomicM<ErrCatalogI*>& processCatalogCell();

// Replaces the module catalog by an empty one (the old one is traced at
// 0Error/Catalog/Open and destroyed). Programs have no way to it.
void setModuleCatalogEmpty();
// Opens `fileName` (null for none) as the catalog of the default locale's
// language facet, tracing the name first; answers what openCatalog answers,
// which is 0. Programs reach the same through LocaleLanguageI::openCatalog.
uint32_t setProcessCatalog(const char* fileName);

}  // namespace keel

#endif
