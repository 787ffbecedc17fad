// The string representation: internal form, the text in other encodings,
// representations without a buffer, the static and empty ones, secure
// wiping, and the block count of NUL-terminated 16-bit text. That the
// one-pass paths (wide text, the first buffer in the object's own block)
// give what the two-pass ones give, on any text, is fuzz/stringim_fuzz.cpp's
// check.
#include "text/stringim.h"

#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <keel/string.h>

#include "testing/scantest.h"

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

StringImplC* internal(const char* text) {
    return new StringImplC(text, static_cast<uint32_t>(strlen(text)), "vutf8");
}

std::string textOf(StringImplI* string) {
    void* text = nullptr;
    string->text(&text, "utf8");
    std::string result(text ? static_cast<const char*>(text) : "", string->textLength("utf8"));
    string->releaseText(text, "utf8");
    return result;
}

// The text and the stored count, as "text|count".
std::string state(StringImplC* s) { return textOf(s) + "|" + std::to_string(s->storedCharCount()); }

// Lengths, texts and searches of valid text are the string model's
// (stringim_model_test); these are the forms it never makes.
TEST(StringImplTest, ConstructionRedecodesAndCopiesInternalFormUnchecked) {
    // A clean head copied in one pass, then bytes whose replacements need a
    // larger buffer: the text is decoded again the ordinary way.
    StringC grown((std::string(40, 'a') + std::string(30, '\xFF')).c_str(), "utf8");
    EXPECT_EQ(std::make_pair(70, 130u), std::make_pair(grown.length(), grown.textUtf8Length()));
    // Internal form is copied without any check; walking stops at a NUL.
    Held<StringImplC> odd(new StringImplC("x\0\xFFy", 4, "vutf8"));
    EXPECT_EQ(std::string("x\0\xFFy|-1", 7), state(odd.impl));
    EXPECT_EQ(1, odd->length());
    // Text of the other encodings is decoded and counted.
    Held<StringImplC> wide(new StringImplC("a\0\xE9\0", 4, "utf16le"));
    EXPECT_EQ("a\xC3\xA9|2", state(wide.impl));
}

uint32_t widen(uint32_t c) { return c == 'a' ? 0x1F600 : c == 'X' ? 'x' : c; }

// A mapping that makes the text four times longer grows the buffer on the
// way, counts the characters and forgets the cursor.
TEST(StringImplTest, MapCharactersRewritesAndCounts) {
    Held<StringImplC> s(internal((std::string(40, 'a') + "X").c_str()));
    s->seek(5);
    s->mapCharacters(widen);
    std::string widened;
    for (int i = 0; i < 40; ++i) widened += "\xF0\x9F\x98\x80";
    EXPECT_EQ(widened + "x|41", state(s.impl));
    EXPECT_EQ(-1, s->storedCursorIndex());
}

TEST(StringImplTest, TextAndCopyText) {
    Held<StringImplC> s(internal("abcdef"));
    void* text = nullptr;
    EXPECT_TRUE(s->text(&text, "utf8"));
    EXPECT_EQ(s->bytes(), text);  // the own buffer: release frees nothing
    s->releaseText(text, "utf8");
    EXPECT_EQ(0u, s->textLength("no-such-encoding"));
    EXPECT_FALSE(s->text(&text, "no-such-encoding"));
    EXPECT_EQ(nullptr, text);
    // One byte short of the terminator: cut, the full length reported; an
    // unknown encoding gives nothing; the size alone, with no buffer,
    // touches no memory.
    char buffer[8] = "#######";
    uint32_t sizes[3] = {6, 6, 0};
    bool answers[3] = {s->copyText(buffer, &sizes[0], "utf8"),
                       s->copyText(buffer, &sizes[1], "no-such-encoding"),
                       s->copyText(nullptr, &sizes[2], "utf16")};
    EXPECT_EQ(std::string("abcdef#"), std::string(buffer, 7));
    EXPECT_EQ((std::vector<uint32_t>{6, 0, 12}), std::vector<uint32_t>(sizes, sizes + 3));
    EXPECT_EQ((std::vector<bool>{true, false, true}), std::vector<bool>(answers, answers + 3));
    // Internal form ending inside a sequence (taken unchecked) loses the cut
    // bytes, and keeps its terminator and the size textLength gives.
    for (const char* cut : {"a\xF0\x01", "a\xC3"}) {
        Held<StringImplC> ends(internal(cut));
        uint32_t size = 0;
        void* wide = nullptr;
        bool copied = ends->copyText(nullptr, &size, "utf16le");
        EXPECT_FALSE(ends->text(&wide, "utf16le") || copied);
        EXPECT_EQ(std::string("a\0\0\0|2", 6),
                  std::string(static_cast<char*>(wide), 4) + "|" + std::to_string(size));
        ends->releaseText(wide, "utf16le");
    }
}

