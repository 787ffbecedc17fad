// A plain model of a preference store and of the ini file it merges into,
// and a driver that applies random operations to a real PrefsC, to the file
// (through a second store, as another writer would) and to the model, and
// says where they first differ. Shared by the random-sequence test and the
// fuzz target.
//
//     keel::prefsmodel::DriverC driver("/tmp/dir/m.ini");
//     std::string broken = driver.step(operation, argument);  // empty: agree
//
// The model of the store is its records with their states (deleted ones
// kept); the model of the file is an ordered list of sections of ordered
// keys, plus the comment lines, which every merge must keep in order.
#ifndef KEEL_TESTS_TESTING_PREFSMODEL_H
#define KEEL_TESTS_TESTING_PREFSMODEL_H

#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "config/prefs.h"

namespace keel {
namespace prefsmodel {

struct KeyT {
    std::string name, value;
    uint32_t state;
};
struct SectionT {
    std::string name;
    uint32_t state;
    std::vector<KeyT> keys;
};
typedef std::vector<SectionT> ContentT;

template <typename T>
T* find(std::vector<T>& list, const std::string& name, bool live) {
    for (T& item : list)
        if (item.name == name) return live && item.state == kPrefDeleted ? nullptr : &item;
    return nullptr;
}

inline std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    // Without the byte-order mark that a store writes in front.
    std::string all = text.str();
    return all.compare(0, 3, "\xEF\xBB\xBF") == 0 ? all.substr(3) : all;
}

inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> result;
    std::string line;
    std::istringstream in(text);
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        result.push_back(line);
    }
    return result;
}

inline std::vector<std::string> comments(const std::string& path) {
    std::vector<std::string> result;
    for (const std::string& line : lines(readAll(path)))
        if (!line.empty() && line[0] == ';') result.push_back(line);
    return result;
}

class DriverC {
public:
    explicit DriverC(const std::string& file) : path(file) { ::remove(path.c_str()); }

    std::string step(uint32_t operation, uint32_t argument) {
        std::string s = "s" + std::to_string(argument % 5);
        std::string k = "k" + std::to_string((argument / 5) % 6);
        std::string v = (argument & 64 ? "v %s=[" : "v") + std::to_string(++steps) +
                        (argument & 128 ? " ;x" : "");
        switch (operation % 9) {
        case 0:
        case 1: {
            if (!store.setValue(s.c_str(), k.c_str(), v.c_str(), true)) return "setValue";
            SectionT* section = ensure(memory, s);
            KeyT* key = find(section->keys, k, false);
            if (!key) section->keys.push_back(KeyT{k, "", 0}), key = &section->keys.back();
            key->value = v;
            key->state = kPrefChanged;
            break;
        }
        case 2: {
            SectionT* section = find(memory, s, false);
            KeyT* key = section ? find(section->keys, k, true) : nullptr;
            if (store.deleteKey(s.c_str(), k.c_str()) != (key != nullptr)) return "deleteKey";
            if (key) key->state = kPrefDeleted;
            break;
        }
        case 3: {
            SectionT* section = find(memory, s, false);
            bool expected = section && !(argument & 1 && !section->keys.empty());
            if (store.deleteSection(s.c_str(), argument & 1) != expected) return "deleteSection";
            if (expected) {
                section->state = kPrefDeleted;
                for (KeyT& key : section->keys) key.state = kPrefDeleted;
            }
            break;
        }
        case 4: {
            bool expected = !find(memory, s, true);
            if (store.createSection(s.c_str()) != expected) return "createSection";
            if (expected) ensure(memory, s);
            break;
        }
        case 5:
            if (!commit(argument & 1)) return "commit";
            break;
        case 6:
            if (!otherWriter(s, k, v, argument)) return "other writer";
            break;
        case 7:
            if (store.load(path.c_str(), false, false))
                memory = file;
            else if (fileMade)
                return "load";
            break;
        default:
            break;
        }
        return agrees() ? "" : "content after operation " + std::to_string(operation % 9);
    }

    // The store's live sections and keys (with their states) against the
    // model's.
    bool agrees() {
        ContentT live;
        for (const SectionT& section : memory) {
            if (section.state == kPrefDeleted) continue;
            live.push_back(SectionT{section.name, 0, {}});
            for (const KeyT& key : section.keys)
                if (key.state != kPrefDeleted) live.back().keys.push_back(key);
        }
        const char* const* names = store.getSectionNames();
        size_t index = 0;
        for (; names[index]; ++index) {
            if (index >= live.size() || live[index].name != names[index]) return false;
            PrefKeyT* const* keys = store.getKeys(names[index]);
            size_t count = 0;
            for (; keys && keys[count]; ++count) {
                const std::vector<KeyT>& expected = live[index].keys;
                if (count >= expected.size() || expected[count].name != keys[count]->name ||
                    expected[count].value != keys[count]->value ||
                    expected[count].state != keys[count]->state)
                    return false;
            }
            if (!keys || count != live[index].keys.size()) return false;
        }
        return index == live.size() && store.getFallback() == nullptr;
    }

