// The string against a plain model: random operation sequences checked
// against a std::u32string (tests/testing/stringmodel.h), the few cases the
// run cannot make, and readers of one shared string on several threads.
#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <keel/string.h>

#include "testing/stringmodel.h"
#include "testing/scantest.h"
#include "testing/threads.h"
#include "text/stringim.h"

namespace keel {
namespace {

using testkit::utf8Of;

// Half the runs with the block paths of the searches off, so that the
// character walks meet the same sequences.
TEST(StringModelTest, RandomOperationsAgreeWithTheModel) {
    for (uint32_t seed = 1; seed <= 800; ++seed) {
        StringImplC::setVectorPaths(seed % 2 == 0);
        std::independent_bits_engine<std::mt19937, 8, uint32_t> random(seed);
        std::vector<uint8_t> bytes(12000);
        std::generate(bytes.begin(), bytes.end(), random);
        testkit::ByteChoicesC choices(bytes.data(), bytes.size());
        ASSERT_EQ("", testkit::StringModelRunC(choices).run()) << "seed " << seed;
    }
    StringImplC::setVectorPaths(true);
}

// What the run never makes: a null pointer with a count, and an erase that
// starts past the end of a text whose count is not known.
TEST(StringModelTest, CasesOutsideTheRun) {
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
    const StringC shared = raw(bytes);  // count not known
    const int32_t n = static_cast<int32_t>(model.size());
    std::atomic<int> wrong{0};
    testkit::onThreads(4, [&](int t) {
        std::minstd_rand next(77 + t);
        for (int i = 0; i < 20000; ++i) {
            int32_t at = static_cast<int32_t>(next() % (n + 3));
            uint32_t want = at < n ? model[at] : 0;
            uint32_t kind = next() % 4;
            if (kind < 2) {
                wrong += shared.charAt(at) != want;
            } else if (kind == 2) {
                std::string part = at < n ? utf8Of(model.substr(at, 3)) : "";
                wrong += str(shared.substring(at, 3)) != part;
            } else {
                wrong += at < n && shared.find(model[at], at - 1) != at;
                wrong += next() % 64 == 0 && shared.length() != n;
            }
        }
    });
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
