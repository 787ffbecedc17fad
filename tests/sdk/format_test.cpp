// keel::format from a client's seat (public headers, libkeel.so, toolkit):
// the entry each C++ type becomes, the same text as the engine given the same
// list, and no fault for any letter against any entry.
#include <sys/time.h>
#include <time.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <keel/keel.h>

using namespace keel;

namespace {

std::string text(const StringC& string) { return string.toStdString(); }

// The engine's own rendering of a list that was built by hand.
std::string engine(const char* format, const ArgListC& list) {
    return text(StringC::format(StringC(std::string_view(format)), list));
}

enum class Color : uint8_t { red = 7 };

ArgListC one(std::function<void(ArgListC&)> add) {
    ArgListC list;
    add(list);
    return list;
}

// One argument of every type the front end takes: how keel::format renders a
// format with it, and the list that the engine would be given by hand.
struct SampleT {
    const char* name;
    int32_t code;
    std::function<std::string(const char*)> viaFront;
    std::function<ArgListC()> byHand;
};

const int64_t kEpoch1970 = 6213568320000000000LL;
const StringC kWord(std::string_view("W\xc3\xb6rd"));
const ArgTimeValT kTime = {1700000000, 123456};

std::vector<SampleT> samples() {
    using L = ArgListC&;
    const bool longIs64 = sizeof(long) == 8;
    timeval tv = {1700000000, 123456};
    timespec ts = {1700000000, 123456789};
    auto tp = std::chrono::system_clock::time_point(std::chrono::seconds(1700000000)) + std::chrono::microseconds(5);
    static int object;
    static ArgGuidT guid = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    return {
        {"bool", ArgBool, [](const char* f) { return text(format(f, true)); }, [] { return one([](L l) { l.add(true); }); }},
        {"char", ArgInt16, [](const char* f) { return text(format(f, 'A')); }, [] { return one([](L l) { l.add(int16_t('A')); }); }},
        {"signed char", ArgInt16, [](const char* f) { return text(format(f, static_cast<signed char>(-3))); },
         [] { return one([](L l) { l.add(int16_t(-3)); }); }},
        {"short", ArgInt16, [](const char* f) { return text(format(f, short(-300))); }, [] { return one([](L l) { l.add(int16_t(-300)); }); }},
        {"int", ArgInt32, [](const char* f) { return text(format(f, -70000)); }, [] { return one([](L l) { l.add(int32_t(-70000)); }); }},
        {"long", longIs64 ? ArgInt64 : ArgInt32, [](const char* f) { return text(format(f, -5L)); },
         [=] { return one([=](L l) { if (longIs64) l.add(int64_t(-5)); else l.add(int32_t(-5)); }); }},
        {"long long", ArgInt64, [](const char* f) { return text(format(f, -6000000000LL)); },
         [] { return one([](L l) { l.add(int64_t(-6000000000LL)); }); }},
        {"unsigned char", ArgUnsigned16, [](const char* f) { return text(format(f, static_cast<unsigned char>(0xE9))); },
         [] { return one([](L l) { l.add(uint16_t(0xE9)); }); }},
        {"unsigned short", ArgUnsigned16, [](const char* f) { return text(format(f, static_cast<unsigned short>(65535))); },
         [] { return one([](L l) { l.add(uint16_t(65535)); }); }},
        {"unsigned", ArgUnsigned32, [](const char* f) { return text(format(f, 4000000000u)); },
         [] { return one([](L l) { l.add(uint32_t(4000000000u)); }); }},
        {"size_t", sizeof(size_t) == 8 ? ArgUnsigned64 : ArgUnsigned32, [](const char* f) { return text(format(f, size_t(3))); },
         [] { return one([](L l) { if (sizeof(size_t) == 8) l.add(uint64_t(3)); else l.add(uint32_t(3)); }); }},
        {"unsigned long long", ArgUnsigned64, [](const char* f) { return text(format(f, 6000000000ULL)); },
         [] { return one([](L l) { l.add(uint64_t(6000000000ULL)); }); }},
        {"enum", ArgUnsigned16, [](const char* f) { return text(format(f, Color::red)); }, [] { return one([](L l) { l.add(uint16_t(7)); }); }},
        {"double", ArgReal, [](const char* f) { return text(format(f, -3.9)); }, [] { return one([](L l) { l.add(-3.9); }); }},
        {"float", ArgReal, [](const char* f) { return text(format(f, 2.5f)); }, [] { return one([](L l) { l.add(2.5); }); }},
        {"char32_t", ArgUCS4, [](const char* f) { return text(format(f, U'\u0141')); }, [] { return one([](L l) { l.addUCS4(0x141); }); }},
        {"wchar_t", ArgUCS4, [](const char* f) { return text(format(f, L'\u00e9')); }, [] { return one([](L l) { l.addUCS4(0xE9); }); }},
        {"const char*", ArgCharStar, [](const char* f) { return text(format(f, static_cast<const char*>("caf\xc3\xa9"))); },
         [] { return one([](L l) { l.add("caf\xc3\xa9"); }); }},
        {"null const char*", ArgCharStar, [](const char* f) { return text(format(f, static_cast<const char*>(nullptr))); },
         [] { return one([](L l) { l.add(static_cast<const char*>(nullptr)); }); }},
        {"char array", ArgCharStar, [](const char* f) { return text(format(f, "list")); }, [] { return one([](L l) { l.add("list"); }); }},
        {"std::string", ArgString, [](const char* f) { return text(format(f, std::string("caf\xc3\xa9"))); },
         [] { return one([](L l) { l.add(StringC(std::string_view("caf\xc3\xa9"))); }); }},
        {"std::string_view", ArgString, [](const char* f) { return text(format(f, std::string_view("ab\xe4"))); },
         [] { return one([](L l) { l.add(StringC(std::string_view("ab\xe4"))); }); }},
        {"StringC", ArgString, [](const char* f) { return text(format(f, kWord)); }, [] { return one([](L l) { l.add(kWord); }); }},
        {"const StringC*", ArgString, [](const char* f) { return text(format(f, &kWord)); }, [] { return one([](L l) { l.add(kWord); }); }},
        {"null StringC*", ArgString, [](const char* f) { return text(format(f, static_cast<const StringC*>(nullptr))); },
         [] { return one([](L l) { l.add(StringC()); }); }},
        {"ArgTimeValT", ArgTimeVal, [](const char* f) { return text(format(f, kTime)); }, [] { return one([](L l) { l.add(kTime); }); }},
        {"const ArgTimeValT*", ArgTimeVal, [](const char* f) { return text(format(f, &kTime)); }, [] { return one([](L l) { l.add(kTime); }); }},
        {"timeval", ArgDateTime, [=](const char* f) { return text(format(f, tv)); },
         [] { return one([](L l) { l.addDateTime(kEpoch1970 + 170000000000000000LL + 12345600); }); }},
        {"timespec", ArgDateTime, [=](const char* f) { return text(format(f, ts)); },
         [] { return one([](L l) { l.addDateTime(kEpoch1970 + 170000000000000000LL + 12345678); }); }},
        {"time_point", ArgDateTime, [=](const char* f) { return text(format(f, tp)); },
         [] { return one([](L l) { l.addDateTime(kEpoch1970 + 170000000000000000LL + 500); }); }},
        {"ArgGuidT", ArgGuid, [](const char* f) { return text(format(f, guid)); }, [] { return one([](L l) { l.add(guid); }); }},
        {"ArgListC", ArgArgList, [](const char* f) { return text(format(f, one([](L l) { l.add(int32_t(1)); }))); },
         [] { return one([](L l) { l.add(one([](L inner) { inner.add(int32_t(1)); })); }); }},
        {"pointer", ArgObjRef, [](const char* f) { return text(format(f, &object)); },
         [] { return one([](L l) { l.add(static_cast<const void*>(&object)); }); }},
        {"nullptr", ArgObjRef, [](const char* f) { return text(format(f, nullptr)); },
         [] { return one([](L l) { l.add(static_cast<const void*>(nullptr)); }); }},
    };
}

// Every conversion of the language, with flags, widths, precisions and
// positions, and letters that are none; %e and %f are no conversions here.
// The `*` forms take their width from the sample only where it is small
// (see starFits): a width is the caller's to choose, and 6000000000 read as
// 32 bits asks for 1705032704 blanks.
const char* const kFormats[] = {
    "%d", "%i", "%u", "%o", "%x", "%X", "%b", "%c", "%C", "%s", "%S", "%p", "%t", "%.26t",
    "%5d", "%-5d|", "%05d", "%+d", "% d", "%#x", "%#o", "%#b", "%.3d", "%08p", "%05S", "%-7S|",
    "%.1S", "%hd", "%hhu", "%lu", "%lld", "%zu", "%jd", "%ls", "%1$S %1$d", "%2$d", "%*d %d", "%.*S",
    "%e", "%f", "%y", "%%", "%", "[%s][%s]",
};

// Any letter against any entry: the engine's text, and never a fault (this
// program also runs under AddressSanitizer).
TEST(FormatFrontTest, SameTextAsTheEngineForEveryLetterAndEntry) {
    for (const SampleT& sample : samples()) {
        ArgListC list = sample.byHand();
        int32_t code = list.get(0)->code();
        EXPECT_EQ(sample.code, code) << sample.name;
        // The low 32 bits of the sample, as a `*` width takes them.
        long long value = std::strtoll(engine("%d", list).c_str(), nullptr, 10);
        bool starFits = std::llabs(static_cast<int32_t>(static_cast<uint32_t>(value))) < 100000;
        for (const char* format : kFormats) {
            if (format[1] == '*' || (format[1] == '.' && format[2] == '*')) {
                if (!starFits) continue;
            }
            std::string viaEngine = engine(format, sample.byHand());
            std::string viaFront = sample.viaFront(format);
            if (code == ArgCharStar && strchr(format, 'p')) {
                // %p of a "CharStar" shows the address of the list's own copy
                // of the text, which differs from list to list.
                EXPECT_EQ(viaEngine.size(), viaFront.size()) << sample.name << " with " << format;
                continue;
            }
            EXPECT_EQ(viaEngine, viaFront) << sample.name << " with " << format;
        }
    }
}

// Several arguments in one call (the table above has one each); a letter's
// length part is not needed for any of them.
TEST(FormatFrontTest, LengthLettersAreNotNeeded) {
    std::vector<int> items(3);
    EXPECT_EQ("3 items in list", text(format("%zu items in %s", items.size(), "list")));
    EXPECT_EQ("6000000000 -6000000000", text(format("%u %d", 6000000000ULL, -6000000000LL)));
    EXPECT_EQ("2 1", text(format("%2$d %1$d", 1, 2)));
    EXPECT_EQ("   42|42   |", text(format("%*d|%-*d|", 5, 42, 5, 42)));
    // Missing arguments show as the engine shows them.
    EXPECT_EQ("[][0]", text(format("[%s][%d]")));
    // The format as a StringC, and text of other scripts.
    EXPECT_EQ("\xc5\x81=321", text(format(StringC(std::string_view("%C=%d")), U'\u0141', U'\u0141')));
}

// The C-variadic forms stay, and agree where their letters fit the arguments.
TEST(FormatFrontTest, VariadicFormsAgreeWhereLettersFit) {
    StringC name(std::string_view("x.txt"));
    ArgTimeValT time = {1700000000, 5000};
    EXPECT_EQ(text(formatString("%d %u %lld %S %s %C %.26t", -1, 7u, -6000000000LL, &name, "s", 0x141u, &time)),
              text(format("%d %u %lld %S %s %C %.26t", -1, 7u, -6000000000LL, name, "s", U'\u0141', time)));
}

// Whether formatString can be called with these arguments at all.
template <typename Void, typename... Args>
struct callableM : std::false_type {};
template <typename... Args>
struct callableM<std::void_t<decltype(formatString(std::declval<Args>()...))>, Args...> : std::true_type {};

// A class object given to the C-variadic form (a StringC for %S, which takes
// a pointer) does not compile; numbers, pointers and texts do.
TEST(FormatFrontTest, VariadicFormsRefuseClassObjects) {
    EXPECT_FALSE((callableM<void, const char*, StringC>::value));
    EXPECT_FALSE((callableM<void, const char*, int, std::string>::value));
    EXPECT_FALSE((callableM<void, const StringC*, StringC>::value));
    EXPECT_TRUE((callableM<void, const char*, const StringC*, int, const char (&)[3], double, std::nullptr_t>::value));
    EXPECT_TRUE((callableM<void, const char*>::value));
}

struct CollectT {
    std::u32string characters;
};

void collect(void* context, uint32_t character) { static_cast<CollectT*>(context)->characters += char32_t(character); }

TEST(FormatFrontTest, FormatToGivesTheCharactersOfFormat) {
    StringC word(std::string_view("\xc3\xa9t\xc3\xa9"));
    std::u32string viaLambda;
    formatTo([&](char32_t c) { viaLambda += c; }, "%-6S|%d", word, 12);
    EXPECT_EQ(U"\u00e9t\u00e9   |12", viaLambda);
    CollectT viaFunction;
    formatTo(collect, &viaFunction, StringC(std::string_view("%-6S|%d")), word, 12);
    EXPECT_EQ(viaLambda, viaFunction.characters);
    std::u32string fromFormat;
    for (char32_t c : format("%-6S|%d", word, 12).chars()) fromFormat += c;
    EXPECT_EQ(viaLambda, fromFormat);
}

}  // namespace
