// keel::format from a client's seat (public headers, libkeel.so, toolkit):
// the entry each C++ type becomes, seen through the engine's rendering of the
// same list built by hand, and the characters handed to a callback. Any
// letter against any entry is fuzz/format_fuzz.cpp's.
#include <sys/time.h>

#include <cstdint>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include <keel/keel.h>

using namespace keel;

namespace {

std::string text(const StringC& string) { return string.toStdString(); }

// The engine's own rendering of a list that was built by hand.
std::string engine(const char* format, const ArgListC& list) {
    return text(StringC::format(StringC(std::string_view(format)), list));
}

// Every entry under each letter (by position), as the engine renders the
// same list built by hand; "%x" of a long shows whether it became 32 or 64
// bits.
TEST(FormatFrontTest, EachTypeBecomesItsEntry) {
    const StringC word(std::string_view("W\xc3\xb6rd"));
    ArgListC hand, nested;
    nested.add(int32_t(1));
    hand.add(true).add(int16_t('A')).add(int32_t(-70000)).add(uint32_t(4000000000u));
    hand.add(uint64_t(6000000000ULL)).add(-3.9).addUCS4(0x141).add("caf\xc3\xa9");
    hand.add(word).add(nested).add(int64_t(-7));
    sizeof(long) == 8 ? hand.add(int64_t(-5)) : hand.add(int32_t(-5));
    hand.addDateTime(6213568320000000000LL + 170000000000000000LL + 12345600);
    auto front = [&](const std::string& f) {
        return text(format(f.c_str(), true, 'A', -70000, 4000000000u, 6000000000ULL, -3.9,
                           U'\u0141', std::string("caf\xc3\xa9"), word, nested, -7LL, -5L,
                           timeval{1700000000, 123456}));
    };
    for (const char* letter : {"d", "u", "x", " d", "+d", "05d", "c", "C", "s", "S", ".26t", "b"}) {
        for (int position = 1; position <= 13; ++position) {
            std::string f = "[%" + std::to_string(position) + "$" + letter + "]";
            EXPECT_EQ(engine(f.c_str(), hand), front(f)) << f;
        }
    }
    for (const char* f : {"[%*6$d]", "[%*9$d]", "[%*11$d]", "[%.*11$S]"})
        EXPECT_EQ(engine(f, hand), front(f)) << f;
}

// Several arguments in one call, and the characters handed to a callback.
TEST(FormatFrontTest, SeveralArgumentsAndFormatTo) {
    EXPECT_EQ("2 1", text(format("%2$d %1$d", 1, 2)));
    EXPECT_EQ("6000000000 -6000000000", text(format("%u %d", 6000000000ULL, -6000000000LL)));
    std::u32string viaLambda;
    formatTo([&](char32_t c) { viaLambda += c; }, "%-4S|%d", StringC(std::string_view("\xc3\xa9t")),
             12);
    EXPECT_EQ(U"\u00e9t  |12", viaLambda);
}

}  // namespace
