// LocaleC and its five facets, and the process-wide map of locales by name.
//
// Only creation is locked (the locale latch, recursive, also held by
// getLocale); a facet, once made, is read without a lock because nothing in
// it changes, except the language facet's catalog (see LocaleLanguageC).
// Locales and facets are never destroyed: the map's end at exit removes its
// elements and their key strings only, so pointers handed out stay good
// through exit.
#ifndef KEEL_LOCALE_LOCALE_H
#define KEEL_LOCALE_LOCALE_H

#include <keel/atomic.h>
#include <keel/errors.h>
#include <keel/locale.h>
#include <keel/string.h>

#include "errors/error.h"
#include "frame/latch.h"

namespace keel {

class ErrCatalogC;
class ErrSystemCatalogC;

class LocaleRegionC : public LocaleRegionI {
public:
    explicit LocaleRegionC(const StringC& name) : name(name) {}
    StringC languageCode() override { return languageCodeText; }
    StringC languageLongCode() override { return languageLongCodeText; }
    StringC territoryCode() override { return territoryCodeText; }
    StringC regionValue4() override { return value4Text; }
    StringC localeName() override { return name; }
    void regionReserved() override {}

    StringC languageCodeText;
    StringC languageLongCodeText;
    StringC territoryCodeText;
    StringC value4Text;
    StringC name;
};

class LocaleNumbersC : public LocaleNumbersI {
public:
    StringC numbersText1() override { return text1; }
    StringC numbersText2() override { return text2; }
    int32_t numbersValue1() override { return value1; }
    int32_t numbersValue2() override { return value2; }
    StringC decimalSeparator() override { return separator; }
    StringC numbersText4() override { return text4; }
    int32_t numbersValue3() override { return value3; }
    StringC numbersText5() override { return text5; }
    StringC numbersText6() override { return text6; }
    StringC numbersText7() override { return text7; }

    StringC text1;
    StringC text2;
    int32_t value1 = 0;
    int32_t value2 = 0;
    StringC separator;
    StringC text4;
    int32_t value3 = 0;
    StringC text5;
    StringC text6;
    StringC text7;
};

class LocaleCalendarC : public LocaleCalendarI {
public:
    int32_t calendarValue1() override { return value1; }
    int32_t calendarValue2() override { return value2; }
    int32_t calendarValue3() override { return value3; }
    uint8_t calendarFlag1() override { return flag1; }
    uint8_t calendarFlag2() override { return flag2; }
    uint8_t calendarFlag3() override { return flag3; }
    uint8_t calendarFlag4() override { return flag4; }
    int32_t calendarValue4() override { return value4; }
    int32_t calendarValue5() override { return value5; }
    StringC calendarText1() override { return text1; }
    StringC calendarText2() override { return text2; }
    StringC sevenTextA(int32_t index) override { return entry(sevenA, 7, index); }
    StringC sevenTextB(int32_t index) override { return entry(sevenB, 7, index); }
    StringC thirteenTextA(int32_t index) override { return entry(thirteenA, 13, index); }
    StringC thirteenTextB(int32_t index) override { return entry(thirteenB, 13, index); }
    StringC thirteenTextC(int32_t index) override { return entry(thirteenC, 13, index); }
    StringC calendarText3() override { return text3; }
    StringC calendarText4() override { return text4; }

    int32_t value1 = 0;
    int32_t value2 = 0;
    int32_t value3 = 0;
    uint8_t flag1 = 0;
    uint8_t flag2 = 0;
    uint8_t flag3 = 0;
    uint8_t flag4 = 0;
    int32_t value4 = 0;
    int32_t value5 = 0;
    StringC text1;
    StringC text2;
    StringC sevenA[7];
    StringC sevenB[7];
    StringC thirteenA[13];
    StringC thirteenB[13];
    StringC thirteenC[13];
    StringC text3;
    StringC text4;

private:
    // The tables were read without a bounds test; an index outside 1..size
    // gives the empty string instead of reading beside the table.
    static StringC entry(const StringC* table, int32_t size, int32_t index) {
        if (index < 1 || index > size) return StringC();
        return table[index - 1];
    }
};

class LocaleCurrencyC : public LocaleCurrencyI {
public:
    int32_t currencyValue1() override { return value1; }
    int32_t currencyValue2() override { return value2; }
    int32_t currencyValue3() override { return value3; }
    StringC currencyText1() override { return text1; }
    StringC currencyText2() override { return text2; }
    StringC currencyText3() override { return text3; }
    StringC currencyText4() override { return text4; }
    StringC currencyText5() override { return text5; }
    int32_t currencyValue4() override { return value4; }

