#include "files/osvers.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/utsname.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace keel {
namespace {

TEST(OsVersion, ReadsTheRunningKernelOnce) {
    OsVersionC* version = OsVersionC::instance();
    EXPECT_EQ(version, OsVersionC::instance());
    EXPECT_EQ(10, version->family);
    EXPECT_EQ(5, version->kind);
    struct utsname names;
    ASSERT_EQ(0, uname(&names));
    EXPECT_EQ(strtol(names.release, nullptr, 10), version->major);
}

// The second number is looked for past any non-digits; missing numbers stay
// 0. The tests for family 4 take the numbers read.
TEST(OsVersion, ReleaseTextsAndFamilyTests) {
    struct {
        const char* release;
        int32_t family, major, minor;
        bool from51, above5;
    } const cases[] = {
        {"5.15.0-91-generic", 10, 5, 15, false, false},
        {"Linux", 4, 0, 0, false, false},
        {"", 4, 0, 0, false, false},
        {"v6", 4, 6, 0, true, true},
        {"rel 4-rc-12x", 4, 4, 12, false, false},
        {"3.", 4, 3, 0, false, false},
        {"5.0", 4, 5, 0, false, false},
        {"5.1", 4, 5, 1, true, false},
        {"6.0", 10, 6, 0, false, false},
    };
    for (const auto& c : cases) {
        OsVersionC version;
        version.major = version.minor = 0;
        version.family = c.family;
        version.readRelease(c.release);
        EXPECT_EQ(std::make_tuple(c.major, c.minor, c.from51, c.above5),
                  std::make_tuple(version.major, version.minor, version.isFamily4From51(),
                                  version.isFamily4Above5()))
            << c.release;
    }
}

// The flags, unset at first, settle as false; asked on several threads at
// once they give the same answers, every read and write through the atomic cell.
TEST(OsVersionThreadTest, FlagsAskedAtOnce) {
    OsVersionC version;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&version, &wrong] {
            for (int i = 0; i < 1000; ++i) {
                if (version.queryFlagA() || version.queryFlagB()) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong.load());
}

}  // namespace
}  // namespace keel
