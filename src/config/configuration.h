// The configuration service: ConfigurationIniC, which owns the registry, and
// the one object of the process that getConfiguration hands out.
//
//     ConfigurationI* configuration = configurationInstance(1);   // null unless 1 or 2
//     ConfRegistryI* registry = configuration->getRegistry();
//
// The service stores nothing and knows no file: a program binds its ini
// files through ConfRegistryI::mountFile.
#ifndef KEEL_CONFIG_CONFIGURATION_H
#define KEEL_CONFIG_CONFIGURATION_H

#include <keel/config.h>

#include "config/confregini.h"

namespace keel {

class ConfigurationIniC : public ConfigurationI {
public:
    // Makes its registry.
    ConfigurationIniC() : registry_(new ConfRegistryIniC) {}
    // Deletes the registry.
    ~ConfigurationIniC() override { delete registry_; }
    ConfigurationIniC(const ConfigurationIniC&) = delete;
    ConfigurationIniC& operator=(const ConfigurationIniC&) = delete;

    ConfRegistryI* getRegistry() override { return registry_; }
    void* reservedPointer() override { return nullptr; }
    void reservedAction() override {}
    StringC reservedTextA() override { return StringC(); }
    StringC reservedTextB() override { return StringC(); }
    StringC reservedTextC() override { return StringC(); }

    ConfRegistryIniC* registry() { return registry_; }

private:
    ConfRegistryIniC* registry_;
};

// What getConfiguration answers: the one object for 1 and 2, made on first
// need under the configuration latch and never destroyed; null for any
// other version (the latch is made whatever the version).
ConfigurationIniC* configurationInstance(int version);
// The object if it was made, without making it; for tests.
ConfigurationIniC* existingConfiguration();

}  // namespace keel

#endif
