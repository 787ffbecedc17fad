// The preference store in memory: records, lookups, changes, the list
// operations and their per-thread scratch record. Reading and writing files
// is in prefs_file.cpp.
//
// Invariants: every text a record holds is its own array-new copy (a value
// set through this file is never null: a null value is stored as the empty
// text); deleted records stay in their chains until clear, so that a later
// change revives them in place and a merge knows which lines to drop; no two
// sections of a store bear names that compareNames calls equal (every way a
// section is made searches all sections, deleted ones too, first), and no two
// named keys of a chain either, which is what lets the name index and
// `lastSection_` answer for the first match; every section and every named
// key is in the index from the moment it is linked into its chain until
// clear; a chain that is not indexed has every named key in its table of
// signatures, in chain order, from the moment it is linked; `length` counts
// a chain's records; `written` marks are clear outside a merge. Reads
// (lookups, getString, the lists) write nothing of the store, so that reads
// of one store may run on several threads at once.
#include "config/prefs.h"

#include <ctype.h>
#include <langinfo.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include <keel/atomic.h>
#include <keel/strdup.h>
#include <keel/strlcpy.h>

#include "frame/loadorder.h"
#include "text/utf8view.h"

namespace keel {

namespace {

pthread_key_t scratchKey;

void freeScratch(void* record) {
    PrefScratchT* scratch = static_cast<PrefScratchT*>(record);
    if (!scratch) return;
    free(scratch->keyNames);
    free(scratch->keyText);
    delete[] scratch->sectionText;
    delete[] scratch->sectionNames;
    free(scratch->keyList);
    if (scratch->freeReadPlaces) scratch->freeReadPlaces(scratch->readPlaces);
    free(scratch);
}

void deleteScratchKey(void*) { pthread_key_delete(scratchKey); }

size_t measure(const char* text) { return measureText(text); }

bool isMissing(const char* name) { return !name || !*name; }

// The section generations of all stores of the process come from one count,
// so that a generation never recurs, not even in a store made where another
// stood.
uint64_t nextSectionStamp() {
    static uint64_t count = 0;
    return atomicAddRelaxed(&count, 1);
}

bool isLineSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Where `value` is without blanks and tabs in front and without tabs, line
// feeds, carriage returns and blanks behind (a null value is empty).
const char* trimmedValue(const char* value, size_t* length) {
    if (!value) value = "";
    size_t end = measure(value);
    size_t start = 0;
    while (start < end && (value[start] == ' ' || value[start] == '\t')) ++start;
    while (end > start && isLineSpace(value[end - 1])) --end;
    *length = end - start;
    return value + start;
}

char* copyBytes(char* out, const char* bytes, size_t length) {
    memcpy(out, bytes, length);
    out[length] = '\0';
    return out;
}

// Copies `name` with its NUL to `out`, moves `out` behind the copy and
// answers the copy.
char* appendName(char*& out, const char* name) {
    size_t length = measure(name);
    char* copy = copyBytes(out, name, length);
    out += length + 1;
    return copy;
}

// A key record, its name and its first value in one block: a store of many
// keys makes and frees one block per key instead of three. A value set
// later has a block of its own.
uint32_t keySignature(const char* name);

PrefKeyT* newKey(const char* name, const char* value) {
    size_t nameLength = measure(name);
    size_t valueLength = 0;
    const char* valueText = trimmedValue(value, &valueLength);
    char* block = new char[sizeof(PrefKeyT) + nameLength + valueLength + 2];
    PrefKeyT* key = new (block) PrefKeyT();
    key->name = copyBytes(block + sizeof(PrefKeyT), name, nameLength);
    key->value = copyBytes(key->name + nameLength + 1, valueText, valueLength);
    key->signature = keySignature(key->name);
    return key;
}

bool hasOwnValueBlock(const PrefKeyT* key) {
    return key->value && key->value != key->name + measure(key->name) + 1;
}

void setKeyValue(PrefKeyT* key, const char* value) {
    if (hasOwnValueBlock(key)) delete[] key->value;
    size_t length = 0;
    const char* text = trimmedValue(value, &length);
    key->value = copyBytes(new char[length + 1], text, length);
}

// The chain's table of signatures goes (the chain is indexed from now on,
// or freed).
void freeKeyTable(PrefKeyChainT* chain) {
    // The block is a uint32_t array with room for the records behind the
    // signatures (see addToKeyTable).
    delete[] chain->signatures;
    chain->signatures = nullptr;
    chain->named = 0;
    chain->room = 0;
}

// Appends a named key to the chain's table of signatures, in 8 and then
// 24 places (a chain is indexed before it holds more).
void addToKeyTable(PrefKeyChainT* chain, PrefKeyT* key) {
    if (chain->named == chain->room) {
        uint32_t room = chain->room < 8 ? 8 : chain->room * 3;
        // Signatures first, the records behind them; the records' part
        // starts at an even count of signatures, aligned for a pointer.
        uint32_t* block = new uint32_t[room + room * sizeof(PrefKeyT*) / sizeof(uint32_t)];
        PrefKeyT** keys = reinterpret_cast<PrefKeyT**>(block + room);
        for (uint32_t i = 0; i < chain->named; ++i) {
            block[i] = chain->signatures[i];
            keys[i] = chain->keys()[i];
        }
        delete[] chain->signatures;
        chain->signatures = block;
        chain->room = room;
    }
    chain->signatures[chain->named] = key->signature;
    chain->keys()[chain->named] = key;
    ++chain->named;
}

void freeChain(PrefKeyChainT* chain) {
    if (!chain) return;
    PrefKeyT* key = chain->first;
    while (key) {
        PrefKeyT* next = key->next;
        if (hasOwnValueBlock(key)) delete[] key->value;
        key->~PrefKeyT();
        delete[] reinterpret_cast<char*>(key);
        key = next;
    }
    freeKeyTable(chain);
    delete chain;
}

// Grows a realloc'd array to hold `wanted` entries; false (array unchanged)
// when memory runs out.
template <typename T>
bool growArray(T*& array, int32_t& capacity, size_t wanted) {
    if (wanted <= static_cast<size_t>(capacity > 0 ? capacity : 0)) return true;
    if (wanted > static_cast<size_t>(INT32_MAX)) return false;
    size_t fresh = wanted < 16 ? 16 : wanted + wanted / 2;
    if (fresh > static_cast<size_t>(INT32_MAX)) fresh = INT32_MAX;
    T* grown = static_cast<T*>(realloc(array, fresh * sizeof(T)));
    if (!grown) return false;
    array = grown;
    capacity = static_cast<int32_t>(fresh);
    return true;
}

// A hash of a name that two names equal by compareNames share in every
// locale: bytes that no locale folds (ASCII digits, punctuation, blanks) count
// as they are, while every letter and every byte above 0x7F counts as one
// and the same, since a locale may fold any of these onto another (the
// Turkish ones fold "I" onto a byte above 0x7F).
size_t nameSignature(const char* name) {
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p; ++p) {
        unsigned char c = *p;
        bool letterLike = c >= 0x80 || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
        hash = (hash ^ (letterLike ? 0x100u : c)) * 1099511628211ull;
    }
    return static_cast<size_t>(hash ^ (hash >> 32));
}

// A key's signature: a walk over a short chain compares these first, so
// that most names are told apart without looking at their bytes.
uint32_t keySignature(const char* name) { return static_cast<uint32_t>(nameSignature(name)); }

bool isAsciiLetter(unsigned c) { return static_cast<unsigned>((c | 0x20) - 'a') <= 25u; }

// compareNames(first, second) == 0, with the common cases inline: equal
// bytes, and a first difference between two bytes that no locale folds.
inline bool sameName(const char* first, const char* second) {
    const unsigned char* a = reinterpret_cast<const unsigned char*>(first);
    const unsigned char* b = reinterpret_cast<const unsigned char*>(second);
    for (;; ++a, ++b) {
        unsigned x = *a;
        unsigned y = *b;
        if (x == y) {
            if (x == 0) return true;
            continue;
        }
        if (x < 0x80 && y < 0x80 && !isAsciiLetter(x) && !isAsciiLetter(y)) return false;
        // The bytes before are equal, so the rest decides.
        return compareNames(reinterpret_cast<const char*>(a), reinterpret_cast<const char*>(b)) ==
               0;
    }
}

}  // namespace

