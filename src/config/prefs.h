// PrefsC: one ini file in memory, written back without losing what it does
// not understand.
//
// The store holds ordered sections of ordered keys. Every section and key
// remembers whether it is as read from the file (state 0), changed or made in
// memory (1) or deleted (2); a save with `preserve` merges exactly these
// differences into whatever the file holds by then, so comments, blank lines,
// unknown lines and keys that other processes wrote survive it.
//
//     keel::PrefsC prefs;
//     prefs.load("/etc/app.ini", false, false);            // false: missing or unreadable
//     const char* host = prefs.getString("net", "host", "localhost");
//     prefs.setValue("net", "port", "8080", true);           // state 1: to be merged
//     prefs.save("/etc/app.ini.tmp", true, "/etc/app.ini");  // merge into a new file
//
// Names and values are 8-bit zero-terminated texts in "system-8", owned by
// the records and allocated with array new; every text is measured with an
// upper limit of kTextLimit bytes. Section and key names compare without
// regard to case (compareNames). The store reports through its boolean
// results only: whatever the file layer records during load and save is
// taken out of the error buffer again.
//
// Records and their texts belong to the store: sections and keys are made,
// changed and freed only through its operations, never by linking records
// into a chain or replacing a name or value from outside (a key's name and
// first value share the key record's block). A store has no lock; its owner
// guards it. Lookups and getString write nothing of the store, so reads with
// no change between them may run on several threads at once. The arrays of getSectionNames,
// getKeyNames and getKeys live in a per-thread PrefScratchT and stay valid
// for the calling thread until its next call of the same kind.
#ifndef KEEL_CONFIG_PREFS_H
#define KEEL_CONFIG_PREFS_H

#include <stdint.h>

#include <memory>
#include <string>
#include <vector>

#include <keel/string.h>

namespace keel {

// --- Records ---

// The values of `state` of a section or a key.
enum : uint32_t {
    kPrefAsRead = 0,   // as read from the file
    kPrefChanged = 1,  // key: changed or new in memory; section: not in the file when last read
    kPrefDeleted = 2,  // deleted; the record stays in its chain until the store is cleared
};

// One key of a section. A key with an empty name is a free line: it has a
// value and no key text, and can never be found by name.
struct PrefKeyT {
    char* name;   // owned, may be empty
    char* value;  // owned, may be null
    uint32_t state;
    PrefKeyT* next;
    bool written;        // used by the merge only; clear between saves
    uint32_t signature;  // of the name, shared by every name equal to it (see PrefsC)
};

// The keys of one section in order, with the chain's one walking position.
struct PrefKeyChainT {
    PrefKeyT* first;
    PrefKeyT* cursor;
    bool indexed;  // its keys are in the store's index
    // The count of its records, free lines included.
    uint32_t length;
    // Until the chain is indexed: the signatures of its named keys in chain
    // order (`named` of them in room for `room`), and behind them in the
    // same block the records, so that finding a key compares signatures
    // that lie together instead of following the chain from key to key.
    // Kept where keys are appended; a read only looks at it.
    uint32_t named;
    uint32_t room;
    uint32_t* signatures;
    PrefKeyT** keys() const { return reinterpret_cast<PrefKeyT**>(signatures + room); }
};

struct PrefSectionT {
    char* name;           // owned
    PrefKeyChainT* keys;  // owned, may be null
    PrefSectionT* next;
    uint32_t state;
    bool written;  // used by the merge only; clear between saves
    bool loaded;   // a load found it in the file
};

// The per-thread record behind the list operations: allocated zeroed on a
// thread's first need, freed by the thread key's destructor.
struct PrefScratchT {
    int32_t keyNameCapacity;  // getKeyNames
    char** keyNames;          // getKeyNames, from realloc
    uint32_t keyTextSize;     // getKeyNames
    char* keyText;            // getKeyNames, from realloc
    char* sectionText;        // getSectionNames, from array new
    char** sectionNames;      // getSectionNames, from array new
    int32_t keyListCapacity;  // getKeys
    PrefKeyT** keyList;       // getKeys, from realloc
    // What the registry keeps of the thread's reads, and how it is freed
    // with the record (null until the thread's first registry read).
    void* readPlaces;
    void (*freeReadPlaces)(void*);
};

// --- Store ---

class PrefsC {
public:
    // The upper limit of every text the store measures.
    static const uint32_t kTextLimit = 0x1000000;

