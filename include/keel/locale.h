// Locales and their facets.
//
// getLocale gives the locale of the process, named by what
// setlocale(LC_ALL, NULL) answers; the name the caller passes is overwritten
// with that name. A locale has five facets, each reached with a version
// (1 or 2; any other value gives null) and made on first demand. They live
// for ever: callers never delete them.
//
//     keel::StringC name;
//     keel::LocaleI* locale = getLocale(name);
//     keel::LocaleNumbersI* numbers = locale->getNumbers(1);
//     keel::StringC point = numbers->decimalSeparator();
//
// The language facet is the locale's message catalog. A program sets its own
// catalog there (a binary catalog made with `keel catalog compile`), and its texts then
// take precedence over the default texts written into the code:
//
//     getLocale(name)->getLanguage(1)->openCatalog(keel::StringC("app.%L.cat", "utf8"));
//
// "%L" in the name is filled with the locale's names, tried in turn, and
// last with no locale at all ("app.cat").
//
// The order of the virtual operations below is part of the binary
// interface. Operations named by their place only (numbersText1, ...) keep
// slots for values that have no meaning on this platform: their strings are
// empty and their numbers 0.
#ifndef KEEL_LOCALE_H
#define KEEL_LOCALE_H

#include <stdint.h>

#include <keel/errors.h>
#include <keel/string.h>

namespace keel {

class LocaleRegionI {
public:
    virtual StringC languageCode() = 0;
    virtual StringC languageLongCode() = 0;
    virtual StringC territoryCode() = 0;
    virtual StringC regionValue4() = 0;
    // The name of the locale, as getLocale gave it.
    virtual StringC localeName() = 0;
    virtual void regionReserved() = 0;

protected:
    virtual ~LocaleRegionI() {}
};

class LocaleNumbersI {
public:
    virtual StringC numbersText1() = 0;
    virtual StringC numbersText2() = 0;
    virtual int32_t numbersValue1() = 0;
    virtual int32_t numbersValue2() = 0;
    // Put in front of a fraction of a second by DateTimeC.
    virtual StringC decimalSeparator() = 0;
    virtual StringC numbersText4() = 0;
    virtual int32_t numbersValue3() = 0;
    virtual StringC numbersText5() = 0;
    virtual StringC numbersText6() = 0;
    virtual StringC numbersText7() = 0;

protected:
    virtual ~LocaleNumbersI() {}
};

class LocaleCalendarI {
public:
    virtual int32_t calendarValue1() = 0;
    virtual int32_t calendarValue2() = 0;
    virtual int32_t calendarValue3() = 0;
    virtual uint8_t calendarFlag1() = 0;
    virtual uint8_t calendarFlag2() = 0;
    virtual uint8_t calendarFlag3() = 0;
    virtual uint8_t calendarFlag4() = 0;
    virtual int32_t calendarValue4() = 0;
    virtual int32_t calendarValue5() = 0;
    virtual StringC calendarText1() = 0;
    virtual StringC calendarText2() = 0;
    // Entries of tables of 7 and of 13, `index` from 1; an index outside the
    // table gives the empty string.
    virtual StringC sevenTextA(int32_t index) = 0;
    virtual StringC sevenTextB(int32_t index) = 0;
    virtual StringC thirteenTextA(int32_t index) = 0;
    virtual StringC thirteenTextB(int32_t index) = 0;
    virtual StringC thirteenTextC(int32_t index) = 0;
    virtual StringC calendarText3() = 0;
    virtual StringC calendarText4() = 0;

protected:
    virtual ~LocaleCalendarI() {}
};

class LocaleCurrencyI {
public:
    virtual int32_t currencyValue1() = 0;
    virtual int32_t currencyValue2() = 0;
    virtual int32_t currencyValue3() = 0;
    virtual StringC currencyText1() = 0;
    virtual StringC currencyText2() = 0;
    virtual StringC currencyText3() = 0;
    virtual StringC currencyText4() = 0;
    virtual StringC currencyText5() = 0;
    virtual int32_t currencyValue4() = 0;

protected:
    virtual ~LocaleCurrencyI() {}
};

class LocaleLanguageI {
public:
    // The facet as a supplier of message texts: its catalog first, then the
    // operating system's texts for system error codes.
    virtual ErrCatalogI* getCatalog() = 0;
    // Replaces the facet's catalog by the binary catalog at `path` ("%L"
    // expanded). Always 0: a file that cannot be used leaves an empty
    // catalog, and the default texts stand.
    virtual uint32_t openCatalog(StringC path) = 0;
    virtual int32_t languageValue() = 0;

protected:
    virtual ~LocaleLanguageI() {}
};

class LocaleI {
public:
    virtual LocaleRegionI* getRegion(int version) = 0;
    virtual LocaleNumbersI* getNumbers(int version) = 0;
    virtual LocaleCalendarI* getCalendar(int version) = 0;
    virtual LocaleCurrencyI* getCurrency(int version) = 0;
    virtual LocaleLanguageI* getLanguage(int version) = 0;

protected:
    virtual ~LocaleI() {}
};

}  // namespace keel

// The locale of the process. `name` is an output only: it receives the
// process locale's name. Two calls under the same process locale give the
// same object.
extern "C" KEEL_EXPORT keel::LocaleI* getLocale(keel::StringC& name);

#endif
