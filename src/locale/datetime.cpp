#include "locale/datetime.h"

#include <locale.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include <string>
#include <vector>

#include <keel/arglist.h>
#include <keel/locale.h>

#include "errors/errapi.h"
#include "locale/locale.h"
#include "text/case.h"
#include <keel/number.h>
#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

namespace {

const uint32_t kInvalidDate = 0xE3E80065;
const uint32_t kInvalidDateText = 0xE3E80064;

// Tick arithmetic wraps in unsigned words: a year beyond 2923 does not fit a
// signed 64-bit count, and the wrap is to be silent, not undefined.
inline int64_t wrapAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t wrapMul(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

// The zone from gettimeofday: minutes west of Greenwich, less 60 in summer.
int64_t zoneMinutes() {
    struct timeval now;
    struct timezone zone;
    memset(&zone, 0, sizeof zone);
    if (gettimeofday(&now, &zone) != 0) return 0;
    int64_t minutes = zone.tz_minuteswest;
    if (zone.tz_dsttime != 0) minutes -= 60;
    return minutes;
}

// printf's "%0<width>d": zero padding fills the width, the sign included.
char* putPadded(char* p, int32_t value, int width) {
    uint32_t magnitude = static_cast<uint32_t>(value);
    if (value < 0) {
        *p++ = '-';
        magnitude = 0u - magnitude;
        --width;
    }
    char digits[12];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    for (int i = count; i < width; ++i) *p++ = '0';
    while (count > 0) *p++ = digits[--count];
    return p;
}

// printf's "%0.*lu": the precision is the least number of digits.
char* putFraction(char* p, uint32_t value, int precision) {
    char digits[12];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    for (int i = count; i < precision; ++i) *p++ = '0';
    while (count > 0) *p++ = digits[--count];
    return p;
}

inline bool isDigitChar(uint32_t c) { return c < 0x80 ? (c >= '0' && c <= '9') : isDigit(c); }
inline int32_t digitOf(uint32_t c) {
    return c < 0x80 ? static_cast<int32_t>(c - '0') : digitValue(c);
}
inline bool isBlankChar(uint32_t c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == 0xA0;
}

// Reads a field of exactly `width` digits at `index` of a parse text, or -1.
template <class Text>
int32_t readField(const Text& text, int32_t index, int32_t width) {
    if (index + width > text.length()) return -1;
    int32_t value = 0;
    for (int32_t i = index; i < index + width; ++i) {
        uint32_t c = text.at(i);
        if (!isDigitChar(c)) return -1;
        value = value * 10 + digitOf(c);
    }
    return value;
}

// Below 8 digits a fraction is brought to ticks; 8 or more stand.
inline uint32_t scaleFraction(uint32_t number, int32_t digits) {
    for (int32_t i = digits; i < 8; ++i) number *= 10;
    return number;
}

// The fraction behind a separator, starting at `index`, scaled to ticks;
// `next` is where its digits end. False when the scanner refuses it.
//
// The common case, ASCII digits ending the text or followed by a mark that
// no scanner would skip, is read here; everything else (signs, blanks, other
// scripts, long runs) goes to parseInt32 over the rest of the text, which is
// what the fraction is defined by.
template <class Text>
bool readFraction(const Text& text, int32_t index, int32_t* value, int32_t* next) {
    int32_t count = text.length();
    int32_t digits = 0;
    uint32_t number = 0;
    while (index + digits < count && digits < 10) {
        uint32_t c = text.at(index + digits);
        if (c < '0' || c > '9') break;
        number = number * 10 + (c - '0');
        ++digits;
    }
    uint32_t after = text.at(index + digits);
    bool plain = digits > 0 && digits <= 9 &&
                 (index + digits == count || (after < 0x80 && !isDigitChar(after) &&
                                              !isBlankChar(after) && after != '+' && after != '-'));
    if (plain) {
        *next = index + digits;
        *value = static_cast<int32_t>(scaleFraction(number, digits));
        return true;
    }
    StringC rest = text.rest(index);
    uint32_t error = 0, end = 0;
    int32_t scanned = parseInt32(rest, &error, 10, &end);
    if (error != 0 && error != kScanTrailingText && error != kScanNoDigits) return false;
    digits = 0;
    for (int32_t i = index; i < index + static_cast<int32_t>(end) && i < count; ++i) {
        if (isDigitChar(text.at(i))) ++digits;
    }
    *value = static_cast<int32_t>(scaleFraction(static_cast<uint32_t>(scanned), digits));
    *next = index + static_cast<int32_t>(end);
    return true;
}

const uint32_t kLocalText = 48;

// The text being parsed, as characters with the place of each in the
// string's own bytes. Erasures are made here; `commit` then gives the caller's
// string the remaining bytes in one piece, so the parser costs one new
// string however many separators it takes out. This takes any text; short
// ASCII texts, the usual stamps, go through AsciiTextC below instead.
class ParseTextC {
public:
    explicit ParseTextC(StringC& text) : caller(text), chars(localChars), count(0), erased(false) {
        // The view ends with the constructor: the caller's string changes
        // at commit.
        Utf8ViewC view(text);
        const uint8_t* bytes = view.data();
        uint32_t size = view.size();
        sourceSize = size;
        // Short texts live in the object's own arrays.
        if (size <= kLocalText) {
            memcpy(localBytes, bytes, size);
            source = localBytes;
        } else {
            heapBytes.assign(reinterpret_cast<const char*>(bytes), size);
            heapChars.resize(size);
            source = heapBytes.data();
            chars = heapChars.data();
        }
        const uint8_t* begin = reinterpret_cast<const uint8_t*>(source);
        const uint8_t* p = begin;
        const uint8_t* end = begin + size;
        while (p < end) {
            const uint8_t* at = p;
            uint32_t c = *p < 0x80 ? *p++ : utf8Next(p);
            // A sequence cut short by the end of the bytes is not read past.
            if (p > end) p = end;
            chars[count++] = {c, static_cast<uint32_t>(at - begin), static_cast<uint32_t>(p - at)};
        }
    }

    int32_t length() const { return count; }
    uint32_t at(int32_t index) const {
        if (index < 0 || index >= count) return 0;
        return chars[index].c;
    }
    // Erases the character at `index` when it is `c`.
    void eraseIf(int32_t index, uint32_t c) {
        if (index >= count || at(index) != c) return;
        memmove(chars + index, chars + index + 1,
                sizeof(CharT) * static_cast<size_t>(count - index - 1));
        --count;
        erased = true;
    }
    // Hands the caller's string the text as the parser left it.
    void commit() {
        if (!erased) return;
        caller = rest(0);
    }
    // The text as the caller gave it, for the message of a failure: the
    // caller's string itself while nothing was erased, otherwise a string
    // of the same characters made from the bytes read at the start. Made
    // only when a parse fails, so a good parse takes no copy of the handle.
    StringC original() const {
        if (!erased) return caller;
        return StringC(source, sourceSize, "vutf8");
    }
    // The bytes of the characters from `first` on, in the internal form,
    // as a new string.
    StringC rest(int32_t first) const {
        char local[kLocalText];
        std::string heap;
        char* out = local;
        if (!heapBytes.empty()) {
            heap.resize(heapBytes.size());
            out = &heap[0];
        }
        uint32_t used = 0;
        // Characters are mostly single bytes: those are copied by hand, not
        // through a call per character.
        for (int32_t i = first; i < count; ++i) {
            const CharT& ch = chars[i];
            if (ch.size == 1) {
                out[used++] = source[ch.offset];
            } else {
                memcpy(out + used, source + ch.offset, ch.size);
                used += ch.size;
            }
        }
        return StringC(out, used, "vutf8");
    }

private:
    struct CharT {
        uint32_t c;
        uint32_t offset;
        uint32_t size;
    };

    StringC& caller;
    char localBytes[kLocalText];
    CharT localChars[kLocalText];
    const char* source;
    uint32_t sourceSize;
    CharT* chars;
    std::string heapBytes;
    std::vector<CharT> heapChars;
    int32_t count;
    bool erased;
};

// A text of at most kLocalText bytes, all of them ASCII: every byte is one
// character, so the parser works on a copy of the bytes and erases there.
class AsciiTextC {
public:
    // usable() tells whether the text was short and ASCII; when it was
    // not, nothing else may be asked.
    explicit AsciiTextC(StringC& text) : caller(text), count(0), sourceSize(0), erased(false) {
        Utf8ViewC view(text);
        const uint8_t* bytes = view.data();
        uint32_t size = view.size();
        if (size > kLocalText) return;
        // One pass copies and tests; a stamp is too short for memcpy's call
        // to pay.
        uint8_t any = 0;
        for (uint32_t i = 0; i < size; ++i) {
            uint8_t b = bytes[i];
            any |= b;
            chars[i] = static_cast<char>(b);
            source[i] = static_cast<char>(b);
        }
        if (any >= 0x80) return;
        count = static_cast<int32_t>(size);
        sourceSize = size;
        ascii = true;
    }
    bool usable() const { return ascii; }

    int32_t length() const { return count; }
    uint32_t at(int32_t index) const {
        if (index < 0 || index >= count) return 0;
        return chars[index];
    }
    // The parser erases from front to back, so everything from `index` on
    // is still the source's text behind the characters taken out so far,
    // and is copied from there, sixteen bytes a step (the arrays have room
    // for the steps past the text). Copying from the bytes just written
    // instead would stall each step on the stores of the one before.
    void eraseIf(int32_t index, uint32_t c) {
        if (index >= count || at(index) != c) return;
        int32_t removed = static_cast<int32_t>(sourceSize) - count;
        if (index >= lastErased) {
            const char* from = source + index + removed + 1;
            for (int32_t i = index; i < count; i += 16) memcpy(chars + i, from + (i - index), 16);
        } else {
            memmove(chars + index, chars + index + 1, static_cast<size_t>(count - index - 1));
        }
        lastErased = index;
        --count;
        erased = true;
    }
    // The caller's handle gets a new representation of the bytes left: one
    // reference taken, the old one dropped.
    void commit() {
        if (!erased) return;
        StringImplI* fresh =
            getStringFactory()->fromBytes(chars, static_cast<uint32_t>(count), "vutf8");
        StringImplI* old = caller.getImpl();
        caller.adopt(fresh);
        old->release();
    }
    StringC original() const {
        if (!erased) return caller;
        return StringC(source, sourceSize, "vutf8");
    }
    StringC rest(int32_t first) const {
        return StringC(chars + first, static_cast<uint32_t>(count - first), "vutf8");
    }

private:
    StringC& caller;
    char chars[kLocalText + 16];
    char source[kLocalText + 17];
    int32_t count;
    uint32_t sourceSize;
    bool erased;
    bool ascii = false;
    int32_t lastErased = 0;
};

}  // namespace

namespace datetimeinternal {

// The process locale's decimal separator (numbers facet of version 1, its
// fifth value). The locale of this library holds an empty one.
//
// Each thread remembers the name of the process locale it last asked for and
// that locale's numbers facet. A locale, once made, lives to the end of the
// process with its facets, and a facet's separator never changes, so while
// the platform names the same locale the answer is the facet's again, and
// the lookup under the locale latch is needed only when the name changes.
// The name is asked of the platform at every call, so a program that changes
// its locale is answered for the new one at once.
StringC decimalSeparator() {
    struct RememberedT {
        ProcessLocaleNameT name;
        LocaleNumbersI* numbers;
        bool empty;
    };
    static thread_local RememberedT remembered;
    if (remembered.name.sameAsRemembered()) {
        return remembered.empty ? StringC() : remembered.numbers->decimalSeparator();
    }
    StringC name;
    LocaleI* locale = getLocale(name);
    LocaleNumbersI* numbers = locale ? locale->getNumbers(1) : nullptr;
    StringC separator = numbers ? numbers->decimalSeparator() : StringC();
    if (numbers && remembered.name.remember(name)) {
        remembered.numbers = numbers;
        remembered.empty = separator.isEmpty();
    }
    return separator;
}

}  // namespace datetimeinternal

DateTimeC::DateTimeC()
    : ticks(0),
      year(0),
      month(0),
      day(0),
      hour(0),
      minute(0),
      second(0),
      isLocal(0),
      ticksValid(1),
      fieldsValid(0),
      weekday(0) {}

DateTimeC::DateTimeC(int64_t ticks_, bool isLocal_)
    : ticks(ticks_),
      year(0),
      month(0),
      day(0),
      hour(0),
      minute(0),
      second(0),
      isLocal(isLocal_ ? 1 : 0),
      ticksValid(1),
      fieldsValid(0),
      weekday(0) {}

DateTimeC::DateTimeC(int32_t year_, int32_t month_, int32_t day_, int32_t hour_, int32_t minute_,
                     int32_t second_, bool isLocal_) {
    makeStrict(year_, month_, day_, hour_, minute_, second_, 0, isLocal_);
}

DateTimeC::DateTimeC(int32_t year_, int32_t month_, int32_t day_, int32_t hour_, int32_t minute_,
                     int32_t second_, int64_t fraction, bool isLocal_) {
    makeStrict(year_, month_, day_, hour_, minute_, second_, fraction, isLocal_);
}

void DateTimeC::makeStrict(int32_t year_, int32_t month_, int32_t day_, int32_t hour_,
                           int32_t minute_, int32_t second_, int64_t fraction, bool isLocal_) {
    year = static_cast<int16_t>(year_);
    month = static_cast<int16_t>(month_);
    day = static_cast<int16_t>(day_);
    hour = static_cast<int16_t>(hour_);
    minute = static_cast<int16_t>(minute_);
    second = static_cast<int16_t>(second_);
    isLocal = isLocal_ ? 1 : 0;
    ticks = fraction;
    ticksValid = 0;
    fieldsValid = 0;
    weekday = 0;
    ensureTicks();
    ensureFields();
    // The one test: a field out of its range rolled over into the next unit
    // on the way to ticks and back, so the fields differ from those asked.
    // Arguments beyond 16 bits never survive the round trip either.
    if (year != year_ || month != month_ || day != day_ || hour != hour_ || minute != minute_ ||
        second != second_) {
        ArgListC args;
        args.add(year_).add(month_).add(day_).add(hour_).add(minute_).add(second_);
        reportError(kInvalidDate,
                    "\x01\x01"
                    "e\x01"
                    "Invalid date/time %04d/%02d/%02d %02d:%02d:%02d",
                    args);
    }
}

const DateTimeC& DateTimeC::ensureTicks() const {
    if (ticksValid) return *this;
    ticksValid = 1;
    int64_t y = year;
    int64_t k = month - 3;
    if (month < 3) {
        k = month + 9;
        --y;
    }
    int64_t days =
        ((y % 100) * 1461) / 4 + (146097 * (y / 100)) / 4 + (k * 153 + 2) / 5 + day - 306;
    int64_t seconds = days * 86400 + hour * 3600 + minute * 60 + second;
    ticks = wrapAdd(ticks, wrapMul(seconds, kTicksPerSecond));
    return *this;
}

const DateTimeC& DateTimeC::ensureFields() const {
    if (fieldsValid) return *this;
    // Every quantity here stays far inside 64 bits: |days| is at most about
    // 1.07 million for any tick count.
    int64_t days = ticks / kTicksPerDay;
    weekday = static_cast<uint8_t>(days % 7);
    int64_t a = days * 4 + 1223;
    int64_t century = a / 146097;
    int64_t r = (a % 146097) | 3;
    int64_t yearOfCentury = r / 1461;
    int64_t q = (r % 1461 + 4) / 4;
    int64_t w = q * 5 - 3;
    int64_t m = w / 153;
    int64_t y = century * 100 + yearOfCentury;
    if (m > 9) {
        month = static_cast<int16_t>(m - 9);
        ++y;
    } else {
        month = static_cast<int16_t>(m + 3);
    }
    year = static_cast<int16_t>(y);
    day = static_cast<int16_t>((w % 153 + 5) / 5);
    int64_t secondOfDay = (ticks - days * kTicksPerDay) / kTicksPerSecond;
    second = static_cast<int16_t>(secondOfDay % 60);
    minute = static_cast<int16_t>((secondOfDay / 60) % 60);
    hour = static_cast<int16_t>(secondOfDay / 3600);
    fieldsValid = 1;
    // `ticks` stays whole: the part below one second is what the fields do
    // not hold, and the tick face remains valid beside them.
    return *this;
}

int64_t DateTimeC::getTicks() const { return ensureTicks().ticks; }

DateTimeC DateTimeC::now(bool local) {
    // time_t is 32 bits on i386: widen before any arithmetic.
    int64_t seconds = static_cast<int64_t>(time(nullptr)) + kUnixEpochSeconds;
    DateTimeC value(wrapMul(seconds, kTicksPerSecond), false);
    return local ? value.toLocal() : value;
}

DateTimeC DateTimeC::toLocal() const {
    if (isLocal) return *this;
    return DateTimeC(wrapAdd(getTicks(), wrapMul(-zoneMinutes(), 6000000000LL)), true);
}

DateTimeC DateTimeC::toUniversal() const {
    if (!isLocal) return *this;
    return DateTimeC(wrapAdd(getTicks(), wrapMul(zoneMinutes(), 6000000000LL)), true);
}

int64_t DateTimeC::difference(const DateTimeC& a, const DateTimeC& b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a.getTicks()) -
                                static_cast<uint64_t>(b.getTicks()));
}

