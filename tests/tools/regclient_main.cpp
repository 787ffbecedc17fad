// A program that uses the registry through the SDK only (libkeel.so and
// <keel/config.h>), for the keel tool's tests: what the tool writes, a
// program reads, and the other way round.
//
//     regclient_main get INI ROOT MOUNTPATH KEY NAME          prints the value
//     regclient_main set INI ROOT MOUNTPATH KEY NAME VALUE
#include <stdio.h>
#include <string.h>

#include <keel/config.h>
#include <keel/string.h>

int main(int argc, char** argv) {
    bool get = argc == 7 && strcmp(argv[1], "get") == 0;
    bool set = argc == 8 && strcmp(argv[1], "set") == 0;
    if (!get && !set) return 2;
    keel::ConfRegistryI* registry = getConfiguration(1)->getRegistry();
    keel::StringC key(argv[5], "utf8"), name(argv[6], "utf8");
    if (registry->mountFile(keel::StringC(argv[2], "utf8"), keel::StringC(argv[3], "utf8"),
                            keel::StringC(argv[4], "utf8")) != 0) {
        return 3;
    }
    uint32_t root = registry->rootKeyFromName(keel::StringC(argv[3], "utf8"));
    if (set)
        return registry->setString(root, key, name, keel::StringC(argv[7], "utf8")) == 0 ? 0 : 1;
    keel::StringC value;
    if (registry->getString(root, key, name, &value) != 0) return 1;
    printf("%s\n", value.toStdString().c_str());
    return 0;
}
