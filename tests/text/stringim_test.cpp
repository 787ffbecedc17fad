#include "text/stringim.h"

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include <keel/string.h>

namespace keel {
namespace {

// Owns one reference on a fresh representation for the length of a test.
template <typename T>
struct Held {
    explicit Held(T* object) : impl(object) { impl->addRef(); }
    ~Held() { impl->release(); }
    T* operator->() const { return impl; }
    T* impl;
};

StringImplC* internal(const char* text) { return new StringImplC(text, static_cast<uint32_t>(strlen(text)), "vutf8"); }

std::string textOf(StringImplI* string) {
    void* text = nullptr;
    string->text(&text, "utf8");
    std::string result(text ? static_cast<const char*>(text) : "", string->textLength("utf8"));
    string->releaseText(text, "utf8");
    return result;
}

// "a", U+00E9, U+20AC, U+1F600, "b": offsets 0, 1, 3, 6, 10; 11 bytes.
const char kMixed[] = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80" "b";

TEST(StringImplTest, ConstructionOrderAndInternalForm) {
    Held<StringImplC> s(internal(kMixed));
    EXPECT_EQ(1, s->referenceCount());
    // StringImplI is the first base: its table is the object's first word.
    EXPECT_EQ(static_cast<void*>(s.impl), static_cast<void*>(static_cast<StringImplI*>(s.impl)));
    EXPECT_EQ(11u, s->byteCount());
    EXPECT_EQ(16u, s->byteCapacity());  // 12 rounded up to 8
    EXPECT_EQ(-1, s->storedCharCount());  // internal form is not counted
    EXPECT_EQ(-1, s->storedCursorIndex());
    EXPECT_EQ(0, s->bytes()[11]);
    EXPECT_EQ(5, s->length());
    EXPECT_EQ(5, s->storedCharCount());

    Held<StringImplC> empty(new StringImplC(nullptr, 5, "vutf8"));
    EXPECT_EQ(0, empty->storedCharCount());
    EXPECT_EQ(8u, empty->byteCapacity());
    EXPECT_TRUE(empty->isEmpty());
    EXPECT_FALSE(empty->isShared());
}

TEST(StringImplTest, InternalFormIsCopiedWithoutAnyCheck) {
    const char bytes[] = {'x', 0, '\xFF', 'y'};
    Held<StringImplC> s(new StringImplC(bytes, 4, "vutf8"));
    EXPECT_EQ(4u, s->byteCount());
    EXPECT_EQ(0, memcmp(bytes, s->bytes(), 4));
    // Walking stops at the embedded NUL.
    EXPECT_EQ(1, s->length());
    EXPECT_FALSE(s->isEmpty());
}

// A peek at the protected growth rule.
struct GrowthPeek : StringImplC {
    using StringImplC::grownCapacity;
};

TEST(StringImplTest, ReserveGrowthFigures) {
    Held<StringImplC> s(new StringImplC());
    EXPECT_EQ(0u, s->byteCapacity());
    EXPECT_EQ(nullptr, s->bytes());
    s->reserve(1);
    EXPECT_EQ(8u, s->byteCapacity());
    s->reserve(8);
    EXPECT_EQ(8u, s->byteCapacity());  // enough already
    s->reserve(9);
    EXPECT_EQ(32u, s->byteCapacity());  // (12 | 31) + 1
    s->reserve(33);
    EXPECT_EQ(64u, s->byteCapacity());  // (48 | 31) + 1
    s->reserve(65);
    EXPECT_EQ(128u, s->byteCapacity());  // (96 | 31) + 1
    s->reserve(200);
    EXPECT_EQ(224u, s->byteCapacity());  // (192 | 31) + 1 beats 200
    s->reserve(1000);
    EXPECT_EQ(1000u, s->byteCapacity());  // rounded 1000 beats (336 | 31) + 1

    Held<StringImplC> t(new StringImplC());
    t->reserve(13);
    EXPECT_EQ(16u, t->byteCapacity());
    t->reserve(100);
    EXPECT_EQ(104u, t->byteCapacity());  // rounded 104 beats (24 | 31) + 1
    EXPECT_EQ(32u, GrowthPeek::grownCapacity(16, 17));
}

TEST(StringImplTest, ReserveKeepsTheText) {
    Held<StringImplC> s(internal("keep me"));
    s->reserve(500);
    EXPECT_EQ("keep me", textOf(s.impl));
    EXPECT_EQ(0, s->bytes()[7]);
}

TEST(StringImplCursorTest, WalksForwardAndBackward) {
    Held<StringImplC> s(internal(kMixed));
    const uint8_t* base = s->bytes();
    EXPECT_EQ(base + 3, s->seek(2));
    EXPECT_EQ(2, s->storedCursorIndex());
    EXPECT_EQ(3, s->storedCursorOffset());
    EXPECT_EQ(base + 10, s->seek(4));  // forward from the cursor
    EXPECT_EQ(4, s->storedCursorIndex());
    EXPECT_EQ(base + 1, s->seek(1));  // nearer the start than the cursor
    EXPECT_EQ(1, s->storedCursorIndex());
    EXPECT_EQ(base + 6, s->seek(3));
    // The count is taken from the cursor on.
    EXPECT_EQ(5, s->length());
    EXPECT_EQ(base + 10, s->seek(4));
    EXPECT_EQ(base + 6, s->seek(3));  // one step back from the cursor
    EXPECT_EQ(3, s->storedCursorIndex());
    EXPECT_EQ(base + 3, s->seek(2));
    EXPECT_EQ(base + 1, s->seek(1));
    EXPECT_EQ(base, s->seek(0));
    EXPECT_EQ(1, s->storedCursorIndex());  // index 0 leaves the cursor alone
}

TEST(StringImplCursorTest, CharAtWalksEveryIndex) {
    Held<StringImplC> s(internal(kMixed));
    const uint32_t expected[] = {'a', 0xE9, 0x20AC, 0x1F600, 'b', 0, 0};
    for (int32_t i = 0; i < 7; ++i) EXPECT_EQ(expected[i], s->charAt(i)) << i;
    for (int32_t i = 6; i >= 0; --i) EXPECT_EQ(expected[i], s->charAt(i)) << i;
}

TEST(StringImplCursorTest, SeekPastTheEndWithKnownCount) {
    Held<StringImplC> s(internal(kMixed));
    s->length();
    EXPECT_EQ(s->bytes() + 11, s->seek(7));
    EXPECT_EQ(7, s->storedCursorIndex());
    EXPECT_EQ(11, s->storedCursorOffset());
    EXPECT_EQ(0u, s->charAt(7));
}

TEST(StringImplCursorTest, SeekPastTheEndWithUnknownCountLeavesTheCursor) {
    Held<StringImplC> s(internal(kMixed));
    s->seek(2);
    EXPECT_EQ(s->bytes() + 11, s->seek(9));
    EXPECT_EQ(2, s->storedCursorIndex());
}

// Walks step by the length the first byte announces; a sequence cut off by
// the end counts as one character and never takes a walk past the NUL.
TEST(StringImplCursorTest, CutSequenceAtTheEndStaysInside) {
    Held<StringImplC> s(internal("ab\xF0\x9F"));
    EXPECT_EQ(3, s->length());
    EXPECT_EQ(s->bytes() + 4, s->seek(3));
    EXPECT_EQ(0xFFFDu, s->charAt(2));
    EXPECT_EQ(0u, s->charAt(3));
    Held<StringImplI> tail(s->substring(2, 5));
    EXPECT_EQ("\xF0\x9F", textOf(tail.impl));
    Held<StringImplC> t(internal("ab\xF0\x9F"));
    EXPECT_EQ(t->bytes() + 4, t->seek(3));
    EXPECT_EQ(t->bytes() + 4, t->seek(9));
}

TEST(StringImplCursorTest, OneByteTextIndexesDirectly) {
    Held<StringImplC> s(internal("abcd"));
    s->length();
    EXPECT_EQ(s->bytes() + 2, s->seek(2));
    EXPECT_EQ(s->bytes() + 4, s->seek(10));  // clamped to the end
    EXPECT_EQ(s->bytes(), s->seek(-3));      // and to the start
    EXPECT_EQ(-1, s->storedCursorIndex());
    EXPECT_EQ(uint32_t('c'), s->charAt(2));
}

TEST(StringImplCursorTest, CursorSurvivesAMovingReserve) {
    Held<StringImplC> s(internal(kMixed));
    s->seek(3);
    const uint8_t* before = s->bytes();
    s->reserve(4096);
    EXPECT_NE(before, s->bytes());
    EXPECT_EQ(3, s->storedCursorIndex());
    EXPECT_EQ(0x1F600u, s->charAt(3));
    EXPECT_EQ(uint32_t('b'), s->charAt(4));
}

TEST(StringImplEraseTest, CountPastTheEndLeavesUnknownCount) {
    Held<StringImplC> s(internal("abcd"));
    s->length();
    s->erase(2, 100);
    EXPECT_EQ("ab", textOf(s.impl));
    EXPECT_EQ(4 - 100, s->storedCharCount());
    EXPECT_EQ(2, s->length());
}

TEST(StringImplEraseTest, ExactCountKeepsTheCount) {
    Held<StringImplC> s(internal("abcdef"));
    s->length();
    s->erase(1, 5);
    EXPECT_EQ("a", textOf(s.impl));
    EXPECT_EQ(1, s->storedCharCount());
}

TEST(StringImplEraseTest, OverrunSubtractsTheCountAsked) {
    Held<StringImplC> s(internal("abcd"));
    s->length();
    s->erase(2, 3);
    EXPECT_EQ("ab", textOf(s.impl));
    EXPECT_EQ(1, s->storedCharCount());
    EXPECT_EQ(1, s->length());  // the stored count is believed
}

TEST(StringImplEraseTest, FromTheStartDropsTheCursor) {
    Held<StringImplC> s(internal(kMixed));
    s->seek(3);
    s->erase(0, 2);
    EXPECT_EQ(-1, s->storedCursorIndex());
    EXPECT_EQ(0, s->storedCursorOffset());
    EXPECT_EQ("\xE2\x82\xAC\xF0\x9F\x98\x80" "b", textOf(s.impl));
    EXPECT_EQ(8u, s->byteCount());
    EXPECT_EQ(0x20ACu, s->charAt(0));
}

TEST(StringImplEraseTest, ToTheEndAndInTheMiddle) {
    Held<StringImplC> s(internal(kMixed));
    s->erase(1, 2);
    EXPECT_EQ(1, s->storedCursorIndex());
    EXPECT_EQ(1, s->storedCursorOffset());
    EXPECT_EQ("a\xF0\x9F\x98\x80" "b", textOf(s.impl));
    EXPECT_EQ(-1, s->storedCharCount());  // was not known
    s->erase(1, -1);
    EXPECT_EQ("a", textOf(s.impl));
    EXPECT_EQ(1, s->length());
}

TEST(StringImplEraseTest, CountBelowMinusOneMovesNothing) {
    Held<StringImplC> s(internal("abcd"));
    s->length();
    s->erase(3, -2);
    EXPECT_EQ("abcd", textOf(s.impl));
    EXPECT_EQ(4u, s->byteCount());
}

TEST(StringImplTest, SubstringShapes) {
    Held<StringImplC> s(internal(kMixed));
    EXPECT_EQ(s.impl, s->substring(0, -1));
    {
        Held<StringImplI> none(s->substring(0, 0));
        EXPECT_NE(s.impl, none.impl);
        EXPECT_TRUE(none->isEmpty());
        EXPECT_FALSE(none->isShared());
    }
    {
        Held<StringImplI> part(s->substring(1, 2));
        EXPECT_EQ("\xC3\xA9\xE2\x82\xAC", textOf(part.impl));
    }
    {
        Held<StringImplI> tail(s->substring(3, -1));
        EXPECT_EQ("\xF0\x9F\x98\x80" "b", textOf(tail.impl));
    }
    {
        Held<StringImplI> over(s->substring(4, 50));
        EXPECT_EQ("b", textOf(over.impl));
    }
    {
        Held<StringImplI> past(s->substring(9, 2));
        EXPECT_TRUE(past->isEmpty());
    }
}

TEST(StringImplTest, AppendInsertAndAppendChar) {
    Held<StringImplC> s(internal("ac"));
    s->length();
    s->appendChar(0x20AC);
    EXPECT_EQ(3, s->storedCharCount());
    s->appendChar(0x80000000u);  // no encoded form: nothing is written
    EXPECT_EQ(5u, s->byteCount());
    Held<StringImplC> b(internal("b"));
    s->insert(1, b.impl);
    EXPECT_EQ("abc\xE2\x82\xAC", textOf(s.impl));
    EXPECT_EQ(-1, s->storedCharCount());
    s->seek(2);
    Held<StringImplC> tail(internal("!?"));
    s->append(tail.impl);
    EXPECT_EQ("abc\xE2\x82\xAC!?", textOf(s.impl));
    EXPECT_EQ(2, s->storedCursorIndex());  // the text in front did not change
    EXPECT_EQ(6, s->length());
    Held<StringImplC> nothing(new StringImplC(nullptr, 0, "utf8"));
    s->insert(0, nothing.impl);
    EXPECT_EQ(8u, s->byteCount());
    s->insert(100, b.impl);  // past the end: at the end
    EXPECT_EQ("abc\xE2\x82\xAC!?b", textOf(s.impl));
}

uint32_t widen(uint32_t c) { return c == 'a' ? 0x1F600 : c == 'X' ? 'x' : c; }

TEST(StringImplTest, MapCharactersRewritesAndCounts) {
    std::string source(40, 'a');
    source += "X";
    Held<StringImplC> s(internal(source.c_str()));
    s->seek(5);
    s->mapCharacters(widen);
    EXPECT_EQ(41, s->storedCharCount());
    EXPECT_EQ(40u * 4 + 1, s->byteCount());
    EXPECT_EQ(-1, s->storedCursorIndex());
    EXPECT_EQ(0x1F600u, s->charAt(39));
    EXPECT_EQ(uint32_t('x'), s->charAt(40));
    EXPECT_EQ(0, s->bytes()[s->byteCount()]);
}

TEST(StringImplTest, CaseMappingOfAscii) {
    Held<StringImplC> s(internal("MiXeD 42"));
    s->toLower();
    EXPECT_EQ("mixed 42", textOf(s.impl));
    s->toUpper();
    EXPECT_EQ("MIXED 42", textOf(s.impl));
}

TEST(StringImplTest, TextInUtf8IsTheOwnBuffer) {
    Held<StringImplC> s(internal("abc"));
    void* text = nullptr;
    EXPECT_TRUE(s->text(&text, "utf8"));
    EXPECT_EQ(s->bytes(), text);
    s->releaseText(text, "utf8");  // nothing to free
    EXPECT_EQ(3u, s->textLength("utf8"));
    EXPECT_EQ(0u, s->textLength("no-such-encoding"));
    text = &text;
    EXPECT_FALSE(s->text(&text, "no-such-encoding"));
    EXPECT_EQ(nullptr, text);
    char buffer[8];
    uint32_t size = sizeof buffer;
    EXPECT_FALSE(s->copyText(buffer, &size, "no-such-encoding"));
    EXPECT_EQ(0u, size);
}

TEST(StringImplTest, CopyTextReportsTheFullLengthWhenTooSmall) {
    Held<StringImplC> s(internal("abcdef"));
    char buffer[8];
    uint32_t size = sizeof buffer;
    EXPECT_TRUE(s->copyText(buffer, &size, "utf8"));
    EXPECT_EQ(6u, size);
    EXPECT_STREQ("abcdef", buffer);
    memset(buffer, '#', sizeof buffer);
    size = 6;  // one byte short of the terminator
    EXPECT_TRUE(s->copyText(buffer, &size, "utf8"));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(0, memcmp(buffer, "abcdef#", 7));
}

// An unknown encoding name leaves a representation without a buffer, which
// reads as the empty text everywhere.
TEST(StringImplTest, BufferlessRepresentationReadsAsEmpty) {
    Held<StringImplC> s(new StringImplC("abc", 3, "no-such-encoding"));
    EXPECT_EQ(nullptr, s->bytes());
    EXPECT_EQ(0u, s->byteCount());
    EXPECT_EQ(-1, s->storedCharCount());
    EXPECT_TRUE(s->isEmpty());
    EXPECT_EQ(0, s->length());
    EXPECT_EQ(0u, s->charAt(0));
    EXPECT_EQ(0u, s->charAt(3));
    EXPECT_EQ(nullptr, s->seek(1));
    EXPECT_EQ(nullptr, s->substring(1, 1));
    EXPECT_EQ(0u, s->textLength("utf8"));
    void* text = &text;
    EXPECT_TRUE(s->text(&text, "utf8"));
    EXPECT_EQ(nullptr, text);
    s->erase(0, 2);
    s->toUpper();
    EXPECT_EQ(nullptr, s->bytes());
    // Changing it works on the empty text.
    Held<StringImplC> other(internal("xy"));
    s->insert(0, other.impl);
    EXPECT_EQ("xy", textOf(s.impl));
    s->append(other.impl);
    EXPECT_EQ("xyxy", textOf(s.impl));
}

TEST(StringImplTest, StaticRepresentationIsNeverCountedOrChanged) {
    StaticStringImplC* s = new StaticStringImplC("q", 1, "utf8");
    EXPECT_TRUE(s->isShared());
    s->addRef();
    s->release();
    s->release();
    s->release();
    EXPECT_EQ("q", textOf(s));  // still alive
    delete s;
}

TEST(StringImplTest, EmptyRepresentationAnswers) {
    EmptyStringImplC empty;
    Held<StringImplC> other(internal("x"));
    EXPECT_EQ(0, empty.length());
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_TRUE(empty.isShared());
    EXPECT_EQ(-1, empty.compare(other.impl));
    EXPECT_EQ(0, empty.compare(&empty));
    EXPECT_EQ(-1, empty.compareNoCase(other.impl));
    EXPECT_EQ(-1, empty.compareNatural(other.impl, true));
    EXPECT_EQ(-1, empty.findChar('x', -1));
    EXPECT_EQ(-1, empty.findLastNotOf(other.impl, -1));
    EXPECT_EQ(0u, empty.charAt(0));
    EXPECT_EQ(0u, empty.textLength("no-such-encoding"));
    EXPECT_EQ(&empty, empty.substring(3, 4));
    void* text = &text;
    EXPECT_FALSE(empty.text(&text, "no-such-encoding"));
    EXPECT_EQ(nullptr, text);
    EXPECT_TRUE(empty.text(&text, "utf8"));
    EXPECT_STREQ("", static_cast<const char*>(text));
}

// --- Secure wiping, observed through the wipe hook --------------------------

struct WipeRecord {
    std::vector<uint32_t> sizes;
    bool allZero = true;
};
WipeRecord* wipes = nullptr;

void recordWipe(const void* buffer, uint32_t bytes) {
    if (!wipes) return;
    wipes->sizes.push_back(bytes);
    const uint8_t* p = static_cast<const uint8_t*>(buffer);
    for (uint32_t i = 0; i < bytes; ++i)
        if (p[i] != 0) wipes->allZero = false;
}

class SecureStringTest : public ::testing::Test {
protected:
    void SetUp() override {
        wipes = &record;
        SecureStringImplC::setWipeHook(recordWipe);
    }
    void TearDown() override {
        SecureStringImplC::setWipeHook(nullptr);
        wipes = nullptr;
    }
    WipeRecord record;
};

TEST_F(SecureStringTest, DestructionWipesTheText) {
    SecureStringImplC* s = new SecureStringImplC("secret", 6, "vutf8");
    s->addRef();
    EXPECT_TRUE(record.sizes.empty());
    s->release();
    ASSERT_EQ(1u, record.sizes.size());
    EXPECT_EQ(6u, record.sizes[0]);
    EXPECT_TRUE(record.allZero);
}

TEST_F(SecureStringTest, MovingReserveAndResetWipe) {
    Held<SecureStringImplC> s(new SecureStringImplC("pin 1234", 8, "vutf8"));
    s->reserve(9);  // same capacity: nothing moves
    EXPECT_TRUE(record.sizes.empty());
    s->reserve(100);
    ASSERT_EQ(1u, record.sizes.size());
    EXPECT_EQ(8u, record.sizes[0]);
    EXPECT_EQ("pin 1234", textOf(s.impl));
    s->appendChar('5');
    s->reset();
    ASSERT_EQ(2u, record.sizes.size());
    EXPECT_EQ(9u, record.sizes[1]);
    EXPECT_TRUE(record.allZero);
    EXPECT_EQ(nullptr, s->bytes());
}

TEST_F(SecureStringTest, ReleasedTextIsWipedExceptUtf8) {
    Held<SecureStringImplC> s(new SecureStringImplC("hush", 4, "vutf8"));
    void* text = nullptr;
    s->text(&text, "utf8");
    s->releaseText(text, "utf8");
    EXPECT_TRUE(record.sizes.empty());
    ASSERT_TRUE(s->text(&text, "ascii"));
    s->releaseText(text, "ascii");
    ASSERT_EQ(1u, record.sizes.size());
    EXPECT_EQ(s->textLength("ascii"), record.sizes[0]);
    EXPECT_TRUE(record.allZero);
}

TEST_F(SecureStringTest, ConstructorsFromOtherStrings) {
    Held<StringImplC> a(internal("ab"));
    Held<StringImplC> b(internal("\xC3\xA9"));
    Held<SecureStringImplC> joined(new SecureStringImplC(a.impl, b.impl));
    EXPECT_EQ("ab\xC3\xA9", textOf(joined.impl));
    EXPECT_EQ(3, joined->storedCharCount());
    Held<SecureStringImplC> copy(new SecureStringImplC(joined.impl));
    EXPECT_EQ("ab\xC3\xA9", textOf(copy.impl));
    EXPECT_EQ(3, copy->storedCharCount());
    // What a secure string hands out is plain.
    Held<StringImplI> part(copy->substring(1, 1));
    EXPECT_EQ(nullptr, dynamic_cast<SecureStringImplC*>(part.impl));
}

}  // namespace
}  // namespace keel