    // All fields null.
    PrefsC();
    // Keeps a copy of `fileName` (the target of a save without a path);
    // nothing is read.
    explicit PrefsC(const char* fileName);
    // Clears the store and deletes the fall-back chain behind it.
    virtual ~PrefsC();

    // The store to consult after this one in getString (owned from now on:
    // this store's destructor deletes it). Returns this store.
    PrefsC* setFallback(PrefsC* next);
    PrefsC* getFallback() const { return fallback; }
    // The path of the last successful load, or the constructor's argument.
    const char* getFileName() const { return fileName; }

    // The section's chain (deleted sections too with `includeDeleted`), or
    // null.
    PrefKeyChainT* findSection(const char* name, bool includeDeleted);
    // Finds any section of the name (a deleted one is revived in state 0,
    // its deleted keys still deleted) or appends a new one, in state 0 when
    // `fromFile` and 1 otherwise. Returns the chain.
    PrefKeyChainT* ensureSection(const char* name, bool fromFile);
    // False when a live section of the name exists; else makes it in
    // memory.
    bool createSection(const char* name);
    // Marks the section and all its keys deleted. False for an unknown name
    // or one without a chain, and with `onlyIfEmpty` for a chain that holds
    // any key record, even a deleted one.
    bool deleteSection(const char* name, bool onlyIfEmpty);

    // The names of all live sections in order, null-terminated.
    const char* const* getSectionNames();
    // The names of all live keys of the section in order, null-terminated;
    // null for an unknown section.
    const char* const* getKeyNames(const char* section);
    // The records of all live keys of the section in order,
    // null-terminated; null for an unknown section.
    PrefKeyT* const* getKeys(const char* section);

    // The stored text (not a copy) from this store or, failing that, from
    // the fall-back chain; `defaultValue` when none has a value.
    const char* getString(const char* section, const char* key, const char* defaultValue);
    // strtol of the text with base 0, as a 32-bit number.
    int32_t getInt(const char* section, const char* key, int32_t defaultValue);
    // "true" or the locale's yes word, "false" or its no word (without
    // regard to case); `defaultValue` for anything else.
    bool getBool(const char* section, const char* key, bool defaultValue);

    // Sets the key (reviving a deleted one at its old place), making the
    // section in memory when no live one exists. Blanks and tabs in front of
    // the value and blanks, tabs and line ends behind it are cut; a null value
    // is the empty text. `changed` gives state 1, else 0. False for a null or
    // empty section or key.
    virtual bool setValue(const char* section, const char* key, const char* value, bool changed);
    // Appends a free line (a key with an empty name) to the section.
    virtual bool addLine(const char* section, const char* text, bool changed);
    // Marks the key deleted. False for an empty name, an unknown section
    // (deleted ones are searched too), or an unknown or deleted key.
    bool deleteKey(const char* section, const char* key);
    // Frees the file name and every section, chain and key.
    void clear();

    // For readers that keep what a section name led to (the registry's
    // per-thread table of resolved paths). The generation changes whenever
    // a section record is made, deleted or brought back, or all are freed,
    // to a value that no store of the process had before: a record found
    // under one generation stays the record its name finds, in the same
    // state, until the generation changes.
    uint64_t sectionGeneration() const { return sectionGeneration_; }
    // The section record that findSection(name, ...) finds in every locale
    // and whatever was looked up before: false when that is not certain (two
    // names of the store may compare equal to it in some locale, or the one
    // that may is spelled otherwise). True with *record the section, or null
    // when no section of the store can ever match the name (until the
    // generation changes).
    bool soleSection(const char* name, PrefSectionT** record) const;
    // The chain of a section record that is not deleted, or null.
    static const PrefKeyChainT* liveChain(const PrefSectionT* record);
    // getString(section, key, nullptr) where soleSection(section) gave a
    // record and liveChain of it is `chain`: the same answer without looking
    // the section up.
    const char* getStringIn(const PrefKeyChainT* chain, const char* section, const char* key);