// --- Helpers ---

int compareNames(const char* first, const char* second) {
    const unsigned char* a = reinterpret_cast<const unsigned char*>(first);
    const unsigned char* b = reinterpret_cast<const unsigned char*>(second);
    for (;; ++a, ++b) {
        int x = *a;
        int y = *b;
        if (x != y) {
            // No locale folds an ASCII digit, blank or punctuation mark, so
            // two such bytes differ as they are (the common case of names
            // that differ in a number).
            if (x < 0x80 && y < 0x80 && !isAsciiLetter(x) && !isAsciiLetter(y)) return x - y;
            if (isupper(x)) x = tolower(x);
            if (isupper(y)) y = tolower(y);
            if (x != y) return x - y;
        }
        if (x == 0) return 0;
    }
}

char* copyText(const char* text) { return duplicateText(text); }

void trimLine(StringC& line) {
    uint32_t front = 0;
    uint32_t back = 0;
    {
        Utf8ViewC view(line);
        const char* text = view.chars();
        uint32_t size = view.size();
        while (front < size && isLineSpace(text[front])) ++front;
        while (back < size - front && isLineSpace(text[size - 1 - back])) ++back;
    }
    if (front == 0 && back == 0) return;
    // The set is ASCII, so the bytes cut are characters too.
    int32_t keep = line.length() - static_cast<int32_t>(front + back);
    line = line.substring(static_cast<int32_t>(front), keep);
}

