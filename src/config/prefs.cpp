// The preference store in memory: records, lookups, changes, the list
// operations and their per-thread scratch record. Reading and writing files
// is in prefs_file.cpp.
//
// Invariants: every text a record holds is its own array-new copy (a value
// set through this file is never null: a null value is stored as the empty
// text); deleted records stay in their chains until clear, so that a later
// change revives them in place and a merge knows which lines to drop; no two
// sections of a store bear names that compareNames calls equal (every way a
// section is made searches all sections, deleted ones too, first), which is
// what lets `lastSection_` answer for the first match; `written` marks are
// clear outside a merge.
#include "config/prefs.h"

#include <ctype.h>
#include <langinfo.h>
#include <limits.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

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
    free(scratch);
}

void deleteScratchKey(void*) { pthread_key_delete(scratchKey); }

size_t measure(const char* text) { return strnlen(text, PrefsC::kTextLimit); }

bool isMissing(const char* name) { return !name || !*name; }

bool isLineSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

PrefKeyT* findKeyRecord(const PrefKeyChainT* chain, const char* name, bool includeDeleted) {
    if (!chain || isMissing(name)) return nullptr;
    for (PrefKeyT* key = chain->first; key; key = key->next) {
        if (!includeDeleted && key->state == kPrefDeleted) continue;
        // A free line (empty name) is never found.
        if (key->name[0] && compareNames(key->name, name) == 0) return key;
    }
    return nullptr;
}

// A copy of `value` without blanks and tabs in front and without tabs, line
// feeds, carriage returns and blanks behind.
char* copyTrimmedValue(const char* value) {
    if (!value) value = "";
    size_t length = measure(value);
    size_t start = 0;
    while (start < length && (value[start] == ' ' || value[start] == '\t')) ++start;
    size_t end = length;
    while (end > start && isLineSpace(value[end - 1])) --end;
    char* copy = new char[end - start + 1];
    memcpy(copy, value + start, end - start);
    copy[end - start] = '\0';
    return copy;
}

// Sets (or appends) a key in a chain: see setValue.
void setKeyInChain(PrefKeyChainT* chain, const char* name, const char* value, bool changed) {
    PrefKeyT* key = findKeyRecord(chain, name, true);
    if (key) {
        delete[] key->value;
        key->value = nullptr;
    } else {
        key = new PrefKeyT();
        key->name = copyText(name);
        PrefKeyT** link = &chain->first;
        while (*link) link = &(*link)->next;
        *link = key;
    }
    key->value = copyTrimmedValue(value);
    key->state = changed ? kPrefChanged : kPrefAsRead;
    key->written = false;
}

void freeChain(PrefKeyChainT* chain) {
    if (!chain) return;
    PrefKeyT* key = chain->first;
    while (key) {
        PrefKeyT* next = key->next;
        delete[] key->name;
        delete[] key->value;
        delete key;
        key = next;
    }
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

}  // namespace

// --- Helpers ---

int compareNames(const char* first, const char* second) {
    const unsigned char* a = reinterpret_cast<const unsigned char*>(first);
    const unsigned char* b = reinterpret_cast<const unsigned char*>(second);
    for (;; ++a, ++b) {
        int x = *a;
        int y = *b;
        if (x != y) {
            if (isupper(x)) x = tolower(x);
            if (isupper(y)) y = tolower(y);
            if (x != y) return x - y;
        }
        if (x == 0) return 0;
    }
}

char* copyText(const char* text) {
    if (!text) return nullptr;
    size_t length = measure(text);
    char* copy = new char[length + 1];
    memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

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

PrefsC::PrefsC() : fileName(nullptr), sections(nullptr), fallback(nullptr), cursor(nullptr) {}

PrefsC::PrefsC(const char* name)
    : fileName(copyText(name)), sections(nullptr), fallback(nullptr), cursor(nullptr) {}

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

PrefSectionT* PrefsC::findSectionRecord(const char* name, bool includeDeleted) const {
    if (isMissing(name)) return nullptr;
    PrefSectionT* found = lastSection_;
    if (!found || compareNames(found->name, name) != 0) {
        for (found = sections; found; found = found->next) {
            if (compareNames(found->name, name) == 0) break;
        }
        if (!found) return nullptr;
        lastSection_ = found;
    }
    return !includeDeleted && found->state == kPrefDeleted ? nullptr : found;
}

PrefKeyChainT* PrefsC::findSection(const char* name, bool includeDeleted) {
    PrefSectionT* section = findSectionRecord(name, includeDeleted);
    return section ? section->keys : nullptr;
}

PrefKeyChainT* PrefsC::ensureSection(const char* name, bool fromFile) {
    if (isMissing(name)) return nullptr;
    PrefSectionT* section = findSectionRecord(name, true);
    if (section) {
        section->state = kPrefAsRead;
        section->written = false;
    } else {
        section = new PrefSectionT();
        section->name = copyText(name);
        section->state = fromFile ? kPrefAsRead : kPrefChanged;
        PrefSectionT** link = lastSection_ ? &lastSection_->next : &sections;
        while (*link) link = &(*link)->next;
        *link = section;
        lastSection_ = section;
    }
    if (!section->keys) section->keys = new PrefKeyChainT();
    return section->keys;
}

bool PrefsC::createSection(const char* name) {
    if (findSectionRecord(name, false)) return false;
    return ensureSection(name, false) != nullptr;
}

bool PrefsC::deleteSection(const char* name, bool onlyIfEmpty) {
    PrefSectionT* section = findSectionRecord(name, true);
    if (!section || !section->keys) return false;
    if (onlyIfEmpty && section->keys->first) return false;
    section->state = kPrefDeleted;
    for (PrefKeyT* key = section->keys->first; key; key = key->next) key->state = kPrefDeleted;
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
        size_t length = measure(section->name);
        memcpy(out, section->name, length);
        out[length] = '\0';
        scratch->sectionNames[index++] = out;
        out += length + 1;
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
        size_t length = measure(key->name);
        memcpy(out, key->name, length);
        out[length] = '\0';
        scratch->keyNames[index++] = out;
        out += length + 1;
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
        PrefKeyT* record = findKeyRecord(store->findSection(section, false), key, false);
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
    PrefKeyChainT* chain = findSection(section, false);
    if (!chain) chain = ensureSection(section, false);
    if (!chain) return false;
    setKeyInChain(chain, key, value, changed);
    return true;
}

bool PrefsC::addLine(const char* section, const char* text, bool changed) {
    if (isMissing(section)) return false;
    PrefKeyChainT* chain = findSection(section, false);
    if (!chain) chain = ensureSection(section, false);
    if (!chain) return false;
    setKeyInChain(chain, "", text, changed);
    return true;
}

bool PrefsC::deleteKey(const char* section, const char* key) {
    if (isMissing(section) || isMissing(key)) return false;
    PrefKeyT* record = findKeyRecord(findSection(section, true), key, true);
    if (!record || record->state == kPrefDeleted) return false;
    record->state = kPrefDeleted;
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
}

}  // namespace keel
