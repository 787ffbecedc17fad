// The linear-hashing table of intrusive elements, and its typed layers.
//
// An element carries its own chain word and its stored 32-bit hash, so the
// table allocates nothing per element. The lists are bare chains (see
// containers/list.h) whose end mark names the table: an element finds its
// table by walking to the end, and the list heads live in a growable array
// that may be moved by a byte copy. The table never rehashes as a whole: while
// the load (elements per list) is above 0.9 an insertion adds one list and
// splits exactly one old list in two, moving only that list's elements.
//
// HashTableC is generic through hashValue (the hash of a key) and keysEqual
// (a key against an element); a key is passed as the untyped address of the
// key value. HashMapM gives typed maps over it:
//
//     #include <keel/hashtbl.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     keel::HashMapM<unsigned long, int, keel::hashOf<unsigned long>,
//                    keel::equal<unsigned long>> map;
//     map.add(7, 70);                       // equal keys may coexist
//     auto hit = map.lookup(7);             // borrowing: the element stays
//     if (hit.found()) use(hit.value());
//     auto gone = map.remove(7);            // owning: deleted with `gone`
//
// Iterators test the table's generation between steps and report 0xE0CA0002
// through their status argument when someone else changed the table; their
// own removeCurrent keeps them valid. Nothing here locks: the owner of a table
// guards it.
#ifndef KEEL_HASHTBL_H
#define KEEL_HASHTBL_H

#include <stdint.h>
#include <stdio.h>

#include <keel/blobarr.h>
#include <keel/list.h>

namespace keel {

class HashTableC;

// The code an iterator leaves in its status when the table changed behind it.
const uint32_t kHashTableChanged = 0xE0CA0002u;

// The element interface. Every hash element is singly linked.
class HashElemI : public ListElemI {
public:
    ListElemI** prevLink() override { return nullptr; }
    // Address of the stored hash, written by insert.
    virtual uint32_t* hashSlot() = 0;
    // Address of the key value.
    virtual const void* key() = 0;
    // True when this element's key equals `key` under the rules of `table`.
    virtual bool matchesKey(const void* key, HashTableC* table) = 0;
    // Deletes this element.
    virtual void destroy() { delete this; }
    // "%p(0x%lX)": the element's address and `mask` AND its stored hash.
    virtual void printHashed(FILE* stream, uint32_t mask);
};

// The list heads of a table: one bare head word per array element. No
// element points at a head, so growing may move the heads by a byte copy.
class HashArrayC : public BlobArrayC {
public:
    HashArrayC() : BlobArrayC(sizeof(uintptr_t)) {}
    // Unlinks the elements of every list without destroying them, then frees
    // the storage.
    void clear() override;
    void destroyElement(void*) override {}
    // Adds one empty list at the end whose end mark names `owner`.
    void appendList(const void* owner);
    uintptr_t* heads() const { return reinterpret_cast<uintptr_t*>(data_); }
};

class HashTableC {
public:
    // One list (empty), bits_mask 0, empty_lists 1.
    HashTableC();
    // Deletes the list heads; the elements are not touched. Derived tables
    // that own their elements call eraseAll in their own destructor, while
    // their hashValue is still in place.
    virtual ~HashTableC();
    virtual uint32_t hashValue(const void* key) = 0;
    // Default: element->matchesKey(key, this).
    virtual bool keysEqual(HashElemI* element, const void* key);

    HashTableC(const HashTableC&) = delete;
    HashTableC& operator=(const HashTableC&) = delete;

    // The first element of the key's list that matches, or null. Of several
    // equal keys the newest is found.
    HashElemI* find(const void* key);
    // The next match behind `after`; with `after` null the search starts
    // behind find(key).
    HashElemI* findNext(HashElemI* after, const void* key);
    // Links the element at the head of its list; equal keys are not looked for.
    void insert(HashElemI* element);
    // Detaches what find gives for the element's key, inserts the element and
    // answers the displaced element (not destroyed) or null.
    HashElemI* replace(HashElemI* element);
    // Unlinks the element: false when it is in no list or not in its list.
    bool detach(HashElemI* element);
    // find, then detach; the element is not destroyed.
    HashElemI* detachKey(const void* key);
    // find, detach, destroy: true only when all succeeded.
    bool erase(const void* key);
    // Unlinks every element without destroying it. The list count stays.
    void detachAll();
    // Unlinks and destroys every element. The list count stays.
    void eraseAll();
    // The lists with their elements, to `stream` or stdout.
    void dump(FILE* stream);
    // Verifies mask, hashes, placement and empty count, writing faults to
    // stderr; a wrong bits_mask is repaired on the spot. True when consistent.
    bool check();

