// keel::format from a client's seat (public headers, libkeel.so, toolkit):
// the entry each C++ type becomes, the same text as the engine given the same
// list, and no fault for any letter against any entry.
#include <sys/time.h>
#include <time.h>

#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
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

ArgListC one(std::function<void(ArgListC&)> add) {
    ArgListC list;
    add(list);
    return list;
}

// One argument of each kind of type the front end takes: how keel::format
// renders a format with it, and the list that the engine would be given by hand.
struct SampleT {
    const char* name;
    int32_t code;
    std::function<std::string(const char*)> viaFront;
    std::function<ArgListC()> byHand;
};

const int64_t kEpoch1970 = 6213568320000000000LL;
const StringC kWord(std::string_view("W\xc3\xb6rd"));

std::vector<SampleT> samples() {
    using L = ArgListC&;
    const bool longIs64 = sizeof(long) == 8;
    timeval tv = {1700000000, 123456};
    static int object;
    static ArgGuidT guid = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};
    return {
        {"bool", ArgBool, [](const char* f) { return text(format(f, true)); }, [] { return one([](L l) { l.add(true); }); }},
        {"char", ArgInt16, [](const char* f) { return text(format(f, 'A')); }, [] { return one([](L l) { l.add(int16_t('A')); }); }},
        {"int", ArgInt32, [](const char* f) { return text(format(f, -70000)); }, [] { return one([](L l) { l.add(int32_t(-70000)); }); }},
        {"long", longIs64 ? ArgInt64 : ArgInt32, [](const char* f) { return text(format(f, -5L)); },
         [=] { return one([=](L l) { if (longIs64) l.add(int64_t(-5)); else l.add(int32_t(-5)); }); }},
        {"unsigned", ArgUnsigned32, [](const char* f) { return text(format(f, 4000000000u)); },
         [] { return one([](L l) { l.add(uint32_t(4000000000u)); }); }},
        {"unsigned long long", ArgUnsigned64, [](const char* f) { return text(format(f, 6000000000ULL)); },
         [] { return one([](L l) { l.add(uint64_t(6000000000ULL)); }); }},
        {"double", ArgReal, [](const char* f) { return text(format(f, -3.9)); }, [] { return one([](L l) { l.add(-3.9); }); }},
        {"char32_t", ArgUCS4, [](const char* f) { return text(format(f, U'\u0141')); }, [] { return one([](L l) { l.addUCS4(0x141); }); }},
        {"const char*", ArgCharStar, [](const char* f) { return text(format(f, static_cast<const char*>("caf\xc3\xa9"))); },
         [] { return one([](L l) { l.add("caf\xc3\xa9"); }); }},
        {"std::string", ArgString, [](const char* f) { return text(format(f, std::string("caf\xc3\xa9"))); },
         [] { return one([](L l) { l.add(StringC(std::string_view("caf\xc3\xa9"))); }); }},
        {"StringC", ArgString, [](const char* f) { return text(format(f, kWord)); }, [] { return one([](L l) { l.add(kWord); }); }},
        {"timeval", ArgDateTime, [=](const char* f) { return text(format(f, tv)); },
         [] { return one([](L l) { l.addDateTime(kEpoch1970 + 170000000000000000LL + 12345600); }); }},
        {"ArgGuidT", ArgGuid, [](const char* f) { return text(format(f, guid)); }, [] { return one([](L l) { l.add(guid); }); }},
        {"ArgListC", ArgArgList, [](const char* f) { return text(format(f, one([](L l) { l.add(int32_t(1)); }))); },
         [] { return one([](L l) { l.add(one([](L inner) { inner.add(int32_t(1)); })); }); }},
        {"pointer", ArgObjRef, [](const char* f) { return text(format(f, &object)); },
         [] { return one([](L l) { l.add(static_cast<const void*>(&object)); }); }},
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

// Several arguments in one call, and the characters handed to a callback.
TEST(FormatFrontTest, SeveralArgumentsAndFormatTo) {
    EXPECT_EQ("2 1", text(format("%2$d %1$d", 1, 2)));
    EXPECT_EQ("6000000000 -6000000000", text(format("%u %d", 6000000000ULL, -6000000000LL)));
    std::u32string viaLambda;
    formatTo([&](char32_t c) { viaLambda += c; }, "%-4S|%d", StringC(std::string_view("\xc3\xa9t")), 12);
    EXPECT_EQ(U"\u00e9t  |12", viaLambda);
}

}  // namespace
