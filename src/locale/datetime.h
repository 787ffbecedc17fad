// DateTimeC: a point in time with two faces, a 64-bit count of 10-nanosecond
// ticks and broken-down calendar fields, each derived from the other when it
// is first needed.
//
// Tick 0 is the midnight that begins 0000-12-31 of the proleptic Gregorian
// calendar (day 0), so 0001-01-01 is day 1 and 1970-01-01 is day 719163. A
// value whose year is 0 holds only a time of day and renders as one.
//
//     keel::DateTimeC stamp(2024, 2, 29, 12, 30, 45, false);   // strict
//     keel::StringC text = stamp.format(8 + 3);                 // 2024-02-29T12:30:45000Z
//     keel::StringC input("2024-02-29T12:30:45Z", "utf8");
//     keel::DateTimeC back = keel::DateTimeC::parse(input);     // input now reads 20240229123045Z
//
// Tick arithmetic is done in unsigned 64-bit words and converted back, so a
// value past the year 2923 wraps silently instead of overflowing. A value is
// a plain record without a lock: its reading operations fill its cached
// fields, so it must not be shared between threads without the caller's care.
#ifndef KEEL_LOCALE_DATETIME_H
#define KEEL_LOCALE_DATETIME_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

class DateTimeC {
public:
    static const int64_t kTicksPerSecond = 100000000;
    static const int64_t kTicksPerDay = 8640000000000LL;
    // Seconds from the origin to 1970-01-01.
    static const int64_t kUnixEpochSeconds = 62135683200LL;

    // Format flags: the low three bits are the digits of fraction (0 to 7).
    static const int32_t kExtended = 8;  // "-" between date fields, ":" between time fields
    static const int32_t kDateOnly = 16;
    static const int32_t kBlank = 32;  // a blank between date and time instead of "T"

    // All zero, ticks valid, universal.
    DateTimeC();
    DateTimeC(int64_t ticks, bool isLocal);
    // Strict: a date that does not exist (30 February, month 13, second 60)
    // rolls over into the next unit and reports 0xE3E80065 with the values
    // asked for; the value keeps the rolled-over date.
    DateTimeC(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
              int32_t second, bool isLocal);
    // The same with `fraction`, the ticks below one second.
    DateTimeC(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
              int32_t second, int64_t fraction, bool isLocal);

    // The current time in whole seconds; with `local` moved to the local zone.
    static DateTimeC now(bool local);
    DateTimeC toLocal() const;
    // Moves the ticks back to universal time but leaves the value marked
    // local, as toLocal does: the flag is not cleared.
    DateTimeC toUniversal() const;

    // a minus b in ticks, whatever their zones.
    static int64_t difference(const DateTimeC& a, const DateTimeC& b);
    DateTimeC plus(int64_t interval) const;
    DateTimeC minus(int64_t interval) const;
    void add(int64_t interval);
    void subtract(int64_t interval);

    // ISO 8601 shaped text; see the flags above. The fraction follows the
    // seconds behind the process locale's decimal separator.
    StringC format(int32_t flags) const;
    // Reads a date form (YYYY[-]MM[-]DD[(T| )hh[:]mm[:]ss[(.|,)fraction][Z]])
    // or a time form ([T]hh[:]mm[:]ss[(.|,)fraction]). The separators it
    // erases are gone from `text` afterwards. Bad text reports 0xE3E80064 and
    // gives tick 0; a date that passes the range tests but does not exist
    // reports 0xE3E80065 from the strict constructor.
    static DateTimeC parse(StringC& text);
    // The parser the plain way, for tests and the fuzz target to hold parse
    // to: every character decoded and erased one by one, every date made by
    // the strict constructor. The same answers, reports and text afterwards.
    static DateTimeC parseReference(StringC& text);

    int64_t getTicks() const;
    int32_t getYear() const { return ensureFields().year; }
    int32_t getMonth() const { return ensureFields().month; }
    int32_t getDay() const { return ensureFields().day; }
    int32_t getHour() const { return ensureFields().hour; }
    int32_t getMinute() const { return ensureFields().minute; }
    int32_t getSecond() const { return ensureFields().second; }
    // Day number modulo 7: 0 is Sunday.
    int32_t getWeekday() const { return ensureFields().weekday; }
    bool isLocalTime() const { return isLocal != 0; }

private:
    void makeStrict(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                    int32_t second, int64_t fraction, bool isLocal);
    static DateTimeC fromParsed(int32_t year, int32_t month, int32_t day, int32_t hour,
                                int32_t minute, int32_t second, int64_t fraction, bool isLocal);
    template <class Text>
    static DateTimeC parseText(Text& text, bool strict);
    const DateTimeC& ensureTicks() const;
    const DateTimeC& ensureFields() const;

    // The faces are caches: deriving one from a const value fills it.
    mutable int64_t ticks;
    mutable int16_t year;
    mutable int16_t month;
    mutable int16_t day;
    mutable int16_t hour;
    mutable int16_t minute;
    mutable int16_t second;
    uint8_t isLocal;
    mutable uint8_t ticksValid;
    mutable uint8_t fieldsValid;
    mutable uint8_t weekday;
};

namespace datetimeinternal {
// The decimal separator that stands in front of a rendered fraction.
StringC decimalSeparator();
}  // namespace datetimeinternal

}  // namespace keel

#endif
