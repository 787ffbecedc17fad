// Comparisons and searches of the string representation, with their cursor
// rules. Every search runs on two forms of the same text: one whose count is
// known (a one-byte text then takes the byte fast paths) and one whose count
// is unknown (the character walk), and both must answer alike.
#include "text/stringim.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <keel/string.h>

#include "testing/scantest.h"

namespace keel {
namespace {

using namespace std::string_literals;

StringC counted(const std::string& bytes) {
    StringC s = raw(bytes);
    s.length();
    return s;
}

int sign(int value) { return (value > 0) - (value < 0); }

// 'c'/'C': find/findLast of the needle's first character; 's'/'S': of the
// needle as a string; 'o'/'O': findFirstOf/findLastOf; 'n'/'N': the NotOf pair.
int32_t search(const StringC& s, char op, const std::string& needle, int32_t at) {
    StringC n = raw(needle);
    switch (op) {
        case 'c': return s.find(n.charAt(0), at);
        case 'C': return s.findLast(n.charAt(0), at);
        case 's': return s.find(n, at);
        case 'S': return s.findLast(n, at);
        case 'o': return s.findFirstOf(n, at);
        case 'O': return s.findLastOf(n, at);
        case 'n': return s.findFirstNotOf(n, at);
        default: return s.findLastNotOf(n, at);
    }
}

// compare and compareNoCase answer by their sign only; compareNatural is
// exact. 'c': compare, 'i': compareNoCase, 'n'/'N': compareNatural without
// and with case folding.
TEST(StringCompare, AllThreeOrders) {
    struct Case { char op; std::string a, b; int want; };
    const Case cases[] = {
        {'c', "abc", "abd", -1}, {'c', "abc", "ab", 1}, {'c', "ab", "abc", -1}, {'c', "abc", "abc", 0},
        {'c', "\xC3\xA9t\xC3\xA9", "zebra", 1},  // code-point order
        // NULs inside the text are compared like any byte; the length decides.
        {'c', "ab\0c"s, "ab", 1}, {'c', "ab\0c"s, "ab\0d"s, -1}, {'c', "", "a", -1}, {'c', "a", "", 1},
        {'i', "Hello World", "hELLO wORLD", 0}, {'i', "\xC3\x89T\xC3\x89", "\xC3\xA9t\xC3\xA9", 0},
        {'i', "\xCE\xA3", "\xCF\x83", 0}, {'i', "apple", "BANANA", -1}, {'i', "b", "A", 1}, {'i', "abc", "ab", 1},
        {'i', "STRA\xC3\x9F" "E", "STRASSE", 1},  // U+00DF has no simple mapping: it is not "ss"
        {'n', "file2", "file10", -1}, {'n', "file10", "file9", 1}, {'n', "file10", "file10", 0},
        {'n', "v1.2.9", "v1.2.10", -1}, {'n', "a10b", "a10c", -1}, {'n', "10", "9", 1},
        {'n', "x\xD9\xA5", "x10", -1},           // Arabic-Indic 5 counts by its value
        {'n', "a", "1", -1}, {'n', "1", "a", 1},  // a non-digit reads as the number 0
        // A run that starts with a digit zero is compared character by character.
        {'n', "x01", "x1", 1}, {'n', "x1", "x01", -1}, {'n', "0a", "0b", -1},
        // Two non-digits compare as characters and the walk goes on, so every
        // comparison ends.
        {'n', "abc", "abd", -1}, {'n', "abcd", "abc", 1}, {'n', "abc", "abcd", -1}, {'n', "ABC", "abc", -1},
        {'N', "ABC", "abc", 0}, {'N', "\xC3\x89t\xC3\xA9 2", "\xC3\xA9T\xC3\x89 2", 0}, {'n', "\xC3\xA9", "z", 1},
        {'n', "", "a", -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.op << " " << c.a << " / " << c.b);
        StringC a = raw(c.a), b = raw(c.b);
        int got = c.op == 'c' ? sign(a.compare(b)) : c.op == 'i' ? sign(a.compareNoCase(b))
                                                                 : a.compareNatural(b, c.op == 'N');
        EXPECT_EQ(c.want, got);
    }
    StringC s = raw("same");
    EXPECT_EQ(0, s.compare(s));
    EXPECT_EQ(0, s.compareNatural(s, false));
}

// The walk is bounded by this string's bytes; where folded characters have
// encodings of different lengths the byte lengths judge the tail.
TEST(StringCompare, NoCaseDriftOnDifferentEncodedLengths) {
    const std::string kelvin = "\xE2\x84\xAA";  // U+212A folds to 'k'
    // Kelvin (3 bytes) against 'k' (1 byte): the bound is 2 bytes, one step
    // covers it, and the lengths 4 and 2 decide.
    EXPECT_EQ(2, raw(kelvin + "a").compareNoCase(raw("kA")));
    // The other way round the bound is 2 too: k = Kelvin, A = a, then 2 - 4.
    EXPECT_EQ(-2, raw("kA").compareNoCase(raw(kelvin + "a")));
    EXPECT_NE(0, raw(kelvin).compareNoCase(raw("k")));
    // The other position reaches its terminator while this one still has
    // bytes to walk: it keeps reading 0 there and never walks past its buffer.
    EXPECT_EQ(2, raw("k\0\0\0\0"s).compareNoCase(raw(kelvin)));
    EXPECT_GT(raw("k\0\0\0x"s).compareNoCase(raw(kelvin)), 0);
}

TEST(StringSearch, AnswersOnBothForms) {
    struct Case { std::string text; char op; std::string needle; int32_t at, want; };
    const std::string banana = "banana", hello = "hello, world", fffd = "\xEF\xBF\xBD";
    // Ordinary searches, from every start between -2 and two past the end,
    // with empty needles and partial matches, are compared with the string
    // model (stringim_model_test); these are what it never makes: starts far
    // out of range, broken text and NULs inside the text.
    const Case cases[] = {
        {banana, 'C', "a", 100, 5},  // past the end: from the end
        {banana, 'c', "a", -7, 1},   // below -1 forward: from the start
        {banana, 'c', "a", 100, -1}, {banana, 'c', "a", 0x7FFFFFFF, -1}, {banana, 'S', "ana", 100, 3},
        {banana, 'c', "", -1, -1},  // charAt(0) of an empty needle
        {hello, 'n', "", 100, -1}, {hello, 'N', "", 100, 11},
        // Broken sequences read as U+FFFD; in a one-byte text every byte at or
        // above 0x80 does.
        {"a\xFF" "b", 'c', fffd, -1, 1}, {"x\x80y\xFEz", 'c', fffd, -1, 1}, {"x\x80y\xFEz", 'c', fffd, 1, 3},
        {"x\x80y\xFEz", 'C', fffd, -1, 3}, {"x\x80y\xFEz", 'n', "xyz", -1, 1}, {"x\x80y\xFEz", 'N', "xyz", -1, 3},
        {"x\x80y\xFEz", 'o', "yz", -1, 2}, {"x\x80y\xFEz", 's', "\xC2\x80", -1, -1},
        // Forward walks stop at the first NUL; the text behind it is not searched.
        {"ab\0ab"s, 'c', "a", 0, -1}, {"ab\0ab"s, 's', "ab", 0, -1}, {"ab\0ab"s, 'o', "b", 1, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.op << " '" << c.needle << "' at " << c.at << " in " << c.text);
        EXPECT_EQ(c.want, search(raw(c.text), c.op, c.needle, c.at)) << "count unknown";
        EXPECT_EQ(c.want, search(counted(c.text), c.op, c.needle, c.at)) << "count known";
    }
}

// The indexes of a forward search over broken text are those of charAt.
TEST(StringSearch, BrokenTextAgreesWithCharAt) {
    const std::string text = "a\xFF" "b\xC3(\x80" "c\xF0\x9F\x98" "d\xE4\xB8";
    ASSERT_EQ(8, raw(text).length());
    for (int32_t i = 0; i < 8; ++i) {
        EXPECT_EQ(i, raw(text).find(raw(text).charAt(i), i - 1)) << i;
        EXPECT_EQ(i, raw(text).find(raw(text).substring(i, 1), i - 1)) << i;
    }
}

}  // namespace
}  // namespace keel
