// A set of strings over the hash table, case-sensitive or case-blind.
//
// A set holds a key once: adding a key that is there replaces the entry, so
// the newest spelling wins.
//
//     #include <keel/strset.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     keel::StringSetC names(true);
//     names.add(keel::StringC("Alpha", "ascii"));
//     names.contains(keel::StringC("ALPHA", "ascii"));   // true
#ifndef KEEL_STRSET_H
#define KEEL_STRSET_H

#include <keel/string.h>

#include <keel/hashtbl.h>

namespace keel {

// One member: the string itself, then its link and stored hash.
class StringSetEntryC : public StringC, public HashElemI {
public:
    explicit StringSetEntryC(const StringC& text) : StringC(text), chain(0), hash(0) {}
    // Detaches itself when still linked.
    ~StringSetEntryC() override;

    uintptr_t* nextLink() override { return &chain; }
    uint32_t* hashSlot() override { return &hash; }
    const void* key() override { return static_cast<const StringC*>(this); }
    // `table` must be a StringSetC: its flag decides the comparison.
    bool matchesKey(const void* key, HashTableC* table) override;
    void printHashed(FILE* stream, uint32_t mask) override;

    uintptr_t chain;
    uint32_t hash;
};

class StringSetC : public HashTableC {
public:
    explicit StringSetC(bool caseInsensitive) : caseInsensitive(caseInsensitive) {}
    ~StringSetC() override;
    uint32_t hashValue(const void* key) override;

    bool contains(const StringC& text) { return find(&text) != nullptr; }
    // Adds a new entry; an entry with an equal key is replaced and deleted.
    void add(const StringC& text);
    bool remove(const StringC& text) { return erase(&text); }
    uint32_t size() const { return HashTableC::size; }
    void clear() { eraseAll(); }

    bool caseInsensitive;
};

}  // namespace keel

#endif
