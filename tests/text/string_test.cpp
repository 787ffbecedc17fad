#include "text/string.h"

#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <set>
#include <string>

#include <keel/keel.h>

#include "testing/scantest.h"
#include "testing/threads.h"
#include "text/stringim.h"
#include "text/textencoding.h"

namespace keel {
namespace {

StringImplFactoryI* factory() { return getStringFactory(); }

TEST(StringFactoryTest, CachedEmptyAndOneCharacterStrings) {
    StringImplI* empty = factory()->fromText(nullptr, "utf8");
    for (StringImplI* same :
         {factory()->fromBytes("ignored", 0, "no-such-encoding"), factory()->fromChar(0x80000000u),
          StringC().getImpl(), factory()->substring(empty, 2, 3),
          factory()->fromWideCounted(L"abc", -1), factory()->fromWide(nullptr),
          factory()->fromUtf16(nullptr)}) {
        EXPECT_EQ(empty, same);
    }
    // The secure empty string is a cached object of its own.
    StringImplI* secure = factory()->secureFromText(nullptr, "utf8");
    EXPECT_EQ(secure, factory()->secureFromBytes("x", 0, "utf8"));
    EXPECT_NE(secure, empty);
    // One ASCII character, whatever the encoding, is the table's static object.
    StringImplI* a = factory()->fromBytes("A", 1, "utf16");
    EXPECT_EQ(a, factory()->fromText("A", "no-such-encoding"));
    EXPECT_EQ(a, StringC(uint32_t('A')).getImpl());
    EXPECT_NE(nullptr, dynamic_cast<StaticStringImplC*>(a));
    for (StringImplI* s : {empty, secure, a}) EXPECT_TRUE(s->isShared() && s->length() == (s == a));
    for (uint32_t c = 1; c < 128; ++c) {
        StringImplI* s = factory()->fromChar(c);
        EXPECT_EQ(s, StringImplFactoryC::asciiString(static_cast<uint8_t>(c)));
        EXPECT_EQ(c, s->charAt(0));
    }
}

TEST(StringFactoryTest, OtherStringsAreNewAndUnshared) {
    StringC first("\xE9", 1, "iso-8859-1"), second("\xE9", 1, "iso-8859-1");
    EXPECT_NE(first.getImpl(), second.getImpl());
    // The single byte 0 is one character: neither the empty string nor the
    // character 0's representation.
    StringC zero("", 1, "utf8"), zeroChar(uint32_t(0));
    EXPECT_TRUE(zero.textUtf8Length() == 1 && !zeroChar.isEmpty());
    EXPECT_NE(zero.getImpl(), zeroChar.getImpl());
    // Secure strings and fromBytesNew never hand out a cached object.
    auto fresh = [](StringImplI* impl) { return StringC::fromNew(impl); };
    StringC secureA = fresh(factory()->secureFromBytes("A", 1, "utf8"));
    StringC secureB = fresh(factory()->secureFromBytes("A", 1, "utf8"));
    StringC freshEmpty = fresh(factory()->fromBytesNew(nullptr, 0, "utf8"));
    StringC freshA = fresh(factory()->fromBytesNew("A", 1, "utf8"));
    EXPECT_NE(nullptr, dynamic_cast<SecureStringImplC*>(secureA.getImpl()));
    std::set<StringImplI*> distinct = {secureA.getImpl(),    secureB.getImpl(),
                                       freshA.getImpl(),     factory()->fromChar('A'),
                                       freshEmpty.getImpl(), StringC().getImpl()};
    EXPECT_EQ(6u, distinct.size());
    EXPECT_TRUE(freshEmpty.isEmpty());
    for (const StringC* s : {&first, &zero, &secureA, &freshEmpty, &freshA}) {
        EXPECT_FALSE(s->getImpl()->isShared());
    }
}

// A string made with the encoding object is the one the name makes: the
// cached objects where those stand, and otherwise the same text, count and
// room (on any text, for every object, fuzz/stringim_fuzz.cpp's check).
TEST(StringFactoryTest, KnownEncodingMakesWhatTheNameMakes) {
    EXPECT_EQ(StringC("A", 1, "utf16").getImpl(),
              stringFromEncoded("A", 1, utf16Encoding()).getImpl());
    StringC known = stringFromEncoded("caf\xE9 \xFF", 6, latin1Encoding());
    EXPECT_EQ(std::make_pair(std::string("caf\xC3\xA9 \xC3\xBF"), 6),
              std::make_pair(known.toStdString(), known.length()));
    EXPECT_TRUE(stringFromEncoded("abc", 3, nullptr).isEmpty());  // as an unknown name
}

TEST(StringEncodingTest, TruncationTerminatorAndLoss) {
    // One byte short: only the terminator's first byte is written.
    uint16_t units[4] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
    uint32_t size = 7;
    EXPECT_TRUE(StringC("\xC3\xA9t\xC3\xA9", "utf8").copyText(units, &size, "utf16") && size == 6);
    units[3] &= 0xFF00;
    EXPECT_EQ(u"\u00E9t\u00E9\uAA00", std::u16string(units, units + 4));
    // The empty string still gives an encoded terminator.
    StringC empty;
    const uint16_t* none = empty.textUtf16();
    EXPECT_EQ(0, none ? none[0] : -1);
    empty.releaseUtf16(none);
    // A character the encoding lacks shows in the answer.
    for (const char* text : {"\xE2\x82\xAC", "abc"}) {
        void* out = nullptr;
        StringC s(text, "utf8");
        EXPECT_EQ(text[0] == 'a', s.getImpl()->text(&out, "ascii")) << text;
        s.getImpl()->releaseText(out, "ascii");
    }
}

// --- The handle: sharing and copy on write ----------------------------------

TEST(StringHandleTest, SharingWithoutCopies) {
    StringC text("abcdef", "utf8"), empty;
    StringImplI* before = text.getImpl();
    text.append(StringC());  // appending nothing changes nothing
    empty.append(text);      // appending to the empty string shares
    EXPECT_TRUE(text.getImpl() == before && empty.getImpl() == before);
    // A clone stops at the first NUL.
    EXPECT_EQ("ab", str(StringC("ab\0cd", 5, "vutf8").clone()));
}

// A representation that counts its destructions.
std::atomic<int> destroyedCounted{0};
class DyingImplC : public StringImplC {
public:
    explicit DyingImplC(const char* text)
        : StringImplC(text, static_cast<uint32_t>(strlen(text)), "vutf8") {}
    ~DyingImplC() override { destroyedCounted.fetch_add(1); }
};

TEST(StringHandleThreadTest, ConcurrentAssignmentReleasesEachOldValueOnce) {
    destroyedCounted = 0;
    const int rounds = 2000;
    {
        StringC target;
        testkit::onThreads(4, [&target](int t) {
            for (int i = 0; i < rounds; ++i) {
                StringC fresh = StringC::fromNew(new DyingImplC(t % 2 ? "odd" : "even"));
                target = fresh;
            }
        });
        EXPECT_EQ(4 * rounds - 1, destroyedCounted.load());
    }
    EXPECT_EQ(4 * rounds, destroyedCounted.load());
}

TEST(StringCacheThreadTest, OneCharacterStringsFromManyThreads) {
    std::atomic<int> wrong{0};
    testkit::onThreads(4, [&wrong](int) {
        for (uint32_t c = 1; c < 128; ++c) {
            StringC s(c), e;
            if (!s.getImpl()->isShared() || s.charAt(0) != c || !e.isEmpty()) ++wrong;
        }
    });
    EXPECT_EQ(0, wrong.load());
}

}  // namespace
}  // namespace keel