// An unknown encoding name leaves a representation without a buffer, which
// reads as the empty text everywhere and can still be changed.
TEST(StringImplTest, BufferlessRepresentationReadsAsEmpty) {
    Held<StringImplC> s(new StringImplC("abc", 3, "no-such-encoding"));
    void* text = &text;
    EXPECT_TRUE(s->text(&text, "utf8"));
    EXPECT_EQ(std::make_tuple(true, 0, 0u, "|-1"),
              std::make_tuple(s->isEmpty(), s->length(), s->charAt(3), state(s.impl)));
    EXPECT_TRUE(!text && !s->bytes() && !s->seek(1) && !s->substring(1, 1));
    s->erase(0, 2);
    s->toUpper();
    EXPECT_EQ(nullptr, s->bytes());
    Held<StringImplC> other(internal("xy"));
    s->insert(0, other.impl);
    s->append(other.impl);
    EXPECT_EQ("xyxy|-1", state(s.impl));
    // Through the handle: searches find nothing, it orders first, and a
    // copy on write gives a buffer again.
    StringC none("abc", "no-such-encoding"), a("a", "utf8");
    EXPECT_EQ(nullptr, none.textUtf8());
    EXPECT_EQ((std::vector<int32_t>{-1, -1, -1, -1, -1, 0}),
              (std::vector<int32_t>{none.find('a', -1), none.findLast(a, -1),
                                    none.findLastNotOf(StringC(), -1), a.find(none),
                                    none.compareNatural(a, true), none.compare(StringC())}));
    EXPECT_TRUE(none.compare(a) < 0 && none.compareNoCase(a) < 0 && a.compare(none) > 0);
    EXPECT_TRUE(none.substring(1, 1).isEmpty());
    StringC copy = none;
    copy.append(uint32_t('z'));
    EXPECT_EQ(std::make_pair(std::string("z"), 1), std::make_pair(str(copy), copy.length()));
    // The single ASCII byte comes from the cache anyway.
    EXPECT_EQ(StringC(uint32_t('Q')).getImpl(), StringC("Q", "no-such-encoding").getImpl());
}

TEST(StringImplTest, StaticAndEmptyRepresentations) {
    StaticStringImplC* s = new StaticStringImplC("q", 1, "utf8");
    EXPECT_TRUE(s->isShared());
    s->addRef();
    for (int i = 0; i < 3; ++i) s->release();
    EXPECT_EQ("q", textOf(s));  // never counted, still alive
    delete s;

    EmptyStringImplC empty;
    Held<StringImplC> other(internal("x"));
    EXPECT_TRUE(empty.isShared());
    EXPECT_EQ((std::vector<int>{-1, -1, -1, -1, -1}),
              (std::vector<int>{empty.compare(other.impl), empty.compareNoCase(other.impl),
                                empty.compareNatural(other.impl, true), empty.findChar('x', -1),
                                empty.findLastNotOf(other.impl, -1)}));
    EXPECT_EQ(&empty, empty.substring(3, 4));
    void* text = nullptr;
    EXPECT_TRUE(empty.text(&text, "utf8"));
    EXPECT_STREQ("", static_cast<const char*>(text));
}

// assignText writes over a plain representation that its handle holds alone
// (its cached count and cursor forgotten, its buffer grown when needed), and
// gives a handle that shares its text, or holds another class, a new one.
TEST(StringImplTest, AssignTextInPlaceOnlyWhenAlone) {
    auto assign = [](StringC& target, const std::string& text) {
        StringImplC::assignText(target, reinterpret_cast<const uint8_t*>(text.data()),
                                static_cast<uint32_t>(text.size()));
    };
    StringC line("\xC3\xA9t\xC3\xA9", "utf8");
    // A count and a cursor are cached.
    EXPECT_EQ(std::make_pair(uint32_t('t'), 3), std::make_pair(line.charAt(1), line.length()));
    StringImplI* alone = line.getImpl();
    for (const std::string& text : {std::string("abcdef"), std::string(300, 'x'), std::string()}) {
        assign(line, text);
        EXPECT_EQ(
            std::make_tuple(alone, text, static_cast<int32_t>(text.size()),
                            text.empty() ? 0u : static_cast<uint32_t>(text[1])),
            std::make_tuple(line.getImpl(), textOf(line.getImpl()), line.length(), line.charAt(1)));
    }
    StringC kept = line;
    assign(line, "q\xC3\xA9");
    EXPECT_NE(kept.getImpl(), line.getImpl());
    EXPECT_EQ(std::make_pair(std::string(), 2),
              std::make_pair(textOf(kept.getImpl()), line.length()));
    StringC secret;  // the empty string, which is not counted
    secret.adopt(getStringFactory()->secureFromText("pin", "utf8"));
    Held<StringImplI> secure(secret.getImpl());
    assign(secret, "abc");
    EXPECT_EQ("pin|abc", textOf(secure.impl) + "|" + textOf(secret.getImpl()));
}

// --- Secure wiping, observed through the wipe hook --------------------------

std::vector<uint32_t> wipes;  // the sizes of the wiped buffers, in order
bool wipedToZero = true;