PrefScratchT* prefScratch() {
    void* record = pthread_getspecific(scratchKey);
    if (record) return static_cast<PrefScratchT*>(record);
    PrefScratchT* fresh = static_cast<PrefScratchT*>(calloc(1, sizeof(PrefScratchT)));
    if (fresh) pthread_setspecific(scratchKey, fresh);
    return fresh;
}

void loadStepPrefs() {
    pthread_key_create(&scratchKey, freeScratch);
    pthread_setspecific(scratchKey, nullptr);
    registerExitAction(deleteScratchKey, nullptr);
}

// --- Store ---

PrefsC::PrefsC()
    : fileName(nullptr),
      sections(nullptr),
      fallback(nullptr),
      cursor(nullptr),
      sectionGeneration_(nextSectionStamp()) {}

PrefsC::PrefsC(const char* name)
    : fileName(copyText(name)),
      sections(nullptr),
      fallback(nullptr),
      cursor(nullptr),
      sectionGeneration_(nextSectionStamp()) {}

PrefsC::~PrefsC() {
    clear();
    // The chain is deleted one store at a time here rather than by
    // recursion, so that a long chain cannot exhaust the stack.
    PrefsC* next = fallback;
    fallback = nullptr;
    while (next) {
        PrefsC* after = next->fallback;
        next->fallback = nullptr;
        delete next;
        next = after;
    }
}

PrefsC* PrefsC::setFallback(PrefsC* next) {
    fallback = next;
    return this;
}

// --- Index ---

namespace {

size_t slotHash(const PrefKeyChainT* owner, const char* name) {
    uint64_t mixed =
        nameSignature(name) ^
        (static_cast<uint64_t>(reinterpret_cast<uintptr_t>(owner)) * 0x9E3779B97F4A7C15ull);
    return static_cast<size_t>(mixed ^ (mixed >> 29));
}

const char* recordName(const PrefKeyChainT* owner, void* record) {
    return owner ? static_cast<PrefKeyT*>(record)->name : static_cast<PrefSectionT*>(record)->name;
}

}  // namespace

