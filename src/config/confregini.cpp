// The registry over ini files: key paths, open keys, values, enumeration and
// mounting (ConfRegistryIniC), and the mounted file with its reload
// (ConfRegFileC). The commit protocol is in confregini_commit.cpp.
//
// Invariants:
// - Every open key's path_ is getKeyPath of its handle: the name for a key
//   without a file, the file's mount path, a backslash and the name
//   otherwise. A key whose file is retired keeps the path it had.
// - Handles start at 1, are never reused and never reset; the root keys
//   0x80000002 and 0x80000001 are entered by the constructor.
// - A slot of the file table is never moved: a file mounted over is
//   deleted and its slot holds null, so every fileIndex stays right.
// - Nothing records anything in the error buffer; the store and the file
//   service calls used here are silent or take back what they record.
// - A read writes nothing that another thread's read looks at: what it keeps
//   goes into its thread's table of resolved paths, and the one shared field
//   it writes (a file's lastCheck_) is a relaxed cell. An entry of that table
//   is used only under the registry stamp it was made under (a new stamp
//   whenever the open keys or the file table change) and answers as
//   placeForRead would answer now, the refresh of the files aside; the
//   section chain in it is used only under the store's section generation
//   it was found in.
#include "config/confregini.h"

#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <string>

#include <keel/arglist.h>
#include <keel/fileserv.h>
#include <keel/number.h>
#include <keel/split.h>
#include <keel/stringar.h>
#include <keel/strset.h>

#include "files/fileserv.h"
#include "text/string.h"
#include "text/textencoding.h"
#include "text/utf8view.h"

namespace keel {

namespace {

const char* const kRootLongNames[7] = {
    "HKEY_CLASSES_ROOT",     "HKEY_CURRENT_USER",   "HKEY_LOCAL_MACHINE", "HKEY_USERS",
    "HKEY_PERFORMANCE_DATA", "HKEY_CURRENT_CONFIG", "HKEY_DYN_DATA"};
const char* const kRootShortNames[7] = {"HKCR", "HKCU", "HKLM", "HKU", "HKPD", "HKCC", "HKDD"};
const uint32_t kFirstRoot = 0x80000000u;

// The access masks that the calling shape passes along; nothing tests them.
const uint32_t kAccessRead = 0x20019u;
const uint32_t kAccessWrite = 0xF003Fu;

const StringC& backslash() {
    static const StringC text("\\", "ascii");
    return text;
}

StringC joinPath(const StringC& first, const StringC& second) {
    StringC path(first);
    path.append(backslash());
    path.append(second);
    return path;
}

bool samePath(const StringC& first, const StringC& second) {
    return first.length() == second.length() && first.compareNoCase(second) == 0;
}

// The length of `text` up to the limit, as the value operations measure it.
uint32_t measuredLength(const char* text) {
    const void* end = memchr(text, 0, kRegValueLimit);
    return end ? static_cast<uint32_t>(static_cast<const char*>(end) - text) : kRegValueLimit;
}

// ASCII letters fold to small ones; every other byte stays.
inline uint8_t foldAscii(uint8_t byte) { return byte >= 'A' && byte <= 'Z' ? byte + 32 : byte; }

bool sameAsciiBytes(const uint8_t* first, const uint8_t* second, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (first[i] != second[i] && foldAscii(first[i]) != foldAscii(second[i])) return false;
    }
    return true;
}

bool asciiBytes(const uint8_t* bytes, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        if (bytes[i] >= 0x80) return false;
    }
    return true;
}

// The stamps of all registries of the process: every change of a registry's
// open keys or file table takes the next one.
uint64_t nextRegistryStamp() {
    static uint64_t count = 0;
    return atomicAddRelaxed(&count, 1);
}

// The stored text of a value of a section, without the refresh.
const char* storedValue(ConfRegFileC* owner, const char* section, const StringC& valueName) {
    Utf8ViewC name(valueName);
    if (asciiBytes(name.data(), name.size()))
        return owner->prefs().getString(section, name.chars(), nullptr);
    SystemTextC systemName(valueName);
    return owner->prefs().getString(section, systemName.get(), nullptr);
}

// --- The per-thread table of resolved paths ---

// What placeForRead answered (0 or kRegNotFound) for a handle and the bytes
// of a sub-key: the file and the section name, and the store's section
// chain for that name once looked up. Each thread has a table of its own,
// so that reads running at once on several threads write nothing another
// thread reads. A table serves one registry under one stamp at a time; a
// place of it is added only by a read that no other read of the thread
// waits on (a report made during a refresh may read the registry again, and
// the waiting read's place must stay where it is).
struct ReadPlaceT {
    // What a read compares and follows first, together.
    uint64_t epoch;  // the slot is in use when this is the table's epoch
    size_t hash;
    uint32_t handle;
    uint32_t code;
    uint32_t size;  // of the sub-key
    // A sub-key was given: the read refreshes every file first.
    bool refreshAll;
    // `sole` and `chain` are what soleSection and liveChain answered under
    // `sectionGeneration`; `sole` false: the store looks the name up.
    bool settled;
    bool sole;
    ConfRegFileC* owner;
    const PrefKeyChainT* chain;
    uint64_t sectionGeneration;
    // A sub-key of up to kInlineBytes bytes is kept here, a longer one in
    // `longSubKey`.
    static const uint32_t kInlineBytes = 48;
    char inlineSubKey[kInlineBytes];
    std::string longSubKey;
    std::string section;

    const char* subKey() const { return size <= kInlineBytes ? inlineSubKey : longSubKey.data(); }
};

