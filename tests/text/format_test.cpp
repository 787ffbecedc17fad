// The format engine: each place where the renderer differs from printf on
// purpose (fuzz/printf_fuzz.cpp compares it with snprintf everywhere else),
// the rendering rules, the parser's entries from real variadic calls, and the
// two halves working together.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <keel/keel.h>

#include "text/case.h"
#include "text/format.h"
#include "testing/scantest.h"
#include "text/utf8.h"

using namespace keel;

namespace {

struct SinkT { std::string text; int32_t characters = 0; };

// Counts the characters a string can hold, as the new string's length does.
void appendUtf8(void* context, uint32_t character) {
    SinkT* sink = static_cast<SinkT*>(context);
    uint8_t bytes[8];
    uint8_t* end = bytes;
    utf8Put(end, character);
    sink->text.append(reinterpret_cast<char*>(bytes), end - bytes);
    sink->characters += end > bytes ? 1 : 0;
}

// Renders into a new string and through a sink; the two must agree.
std::string render(const char* format, const ArgListC& args = ArgListC()) {
    SinkT sink;
    StringC::formatTo(appendUtf8, &sink, u8(format), args);
    StringC result = StringC::format(u8(format), args);
    EXPECT_EQ(str(result), sink.text) << format;
    EXPECT_EQ(result.length(), sink.characters) << format;
    return sink.text;
}

// Entries that have no overload of add of their own.
struct Ucs4 { uint32_t c; };
struct Null {};
void put(ArgListC& list, Ucs4 u) { list.addUCS4(u.c); }
void put(ArgListC& list, Null) { list.addNull(); }
template <typename T>
void put(ArgListC& list, const T& value) { list.add(value); }
template <typename... T>
ArgListC A(const T&... values) {
    ArgListC list;
    (put(list, values), ...);
    return list;
}

struct RenderT { const char* format; ArgListC args; std::string expected; };

void expectRenders(const std::vector<RenderT>& rows) {
    for (const RenderT& row : rows) EXPECT_EQ(render(row.format, row.args), row.expected) << row.format;
}

ArgListC parse(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ArgListC list = ArgListC::fromFormat(u8(format), arguments);
    va_end(arguments);
    return list;
}

std::string typeNames(const ArgListC& list) {
    std::string names;
    for (int32_t i = 0; i < list.count(); ++i) names += (i ? " " : "") + std::string(list.get(i)->typeName());
    return names;
}

std::string localTime(time_t seconds, const char* pattern) {
    struct tm fields = {};
    localtime_r(&seconds, &fields);
    char text[272];
    return std::string(text, strftime(text, sizeof text, pattern, &fields));
}

// ---------------------------------------------------------------------------
// The places where this engine is not printf.

// Each row a place where the engine is not printf on purpose.
TEST(FormatDifferences, RowsThatAreNotPrintf) {
    ArgListC sixteen = A(int16_t(-1), uint16_t(65535), int16_t(-2)), huge = A(1e300, -1e300, __builtin_nan(""));
    expectRenders({
        // "." alone is precision 0 but keeps the zero filler.
        {"[%.0d]", A(0), "[0]"}, {"[%.0x]", A(0), "[0]"}, {"[%5.0u]", A(0), "[    0]"},
        {"[%#.0o]", A(0), "[0]"}, {"[%08.d]", A(5), "[00000005]"}, {"[%08.0d]", A(5), "[       5]"},
        // Unknown letters print themselves and take no argument: precision is not
        // applied, length letters are skipped, a % at the end reads the
        // terminator, and a number without $ is the width: no flags behind it.
        {"[%5%]", A(7), "[    %]"}, {"[%-3%]", A(7), "[%  ]"}, {"[%.0f]", A(7), "[f]"},
        {"[%f %e %g %n %y %d]", A(7), "[f e g n y 7]"}, {"[%lf]", A(7), "[f]"}, {"%%", A(), "%"},
        {"abc%", A(), "abc"}, {"abc%4", A(), "abc    "}, {"[%5-d]", A(7), "[    -d]"},
        // A negative `*` precision is 0 and leaves the filler alone, so the zero
        // filler takes over; a negative width means left.
        {"[%.*S]", A(-1, u8("abc")), "[]"}, {"[%.*d]", A(-3, 0), "[0]"},
        {"[%06.*d]", A(-3, 42), "[000042]"}, {"[%*d]", A(-5, 42), "[42   ]"},
        // Binary.
        {"%b %#b %b %b", A(5, 0, -1, uint64_t(1) << 63), "101 0 " + std::string(32, '1') + " 1" + std::string(63, '0')},
        {"%#b", A(5), "0b101"}, {"[%#08b]", A(5), "[0b000101]"}, {"[%+b]", A(5), "[101]"},
        {"%.64b", A(1), std::string(63, '0') + "1"},
        // Unsigned views zero-extend 16 bits, signed views sign-extend them; so
        // does the 32-bit view of `*`. An Int32 is never extended past 32 bits.
        {"%u %d %x", sixteen, "65535 -1 fffe"}, {"%2$d %2$u", sixteen, "-1 65535"},
        {"%1$d %1$u %1$x %1$X %1$o", sixteen, "-1 65535 ffff FFFF 177777"},
        {"[%*d][%*d]", A(int16_t(-4), 1, uint16_t(3), 2), "[1   ][  2]"},
        {"%1$d %1$u %1$x", A(0xFFFFFFFFu), "-1 4294967295 ffffffff"}, {"%llx", A(-1), "ffffffff"},
        // Reals are truncated toward zero.
        {"%d %d %x %d", A(3.9, -3.9, 255.99, -0.5), "3 -3 ff 0"}, {"[%*d]", A(4.7, 1), "[   1]"},
        {"%2$u", A(3.9, -3.9), "18446744073709551613"},
        {"%d %d %d", huge, "9223372036854775807 -9223372036854775808 0"},
        {"%u %c|", huge, "18446744073709551615  |"},
    });
}

TEST(FormatDifferences, PointerIsCapitalHexWithEightDigitsAtLeast) {
    ArgListC p = A(reinterpret_cast<const void*>(uintptr_t(0x1234)));
    expectRenders({{"%p", p, "0x00001234"}, {"%08p", p, "0x00001234"}, {"%.2p", p, "0x00001234"},
                   {"[%12p]", p, "[  0x00001234]"}, {"[%-12p]", p, "[0x00001234  ]"}, {"%+p", p, "+0x00001234"},
                   {"%p", A(reinterpret_cast<const void*>(uintptr_t(0xDEADBEEFu))), "0xDEADBEEF"}});
    // A "CharStar" shows its pointer; any other entry, or none, shows 0.
    ArgListC others = A(0x1234, "text", Null());
    char text[32];
    snprintf(text, sizeof text, "0x%08llX", static_cast<unsigned long long>(uintptr_t(others.get(1)->pointer())));
    EXPECT_EQ(render("%p|%p|%p|%p", others), std::string("0x00000000|") + text + "|0x00000000|0x00000000");
}

// ---------------------------------------------------------------------------
// The rendering rules, case by case.

TEST(FormatRender, FlagsPositionsAndDigitsOfOtherScripts) {
    ArgListC two = A(u8("one"), u8("two")), star = A(42, 5), scripts = A(42, u8("ab")), third = A(u8("one"), 2, 7);
    expectRenders({
        {"[%0-5d]", A(42), "[00042]"}, {"[%0*d]", A(-6, 42), "[000042]"},  // a filler set before `-` stays
        {"%#.3o", A(8), "0010"},
        // Precision stops at 64 digits; more width is blanks in front.
        {"%.70d", A(5), std::string(63, '0') + "5"}, {"%070d", A(5), std::string(6, ' ') + std::string(63, '0') + "5"},
        // A conversion without a position takes the entry behind the last one taken;
        // "%03$" is the zero filler and position 3, with no width.
        {"%2$S %1$S", two, "two one"}, {"%2$S|%S", two, "two|"}, {"%2$S|%S", A(u8("1"), u8("2"), u8("3")), "2|3"},
        {"%03$d|%1$S", third, "7|one"}, {"%03$4d", third, "0007"}, {"[%*2$d]", star, "[   42]"},
        {"[%.*2$d]", star, "[00042]"},
        // One digit only: without `$` the digit is the conversion letter.
        {"[%*2d]", star, "[" + std::string(41, ' ') + "2d]"}, {"[%.*3d|%d]", star, "[3d|5]"},
        // Position 0 is a missing entry; huge positions do not overflow.
        {"[%0$d|%d]", star, "[$d|42]"}, {"[%00$d|%d]", star, "[0|42]"}, {"[%99999999999$d]", star, "[0]"},
        // Arabic-Indic 5, 2 and 0, and a full-width 3; a text's filler is the zero read.
        {"[%\xd9\xa5" "d]", scripts, "[   42]"}, {"[%\xd9\xa2$S]", scripts, "[ab]"},
        {"[%\xd9\xa0\xd9\xa5" "d]", scripts, "[00042]"}, {"[%2$\xd9\xa0" "4S]", scripts, "[\xd9\xa0\xd9\xa0" "ab]"},
        {"[%.\xef\xbc\x93" "d]", scripts, "[042]"},
    });
}

TEST(FormatRender, TextConversionsAndMissingEntries) {
    ArgListC args = A(u8("\xc5\x81" "ab"), "caf\xc3\xa9", 321, Ucs4{321}, 7);
    ArgListC guid = A(ArgGuidT{0x0123ABCDu, 0x4567, 0x89EF, {0xA0, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F, 0x60, 0x07}});
    expectRenders({
        {"%.1S", args, "\xc5\x81"}, {"[%5.2S]", args, "[   \xc5\x81" "a]"}, {"%1$s", args, "\xc5\x81" "ab"},
        {"%2$S|%2$s|%2$.4s|%2$6s", args, "caf\xc3\xa9|caf\xc3\xa9|caf\xc3\xa9|  caf\xc3\xa9"},
        {"[%3$s][%3$S][%3$d]", args, "[][][321]"}, {"[%1$d]", args, "[0]"},
        {"%3$c|%4$C|%4$S|%4$.0S|", args, "A|\xc5\x81|\xc5\x81||"},
        {"[%05S]", A(u8("ab")), "[000ab]"}, {"[%-5S]", A(u8("ab")), "[ab   ]"}, {"[%05c]", A(65), "[0000A]"},
        // %c wants the low byte of integers and shows a blank for others. Characters
        // beyond Unicode pass as they are; one that no string can hold shows as nothing.
        {"[%c][%c][%c][%c][%c][%c][%c]", A(true, int64_t(0x141), uint32_t(0x1F600), 2.5, u8("x"), Null()),
         "[\x01][A][\xf0\x9f\x98\x80][ ][ ][ ][ ]"},
        {"%C%S\xe2\x82\xac%C", A(Ucs4{0x1F600}, u8("\xc3\xa9"), Ucs4{0x7FFFFFFF}),
         "\xf0\x9f\x98\x80\xc3\xa9\xe2\x82\xac\xfd\xbf\xbf\xbf\xbf\xbf"},
        {"[%3C][%3c]", A(Ucs4{0x80000000u}, 0), "[   ][   ]"},
        // 8-bit text: broken UTF-8 is replaced, never passed on.
        {"[%s]", A("a\xff" "b"), "[a\xef\xbf\xbd" "b]"}, {"[%-6s]", A("\xc3\xa9t\xc3\xa9"), "[\xc3\xa9t\xc3\xa9   ]"},
        {"[%3s]", A(std::string(120, 'x').c_str()), "[" + std::string(120, 'x') + "]"},
        // A missing entry is the empty text, 0 or a blank.
        {"[%s]", A(), "[]"}, {"[%5s]", A(), "[     ]"}, {"[%-3s|%S|%d|%x|%c]", A(), "[   ||0|0| ]"},
        {"%S", guid, "{0123ABCD-4567-89EF-A01B-2C3D4E5F6007}"}, {"%.5S", guid, "{0123"}, {"[%s]", guid, "[]"},
    });
    ArgListC null;
    ArgEntry* entry = ArgEntry::allocate(ArgCharStar, sizeof(char*));
    memset(entry->value(), 0, sizeof(char*));
    EXPECT_EQ(render("[%s][%S][%p]", null.append(entry)), "[<null pointer>][][0x00000000]");
}

TEST(FormatRender, TimeConversions) {
    // The same instant as a DateTime of 10-ns ticks from 0000-12-31; anything else is the time 0.
    ArgListC args = A(ArgTimeValT{1700000000, 123456}), ticks;
    ticks.addDateTime(6213568320000000000LL + 1700000000LL * 100000000LL + 12345678);
    std::string date = localTime(1700000000, "%Y/%m/%d %H:%M:%S"), epoch = localTime(0, "%Y/%m/%d %H:%M:%S");
    expectRenders({{"%t", args, date}, {"%.20t", args, date + "."}, {"%.23t", args, date + ".123"},
                   {"%.26t", args, date + ".123456"}, {"%.999t", args, date + ".123456"},
                   {"%.10t", args, date.substr(0, 10)}, {"[%22t]", args, "[   " + date + "]"},
                   {"%.26t", ticks, date + ".123456"}, {"%t", A(5), epoch}, {"%t", A(), epoch}});
    // %D and %T read the clock (a fixed instant here) and take no argument;
    // their limits of 10 and 271 cap the precision.
    FormatClockFn real = formatClock;
    formatClock = [](struct timeval* now) {
        *now = {1700000000, 123456};
        return 0;
    };
    std::string now = str(StringC::format(u8("%D %T|%.21T|%.20D|%.300T|%d"), A(9)));
    formatClock = real;
    std::string day = localTime(1700000000, "%Y/%m/%d"), time = localTime(1700000000, "%H:%M:%S");
    EXPECT_EQ(now, day + " " + time + "|" + time + ".123456|" + day + "|" + time + ".123456|9");
}

TEST(FormatRender, SystemErrorTextIsTakenOnEntry) {
    errno = ENOENT;
    EXPECT_EQ(render("[%!]"), std::string("[") + strerror(ENOENT) + "]");
    EXPECT_EQ(errno, ENOENT);
    errno = EACCES;
    EXPECT_EQ(render("%.4!"), std::string(strerror(EACCES)).substr(0, 4));
}

TEST(FormatRender, ResultGrowsAndTakesFormatsOfAnyEncoding) {
    // Far past the format's own room, across characters of several bytes.
    std::string many;
    for (int i = 0; i < 300; ++i) many += "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80x";
    StringC m = u8(many.c_str());
    expectRenders({{"<%5000d>", A(7), "<" + std::string(4999, ' ') + "7>"},
                   {"%S%S|%.7S", A(m, m, m), many + many + "|" + many.substr(0, 19)}});
    // A new result is private and can be changed.
    StringC changed = StringC::format(u8("ab%d"), A(1));
    changed.append(uint32_t('!'));
    EXPECT_EQ(str(changed), "ab1!");
    EXPECT_EQ(changed.length(), 4);
    const uint16_t pattern[] = {'<', '%', 'd', '>', 0x20AC, 0};
    EXPECT_EQ(str(StringC::format(StringC(pattern), A(12))), "<12>\xe2\x82\xac");
    EXPECT_EQ(str(StringC::format(StringC(), A(12))), "");
}

// ---------------------------------------------------------------------------
// The parser: what real variadic calls give, and rendering that list.

struct AgreementT { const char* format; ArgListC list; const char* types; std::string text; };
#define AGREE(format, types, text, ...) {format, parse(format, __VA_ARGS__), types, text}

TEST(FormatParser, ParserAndRendererAgree) {
    StringC name = u8("file.txt"), other = u8("\xc3\xa9t\xc3\xa9"), a = u8("a");
    ArgTimeValT time = {1700000000, 654321};
    std::string date = localTime(1700000000, "%Y/%m/%d %H:%M:%S"), epoch = localTime(0, "%Y/%m/%d %H:%M:%S");
    const AgreementT rows[] = {
        AGREE("%d %i %c %u %x %X %o %b %C %S %s", "Int32 Int32 Int32 Unsigned32 Unsigned32 Unsigned32 Unsigned32 "
              "Unsigned32 UCS4 String CharStar", "-1 2 c 3 a B 10 101 \xc5\x81 file.txt text",
              -1, 2, 'c', 3u, 10u, 11u, 8u, 5u, 0x141u, &name, "text"),
        AGREE("%ld %lld %hd %hhd %lu %llx %hu %hhx", "Int32 Int64 Int16 Int32 Unsigned32 Unsigned64 Unsigned16 Int32",
              "1 -2 4464 44 4 ffffffffffffffff 1 ff", 1, -2LL, 70000, 300, 4u, ~0ULL, 65537u, 0x1FFu),
        AGREE("%hd|%hu|%hhd|%hhu", "Int16 Unsigned16 Int32 Int32", "-1|65535|-1|255", 65535, 65535u, 255, 255u),
        AGREE("%lld/%llu", "Int64 Unsigned64", "-9000000000/18000000000", -9000000000LL, 18000000000ULL),
        AGREE("%ld%%%lx", "Int32 Unsigned32", "-7%ff", -7, 255u),
        AGREE("%b|%#o|%X", "Unsigned32 Unsigned32 Unsigned32", "110|010|BEEF", 6u, 8u, 0xBEEFu),
        AGREE("%C%c", "UCS4 Int32", "\xe2\x82\xac" "A", 0x20ACu, 321),
        AGREE("%p|%lp", "ObjRef ObjRef", "0x00000ABC|0x00000000", reinterpret_cast<void*>(uintptr_t(0xABC)), nullptr),
        AGREE("%.23t", "TimeVal", date + ".654", &time),
        AGREE("%S|%s|%t", "String CharStar TimeVal", "||" + epoch, static_cast<StringC*>(nullptr),
              static_cast<char*>(nullptr), static_cast<ArgTimeValT*>(nullptr)),
        // Positions: one nobody names still takes an int, so the later ones line up.
        AGREE("Failed to open file '%1$S' (%2$d)", "String Int32", "Failed to open file 'file.txt' (-2)", &name, -2),
        AGREE("%2$s=%1$05x", "Unsigned32 CharStar", "key=000ff", 255u, "key"),
        AGREE("%3$S%1$S%2$S", "String String String", "\xc3\xa9t\xc3\xa9" "file.txt\xc3\xa9t\xc3\xa9", &name, &other,
              &other),
        AGREE("%3$d", "Int32 Int32 Int32", "3", 1, 2, 3),
        AGREE("%1$d %1$x", "Unsigned32", "5 5", 5),  // the last conversion wins
        // `*` takes an int and `*n$` names its position; a digit behind `*` without `$` is a letter.
        AGREE("[%-*S][%.*S]", "Int32 String Int32 String", "[\xc3\xa9t\xc3\xa9  ][fi]", 5, &other, 2, &name),
        AGREE("%*.*S %*1$d", "Int32 Int32 String Int32", "   a    7", 4, 1, &a, 7),
        AGREE("%*2d", "Int32", "    2d", 5),
    };
    for (const AgreementT& row : rows) {
        EXPECT_EQ(typeNames(row.list), row.types) << row.format;
        EXPECT_EQ(str(StringC::format(u8(row.format), row.list)), row.text) << row.format;
    }
    EXPECT_EQ(rows[0].list.get(9)->string().getImpl(), name.getImpl());  // shared, not copied
    // Flags, a zero and widths are skipped, so are digits of other scripts.
    EXPECT_EQ(typeNames(parse("%-+ #012.5d %\xd9\xa2$S %-0*d", 1, &a, 2, 3)), "Int32 String Int32 Int32");
    // Letters the parser does not know take no argument. A zero right behind
    // the % starts a number, and the `*` behind it stands where the letter would.
    EXPECT_EQ(parse("%ls %hs %lc %qd %zu %jd %Ld %hhhd %hS %lC", 1, 2, 3).count(), 0);
    EXPECT_EQ(parse("%0*d", 5, 42).count(), 0);
    EXPECT_EQ(parse("no arguments at all %% %f %5%").getImpl(), nullptr);
    // The variadic helpers, with the format as 8-bit text or as a string.
    StringC pattern = u8("<%s|%5.1S>");
    EXPECT_EQ(str(formatString("%S is %d%% full", &name, 93)), "file.txt is 93% full");
    EXPECT_EQ(str(formatString(&pattern, "x", &name)), "<x|    f>");
    EXPECT_EQ(str(formatString(static_cast<const char*>(nullptr))), "");
}

TEST(FormatParser, PositionsOutsideTheTable) {
    // 128 positions fit; a position at or above 128 records nothing and
    // leaves the lower ones alone.
    EXPECT_EQ(typeNames(parse("%1$d %200$d %2$u", 5, 6u)), "Int32 Unsigned32");
    EXPECT_EQ(str(formatString("%1$d %200$d %2$u", 5, 6u)), "5 0 6");
    EXPECT_EQ(parse("%0$d %99999999999$d").count(), 0);
    // The first pass alone: the last slot is position 128, and plain
    // conversions beyond it are lost.
    formatparse::PositionTableT table, full;
    formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>("%128$S %129$d %130$d"));
    EXPECT_EQ(table.top, 127);
    EXPECT_EQ(table.slots[127], 'S');
    EXPECT_EQ(table.slots[0], ' ');
    std::string many;
    for (int i = 0; i < 130; ++i) many += "%x";
    formatparse::scanFormat(full, reinterpret_cast<const uint8_t*>(many.c_str()));
    EXPECT_EQ(full.top, 127);
    EXPECT_EQ(full.slots[127], 'I');
    EXPECT_EQ(render("%129$x|%128$x", A(1)), "0|0");  // what the parser lost is missing
}

// The parser carries its own copy of the digit table; it must answer as the
// library's does (that its decoder steps as utf8Next does is
// fuzz/format_fuzz.cpp's check on every format).
TEST(FormatParser, OwnDigitTableMatchesTheLibrary) {
    for (uint32_t c = 0; c < 0x110000; ++c) ASSERT_EQ(formatparse::digitValue(c), digitValue(c)) << c;
    EXPECT_EQ(formatparse::digitValue(0x7FFFFFFF), -1);
}

}  // namespace
