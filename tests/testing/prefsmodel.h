// A plain model of a preference store and of the ini file it merges into,
// and a driver that applies random operations to a real PrefsC, to the file
// (as another writer would) and to the model, and says where they first
// differ. Shared by the random-sequence test and the fuzz target.
//
//     keel::prefsmodel::DriverC driver("/tmp/dir/m.ini");
//     std::string broken = driver.step(operation, argument);  // empty: agree
//
// The store's model is its records with their states, deleted ones kept; the
// file's is its sections of keys in order, plus its comment lines, which
// every merge must keep in order. A commit reads its file back with a load
// or from the bytes it wrote (loadWritten), which must come to the same,
// every record as a fresh load of the file makes it.
#ifndef KEEL_TESTS_TESTING_PREFSMODEL_H
#define KEEL_TESTS_TESTING_PREFSMODEL_H

#include <stdint.h>
#include <stdio.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "config/prefs.h"
#include "testing/filetext.h"

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
    bool loaded = false;  // read from the file by a load
};
typedef std::vector<SectionT> ContentT;

// The first record of the name (a live one only with `live`), or null.
template <typename T>
T* find(std::vector<T>& list, const std::string& name, bool live) {
    for (T& item : list)
        if (item.name == name) return live && item.state == kPrefDeleted ? nullptr : &item;
    return nullptr;
}

// The file's bytes without the byte-order mark that a store writes ("" when
// there is no file).
inline std::string readAll(const std::string& path) {
    std::string all = testkit::readFileAt(path);
    return all == "<missing>" ? "" : all.compare(0, 3, "\xEF\xBB\xBF") == 0 ? all.substr(3) : all;
}

inline std::vector<std::string> lines(const std::string& text, bool onlyComments = false) {
    std::vector<std::string> result;
    std::string line;
    for (std::istringstream in(text); std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!onlyComments || (!line.empty() && line[0] == ';')) result.push_back(line);
    }
    return result;
}

// The live content in order, "[section]key=value;...", with each key's state
// behind its value when asked.
inline std::string dump(PrefsC& prefs, bool states = false) {
    std::string text;
    for (const char* const* name = prefs.getSectionNames(); *name; ++name) {
        text += std::string("[") + *name + "]";
        for (PrefKeyT* const* key = prefs.getKeys(*name); *key; ++key)
            text += std::string((*key)->name) + "=" + (*key)->value +
                    (states ? std::to_string((*key)->state) : "") + ";";
    }
    return text;
}

// Every record of the live sections in order, deleted keys too, with its
// state; then which of `names` find a section, a deleted one too. A store
// that read back what it wrote must come to what a load of the file gives.
inline std::string records(PrefsC& prefs, const std::vector<std::string>& names) {
    std::string text;
    for (const char* const* name = prefs.getSectionNames(); *name; ++name) {
        text += std::string("[") + *name + "]";
        PrefKeyChainT* chain = prefs.findSection(*name, false);
        for (PrefKeyT* key = chain ? chain->first : nullptr; key; key = key->next)
            text += std::string(key->name) + "=" + (key->value ? key->value : "") +
                    std::to_string(key->state) + ";";
    }
    for (const std::string& name : names) text += prefs.findSection(name.c_str(), true) ? "+" : "-";
    return text;
}

inline std::string dump(const ContentT& content) {
    std::string text;
    for (const SectionT& section : content) {
        if (section.state == kPrefDeleted) continue;
        text += "[" + section.name + "]";
        for (const KeyT& key : section.keys)
            if (key.state != kPrefDeleted)
                text += key.name + "=" + key.value + std::to_string(key.state) + ";";
    }
    return text;
}

class DriverC {
public:
    explicit DriverC(const std::string& file) : path(file) { ::remove(path.c_str()); }

    std::string step(uint32_t operation, uint32_t argument) {
        std::string s = "s" + std::to_string(argument % 5),
                    k = "k" + std::to_string(argument / 5 % 6);
        std::string v = (argument & 64 ? "v %s=[" : "v") + std::to_string(++steps) +
                        (argument & 128 ? " ;x" : "");
        SectionT* section = find(memory, s, true);
        KeyT* key = section ? find(section->keys, k, true) : nullptr;
        bool answer = true, expected = true;
        std::vector<KeyT> none;
        switch (operation % 9) {
        case 0:
        case 1:
            answer = store.setValue(s.c_str(), k.c_str(), v.c_str(), true);
            section = ensure(s);
            if (!(key = find(section->keys, k, false)))
                section->keys.push_back(KeyT{k, "", 0}), key = &section->keys.back();
            key->value = v, key->state = kPrefChanged;
            break;
        case 2:
            answer = store.deleteKey(s.c_str(), k.c_str()), expected = key != nullptr;
            if (key) key->state = kPrefDeleted;
            break;
        case 3:
            // Deleted sections are found too, and hold only deleted keys.
            section = find(memory, s, false);
            expected = section && !(argument & 1 && !section->keys.empty());
            answer = store.deleteSection(s.c_str(), argument & 1);
            if (expected) section->state = kPrefDeleted;
            for (KeyT& each : expected ? section->keys : none) each.state = kPrefDeleted;
            break;
        case 4:
            answer = store.createSection(s.c_str()), expected = !section;
            if (expected) ensure(s);
            break;
        case 5:
            if (!commit(argument & 1, argument & 2)) return "commit";
            break;
        case 6:
            if (!otherWriter(s, k, v, argument)) return "other writer";
            break;
        case 7:
            if (store.load(path.c_str(), false, false))
                loadFromFile();
            else if (fileMade)
                return "load";
            break;
        }
        std::string what = " of operation " + std::to_string(operation % 9);
        if (answer != expected) return "answer" + what;
        return dump(store, true) == dump(memory) ? "" : "content after" + what;
    }

