// ArgListC: typed argument lists for messages and formats.
//
// A list carries the arguments of a message from the place that knows them to
// the place that renders them, possibly much later and through a translated
// text that uses other conversions in another order. Each argument is stored
// with a type code and can be read again by position any number of times.
//
//     keel::ArgListC args;
//     args.add(int32_t(42)).add(keel::StringC("name", "ascii")).add("text");
//     keel::StringC message = keel::StringC::format(keel::StringC("%1$d %2$S %3$s", "ascii"), args);
//
// The handle is passed by value everywhere: a copy shares the body (there is
// no copy on write), and an empty list costs no allocation because a null
// cell is a valid empty list. All code here is inline so that programs can
// build lists that the library reads, and the other way round.
#ifndef KEEL_ARGLIST_H
#define KEEL_ARGLIST_H

#include <stdarg.h>
#include <stdint.h>
#include <string.h>

#include <new>

#include <keel/atomic.h>
#include <keel/refcount.h>
#include <keel/string.h>

namespace keel {

// Type codes of entries. Codes 0 to 8 are the numeric group.
enum ArgTypeE : int32_t {
    ArgBool = 0,
    ArgInt16 = 1,
    ArgInt32 = 2,
    ArgInt64 = 3,
    ArgUnsigned16 = 4,
    ArgUnsigned32 = 5,
    ArgUnsigned64 = 6,
    ArgReal = 7,
    ArgUCS4 = 8,
    ArgString = 9,
    ArgDateTime = 10,
    ArgObjRef = 11,
    ArgDecimal = 12,
    ArgBlob = 13,
    ArgGuid = 14,
    ArgArgList = 15,
    ArgCharStar = 16,
    ArgTimeVal = 17,
    ArgUser = 18,
    ArgNull = 19,
};

// A GUID value as an "Guid" entry holds it.
struct ArgGuidT {
    uint32_t data1;
    uint16_t data2;
    uint16_t data3;
    uint8_t data4[8];
};

// A "TimeVal" value: seconds since 1970 and microseconds.
struct ArgTimeValT {
    int32_t seconds;
    int32_t microseconds;
};

class ArgListC;

// One entry: a 32-bit type code followed by its value, in one heap block
// exactly as large as the type needs. The value starts one pointer width
// behind the code so that pointers and handles inside it stay aligned.
class ArgEntry {
public:
    static const size_t valueOffset = sizeof(void*);

    // Allocates an entry of `code` with room for `valueSize` bytes of value.
    static ArgEntry* allocate(int32_t code, size_t valueSize) {
        void* block = ::operator new(valueOffset + valueSize);
        memcpy(block, &code, sizeof code);
        return static_cast<ArgEntry*>(block);
    }
    static void free(ArgEntry* entry) { ::operator delete(static_cast<void*>(entry)); }

    int32_t code() const {
        int32_t value;
        memcpy(&value, this, sizeof value);
        return value;
    }
    const char* typeName() const;
    void* value() { return reinterpret_cast<char*>(this) + valueOffset; }
    const void* value() const { return reinterpret_cast<const char*>(this) + valueOffset; }

    // Reads the value as T (the caller knows the code).
    template <typename T>
    T read() const {
        T result;
        memcpy(&result, value(), sizeof result);
        return result;
    }
    // The pointer word of an "ObjRef" or "CharStar" entry.
    void* pointer() const { return read<void*>(); }
    const StringC& string() const { return *static_cast<const StringC*>(value()); }
    const ArgListC& argList() const;

private:
    ArgEntry() = delete;
};

class ArgListC {
public:
    // The body: reference-counted, owns its entries.
    class ArgListImplC : public RefCountC {
    public:
        ArgListImplC() : capacity(0), count(0), entries(nullptr) {}
        ~ArgListImplC() override;

        // Capacity rises by 16 at a time: 0, 16, 32, ... The new capacity is
        // stored only once its array exists, so a failing allocation leaves
        // the body as it was.
        void add(ArgEntry* entry) {
            if (count >= capacity) {
                int32_t grownCapacity = (capacity + 16) & ~15;
                ArgEntry** grown = new ArgEntry*[grownCapacity];
                if (count != 0) memcpy(grown, entries, sizeof(ArgEntry*) * count);
                delete[] entries;
                entries = grown;
                capacity = grownCapacity;
            }
            entries[count++] = entry;
        }

        int32_t capacity;
        int32_t count;
        ArgEntry** entries;
    };

    ArgListC() {}
    ArgListC(const ArgListC& other) {
        cell.exchange(nullptr);
        ArgListImplC* body = other.cell.load();
        if (body) body->addRef();
        cell.exchange(body);
    }
    ArgListC& operator=(const ArgListC& other) {
        ArgListImplC* body = other.cell.load();
        if (body) body->addRef();
        ArgListImplC* old = cell.exchange(body);
        if (old) old->release();
        return *this;
    }
    ~ArgListC() {
        ArgListImplC* body = cell.load();
        if (body) body->release();
    }

    // Adds an entry at the end; the list takes ownership.
    ArgListC& append(ArgEntry* entry) {
        ArgListImplC* body = cell.load();
        if (!body) {
            body = new ArgListImplC();
            body->addRef();
            ArgListImplC* old = cell.exchange(body);
            if (old) old->release();
        }
        body->add(entry);
        return *this;
    }