// The slot hash of a handle and a sub-key's bytes, eight bytes at a time;
// a text of eight bytes or more ends with its last eight (which may overlap
// the word before), a shorter one is taken byte by byte.
size_t placeHash(uint32_t key, const uint8_t* bytes, uint32_t size) {
    uint64_t hash = (static_cast<uint64_t>(key) << 32 | size) * 0x9E3779B97F4A7C15ull;
    uint64_t word = 0;
    if (size < 8) {
        for (uint32_t i = 0; i < size; ++i) word = word << 8 | bytes[i];
    } else {
        for (uint32_t i = 0; i + 8 < size; i += 8) {
            memcpy(&word, bytes + i, 8);
            hash = (hash ^ word) * 0xFF51AFD7ED558CCDull;
            hash ^= hash >> 32;
        }
        memcpy(&word, bytes + size - 8, 8);
    }
    // The bytes that differ between paths are often the last ones, which
    // sit in the high bits of the last word: mixed down to the slot's bits.
    hash ^= word;
    hash = (hash ^ (hash >> 33)) * 0xFF51AFD7ED558CCDull;
    hash = (hash ^ (hash >> 33)) * 0xC4CEB9FE1A85EC53ull;
    return static_cast<size_t>(hash ^ (hash >> 33));
}

// The same bytes, eight at a time where there are eight.
bool sameBytes(const char* first, const uint8_t* second, uint32_t size) {
    uint32_t i = 0;
    for (; i + 8 <= size; i += 8) {
        uint64_t a, b;
        memcpy(&a, first + i, 8);
        memcpy(&b, second + i, 8);
        if (a != b) return false;
    }
    for (; i < size; ++i) {
        if (static_cast<uint8_t>(first[i]) != second[i]) return false;
    }
    return true;
}

class ReadPlacesC {
public:
    // Sub-keys longer than this are not kept, and the table holds at most
    // three quarters of kMostSlots places (then it starts afresh): a table stays
    // within about a hundred kilobytes whatever it reads.
    static const uint32_t kLongestSubKey = 256;
    static const size_t kMostSlots = 1024;

    ReadPlaceT* find(const void* registry, uint64_t stamp, uint32_t handle, const uint8_t* bytes,
                     uint32_t size) {
        if (count_ == 0 || registry != registry_ || stamp != stamp_) return nullptr;
        size_t hash = placeHash(handle, bytes, size);
        size_t mask = slots_.size() - 1;
        for (size_t slot = hash & mask; slots_[slot].epoch == epoch_; slot = (slot + 1) & mask) {
            ReadPlaceT& place = slots_[slot];
            if (place.hash == hash && place.handle == handle && place.size == size &&
                sameBytes(place.subKey(), bytes, size))
                return &place;
        }
        return nullptr;
    }

    ReadPlaceT* add(const void* registry, uint64_t stamp, uint32_t handle, const uint8_t* bytes,
                    uint32_t size) {
        if (depth_ > 1 || size > kLongestSubKey) return nullptr;
        if (registry != registry_ || stamp != stamp_) {
            drop();
            registry_ = registry;
            stamp_ = stamp;
        }
        // At most three quarters of the slots are used.
        if ((count_ + 1) * 4 > slots_.size() * 3) {
            if (slots_.size() >= kMostSlots) {
                drop();
            } else {
                grow();
            }
        }
        size_t hash = placeHash(handle, bytes, size);
        size_t mask = slots_.size() - 1;
        size_t slot = hash & mask;
        while (slots_[slot].epoch == epoch_) slot = (slot + 1) & mask;
        ReadPlaceT& place = slots_[slot];
        place.epoch = epoch_;
        place.hash = hash;
        place.handle = handle;
        place.size = size;
        if (size <= ReadPlaceT::kInlineBytes) {
            memcpy(place.inlineSubKey, bytes, size);
        } else {
            place.longSubKey.assign(reinterpret_cast<const char*>(bytes), size);
        }
        place.settled = false;
        ++count_;
        return &place;
    }

    // Reads of this thread in progress (a read made while another one waits
    // in a refresh adds no place).
    void enter() { ++depth_; }
    void leave() { --depth_; }

private:
    void drop() {
        ++epoch_;
        count_ = 0;
    }
    void grow() {
        // Twice the room, the live places moved over (their texts with them).
        std::vector<ReadPlaceT> grown(slots_.empty() ? 16 : slots_.size() * 2);
        size_t mask = grown.size() - 1;
        for (ReadPlaceT& place : slots_) {
            if (place.epoch != epoch_) continue;
            size_t slot = place.hash & mask;
            while (grown[slot].epoch == epoch_) slot = (slot + 1) & mask;
            grown[slot] = std::move(place);
        }
        slots_.swap(grown);
    }

    const void* registry_ = nullptr;  // compared, never followed
    uint64_t stamp_ = 0;
    uint64_t epoch_ = 1;
    size_t count_ = 0;
    uint32_t depth_ = 0;
    std::vector<ReadPlaceT> slots_;
};

// The thread's table, made at its first read and owned by the thread's
// scratch record of the store (PrefScratchT), whose thread key frees it when
// the thread ends. The cell itself is a plain pointer with nothing to
// destroy, so that a read made while the process exits (a report of an exit
// action opening the module catalog) still finds a whole table or none.
thread_local ReadPlacesC* threadPlaces = nullptr;

void freeReadPlaces(void* places) {
    delete static_cast<ReadPlacesC*>(places);
    threadPlaces = nullptr;
}