DateTimeC DateTimeC::plus(int64_t interval) const {
    return DateTimeC(wrapAdd(getTicks(), interval), isLocal != 0);
}

DateTimeC DateTimeC::minus(int64_t interval) const {
    return DateTimeC(wrapAdd(getTicks(), wrapMul(interval, -1)), isLocal != 0);
}

void DateTimeC::add(int64_t interval) {
    ensureTicks();
    ticks = wrapAdd(ticks, interval);
    fieldsValid = 0;
}

void DateTimeC::subtract(int64_t interval) {
    ensureTicks();
    ticks = wrapAdd(ticks, wrapMul(interval, -1));
    fieldsValid = 0;
}

StringC DateTimeC::format(int32_t flags) const {
    ensureFields();
    // The text is put together here byte by byte; it is what the format
    // engine gives for "%04d%s%02d..." with the six fields as Int16, the
    // separators as CharStar, the digit count as Int32 and the fraction as
    // Unsigned32 (the tests hold the two side by side).
    int digits = flags & 7;
    bool dateOnly = (flags & kDateOnly) != 0;
    if (dateOnly) digits = 0;
    uint32_t fraction = 0;
    if (digits > 0) {
        int64_t divisor = 10;
        for (int i = digits; i < 7; ++i) divisor *= 10;
        // No carry: a fraction that rounds up to a whole second prints one
        // digit too long and the seconds stay.
        fraction = static_cast<uint32_t>((ticks % kTicksPerSecond + divisor / 2) / divisor);
    }
    bool extended = (flags & kExtended) != 0;
    char head[64];
    char* p = head;
    // A value in year 0 is a time of day, even with date only asked for.
    if (year == 0) {
        p = putPadded(p, hour, 2);
        if (extended) *p++ = ':';
        p = putPadded(p, minute, 2);
        if (extended) *p++ = ':';
        p = putPadded(p, second, 2);
    } else {
        p = putPadded(p, year, 4);
        if (extended) *p++ = '-';
        p = putPadded(p, month, 2);
        if (extended) *p++ = '-';
        p = putPadded(p, day, 2);
        if (!dateOnly) {
            *p++ = (flags & kBlank) ? ' ' : 'T';
            p = putPadded(p, hour, 2);
            if (extended) *p++ = ':';
            p = putPadded(p, minute, 2);
            if (extended) *p++ = ':';
            p = putPadded(p, second, 2);
        }
    }
    char tail[24];
    char* t = tail;
    if (digits > 0) t = putFraction(t, fraction, digits);
    if (year != 0 && !dateOnly && !isLocal) *t++ = 'Z';
    if (digits > 0) {
        StringC separator = datetimeinternal::decimalSeparator();
        if (!separator.isEmpty()) {
            StringC result(head, static_cast<uint32_t>(p - head), "utf8");
            result.append(separator);
            result.append(StringC(tail, static_cast<uint32_t>(t - tail), "utf8"));
            return result;
        }
    }
    memcpy(p, tail, static_cast<size_t>(t - tail));
    p += t - tail;
    return StringC(head, static_cast<uint32_t>(p - head), "utf8");
}

