// The format engine: the renderer against snprintf where the two languages
// agree, each place where they differ on purpose, the parser's entries from
// real variadic calls, and the two halves working together.
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
#include "text/utf8.h"

using namespace keel;

namespace {

StringC utf8(const char* text) { return StringC(text, "utf8"); }

std::string toStd(const StringC& string) {
    const char* text = string.textUtf8();
    std::string result(text ? text : "");
    string.releaseUtf8(text);
    return result;
}

void appendUtf8(void* context, uint32_t character) {
    uint8_t bytes[8];
    uint8_t* end = bytes;
    utf8Put(end, character);
    static_cast<std::string*>(context)->append(reinterpret_cast<char*>(bytes), end - bytes);
}

// Renders both ways: into a new string (which appends straight into its
// buffer) and through a sink function; the two must give the same text.
std::string render(const char* format, const ArgListC& args = ArgListC()) {
    StringC pattern = utf8(format);
    StringC result = StringC::format(pattern, args);
    std::string viaSink;
    StringC::formatTo(appendUtf8, &viaSink, pattern, args);
    std::string text = toStd(result);
    EXPECT_EQ(text, viaSink) << format;
    return text;
}

// For the conversions that read the clock: one rendering only.
std::string renderOnce(const char* format, const ArgListC& args = ArgListC()) {
    return toStd(StringC::format(utf8(format), args));
}

// Formats through the parser, as a program does.
std::string vformat(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringC result = formatStringV(format, arguments);
    va_end(arguments);
    return toStd(result);
}

ArgListC parse(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ArgListC list = ArgListC::fromFormat(utf8(format), arguments);
    va_end(arguments);
    return list;
}

std::vector<std::string> typeNames(const ArgListC& list) {
    std::vector<std::string> names;
    for (int32_t i = 0; i < list.count(); ++i) names.push_back(list.get(i)->typeName());
    return names;
}

void collect(void* context, uint32_t character) {
    static_cast<std::vector<uint32_t>*>(context)->push_back(character);
}

std::vector<uint32_t> renderChars(const char* format, const ArgListC& args) {
    std::vector<uint32_t> out;
    StringC::formatTo(collect, &out, utf8(format), args);
    return out;
}

std::string localTime(time_t seconds, const char* pattern) {
    struct tm fields;
    memset(&fields, 0, sizeof fields);
    localtime_r(&seconds, &fields);
    char text[272];
    size_t n = strftime(text, sizeof text, pattern, &fields);
    return std::string(text, n);
}

// ---------------------------------------------------------------------------
// Differential test against snprintf.

enum ValueKindE { kInt32, kInt64, kUnsigned64, kText };

struct ValueT {
    ValueKindE kind;
    int64_t number;
    uint64_t unsignedNumber;
    const char* text;
};

struct CaseT {
    std::string flags;
    bool widthStar;
    std::string width;     // digits, or empty
    int32_t widthValue;    // for `*`
    int precisionKind;     // 0 none, 1 digits, 2 star
    std::string precision; // digits after the dot
    int32_t precisionValue;
    char conversion;
    ValueT value;
};

std::string keelFormat(const CaseT& c) {
    std::string f = "%" + c.flags + (c.widthStar ? "*" : c.width);
    if (c.precisionKind == 1) f += "." + c.precision;
    if (c.precisionKind == 2) f += ".*";
    return f + c.conversion;
}

std::string cFormat(const CaseT& c) {
    std::string f = "%" + c.flags + (c.widthStar ? "*" : c.width);
    if (c.precisionKind == 1) f += "." + c.precision;
    if (c.precisionKind == 2) f += ".*";
    if (c.value.kind == kInt64 || c.value.kind == kUnsigned64) f += "ll";
    return f + c.conversion;
}

template <typename T>
std::string cRender(const CaseT& c, T value) {
    std::string f = cFormat(c);
    char out[256];
    if (c.widthStar && c.precisionKind == 2) {
        snprintf(out, sizeof out, f.c_str(), c.widthValue, c.precisionValue, value);
    } else if (c.widthStar) {
        snprintf(out, sizeof out, f.c_str(), c.widthValue, value);
    } else if (c.precisionKind == 2) {
        snprintf(out, sizeof out, f.c_str(), c.precisionValue, value);
    } else {
        snprintf(out, sizeof out, f.c_str(), value);
    }
    return out;
}

std::string cRender(const CaseT& c) {
    bool isSigned = c.conversion == 'd' || c.conversion == 'i' || c.conversion == 'c';
    switch (c.value.kind) {
    case kInt32:
        if (isSigned) return cRender(c, static_cast<int>(c.value.number));
        return cRender(c, static_cast<unsigned int>(c.value.number));
    case kInt64:
        if (isSigned) return cRender(c, static_cast<long long>(c.value.number));
        return cRender(c, static_cast<unsigned long long>(c.value.number));
    case kUnsigned64:
        return cRender(c, static_cast<unsigned long long>(c.value.unsignedNumber));
    case kText:
        return cRender(c, c.value.text);
    }
    return "";
}

std::string keelRender(const CaseT& c) {
    ArgListC args;
    if (c.widthStar) args.add(c.widthValue);
    if (c.precisionKind == 2) args.add(c.precisionValue);
    switch (c.value.kind) {
    case kInt32:
        args.add(static_cast<int32_t>(c.value.number));
        break;
    case kInt64:
        args.add(static_cast<int64_t>(c.value.number));
        break;
    case kUnsigned64:
        args.add(c.value.unsignedNumber);
        break;
    case kText:
        args.add(c.value.text);
        break;
    }
    return render(keelFormat(c).c_str(), args);
}

// The cases in which this engine differs from printf on purpose are left
// out here; each of them has a test of its own below.
bool languagesAgree(const CaseT& c) {
    bool numeric = strchr("diuoxX", c.conversion) != nullptr;
    bool hasMinus = c.flags.find('-') != std::string::npos;
    bool hasZero = c.flags.find('0') != std::string::npos;
    bool hasAlternate = c.flags.find('#') != std::string::npos;
    // printf leaves these combinations undefined.
    if (hasAlternate && strchr("diucs", c.conversion)) return false;
    if (!numeric && hasZero) return false;  // printf pads text with blanks
    if (c.conversion == 'c' && c.precisionKind != 0) return false;
    // "%-0*d": with `-` on, the 0 is a width of its own and `*` the letter.
    if (hasMinus && hasZero && c.widthStar) return false;
    // A negative precision from `*` is 0 here, "none" for printf.
    if (c.precisionKind == 2 && c.precisionValue < 0) return false;
    if (!numeric) return true;
    // A filler set before a negative `*` width stays: the zeros become digits.
    if (hasZero && !hasMinus && c.widthStar && c.widthValue < 0) return false;
    int32_t precision = c.precisionKind == 1   ? atoi(c.precision.c_str())
                        : c.precisionKind == 2 ? c.precisionValue
                                               : -1;
    // A precision of 0 still prints one digit here.
    bool isZero = c.value.kind == kUnsigned64 ? c.value.unsignedNumber == 0 : c.value.number == 0;
    if (precision == 0 && isZero) return false;
    // "." or ".*" of 0 without digits keeps the zero filler here.
    if (hasZero && !hasMinus && precision == 0 && !(c.precisionKind == 1 && !c.precision.empty()))
        return false;
    // %#o puts its 0 in front of the precision's zeros.
    if (hasAlternate && c.conversion == 'o' && precision > 1) return false;
    return true;
}

std::vector<ValueT> valuesFor(char conversion) {
    std::vector<ValueT> values;
    if (conversion == 's') {
        for (const char* text : {"", "a", "abc", "hello world"}) values.push_back({kText, 0, 0, text});
        return values;
    }
    if (conversion == 'c') {
        for (int64_t v : {65, 122, 32, 321, -191}) values.push_back({kInt32, v, 0, nullptr});
        return values;
    }
    for (int64_t v : {0LL, 1LL, -1LL, 7LL, 42LL, -42LL, 255LL, 4096LL, 123456789LL, 2147483647LL,
                      -2147483647LL - 1}) {
        values.push_back({kInt32, v, 0, nullptr});
    }
    for (int64_t v : {0LL, -5LL, 1000000000000LL, 9223372036854775807LL, -9223372036854775807LL - 1}) {
        values.push_back({kInt64, v, 0, nullptr});
    }
    values.push_back({kUnsigned64, 0, 18446744073709551615ULL, nullptr});
    return values;
}

TEST(FormatDifferential, AgreesWithSnprintfOverTheGrid) {
    const char flagSet[] = "-+ #0";
    struct WidthT {
        bool star;
        const char* digits;
        int32_t value;
    };
    const WidthT widths[] = {{false, "", 0},   {false, "1", 0}, {false, "3", 0},  {false, "7", 0},
                             {false, "12", 0}, {true, "", 6},   {true, "", -6},   {true, "", 0}};
    struct PrecisionT {
        int kind;
        const char* digits;
        int32_t value;
    };
    const PrecisionT precisions[] = {{0, "", 0},  {1, "", 0},  {1, "0", 0},  {1, "1", 0}, {1, "2", 0},
                                     {1, "5", 0}, {1, "12", 0}, {2, "", 3}, {2, "", 0},  {2, "", -2}};
    int compared = 0;
    int differing = 0;
    for (const char* conversion = "diuoxXcs"; *conversion; ++conversion) {
        std::vector<ValueT> values = valuesFor(*conversion);
        for (int mask = 0; mask < 32; ++mask) {
            std::string flags;
            for (int bit = 0; bit < 5; ++bit) {
                if (mask & (1 << bit)) flags += flagSet[bit];
            }
            for (const WidthT& width : widths) {
                for (const PrecisionT& precision : precisions) {
                    for (const ValueT& value : values) {
                        CaseT c = {flags,           width.star,      width.digits, width.value, precision.kind,
                                   precision.digits, precision.value, *conversion,  value};
                        if (!languagesAgree(c)) continue;
                        ++compared;
                        std::string expected = cRender(c);
                        std::string actual = keelRender(c);
                        if (expected != actual && ++differing <= 20) {
                            ADD_FAILURE() << "format \"" << keelFormat(c) << "\" width " << c.widthValue
                                          << " precision " << c.precisionValue << " value " << value.number
                                          << ": snprintf \"" << expected << "\", keel \"" << actual << "\"";
                        }
                    }
                }
            }
        }
    }
    EXPECT_EQ(differing, 0);
    EXPECT_GT(compared, 50000);
}

// ---------------------------------------------------------------------------
// The places where this engine is not printf.

TEST(FormatDifferences, PrecisionZeroStillPrintsOneDigit) {
    ArgListC zero;
    zero.add(int32_t(0));
    EXPECT_EQ(render("[%.0d]", zero), "[0]");
    EXPECT_EQ(render("[%.0x]", zero), "[0]");
    EXPECT_EQ(render("[%5.0u]", zero), "[    0]");
    EXPECT_EQ(render("[%#.0o]", zero), "[0]");
    // "." alone is precision 0 but keeps the zero filler.
    ArgListC five;
    five.add(int32_t(5));
    EXPECT_EQ(render("[%08.d]", five), "[00000005]");
    EXPECT_EQ(render("[%08.0d]", five), "[       5]");
}

TEST(FormatDifferences, UnknownLettersPrintThemselvesAndTakeNoArgument) {
    ArgListC args;
    args.add(int32_t(7));
    EXPECT_EQ(render("[%5%]", args), "[    %]");
    EXPECT_EQ(render("[%-3%]", args), "[%  ]");
    EXPECT_EQ(render("[%f %e %g %n %y %d]", args), "[f e g n y 7]");
    EXPECT_EQ(render("[%.0f]", args), "[f]");  // precision is not applied
    EXPECT_EQ(render("[%lf]", args), "[f]");   // length letters are skipped
    EXPECT_EQ(render("%%"), "%");
    // A % at the end reads the terminator, which shows as nothing.
    EXPECT_EQ(render("abc%"), "abc");
    EXPECT_EQ(render("abc%4"), "abc    ");
    // A number behind the % without $ is the width: no flags behind it.
    EXPECT_EQ(render("[%5-d]", args), "[    -d]");
}

TEST(FormatDifferences, PointerIsCapitalHexWithEightDigitsAtLeast) {
    ArgListC args;
    args.add(reinterpret_cast<const void*>(uintptr_t(0x1234)));
    EXPECT_EQ(render("%p", args), "0x00001234");
    EXPECT_EQ(render("%08p", args), "0x00001234");
    EXPECT_EQ(render("%.2p", args), "0x00001234");
    EXPECT_EQ(render("[%12p]", args), "[  0x00001234]");
    EXPECT_EQ(render("[%-12p]", args), "[0x00001234  ]");
    EXPECT_EQ(render("%+p", args), "+0x00001234");  // p keeps the sign flag
    ArgListC big;
    big.add(reinterpret_cast<const void*>(uintptr_t(0xDEADBEEFu)));
    EXPECT_EQ(render("%p", big), "0xDEADBEEF");
    ArgListC others;
    others.add(int32_t(0x1234)).add("text").addNull();
    const char* text = static_cast<const char*>(others.get(1)->pointer());
    char expected[32];
    snprintf(expected, sizeof expected, "0x%08llX", static_cast<unsigned long long>(uintptr_t(text)));
    EXPECT_EQ(render("%p|%p|%p|%p", others), std::string("0x00000000|") + expected + "|0x00000000|0x00000000");
}

TEST(FormatDifferences, NegativeStarPrecisionBecomesZero) {
    ArgListC args;
    args.add(int32_t(-1)).add(utf8("abc"));
    EXPECT_EQ(render("[%.*S]", args), "[]");
    ArgListC number;
    number.add(int32_t(-3)).add(int32_t(0));
    EXPECT_EQ(render("[%.*d]", number), "[0]");
    // `*` leaves the filler alone, so the zero filler takes over.
    ArgListC filled;
    filled.add(int32_t(-3)).add(int32_t(42));
    EXPECT_EQ(render("[%06.*d]", filled), "[000042]");
    // A negative width from `*` means left.
    ArgListC wide;
    wide.add(int32_t(-5)).add(int32_t(42));
    EXPECT_EQ(render("[%*d]", wide), "[42   ]");
}

TEST(FormatDifferences, BinaryConversion) {
    ArgListC args;
    args.add(int32_t(5)).add(int32_t(0)).add(int32_t(-1)).add(uint64_t(1) << 63);
    EXPECT_EQ(render("%b %#b %b %b", args),
              "101 0 11111111111111111111111111111111 1000000000000000000000000000000000000000000000000000000000000000");
    ArgListC alternate;
    alternate.add(int32_t(5));
    EXPECT_EQ(render("%#b", alternate), "0b101");
    EXPECT_EQ(render("[%#08b]", alternate), "[0b000101]");
    EXPECT_EQ(render("[%+b]", alternate), "[101]");
}

TEST(FormatDifferences, SixteenBitEntriesAndTheirViews) {
    ArgListC args;
    args.add(int16_t(-1)).add(uint16_t(65535)).add(int16_t(-2));
    // Unsigned views zero-extend 16 bits, signed views sign-extend them.
    EXPECT_EQ(render("%u %d %x", args), "65535 -1 fffe");
    EXPECT_EQ(render("%1$d %1$u %1$x %1$X %1$o", args), "-1 65535 ffff FFFF 177777");
    EXPECT_EQ(render("%2$d %2$u", args), "-1 65535");
    // The 32-bit view of `*` sign-extends Int16 and zero-extends Unsigned16.
    ArgListC widths;
    widths.add(int16_t(-4)).add(int32_t(1)).add(uint16_t(3)).add(int32_t(2));
    EXPECT_EQ(render("[%*d][%*d]", widths), "[1   ][  2]");
}

TEST(FormatDifferences, RealsAreTruncatedTowardZero) {
    ArgListC args;
    args.add(3.9).add(-3.9).add(255.99).add(-0.5);
    EXPECT_EQ(render("%d %d %x %d", args), "3 -3 ff 0");
    EXPECT_EQ(render("%2$u", args), "18446744073709551613");
    ArgListC width;
    width.add(4.7).add(int32_t(1));
    EXPECT_EQ(render("[%*d]", width), "[   1]");
    ArgListC huge;
    huge.add(1e300).add(-1e300).add(__builtin_nan(""));
    EXPECT_EQ(render("%d %d %d", huge), "9223372036854775807 -9223372036854775808 0");
    EXPECT_EQ(render("%u %c|", huge), "18446744073709551615  |");
}

TEST(FormatDifferences, TextFillerCanBeZeroAndThirtyTwoBitSignExtension) {
    ArgListC args;
    args.add(utf8("ab"));
    EXPECT_EQ(render("[%05S]", args), "[000ab]");
    EXPECT_EQ(render("[%-5S]", args), "[ab   ]");
    EXPECT_EQ(render("[%05c]", ArgListC().add(int32_t('A'))), "[0000A]");
    ArgListC unsignedValue;
    unsignedValue.add(uint32_t(0xFFFFFFFFu));
    EXPECT_EQ(render("%1$d %1$u %1$x", unsignedValue), "-1 4294967295 ffffffff");
    // An Int32 under %x is never sign-extended past 32 bits.
    EXPECT_EQ(render("%llx", ArgListC().add(int32_t(-1))), "ffffffff");
}

// ---------------------------------------------------------------------------
// The rendering rules, case by case.

TEST(FormatRender, FlagsWidthsAndPrecisions) {
    ArgListC n42;
    n42.add(int32_t(42));
    EXPECT_EQ(render("[%5d]", n42), "[   42]");
    EXPECT_EQ(render("[%-5d]", n42), "[42   ]");
    EXPECT_EQ(render("[%05d]", ArgListC().add(int32_t(-42))), "[-0042]");
    EXPECT_EQ(render("[%+d]", n42), "[+42]");
    EXPECT_EQ(render("[% d]", n42), "[ 42]");
    EXPECT_EQ(render("[%+ d][% +d]", ArgListC().add(int32_t(42)).add(int32_t(42))), "[+42][+42]");
    EXPECT_EQ(render("[%-05d]", n42), "[42   ]");
    EXPECT_EQ(render("[%0-5d]", n42), "[00042]");  // filler set before `-` stays
    EXPECT_EQ(render("[%0*d]", ArgListC().add(int32_t(-6)).add(int32_t(42))), "[000042]");
    EXPECT_EQ(render("[%+u]", ArgListC().add(int32_t(5))), "[5]");
    ArgListC n5;
    n5.add(int32_t(5));
    EXPECT_EQ(render("[%.3d]", n5), "[005]");
    EXPECT_EQ(render("[%8.3d]", n5), "[     005]");
    EXPECT_EQ(render("[%08.3d]", n5), "[     005]");
    // Precision stops at 64 digits; more width is blanks in front.
    EXPECT_EQ(render("%.70d", n5), std::string(63, '0') + "5");
    EXPECT_EQ(render("%070d", n5), std::string(6, ' ') + std::string(63, '0') + "5");
    EXPECT_EQ(render("%.64b", ArgListC().add(int32_t(1))), std::string(63, '0') + "1");
}

TEST(FormatRender, AlternateForms) {
    ArgListC args;
    args.add(int32_t(0)).add(int32_t(255)).add(int32_t(8)).add(int32_t(5));
    EXPECT_EQ(render("%#x|%2$#x|%2$#X|%3$#o|%4$#b", args), "0|0xff|0XFF|010|0b101");
    EXPECT_EQ(render("%3$#.3o", args), "0010");
    EXPECT_EQ(render("[%2$#8x][%2$-#8x][%2$#08x]", args), "[    0xff][0xff    ][0x0000ff]");
}

TEST(FormatRender, PositionsAndArgumentIndex) {
    StringC a = utf8("one"), b = utf8("two"), c = utf8("three");
    ArgListC two;
    two.add(a).add(b);
    EXPECT_EQ(render("%2$S %1$S", two), "two one");
    EXPECT_EQ(render("%2$S|%S", two), "two|");
    ArgListC three;
    three.add(a).add(b).add(c);
    EXPECT_EQ(render("%2$S|%S", three), "two|three");
    // "%03$" is the zero filler and position 3, with no width.
    EXPECT_EQ(render("%03$d|%1$S", ArgListC().add(a).add(b).add(int32_t(7))), "7|one");
    EXPECT_EQ(render("%03$4d", ArgListC().add(a).add(b).add(int32_t(7))), "0007");
    ArgListC star;
    star.add(int32_t(42)).add(int32_t(5));
    EXPECT_EQ(render("[%*2$d]", star), "[   42]");
    EXPECT_EQ(render("[%.*2$d]", star), "[00042]");
    // One digit only: without `$` the * takes the next argument and the
    // digit is the conversion letter.
    EXPECT_EQ(render("[%*2d]", star), "[" + std::string(41, ' ') + "2d]");
    EXPECT_EQ(render("[%.*3d|%d]", star), "[3d|5]");
    // Position 0 is below the list: a missing entry.
    EXPECT_EQ(render("[%0$d|%d]", star), "[$d|42]");
    EXPECT_EQ(render("[%00$d|%d]", star), "[0|42]");
    // Huge positions and widths do not overflow.
    EXPECT_EQ(render("[%99999999999$d]", star), "[0]");
}

TEST(FormatRender, DigitsOfOtherScripts) {
    ArgListC args;
    args.add(int32_t(42)).add(utf8("ab"));
    // U+0665 is an Arabic-Indic 5, U+0662 a 2, U+0660 a zero.
    EXPECT_EQ(render("[%\xd9\xa5" "d]", args), "[   42]");
    EXPECT_EQ(render("[%\xd9\xa2$S]", args), "[ab]");
    EXPECT_EQ(render("[%\xd9\xa0\xd9\xa5" "d]", args), "[00042]");
    // The filler of a text is the zero character that was read.
    EXPECT_EQ(render("[%2$\xd9\xa0" "4S]", args), "[\xd9\xa0\xd9\xa0" "ab]");
    // Full-width digits as a precision.
    EXPECT_EQ(render("[%.\xef\xbc\x93" "d]", args), "[042]");
}

TEST(FormatRender, TextConversions) {
    ArgListC args;
    args.add(utf8("\xc5\x81" "ab")).add("caf\xc3\xa9").add(int32_t(321)).addUCS4(321).add(int32_t(7));
    EXPECT_EQ(render("%.1S", args), "\xc5\x81");
    EXPECT_EQ(render("[%5.2S]", args), "[   \xc5\x81" "a]");
    EXPECT_EQ(render("%2$S|%2$s|%2$.4s|%2$6s", args), "caf\xc3\xa9|caf\xc3\xa9|caf\xc3\xa9|  caf\xc3\xa9");
    EXPECT_EQ(render("%1$s", args), "\xc5\x81" "ab");
    EXPECT_EQ(render("[%3$s][%3$S][%3$d]", args), "[][][321]");
    EXPECT_EQ(render("[%1$d]", args), "[0]");
    EXPECT_EQ(render("%3$c|%4$C|%4$S|%4$.0S|", args), "A|\xc5\x81|\xc5\x81||");
    // %c wants the low byte of integers and shows a blank for others.
    ArgListC chars;
    chars.add(true).add(int64_t(0x141)).add(uint32_t(0x1F600)).add(2.5).add(utf8("x")).addNull();
    EXPECT_EQ(render("[%c][%c][%c][%c][%c][%c][%c]", chars), "[\x01][A][\xf0\x9f\x98\x80][ ][ ][ ][ ]");
    // A character that no string can hold shows as nothing but the filler.
    EXPECT_EQ(render("[%3C][%3c]", ArgListC().addUCS4(0x80000000u).add(int32_t(0))), "[   ][   ]");
}

TEST(FormatRender, EightBitTextEntries) {
    ArgListC args;
    ArgEntry* null = ArgEntry::allocate(ArgCharStar, sizeof(char*));
    char* nothing = nullptr;
    memcpy(null->value(), &nothing, sizeof nothing);
    args.append(null);
    EXPECT_EQ(render("[%s][%S][%p]", args), "[<null pointer>][][0x00000000]");
    // Broken UTF-8 in 8-bit text is replaced, never passed on.
    EXPECT_EQ(render("[%s]", ArgListC().add("a\xff" "b")), "[a\xef\xbf\xbd" "b]");
    EXPECT_EQ(render("[%3s]", ArgListC().add(std::string(120, 'x').c_str())).size(), 122u);
    EXPECT_EQ(render("[%-6s]", ArgListC().add("\xc3\xa9t\xc3\xa9")), "[\xc3\xa9t\xc3\xa9   ]");
}

TEST(FormatRender, MissingStringArgumentIsEmpty) {
    EXPECT_EQ(render("[%s]"), "[]");
    EXPECT_EQ(render("[%5s]"), "[     ]");
    EXPECT_EQ(render("[%-3s|%S|%d|%x|%c]"), "[   ||0|0| ]");
}

TEST(FormatRender, GuidUnderS) {
    ArgGuidT guid = {0x0123ABCDu, 0x4567, 0x89EF, {0xA0, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F, 0x60, 0x07}};
    ArgListC args;
    args.add(guid);
    EXPECT_EQ(render("%S", args), "{0123ABCD-4567-89EF-A01B-2C3D4E5F6007}");
    EXPECT_EQ(render("%.5S", args), "{0123");
    EXPECT_EQ(render("[%s]", args), "[]");
}

TEST(FormatRender, TimeConversions) {
    ArgTimeValT time = {1700000000, 123456};
    ArgListC args;
    args.add(time);
    std::string date = localTime(1700000000, "%Y/%m/%d %H:%M:%S");
    EXPECT_EQ(render("%t", args), date);
    EXPECT_EQ(render("%.20t", args), date + ".");
    EXPECT_EQ(render("%.23t", args), date + ".123");
    EXPECT_EQ(render("%.26t", args), date + ".123456");
    EXPECT_EQ(render("%.30t", args), date + ".123456");
    EXPECT_EQ(render("%.10t", args), date.substr(0, 10));
    EXPECT_EQ(render("[%22t]", args), "[   " + date + "]");
    // The same instant as a DateTime of 10-ns ticks from 0000-12-31.
    ArgListC ticks;
    ticks.addDateTime(6213568320000000000LL + 1700000000LL * 100000000LL + 12345678);
    EXPECT_EQ(render("%.26t", ticks), date + ".123456");
    // Anything else is the time 0.
    EXPECT_EQ(render("%t", ArgListC().add(int32_t(5))), localTime(0, "%Y/%m/%d %H:%M:%S"));
    EXPECT_EQ(render("%t"), localTime(0, "%Y/%m/%d %H:%M:%S"));
}

TEST(FormatRender, CurrentDateAndTime) {
    time_t before = time(nullptr);
    std::string day = renderOnce("%D");
    std::string clock = renderOnce("%T");
    std::string fine = renderOnce("%.21T");
    time_t after = time(nullptr);
    EXPECT_TRUE(day == localTime(before, "%Y/%m/%d") || day == localTime(after, "%Y/%m/%d")) << day;
    EXPECT_TRUE(clock == localTime(before, "%H:%M:%S") || clock == localTime(after, "%H:%M:%S")) << clock;
    ASSERT_EQ(fine.size(), 15u);
    EXPECT_EQ(fine[8], '.');
    // %D's limit is 10: no fraction can be asked for behind the date.
    EXPECT_EQ(renderOnce("%.20D").size(), 10u);
    // %T's limit of 271 leaves the fraction at six digits.
    EXPECT_EQ(renderOnce("%.300T").size(), 15u);
    // D and T take no argument.
    EXPECT_EQ(renderOnce("%D %T %d", ArgListC().add(int32_t(9))).substr(20), "9");
}

TEST(FormatRender, SystemErrorTextIsTakenOnEntry) {
    errno = ENOENT;
    std::string text = render("[%!]");
    EXPECT_EQ(text, std::string("[") + strerror(ENOENT) + "]");
    EXPECT_EQ(errno, ENOENT);
    errno = EACCES;
    EXPECT_EQ(render("%.4!"), std::string(strerror(EACCES)).substr(0, 4));
}

TEST(FormatRender, SinkGetsOneCharacterAtATime) {
    ArgListC args;
    args.addUCS4(0x1F600).add(utf8("\xc3\xa9"));
    std::vector<uint32_t> out = renderChars("a%C%S\xe2\x82\xac", args);
    std::vector<uint32_t> expected = {'a', 0x1F600, 0xE9, 0x20AC};
    EXPECT_EQ(out, expected);
    // Characters beyond Unicode pass as they are.
    std::vector<uint32_t> wide = renderChars("%C", ArgListC().addUCS4(0x7FFFFFFF));
    EXPECT_EQ(wide, std::vector<uint32_t>{0x7FFFFFFF});
}

TEST(FormatRender, ResultGrowsAndKnowsItsLength) {
    // Far more text than the format's own room: the buffer grows on the way.
    StringC wide = StringC::format(utf8("<%5000d>"), ArgListC().add(int32_t(7)));
    EXPECT_EQ(wide.length(), 5002);
    EXPECT_EQ(wide.charAt(4999), uint32_t(' '));
    EXPECT_EQ(wide.charAt(5000), uint32_t('7'));
    // Characters of several bytes across every buffer boundary.
    std::string many;
    for (int i = 0; i < 300; ++i) many += "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80x";
    ArgListC args;
    args.add(utf8(many.c_str()));
    StringC copied = StringC::format(utf8("%S%S|%.7S"), ArgListC().add(args.get(0)->string()).add(args.get(0)->string()).add(args.get(0)->string()));
    EXPECT_EQ(copied.length(), 2408);
    EXPECT_TRUE(toStd(copied) == many + many + "|" + many.substr(0, 19));
    EXPECT_TRUE(toStd(StringC::format(utf8(many.c_str()), ArgListC())) == many);
    // A new result is private and can be changed.
    StringC changed = StringC::format(utf8("ab%d"), ArgListC().add(int32_t(1)));
    changed.append(uint32_t('!'));
    EXPECT_EQ(toStd(changed), "ab1!");
    EXPECT_EQ(changed.length(), 4);
}

TEST(FormatRender, FormatsInOtherEncodings) {
    // A format from UTF-16 text is the same format.
    const uint16_t pattern[] = {'<', '%', 'd', '>', 0x20AC, 0};
    ArgListC args;
    args.add(int32_t(12));
    EXPECT_EQ(toStd(StringC::format(StringC(pattern), args)), "<12>\xe2\x82\xac");
    EXPECT_EQ(toStd(StringC::format(StringC(), args)), "");
}

// ---------------------------------------------------------------------------
// The parser: what real variadic calls give, and rendering that list.

TEST(FormatParser, EntriesByConversion) {
    StringC name = utf8("name");
    ArgTimeValT time = {5, 6};
    int marker = 0;
    ArgListC list = parse("%d %i %c %u %x %X %o %b %C %S %s %p %t", -1, 2, 'c', 3u, 4u, 5u, 6u, 7u, 0x141u, &name,
                          "text", static_cast<void*>(&marker), &time);
    std::vector<std::string> expected = {"Int32",      "Int32",      "Int32",      "Unsigned32", "Unsigned32",
                                         "Unsigned32", "Unsigned32", "Unsigned32", "UCS4",       "String",
                                         "CharStar",   "ObjRef",     "TimeVal"};
    EXPECT_EQ(typeNames(list), expected);
    EXPECT_EQ(list.get(0)->read<int32_t>(), -1);
    EXPECT_EQ(list.get(8)->read<uint32_t>(), 0x141u);
    EXPECT_EQ(list.get(9)->string().getImpl(), name.getImpl());  // shared, not copied
    EXPECT_STREQ(static_cast<const char*>(list.get(10)->pointer()), "text");
    EXPECT_EQ(list.get(11)->pointer(), &marker);
    EXPECT_EQ(list.get(12)->read<ArgTimeValT>().microseconds, 6);
}

TEST(FormatParser, LengthLetters) {
    ArgListC list = parse("%ld %lld %hd %hhd %lu %llx %hu %hhx %lp|%d", 1, -2LL, 70000, 300, 4u, ~0ULL, 65537u, 0x1FFu,
                          nullptr, 9);
    std::vector<std::string> expected = {"Int32",      "Int64",      "Int16",      "Int32",  "Unsigned32",
                                         "Unsigned64", "Unsigned16", "Int32",      "ObjRef", "Int32"};
    EXPECT_EQ(typeNames(list), expected);
    EXPECT_EQ(list.get(1)->read<int64_t>(), -2);
    EXPECT_EQ(list.get(2)->read<int16_t>(), int16_t(70000 - 65536));
    EXPECT_EQ(list.get(3)->read<int32_t>(), 44);  // 300 as a signed byte
    EXPECT_EQ(list.get(6)->read<uint16_t>(), 1);
    EXPECT_EQ(list.get(7)->read<int32_t>(), 0xFF);
    EXPECT_EQ(formatView32(list.get(9)), 9);
    ArgListC signedByte = parse("%hhd", 200);
    EXPECT_EQ(signedByte.get(0)->read<int32_t>(), -56);
    // The parser does not know these: they take no argument.
    EXPECT_EQ(parse("%ls %hs %lc %qd %zu %jd %Ld %hhhd %hS %lC", 1, 2, 3).count(), 0);
    EXPECT_EQ(parse("no arguments at all %% %f %5%").getImpl(), nullptr);
}

TEST(FormatParser, PositionsStarsAndBlanks) {
    // A position nobody names still takes an int, so the later ones line up.
    ArgListC skipped = parse("%3$d", 1, 2, 3);
    EXPECT_EQ(typeNames(skipped), (std::vector<std::string>{"Int32", "Int32", "Int32"}));
    EXPECT_EQ(skipped.get(2)->read<int32_t>(), 3);
    StringC a = utf8("a"), b = utf8("b");
    ArgListC swapped = parse("%2$S %1$S", &a, &b);
    EXPECT_EQ(typeNames(swapped), (std::vector<std::string>{"String", "String"}));
    EXPECT_EQ(toStd(swapped.get(0)->string()), "a");
    // `*` takes an int; `*n$` names its position; the last conversion wins.
    ArgListC stars = parse("%*.*S %*1$d", 4, 1, &a, 7);
    EXPECT_EQ(typeNames(stars), (std::vector<std::string>{"Int32", "Int32", "String", "Int32"}));
    ArgListC replaced = parse("%1$d %1$x", 5);
    EXPECT_EQ(typeNames(replaced), (std::vector<std::string>{"Unsigned32"}));
    // A digit behind `*` without `$` is a letter of its own.
    ArgListC digit = parse("%*2d", 5);
    EXPECT_EQ(typeNames(digit), (std::vector<std::string>{"Int32"}));
    // Flags, a zero and widths are skipped; so are digits of other scripts.
    ArgListC flagged = parse("%-+ #012.5d %\xd9\xa2$S %-0*d", 1, &a, 2, 3);
    EXPECT_EQ(typeNames(flagged), (std::vector<std::string>{"Int32", "String", "Int32", "Int32"}));
    // A zero right behind the % starts a number, and the * behind that
    // number stands where the conversion letter would: nothing is taken.
    EXPECT_EQ(parse("%0*d", 5, 42).count(), 0);
}

TEST(FormatParser, PositionsOutsideTheTable) {
    // 128 positions fit; a position at or above 128 records nothing and
    // leaves the lower ones alone.
    ArgListC list = parse("%1$d %200$d %2$u", 5, 6u);
    EXPECT_EQ(typeNames(list), (std::vector<std::string>{"Int32", "Unsigned32"}));
    EXPECT_EQ(vformat("%1$d %200$d %2$u", 5, 6u), "5 0 6");
    EXPECT_EQ(parse("%0$d %99999999999$d").count(), 0);
    // The first pass alone: the last slot is position 128, and plain
    // conversions beyond it are lost.
    formatparse::PositionTableT table;
    formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>("%128$S %129$d %130$d"));
    EXPECT_EQ(table.top, 127);
    EXPECT_EQ(table.slots[127], 'S');
    EXPECT_EQ(table.slots[0], ' ');
    std::string many;
    for (int i = 0; i < 130; ++i) many += "%x";
    formatparse::PositionTableT full;
    formatparse::scanFormat(full, reinterpret_cast<const uint8_t*>(many.c_str()));
    EXPECT_EQ(full.top, 127);
    EXPECT_EQ(full.slots[127], 'I');
    // The renderer shows what the parser lost as missing.
    EXPECT_EQ(render("%129$x|%128$x", ArgListC().add(int32_t(1))), "0|0");
}