// The calling thread's table, or null where no scratch record can be had
// (the read then keeps nothing).
ReadPlacesC* readPlaces() {
    if (threadPlaces) return threadPlaces;
    PrefScratchT* scratch = prefScratch();
    if (!scratch) return nullptr;
    if (scratch->freeReadPlaces) scratch->freeReadPlaces(scratch->readPlaces);
    threadPlaces = new ReadPlacesC();
    scratch->readPlaces = threadPlaces;
    scratch->freeReadPlaces = freeReadPlaces;
    return threadPlaces;
}

// Counts a read of the thread for its scope.
class ReadScopeC {
public:
    explicit ReadScopeC(ReadPlacesC* places) : places_(places) {
        if (places_) places_->enter();
    }
    ~ReadScopeC() {
        if (places_) places_->leave();
    }
    ReadScopeC(const ReadScopeC&) = delete;
    ReadScopeC& operator=(const ReadScopeC&) = delete;

private:
    ReadPlacesC* places_;
};

// The value of the place's section in its store, as lookUp reads it after
// its refresh. The place belongs to the calling thread.
const char* placedValue(ReadPlaceT& place, const StringC& valueName) {
    PrefsC& prefs = place.owner->prefs();
    if (!place.settled || place.sectionGeneration != prefs.sectionGeneration()) {
        PrefSectionT* record = nullptr;
        place.sole = prefs.soleSection(place.section.c_str(), &record);
        place.chain = PrefsC::liveChain(record);
        place.sectionGeneration = prefs.sectionGeneration();
        place.settled = true;
    }
    if (!place.sole) return storedValue(place.owner, place.section.c_str(), valueName);
    Utf8ViewC name(valueName);
    if (asciiBytes(name.data(), name.size()))
        return prefs.getStringIn(place.chain, place.section.c_str(), name.chars());
    SystemTextC systemName(valueName);
    return prefs.getStringIn(place.chain, place.section.c_str(), systemName.get());
}

// `path` (of `pathSize` bytes) is `base`, a backslash and `sub`, case aside.
bool isJoinedPath(const uint8_t* path, uint32_t pathSize, const Utf8ViewC& base,
                  const Utf8ViewC& sub) {
    return pathSize == base.size() + 1 + sub.size() &&
           sameAsciiBytes(path, base.data(), base.size()) && path[base.size()] == '\\' &&
           sameAsciiBytes(path + base.size() + 1, sub.data(), sub.size());
}

}  // namespace

bool isAsciiText(const StringC& text) {
    Utf8ViewC view(text);
    return asciiBytes(view.data(), view.size());
}

uint32_t ConfRegKeyC::textSize(const StringC& text) { return Utf8ViewC(text).size(); }

bool isUnderPath(const StringC& path, const StringC& prefix, StringC* rest) {
    StringC withSlash = joinPath(prefix, StringC());
    int32_t length = withSlash.length();
    if (path.length() <= length) return false;
    if (path.substring(0, length).compareNoCase(withSlash) != 0) return false;
    if (rest) *rest = path.substring(length);
    return true;
}

// --- ConfRegFileC ---

ConfRegFileC::ConfRegFileC(const FileNameC& path, const StringC& rootName, const StringC& subPath)
    : path_(path),
      rootName_(rootName),
      subPath_(subPath),
      prefs_(),
      modifiedTime_(0),
      lastCheck_(0),
      lock_(path),
      mountPath_(joinPath(rootName, subPath)),
      asciiMount_(isAsciiText(mountPath_)),
      systemPath_(nullptr),
      device_(0),
      inode_(0),
      modifiedNanoseconds_(0),
      busy_(false) {
    SystemTextC text(path_.toString());
    systemPath_ = copyText(text.get());
    refreshFile(false);
}

ConfRegFileC::~ConfRegFileC() { delete[] systemPath_; }

uint32_t ConfRegFileC::refreshFile(bool force, const std::string* written) {
    if (busy_) return 0;
    int32_t now = static_cast<int32_t>(time(nullptr));
    if (!force && atomicLoadRelaxed(&lastCheck_) == now) return 0;
    // The modification time in whole seconds decides as the file service
    // tells it; device, inode and the fraction of the second are looked at
    // beside it, so that a file that another process replaced within the
    // second of our last load is still read again.
    struct stat64 record;
    memset(&record, 0, sizeof record);
    bool present = stat64(systemPath_, &record) == 0;
    int32_t mtime = present ? static_cast<int32_t>(record.st_mtime) : 0;
    if (!force) {
        bool same = mtime == modifiedTime_ && record.st_dev == device_ && record.st_ino == inode_ &&
                    record.st_mtim.tv_nsec == modifiedNanoseconds_;
        if (mtime < 1 || same) {
            atomicStoreRelaxed(&lastCheck_, now);
            return 0;
        }
    }
    modifiedTime_ = mtime;
    device_ = present ? record.st_dev : 0;
    inode_ = present ? record.st_ino : 0;
    modifiedNanoseconds_ = present ? record.st_mtim.tv_nsec : 0;
    busy_ = true;
    bool loaded = written ? prefs_.loadWritten(systemPath_, *written)
                          : prefs_.load(systemPath_, false, false);
    busy_ = false;
    if (loaded) {
        for (const PendingT& change : pending_) {
            const char* section = change.section.c_str();
            switch (change.kind) {
            case PendingT::SetValue:
                prefs_.setValue(section, change.key.c_str(),
                                change.hasValue ? change.value.c_str() : nullptr, true);
                break;
            case PendingT::DeleteKey:
                prefs_.deleteKey(section, change.key.c_str());
                break;
            case PendingT::CreateSection:
                prefs_.createSection(section);
                break;
            case PendingT::DeleteSection:
                prefs_.deleteSection(section, false);
                break;
            }
        }
    }
    atomicStoreRelaxed(&lastCheck_, now);
    return 0;
}