    // Reads the ini file at `path` in place of the current content. False
    // for a null or empty path or a file that cannot be opened (the store
    // keeps what it had), and with `strict` for a bad line (the store is left
    // empty). With `continuation`, a line ending in an odd number of
    // backslashes goes on in the next line.
    bool load(const char* path, bool strict, bool continuation);
    // What load(path, false, false) does, for a file that the caller knows
    // to hold `written` (it saved them there and kept other writers away
    // since): the file is opened and read as load opens it, and when its
    // bytes are `written` (behind the writer's UTF-8 mark or alone) and
    // those are tabs, printable ASCII and line feeds (which read as
    // themselves in every encoding) ending in a line feed, the lines are
    // taken from `written`; where the last merge wrote them (into this very
    // string, left as it was) from the bytes the store knew and met every
    // record on its own line, the records stay as they are with the states
    // of a load.
    bool loadWritten(const char* path, const std::string& written);
    // Writes the store: without `preserve` plainly to `path`; with it, as a
    // merge of the differences into the current content of `templatePath`
    // (or, without one, of `path` itself, replaced in one step). A null
    // `path` means the file name of the store. A template that names the
    // target itself is taken as no template, since opening the target would
    // empty it before it is read. A merge into another file leaves its data
    // to the kernel: a caller that moves it over the original flushes it
    // first. Replacing `path` in one step flushes the new file before the
    // move. `written`, when given, receives the bytes written (nothing when
    // the save fails).
    bool save(const char* path, bool preserve, const char* templatePath,
              std::string* written = nullptr);

    // Off: load, merge and loadWritten decode every file and look every line
    // up, as if no bytes were known, so that tests can compare the two ways.
    static void setShortcutsForTesting(bool on);

protected:
    PrefsC(const PrefsC&) = delete;
    PrefsC& operator=(const PrefsC&) = delete;

private:
    // The section of the name (deleted ones too with `includeDeleted`), or
    // null. The lookup of a read leaves nothing behind; that of a change
    // keeps the record as lastSection_ for the next one.
    PrefSectionT* findSectionRecord(const char* name, bool includeDeleted) const;
    PrefSectionT* findSectionToChange(const char* name, bool includeDeleted);
    class LineLoaderC;
    class WrittenMatchC;
    // No other section (owner null, record a PrefSectionT) or key of the
    // chain `owner` (record a PrefKeyT) has a name that compares equal to
    // the record's now.
    bool aloneByName(const PrefKeyChainT* owner, const void* record) const;
    bool writePlain(const char* path, std::string* written);
    bool rewriteInPlace(const char* path, std::string* written);
    // Writes `target` from the lines of `source` and the differences held in
    // memory; with `flushData` the data reaches the disk before the close.
    bool merge(const char* source, const char* target, bool flushData, std::string* written);

    char* fileName;
    PrefSectionT* sections;
    PrefsC* fallback;
    void* cursor;  // reserved: always null
    // One table of every section, and of every named key of the chains that
    // reached kIndexFrom keys (with one entry, record == owner, that marks
    // such a chain), by a signature of the name that names equal by
    // compareNames share in any locale and by the chain the key belongs to
    // (null for a section): a lookup compares the one or two names of its
    // slot instead of every name before it. Open addressing; records only
    // come and go all together (clear).
    struct IndexEntryT {
        size_t hash;
        const PrefKeyChainT* owner;
        void* record;  // PrefSectionT* when owner is null, else PrefKeyT*
    };
    static const size_t kIndexFrom = 24;
    void* indexFind(const PrefKeyChainT* owner, const char* name) const;
    void indexAdd(const PrefKeyChainT* owner, const char* name, void* record);
    bool isIndexed(const PrefKeyChainT* chain) const;
    // `walked`, when given, gets the count of the chain's records, or
    // SIZE_MAX when the chain is indexed.
    PrefKeyT* findKey(const PrefKeyChainT* chain, const char* name, bool includeDeleted,
                      size_t* walked) const;
    void setKey(PrefKeyChainT* chain, const char* name, const char* value, bool changed);