void* PrefsC::indexFind(const PrefKeyChainT* owner, const char* name) const {
    if (index_.empty()) return nullptr;
    size_t hash = slotHash(owner, name);
    size_t mask = index_.size() - 1;
    for (size_t slot = hash & mask; index_[slot].record; slot = (slot + 1) & mask) {
        const IndexEntryT& entry = index_[slot];
        // A chain's own entry (record == owner) only marks it as indexed.
        if (entry.hash == hash && entry.owner == owner && entry.record != owner &&
            sameName(recordName(owner, entry.record), name))
            return entry.record;
    }
    return nullptr;
}

bool PrefsC::isIndexed(const PrefKeyChainT* chain) const { return chain->indexed; }

void PrefsC::indexAdd(const PrefKeyChainT* owner, const char* name, void* record) {
    if ((indexCount_ + 1) * 2 > index_.size()) {
        std::vector<IndexEntryT> grown(index_.empty() ? 64 : index_.size() * 2,
                                       IndexEntryT{0, nullptr, nullptr});
        size_t mask = grown.size() - 1;
        for (const IndexEntryT& entry : index_) {
            if (!entry.record) continue;
            size_t slot = entry.hash & mask;
            while (grown[slot].record) slot = (slot + 1) & mask;
            grown[slot] = entry;
        }
        index_.swap(grown);
    }
    size_t hash = slotHash(owner, name);
    size_t mask = index_.size() - 1;
    size_t slot = hash & mask;
    while (index_[slot].record) slot = (slot + 1) & mask;
    index_[slot] = IndexEntryT{hash, owner, record};
    ++indexCount_;
}

// A read looks at lastSection_ but never sets it: reads of one store may run
// on several threads at once, and only a change (single-threaded by the
// store's contract) may write what the store keeps.
PrefSectionT* PrefsC::findSectionRecord(const char* name, bool includeDeleted) const {
    if (isMissing(name)) return nullptr;
    PrefSectionT* found = lastSection_;
    if (!found || !sameName(found->name, name)) {
        found = static_cast<PrefSectionT*>(indexFind(nullptr, name));
        if (!found) return nullptr;
    }
    return !includeDeleted && found->state == kPrefDeleted ? nullptr : found;
}

PrefSectionT* PrefsC::findSectionToChange(const char* name, bool includeDeleted) {
    PrefSectionT* found = findSectionRecord(name, true);
    if (!found) return nullptr;
    lastSection_ = found;
    return !includeDeleted && found->state == kPrefDeleted ? nullptr : found;
}

// A chain is searched from its start until it grows to kIndexFrom keys;
// from then on its keys are found through the index, so that a section of
// many keys costs no walk per key.
PrefKeyT* PrefsC::findKey(const PrefKeyChainT* chain, const char* name, bool includeDeleted,
                          size_t* walked) const {
    // A free line (empty name) is never found.
    if (!chain || isMissing(name)) return nullptr;
    PrefKeyT* key = nullptr;
    if (isIndexed(chain)) {
        key = static_cast<PrefKeyT*>(indexFind(chain, name));
        if (walked) *walked = SIZE_MAX;
    } else {
        // The first named key of the name in chain order, as a walk along
        // the chain finds it; a free line is never in the table.
        uint32_t signature = keySignature(name);
        const uint32_t* signatures = chain->signatures;
        for (uint32_t i = 0, count = chain->named; i < count; ++i) {
            if (signatures[i] != signature) continue;
            PrefKeyT* candidate = chain->keys()[i];
            if (sameName(candidate->name, name)) {
                key = candidate;
                break;
            }
        }
        if (walked) *walked = chain->length;
    }
    return key && !includeDeleted && key->state == kPrefDeleted ? nullptr : key;
}