bool ConfRegFileC::setValue(const char* section, const char* key, const char* value) {
    if (!prefs_.setValue(section, key, value, true)) return false;
    pending_.push_back({PendingT::SetValue, section, key, value ? value : "", value != nullptr});
    return true;
}

bool ConfRegFileC::deleteKey(const char* section, const char* key) {
    if (!prefs_.deleteKey(section, key)) return false;
    pending_.push_back({PendingT::DeleteKey, section, key, std::string(), false});
    return true;
}

bool ConfRegFileC::createSection(const char* section) {
    if (!prefs_.createSection(section)) return false;
    pending_.push_back({PendingT::CreateSection, section, std::string(), std::string(), false});
    return true;
}

bool ConfRegFileC::deleteSection(const char* section) {
    if (!prefs_.deleteSection(section, false)) return false;
    pending_.push_back({PendingT::DeleteSection, section, std::string(), std::string(), false});
    return true;
}

void ConfRegFileC::committed(const std::string& written) {
    pending_.clear();
    refreshFile(true, &written);
}

// --- ConfRegistryIniC: table and keys ---

ConfRegistryIniC::ConfRegistryIniC()
    : files_(nullptr),
      fileCount_(0),
      fileCapacity_(0),
      nextHandle_(1),
      autoCommit_(true),
      flushCommits_(true),
      generation_(nextRegistryStamp()) {
    openKeys_.add(kLocalMachine,
                  ConfRegKeyC(rootKeyName(kLocalMachine), -1, 0, rootKeyName(kLocalMachine)));
    openKeys_.add(kCurrentUser,
                  ConfRegKeyC(rootKeyName(kCurrentUser), -1, 0, rootKeyName(kCurrentUser)));
}

ConfRegistryIniC::~ConfRegistryIniC() {
    for (uint32_t i = 0; i < fileCount_; ++i) delete files_[i];
    openKeys_.eraseAll();
    delete[] files_;
}

ConfRegFileC* ConfRegistryIniC::file(int32_t index) const {
    if (index < 0 || static_cast<uint32_t>(index) >= fileCount_) return nullptr;
    return files_[index];
}

ConfRegFileC* ConfRegistryIniC::fileOf(const ConfRegKeyC& key) const {
    return file(key.fileIndex_);
}

const ConfRegKeyC* ConfRegistryIniC::findKey(uint32_t handle) {
    KeyElemT* element = findElement(handle);
    return element ? &element->value : nullptr;
}

StringC ConfRegistryIniC::getKeyPath(uint32_t handle) {
    KeyElemT* element = findElement(handle);
    return element ? element->value.path_ : StringC();
}

void ConfRegistryIniC::appendFile(ConfRegFileC* file) {
    if (fileCount_ == fileCapacity_) {
        // The growth rule of the library's arrays.
        uint32_t capacity = ((fileCapacity_ * 3) / 2 | 31) + 1;
        ConfRegFileC** grown = new ConfRegFileC*[capacity];
        for (uint32_t i = 0; i < fileCount_; ++i) grown[i] = files_[i];
        delete[] files_;
        files_ = grown;
        fileCapacity_ = capacity;
    }
    files_[fileCount_++] = file;
    tablesChanged();
}

void ConfRegistryIniC::tablesChanged() { generation_ = nextRegistryStamp(); }

uint32_t ConfRegistryIniC::enterKey(const StringC& name, int32_t fileIndex, uint32_t refCount) {
    ConfRegFileC* owner = file(fileIndex);
    StringC path = owner ? joinPath(owner->mountPath(), name) : name;
    uint32_t handle = nextHandle_++;
    openKeys_.add(handle, ConfRegKeyC(name, fileIndex, refCount, path));
    tablesChanged();
    return handle;
}

uint32_t ConfRegistryIniC::openKey(uint32_t key, StringC subKey, uint32_t* handleOut) {
    return openKeyEx(key, subKey, kAccessRead, handleOut);
}

uint32_t ConfRegistryIniC::openKeyEx(uint32_t key, StringC subKey, uint32_t, uint32_t* handleOut) {
    if (!handleOut) return kRegMissingArgument;
    KeyElemT* base = findElement(key);
    if (!base) return kRegBadHandle;
    if (subKey.isEmpty()) {
        ++base->value.refCount_;
        *handleOut = key;
        return 0;
    }
    KeyElemT* known = nullptr;
    int32_t index = -1;
    StringC rest;
    uint32_t code = findBelow(base, subKey, &known, &index, &rest);
    if (code != 0) return code;
    // Every open key has one handle, whichever way it was reached.
    if (known) {
        ++known->value.refCount_;
        *handleOut = static_cast<uint32_t>(known->storedKey);
        return 0;
    }
    *handleOut = enterKey(rest, index, 1);
    return 0;
}

uint32_t ConfRegistryIniC::findBelow(KeyElemT* base, const StringC& subKey, KeyElemT** known,
                                     int32_t* index, StringC* rest) {
    refreshFiles(kRegAllFiles);
    StringC full = joinPath(base->value.path_, subKey);
    *known = findByPath(full, false);
    if (*known) return 0;
    *index = fileAbove(full, rest);
    if (*index < 0) return kRegNotFound;
    PrefsC& prefs = files_[*index]->prefs();
    SystemTextC section(*rest);
    // A key exists as a section of its own or only as a part of the name of
    // a deeper section.
    bool exists = prefs.findSection(section.get(), false) != nullptr;
    if (!exists) {
        for (const char* const* names = prefs.getSectionNames(); names && *names && !exists;
             ++names) {
            exists = isUnderPath(StringC(*names, "system-8"), *rest, nullptr);
        }
    }
    return exists ? 0 : kRegNotFound;
}