// The fields of a parsed date passed the parser's range tests (month 1 to
// 12, day 1 to 31, hour to 23, minute to 59, second to 60). Where the date
// exists, the second is below 60 and the fraction lies inside one second,
// the strict constructor's round trip through the fields gives them back
// unchanged and reports nothing, so the value is made here directly, with
// both faces valid as the strict constructor leaves them. Everything else
// (a day beyond its month, a second of 60, a fraction of nine digits or a
// negative one, the year 0, years whose ticks overflow) goes through the
// strict constructor, which rolls it over and reports.
inline DateTimeC DateTimeC::fromParsed(int32_t year_, int32_t month_, int32_t day_, int32_t hour_,
                                       int32_t minute_, int32_t second_, int64_t fraction,
                                       bool isLocal_) {
    static const uint8_t kMonthDays[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    bool leap = (year_ % 4 == 0 && year_ % 100 != 0) || year_ % 400 == 0;
    int32_t monthDays = kMonthDays[month_] + (month_ == 2 && leap ? 1 : 0);
    if (year_ < 1 || day_ > monthDays || second_ > 59 || fraction < 0 ||
        fraction >= kTicksPerSecond) {
        return DateTimeC(year_, month_, day_, hour_, minute_, second_, fraction, isLocal_);
    }
    // The day number by ensureTicks's formula; years from 1 keep every
    // quantity positive.
    int32_t y = year_, k = month_ - 3;
    if (month_ < 3) {
        k = month_ + 9;
        --y;
    }
    int32_t days =
        ((y % 100) * 1461) / 4 + (146097 * (y / 100)) / 4 + (k * 153 + 2) / 5 + day_ - 306;
    int64_t seconds = static_cast<int64_t>(days) * 86400 + hour_ * 3600 + minute_ * 60 + second_;
    // From the year 2923 on the ticks wrap, the fields derived from them are
    // others, and the strict constructor reports: that is its to do.
    if (seconds >= INT64_MAX / kTicksPerSecond) {
        return DateTimeC(year_, month_, day_, hour_, minute_, second_, fraction, isLocal_);
    }
    DateTimeC value(seconds * kTicksPerSecond + fraction, isLocal_);
    value.year = static_cast<int16_t>(year_);
    value.month = static_cast<int16_t>(month_);
    value.day = static_cast<int16_t>(day_);
    value.hour = static_cast<int16_t>(hour_);
    value.minute = static_cast<int16_t>(minute_);
    value.second = static_cast<int16_t>(second_);
    value.weekday = static_cast<uint8_t>(days % 7);
    value.fieldsValid = 1;
    return value;
}

// The steps of the parser over a text that erases in place (ParseTextC or
// AsciiTextC); `strict` makes every date through the strict constructor.
template <class Text>
DateTimeC DateTimeC::parseText(Text& chars, bool strict) {
    int32_t n = chars.length();
    bool ok = false;
    DateTimeC result;
    do {
        if (n < 6) break;
        bool timeForm = chars.at(0) == 'T' || chars.at(2) == ':' || chars.at(3) == ':';
        if (!timeForm) {
            int32_t digits = 0;
            timeForm = true;
            for (int32_t i = 0; i < n; ++i) {
                uint32_t c = chars.at(i);
                if (c == ',' || c == '.' || c == ':') break;
                if (c == '-') {
                    timeForm = false;
                    break;
                }
                if (isDigitChar(c) && ++digits == 7) {
                    timeForm = false;
                    break;
                }
            }
        }
        if (timeForm) {
            chars.eraseIf(0, 'T');
            chars.eraseIf(2, ':');
            chars.eraseIf(4, ':');
            n = chars.length();
            int32_t h = readField(chars, 0, 2), m = readField(chars, 2, 2),
                    s = readField(chars, 4, 2);
            if (h < 0 || m < 0 || s < 0 || h > 23 || m > 59 || s > 60) break;
            int32_t fraction = 0, next = 0;
            if (n >= 7 && (chars.at(6) == ',' || chars.at(6) == '.')) {
                if (!readFraction(chars, 7, &fraction, &next)) break;
            }
            result = DateTimeC(
                wrapAdd(static_cast<int64_t>((h * 60 + m) * 60 + s) * kTicksPerSecond, fraction),
                false);
            ok = true;
            break;
        }
        chars.eraseIf(4, '-');
        if (chars.length() > 6) chars.eraseIf(6, '-');
        if (chars.length() > 8) {
            if (chars.at(8) == ' ') {
                chars.eraseIf(8, ' ');
            } else {
                chars.eraseIf(8, 'T');
            }
        }
        if (chars.length() > 10) chars.eraseIf(10, ':');
        if (chars.length() > 12) chars.eraseIf(12, ':');
        n = chars.length();
        int32_t y = readField(chars, 0, 4), mo = readField(chars, 4, 2), d = readField(chars, 6, 2);
        if (y < 0 || mo < 1 || mo > 12 || d < 1 || d > 31) break;
        int32_t h = 0, mi = 0, s = 0, fraction = 0;
        bool local = true;
        if (n > 13) {
            h = readField(chars, 8, 2), mi = readField(chars, 10, 2), s = readField(chars, 12, 2);
            if (h < 0 || mi < 0 || s < 0 || h > 23 || mi > 59 || s > 60) break;
            if (n != 14) {
                int32_t next = 14;
                if (chars.at(14) == ',' || chars.at(14) == '.') {
                    if (!readFraction(chars, 15, &fraction, &next)) break;
                }
                if (next < n && chars.at(next) == 'Z') local = false;
            }
        } else if (n != 8) {
            break;
        }
        result = strict ? DateTimeC(y, mo, d, h, mi, s, static_cast<int64_t>(fraction), local)
                        : fromParsed(y, mo, d, h, mi, s, static_cast<int64_t>(fraction), local);
        ok = true;
    } while (false);
    chars.commit();
    if (!ok) {
        reportError(kInvalidDateText,
                    "\x01\x01"
                    "e\x01"
                    "Invalid date/time string: '%S'",
                    ArgListC().add(chars.original()));
        return DateTimeC(0, false);
    }
    return result;
}

DateTimeC DateTimeC::parse(StringC& text) {
    {
        AsciiTextC chars(text);
        if (chars.usable()) return parseText(chars, false);
    }
    ParseTextC chars(text);
    return parseText(chars, false);
}

DateTimeC DateTimeC::parseReference(StringC& text) {
    ParseTextC chars(text);
    return parseText(chars, true);
}

}  // namespace keel
