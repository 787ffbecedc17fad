// Configuration: the registry of keys and values over ini files, and the
// service that hands it out.
//
// getConfiguration(1) (or 2: the two are the same object) gives the one
// ConfigurationI of the process; its getRegistry gives the registry. The
// registry is a tree of keys in the shape of the Windows registry: root keys
// by fixed handle (HKEY_LOCAL_MACHINE is 0x80000002, HKEY_CURRENT_USER
// 0x80000001), open keys as numeric handles, text values. Nothing is in it
// until a program mounts an ini file at a point of the tree; each section of
// the file is a key below that point (the section name is the key's path
// relative to it) and each "name=value" line a value:
//
//     keel::ConfRegistryI* registry = getConfiguration(1)->getRegistry();
//     registry->mountFile(keel::StringC("/etc/app.ini", "utf8"), keel::StringC("HKLM", "utf8"),
//                         keel::StringC("Software\\App", "utf8"));
//     keel::StringC value;
//     if (registry->getString(0x80000002, keel::StringC("Software\\App\\Window", "utf8"),
//                             keel::StringC("Width", "utf8"), &value) == 0) ...
//     registry->setString(0x80000002, keel::StringC("Software\\App\\Window", "utf8"),
//                         keel::StringC("Width", "utf8"), keel::StringC("640", "utf8"));
//
// A change is written to its file at once (unless setAutoCommit(false)),
// under a lock file, merged into what the file holds by then, so processes
// that change different keys of one file keep each other's changes.
// Paths are case-insensitive; root key names (rootKeyFromName) are not.
//
// Every operation answers a code: 0, or one of the set 311 (0xE1370065
// unsupported or failed commit, 0xE1370066 past the end of an enumeration,
// 0xE1370067 buffer too small, 0xE1370069 not found, 0xE137006A key not
// empty, 0xE137006B not an open key, 0xE137006E argument missing,
// 0xE1370072 value too long, 0xE1370074 file already mounted, 0xE1370077 bad
// path). The registry never records anything in the error buffer. It has no
// lock: a program that uses it from several threads guards it itself.
//
// The order of the virtual operations is part of the binary interface;
// operations named reserved* keep their place and answer a constant.
#ifndef KEEL_CONFIG_H
#define KEEL_CONFIG_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

class ConfRegistryI {
public:
    // The root keys that are open keys.
    enum : uint32_t { kCurrentUser = 0x80000001u, kLocalMachine = 0x80000002u };

    // 0 when `subKey` of `key` opens and, with a `valueName`, that value
    // exists. With `handleOut` the opened key stays open (close it), even
    // when the value is missing.
    virtual uint32_t keyExists(uint32_t key, StringC subKey, StringC valueName,
                               uint32_t* handleOut) = 0;
    // Reads a value: with `data` null (or `size` null) only its size in
    // bytes, the terminator included, goes to *size. `type` is always 1.
    virtual uint32_t queryValue(uint32_t key, StringC subKey, StringC valueName, void* data,
                                uint32_t* size, uint32_t* typeOut) = 0;
    virtual uint32_t getString(uint32_t key, StringC subKey, StringC valueName, StringC* out) = 0;
    virtual uint32_t reservedGet() = 0;
    // The value read as a number (base 0, so "0x10" is 16); a negative
    // number reads as not found, a text that is no number as 0.
    virtual uint32_t getInteger(uint32_t key, StringC subKey, StringC valueName, uint32_t* out) = 0;
    // Opening an open key again gives the same handle; each open wants its close.
    virtual uint32_t openKey(uint32_t key, StringC subKey, uint32_t* handleOut) = 0;
    // Value `index` of an open key, in file order. With `data` null and
    // `size` given the size goes to *size and the code is 0xE1370067.
    virtual uint32_t enumValue(uint32_t key, uint32_t index, StringC* nameOut, uint32_t* typeOut,
                               void* data, uint32_t* size) = 0;
    // Child key `index` of an open key.
    virtual uint32_t enumKey(uint32_t key, uint32_t index, StringC* nameOut) = 0;
    virtual uint32_t closeKey(uint32_t key) = 0;
    // Opens the key, making it first when it does not exist.
    virtual uint32_t createKey(uint32_t key, StringC subKey, uint32_t* handleOut) = 0;
    // Sets a value from a zero-terminated text in "system-8" (`type` is
    // ignored; a `size` above 0 bounds the text), making the key if needed.
    virtual uint32_t setValue(uint32_t key, StringC subKey, StringC valueName, uint32_t type,
                              const void* data, uint32_t size) = 0;
    virtual uint32_t setString(uint32_t key, StringC subKey, StringC valueName, StringC value) = 0;
    virtual uint32_t reservedSet() = 0;
    // Stored as the number followed by the letter l ("7l"), which
    // getInteger reads back as the number.
    virtual uint32_t setInteger(uint32_t key, StringC subKey, StringC valueName,
                                uint32_t value) = 0;
    virtual uint32_t deleteValue(uint32_t key, StringC subKey, StringC valueName) = 0;
    // Without `recursive` only a key with no values and no child keys goes.
    virtual uint32_t deleteKey(uint32_t key, StringC subKey, bool recursive) = 0;
    // Splits "HKLM\A\B\Value" into the root handle, the sub-key and the
    // value name; with a value asked for, the sub-key keeps its last
    // backslash ("A\B\").
    virtual uint32_t parsePath(StringC path, uint32_t* rootOut, StringC* subKeyOut,
                               StringC* valueOut) = 0;
    // 0x80000000 ... 0x80000006 from "HKEY_CLASSES_ROOT" ... "HKEY_DYN_DATA"
    // or "HKCR" ... "HKDD", case-sensitive; 0 for any other name.
    virtual uint32_t rootKeyFromName(StringC name) = 0;
    // The names of a root handle; empty for any other number.
    virtual StringC rootKeyName(uint32_t key) = 0;
    virtual StringC rootKeyShortName(uint32_t key) = 0;
    virtual uint32_t reservedRootA() = 0;
    virtual uint32_t reservedRootB() = 0;
    // openKey; `access` is accepted and ignored.
    virtual uint32_t openKeyEx(uint32_t key, StringC subKey, uint32_t access,
                               uint32_t* handleOut) = 0;
    virtual uint32_t closeKeyEx(uint32_t key) = 0;
    // Binds the ini file `fileName` at `rootName` (long or short name) and
    // `subPath` below it; the file need not exist yet. Mounting at a point
    // already in use retires the file mounted there before.
    virtual uint32_t mountFile(StringC fileName, StringC rootName, StringC subPath) = 0;
    // With false, changes stay in memory; true writes what was collected.
    virtual uint32_t setAutoCommit(bool enabled) = 0;

protected:
    virtual ~ConfRegistryI() {}
};

class ConfigurationI {
public:
    // The registry; the service keeps it.
    virtual ConfRegistryI* getRegistry() = 0;
    virtual void* reservedPointer() = 0;
    virtual void reservedAction() = 0;
    virtual StringC reservedTextA() = 0;
    virtual StringC reservedTextB() = 0;
    virtual StringC reservedTextC() = 0;

protected:
    virtual ~ConfigurationI() {}
};

}  // namespace keel

// The configuration service of the process, made on the first call and never
// destroyed; null for a version other than 1 or 2. Callers never delete it.
extern "C" KEEL_EXPORT keel::ConfigurationI* getConfiguration(int version);

#endif
