#include "files/osvers.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/utsname.h>

#include <atomic>
#include <string>
#include <thread>
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

// The second number is looked for past any non-digits; missing numbers stay 0.
TEST(OsVersion, ReleaseTexts) {
    const std::pair<const char*, std::pair<int32_t, int32_t>> cases[] = {
        {"5.15.0-91-generic", {5, 15}}, {"Linux", {0, 0}}, {"", {0, 0}}, {"v6", {6, 0}},
        {"rel 4-rc-12x", {4, 12}},      {"3.", {3, 0}},
    };
    for (const auto& c : cases) {
        OsVersionC version;
        version.major = version.minor = 0;
        version.readRelease(c.first);
        EXPECT_EQ(c.second, std::make_pair(version.major, version.minor)) << c.first;
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

TEST(OsVersion, FamilyTests) {
    // {family, major, minor, from 5.1, above 5}
    const int32_t cases[][5] = {
        {4, 5, 0, 0, 0}, {4, 5, 1, 1, 0}, {4, 6, 0, 1, 1}, {10, 6, 0, 0, 0}};
    OsVersionC version;
    for (const auto& c : cases) {
        version.family = c[0];
        version.major = c[1];
        version.minor = c[2];
        EXPECT_EQ(c[3] != 0, version.isFamily4From51()) << c[0] << " " << c[1] << "." << c[2];
        EXPECT_EQ(c[4] != 0, version.isFamily4Above5()) << c[0] << " " << c[1] << "." << c[2];
    }
}

}  // namespace
}  // namespace keel
