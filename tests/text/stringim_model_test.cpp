// The string against a plain model: random operation sequences checked
// against a std::u32string (tests/testing/stringmodel.h), the cases that
// once answered wrong, and readers of one shared string on several threads.
#include <gtest/gtest.h>

#include <stdint.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <keel/string.h>

#include "testing/stringmodel.h"
#include "testing/scantest.h"
#include "text/stringim.h"

namespace keel {
namespace {

using testkit::utf8Of;

// Half the runs with the block paths of the searches off, so that the
// character walks meet the same sequences.
TEST(StringModelTest, RandomOperationsAgreeWithTheModel) {
    for (uint32_t seed = 1; seed <= 800; ++seed) {
        StringImplC::setVectorPaths(seed % 2 == 0);
        testkit::SeededChoicesC choices(seed, 3000);
        std::string failure = testkit::StringModelRunC(choices).run();
        ASSERT_EQ("", failure) << "seed " << seed;
    }
    StringImplC::setVectorPaths(true);
}

std::u32string repeated(const std::u32string& piece, int times) {
    std::u32string r;
    for (int i = 0; i < times; ++i) r += piece;
    return r;
}

TEST(StringModelTest, SequencesThatOnceAnsweredWrong) {
    // A read past the end of a counted text left the cursor at an index past
    // the end, and the next backward walk landed early.
    std::string t = utf8Of(repeated(U"ab\U0001F600", 10));
    StringC counted(t.data(), static_cast<uint32_t>(t.size()), "utf8");
    StringC again(t.data(), static_cast<uint32_t>(t.size()), "utf8");
    counted.charAt(32);
    EXPECT_EQ(0x1F600u, counted.charAt(29));
    again.charAt(31);
    EXPECT_EQ(0u, again.charAt(32));
    // An insertion at 0 left the cursor behind it with its old index.
    for (int32_t probe : {2, 3}) {
        StringC s("\xC3\xA9\xE4\xB8\xAD" "b", "utf8");
        s.charAt(2);
        s.insert(0, StringC("\xC3\xA9", "utf8"));
        EXPECT_EQ(probe == 2 ? 0x4E2Du : uint32_t('b'), s.charAt(probe));
        EXPECT_EQ(4, s.length());
    }
    // The same in ASCII text whose count equals its bytes: insert does not
    // walk there, and the cursor stayed.
    StringC ascii("abcdefghij", "utf8");
    ascii.append(StringC("kl", "utf8"));
    ascii.charAt(8);
    ascii.length();
    ascii.insert(2, StringC("\xC3\xA9", "utf8"));
    EXPECT_EQ(uint32_t('h'), ascii.charAt(8));
    // The end of erase's range overflowed as a signed sum.
    StringC erased("abcdef", "utf8"), short2("abcd", "utf8");
    erased.erase(1, INT32_MAX);
    short2.erase(2, 100);
    EXPECT_EQ("a", str(erased));
    EXPECT_EQ(2, short2.length());
    // A null pointer is the empty text whatever the count.
    EXPECT_EQ(0, StringC(nullptr, 1, "utf8").length());
    EXPECT_EQ(0u, StringC(nullptr, 2, "utf8").textUtf8Length());
    // An erase whose start lies past the end of an uncounted text names no
    // character; the cursor must not take that index.
    StringC uncounted("a\xC3\xA9z", 4, "vutf8");
    uncounted.erase(10, 1);
    EXPECT_EQ(0xE9u, uncounted.charAt(1));
}

// Readers on several threads walk one shared, unchanging string by index
// and move its cursor and count as they go; every answer must be exact.
TEST(StringCursorThreadTest, ReadersOfOneSharedStringAnswerRight) {
    std::u32string model;
    for (int i = 0; i < 160; ++i) {
        static const char32_t kinds[] = {'a', 0xE9, 0x4E2D, 0x1F600, 0x3FFFFFF, 0x7FFFFFFF, 'q'};
        model += kinds[(i * 7 + i / 5) % 7];
    }
    std::string bytes = utf8Of(model);
    const StringC shared(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");  // count not known
    const int32_t n = static_cast<int32_t>(model.size());
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&, t] {
            uint32_t seed = 77u + static_cast<uint32_t>(t);
            auto next = [&seed](uint32_t bound) {
                seed = seed * 1103515245u + 12345u;
                return (seed >> 8) % bound;
            };
            for (int i = 0; i < 20000; ++i) {
                int32_t at = static_cast<int32_t>(next(static_cast<uint32_t>(n) + 3));
                uint32_t want = at < n ? model[at] : 0;
                switch (next(4)) {
                case 0:
                case 1:
                    if (shared.charAt(at) != want) ++wrong;
                    break;
                case 2:
                    if (str(shared.substring(at, 3)) != (at < n ? utf8Of(model.substr(at, 3)) : "")) ++wrong;
                    break;
                default:
                    if (at < n && shared.find(model[at], at - 1) != at) ++wrong;
                    if (next(64) == 0 && shared.length() != n) ++wrong;
                    break;
                }
            }
        });
    }
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_EQ(utf8Of(model), str(shared));
}

// The last reader on another thread lets go of its copy; the owner then
// sees the text unshared and changes it in place. Its writes must be
// ordered after the reader's reads, which the release of the reference and
// the owner's look at the count provide.
TEST(StringHandOffThreadTest, OwnerChangesInPlaceAfterTheLastReaderLetsGo) {
    for (int round = 0; round < 200; ++round) {
        StringC owner("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80 shared for a moment", "utf8");
        StringC* reader = new StringC(owner);
        ASSERT_TRUE(owner.getImpl()->isShared());
        std::atomic<int> wrong{0};
        std::thread other([reader, &wrong] {
            if (reader->charAt(3) != 0x1F600 || str(*reader).size() != 30) ++wrong;
            delete reader;
        });
        while (owner.getImpl()->isShared()) std::this_thread::yield();
        StringImplI* before = owner.getImpl();
        owner.append(uint32_t('!'));
        EXPECT_EQ(before, owner.getImpl());  // changed in place, no copy
        other.join();
        EXPECT_EQ(0, wrong.load());
        EXPECT_EQ('!', owner.charAt(24));
    }
}

}  // namespace
}  // namespace keel