    std::string path;
    PrefsC store;
    ContentT memory;  // the store's records
    ContentT file;    // what the file holds, all in state 0
    std::vector<std::string> expectedComments;
    uint32_t steps = 0;
    bool fileMade = false;

private:
    // A section made in memory, or one found (deleted too) revived.
    static SectionT* ensure(ContentT& content, const std::string& name) {
        SectionT* section = find(content, name, false);
        if (section && section->state != kPrefDeleted) return section;
        if (section)
            section->state = kPrefAsRead;  // revived, its keys still deleted
        else
            content.push_back(SectionT{name, kPrefChanged, {}}), section = &content.back();
        return section;
    }

    // What a merge of `changes` into `target` leaves: sections and keys
    // changed in memory set in place or appended, deleted ones removed.
    static void applyChanges(const ContentT& changes, ContentT& target) {
        for (const SectionT& section : changes) {
            auto at = std::find_if(target.begin(), target.end(),
                                   [&](const SectionT& s) { return s.name == section.name; });
            if (section.state == kPrefDeleted) {
                if (at != target.end()) target.erase(at);
                continue;
            }
            if (at == target.end()) {
                SectionT fresh{section.name, kPrefAsRead, {}};
                for (const KeyT& key : section.keys)
                    if (section.state == kPrefChanged ? key.state != kPrefDeleted
                                                      : key.state == kPrefChanged)
                        fresh.keys.push_back(KeyT{key.name, key.value, kPrefAsRead});
                if (section.state == kPrefChanged || !fresh.keys.empty()) target.push_back(fresh);
                continue;
            }
            for (const KeyT& key : section.keys) {
                auto place = std::find_if(at->keys.begin(), at->keys.end(),
                                          [&](const KeyT& k) { return k.name == key.name; });
                if (key.state == kPrefDeleted && place != at->keys.end()) at->keys.erase(place);
                if (key.state != kPrefChanged) continue;
                if (place == at->keys.end())
                    at->keys.push_back(KeyT{key.name, key.value, kPrefAsRead});
                else
                    place->value = key.value;
            }
        }
    }

    bool commit(bool throughTemplate) {
        bool saved = throughTemplate ? store.save((path + ".tmp").c_str(), true, path.c_str()) &&
                                           ::rename((path + ".tmp").c_str(), path.c_str()) == 0
                                     : store.save(path.c_str(), true, nullptr);
        if (!saved) return false;
        fileMade = true;
        applyChanges(memory, file);
        if (!store.load(path.c_str(), false, false)) return false;
        memory = file;
        return comments(path) == expectedComments;
    }

    // Another process: changes one key or drops one section of the file
    // through a store of its own, or puts a comment line into it by hand.
    bool otherWriter(const std::string& s, const std::string& k, const std::string& v,
                     uint32_t argument) {
        if (argument % 3 == 0) {
            std::vector<std::string> text = lines(readAll(path));
            size_t at = text.empty() ? 0 : argument / 3 % (text.size() + 1);
            text.insert(text.begin() + at,
                        ";c" + std::to_string(steps) + (argument & 8 ? "\n" : ""));
            std::ofstream out(path, std::ios::binary | std::ios::trunc);
            for (const std::string& line : text) out << line << (argument & 16 ? "\r\n" : "\n");
            out.close();
            fileMade = true;
            expectedComments = comments(path);
            return true;
        }
        PrefsC other;
        other.load(path.c_str(), false, false);
        ContentT change;
        SectionT* section = find(file, s, false);
        if (!section) return true;
        if (argument % 3 == 1) {
            change.push_back(SectionT{s, kPrefAsRead, {KeyT{k, v, kPrefChanged}}});
            other.setValue(s.c_str(), k.c_str(), v.c_str(), true);
        } else if (argument & 32) {
            change.push_back(SectionT{s, kPrefDeleted, {}});
            other.deleteSection(s.c_str(), false);
        } else if (find(section->keys, k, false)) {
            change.push_back(SectionT{s, kPrefAsRead, {KeyT{k, "", kPrefDeleted}}});
            other.deleteKey(s.c_str(), k.c_str());
        }
        if (!other.save(path.c_str(), true, nullptr)) return false;
        applyChanges(change, file);
        return comments(path) == expectedComments;
    }
};

}  // namespace prefsmodel
}  // namespace keel

#endif
