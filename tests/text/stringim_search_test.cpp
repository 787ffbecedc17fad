// Comparisons and searches of the string representation, with their cursor
// rules. Most cases run on two forms of the same text: one whose count is
// known to be one byte a character (the byte fast paths) and one whose count
// is unknown (the character walk), and both must answer alike.
#include "text/stringim.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <keel/string.h>

namespace keel {
namespace {

// A string over the bytes as they are, with no count known.
StringC raw(const std::string& bytes) {
    return StringC(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");
}

// The same, with the count taken, so that a one-byte text takes the fast paths.
StringC counted(const std::string& bytes) {
    StringC s = raw(bytes);
    s.length();
    return s;
}

StringImplC* impl(const StringC& s) {
    return static_cast<StringImplC*>(s.getImpl());
}

int sign(int value) {
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

// --- compare ---------------------------------------------------------------

TEST(StringCompare, BytesAndLengths) {
    EXPECT_EQ(-1, raw("abc").compare(raw("abd")));
    EXPECT_EQ(1, raw("abc").compare(raw("ab")));
    EXPECT_EQ(-1, raw("ab").compare(raw("abc")));
    EXPECT_EQ(0, raw("abc").compare(raw("abc")));
    EXPECT_GT(raw("\xC3\xA9t\xC3\xA9").compare(raw("zebra")), 0);  // code-point order
    StringC s = raw("same");
    EXPECT_EQ(0, s.compare(s));
    // NULs inside the text are compared like any byte; the length decides.
    EXPECT_GT(raw(std::string("ab\0c", 4)).compare(raw("ab")), 0);
    EXPECT_LT(raw(std::string("ab\0c", 4)).compare(raw(std::string("ab\0d", 4))), 0);
    EXPECT_LT(StringC().compare(raw("a")), 0);
    EXPECT_GT(raw("a").compare(StringC()), 0);
}

// --- compareNoCase -------------------------------------------------------------

TEST(StringCompareNoCase, FoldsWithTheLowerMap) {
    EXPECT_EQ(0, raw("Hello World").compareNoCase(raw("hELLO wORLD")));
    EXPECT_EQ(0, raw("\xC3\x89T\xC3\x89").compareNoCase(raw("\xC3\xA9t\xC3\xA9")));  // ÉTÉ, été
    EXPECT_EQ(0, raw("\xCE\xA3").compareNoCase(raw("\xCF\x83")));  // Σ, σ
    EXPECT_LT(raw("apple").compareNoCase(raw("BANANA")), 0);
    EXPECT_GT(raw("b").compareNoCase(raw("A")), 0);
    // U+00DF has no simple mapping, so it is not "ss".
    EXPECT_NE(0, raw("STRA\xC3\x9F" "E").compareNoCase(raw("STRASSE")));
    EXPECT_EQ(raw("abc").compareNoCase(raw("ab")), 1);
}

// The walk is bounded by this string's bytes; where folded characters have
// encodings of different lengths the byte lengths judge the tail.
TEST(StringCompareNoCase, DriftOnDifferentEncodedLengths) {
    const std::string kelvin = "\xE2\x84\xAA";  // U+212A folds to 'k'
    // Kelvin (3 bytes) against 'k' (1 byte): the bound is 2 bytes, one step
    // covers it, and the lengths 4 and 2 decide.
    EXPECT_EQ(2, raw(kelvin + "a").compareNoCase(raw("kA")));
    // The other way round the bound is 2 too: k = Kelvin, A = a, then 2 - 4.
    EXPECT_EQ(-2, raw("kA").compareNoCase(raw(kelvin + "a")));
    // Equal text folds to 0 only when the byte lengths agree as well.
    EXPECT_NE(0, raw(kelvin).compareNoCase(raw("k")));
    // The other position reaches its terminator while this one still has
    // bytes to walk: it keeps reading 0 there and never walks past its buffer.
    EXPECT_EQ(2, raw(std::string("k\0\0\0\0", 5)).compareNoCase(raw(kelvin)));
    EXPECT_GT(raw(std::string("k\0\0\0x", 5)).compareNoCase(raw(kelvin)), 0);
}

// --- compareNatural --------------------------------------------------------------

TEST(StringCompareNatural, DigitRunsByValue) {
    EXPECT_EQ(-1, raw("file2").compareNatural(raw("file10"), false));
    EXPECT_EQ(1, raw("file10").compareNatural(raw("file9"), false));
    EXPECT_EQ(0, raw("file10").compareNatural(raw("file10"), false));
    EXPECT_EQ(-1, raw("v1.2.9").compareNatural(raw("v1.2.10"), false));
    EXPECT_EQ(-1, raw("a10b").compareNatural(raw("a10c"), false));
    EXPECT_EQ(1, raw("10").compareNatural(raw("9"), false));
    // Digits of other scripts count by their value: Arabic-Indic 5 < 10.
    EXPECT_EQ(-1, raw("x\xD9\xA5").compareNatural(raw("x10"), false));
    // A non-digit against a digit: the non-digit reads as the number 0.
    EXPECT_EQ(-1, raw("a").compareNatural(raw("1"), false));
    EXPECT_EQ(1, raw("1").compareNatural(raw("a"), false));
    // A run that starts with a digit zero is compared character by character.
    EXPECT_EQ(1, raw("x01").compareNatural(raw("x1"), false));
    EXPECT_EQ(-1, raw("x1").compareNatural(raw("x01"), false));
    EXPECT_EQ(-1, raw("0a").compareNatural(raw("0b"), false));
}

// Two non-digits are compared as characters and the walk goes on, so every
// comparison ends.
TEST(StringCompareNatural, EndsOnNonDigitPairs) {
    EXPECT_EQ(-1, raw("abc").compareNatural(raw("abd"), false));
    EXPECT_EQ(1, raw("abd").compareNatural(raw("abc"), false));
    EXPECT_EQ(-1, raw("abc").compareNatural(raw("abcd"), false));
    EXPECT_EQ(1, raw("abcd").compareNatural(raw("abc"), false));
    EXPECT_EQ(-1, raw("ABC").compareNatural(raw("abc"), false));  // unsigned order
    EXPECT_EQ(0, raw("ABC").compareNatural(raw("abc"), true));
    EXPECT_EQ(0, raw("\xC3\x89t\xC3\xA9 2").compareNatural(raw("\xC3\xA9T\xC3\x89 2"), true));
    EXPECT_EQ(1, raw("\xC3\xA9").compareNatural(raw("z"), false));
    EXPECT_EQ(-1, StringC().compareNatural(raw("a"), false));
    StringC s = raw("abc");
    EXPECT_EQ(0, s.compareNatural(s, false));
}

// --- the banana cases and the other searches ----------------------------------

// Runs `check` on the one-byte form with its count known and on the walking
// form without a count.
template <typename F>
void onBothForms(const std::string& text, F check) {
    {
        SCOPED_TRACE("count known");
        check(counted(text));
    }
    {
        SCOPED_TRACE("count unknown");
        check(raw(text));
    }
}

TEST(StringSearch, BananaChars) {
    onBothForms("banana", [](const StringC& s) {
        EXPECT_EQ(1, s.find('a'));
        EXPECT_EQ(3, s.find('a', 1));
        EXPECT_EQ(5, s.find('a', 3));
        EXPECT_EQ(-1, s.find('a', 5));
        EXPECT_EQ(0, s.find('b'));
        EXPECT_EQ(-1, s.find('x'));
        EXPECT_EQ(5, s.findLast('a'));
        EXPECT_EQ(3, s.findLast('a', 5));
        EXPECT_EQ(1, s.findLast('a', 3));
        EXPECT_EQ(-1, s.findLast('a', 1));
        EXPECT_EQ(-1, s.findLast('b', 0));
        EXPECT_EQ(0, s.findLast('b'));
        EXPECT_EQ(5, s.findLast('a', 100));  // past the end: from the end
        EXPECT_EQ(-1, s.findLast('a', -2));
        EXPECT_EQ(1, s.find('a', -7));       // below -1: from the start
        EXPECT_EQ(-1, s.find('a', 100));
        EXPECT_EQ(-1, s.find('a', 0x7FFFFFFF));
        EXPECT_EQ(-1, s.find(0u));
    });
}

TEST(StringSearch, BananaStrings) {
    onBothForms("banana", [](const StringC& s) {
        EXPECT_EQ(1, s.find(raw("ana")));
        EXPECT_EQ(3, s.find(raw("ana"), 1));
        EXPECT_EQ(-1, s.find(raw("ana"), 3));
        EXPECT_EQ(3, s.findLast(raw("ana")));
        EXPECT_EQ(1, s.findLast(raw("ana"), 4));
        EXPECT_EQ(-1, s.findLast(raw("ana"), 3));
        EXPECT_EQ(0, s.find(raw("banana")));
        EXPECT_EQ(0, s.findLast(raw("banana")));
        EXPECT_EQ(-1, s.find(raw("bananas")));
        EXPECT_EQ(-1, s.findLast(raw("bananas")));
        EXPECT_EQ(-1, s.find(StringC()));
        EXPECT_EQ(-1, s.findLast(StringC()));
        EXPECT_EQ(4, s.find(raw("na"), 2));
        EXPECT_EQ(-1, s.find(raw("nab")));
    });
}

TEST(StringSearch, RestartAfterPartialMatch) {
    onBothForms("aaab", [](const StringC& s) { EXPECT_EQ(1, s.find(raw("aab"))); });
    onBothForms("abababc", [](const StringC& s) {
        EXPECT_EQ(2, s.find(raw("ababc")));
        EXPECT_EQ(2, s.findLast(raw("ababc")));
        EXPECT_EQ(2, s.findLast(raw("abab"), 6));
        EXPECT_EQ(0, s.findLast(raw("abab"), 5));
    });
}

TEST(StringSearch, SetSearches) {
    onBothForms("hello, world", [](const StringC& s) {
        EXPECT_EQ(2, s.findFirstOf(raw("lw")));
        EXPECT_EQ(3, s.findFirstOf(raw("lw"), 2));
        EXPECT_EQ(10, s.findLastOf(raw("lw")));
        EXPECT_EQ(7, s.findLastOf(raw("lw"), 10));
        EXPECT_EQ(-1, s.findFirstOf(raw("xyz")));
        EXPECT_EQ(-1, s.findFirstOf(StringC()));
        EXPECT_EQ(-1, s.findLastOf(StringC()));
        EXPECT_EQ(1, s.findFirstNotOf(raw("h")));
        EXPECT_EQ(5, s.findFirstNotOf(raw("helo")));
        EXPECT_EQ(10, s.findLastNotOf(raw("d")));
        EXPECT_EQ(8, s.findLastNotOf(raw(", wrld")));
        EXPECT_EQ(-1, s.findFirstNotOf(raw("helo, wrd")));
        EXPECT_EQ(-1, s.findLastNotOf(raw("helo, wrd")));
        // An empty set: the first character visited is the answer.
        EXPECT_EQ(0, s.findFirstNotOf(StringC()));
        EXPECT_EQ(4, s.findFirstNotOf(StringC(), 3));
        EXPECT_EQ(11, s.findLastNotOf(StringC()));
        EXPECT_EQ(2, s.findLastNotOf(StringC(), 3));
        EXPECT_EQ(-1, s.findFirstNotOf(StringC(), 11));
        EXPECT_EQ(-1, s.findLastNotOf(StringC(), 0));
    });
}

// The same searches over text of two- and three-byte characters.
TEST(StringSearch, MultiByteText) {
    // "bänänä €" : b ä n ä n ä space €
    StringC s = raw("b\xC3\xA4n\xC3\xA4n\xC3\xA4 \xE2\x82\xAC");
    const uint32_t ae = 0xE4;
    EXPECT_EQ(8, s.length());
    EXPECT_EQ(1, s.find(ae));
    EXPECT_EQ(3, s.find(ae, 1));
    EXPECT_EQ(5, s.findLast(ae));
    EXPECT_EQ(3, s.findLast(ae, 5));
    EXPECT_EQ(7, s.find(0x20AC));
    EXPECT_EQ(7, s.findLast(0x20AC));
    EXPECT_EQ(1, s.find(raw("\xC3\xA4n\xC3\xA4")));
    EXPECT_EQ(3, s.find(raw("\xC3\xA4n\xC3\xA4"), 1));
    EXPECT_EQ(3, s.findLast(raw("\xC3\xA4n\xC3\xA4")));
    EXPECT_EQ(1, s.findLast(raw("\xC3\xA4n\xC3\xA4"), 4));
    EXPECT_EQ(6, s.findFirstOf(raw("\xE2\x82\xAC ")));
    EXPECT_EQ(7, s.findLastOf(raw("\xE2\x82\xAC ")));
    EXPECT_EQ(6, s.findFirstNotOf(raw("bn\xC3\xA4")));
    EXPECT_EQ(5, s.findLastNotOf(raw(" \xE2\x82\xAC")));
    EXPECT_EQ(-1, s.find(raw("\xE2\x82\xAC!")));
    // Characters above the 16-bit range.
    StringC wide = raw("a\xF0\x9F\x98\x80" "b\xF0\x9F\x98\x80");
    EXPECT_EQ(1, wide.find(0x1F600));
    EXPECT_EQ(3, wide.findLast(0x1F600));
    EXPECT_EQ(2, wide.find(raw("b\xF0\x9F\x98\x80")));
}

// Broken sequences read as U+FFFD, and the indexes of a forward search are
// those of charAt even there.
TEST(StringSearch, BrokenTextAgreesWithCharAt) {
    const std::string text = "a\xFF" "b\xC3(\x80" "c\xF0\x9F\x98" "d\xE4\xB8";
    EXPECT_EQ(1, raw(text).find(0xFFFD));
    int32_t n = raw(text).length();
    EXPECT_EQ(8, n);
    for (int32_t i = 0; i < n; ++i) {
        uint32_t c = raw(text).charAt(i);
        EXPECT_EQ(i, raw(text).find(c, i - 1)) << i;
        StringC piece = raw(text).substring(i, 1);
        EXPECT_EQ(i, raw(text).find(piece, i - 1)) << i;
    }
    // A text with a one-byte count: bytes at or above 0x80 read as U+FFFD.
    onBothForms("x\x80y\xFEz", [](const StringC& t) {
        EXPECT_EQ(1, t.find(0xFFFD));
        EXPECT_EQ(3, t.find(0xFFFD, 1));
        EXPECT_EQ(3, t.findLast(0xFFFD));
        EXPECT_EQ(1, t.findFirstNotOf(raw("xyz")));
        EXPECT_EQ(3, t.findLastNotOf(raw("xyz")));
        EXPECT_EQ(2, t.findFirstOf(raw("yz")));
        EXPECT_EQ(-1, t.find(raw("\xC2\x80")));
    });
}

// Forward walks stop at the first NUL; the text behind it is not searched.
TEST(StringSearch, StopsAtEmbeddedNul) {
    StringC s = raw(std::string("ab\0ab", 5));
    EXPECT_EQ(-1, s.find('a', 0));
    EXPECT_EQ(-1, s.find(raw("ab"), 0));
    EXPECT_EQ(-1, s.findFirstOf(raw("b"), 1));
}

// Every combination of character and start gives the same answer on the two
// forms of a text.
TEST(StringSearch, FastPathsAgreeWithTheWalk) {
    const std::string text = "the cat sat on the mat; the end";
    const char* patterns[] = {"t", "the", "at", "e e", "mat;", "xyz", "the end", "d"};
    int32_t n = static_cast<int32_t>(text.size());
    for (int32_t at = -1; at <= n + 1; ++at) {
        for (char c : std::string("tahe;dxz ")) {
            EXPECT_EQ(raw(text).find(c, at), counted(text).find(c, at)) << c << at;
            EXPECT_EQ(raw(text).findLast(c, at), counted(text).findLast(c, at)) << c << at;
        }
        for (const char* p : patterns) {
            EXPECT_EQ(raw(text).find(raw(p), at), counted(text).find(raw(p), at)) << p << at;
            EXPECT_EQ(raw(text).findLast(raw(p), at), counted(text).findLast(raw(p), at)) << p << at;
            EXPECT_EQ(raw(text).findFirstOf(raw(p), at), counted(text).findFirstOf(raw(p), at));
            EXPECT_EQ(raw(text).findLastOf(raw(p), at), counted(text).findLastOf(raw(p), at));
            EXPECT_EQ(raw(text).findFirstNotOf(raw(p), at), counted(text).findFirstNotOf(raw(p), at));
            EXPECT_EQ(raw(text).findLastNotOf(raw(p), at), counted(text).findLastNotOf(raw(p), at));
        }
    }
}

// --- the cursor --------------------------------------------------------------

TEST(StringSearchCursor, ForwardLeavesItBehindTheMatch) {
    StringC s = raw("x\xC3\xA4y\xC3\xA4z");  // x ä y ä z
    StringImplC* r = impl(s);
    EXPECT_EQ(1, s.find(0xE4));
    EXPECT_EQ(2, r->storedCursorIndex());
    EXPECT_EQ(3, r->storedCursorOffset());
    EXPECT_EQ(3, s.find(0xE4, 1));
    EXPECT_EQ(4, r->storedCursorIndex());
    EXPECT_EQ(6, r->storedCursorOffset());
    EXPECT_EQ(1, s.findFirstOf(raw("\xC3\xA4y")));
    EXPECT_EQ(2, r->storedCursorIndex());
    EXPECT_EQ(2, s.find(raw("y\xC3\xA4")));
    EXPECT_EQ(4, r->storedCursorIndex());
    EXPECT_EQ(6, r->storedCursorOffset());
}

TEST(StringSearchCursor, BackwardLeavesItAtTheMatch) {
    StringC s = raw("x\xC3\xA4y\xC3\xA4z");
    StringImplC* r = impl(s);
    EXPECT_EQ(3, s.findLast(0xE4));
    EXPECT_EQ(3, r->storedCursorIndex());
    EXPECT_EQ(4, r->storedCursorOffset());
    EXPECT_EQ(2, s.findLastOf(raw("y")));
    EXPECT_EQ(2, r->storedCursorIndex());
    EXPECT_EQ(3, r->storedCursorOffset());
    EXPECT_EQ(1, s.findLastNotOf(raw("x"), 2));
    // findLastString leaves it behind the match, as the forward searches do.
    EXPECT_EQ(1, s.findLast(raw("\xC3\xA4y")));
    EXPECT_EQ(3, r->storedCursorIndex());
    EXPECT_EQ(4, r->storedCursorOffset());
}

// A loop of find(c, previous) over a long text of two-byte characters
// visits every match, and starts each search at the cursor.
TEST(StringSearchCursor, LoopsContinueFromTheCursor) {
    std::string text;
    for (int i = 0; i < 2000; ++i) text += (i % 7 == 0) ? "\xC3\xA4" : "\xC3\xB6";
    StringC s = raw(text);
    StringImplC* r = impl(s);
    int found = 0;
    for (int32_t at = s.find(0xE4); at != -1; at = s.find(0xE4, at)) {
        EXPECT_EQ(0, at % 7);
        EXPECT_EQ(at + 1, r->storedCursorIndex());
        EXPECT_EQ(2 * (at + 1), r->storedCursorOffset());
        ++found;
    }
    EXPECT_EQ(286, found);
    found = 0;
    for (int32_t at = s.findLast(0xE4); at != -1; at = s.findLast(0xE4, at)) {
        EXPECT_EQ(0, at % 7);
        if (at >= 1) {
            EXPECT_EQ(at, r->storedCursorIndex());
        }
        ++found;
    }
    EXPECT_EQ(286, found);
}

TEST(StringSearch, BufferlessTextReadsAsEmpty) {
    StringC none("abc", "no-such-encoding");
    EXPECT_EQ(-1, none.find('a'));
    EXPECT_EQ(-1, none.findLast('a'));
    EXPECT_EQ(-1, none.find(raw("a")));
    EXPECT_EQ(-1, none.findLast(raw("a")));
    EXPECT_EQ(-1, none.findFirstNotOf(StringC()));
    EXPECT_EQ(-1, none.findLastNotOf(StringC()));
    EXPECT_EQ(0, sign(none.compare(StringC())));
    EXPECT_LT(none.compare(raw("a")), 0);
    EXPECT_LT(none.compareNoCase(raw("a")), 0);
    EXPECT_EQ(-1, none.compareNatural(raw("a"), true));
    EXPECT_EQ(-1, raw("a").find(none));
    EXPECT_GT(raw("a").compare(none), 0);
}

}  // namespace
}  // namespace keel
