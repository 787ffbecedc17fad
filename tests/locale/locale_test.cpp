// Locales: the map by process locale name, the five facets and their
// version gate, and the empty values. The language facet as a catalog, with
// and without a file, is the catalog switch's and the catalog tests' (it is
// the process catalog behind every message).
#include <gtest/gtest.h>
#include <locale.h>

#include <algorithm>
#include <thread>
#include <vector>

#include <keel/keel.h>

#include "locale/locale.h"
#include "testing/tracelines.h"

namespace keel {
namespace {

// Another process locale gets a locale of its own, made once; the old one
// stays.
TEST(LocaleTest, OneLocalePerProcessLocaleName) {
    StringC name("ignored, overwritten", "ascii"), other, back;
    LocaleI* locale = getLocale(name);
    const std::string before = setlocale(LC_ALL, nullptr);
    EXPECT_EQ(before, str(name));
    EXPECT_EQ(std::make_pair(locale, str(name)),
              std::make_pair(defaultLocale(), str(locale->getRegion(1)->localeName())));
    if (setlocale(LC_ALL, "C.UTF-8") && before != setlocale(LC_ALL, nullptr)) {
        LocaleI* second = getLocale(other);
        uint32_t count = localeCount();
        EXPECT_NE(locale, second);
        EXPECT_EQ(std::make_pair(second, count), std::make_pair(getLocale(other), localeCount()));
        EXPECT_EQ(str(other), str(second->getRegion(2)->localeName()));
    }
    setlocale(LC_ALL, before.c_str());
    EXPECT_EQ(locale, getLocale(back));
}

// The five facets answer for versions 1 and 2 only, the same object for
// both, and every value they give is empty.
TEST(LocaleTest, FacetsByVersionAndTheirEmptyValues) {
    StringC name;
    LocaleI* locale = getLocale(name);
    auto facets = [locale](int version) {
        return std::vector<void*>{locale->getRegion(version), locale->getNumbers(version),
                                  locale->getCalendar(version), locale->getCurrency(version),
                                  locale->getLanguage(version)};
    };
    for (int version : {0, 3, -1}) EXPECT_EQ(std::vector<void*>(5), facets(version)) << version;
    std::vector<void*> one = facets(1);
    EXPECT_EQ(0, std::count(one.begin(), one.end(), nullptr));
    EXPECT_EQ(one, facets(2));
    // Their values are all empty.
    LocaleRegionI* region = locale->getRegion(2);
    LocaleNumbersI* numbers = locale->getNumbers(1);
    LocaleCalendarI* calendar = locale->getCalendar(1);
    LocaleCurrencyI* currency = locale->getCurrency(1);
    region->regionReserved();
    const StringC texts[] = {
        region->languageCode(),      region->languageLongCode(),  region->territoryCode(),
        region->regionValue4(),      numbers->numbersText1(),     numbers->numbersText2(),
        numbers->decimalSeparator(), numbers->numbersText4(),     numbers->numbersText5(),
        numbers->numbersText6(),     numbers->numbersText7(),     calendar->calendarText1(),
        calendar->calendarText2(),   calendar->calendarText3(),   calendar->calendarText4(),
        calendar->sevenTextA(1),     calendar->sevenTextB(7),     calendar->thirteenTextA(1),
        calendar->thirteenTextB(7),  calendar->thirteenTextC(13), calendar->sevenTextA(0),
        calendar->sevenTextB(8),     calendar->thirteenTextC(14), calendar->thirteenTextA(-5),
        currency->currencyText1(),   currency->currencyText2(),   currency->currencyText3(),
        currency->currencyText4(),   currency->currencyText5()};
    for (const StringC& text : texts) EXPECT_TRUE(text.isEmpty()) << &text - texts;
    EXPECT_EQ(
        std::vector<int32_t>(17),
        (std::vector<int32_t>{
            numbers->numbersValue1(), numbers->numbersValue2(), numbers->numbersValue3(),
            calendar->calendarValue1(), calendar->calendarValue2(), calendar->calendarValue3(),
            calendar->calendarValue4(), calendar->calendarValue5(), calendar->calendarFlag1(),
            calendar->calendarFlag2(), calendar->calendarFlag3(), calendar->calendarFlag4(),
            currency->currencyValue1(), currency->currencyValue2(), currency->currencyValue3(),
            currency->currencyValue4(), locale->getLanguage(1)->languageValue()}));
}

// Threads asking for the locale and its facets at once all get the same
// objects, made once.
TEST(LocaleThreadTest, ConcurrentFirstUse) {
    std::vector<std::thread> threads;
    std::vector<LocaleLanguageI*> seen(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i, &seen] {
            StringC name;
            LocaleI* locale = getLocale(name);
            locale->getNumbers(1)->decimalSeparator();
            seen[i] = locale->getLanguage(1 + i % 2);
            StringC text = seen[i]->getCatalog()->fetch(nullptr, 0xE0000002, "", nullptr);
            EXPECT_FALSE(text.isEmpty());
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (LocaleLanguageI* language : seen) EXPECT_EQ(seen[0], language);
}

}  // namespace
}  // namespace keel
