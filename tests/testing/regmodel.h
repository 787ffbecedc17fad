// A plain model of the registry over ini files (a map of key paths to maps
// of values), and a driver that applies the same random operation to a real
// ConfRegistryIniC, with real files in `directory`, and to the model, and
// says where they first differ. Shared by the random-sequence test and the
// fuzz target.
//
//     keel::regmodel::DriverC driver("/tmp/dir", "1");   // files f1.ini, d1/g.ini
//     std::string broken = driver.step(operation, argument);  // empty: agree
//
// Operations: set, delete and read values, create and delete keys (with and
// without `recursive`), switch autoCommit, mount the other file at the same
// point (which retires the first with what it had not committed), a change
// by another writer read back at once, keys opened and held open (which
// keep a key opening, as a handle that deleteValue left open does) and
// closed again, and a registry of its own that reads the disk once
// everything is written. Key paths are spelled with random case. Every operation is
// framed by two reads of its value, so that what the registry keeps of a
// read meets every kind of change. After each operation every key below the
// mount point must open exactly when the model has it, with the model's
// values and children.
#ifndef KEEL_TESTS_TESTING_REGMODEL_H
#define KEEL_TESTS_TESTING_REGMODEL_H

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "config/confregini.h"

namespace keel {
namespace regmodel {

typedef std::map<std::string, std::string> NamedT;
typedef std::map<std::string, NamedT> ValuesT;

inline StringC u(const std::string& text) { return StringC(text.c_str(), "utf8"); }
inline std::string utf8(const StringC& string) { return std::string(string.view()); }

// The value at `key` and `name` below `root` as text, or "<N>" with the low
// byte of the code of a failure.
inline std::string getText(ConfRegistryIniC& registry, uint32_t root, const std::string& key,
                           const std::string& name) {
    StringC value;
    uint32_t code = registry.getString(root, u(key), u(name), &value);
    return code == 0 ? utf8(value) : "<" + std::to_string(code & 0xFF) + ">";
}

inline bool under(const std::string& section, const std::string& key) {
    return section.size() > key.size() + 1 && section.compare(0, key.size() + 1, key + "\\") == 0;
}

// One file's content as the registry should show it. A key whose handle
// deleteValue left open (the value was missing) still opens after its
// sections are gone, until the file is mounted over.
struct FileModelT {
    ValuesT values;
    std::set<std::string> leaked;
    std::multiset<std::string> held;
    ValuesT committed;

    bool opens(const std::string& key) const {
        return leaked.count(key) || held.count(key) ||
               std::any_of(values.begin(), values.end(), [&key](const ValuesT::value_type& at) {
                   return at.first == key || under(at.first, key);
               });
    }
    bool has(const std::string& key, const std::string& name) const {
        return values.count(key) && values.at(key).count(name);
    }
    // What getText answers for the value.
    std::string text(const std::string& key, const std::string& name) const {
        return has(key, name) ? values.at(key).at(name) : "<105>";
    }
    // The first parts of the sections below `key`.
    std::set<std::string> children(const std::string& key) const {
        std::set<std::string> names;
        for (const auto& section : values) {
            std::string below =
                section.first.substr(std::min(section.first.size(), key.size() + 1));
            if (under(section.first, key)) names.insert(below.substr(0, below.find('\\')));
        }
        return names;
    }
};

class DriverC {
public:
    static constexpr const char* kSections[4] = {"a", "a\\b", "c", "c\\d\\e"};
    static constexpr const char* kKeys[5] = {"a", "a\\b", "c", "c\\d", "c\\d\\e"};
    static const uint32_t kLM = ConfRegistryI::kLocalMachine;

    // Starts from no files: what an earlier driver left is removed.
    DriverC(const std::string& directory, const std::string& tag) {
        files_[0] = directory + "/f" + tag + ".ini";
        files_[1] = directory + "/d" + tag + "/g.ini";
        for (const std::string& file : files_)
            for (const char* end : {"", ".tmp", ".lck"}) ::remove((file + end).c_str());
        registry_.setFlushCommits(false);
        registry_.mountFile(u(files_[0]), u("HKLM"), u("Soft"));
    }