TEST(FormatParser, NullPointersAreSafe) {
    ArgListC list = parse("%S|%s|%t", static_cast<StringC*>(nullptr), static_cast<char*>(nullptr),
                          static_cast<ArgTimeValT*>(nullptr));
    EXPECT_EQ(typeNames(list), (std::vector<std::string>{"String", "CharStar", "TimeVal"}));
    EXPECT_EQ(toStd(StringC::format(utf8("[%S|%s]"), list)), "[|]");
}

struct AgreementT {
    const char* format;
    std::vector<std::string> types;
    std::string text;
};

TEST(FormatParser, ParserAndRendererAgree) {
    StringC name = utf8("file.txt");
    StringC other = utf8("\xc3\xa9t\xc3\xa9");
    ArgTimeValT time = {1700000000, 654321};
    std::string date = localTime(1700000000, "%Y/%m/%d %H:%M:%S");

    struct RunT {
        AgreementT expected;
        ArgListC list;
    };
    std::vector<RunT> runs;
    runs.push_back({{"Failed to open file '%1$S' (%2$d)", {"String", "Int32"}, "Failed to open file 'file.txt' (-2)"},
                    parse("Failed to open file '%1$S' (%2$d)", &name, -2)});
    runs.push_back({{"%2$s=%1$05x", {"Unsigned32", "CharStar"}, "key=000ff"}, parse("%2$s=%1$05x", 255u, "key")});
    runs.push_back({{"%lld/%llu", {"Int64", "Unsigned64"}, "-9000000000/18000000000"},
                    parse("%lld/%llu", -9000000000LL, 18000000000ULL)});
    runs.push_back({{"%hd|%hu|%hhd|%hhu", {"Int16", "Unsigned16", "Int32", "Int32"}, "-1|65535|-1|255"},
                    parse("%hd|%hu|%hhd|%hhu", 65535, 65535u, 255, 255u)});
    runs.push_back({{"[%-*S][%.*S]", {"Int32", "String", "Int32", "String"}, "[\xc3\xa9t\xc3\xa9  ][fi]"},
                    parse("[%-*S][%.*S]", 5, &other, 2, &name)});
    runs.push_back({{"%C%c", {"UCS4", "Int32"}, "\xe2\x82\xac" "A"}, parse("%C%c", 0x20ACu, 321)});
    runs.push_back({{"%.23t", {"TimeVal"}, date + ".654"}, parse("%.23t", &time)});
    runs.push_back({{"%3$S%1$S%2$S", {"String", "String", "String"}, "\xc3\xa9t\xc3\xa9" "file.txt\xc3\xa9t\xc3\xa9"},
                    parse("%3$S%1$S%2$S", &name, &other, &other)});
    runs.push_back({{"%ld%%%lx", {"Int32", "Unsigned32"}, "-7%ff"}, parse("%ld%%%lx", -7, 255u)});
    runs.push_back({{"%b|%#o|%X", {"Unsigned32", "Unsigned32", "Unsigned32"}, "110|010|BEEF"},
                    parse("%b|%#o|%X", 6u, 8u, 0xBEEFu)});

    for (RunT& run : runs) {
        EXPECT_EQ(typeNames(run.list), run.expected.types) << run.expected.format;
        EXPECT_EQ(toStd(StringC::format(utf8(run.expected.format), run.list)), run.expected.text)
            << run.expected.format;
    }
}

