#include "text/string.h"

#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <keel/keel.h>

#include "text/stringim.h"

namespace keel {
namespace {

StringImplFactoryI* factory() { return getStringFactory(); }

std::string utf8(const StringC& s) {
    const char* text = s.textUtf8();
    std::string result(text ? text : "", s.textUtf8Length());
    s.releaseUtf8(text);
    return result;
}

// --- The factory and its caches ---------------------------------------------

TEST(StringFactoryTest, EmptyStringIsOneCachedObject) {
    StringImplI* a = factory()->fromText(nullptr, "utf8");
    StringImplI* b = factory()->fromBytes("ignored", 0, "no-such-encoding");
    StringImplI* c = factory()->fromChar(0x80000000u);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a, c);
    EXPECT_EQ(a, StringC().getImpl());
    EXPECT_TRUE(a->isShared());
    EXPECT_TRUE(a->isEmpty());
    EXPECT_EQ(a, factory()->substring(a, 2, 3));
}

TEST(StringFactoryTest, SecureEmptyStringIsItsOwnObject) {
    StringImplI* secure = factory()->secureFromText(nullptr, "utf8");
    EXPECT_EQ(secure, factory()->secureFromBytes("x", 0, "utf8"));
    EXPECT_NE(secure, factory()->fromBytes(nullptr, 0, "utf8"));
    EXPECT_TRUE(secure->isEmpty());
    EXPECT_TRUE(secure->isShared());
}

TEST(StringFactoryTest, OneAsciiCharacterComesFromTheTable) {
    StringImplI* a = factory()->fromBytes("A", 1, "utf16");
    EXPECT_EQ(a, factory()->fromChar(65));
    EXPECT_EQ(a, factory()->fromText("A", "no-such-encoding"));
    EXPECT_EQ(a, StringC(uint32_t('A')).getImpl());
    EXPECT_TRUE(a->isShared());
    EXPECT_NE(nullptr, dynamic_cast<StaticStringImplC*>(a));
    EXPECT_EQ(1, a->length());
    EXPECT_EQ(uint32_t('A'), a->charAt(0));
    for (uint32_t c = 1; c < 128; ++c) {
        StringImplI* s = factory()->fromChar(c);
        EXPECT_EQ(s, StringImplFactoryC::asciiString(static_cast<uint8_t>(c)));
        EXPECT_EQ(c, s->charAt(0));
    }
}

TEST(StringFactoryTest, SingleBytesOutsideAsciiAreNewEachTime) {
    StringC first("\xE9", 1, "iso-8859-1");
    StringC second("\xE9", 1, "iso-8859-1");
    EXPECT_NE(first.getImpl(), second.getImpl());
    EXPECT_FALSE(first.getImpl()->isShared());

    StringC zero("", 1, "utf8");  // the single byte 0
    EXPECT_FALSE(zero.isEmpty());
    EXPECT_EQ(1u, zero.textUtf8Length());
    StringC zeroChar(uint32_t(0));
    EXPECT_FALSE(zeroChar.isEmpty());
    EXPECT_NE(zero.getImpl(), zeroChar.getImpl());
}

TEST(StringFactoryTest, SecureOneCharacterIsNeverTheTableObject) {
    StringImplI* a = factory()->secureFromBytes("A", 1, "utf8");
    StringImplI* b = factory()->secureFromBytes("A", 1, "utf8");
    a->addRef();
    b->addRef();
    EXPECT_NE(a, b);
    EXPECT_NE(a, factory()->fromChar('A'));
    EXPECT_NE(nullptr, dynamic_cast<SecureStringImplC*>(a));
    EXPECT_FALSE(a->isShared());
    a->release();
    b->release();
}

TEST(StringFactoryTest, FromBytesNewIsAlwaysNewAndWritable) {
    StringImplI* fresh = factory()->fromBytesNew(nullptr, 0, "utf8");
    fresh->addRef();
    EXPECT_FALSE(fresh->isShared());
    EXPECT_TRUE(fresh->isEmpty());
    EXPECT_NE(fresh, factory()->fromBytes(nullptr, 0, "utf8"));
    fresh->release();
    StringImplI* letter = factory()->fromBytesNew("A", 1, "utf8");
    letter->addRef();
    EXPECT_NE(letter, factory()->fromChar('A'));
    letter->release();
}

TEST(StringFactoryTest, ConcatCountsBothParts) {
    StringC a("ab", 2, "vutf8");
    StringC b("\xE2\x82\xAC", 3, "vutf8");
    StringC joined(a, b);
    StringImplC* impl = dynamic_cast<StringImplC*>(joined.getImpl());
    ASSERT_NE(nullptr, impl);
    EXPECT_EQ(3, impl->storedCharCount());
    EXPECT_EQ("ab\xE2\x82\xAC", utf8(joined));
    EXPECT_EQ(2, dynamic_cast<StringImplC*>(a.getImpl())->storedCharCount());
}

TEST(StringFactoryTest, CountedWideTextWithNegativeCountIsEmpty) {
    EXPECT_EQ(factory()->fromBytes(nullptr, 0, "utf8"), factory()->fromWideCounted(L"abc", -1));
    EXPECT_EQ(factory()->fromBytes(nullptr, 0, "utf8"), factory()->fromWide(nullptr));
    EXPECT_EQ(factory()->fromBytes(nullptr, 0, "utf8"), factory()->fromUtf16(nullptr));
}

TEST(StringFactoryTest, FormatMakesAWritableString) {
    StringC pattern("plain text", "utf8");
    StringC result = StringC::format(pattern, ArgListC());
    EXPECT_EQ("plain text", utf8(result));
    EXPECT_FALSE(result.getImpl()->isShared());
    EXPECT_NE(pattern.getImpl(), result.getImpl());
}

TEST(StringFactoryTest, FormatToFeedsTheSink) {
    std::vector<uint32_t> seen;
    StringC pattern("a\xC3\xA9", "utf8");
    StringC::formatTo([](void* context, uint32_t c) { static_cast<std::vector<uint32_t>*>(context)->push_back(c); },
                      &seen, pattern, ArgListC());
    EXPECT_EQ((std::vector<uint32_t>{'a', 0xE9}), seen);
}

// --- Construction and text in named encodings ------------------------------

TEST(StringEncodingTest, WideTextCarriesItsTerminator) {
    StringC ab("ab", "ascii");
    const wchar_t* wide = ab.textWide();
    ASSERT_NE(nullptr, wide);
    EXPECT_EQ(8u, ab.textWideLength());
    EXPECT_EQ(L'a', wide[0]);
    EXPECT_EQ(L'b', wide[1]);
    EXPECT_EQ(L'\0', wide[2]);
    ab.releaseWide(wide);
    uint8_t buffer[16];
    uint32_t size = sizeof buffer;
    EXPECT_TRUE(ab.copyText(buffer, &size, "wchar_t"));
    EXPECT_EQ(8u, size);  // 12 bytes written, the terminator not counted
}

TEST(StringEncodingTest, CopyTextOneByteShortIsTruncated) {
    StringC text("\xC3\xA9t\xC3\xA9", "utf8");
    uint16_t units[4] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
    uint32_t size = 7;  // 8 needed with the terminator
    EXPECT_TRUE(text.copyText(units, &size, "utf16"));
    EXPECT_EQ(6u, size);
    EXPECT_EQ(0xE9, units[0]);
    EXPECT_EQ('t', units[1]);
    EXPECT_EQ(0xE9, units[2]);
    EXPECT_EQ(0xAA00, units[3] & 0xFF00);  // only the terminator's first byte
}

TEST(StringEncodingTest, EmptyStringGivesAnEncodedTerminator) {
    StringC empty;
    const uint16_t* units = empty.textUtf16();
    ASSERT_NE(nullptr, units);
    EXPECT_EQ(0, units[0]);
    EXPECT_EQ(0u, empty.textUtf16Length());
    empty.releaseUtf16(units);
}

TEST(StringEncodingTest, DecodingFillsTheCount) {
    const uint16_t units[] = {'h', 0xE9, 0xD83D, 0xDE00, 0};
    StringC text(units);
    StringImplC* impl = dynamic_cast<StringImplC*>(text.getImpl());
    ASSERT_NE(nullptr, impl);
    EXPECT_EQ(3, impl->storedCharCount());
    EXPECT_EQ(0x1F600u, text.charAt(2));
    EXPECT_EQ("h\xC3\xA9\xF0\x9F\x98\x80", utf8(text));
    StringC latin("caf\xE9", "iso-8859-1");
    EXPECT_EQ("caf\xC3\xA9", utf8(latin));
    const char* back = latin.textLatin1();
    EXPECT_STREQ("caf\xE9", back);
    latin.releaseLatin1(back);
    StringC wide(L"x\u00E9", 2);
    EXPECT_EQ("x\xC3\xA9", utf8(wide));
}

TEST(StringEncodingTest, LostCharactersShowInTheAnswer) {
    StringC text("\xE2\x82\xAC", "utf8");
    void* out = nullptr;
    EXPECT_FALSE(text.getImpl()->text(&out, "ascii"));
    text.getImpl()->releaseText(out, "ascii");
    StringC plain("abc", "utf8");
    EXPECT_TRUE(plain.getImpl()->text(&out, "ascii"));
    plain.getImpl()->releaseText(out, "ascii");
}

TEST(StringEncodingTest, UnknownEncodingGivesABufferlessString) {
    StringC odd("abc", "no-such-encoding");
    EXPECT_TRUE(odd.isEmpty());
    EXPECT_EQ(0, odd.length());
    EXPECT_EQ(0u, odd.textUtf8Length());
    EXPECT_EQ(nullptr, odd.textUtf8());
    EXPECT_EQ(0u, odd.charAt(0));
    EXPECT_TRUE(odd.substring(1, 1).isEmpty());
    StringC copy = odd;
    copy.append(uint32_t('z'));  // copy on write of the bufferless text
    EXPECT_EQ("z", utf8(copy));
    // The single ASCII byte and the empty text come from the caches anyway.
    EXPECT_EQ(StringC(uint32_t('Q')).getImpl(), StringC("Q", "no-such-encoding").getImpl());
}

// --- The handle: sharing and copy on write ----------------------------------

TEST(StringHandleTest, CopiesShareUntilOneChanges) {
    StringC original("shared text", "utf8");
    EXPECT_FALSE(original.getImpl()->isShared());
    StringC copy(original);
    EXPECT_EQ(original.getImpl(), copy.getImpl());
    EXPECT_TRUE(original.getImpl()->isShared());
    copy.append(uint32_t('!'));
    EXPECT_NE(original.getImpl(), copy.getImpl());
    EXPECT_EQ("shared text", utf8(original));
    EXPECT_EQ("shared text!", utf8(copy));
    EXPECT_FALSE(original.getImpl()->isShared());
}

TEST(StringHandleTest, EmptyCopiesShareAndAppendReplacesOne) {
    StringC a;
    StringC b = a;
    EXPECT_EQ(a.getImpl(), b.getImpl());
    b.append(uint32_t('x'));
    EXPECT_NE(a.getImpl(), b.getImpl());
    EXPECT_TRUE(a.isEmpty());
    EXPECT_EQ("x", utf8(b));
}

TEST(StringHandleTest, OneCharacterStringGetsAPrivateCopyOnAppend) {
    StringC letter(uint32_t('k'));
    StringImplI* cached = letter.getImpl();
    EXPECT_TRUE(cached->isShared());
    letter.append(StringC(uint32_t('m')));
    EXPECT_NE(cached, letter.getImpl());
    EXPECT_FALSE(letter.getImpl()->isShared());
    EXPECT_EQ("km", utf8(letter));
    EXPECT_EQ(uint32_t('k'), cached->charAt(0));
    EXPECT_EQ(1, cached->length());
}

TEST(StringHandleTest, AppendingEmptyChangesNothingAndAppendingToEmptyShares) {
    StringC text("abc", "utf8");
    StringImplI* before = text.getImpl();
    text.append(StringC());
    EXPECT_EQ(before, text.getImpl());
    StringC empty;
    empty.append(text);
    EXPECT_EQ(before, empty.getImpl());
}

TEST(StringHandleTest, SubstringThroughTheHandle) {
    StringC text("abcdef", "utf8");
    EXPECT_EQ(text.getImpl(), text.substring(0).getImpl());
    StringC none = text.substring(0, 0);
    EXPECT_NE(text.getImpl(), none.getImpl());
    EXPECT_TRUE(none.isEmpty());
    EXPECT_FALSE(none.getImpl()->isShared());
    EXPECT_EQ("cde", utf8(text.substring(2, 3)));
    EXPECT_TRUE(text.substring(10, 2).isEmpty());
}

TEST(StringHandleTest, EraseAndInsertCopyOnWrite) {
    StringC text("abcdef", "utf8");
    StringC copy = text;
    copy.erase(1, 2);
    EXPECT_EQ("adef", utf8(copy));
    EXPECT_EQ("abcdef", utf8(text));
    StringC other = copy;
    other.insert(1, StringC("XY", "utf8"));
    EXPECT_EQ("aXYdef", utf8(other));
    EXPECT_EQ("adef", utf8(copy));
}

TEST(StringHandleTest, SelfAssignmentKeepsTheString) {
    StringC text("self", "utf8");
    StringC& alias = text;
    text = alias;
    EXPECT_EQ("self", utf8(text));
    EXPECT_FALSE(text.getImpl()->isShared());
}

TEST(StringHandleTest, CloneStopsAtTheFirstNul) {
    StringC text("ab\0cd", 5, "vutf8");
    StringC copy = text.clone();
    EXPECT_EQ("ab", utf8(copy));
    EXPECT_EQ(5u, text.textUtf8Length());
}

// A representation that counts its destructions.
std::atomic<int> destroyedCounted{0};
class CountedImplC : public StringImplC {
public:
    explicit CountedImplC(const char* text) : StringImplC(text, static_cast<uint32_t>(strlen(text)), "vutf8") {}
    ~CountedImplC() override { destroyedCounted.fetch_add(1); }
};

TEST(StringHandleThreadTest, ConcurrentAssignmentReleasesEachOldValueOnce) {
    destroyedCounted = 0;
    const int threads = 4;
    const int rounds = 2000;
    {
        StringC target;
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([&target, t] {
                for (int i = 0; i < rounds; ++i) {
                    StringC fresh = StringC::fromNew(new CountedImplC(t % 2 ? "odd" : "even"));
                    target = fresh;
                }
            });
        }
        for (std::thread& worker : workers) worker.join();
        EXPECT_EQ(threads * rounds - 1, destroyedCounted.load());
    }
    EXPECT_EQ(threads * rounds, destroyedCounted.load());
}