// Sets the key, or appends a new record at the end of the chain; see
// setValue.
void PrefsC::setKey(PrefKeyChainT* chain, const char* name, const char* value, bool changed) {
    size_t walked = 0;
    PrefKeyT* key = findKey(chain, name, true, &walked);
    ++changes_;
    if (key && changed && !otherChanges_ && valueChanges_.size() < kValueChangesKept) {
        valueChanges_.push_back(ValueChangeT{chain, key});
    } else {
        otherChanges_ = true;
    }
    // A value set as read no longer is what its line in the kept bytes says.
    if (key && !changed) exactAt_ = ~0ull;
    if (key) {
        setKeyValue(key, value);
    } else {
        ++recordsMade_;
        key = newKey(name, value);
        PrefKeyT** link = chain == lastChain_ ? &lastKey_->next : &chain->first;
        while (*link) link = &(*link)->next;
        *link = key;
        ++chain->length;
        lastChain_ = chain;
        lastKey_ = key;
        if (walked == SIZE_MAX) {
            if (key->name[0]) indexAdd(chain, key->name, key);
        } else if (walked + 1 >= kIndexFrom) {
            indexAdd(chain, "", chain);
            chain->indexed = true;
            freeKeyTable(chain);
            for (PrefKeyT* each = chain->first; each; each = each->next) {
                if (each->name[0]) indexAdd(chain, each->name, each);
            }
        } else if (key->name[0]) {
            addToKeyTable(chain, key);
        }
    }
    key->state = changed ? kPrefChanged : kPrefAsRead;
    key->written = false;
}

PrefKeyChainT* PrefsC::findSection(const char* name, bool includeDeleted) {
    PrefSectionT* section = findSectionRecord(name, includeDeleted);
    return section ? section->keys : nullptr;
}

PrefKeyChainT* PrefsC::ensureSection(const char* name, bool fromFile) {
    if (isMissing(name)) return nullptr;
    PrefSectionT* section = findSectionToChange(name, true);
    if (section) {
        // Brought back after a delete. A section that was never in the file
        // and is empty would read as unchanged and never reach the file:
        // it stays a change of its own.
        section->state = fromFile || section->loaded ? kPrefAsRead : kPrefChanged;
        section->loaded = section->loaded || fromFile;
        section->written = false;
    } else {
        ++recordsMade_;
        section = new PrefSectionT();
        section->name = copyText(name);
        section->state = fromFile ? kPrefAsRead : kPrefChanged;
        section->loaded = fromFile;
        (lastInChain_ ? lastInChain_->next : sections) = section;
        lastInChain_ = section;
        lastSection_ = section;
        indexAdd(nullptr, section->name, section);
    }
    if (!section->keys) section->keys = new PrefKeyChainT();
    sectionGeneration_ = nextSectionStamp();
    ++changes_;
    otherChanges_ = true;
    return section->keys;
}

bool PrefsC::createSection(const char* name) {
    if (findSectionToChange(name, false)) return false;
    return ensureSection(name, false) != nullptr;
}

bool PrefsC::deleteSection(const char* name, bool onlyIfEmpty) {
    PrefSectionT* section = findSectionToChange(name, true);
    if (!section || !section->keys) return false;
    if (onlyIfEmpty && section->keys->first) return false;
    section->state = kPrefDeleted;
    for (PrefKeyT* key = section->keys->first; key; key = key->next) key->state = kPrefDeleted;
    sectionGeneration_ = nextSectionStamp();
    ++changes_;
    otherChanges_ = true;
    return true;
}

const char* const* PrefsC::getSectionNames() {
    PrefScratchT* scratch = prefScratch();
    if (!scratch) return nullptr;
    size_t count = 0;
    size_t bytes = 0;
    for (PrefSectionT* section = sections; section; section = section->next) {
        if (section->state == kPrefDeleted) continue;
        ++count;
        bytes += measure(section->name) + 1;
    }
    delete[] scratch->sectionText;
    delete[] scratch->sectionNames;
    scratch->sectionText = new char[bytes + 1];
    scratch->sectionNames = new char*[count + 1];
    char* out = scratch->sectionText;
    size_t index = 0;
    for (PrefSectionT* section = sections; section; section = section->next) {
        if (section->state == kPrefDeleted) continue;
        scratch->sectionNames[index++] = appendName(out, section->name);
    }
    scratch->sectionNames[index] = nullptr;
    return scratch->sectionNames;
}