    std::string path;
    PrefsC store;
    ContentT memory;  // the store's records
    ContentT file;    // what the file holds, all in state 0
    std::vector<std::string> expectedComments;
    uint32_t steps = 0;
    bool fileMade = false;

private:
    // The live section, else a deleted one revived (its keys still
    // deleted; as read when a load found it, else still a change), else a
    // new one made in memory.
    SectionT* ensure(const std::string& name) {
        SectionT* section = find(memory, name, false);
        if (!section)
            memory.push_back(SectionT{name, kPrefChanged, {}}), section = &memory.back();
        else if (section->state == kPrefDeleted)
            section->state = section->loaded ? kPrefAsRead : kPrefChanged;
        return section;
    }

    // The store after a load of the file: every record as read.
    void loadFromFile() {
        memory = file;
        for (SectionT& section : memory) section.loaded = true;
    }

    // What a merge of `changes` into `target` leaves: sections and keys
    // changed in memory set in place or appended, deleted ones removed.
    static void applyChanges(const ContentT& changes, ContentT& target) {
        for (const SectionT& section : changes) {
            size_t at = 0;
            while (at < target.size() && target[at].name != section.name) ++at;
            if (section.state == kPrefDeleted) {
                if (at < target.size()) target.erase(target.begin() + at);
                continue;
            }
            if (at == target.size()) target.push_back(SectionT{section.name, kPrefChanged, {}});
            // A section the file no longer has comes back with its changes
            // only, and only if it has any; one made in memory with all.
            bool fresh = target[at].state == kPrefChanged;
            target[at].state = kPrefAsRead;
            for (const KeyT& key : section.keys) {
                KeyT* place = find(target[at].keys, key.name, false);
                if (key.state == kPrefDeleted && place)
                    target[at].keys.erase(target[at].keys.begin() + (place - &target[at].keys[0]));
                if (key.state == kPrefDeleted ||
                    (key.state == kPrefAsRead && (!fresh || section.state != kPrefChanged)))
                    continue;
                if (place)
                    place->value = key.value;
                else
                    target[at].keys.push_back(KeyT{key.name, key.value, kPrefAsRead});
            }
            if (fresh && section.state == kPrefAsRead && target[at].keys.empty())
                target.erase(target.begin() + at);
        }
    }

    // A merge, straight or through a template and a move, read back with a
    // load or from the bytes it wrote (as the registry's commit does).
    bool commit(bool throughTemplate, bool fromBytes) {
        std::string temporary = path + ".tmp", written;
        if (throughTemplate ? !store.save(temporary.c_str(), true, path.c_str(), &written) ||
                                  ::rename(temporary.c_str(), path.c_str()) != 0
                            : !store.save(path.c_str(), true, nullptr, &written))
            return false;
        fileMade = true;
        applyChanges(memory, file);
        PrefsC loaded;
        if (!(fromBytes ? store.loadWritten(path.c_str(), written)
                        : store.load(path.c_str(), false, false)) ||
            !loaded.load(path.c_str(), false, false))
            return false;
        loadFromFile();
        const std::vector<std::string> names = {"s0", "s1", "s2", "s3", "s4"};
        return records(store, names) == records(loaded, names) &&
               lines(readAll(path), true) == expectedComments;
    }

    // Another process: changes or deletes one key or drops one section of
    // the file through a store of its own, or puts a comment line (and
    // maybe an empty one) into it by hand, with its own line ends.
    bool otherWriter(const std::string& s, const std::string& k, const std::string& v,
                     uint32_t argument) {
        if (argument % 3 == 0) {
            std::vector<std::string> text = lines(readAll(path));
            text.insert(text.begin() + argument / 3 % (text.size() + 1),
                        ";c" + std::to_string(steps) + (argument & 8 ? "\n" : ""));
            std::ofstream out(path, std::ios::binary | std::ios::trunc);
            for (const std::string& line : text) out << line << (argument & 16 ? "\r\n" : "\n");
            out.close();
            fileMade = true;
            expectedComments = lines(readAll(path), true);
            return true;
        }
        SectionT* section = find(file, s, false);
        if (!section) return true;
        PrefsC other;
        other.load(path.c_str(), false, false);
        // With bit 2, a value of the old one's size, written over the file
        // in place: the file keeps its size and inode, only bytes differ.
        KeyT* old = find(section->keys, k, false);
        std::string value = argument & 4 && old && !old->value.empty() ? old->value : v;
        if (value != v) value.back() = value.back() == '1' ? '2' : '1';
        SectionT change{s, kPrefAsRead, {KeyT{k, value, kPrefChanged}}};
        if (argument % 3 == 1) {
            other.setValue(s.c_str(), k.c_str(), value.c_str(), true);
        } else if (argument & 32) {
            change.state = kPrefDeleted;
            other.deleteSection(s.c_str(), false);
        } else {
            change.keys[0].state = kPrefDeleted;
            other.deleteKey(s.c_str(), k.c_str());
        }
        std::string copy = path + ".other";
        if (!(argument & 4) ? !other.save(path.c_str(), true, nullptr)
                            : !other.save(copy.c_str(), true, path.c_str()) ||
                                  !(std::ofstream(path, std::ios::binary | std::ios::trunc)
                                    << testkit::readFileAt(copy)))
            return false;
        applyChanges({change}, file);
        return lines(readAll(path), true) == expectedComments;
    }
};

}  // namespace prefsmodel
}  // namespace keel

#endif
