#include "locale/locale.h"

#include <locale.h>
#include <string.h>

#include <new>

#include <keel/strkeyed.h>
#include "errors/catalog.h"
#include "errors/error.h"
#include "errors/systemcat.h"
#include "frame/loadorder.h"
#include "frame/nodestroy.h"
#include "text/utf8view.h"

namespace keel {

namespace {

typedef StringMapM<LocaleC*, StringC> LocaleMapT;

// Storage made in place by the load step: no static initialiser of its own
// runs, and the exit actions destroy in place.
InPlaceM<LatchC> latchStorage;
InPlaceM<LocaleMapT> mapStorage;

LocaleMapT& localeMap() { return *mapStorage; }

void destroyLatch(void*) { latchStorage.destroy(); }
// Removes the elements and their key strings; the LocaleC objects they point
// at stay alive for whoever still holds them.
void destroyMap(void*) { mapStorage.destroy(); }

// The newest locale made; see LocaleC::madeBefore. Changed under the latch.
LocaleC* newestLocale = nullptr;

bool versionOk(int version) { return version >= 1 && version <= 2; }

// One rule for the five getters: a version outside 1 and 2 gives null with
// no lock; otherwise the facet is made under the latch if it is missing.
template <typename Facet, typename Make>
Facet* facetOf(int version, AtomicM<Facet*>& cell, Make make) {
    if (!versionOk(version)) return nullptr;
    LatchGuardC guard(localeLatch());
    Facet* facet = cell.load();
    if (!facet) {
        facet = make();
        cell = facet;
    }
    return facet;
}

}  // namespace

void loadStepLocale() {
    latchStorage.make(LatchC::Recursive);
    mapStorage.make();
    // Registered latch first, so at exit the map goes first.
    registerExitAction(destroyLatch, nullptr);
    registerExitAction(destroyMap, nullptr);
}

LatchC& localeLatch() { return *latchStorage; }

LocaleI* localeOfProcess(StringC& name) {
    // The one question put to the platform's locale; a null answer names the
    // locale "" (a valid key like any other).
    const char* processName = setlocale(LC_ALL, nullptr);
    name = StringC(processName ? processName : "", "ascii");
    LatchGuardC guard(localeLatch());
    LocaleMapT& map = localeMap();
    if (LocaleMapT::ElemT* element = map.findElement(name)) return element->value;
    LocaleC* locale = new LocaleC(name);
    locale->madeBefore = newestLocale;
    newestLocale = locale;
    map.add(name, locale);
    return locale;
}

LocaleI* defaultLocale() {
    StringC name("", "system-8");
    return localeOfProcess(name);
}

bool ProcessLocaleNameT::sameAsRemembered() {
    current = setlocale(LC_ALL, nullptr);
    if (current == nullptr) current = "";
    // Byte by byte against the remembered name, which holds no NUL: a
    // shorter name stops at its own NUL. Names are short, and the answer is
    // nearly always yes, so no length is measured then.
    size_t same = 0;
    while (same < length && current[same] == name[same]) ++same;
    if (length != 0 && same == length && current[length] == 0) {
        currentLength = length;
        return true;
    }
    currentLength = strlen(current);
    return false;
}

bool ProcessLocaleNameT::remember(const StringC& asked) {
    Utf8ViewC bytes(asked);
    if (currentLength == 0 || currentLength >= sizeof name || bytes.size() != currentLength ||
        memcmp(bytes.data(), current, currentLength) != 0) {
        return false;
    }
    memcpy(name, current, currentLength);
    length = static_cast<uint32_t>(currentLength);
    return true;
}

LocaleLanguageC* defaultLanguage() {
    struct RememberedT {
        ProcessLocaleNameT name;
        LocaleLanguageC* language;
    };
    static thread_local RememberedT remembered;
    if (remembered.name.sameAsRemembered()) return remembered.language;
    // A new name goes through the lookup, which makes the locale as before.
    StringC name;
    LocaleLanguageC* language =
        static_cast<LocaleLanguageC*>(static_cast<LocaleC*>(localeOfProcess(name))->getLanguage(1));
    if (language && remembered.name.remember(name)) remembered.language = language;
    return language;
}

uint32_t localeCount() {
    LatchGuardC guard(localeLatch());
    return localeMap().size;
}

LocaleRegionI* LocaleC::getRegion(int version) {
    return facetOf(version, region, [this] { return new LocaleRegionC(name); });
}

LocaleNumbersI* LocaleC::getNumbers(int version) {
    return facetOf(version, numbers, [] { return new LocaleNumbersC(); });
}

LocaleCalendarI* LocaleC::getCalendar(int version) {
    return facetOf(version, calendar, [] { return new LocaleCalendarC(); });
}

LocaleCurrencyI* LocaleC::getCurrency(int version) {
    return facetOf(version, currency, [] { return new LocaleCurrencyC(); });
}

LocaleLanguageI* LocaleC::getLanguage(int version) {
    return facetOf(version, language, [this] { return new LocaleLanguageC(name); });
}

LocaleLanguageC::LocaleLanguageC(const StringC& name)
    : catalogName("", "system-8"),
      catalog(new ErrCatalogC(StringC())),
      systemCatalog(new ErrSystemCatalogC()),
      languageValue_(0),
      name(name),
      catalogIndexed_(false) {}

LocaleLanguageC::~LocaleLanguageC() {
    delete catalog.load();
    delete systemCatalog;
}

uint32_t LocaleLanguageC::openCatalog(StringC path) {
    // Opened outside the latch: the expansion of "%L" asks getLocale, and a
    // slow disk should not hold up other threads' locales.
    ErrCatalogC* fresh = new ErrCatalogC(path);
    {
        LatchGuardC guard(localeLatch());
        fresh->setQualifiers(qualifiers);
        delete catalog.exchange(fresh);
        catalogIndexed_ = fresh->isOpen() && fresh->recordCount() != 0;
    }
    return 0;
}

uint32_t LocaleLanguageC::setQualifiers(StringC text) {
    LatchGuardC guard(localeLatch());
    qualifiers = text;
    return catalog.load()->setQualifiers(text);
}

StringC LocaleLanguageC::fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                               const char* selector) {
    uint32_t ignored = 4;
    if (!severity) severity = &ignored;
    *severity = 4;
    // lookUp of a catalog without an indexed file answers null.
    char* raw = nullptr;
    if (catalogIndexed_.load()) {
        LatchGuardC guard(localeLatch());
        raw = catalog.load()->lookUp(code);
    }
    if (raw) {
        StringC text = parseMessageText(raw, severity, selector);
        delete[] raw;
        return text;
    }
    // A catalog code the file lacks has no text here; the system catalog
    // only knows set 0 and codes without bit 29.
    if (errorHasText(code) && errorSet(code) != 0) return StringC();
    return systemCatalog->fetch(severity, code, defaultText, selector);
}

}  // namespace keel