uint32_t ConfRegistryIniC::closeKey(uint32_t key) {
    KeyElemT* element = findElement(key);
    if (!element) return kRegBadHandle;
    uint32_t count = element->value.refCount_--;
    // A key of a file goes at its last close; keys without a file stay, and
    // their count may run below zero without consequence. A key whose file
    // was mounted over still goes, so that no entry is left behind for good.
    if (count == 1 && element->value.fileIndex_ >= 0) {
        unsigned long handle = key;
        openKeys_.erase(&handle);
        tablesChanged();
    }
    return 0;
}

uint32_t ConfRegistryIniC::keyExists(uint32_t key, StringC subKey, StringC valueName,
                                     uint32_t* handleOut) {
    uint32_t handle = 0;
    uint32_t code = openKeyEx(key, subKey, kAccessRead, &handle);
    if (code != 0) return code;
    if (!valueName.isEmpty()) code = readValue(handle, valueName, nullptr, nullptr, nullptr);
    if (handleOut) {
        *handleOut = handle;
    } else {
        closeKey(handle);
    }
    return code;
}

// --- Values ---

uint32_t ConfRegistryIniC::readValue(uint32_t handle, const StringC& valueName, uint32_t* typeOut,
                                     void* data, uint32_t* size) {
    KeyElemT* element = findElement(handle);
    if (!element) return kRegBadHandle;
    ConfRegFileC* owner = fileOf(element->value);
    if (!owner) return kRegNotFound;
    SystemTextC section(element->value.name_);
    return readFrom(owner, section.get(), valueName, typeOut, data, size);
}

const char* ConfRegistryIniC::lookUp(ConfRegFileC* owner, const char* section,
                                     const StringC& valueName) {
    owner->refreshFile(false);
    return storedValue(owner, section, valueName);
}

uint32_t ConfRegistryIniC::readFrom(ConfRegFileC* owner, const char* section,
                                    const StringC& valueName, uint32_t* typeOut, void* data,
                                    uint32_t* size) {
    const char* value = lookUp(owner, section, valueName);
    // Null also covers an empty value name.
    if (!value) return kRegNotFound;
    uint32_t needed = measuredLength(value) + 1;
    if (needed > kRegValueLimit) return kRegValueTooLong;
    if (typeOut) *typeOut = 1;
    if (!data) {
        if (size) *size = needed;
        return 0;
    }
    if (!size) return kRegMissingArgument;
    bool fits = *size >= needed;
    *size = needed;
    if (!fits) return kRegMoreData;
    memcpy(data, value, needed);
    return 0;
}

uint32_t ConfRegistryIniC::placeForRead(uint32_t key, const StringC& subKey, ConfRegFileC** owner,
                                        std::string* section, bool refresh) {
    KeyElemT* base = findElement(key);
    if (!base) return kRegBadHandle;
    if (subKey.isEmpty()) {
        // The key itself, as openKeyEx hands it back.
        *owner = fileOf(base->value);
        if (!*owner) return kRegNotFound;
        SystemTextC name(base->value.name_);
        section->assign(name.get());
        return 0;
    }
    Utf8ViewC basePath(base->value.path_);
    Utf8ViewC sub(subKey);
    if (!base->value.asciiPath_ || !asciiBytes(sub.data(), sub.size())) return kUseOpenKey;
    if (refresh) refreshFiles(kRegAllFiles);
    // An open key of that path comes first, as in openKeyEx.
    KeyWalkT walk(&openKeys_);
    uint32_t status = 0;
    uint32_t fullSize = basePath.size() + 1 + sub.size();
    for (KeyElemT* element = walk.next(status); element; element = walk.next(status)) {
        if (!element->value.asciiPath_) return kUseOpenKey;
        if (element->value.pathSize_ != fullSize) continue;
        Utf8ViewC path(element->value.path_);
        if (!isJoinedPath(path.data(), path.size(), basePath, sub)) continue;
        *owner = fileOf(element->value);
        if (!*owner) return kRegNotFound;
        SystemTextC name(element->value.name_);
        section->assign(name.get());
        return 0;
    }
    // Then the first file whose mount point lies above it: its mount path
    // and a backslash lead `base`, a backslash and `sub`.
    for (uint32_t i = 0; i < fileCount_; ++i) {
        ConfRegFileC* file = files_[i];
        if (!file) continue;
        if (!file->asciiMount()) return kUseOpenKey;
        Utf8ViewC mount(file->mountPath());
        uint32_t prefix = mount.size() + 1;
        if (fullSize <= prefix) continue;
        uint32_t m = mount.size(), b = basePath.size();
        const uint8_t* base = basePath.data();
        bool leads =
            prefix <= b
                ? sameAsciiBytes(base, mount.data(), m) && base[m] == '\\'
                : sameAsciiBytes(base, mount.data(), b) &&
                      (m == b || (mount.data()[b] == '\\' &&
                                  sameAsciiBytes(sub.data(), mount.data() + b + 1, m - b - 1) &&
                                  sub.data()[m - b - 1] == '\\'));
        if (!leads) continue;
        // A key that exists only as a part of a deeper section's name has no
        // values: reading there misses as a missing key does.
        if (prefix <= b) {
            section->assign(basePath.chars() + prefix, b - prefix);
            section->push_back('\\');
            section->append(sub.chars(), sub.size());
        } else {
            section->assign(sub.chars() + (prefix - b - 1), sub.size() - (prefix - b - 1));
        }
        *owner = file;
        return 0;
    }
    return kRegNotFound;
}

