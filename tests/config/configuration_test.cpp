// The configuration service: one object for both versions of the entry
// point, and the road of one failure through the module catalog that the
// registry leads to.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <keel/keel.h>

#include "config/configuration.h"
#include "errors/error.h"
#include "files/fileserv.h"
#include "testing/catalogfiles.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

StringC u(const std::string& text) { return StringC(text.c_str(), "utf8"); }

TEST(ConfigurationTest, OneObjectForBothVersions) {
    // Other versions answer null and make nothing.
    ConfigurationIniC* before = existingConfiguration();
    for (uint32_t version : {0u, 3u}) EXPECT_EQ(nullptr, getConfiguration(version));
    EXPECT_EQ(before, existingConfiguration());
    ConfigurationI* configuration = getConfiguration(1);
    ASSERT_NE(nullptr, configuration);
    EXPECT_EQ(configuration, getConfiguration(2));
    EXPECT_EQ(configuration->getRegistry(), getConfiguration(2)->getRegistry());
    EXPECT_EQ(nullptr, configuration->reservedPointer());
    EXPECT_TRUE(configuration->reservedTextA().isEmpty());
}

// The road of one failure: a missing file opened through the file service
// reports the system's error and its own, both with texts of the module
// catalog that the registry's "InstallDir" leads to.
TEST(ConfigurationTest, ModuleCatalogFoundThroughTheRegistry) {
    ConfRegistryI* registry = getConfiguration(1)->getRegistry();
    const StringC key("SOFTWARE\\Veltrane Corp\\Veltrane", "ascii");
    StringC installDir;
    // Nothing mounted there: no directory, and the lookup goes on without.
    EXPECT_EQ(0xE1370069u,
              registry->getString(ConfRegistryI::kLocalMachine, key, u("InstallDir"), &installDir));

    testkit::CatalogDirC dir;
    ASSERT_EQ(0, mkdir(dir.file("lib").c_str(), 0777));
    ASSERT_FALSE(dir.compile("lib/allcat.cat",
                             "0 2 e introuvable\n203 16 e Ouverture de '%1$S' impossible\n")
                     .empty());
    dir.write("install.ini", "[Veltrane Corp\\Veltrane]\nInstallDir=" + dir.path() + "\n");
    ASSERT_EQ(0u, registry->mountFile(u(dir.file("install.ini")), u("HKEY_LOCAL_MACHINE"),
                                      u("SOFTWARE")));
    ASSERT_EQ(0u,
              registry->getString(ConfRegistryI::kLocalMachine, key, u("InstallDir"), &installDir));
    EXPECT_EQ(dir.path(), str(installDir));

    ErrCatalogI* previous = openModuleCatalog();
    testkit::clearErrors();
    FileNameC missing(u(dir.file("missing.txt")));
    EXPECT_EQ(nullptr, FlnFileServiceC::instance()->openStream(&missing, 3, 1, 1, false));
    EXPECT_EQ((std::vector<uint32_t>{0xE0000002u, 0xE0CB0010u}), testkit::errorCodes());
    EXPECT_EQ("introuvable", testkit::errorTextAt(0));
    EXPECT_EQ("Ouverture de '" + dir.file("missing.txt") + "' impossible", testkit::errorTextAt(1));
    testkit::clearErrors();
    // Without a module catalog the default text comes back.
    setModuleCatalogEmpty();
    EXPECT_EQ(nullptr, FlnFileServiceC::instance()->openStream(&missing, 3, 1, 1, false));
    EXPECT_EQ("Failed to open file '" + dir.file("missing.txt") + "'", testkit::errorTextAt(1));
    testkit::clearErrors();
    delete moduleCatalogCell().exchange(previous);
}

}  // namespace
}  // namespace keel