    uint32_t listCount() const { return lists->size(); }
    // The list of a hash: hash AND bits_mask, and when that is not below the
    // list count, AND bits_mask >> 1 as well.
    uint32_t listIndex(uint32_t hash) const {
        uint32_t index = hash & bits_mask;
        if (index >= lists->size()) index &= bits_mask >> 1;
        return index;
    }
    uintptr_t* listHead(uint32_t index) const { return lists->heads() + index; }
    // The first element of the chain from `word` on whose key equals `key`.
    HashElemI* matchFrom(uintptr_t word, const void* key);

    // The mask of the index rule, the lists with no element and the count of
    // insertions and removals, for checks and iterators.
    uint32_t bitsMask() const { return bits_mask; }
    uint32_t emptyLists() const { return empty_lists; }
    uint32_t currentGeneration() const { return generation; }

    // Read directly by callers, as the table's documented interface has it.
    uint32_t size;

protected:
    // Protected rather than private so that a test's own table can damage
    // them on purpose to exercise check().
    uint32_t bits_mask;
    HashArrayC* lists;
    uint32_t empty_lists;
    uint32_t generation;

private:
    void split();
    void unlinkAll(bool destroy);
};

// Detaches a linked element from whatever table its chain ends in; false
// when its chain word is 0.
bool selfDetach(HashElemI* element);

// The hash of `length` bytes, taken in big-endian groups of four. A length
// of 0 or below yields 0.
uint32_t hashOfBytes(const void* data, int32_t length);
// The hash of a zero-terminated text, taken in little-endian groups of four.
// It differs from hashOfBytes for the same text: a table uses one of them.
uint32_t hashOfCString(const char* text);

// Hash and equality functions of the typed maps.
template <typename Key>
struct hashOf;

template <>
struct hashOf<unsigned long> {
    uint32_t operator()(const unsigned long& key) const {
        return static_cast<uint32_t>(key) * 0x41C64E6Du + 0xD3DBE645u;
    }
};

template <typename Key>
struct equal {
    bool operator()(const Key& first, const Key& second) const { return first == second; }
};

// Whether a typed map may pass over an element whose stored hash differs
// from the probe's without comparing the keys: only where the hash function
// declares `kEqualKeysHashAlike` (equal keys always give equal hashes, so a
// different hash is a different key). The comparison is what a lookup pays
// most for on keys that share long prefixes; a hash that makes no such
// promise keeps every comparison, as the untyped find does.
template <typename HashFn, typename = void>
struct storedHashDecides {
    static const bool value = false;
};
template <typename HashFn>
struct storedHashDecides<HashFn, decltype(void(HashFn::kEqualKeysHashAlike))> {
    static const bool value = HashFn::kEqualKeysHashAlike;
};

// The element of a typed map. It does not detach itself when deleted.
template <typename Key, typename Value>
class HashElemM : public HashElemI {
public:
    HashElemM(const Key& key, const Value& value)
        : chain(0), hash(0), storedKey(key), value(value) {}

    uintptr_t* nextLink() final { return &chain; }
    uint32_t* hashSlot() final { return &hash; }
    const void* key() final { return &storedKey; }
    bool matchesKey(const void* key, HashTableC*) override {
        return equal<Key>()(storedKey, *static_cast<const Key*>(key));
    }

    uintptr_t chain;
    uint32_t hash;
    Key storedKey;
    Value value;
};

template <typename Key, typename Value, typename HashFn, typename EqualFn>
class HashMapM;

// What a map hands out: an element, either borrowed from the table or owned
// (detached, deleted with the result).
template <typename Key, typename Value, typename HashFn, typename EqualFn>
class HashResultM {
public:
    typedef HashMapM<Key, Value, HashFn, EqualFn> MapT;
    typedef HashElemM<Key, Value> ElemT;

    HashResultM() : table(nullptr), element(nullptr), owned(false) {}
    HashResultM(MapT* table, ElemT* element, bool owned)
        : table(table), element(element), owned(owned) {}
    // An owning source gives a fresh unlinked copy, never a shared element.
    HashResultM(const HashResultM& other)
        : table(other.table), element(other.element), owned(other.owned) {
        if (owned && element) element = new ElemT(element->storedKey, element->value);
    }
    // Moving hands the element over; the source is left empty.
    HashResultM(HashResultM&& other) noexcept
        : table(other.table), element(other.element), owned(other.owned) {
        other.element = nullptr;
        other.owned = false;
    }
    HashResultM& operator=(const HashResultM& other) {
        // Assigning a result to itself would destroy what it is about to copy.
        if (this == &other) return *this;
        release();
        table = other.table;
        element = other.element;
        owned = other.owned;
        if (owned && element) element = new ElemT(element->storedKey, element->value);
        return *this;
    }
    virtual ~HashResultM() { release(); }