uint32_t ConfRegistryIniC::queryValue(uint32_t key, StringC subKey, StringC valueName, void* data,
                                      uint32_t* size, uint32_t* typeOut) {
    uint32_t handle = 0;
    uint32_t code = openKeyEx(key, subKey, kAccessRead, &handle);
    if (code != 0) return code;
    // The caller's size and type are written only after a successful read,
    // so a buffer that is too small leaves them alone.
    uint32_t localSize = size ? *size : 0;
    uint32_t localType = 0;
    code = readValue(handle, valueName, &localType, data, (data && !size) ? nullptr : &localSize);
    closeKey(handle);
    if (code == 0) {
        if (size) *size = localSize;
        if (typeOut) *typeOut = localType;
    }
    return code;
}

uint32_t ConfRegistryIniC::getString(uint32_t key, StringC subKey, StringC valueName,
                                     StringC* out) {
    if (!out) return kRegMissingArgument;
    // One read gives what a size query followed by a read into a buffer of
    // that size gives: the text as the store holds it now.
    ReadPlacesC* places = readPlaces();
    ReadScopeC scope(places);
    // A place of the thread's table answers as placeForRead would, once
    // every file is refreshed as it would refresh them. A refresh reloads
    // stores only: the registry's tables, and so the place, stay.
    Utf8ViewC sub(subKey);
    ReadPlaceT* place =
        places ? places->find(this, generation_, key, sub.data(), sub.size()) : nullptr;
    ConfRegFileC* owner = nullptr;
    std::string section;
    uint32_t code = 0;
    // Every file was just looked at: the look at the owner that the read
    // adds would come within the same second (or find what this one found).
    bool refreshed = false;
    if (place) {
        if (place->refreshAll) {
            refreshFiles(kRegAllFiles);
            refreshed = true;
        }
        code = place->code;
        owner = place->owner;
    } else {
        code = placeForRead(key, subKey, &owner, &section, true);
        if (code == 0 || code == kRegNotFound) {
            place = places ? places->add(this, generation_, key, sub.data(), sub.size()) : nullptr;
            if (place) {
                place->code = code;
                place->owner = owner;
                place->section = section;
                place->refreshAll = !subKey.isEmpty();
            }
        }
    }
    if (code == kUseOpenKey) {
        // Found as the opening finds it, without entering a key: a read
        // changes no table of the registry.
        KeyElemT* known = nullptr;
        int32_t index = -1;
        StringC rest;
        code = findBelow(findElement(key), subKey, &known, &index, &rest);
        if (code != 0) return code;
        owner = known ? fileOf(known->value) : files_[index];
        SystemTextC name(known ? known->value.name_ : rest);
        section = name.get();
        code = owner ? 0 : kRegNotFound;
    }
    const char* value = nullptr;
    if (code == 0) {
        if (!refreshed) owner->refreshFile(false);
        value =
            place ? placedValue(*place, valueName) : storedValue(owner, section.c_str(), valueName);
    }
    if (code == 0 && !value) code = kRegNotFound;
    if (value) {
        uint32_t length = measuredLength(value);
        code = length + 1 > kRegValueLimit ? kRegValueTooLong : 0;
        if (code == 0) *out = stringFromEncoded(value, length, system8Encoding());
    }
    return code;
}

uint32_t ConfRegistryIniC::getInteger(uint32_t key, StringC subKey, StringC valueName,
                                      uint32_t* out) {
    StringC text;
    uint32_t code = getString(key, subKey, valueName, &text);
    if (code != 0) return code;
    // No complaint is asked for: "7l" reads as 7 and a text that is no
    // number as 0.
    int32_t value = parseInt32(text, nullptr, 0);
    if (value < 0) return kRegNotFound;
    if (out) *out = static_cast<uint32_t>(value);
    return 0;
}

uint32_t ConfRegistryIniC::setValue(uint32_t key, StringC subKey, StringC valueName, uint32_t,
                                    const void* data, uint32_t size) {
    uint32_t handle = 0;
    uint32_t code = createKey(key, subKey, &handle);
    if (code != 0) return code;
    KeyElemT* element = findElement(handle);
    ConfRegFileC* owner = fileOf(element->value);
    if (!owner) {
        closeKey(handle);
        return kRegBadHandle;
    }
    // The text ends at its first NUL, or after `size` bytes when a size is
    // given, whichever comes first.
    const char* text = static_cast<const char*>(data);
    std::string bounded;
    if (text && size > 0) {
        const void* end = memchr(text, 0, size);
        bounded.assign(text, end ? static_cast<const char*>(end) - text : size);
        text = bounded.c_str();
    }
    SystemTextC section(element->value.name_);
    SystemTextC name(valueName);
    int32_t index = element->value.fileIndex_;
    owner->setValue(section.get(), name.get(), text);
    // A failed commit leaves the change in memory for the next one.
    commitFile(index);
    closeKey(handle);
    return 0;
}

uint32_t ConfRegistryIniC::setString(uint32_t key, StringC subKey, StringC valueName,
                                     StringC value) {
    // The bound is the text's length in bytes plus 1, not in characters:
    // setValue ends the text at `size` bytes, and a character count would
    // cut every text with a letter beyond ASCII short.
    SystemTextC text(value);
    return setValue(key, subKey, valueName, 1, text.get(),
                    static_cast<uint32_t>(value.textSystemLength()) + 1);
}

uint32_t ConfRegistryIniC::setInteger(uint32_t key, StringC subKey, StringC valueName,
                                      uint32_t value) {
    // "%ul" is the conversion u followed by a literal l: the stored form is
    // "7l", which getInteger reads back as 7.
    ArgListC args;
    args.add(value);
    return setString(key, subKey, valueName, StringC::format(StringC("%ul", "ascii"), args));
}