    int32_t value1 = 0;
    int32_t value2 = 0;
    int32_t value3 = 0;
    StringC text1;
    StringC text2;
    StringC text3;
    StringC text4;
    StringC text5;
    int32_t value4 = 0;
};

// The message catalog of a locale. Its ErrCatalogI face looks a code up in
// the catalog file; a catalog code (bit 29 and a set other than 0) that the
// file lacks has no text, and every other code goes on to the system
// catalog, which knows the operating system's errors.
//
// openCatalog may replace the catalog while another thread fetches through
// it. Deleting the old catalog under that thread's feet would be a use after
// free, so the pointer is swapped, and a catalog used, under the locale
// latch. Fetches are rare (a message is read only for an error) and a lookup
// is a few reads, so the latch costs nothing that shows.
class LocaleLanguageC : public LocaleLanguageI, private ErrCatalogI {
public:
    explicit LocaleLanguageC(const StringC& name);
    ~LocaleLanguageC() override;

    ErrCatalogI* getCatalog() override { return this; }
    uint32_t openCatalog(StringC path) override;
    int32_t languageValue() override { return languageValue_; }

    StringC fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                  const char* selector) override;
    uint32_t setQualifiers(StringC text) override;

    // False when fetch is sure to answer the empty text for `code` without
    // looking: a code of a message set (bit 29 and a set other than 0), which
    // the system catalog never knows, while the catalog has no indexed file.
    bool mayKnow(uint32_t code) const {
        return !(errorHasText(code) && errorSet(code) != 0) || catalogIndexed_.load();
    }

    StringC catalogName;
    StringC qualifiers;
    AtomicM<ErrCatalogC*> catalog;
    ErrSystemCatalogC* systemCatalog;
    int32_t languageValue_;
    StringC name;

private:
    // Whether `catalog` has a file with an index (lookUp may find a text),
    // written with the catalog under the latch. A fetch reads it first and
    // takes the latch only for a catalog that can answer: the one without a
    // file, which every locale starts with, is not looked at at all.
    AtomicM<bool> catalogIndexed_;
};

class LocaleC : public LocaleI {
public:
    explicit LocaleC(const StringC& name) : name(name) {}
    // Releases the name only: the facets live for ever.
    ~LocaleC() override {}

    LocaleRegionI* getRegion(int version) override;
    LocaleNumbersI* getNumbers(int version) override;
    LocaleCalendarI* getCalendar(int version) override;
    LocaleCurrencyI* getCurrency(int version) override;
    LocaleLanguageI* getLanguage(int version) override;

    // Set once under the locale latch, read by anyone: atomic cells.
    AtomicM<LocaleRegionC*> region;
    AtomicM<LocaleNumbersC*> numbers;
    AtomicM<LocaleCalendarC*> calendar;
    AtomicM<LocaleCurrencyC*> currency;
    AtomicM<LocaleLanguageC*> language;
    StringC name;
    // The locale made before this one. The map forgets its elements at exit
    // but the locales live on; this chain from a process-wide head keeps
    // every one reachable, as objects meant to outlive exit are.
    LocaleC* madeBefore = nullptr;
};

// The locale latch (made at load step 2).
LatchC& localeLatch();

// What getLocale does: `name` receives the process locale's name; the
// locale of that name is found in the map or made and entered.
LocaleI* localeOfProcess(StringC& name);

// The default locale: getLocale with an empty name.
LocaleI* defaultLocale();

// The platform's name of the process locale as one thread last saw it, for
// answers that hang on that locale alone: a locale, once made, lives to the
// end of the process with its facets, so while the platform gives the same
// name, what a thread remembered with it still holds. The name is asked of
// the platform (setlocale, which takes no lock for a query) at every check,
// so a program that changes its locale is answered for the new one at once.
// Kept in a zero-initialised thread_local: nothing is remembered at first.
struct ProcessLocaleNameT {
    // Reads the platform's name; true when it is the one remembered.
    bool sameAsRemembered();
    // Remembers the name that the last check read, when `asked` (the name
    // that the lookup gave the process locale) is that very name: another
    // thread may have changed the locale in between. A name of no bytes, or
    // one too long for the room, is not remembered. True when kept.
    bool remember(const StringC& asked);

    const char* current;
    size_t currentLength;
    char name[120];
    uint32_t length;  // 0: nothing remembered
};

// The default locale's language facet (version 1), as
// defaultLocale()->getLanguage(1) answers it (every locale is a LocaleC,
// whose language facet is a LocaleLanguageC). Each thread remembers the
// platform's name of the process locale it last asked for and that locale's
// facet; while the platform gives the same name, the facet is answered
// without the map and the latch.
LocaleLanguageC* defaultLanguage();

// How many locales the map holds (for tests).
uint32_t localeCount();

}  // namespace keel

#endif