TEST(FormatParser, VariadicConvenience) {
    StringC name = utf8("disk");
    EXPECT_EQ(toStd(formatString("%S is %d%% full", &name, 93)), "disk is 93% full");
    StringC pattern = utf8("<%s|%5.1S>");
    EXPECT_EQ(toStd(formatString(&pattern, "x", &name)), "<x|    d>");
    EXPECT_EQ(toStd(formatString(static_cast<const char*>(nullptr))), "");
    EXPECT_EQ(vformat("%p", reinterpret_cast<void*>(uintptr_t(0xABC))), "0x00000ABC");
}

// The parser carries its own copies of the digit table and the decoder;
// they must answer as the library's do.
TEST(FormatParser, OwnDigitTableAndDecoderMatchTheLibrary) {
    for (uint32_t c = 0; c < 0x110000; ++c) {
        ASSERT_EQ(formatparse::digitValue(c), digitValue(c)) << c;
    }
    EXPECT_EQ(formatparse::digitValue(0x7FFFFFFF), -1);
    const char* samples[] = {"a",          "\xc3\xa9",         "\xe4\xb8",      "\xf0\x41",
                             "\x80",       "\xff",             "\xc0\x80",      "\xfd\xbf\xbf\xbf\xbf\xbf",
                             "\xe2\x82\xac", "\xf8\x88\x80\x80\x80", "\xe0\x80\xc3\xa9", "\xfc\x80"};
    for (const char* sample : samples) {
        const uint8_t* ours = reinterpret_cast<const uint8_t*>(sample);
        const uint8_t* theirs = ours;
        while (*theirs) {
            uint32_t expected = utf8Next(theirs);
            uint32_t actual = formatparse::nextChar(ours);
            ASSERT_EQ(actual, expected) << sample;
            ASSERT_EQ(ours, theirs) << sample;
        }
    }
    const uint8_t end[] = {0};
    const uint8_t* p = end;
    EXPECT_EQ(formatparse::nextChar(p), 0u);
    EXPECT_EQ(p, end);  // the terminator is never passed
}

}  // namespace
