// The store after a commit holds what a load of the committed file gives:
// sections, keys, values, states and order, whether the read-back keeps the
// records (the file is what the store held) or reads them anew.
#include <gtest/gtest.h>

#include <string>

#include "config/confregini.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

const uint32_t kLM = ConfRegistryI::kLocalMachine;

StringC u(const std::string& text) { return StringC(text.c_str(), "utf8"); }

// The live sections in order with every key record of each, deleted ones
// too, with its state; then which of a few names any section (a deleted one
// too) answers for.
std::string dump(PrefsC& prefs) {
    std::string text;
    for (const char* const* names = prefs.getSectionNames(); names && *names; ++names) {
        text += "[" + std::string(*names) + "]";
        for (PrefKeyT* key = prefs.findSection(*names, false)->first; key; key = key->next) {
            text +=
                " " + std::string(key->name) + "=" + key->value + "/" + std::to_string(key->state);
        }
        text += "\n";
    }
    for (const char* name : {"A", "B", "C\\D", "E", "S", " S "}) {
        text += prefs.findSection(name, true) ? name : "-";
    }
    return text;
}

class PrefsReadBackTest : public testkit::TempDirTest {};

TEST_F(PrefsReadBackTest, StoreAfterACommitIsTheLoadOfTheFile) {
    std::string many = "[Many]\n";
    for (int k = 0; k < 30; ++k) many += "m" + std::to_string(k) + "=" + std::to_string(k) + "\n";
    struct CaseT {
        const char* name;
        std::string file;
        void (*change)(ConfRegistryIniC&, const std::string& ini);
    } cases[] = {
        {"a value changed", "; c\n[A]\na=1\nb = 2\n\n[B]\nc=3\n" + many,
         [](ConfRegistryIniC& r, const std::string&) {
             r.setString(kLM, u("Soft\\A"), u("a"), u("9"));
         }},
        {"a key and a section added", "[A]\na=1\n" + many,
         [](ConfRegistryIniC& r, const std::string&) {
             r.setString(kLM, u("Soft\\A"), u("n"), u("new"));
             r.setString(kLM, u("Soft\\Many"), u("m99"), u("x"));
             r.setString(kLM, u("Soft\\C\\D"), u("x"), u("y"));
         }},
        {"a key and a section deleted", "[A]\na=1\nb=2\n[B]\nc=3\n",
         [](ConfRegistryIniC& r, const std::string&) {
             r.deleteValue(kLM, u("Soft\\A"), u("a"));
             r.deleteKey(kLM, u("Soft\\B"), true);
         }},
        {"another writer's key", "[A]\na=1\n",
         [](ConfRegistryIniC& r, const std::string& ini) {
             r.setAutoCommit(false);
             r.setString(kLM, u("Soft\\A"), u("a"), u("2"));
             ConfRegistryIniC other;
             other.mountFile(u(ini), u("HKLM"), u("Soft"));
             other.setString(kLM, u("Soft\\A"), u("z"), u("other"));
             r.setAutoCommit(true);
         }},
        {"names and values with blanks", "[A]\na=1\n",
         [](ConfRegistryIniC& r, const std::string&) {
             r.setString(kLM, u("Soft\\A"), u(" b "), u("  v"));
             r.setString(kLM, u("Soft\\ S "), u("c"), u("1"));
         }},
        {"a key twice and a section twice in the file", "[A]\na=1\na=2\n[B]\nb=1\n[a]\nc=3\n",
         [](ConfRegistryIniC& r, const std::string&) {
             r.setString(kLM, u("Soft\\B"), u("b"), u("2"));
         }},
        {"keys of other spellings", "[A]\nKey=1\n[b]\nx=1\n",
         [](ConfRegistryIniC& r, const std::string&) {
             r.setString(kLM, u("Soft\\a"), u("KEY"), u("2"));
             r.setString(kLM, u("Soft\\B"), u("X"), u("3"));
         }},
        {"an empty section made", "[A]\na=1\n",
         [](ConfRegistryIniC& r, const std::string&) { r.createKey(kLM, u("Soft\\E"), nullptr); }},
    };
    int round = 0;
    for (const CaseT& each : cases) {
        std::string ini = path("f" + std::to_string(round++) + ".ini");
        writeFile(ini.substr(ini.rfind('/') + 1), each.file);
        ConfRegistryIniC registry;
        ASSERT_EQ(0u, registry.mountFile(u(ini), u("HKLM"), u("Soft"))) << each.name;
        each.change(registry, ini);
        PrefsC loaded;
        ASSERT_TRUE(loaded.load(ini.c_str(), false, false)) << each.name;
        EXPECT_EQ(dump(loaded), dump(registry.file(0)->prefs())) << each.name;
        // A second commit of the same store, now as read back.
        registry.setString(kLM, u("Soft\\A"), u("a"), u("last"));
        ASSERT_TRUE(loaded.load(ini.c_str(), false, false)) << each.name;
        EXPECT_EQ(dump(loaded), dump(registry.file(0)->prefs())) << each.name;
    }
}

}  // namespace
}  // namespace keel
