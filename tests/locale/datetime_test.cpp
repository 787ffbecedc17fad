// DateTimeC: known days, the strict constructors at and beyond every field's
// bounds, intervals, the render forms and the parser's table. The calendar
// both ways over the whole tick range and the render forms beside the format
// engine's own rendering are fuzz/datetime_fuzz.cpp's.
#include "locale/datetime.h"

#include <gtest/gtest.h>

#include <locale.h>

#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <keel/errors.h>

#include "locale/locale.h"
#include "testing/tracelines.h"

namespace keel {
namespace {

const int64_t kSecond = DateTimeC::kTicksPerSecond;

class DateTimeTest : public ::testing::Test {
protected:
    DateTimeTest() : errors(getErrBuf()) { errors->takeText(nullptr); }
    ~DateTimeTest() override { errors->takeText(nullptr); }
    // The codes reported since the last call, oldest first, as one text.
    std::string reported() {
        std::ostringstream codes;
        for (uint32_t i = 0; i < errors->getCount(); ++i)
            codes << (i ? " " : "") << std::hex << std::uppercase << errors->getEntry(i)->getCode();
        errors->takeText(nullptr);
        return codes.str();
    }
    static std::string fields(const DateTimeC& value) {
        char text[64];
        snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d w%d", value.getYear(),
                 value.getMonth(), value.getDay(), value.getHour(), value.getMinute(),
                 value.getSecond(), value.getWeekday());
        return text;
    }
    ErrBufI* errors;
};

TEST_F(DateTimeTest, KnownDaysAndTheOrigin) {
    DateTimeC epoch(1970, 1, 1, 0, 0, 0, false);
    EXPECT_EQ(epoch.getTicks(), 62135683200LL * kSecond);
    EXPECT_EQ(epoch.getWeekday(), 4);
    EXPECT_EQ(fields(DateTimeC(0, false)), "0000-12-31 00:00:00 w0");
    EXPECT_EQ(fields(DateTimeC(DateTimeC::kTicksPerDay, false)), "0001-01-01 00:00:00 w1");
    // The last whole second that a signed tick count holds.
    EXPECT_EQ(fields(DateTimeC(INT64_MAX, false)), "2923-10-08 21:52:48 w5");
    EXPECT_EQ(reported(), "");
}

// Every field beyond its bounds: the report, and what the value reads as
// afterwards (null: not looked at). Valid fields and the ends of the range
// are the known days' above and the round trip's below, and datetime_fuzz
// checks that a report comes exactly when the fields do not come back as
// given.
TEST_F(DateTimeTest, StrictConstructorsBeyondTheBounds) {
    // The fields, and what the value reads as.
    const std::tuple<int32_t, int32_t, int32_t, int32_t, int32_t, int32_t, const char*> cases[] = {
        {2023, 2, 29, 0, 0, 0, "2023-03-01 00:00:00 w3"},
        {2024, 2, 30, 0, 0, 0, "2024-03-01 00:00:00 w5"},
        {2024, 0, 15, 0, 0, 0, "2023-12-15 00:00:00 w5"},
        {2024, 13, 1, 0, 0, 0, "2025-01-01 00:00:00 w3"},
        {2024, 1, 0, 0, 0, 0, "2023-12-31 00:00:00 w0"},
        {2024, 1, 32, 0, 0, 0, "2024-02-01 00:00:00 w4"},
        {2024, 1, 1, 24, 0, 0, "2024-01-02 00:00:00 w2"},
        {2024, 1, 1, 0, 60, 0, "2024-01-01 01:00:00 w1"},
        {2024, 1, 1, 0, 0, 60, "2024-01-01 00:01:00 w1"},
        {2024, 1, 1, 0, 0, -1, "2023-12-31 23:59:59 w0"},
        // One second further no longer fits a signed count: it wraps.
        {2923, 10, 8, 21, 52, 49, nullptr},
        {9999, 12, 31, 23, 59, 59, nullptr},
        {70000, 1, 1, 0, 0, 0, nullptr},
    };
    for (const auto& [y, mo, d, h, mi, s, reads] : cases) {
        SCOPED_TRACE(::testing::Message()
                     << y << "-" << mo << "-" << d << " " << h << ":" << mi << ":" << s);
        DateTimeC value(y, mo, d, h, mi, s, false);
        EXPECT_EQ(reported(), "E3E80065");
        EXPECT_EQ(fields(value), reads ? reads : fields(value));
    }
    DateTimeC(2023, 2, 29, 1, 2, 3, true);
    ASSERT_EQ(errors->getCount(), 1u);
    EXPECT_EQ(str(errors->getEntry(0)->getText()), "Invalid date/time 2023/02/29 01:02:03");
    EXPECT_EQ(errors->getEntry(0)->getSeverity(), 4u);
}

TEST_F(DateTimeTest, IntervalsAndZones) {
    DateTimeC a(2024, 3, 1, 0, 0, 0, false), b(2024, 2, 28, 0, 0, 0, true);
    EXPECT_EQ(DateTimeC::difference(a, b), 2 * DateTimeC::kTicksPerDay);
    EXPECT_EQ(DateTimeC::difference(b, a), -2 * DateTimeC::kTicksPerDay);
    DateTimeC later = b.plus(DateTimeC::kTicksPerDay).minus(kSecond);
    EXPECT_TRUE(later.isLocalTime());
    EXPECT_EQ(fields(later), "2024-02-28 23:59:59 w3");
    later.add(91 * kSecond);
    later.subtract(kSecond);
    EXPECT_EQ(fields(later), "2024-02-29 00:01:29 w4");
    // Wrapping past the top is silent and defined.
    EXPECT_EQ(DateTimeC(INT64_MAX, false).plus(1).getTicks(), INT64_MIN);
    // toUniversal moves the ticks back and still leaves the value local.
    DateTimeC back = a.toLocal().toUniversal();
    EXPECT_TRUE(a.toLocal().isLocalTime() && back.isLocalTime());
    EXPECT_EQ(back.getTicks(), a.getTicks());
    DateTimeC now = DateTimeC::now(false);
    EXPECT_EQ(now.getTicks() % kSecond, 0);
    EXPECT_FALSE(now.isLocalTime());
    EXPECT_TRUE(DateTimeC::now(true).isLocalTime());
}

// The forms' oddities; datetime_fuzz compares every form of any tick count
// with what the format engine writes.
TEST_F(DateTimeTest, RenderForms) {
    DateTimeC stamp(2001, 2, 3, 4, 5, 6, 123456789 % kSecond, false);
    EXPECT_EQ(str(stamp.format(43)), "2001-02-03 04:05:06235Z");
    EXPECT_EQ(str(DateTimeC(2001, 2, 3, 4, 5, 6, true).format(32)), "20010203 040506");
    // A time of day: no zone, and it wins over date only. No carry: 0.9999
    // seconds in three digits prints as 1000.
    DateTimeC time(2 * kSecond + 99990000, false);
    EXPECT_EQ(str(time.format(3)), "0000021000");
    EXPECT_EQ(str(time.format(8 + 16 + 3)), "00:00:02");
    EXPECT_EQ(str(DateTimeC(1970, 1, 1, 0, 0, 0, false).format(8 + 16)), "1970-01-01");
    // Before the origin the fields are negative and written with their sign,
    // as the format engine's "%02d" writes them.
    DateTimeC before(-3661 * kSecond - 5, false);
    EXPECT_EQ(str(before.format(8)), "-1:-1:-1");
    EXPECT_EQ(str(before.format(0)), "-1-1-1");
}

// Each thread remembers the process locale it last rendered under: threads
// rendering at once agree, and a change of the process locale (to one that
// has not been asked for yet) is seen by the next render.
TEST_F(DateTimeTest, RenderAcrossThreadsAndALocaleChange) {
    DateTimeC stamp(2024, 2, 29, 12, 30, 45, 123 * kSecond / 1000, false);
    // The locale of this library has no decimal separator.
    const std::string expected = "2024-02-29 12:30:45123Z";
    std::vector<std::string> seen(4);
    std::vector<std::thread> threads;
    for (std::string& text : seen) {
        threads.emplace_back([&text, &stamp] {
            for (int n = 0; n < 200; ++n) text = str(stamp.format(8 + 32 + 3));
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::vector<std::string>(4, expected), seen);
    std::string before = setlocale(LC_ALL, nullptr);
    if (setlocale(LC_NUMERIC, "C.UTF-8") != nullptr && before != setlocale(LC_ALL, nullptr)) {
        EXPECT_EQ(str(stamp.format(8 + 32 + 3)), expected);
        // The render asked for the locale of the new name, which made it:
        // asking again adds nothing.
        uint32_t locales = localeCount();
        StringC name;
        getLocale(name);
        EXPECT_EQ(localeCount(), locales);
        setlocale(LC_ALL, before.c_str());
    }
    EXPECT_EQ(str(stamp.format(8 + 32 + 3)), expected);
}

// One row per example of the parser's rules and quirks: what the value reads
// as ("" for the zero value of a refusal), the codes reported, and the
// caller's text afterwards (null: not looked at). The plain parser answers
// the same (datetime_fuzz holds the two together over arbitrary texts).
TEST_F(DateTimeTest, ParseTable) {
    // Text, what the value reads as, codes, the text afterwards.
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"20240229", "2024-02-29 00:00:00 w4+0 local", "", "20240229"},
        {"2024-02-29", "2024-02-29 00:00:00 w4+0 local", "", "20240229"},
        {"2024-02-29T12:30:45Z", "2024-02-29 12:30:45 w4+0", "", "20240229123045Z"},
        {"20240229T123045.5", "2024-02-29 12:30:45 w4+50000000 local", "", "20240229123045.5"},
        {"2024-02-29T12:30:45,25Z", "2024-02-29 12:30:45 w4+25000000", "", "20240229123045,25Z"},
        {"20240229T123045.123456789Z", "2024-02-29 12:30:46 w4+23456789", "E3E80065", nullptr},
        {"20240229T123045.12345678Z", "2024-02-29 12:30:45 w4+12345678", "", nullptr},
        {"20240229T123045.Z", "", "E3E80064", nullptr},
        {"20240229T123045x", "2024-02-29 12:30:45 w4+0 local", "", nullptr},
        {"20240229T123045Zx", "2024-02-29 12:30:45 w4+0", "", nullptr},
        // Times of day: no date, universal.
        {"12:30:45", "0000-12-31 12:30:45 w0+0", "", "123045"},
        {"T12:30:45.5", "0000-12-31 12:30:45 w0+50000000", "", "123045.5"},
        {"123045", "0000-12-31 12:30:45 w0+0", "", "123045"},
        {"23:59:60", "0001-01-01 00:00:00 w1+0", "", nullptr},  // a whole day of ticks
        {"\xd9\xa1\xd9\xa2:30:45", "0000-12-31 12:30:45 w0+0", "", nullptr},
        {"2024-13-01", "", "E3E80064", "20241301"},
        {"2024-01-32", "", "E3E80064", nullptr},
        {"2024-02-30", "2024-03-01 00:00:00 w5+0 local", "E3E80065", nullptr},
        {"20240229T123060", "2024-02-29 12:31:00 w4+0 local", "E3E80065", nullptr},
        {"20240229T243000", "", "E3E80064", nullptr},
        {"24:00:00", "", "E3E80064", nullptr},
        {"12345", "", "E3E80064", "12345"},
        {"202402291", "", "E3E80064", nullptr},
        {"2024-02-29T12:30", "", "E3E80064", nullptr},
        {"abcdefgh", "", "E3E80064", nullptr},
        {"2024-02-3\xC3\xA9T12:00:00", "", "E3E80064", nullptr},
        {"2024-13-01T12:00:00.123456789012345678901234567890123456789\xE2\x82\xAC", "", "E3E80064",
         nullptr},
    };
    auto reads = [](const DateTimeC& value) {
        return fields(value) + "+" + std::to_string(value.getTicks() % kSecond) +
               (value.isLocalTime() ? " local" : "");
    };
    for (const auto& [given, expected, codes, after] : cases) {
        SCOPED_TRACE(given);
        StringC text(given, "utf8"), plainText(given, "utf8");
        DateTimeC plain = DateTimeC::parseReference(plainText);
        EXPECT_EQ(reported(), codes);
        DateTimeC value = DateTimeC::parse(text);
        // A refusal quotes the text as given, whether or not separators were
        // taken out before the parse failed, for short and long texts alike.
        if (std::string(codes) == "E3E80064") {
            ASSERT_EQ(1u, errors->getCount());
            EXPECT_EQ(str(errors->getEntry(0)->getText()),
                      "Invalid date/time string: '" + std::string(given) + "'");
        }
        EXPECT_EQ(reported(), codes);
        EXPECT_EQ(std::make_pair(reads(value), str(text)),
                  std::make_pair(std::string(*expected ? expected : reads(DateTimeC(0, false))),
                                 after ? std::string(after) : str(text)));
        EXPECT_EQ(std::make_pair(reads(plain), str(plainText)),
                  std::make_pair(reads(value), str(text)));
    }
    StringC time("12:30:45", "utf8");
    EXPECT_EQ(str(DateTimeC::parse(time).format(8)), "12:30:45");
}

}  // namespace
}  // namespace keel