const char* const* PrefsC::getKeyNames(const char* section) {
    PrefSectionT* record = findSectionRecord(section, false);
    if (!record || !record->keys) return nullptr;
    PrefScratchT* scratch = prefScratch();
    if (!scratch) return nullptr;
    size_t count = 0;
    size_t bytes = 0;
    for (PrefKeyT* key = record->keys->first; key; key = key->next) {
        if (key->state == kPrefDeleted) continue;
        ++count;
        bytes += measure(key->name) + 1;
    }
    if (!growArray(scratch->keyNames, scratch->keyNameCapacity, count + 1)) return nullptr;
    if (bytes + 1 > scratch->keyTextSize) {
        if (bytes + 1 > UINT32_MAX) return nullptr;
        char* grown = static_cast<char*>(realloc(scratch->keyText, bytes + 1));
        if (!grown) return nullptr;
        scratch->keyText = grown;
        scratch->keyTextSize = static_cast<uint32_t>(bytes + 1);
    }
    char* out = scratch->keyText;
    size_t index = 0;
    for (PrefKeyT* key = record->keys->first; key; key = key->next) {
        if (key->state == kPrefDeleted) continue;
        scratch->keyNames[index++] = appendName(out, key->name);
    }
    scratch->keyNames[index] = nullptr;
    return scratch->keyNames;
}

PrefKeyT* const* PrefsC::getKeys(const char* section) {
    PrefSectionT* record = findSectionRecord(section, false);
    if (!record || !record->keys) return nullptr;
    PrefScratchT* scratch = prefScratch();
    if (!scratch) return nullptr;
    size_t count = 0;
    for (PrefKeyT* key = record->keys->first; key; key = key->next)
        count += key->state != kPrefDeleted;
    if (!growArray(scratch->keyList, scratch->keyListCapacity, count + 1)) return nullptr;
    size_t index = 0;
    for (PrefKeyT* key = record->keys->first; key; key = key->next) {
        if (key->state != kPrefDeleted) scratch->keyList[index++] = key;
    }
    scratch->keyList[index] = nullptr;
    return scratch->keyList;
}

const char* PrefsC::getString(const char* section, const char* key, const char* defaultValue) {
    if (isMissing(section) || !key) return defaultValue;
    for (PrefsC* store = this; store; store = store->fallback) {
        if (!*key) return defaultValue;
        PrefKeyT* record = store->findKey(store->findSection(section, false), key, false, nullptr);
        if (record && record->value) return record->value;
    }
    return defaultValue;
}

