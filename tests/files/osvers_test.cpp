#include "files/osvers.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/utsname.h>

namespace keel {
namespace {

OsVersionC parsed(const char* release) {
    OsVersionC version;
    version.major = 0;
    version.minor = 0;
    version.readRelease(release);
    return version;
}

TEST(OsVersion, ReadsTheRunningKernel) {
    OsVersionC version;
    EXPECT_EQ(version.family, 10);
    EXPECT_EQ(version.kind, 5);
    EXPECT_EQ(version.reserved0, 0);
    EXPECT_EQ(version.reserved1, 0);
    EXPECT_EQ(version.reserved2, 0);
    EXPECT_EQ(version.cachedFlagA, -1);
    EXPECT_EQ(version.cachedFlagB, -1);
    struct utsname names;
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(version.major, strtol(names.release, nullptr, 10));
    EXPECT_GT(version.major, 0);
    EXPECT_FALSE(version.isFamily4From51());
    EXPECT_FALSE(version.isFamily4Above5());
}

TEST(OsVersion, ReleaseTexts) {
    OsVersionC a = parsed("5.15.0-91-generic");
    EXPECT_EQ(a.major, 5);
    EXPECT_EQ(a.minor, 15);
    OsVersionC b = parsed("Linux");
    EXPECT_EQ(b.major, 0);
    EXPECT_EQ(b.minor, 0);
    OsVersionC c = parsed("");
    EXPECT_EQ(c.major, 0);
    OsVersionC d = parsed("v6");
    EXPECT_EQ(d.major, 6);
    EXPECT_EQ(d.minor, 0);
    // The second number is looked for past any non-digits.
    OsVersionC e = parsed("rel 4-rc-12x");
    EXPECT_EQ(e.major, 4);
    EXPECT_EQ(e.minor, 12);
    OsVersionC f = parsed("3.");
    EXPECT_EQ(f.major, 3);
    EXPECT_EQ(f.minor, 0);
}

TEST(OsVersion, FlagsSettleToFalse) {
    OsVersionC version;
    EXPECT_FALSE(version.queryFlagA());
    EXPECT_EQ(version.cachedFlagA, 0);
    EXPECT_EQ(version.cachedFlagB, -1);
    EXPECT_FALSE(version.queryFlagB());
    EXPECT_EQ(version.cachedFlagB, 0);
    version.cachedFlagA = 7;
    EXPECT_TRUE(version.queryFlagA());
    EXPECT_EQ(version.cachedFlagA, 7);
}

TEST(OsVersion, FamilyTests) {
    OsVersionC version;
    version.family = 4;
    version.major = 5;
    version.minor = 0;
    EXPECT_FALSE(version.isFamily4From51());
    version.minor = 1;
    EXPECT_TRUE(version.isFamily4From51());
    EXPECT_FALSE(version.isFamily4Above5());
    version.major = 6;
    version.minor = 0;
    EXPECT_TRUE(version.isFamily4From51());
    EXPECT_TRUE(version.isFamily4Above5());
    version.family = 10;
    EXPECT_FALSE(version.isFamily4From51());
    EXPECT_FALSE(version.isFamily4Above5());
}

TEST(OsVersion, InstanceIsOneObject) {
    OsVersionC* one = OsVersionC::instance();
    ASSERT_NE(one, nullptr);
    EXPECT_EQ(OsVersionC::instance(), one);
    EXPECT_EQ(one->family, 10);
}

}  // namespace
}  // namespace keel