    ArgListC& add(bool value) { return addValue(ArgBool, static_cast<uint8_t>(value ? 1 : 0)); }
    ArgListC& add(int16_t value) { return addValue(ArgInt16, value); }
    ArgListC& add(int32_t value) { return addValue(ArgInt32, value); }
    ArgListC& add(int64_t value) { return addValue(ArgInt64, value); }
    ArgListC& add(uint16_t value) { return addValue(ArgUnsigned16, value); }
    ArgListC& add(uint32_t value) { return addValue(ArgUnsigned32, value); }
    ArgListC& add(uint64_t value) { return addValue(ArgUnsigned64, value); }
    ArgListC& add(double value) { return addValue(ArgReal, value); }
    ArgListC& addUCS4(uint32_t character) { return addValue(ArgUCS4, character); }
    ArgListC& add(const StringC& value) {
        ArgEntry* entry = ArgEntry::allocate(ArgString, sizeof(StringC));
        new (entry->value()) StringC(value);
        return append(entry);
    }
    ArgListC& addDateTime(int64_t ticks) { return addValue(ArgDateTime, ticks); }
    ArgListC& add(const void* object) { return addValue(ArgObjRef, object); }
    ArgListC& add(const ArgGuidT& guid) { return addValue(ArgGuid, guid); }
    ArgListC& add(const ArgListC& list) {
        ArgEntry* entry = ArgEntry::allocate(ArgArgList, sizeof(ArgListC));
        new (entry->value()) ArgListC(list);
        return append(entry);
    }
    // Copies the text (at most 16 MiB of it); null is stored as the empty text.
    ArgListC& add(const char* text) {
        size_t length = text ? strnlen(text, 0x1000000) : 0;
        char* copy = new char[length + 1];
        if (length) memcpy(copy, text, length);
        copy[length] = 0;
        return addValue(ArgCharStar, copy);
    }
    ArgListC& add(const ArgTimeValT& time) { return addValue(ArgTimeVal, time); }
    ArgListC& addNull() { return append(ArgEntry::allocate(ArgNull, 0)); }

    // The entry at `index`, still owned by the list, or null.
    ArgEntry* get(int32_t index) const {
        ArgListImplC* body = cell.load();
        if (!body || index < 0 || index >= body->count) return nullptr;
        return body->entries[index];
    }
    int32_t count() const {
        ArgListImplC* body = cell.load();
        return body ? body->count : 0;
    }
    ArgListImplC* getImpl() const { return cell.load(); }

    // The name of a type code, or the empty text for a number that is none.
    static const char* typeName(int32_t code) {
        static const char* const names[] = {
            "Bool",     "Int16",   "Int32",   "Int64", "Unsigned16", "Unsigned32", "Unsigned64",
            "Real",     "UCS4",    "String",  "DateTime", "ObjRef",  "Decimal",    "Blob",
            "Guid",     "ArgList", "CharStar", "TimeVal", "User",    "Null"};
        return code >= 0 && code <= ArgNull ? names[code] : "";
    }

    // Fills a list from a format and its variadic arguments (the format
    // engine's parser).
    static ArgListC fromFormat(const StringC& format, va_list arguments);

private:
    template <typename T>
    ArgListC& addValue(int32_t code, const T& value) {
        ArgEntry* entry = ArgEntry::allocate(code, sizeof(T));
        memcpy(entry->value(), &value, sizeof(T));
        return append(entry);
    }

    AtomicM<ArgListImplC*> cell;
};

inline const char* ArgEntry::typeName() const { return ArgListC::typeName(code()); }
inline const ArgListC& ArgEntry::argList() const { return *static_cast<const ArgListC*>(value()); }

// Entries are released by their code. The layouts of "Decimal", "Blob" and
// "User" (and of any code above "Null") belong to whoever appended such an
// entry: the list cannot know how to free them, so it leaves them alone and
// their owner keeps them. A "Bool" entry is one the list made itself and is
// freed like the other plain values, so no list leaks memory. A null entry
// (appended by mistake) reads as a missing argument and is skipped here.
inline ArgListC::ArgListImplC::~ArgListImplC() {
    for (int32_t i = 0; i < count; ++i) {
        ArgEntry* entry = entries[i];
        if (!entry) continue;
        switch (entry->code()) {
        case ArgDecimal:
        case ArgBlob:
        case ArgUser:
            continue;
        case ArgString:
            static_cast<StringC*>(entry->value())->~StringC();
            break;
        case ArgArgList:
            static_cast<ArgListC*>(entry->value())->~ArgListC();
            break;
        case ArgCharStar:
            delete[] static_cast<char*>(entry->pointer());
            break;
        default:
            if (entry->code() < 0 || entry->code() > ArgNull) continue;
            break;
        }
        ArgEntry::free(entry);
    }
    delete[] entries;
}

inline StringC StringC::format(const StringC& format, ArgListC args) {
    StringImplI* pattern = format.getImpl();
    return StringC::fromNew(pattern->getFactory()->format(pattern, args));
}

inline void StringC::formatTo(CharSinkFn sink, void* context, const StringC& format, ArgListC args) {
    StringImplI* pattern = format.getImpl();
    pattern->getFactory()->formatTo(sink, context, pattern, args);
}

}  // namespace keel

// The parser behind ArgListC::fromFormat is inline there: it reads the
// caller's variadic block, so it must be compiled into the caller.
#include <keel/format.h>

#endif