int32_t PrefsC::getInt(const char* section, const char* key, int32_t defaultValue) {
    const char* text = getString(section, key, nullptr);
    if (!text) return defaultValue;
    // strtol of a 32-bit long: saturated at the limits of 32 bits on every
    // build, so a 64-bit program answers what a 32-bit one does.
    long long value = strtoll(text, nullptr, 0);
    if (value > INT32_MAX) return INT32_MAX;
    if (value < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(value);
}

bool PrefsC::getBool(const char* section, const char* key, bool defaultValue) {
    const char* text = getString(section, key, nullptr);
    if (!text) return defaultValue;
    // The locale's yes and no words (YESSTR and NOSTR).
    if (compareNames(text, "true") == 0 ||
        compareNames(text, nl_langinfo(static_cast<nl_item>(0x50002))) == 0) {
        return true;
    }
    if (compareNames(text, "false") == 0 ||
        compareNames(text, nl_langinfo(static_cast<nl_item>(0x50003))) == 0) {
        return false;
    }
    return defaultValue;
}

bool PrefsC::setValue(const char* section, const char* key, const char* value, bool changed) {
    if (isMissing(section) || isMissing(key)) return false;
    PrefSectionT* record = findSectionToChange(section, false);
    PrefKeyChainT* chain = record ? record->keys : nullptr;
    if (!chain) chain = ensureSection(section, false);
    if (!chain) return false;
    setKey(chain, key, value, changed);
    return true;
}

bool PrefsC::addLine(const char* section, const char* text, bool changed) {
    if (isMissing(section)) return false;
    PrefSectionT* record = findSectionToChange(section, false);
    PrefKeyChainT* chain = record ? record->keys : nullptr;
    if (!chain) chain = ensureSection(section, false);
    if (!chain) return false;
    setKey(chain, "", text, changed);
    return true;
}

bool PrefsC::deleteKey(const char* section, const char* key) {
    if (isMissing(section) || isMissing(key)) return false;
    PrefSectionT* owner = findSectionToChange(section, true);
    PrefKeyT* record = findKey(owner ? owner->keys : nullptr, key, true, nullptr);
    if (!record || record->state == kPrefDeleted) return false;
    record->state = kPrefDeleted;
    ++changes_;
    otherChanges_ = true;
    return true;
}

void PrefsC::clear() {
    delete[] fileName;
    fileName = nullptr;
    PrefSectionT* section = sections;
    while (section) {
        PrefSectionT* next = section->next;
        delete[] section->name;
        freeChain(section->keys);
        delete section;
        section = next;
    }
    sections = nullptr;
    lastSection_ = nullptr;
    lastInChain_ = nullptr;
    lastChain_ = nullptr;
    lastKey_ = nullptr;
    std::vector<IndexEntryT>().swap(index_);
    indexCount_ = 0;
    sectionGeneration_ = nextSectionStamp();
    ++recordsMade_;
    ++changes_;
    keptValid_ = false;
    keptMerged_ = false;
    mergedAt_ = ~0ull;
    otherChanges_ = true;
    valueChanges_.clear();
}

// Every section is in the index, and a name that compareNames calls equal to
// `name` in any locale has its signature and so its slot hash: all the
// records that could ever answer for `name` sit in the probe run from its
// slot. With none the name finds nothing; with one of the very same bytes
// it finds that one, in every locale and from every lastSection_.
bool PrefsC::soleSection(const char* name, PrefSectionT** record) const {
    if (isMissing(name)) return false;
    *record = nullptr;
    if (index_.empty()) return true;
    size_t hash = slotHash(nullptr, name);
    size_t mask = index_.size() - 1;
    PrefSectionT* found = nullptr;
    for (size_t slot = hash & mask; index_[slot].record; slot = (slot + 1) & mask) {
        const IndexEntryT& entry = index_[slot];
        if (entry.hash != hash || entry.owner) continue;
        if (found) return false;
        found = static_cast<PrefSectionT*>(entry.record);
    }
    if (found && strcmp(found->name, name) != 0) return false;
    *record = found;
    return true;
}

bool PrefsC::aloneByName(const PrefKeyChainT* owner, const void* record) const {
    const char* name = recordName(owner, const_cast<void*>(record));
    if (owner && !isIndexed(owner)) {
        const PrefKeyT* key = static_cast<const PrefKeyT*>(record);
        for (uint32_t i = 0; i < owner->named; ++i) {
            PrefKeyT* other = owner->keys()[i];
            if (owner->signatures[i] == key->signature && other != key &&
                sameName(other->name, name))
                return false;
        }
        return true;
    }
    if (index_.empty()) return true;
    size_t hash = slotHash(owner, name);
    size_t mask = index_.size() - 1;
    for (size_t slot = hash & mask; index_[slot].record; slot = (slot + 1) & mask) {
        const IndexEntryT& entry = index_[slot];
        if (entry.hash != hash || entry.owner != owner || entry.record == owner ||
            entry.record == record)
            continue;
        if (sameName(recordName(owner, entry.record), name)) return false;
    }
    return true;
}

const PrefKeyChainT* PrefsC::liveChain(const PrefSectionT* record) {
    return record && record->state != kPrefDeleted ? record->keys : nullptr;
}

const char* PrefsC::getStringIn(const PrefKeyChainT* chain, const char* section, const char* key) {
    if (fallback) return getString(section, key, nullptr);
    if (isMissing(section) || !key || !*key || !chain) return nullptr;
    PrefKeyT* found = findKey(chain, key, false, nullptr);
    return found && found->value ? found->value : nullptr;
}

}  // namespace keel