    // --- What the store knows of its file's bytes ---
    // A merge or read-back whose source holds exactly the bytes the store
    // last read or wrote, and whose lines made exactly its records, need
    // neither decode nor look up those lines again. Bytes are compared,
    // never sizes or times: another writer's change always reads as one.
    // kept_: the file's bytes as the last load or read-back found them,
    // plain text (see isPlainText in prefs_file.cpp) behind a UTF-8 mark of
    // keptMark_ bytes or none; keptValid_ false when unknown or not plain.
    bool exactNow() const;
    void keepBytes(std::unique_ptr<char[]>& bytes, size_t size, size_t mark, bool exact,
                   bool merged);
    std::unique_ptr<char[]> kept_;
    size_t keptSize_ = 0;
    size_t keptMark_ = 0;
    bool keptValid_ = false;
    // recordsMade_ at the moment kept_ was found to make exactly the store's
    // records: every header and key line of it spelled as the merge writes
    // it ("[name]", "name=value"), each making a record of its own, in
    // order, under a locale that folds ASCII letters plainly. While no
    // record is made, those lines still find those records.
    uint64_t exactAt_ = ~0ull;
    uint64_t recordsMade_ = 0;  // bumped whenever a record is made, and by clear
    uint64_t changes_ = 0;      // bumped by every change of a record or value
    // Where loading the last merge's output (without the mark) makes the
    // store's records exactly, with the states of a load: the string the
    // merge wrote it into, as it left it, and changes_ then.
    void noteMerged(const std::string* written, bool readBack);
    const std::string* mergedTo_ = nullptr;
    const char* mergedData_ = nullptr;
    size_t mergedSize_ = 0;
    uint64_t mergedAt_ = ~0ull;
    // kept_ is what a merge wrote, which a merge with nothing changed gives
    // back byte for byte.
    bool keptMerged_ = false;
    // Since kept_ was taken: the keys whose value changed (state 1), with
    // their chains, while nothing else changed (otherChanges_ false). A
    // merge of kept_ then only replaces those keys' lines.
    struct ValueChangeT {
        PrefKeyChainT* chain;
        PrefKeyT* key;
    };
    static const size_t kValueChangesKept = 256;
    std::vector<ValueChangeT> valueChanges_;
    bool otherChanges_ = true;
    class SpliceC;

    std::vector<IndexEntryT> index_;
    size_t indexCount_ = 0;
    // The section that the last change found or made: loading a file looks
    // up the current section once per key line, and this makes that one
    // comparison. Reads look at it and never set it.
    PrefSectionT* lastSection_ = nullptr;
    PrefSectionT* lastInChain_ = nullptr;
    // The last key appended and its chain, so that appending the next key
    // of the same section does not walk the chain.
    PrefKeyChainT* lastChain_ = nullptr;
    PrefKeyT* lastKey_ = nullptr;
    uint64_t sectionGeneration_;
};

// --- Helpers ---

// Byte by byte; where two bytes differ each is folded with tolower if isupper
// says it is upper case, and a difference left decides (<0, 0, >0).
int compareNames(const char* first, const char* second);
// A copy made with array new (at most PrefsC::kTextLimit bytes and a NUL),
// or null for null.
char* copyText(const char* text);
// Removes blanks, tabs, line feeds and carriage returns from both ends.
void trimLine(StringC& line);

// The calling thread's scratch record, made zeroed on first need.
PrefScratchT* prefScratch();

void loadStepPrefs();

}  // namespace keel

#endif