    bool found() const { return element != nullptr; }
    bool isOwned() const { return owned; }
    ElemT* get() const { return element; }
    MapT* map() const { return table; }
    // Only for a result that found something.
    const Key& key() const { return element->storedKey; }
    Value& value() const { return element->value; }

private:
    void release() {
        if (owned && element) element->destroy();
        element = nullptr;
        owned = false;
    }

    MapT* table;
    ElemT* element;
    bool owned;
};

// A typed map: HashFn hashes a Key, EqualFn compares two. Elements are
// HashElemM<Key, Value>; the map destroys those it still holds when it dies.
template <typename Key, typename Value, typename HashFn, typename EqualFn>
class HashMapM : public HashTableC {
public:
    typedef HashElemM<Key, Value> ElemT;
    typedef HashResultM<Key, Value, HashFn, EqualFn> ResultT;

    HashMapM() {}
    ~HashMapM() override { eraseAll(); }

    uint32_t hashValue(const void* key) final { return HashFn()(*static_cast<const Key*>(key)); }
    bool keysEqual(HashElemI* element, const void* key) final {
        return EqualFn()(static_cast<ElemT*>(element)->storedKey, *static_cast<const Key*>(key));
    }

    // The same answer as find(&key), with the hash and the comparison called
    // directly: one hash and one chain walk, nothing allocated.
    ElemT* findElement(const Key& key) const {
        uint32_t hash = HashFn()(key);
        uintptr_t word = *listHead(listIndex(hash));
        while (word != 0 && !chainIsEnd(word)) {
            ElemT* element = static_cast<ElemT*>(static_cast<HashElemI*>(chainElement(word)));
            if ((!storedHashDecides<HashFn>::value || element->hash == hash) &&
                EqualFn()(element->storedKey, key)) {
                return element;
            }
            word = element->chain;
        }
        return nullptr;
    }

    ResultT lookup(const Key& key) { return ResultT(this, findElement(key), false); }
    void add(const Key& key, const Value& value) { insert(new ElemT(key, value)); }
    ResultT put(const Key& key, const Value& value) {
        return ResultT(this, static_cast<ElemT*>(replace(new ElemT(key, value))), true);
    }
    ResultT remove(const Key& key) {
        return ResultT(this, static_cast<ElemT*>(detachKey(&key)), true);
    }
};

// Walks a table list by list. `status` is set to 0, or to 0xE0CA0002 with a
// null answer when the table's generation moved since the last reset or own
// removal. Nothing is recorded anywhere else: callers decide.
class HashIteratorC {
public:
    explicit HashIteratorC(HashTableC* table, bool allElements = true);

    void reset();
    // Moves on and answers the element, or null at the end.
    HashElemI* next(uint32_t& status);
    // The current element, or as next when there is none yet.
    HashElemI* current(uint32_t& status);
    // Moves on, unlinks the element that was current and answers it, not
    // destroyed. The iterator stays valid.
    HashElemI* removeCurrent(uint32_t& status);

    HashTableC* table;
    uint32_t listIndex;
    HashElemI* currentElement;
    uint32_t generation;
    bool allElements;

private:
    bool changed(uint32_t& status) const;
    // The element behind `from` (or the first of list `index` when `from` is
    // null), moving `index` along with it.
    HashElemI* successor(uint32_t& index, HashElemI* from) const;
};

// The typed iterator of a map.
template <typename Key, typename Value, typename HashFn, typename EqualFn>
class HashIteratorM : public HashIteratorC {
public:
    typedef HashElemM<Key, Value> ElemT;
    typedef HashResultM<Key, Value, HashFn, EqualFn> ResultT;
    typedef HashMapM<Key, Value, HashFn, EqualFn> MapT;

    explicit HashIteratorM(MapT* map, bool allElements = true) : HashIteratorC(map, allElements) {}
    virtual ~HashIteratorM() {}

    // Borrowing: the element stays in the map.
    ResultT current(uint32_t& status) {
        return ResultT(static_cast<MapT*>(table),
                       static_cast<ElemT*>(HashIteratorC::current(status)), false);
    }
    ElemT* next(uint32_t& status) { return static_cast<ElemT*>(HashIteratorC::next(status)); }
    // The detached element now belongs to the caller.
    ElemT* removeCurrent(uint32_t& status) {
        return static_cast<ElemT*>(HashIteratorC::removeCurrent(status));
    }
};

}  // namespace keel

#endif