// Readers on several threads move the cursor of one shared representation.
// The two cursor cells are written one after the other without a lock, so a
// reader may pair one thread's index with another's offset and answer a
// neighbouring character; what must hold is that every answer is a
// character of the text (or 0 past it) and that private copies are exact.
TEST(StringHandleThreadTest, SharedReadersAndPrivateWriters) {
    StringC shared("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80" "b", "vutf8");
    ASSERT_EQ(5, shared.length());
    std::vector<std::thread> workers;
    std::atomic<int> strangers{0};
    std::atomic<int> mismatches{0};
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&shared, &strangers, &mismatches] {
            for (int i = 0; i < 500; ++i) {
                StringC mine = shared;
                for (int32_t k = 6; k >= 0; --k) {
                    uint32_t c = shared.charAt(k);
                    if (c != 0 && c != 'a' && c != 0xE9 && c != 0x20AC && c != 0x1F600 && c != 'b') ++strangers;
                }
                mine.append(uint32_t('z'));
                if (mine.length() != 6 || mine.charAt(5) != 'z' || mine.charAt(3) != 0x1F600) ++mismatches;
            }
        });
    }
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(0, strangers.load());
    EXPECT_EQ(0, mismatches.load());
    EXPECT_EQ(5, shared.length());
}

TEST(StringCacheThreadTest, OneCharacterStringsFromManyThreads) {
    std::vector<std::thread> workers;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 4; ++t) {
        workers.emplace_back([&wrong] {
            for (uint32_t c = 1; c < 128; ++c) {
                StringC s(c);
                if (!s.getImpl()->isShared() || s.charAt(0) != c) ++wrong;
                StringC e;
                if (!e.isEmpty()) ++wrong;
            }
        });
    }
    for (std::thread& worker : workers) worker.join();
    EXPECT_EQ(0, wrong.load());
}

}  // namespace
}  // namespace keel
