// A hash table keyed by strings, for elements that callers define.
//
// StringKeyedHashC picks the case-sensitive or the case-blind string hash by
// its flag; its elements derive from StringKeyedHashElemC, which holds the key
// and compares it under the table's flag. An element deleted while still
// linked takes itself out of its table first.
//
//     #include <keel/strkeyed.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     struct EntryC : keel::StringKeyedHashElemC {
//         explicit EntryC(const keel::StringC& name) : StringKeyedHashElemC(name) {}
//         int payload = 0;
//     };
//     keel::StringKeyedHashC table(true);
//     table.insert(new EntryC(keel::StringC("Name", "ascii")));
//     keel::StringC probe("NAME", "ascii");
//     auto* hit = static_cast<EntryC*>(table.find(&probe));
#ifndef KEEL_STRKEYED_H
#define KEEL_STRKEYED_H

#include <keel/string.h>

#include <keel/hashtbl.h>

namespace keel {

// The string hashes and key equality of every string-keyed table.
//
// The hash of a string's "utf8" text by hashOfBytes.
uint32_t hashOfString(const StringC& string);
// A case-blind hash of a string: ASCII bytes OR 0x20, other characters
// through toLowerChar.
uint32_t hashOfStringNoCase(const StringC& string);
// Equal lengths in characters, then compare (or compareNoCase) gives 0.
bool stringKeysEqual(const StringC& first, const StringC& second, bool caseInsensitive);

template <>
struct equal<StringC> {
    bool operator()(const StringC& first, const StringC& second) const {
        return stringKeysEqual(first, second, false);
    }
};

template <typename Key>
struct StringMapHashOf;

template <>
struct StringMapHashOf<StringC> {
    // Equal keys have equal "utf8" texts, hence equal hashes.
    static const bool kEqualKeysHashAlike = true;
    uint32_t operator()(const StringC& key) const { return hashOfString(key); }
};

// A typed map keyed by strings (or by another Key with a StringMapHashOf).
template <typename Value, typename Key = StringC>
class StringMapM : public HashMapM<Key, Value, StringMapHashOf<Key>, equal<Key>> {
public:
    ~StringMapM() override { this->eraseAll(); }
};

class StringKeyedHashC : public HashTableC {
public:
    explicit StringKeyedHashC(bool caseInsensitive) : caseInsensitive(caseInsensitive) {}
    // Destroys the elements still linked.
    ~StringKeyedHashC() override;
    // `key` is the address of a StringC.
    uint32_t hashValue(const void* key) override;

    bool caseInsensitive;
};

class StringKeyedHashElemC : public HashElemI {
public:
    explicit StringKeyedHashElemC(const StringC& key) : keyString(key), chain(0), hash(0) {}
    // Detaches itself when still linked, so the table stays consistent.
    ~StringKeyedHashElemC() override;

    uintptr_t* nextLink() override { return &chain; }
    uint32_t* hashSlot() override { return &hash; }
    const void* key() override { return &keyString; }
    // `table` must be a StringKeyedHashC: its flag decides the comparison.
    bool matchesKey(const void* key, HashTableC* table) override;
    // "\"%s\"@%p(0x%lX)" with the key in the system's 8-bit encoding.
    void printHashed(FILE* stream, uint32_t mask) override;

    StringC keyString;
    uintptr_t chain;
    uint32_t hash;
};

// Writes "\"%s\"@%p(0x%lX)" for a string-keyed element.
void printStringHashed(FILE* stream, const StringC& key, const void* element, uint32_t hash);

}  // namespace keel

#endif