uint32_t ConfRegistryIniC::deleteValue(uint32_t key, StringC subKey, StringC valueName) {
    uint32_t handle = 0;
    // When the key opens but the value is missing, the handle stays open.
    uint32_t code = keyExists(key, subKey, valueName, &handle);
    if (code != 0) return code;
    KeyElemT* element = findElement(handle);
    ConfRegFileC* owner = element ? fileOf(element->value) : nullptr;
    code = element ? (owner ? 0 : kRegNotFound) : kRegBadHandle;
    if (owner) {
        SystemTextC section(element->value.name_);
        SystemTextC name(valueName);
        owner->deleteKey(section.get(), name.get());
        commitFile(element->value.fileIndex_);
    }
    closeKey(handle);
    return code;
}

uint32_t ConfRegistryIniC::enumValue(uint32_t key, uint32_t index, StringC* nameOut,
                                     uint32_t* typeOut, void* data, uint32_t* size) {
    KeyElemT* element = findElement(key);
    if (!element) return kRegBadHandle;
    ConfRegFileC* owner = fileOf(element->value);
    if (!owner) return kRegNotFound;
    // No refresh: enumeration sees the memory content as it stands.
    SystemTextC section(element->value.name_);
    PrefKeyT* const* records = owner->prefs().getKeys(section.get());
    if (!records) return kRegNoMoreItems;
    for (uint32_t i = 0; i < index; ++i) {
        if (!records[i]) return kRegNoMoreItems;
    }
    PrefKeyT* record = records[index];
    if (!record) return kRegNoMoreItems;
    const char* value = record->value ? record->value : "";
    uint32_t needed = measuredLength(value) + 1;
    if (needed > kRegValueLimit) return kRegValueTooLong;
    if (nameOut) *nameOut = StringC(record->name ? record->name : "", "system-8");
    if (typeOut) *typeOut = 1;
    if (!data && size) {
        *size = needed;
        return kRegMoreData;
    }
    if (data && !size) return kRegMissingArgument;
    if (data) {
        if (*size < needed) return kRegMoreData;
        memcpy(data, value, needed);
    }
    return 0;
}

// --- Keys ---

uint32_t ConfRegistryIniC::enumKey(uint32_t key, uint32_t index, StringC* nameOut) {
    KeyElemT* element = findElement(key);
    if (!element) return kRegBadHandle;
    if (!nameOut) return kRegMissingArgument;
    ConfRegFileC* owner = fileOf(element->value);
    if (!owner) return kRegNotFound;
    // A child is listed once, at the place of its first section, whether or
    // not it has a section of its own.
    StringSetC seen(true);
    StringC rest;
    for (const char* const* names = owner->prefs().getSectionNames(); names && *names; ++names) {
        if (!isUnderPath(StringC(*names, "system-8"), element->value.name_, &rest)) continue;
        int32_t cut = rest.find('\\');
        StringC child = cut < 0 ? rest : rest.substring(0, cut);
        if (seen.contains(child)) continue;
        if (seen.size() == index) {
            *nameOut = child;
            return 0;
        }
        seen.add(child);
    }
    return kRegNoMoreItems;
}

uint32_t ConfRegistryIniC::createKey(uint32_t key, StringC subKey, uint32_t* handleOut) {
    KeyElemT* base = findElement(key);
    if (!base) return kRegBadHandle;
    uint32_t handle = 0;
    bool opened = openKeyEx(key, subKey, kAccessWrite, &handle) == 0;
    if (!opened) {
        StringC full = joinPath(base->value.path_, subKey);
        StringC rest;
        int32_t index = fileAbove(full, &rest);
        if (index < 0) return kRegNotFound;
        // Only the key itself becomes a section, not the levels between.
        SystemTextC section(rest);
        if (!files_[index]->createSection(section.get())) return kRegUnsupported;
        commitFile(index);
        if (openKeyEx(key, subKey, kAccessWrite, &handle) != 0) return kRegUnsupported;
    }
    if (handleOut) {
        *handleOut = handle;
    } else {
        closeKey(handle);
    }
    return 0;
}

uint32_t ConfRegistryIniC::removeKeyTree(uint32_t handle) {
    KeyElemT* element = findElement(handle);
    if (!element) return kRegBadHandle;
    ConfRegFileC* owner = fileOf(element->value);
    if (!owner) return 0;
    PrefsC& prefs = owner->prefs();
    const StringC& name = element->value.name_;
    {
        SystemTextC section(name);
        owner->deleteSection(section.get());
    }
    // The names are taken first: deleting changes what a new list would hold.
    StringArrayC below;
    for (const char* const* names = prefs.getSectionNames(); names && *names; ++names) {
        StringC section(*names, "system-8");
        if (isUnderPath(section, name, nullptr)) below.append(section);
    }
    for (uint32_t i = 0; i < below.size(); ++i) {
        SystemTextC section(*below.at(i));
        owner->deleteSection(section.get());
    }
    commitFile(element->value.fileIndex_);
    return 0;
}

uint32_t ConfRegistryIniC::deleteKey(uint32_t key, StringC subKey, bool recursive) {
    uint32_t handle = 0;
    uint32_t code = openKeyEx(key, subKey, kAccessWrite, &handle);
    if (code != 0) return code;
    if (!recursive) {
        StringC child;
        if (enumKey(handle, 0, &child) != kRegNoMoreItems ||
            enumValue(handle, 0, nullptr, nullptr, nullptr, nullptr) != kRegNoMoreItems) {
            closeKey(handle);
            return kRegKeyNotEmpty;
        }
    }
    removeKeyTree(handle);
    closeKey(handle);
    return 0;
}