void recordWipe(const void* buffer, uint32_t bytes) {
    wipes.push_back(bytes);
    for (uint32_t i = 0; i < bytes; ++i)
        wipedToZero = wipedToZero && static_cast<const uint8_t*>(buffer)[i] == 0;
}

TEST(SecureStringTest, WipesWhatItLetsGoExceptItsUtf8Text) {
    wipes.clear();
    SecureStringImplC::setWipeHook(recordWipe);
    SecureStringImplC* s = new SecureStringImplC("pin 1234", 8, "vutf8");
    s->addRef();
    s->reserve(9);                     // same capacity: nothing moves
    EXPECT_EQ("pin 1234", textOf(s));  // its own buffer: nothing to wipe
    EXPECT_TRUE(wipes.empty());
    s->reserve(100);
    EXPECT_EQ("pin 1234", textOf(s));
    void* text = nullptr;
    EXPECT_TRUE(s->text(&text, "ascii"));
    s->releaseText(text, "ascii");
    s->appendChar('5');
    s->reset();
    EXPECT_EQ(nullptr, s->bytes());
    s->appendChar('x');
    s->release();
    SecureStringImplC::setWipeHook(nullptr);
    // The moved buffer, the ascii copy, the reset text, the text at death.
    EXPECT_EQ((std::vector<uint32_t>{8, 8, 9, 1}), wipes);
    EXPECT_TRUE(wipedToZero);
}

TEST(SecureStringConstruction, FromOtherStringsAndWhatItHandsOut) {
    Held<StringImplC> a(internal("ab"));
    Held<StringImplC> b(internal("\xC3\xA9"));
    Held<SecureStringImplC> joined(new SecureStringImplC(a.impl, b.impl));
    Held<SecureStringImplC> copy(new SecureStringImplC(joined.impl));
    for (SecureStringImplC* s : {joined.impl, copy.impl}) EXPECT_EQ("ab\xC3\xA9|3", state(s));
    Held<StringImplI> part(copy->substring(1, 1));
    EXPECT_EQ(nullptr, dynamic_cast<SecureStringImplC*>(part.impl));
}

// A string from NUL-terminated 16-bit text counts the units a block at a
// time from the first 16-byte boundary on, reading whole aligned blocks.
// Every length at every alignment of the units, with the terminator in the
// last two bytes of its allocation.
TEST(StringFromUtf16Test, EveryLengthAtEveryAlignment) {
    for (size_t offset = 0; offset < 16; offset += 2) {
        for (size_t n = 0; n <= 40; ++n) {
            std::u16string units;
            for (size_t i = 0; i < n; ++i) units += i % 5 == 4 ? u'\u4E2D' : char16_t('a' + i % 26);
            std::unique_ptr<uint8_t[]> buffer(new uint8_t[offset + 2 * n + 2]);
            memcpy(buffer.get() + offset, units.c_str(), 2 * n + 2);
            StringC s(reinterpret_cast<const uint16_t*>(buffer.get() + offset));
            EXPECT_EQ(static_cast<int32_t>(n), s.length())
                << "offset " << offset << " length " << n;
            const uint16_t* back = s.textUtf16();
            EXPECT_EQ(0, memcmp(back, units.c_str(), 2 * n + 2));
            s.releaseUtf16(back);
        }
    }
}

// The block search for an ASCII character over text with a sequence, whole
// or broken, at each place around the end of a 32-byte block: the answers
// are those of the character walk. (Valid text is the string model's.)
TEST(StringFindAsciiTest, BlockSearchAroundSequencesAndBreaks) {
    // Every answer of a forward search, from -1 on, taking each answer as
    // the next start.
    auto all = [](const std::function<int32_t(int32_t)>& search, std::vector<int32_t>& found) {
        for (int32_t at = search(-1); at >= 0; at = search(at)) found.push_back(at);
    };
    const StringC set("e,", "ascii"), others("x", "ascii");
    for (const char* piece :
         {"\xE4\xB8\xAD", "\xF4\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xFF", "\xE4\x65", "\xC3"}) {
        for (size_t offset = 26; offset <= 33; ++offset) {
            std::string text = std::string(offset, 'x') + piece + std::string(40, 'x') + "e";
            for (const char* encoding : {"vutf8", "utf8"}) {
                // The character, then the ASCII sets' searches, which take
                // the same steps.
                std::vector<int32_t> found[2];
                for (int vector = 0; vector < 2; ++vector) {
                    StringImplC::setVectorPaths(vector == 1);
                    StringC s(text.data(), static_cast<uint32_t>(text.size()), encoding);
                    all([&](int32_t at) { return s.find('e', at); }, found[vector]);
                    all([&](int32_t at) { return s.findFirstOf(set, at); }, found[vector]);
                    all([&](int32_t at) { return s.findFirstNotOf(others, at); }, found[vector]);
                }
                StringImplC::setVectorPaths(true);
                EXPECT_EQ(found[0], found[1]) << encoding << " " << offset;
            }
        }
    }
}

}  // namespace
}  // namespace keel