    std::string step(uint32_t operation, uint32_t argument) {
        // Key paths are spelled with an upper-case first letter at times.
        auto spell = [argument](const std::string& key) {
            return (argument >> 2) % 3 ? key : char(toupper(key[0])) + key.substr(1);
        };
        std::string key = kSections[argument % 4], spelled = spell(key);
        std::string name(1, char('x' + (argument >> 4) % 3));
        std::string value = "v" + std::to_string((argument >> 6) % 100);
        const std::string pathText = "Soft\\" + spelled;
        StringC path = u(pathText);
        FileModelT& model = models_[active_];
        bool present = model.has(key, name), ok = true, before = readBack(key, pathText, name);
        const std::string readKey = key;
        switch (operation %= 12) {
        case 0:
        case 1:
            ok = registry_.setString(kLM, path, u(name), u(value)) == 0;
            model.values[key][name] = value;
            break;
        case 2:
            ok = registry_.deleteValue(kLM, path, u(name)) == (present ? 0 : kRegNotFound);
            if (present) model.values[key].erase(name);
            if (!present && model.opens(key)) model.leaked.insert(key);
            break;
        case 3:
            ok = registry_.createKey(kLM, path, nullptr) == 0;
            if (!model.opens(key)) model.values[key];
            break;
        case 4: {
            key = kKeys[argument % 5];
            bool recursive = (argument >> 3) % 2;
            bool empty = model.children(key).empty() &&
                         (!model.values.count(key) || model.values.at(key).empty());
            uint32_t expected =
                !model.opens(key) ? kRegNotFound : (recursive || empty ? 0 : kRegKeyNotEmpty);
            ok = registry_.deleteKey(kLM, u("Soft\\" + key), recursive) == expected;
            for (auto it = model.values.begin(); expected == 0 && it != model.values.end();) {
                bool gone = it->first == key || under(it->first, key);
                it = gone ? model.values.erase(it) : std::next(it);
            }
            break;
        }
        case 5:
            switchAutoCommit();
            break;
        case 6:
            // The file mounted at the same point retires this one, with what
            // it had not committed and with its open keys.
            if (!registry_.autoCommit()) model.values = model.committed;
            model.leaked.clear();
            model.held.clear();
            ++mounts_;
            active_ = 1 - active_;
            ok = registry_.mountFile(u(files_[active_]), u("HKLM"), u("Soft")) == 0;
            break;
        case 7:
            if (!registry_.autoCommit()) break;
            {
                ConfRegistryIniC other;
                other.setFlushCommits(false);
                other.mountFile(u(files_[active_]), u("HKLM"), u("Soft"));
                ok = other.setString(kLM, path, u(name), u(value)) == 0;
            }
            model.values[key][name] = value;
            registry_.file(static_cast<int32_t>(registry_.fileCount()) - 1)->refreshFile(true);
            break;
        case 9: {
            key = kKeys[argument % 5];
            uint32_t handle = 0;
            bool opened = registry_.openKey(kLM, u("Soft\\" + spell(key)), &handle) == 0;
            ok = opened == model.opens(key);
            if (opened) held_.push_back({handle, mounts_, key}), model.held.insert(key);
            break;
        }
        case 10:
            if (held_.empty()) break;
            ok = registry_.closeKey(held_.front().handle) == 0;
            if (held_.front().mount == mounts_)
                model.held.erase(model.held.find(held_.front().key));
            held_.erase(held_.begin());
            break;
        case 8: {
            // From the root, from the mount point, or from the key of the
            // path's first part when that opens.
            uint32_t base = kLM, split = (argument >> 13) % 3;
            std::string below = "Soft\\" + spelled;
            if (split > 0 &&
                registry_.openKey(kLM, u(split == 1 ? "Soft" : "Soft\\" + key.substr(0, 1)),
                                  &base) == 0) {
                below = split == 1 ? spelled : spelled.size() > 2 ? spelled.substr(2) : "";
            }
            ok = getText(registry_, base, below, name) == model.text(key, name);
            if (base != kLM) registry_.closeKey(base);
            break;
        }
        case 11:
            if (std::string broken = compareWithDisk(); !broken.empty()) return "disk: " + broken;
        }
        if (registry_.autoCommit()) models_[active_].committed = models_[active_].values;
        ok = ok && before && readBack(readKey, pathText, name);
        std::string what = "operation " + std::to_string(operation) + " " + key + " " + name;
        std::string broken = ok ? compare(registry_, models_[active_]) : "its answer";
        return broken.empty() ? broken : what + ": " + broken;
    }

    // Where `registry` shows something else than `model`; empty when it agrees.
    static std::string compare(ConfRegistryIniC& registry, const FileModelT& model) {
        for (const char* key : kKeys) {
            uint32_t handle = 0;
            uint32_t code = registry.openKey(kLM, u(std::string("Soft\\") + key), &handle);
            if (code != (model.opens(key) ? 0 : kRegNotFound)) return std::string("open ") + key;
            if (code != 0) continue;
            NamedT values;
            std::set<std::string> names;
            StringC name;
            char data[64];
            uint32_t size = sizeof data;
            for (uint32_t i = 0; registry.enumValue(handle, i, &name, nullptr, data, &size) == 0;)
                values[utf8(name)] = data, ++i;
            // Children come in the file's spelling; the model's are lower case.
            for (uint32_t i = 0; registry.enumKey(handle, i, &name) == 0; ++i) {
                std::string text = utf8(name);
                std::transform(text.begin(), text.end(), text.begin(), ::tolower);
                names.insert(text);
            }
            registry.closeKey(handle);
            if (values != (model.values.count(key) ? model.values.at(key) : NamedT()))
                return std::string("values of ") + key;
            if (names != model.children(key)) return std::string("children of ") + key;
        }
        return std::string();
    }

    // The disk as a registry of its own sees it, once everything is written.
    std::string compareWithDisk() {
        if (!registry_.autoCommit()) switchAutoCommit();
        ConfRegistryIniC fresh;
        fresh.mountFile(u(files_[active_]), u("HKLM"), u("Soft"));
        return compare(fresh, FileModelT{models_[active_].values, {}, {}, {}});
    }

private:
    // A read of the value from the root agrees with the model.
    bool readBack(const std::string& key, const std::string& path, const std::string& name) {
        return getText(registry_, kLM, path, name) == models_[active_].text(key, name);
    }

    void switchAutoCommit() {
        registry_.setAutoCommit(!registry_.autoCommit());
        if (registry_.autoCommit()) models_[active_].committed = models_[active_].values;
    }

    ConfRegistryIniC registry_;
    std::string files_[2];
    FileModelT models_[2];
    int active_ = 0;
    // Keys held open, oldest first, with the mount they were opened under.
    struct HeldT {
        uint32_t handle, mount;
        std::string key;
    };
    std::vector<HeldT> held_;
    uint32_t mounts_ = 0;
};

}  // namespace regmodel
}  // namespace keel

#endif
