// The registry over ini files in one process: what the model does not
// reach, and random operation sequences against the model (reads around
// every kind of change, held keys, paths in other spellings). Writers in
// processes of their own are confregini_lock_test's; reads on several
// threads and paths beyond ASCII, confregini_threads_test's.
#include <gtest/gtest.h>

#include <string>

#include "config/confregini.h"
#include "testing/modelrun.h"
#include "testing/regmodel.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

const uint32_t kLM = ConfRegistryI::kLocalMachine;

using regmodel::getText;
using regmodel::u;

class RegistryTest : public testkit::TempDirTest {};

// What the model does not reach: root handles, keys down to a mount point,
// sizes, integers, bounded texts, paths and root names.
TEST_F(RegistryTest, KeysPathsAndCodes) {
    ConfRegistryIniC registry;
    uint32_t handle = 0, other = 0, size = 0, number = 0, root = 0;
    const StringC ab = u("Soft\\A\\B");
    EXPECT_EQ(kRegNotFound, registry.openKey(kLM, u("X"), &handle));
    EXPECT_EQ(0u, registry.openKey(kLM, u(""), &handle));
    EXPECT_EQ(kLM, handle);
    EXPECT_EQ(kRegBadHandle, registry.openKey(0x80000003, u(""), &handle));
    writeFile("f.ini", "[A\\B]\nv=-1\nw=abc\n");
    ASSERT_EQ(0u, registry.mountFile(u(path("f.ini")), u("HKLM"), u("Soft")));
    EXPECT_EQ(kRegMissingArgument, registry.mountFile(StringC(), u("HKLM"), u("X")));
    EXPECT_EQ(kRegAlreadyMounted,
              registry.mountFile(u(path("f.ini")), u("HKEY_LOCAL_MACHINE"), u("X")));
    ASSERT_EQ(0u, registry.mountFile(u(path("g.ini")), u("HKLM"), u("Other\\App")));
    for (const char* key : {"Other", "Other\\App", "Soft\\A", "soft\\a\\b"})
        EXPECT_EQ(0u, registry.openKey(kLM, u(key), &handle)) << key;
    EXPECT_EQ(0u, registry.openKey(kLM, ab, &other));
    EXPECT_EQ(handle, other);
    EXPECT_EQ(0u, registry.closeKey(handle));
    EXPECT_EQ(0u, registry.closeKey(handle));
    EXPECT_EQ(kRegBadHandle, registry.closeKey(handle));
    // A size query by value answers 0, by enumeration 0xE1370067; a buffer
    // too small leaves the caller's size alone.
    EXPECT_EQ(0u, registry.queryValue(kLM, ab, u("w"), nullptr, &size, nullptr));
    EXPECT_EQ(4u, size);
    char small[2];
    EXPECT_EQ(kRegMoreData, registry.queryValue(kLM, ab, u("w"), small, &number, nullptr));
    EXPECT_EQ(0u, number);
    EXPECT_EQ(kRegMissingArgument, registry.queryValue(kLM, ab, u("w"), small, nullptr, nullptr));
    ASSERT_EQ(0u, registry.openKey(kLM, ab, &handle));
    EXPECT_EQ(kRegMoreData, registry.enumValue(handle, 1, nullptr, nullptr, nullptr, &size));
    registry.closeKey(handle);
    EXPECT_EQ(0u, registry.setInteger(kLM, ab, u("n"), 7));
    EXPECT_EQ(0u, registry.getInteger(kLM, ab, u("n"), &number));
    EXPECT_EQ(7u, number);
    EXPECT_EQ(kRegNotFound, registry.getInteger(kLM, ab, u("v"), &number));
    EXPECT_EQ(0u, registry.setValue(kLM, ab, u("s"), 7, "abcdef", 3));
    // A text beyond ASCII is kept whole: its bound is counted in bytes.
    EXPECT_EQ(0u, registry.setString(kLM, ab, u("g"), u("Gr\u00FC\u00DFe")));
    auto at = [&](const char* name) { return getText(registry, kLM, "Soft\\A\\B", name); };
    EXPECT_EQ("7l|abc|Gr\u00FC\u00DFe", at("n") + "|" + at("s") + "|" + at("g"));
    StringC subKey, value;
    EXPECT_EQ(0u, registry.parsePath(u("HKLM\\A\\B\\V"), &root, &subKey, &value));
    EXPECT_EQ("A\\B\\|V", str(subKey) + "|" + str(value));
    EXPECT_EQ(kRegBadPath, registry.parsePath(u("hklm\\A"), &root, nullptr, nullptr));
    EXPECT_EQ("HKEY_DYN_DATA HKCU ", str(registry.rootKeyName(0x80000006)) + " " +
                                         str(registry.rootKeyShortName(0x80000001)) + " " +
                                         str(registry.rootKeyName(0x80000007)));
}

// Random operations against the model of tests/testing/regmodel.h, with
// mounts over, another writer, and the disk read by a registry of its own.
TEST_F(RegistryTest, RandomOperationsAgainstModel) {
    EXPECT_EQ("", testkit::runSeeded<regmodel::DriverC>(6, 250, dir, ""));
}

}  // namespace
}  // namespace keel