// --- Paths and root names ---

uint32_t ConfRegistryIniC::parsePath(StringC path, uint32_t* rootOut, StringC* subKeyOut,
                                     StringC* valueOut) {
    int32_t first = path.find('\\');
    int32_t last = path.findLast('\\');
    if (rootOut) {
        uint32_t root = rootKeyFromName(first < 0 ? path : path.substring(0, first));
        if (root == 0) return kRegBadPath;
        *rootOut = root;
    }
    if (subKeyOut) {
        if (first < 0) {
            *subKeyOut = StringC();
        } else if (!valueOut) {
            *subKeyOut = path.substring(first + 1);
        } else {
            // The last backslash stays at the end when there are two or more.
            *subKeyOut = path.substring(first + 1, last - first);
        }
    }
    if (valueOut) {
        if (first < 0) return kRegBadPath;
        *valueOut = path.substring(last + 1);
    }
    return 0;
}

uint32_t ConfRegistryIniC::rootKeyFromName(StringC name) {
    for (uint32_t i = 0; i < 7; ++i) {
        StringC longName(kRootLongNames[i], "ascii");
        if (name.length() == longName.length() && name.compare(longName) == 0)
            return kFirstRoot + i;
        StringC shortName(kRootShortNames[i], "ascii");
        if (name.length() == shortName.length() && name.compare(shortName) == 0)
            return kFirstRoot + i;
    }
    return 0;
}

StringC ConfRegistryIniC::rootKeyName(uint32_t key) {
    if (key < kFirstRoot || key > kFirstRoot + 6) return StringC();
    return StringC(kRootLongNames[key - kFirstRoot], "ascii");
}

StringC ConfRegistryIniC::rootKeyShortName(uint32_t key) {
    if (key < kFirstRoot || key > kFirstRoot + 6) return StringC();
    return StringC(kRootShortNames[key - kFirstRoot], "ascii");
}

// --- Mounting ---

uint32_t ConfRegistryIniC::mountFile(StringC fileName, StringC rootName, StringC subPath) {
    FileNameC path(fileName);
    // Without a file name a commit would write ".tmp" and ".lck" into the
    // current directory: the name is as needed as the root.
    if (rootName.isEmpty() || path.toString().isEmpty()) return kRegMissingArgument;
    // Both spellings of a root work; an unknown one gives an empty root.
    StringC root = rootKeyName(rootKeyFromName(rootName));
    StringC target = subPath.isEmpty() ? root : joinPath(root, subPath);
    for (uint32_t i = 0; i < fileCount_; ++i) {
        if (files_[i] && files_[i]->path().compare(path) == 0) return kRegAlreadyMounted;
    }
    for (uint32_t i = 0; i < fileCount_; ++i) {
        // A file mounted at the same point is retired in place: its slot
        // keeps its index and holds no file, so its open keys answer as keys
        // without one and no other key's index moves.
        if (files_[i] && samePath(files_[i]->mountPath(), target)) {
            delete files_[i];
            files_[i] = nullptr;
            retireKeys(static_cast<int32_t>(i));
        }
    }
    appendFile(new ConfRegFileC(path, root, subPath));
    // Every key from the root down to the mount point exists from now on.
    StringArrayC* parts = splitString(subPath, backslash(), false, true, 0);
    StringC running;
    for (uint32_t i = 0; parts && i < parts->size(); ++i) {
        if (i > 0) running.append(backslash());
        running.append(*parts->at(i));
        StringC name = joinPath(root, running);
        // A key without a file never leaves; entering it again would only
        // give the same path a second handle.
        if (!findByPath(name, true)) enterKey(name, -1, 0);
    }
    delete parts;
    return 0;
}

int32_t ConfRegistryIniC::fileAbove(const StringC& path, StringC* rest) const {
    for (uint32_t i = 0; i < fileCount_; ++i) {
        if (files_[i] && isUnderPath(path, files_[i]->mountPath(), rest))
            return static_cast<int32_t>(i);
    }
    return -1;
}

ConfRegistryIniC::KeyElemT* ConfRegistryIniC::findByPath(const StringC& path, bool withoutFile) {
    KeyWalkT walk(&openKeys_);
    uint32_t status = 0;
    for (KeyElemT* element = walk.next(status); element; element = walk.next(status)) {
        if (withoutFile && element->value.fileIndex_ >= 0) continue;
        if (samePath(element->value.path_, path)) return element;
    }
    return nullptr;
}

void ConfRegistryIniC::retireKeys(int32_t index) {
    // Their path becomes that of a key without a file, the bare name, so
    // that a path of the file mounted in their place never finds them.
    KeyWalkT walk(&openKeys_);
    uint32_t status = 0;
    for (KeyElemT* element = walk.next(status); element; element = walk.next(status)) {
        if (element->value.fileIndex_ != index) continue;
        element->value.path_ = element->value.name_;
        element->value.pathSize_ = ConfRegKeyC::textSize(element->value.path_);
    }
    tablesChanged();
}

uint32_t ConfRegistryIniC::setAutoCommit(bool enabled) {
    autoCommit_ = enabled;
    if (enabled) commitFile(kRegAllFiles);
    return 0;
}

uint32_t ConfRegistryIniC::refreshFiles(int32_t index) {
    if (index == kRegAllFiles) {
        for (uint32_t i = 0; i < fileCount_; ++i) {
            if (files_[i]) files_[i]->refreshFile(false);
        }
        return 0;
    }
    if (ConfRegFileC* target = file(index)) target->refreshFile(false);
    return 0;
}

}  // namespace keel
