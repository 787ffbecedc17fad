// ArgListC: typed argument lists for messages and formats.
//
// A list carries the arguments of a message from the place that knows them to
// the place that renders them, possibly much later and through a translated
// text that uses other conversions in another order. Each argument is stored
// with a type code and can be read again by position any number of times.
//
//     keel::ArgListC args;
//     args.add(int32_t(42)).add(keel::StringC("name", "ascii")).add("text");
//     keel::StringC message =
//         keel::StringC::format(keel::StringC("%1$d %2$S %3$s", "ascii"), args);
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
class ArgListStackBodyC;

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
    // Where ArgListC::add keeps the copy of a "CharStar" text: in the
    // entry's own block, behind the pointer word that points at it, so that
    // the text is one allocation with its entry and goes with it.
    const char* textInside() const {
        return reinterpret_cast<const char*>(this) + valueOffset + sizeof(void*);
    }
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
        // the body as it was. The first 16 entries take the array inside the
        // body, which a message's list never outgrows: the list is then one
        // block, not two.
        void add(ArgEntry* entry) {
            if (count >= capacity) {
                int32_t grownCapacity = (capacity + 16) & ~15;
                ArgEntry** grown = capacity == 0 ? firstEntries : new ArgEntry*[grownCapacity];
                if (count != 0) memcpy(grown, entries, sizeof(ArgEntry*) * count);
                if (entries != firstEntries) delete[] entries;
                entries = grown;
                capacity = grownCapacity;
            }
            entries[count++] = entry;
        }

        int32_t capacity;
        int32_t count;
        ArgEntry** entries;

    protected:
        // Also the whole entry array of a list held on the stack
        // (ArgListStackBodyC), which never grows.
        ArgEntry* firstEntries[16];
    };

    ArgListC() {}
    // The copy's own cell is reachable by no other thread yet: the reference
    // is taken and the cell set plainly.
    ArgListC(const ArgListC& other) {
        ArgListImplC* body = other.cell.load();
        if (body) body->addRef();
        cell.initialize(body);
    }
    // Moving hands the body over without touching its count; the moved-from
    // list is empty (no body), as a list that was never added to. An rvalue
    // is its holder's alone (the rule of the standard library for rvalue
    // arguments), as the new list is, so neither cell is written by exchange:
    // the format front end moves its own by-value copy into the engine's.
    ArgListC(ArgListC&& other) noexcept {
        cell.initialize(other.cell.load());
        other.cell.initialize(nullptr);
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
            // A new body that no other thread can see yet: its first
            // reference is stored plainly. The cell was null a moment ago
            // and adding to a list is for its owner only (the entries are
            // added without a lock), so the body is published with a
            // release store rather than an exchange.
            body = new ArgListImplC();
            body->firstRef();
            cell.publish(body);
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
    // Copies the text (at most 16 MiB of it); null is stored as the empty
    // text. The copy lives in the entry's block (see textInside).
    ArgListC& add(const char* text) {
        size_t length = text ? strnlen(text, 0x1000000) : 0;
        ArgEntry* entry = ArgEntry::allocate(ArgCharStar, sizeof(char*) + length + 1);
        char* copy = const_cast<char*>(entry->textInside());
        if (length) memcpy(copy, text, length);
        copy[length] = 0;
        memcpy(entry->value(), &copy, sizeof copy);
        return append(entry);
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
            "Bool", "Int16",   "Int32",    "Int64",    "Unsigned16", "Unsigned32", "Unsigned64",
            "Real", "UCS4",    "String",   "DateTime", "ObjRef",     "Decimal",    "Blob",
            "Guid", "ArgList", "CharStar", "TimeVal",  "User",       "Null"};
        return code >= 0 && code <= ArgNull ? names[code] : "";
    }

    // Fills a list from a format and its variadic arguments (the format
    // engine's parser).
    static ArgListC fromFormat(const StringC& format, va_list arguments);

private:
    friend class ArgListStackBodyC;

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
            // A text that an entry made elsewhere points at was allocated
            // as an array of its own.
            if (entry->pointer() != entry->textInside())
                delete[] static_cast<char*>(entry->pointer());
            break;
        default:
            if (entry->code() < 0 || entry->code() > ArgNull) continue;
            break;
        }
        ArgEntry::free(entry);
    }
    if (entries != firstEntries) delete[] entries;
}

inline StringC StringC::format(const StringC& format, ArgListC args) {
    StringImplI* pattern = format.getImpl();
    // `args` is this call's own copy: it is handed on, not copied again.
    return StringC::fromNew(pattern->getFactory()->format(pattern, static_cast<ArgListC&&>(args)));
}

inline void StringC::formatTo(CharSinkFn sink, void* context, const StringC& format,
                              ArgListC args) {
    StringImplI* pattern = format.getImpl();
    pattern->getFactory()->formatTo(sink, context, pattern, static_cast<ArgListC&&>(args));
}

// The format parser behind ArgListC::fromFormat. It reads the caller's
// variadic block, which no entry point of the shared object could take, so
// it is inline and compiled into the caller.
//
// What each conversion takes from the variadic arguments:
//
//   %d %i %c            int            %hd %hi            int, kept as 16 bits
//   %u %o %x %X %b      unsigned int   %hu %ho %hx ...    unsigned int, 16 bits
//   %ld %li             int            %lu %lo %lx ...    unsigned int
//   %lld %lli           long long      %llu %llo %llx ... unsigned long long
//   %hhd %hhi           int, 8 bits    %hhu %hho %hhx ... unsigned int, 8 bits
//   %C                  a character code (unsigned int)
//   %S                  const StringC* (a pointer, never a StringC itself)
//   %s                  const char*, copied
//   %p %lp              a pointer
//   %t                  const ArgTimeValT* (seconds and microseconds)
//   *                   int (a width or precision)
//
// `l` means 32 bits on every target: pass `long long` with `%lld` for 64-bit
// values. Other length letters (%ls, %qd, %zu, %jd, ...) take no argument,
// and the conversion behind them then shows a missing argument. Positions
// (%2$S) may reorder the arguments; a position nobody names still takes an
// int from the block. Nothing here can check the arguments against the
// letters: keel::format of <keel/format.h> builds the list from the types of
// its arguments instead.
// The parser's view of the format language. It is compiled into every
// program that calls it, so it carries its own digit table and decoder; both
// answer exactly as the library's digitValue and utf8Next do (a test compares
// the digit tables over the whole character range, the format fuzz target the
// decoders on every format it makes).
namespace formatparse {

// Value of a decimal digit of any script, 0 to 9, else -1.
inline int32_t digitValue(uint32_t c) {
    if (c < 0x80) return c >= '0' && c <= '9' ? static_cast<int32_t>(c - '0') : -1;
    static const uint16_t ranges[][2] = {
        {0x0030, 0x0039}, {0x0660, 0x0669}, {0x06F0, 0x06F9}, {0x0966, 0x096F}, {0x09E6, 0x09EF},
        {0x0A66, 0x0A6F}, {0x0AE6, 0x0AEF}, {0x0B66, 0x0B6F}, {0x0BE7, 0x0BEF}, {0x0C66, 0x0C6F},
        {0x0CE6, 0x0CEF}, {0x0D66, 0x0D6F}, {0x0E50, 0x0E59}, {0x0ED0, 0x0ED9}, {0x0F20, 0x0F29},
        {0x1040, 0x1049}, {0x1369, 0x1371}, {0x17E0, 0x17E9}, {0x1810, 0x1819}, {0x3021, 0x3029},
        {0xFF10, 0xFF19}};
    for (const auto& range : ranges) {
        if (range[0] > c) break;
        if (c <= range[1]) return static_cast<int32_t>(c + 9 - range[1]);
    }
    return c == 0x3007 ? 0 : -1;
}

// Decodes one character of internal form and moves `p` past it, as the
// library's decoder does (see textform::nextChar in <keel/string.h>). The
// ASCII case, nearly every character of a conversion, is answered here so
// that it needs no call.
inline uint32_t nextChar(const uint8_t*& p) {
    uint8_t b = *p;
    if (b < 0x80) {
        if (b != 0) ++p;
        return b;
    }
    return textform::nextChar(p);
}

// Reads a run of digits that starts with `c` (a digit); `c` ends as the
// character behind the run. Large numbers stop growing at 0x7FFFFFFF rather
// than overflow. The digit table and the decoder are parameters: the
// library's renderer (src/text/format.cpp) reads its numbers with this same
// loop through its own, which answer alike.
template <int32_t (*Digit)(uint32_t), uint32_t (*Next)(const uint8_t*&)>
inline int32_t readNumberWith(const uint8_t*& p, uint32_t& c) {
    int64_t number = 0;
    int32_t digit;
    while ((digit = Digit(c)) >= 0) {
        number = number * 10 + digit;
        if (number > 0x7FFFFFFF) number = 0x7FFFFFFF;
        c = Next(p);
    }
    return static_cast<int32_t>(number);
}

inline int32_t readNumber(const uint8_t*& p, uint32_t& c) {
    return readNumberWith<digitValue, nextChar>(p, c);
}

// The table of argument positions: one letter per position, telling how to
// take that argument from the variadic block.
struct PositionTableT {
    enum { slotCount = 128 };
    char slots[slotCount];
    int32_t top;   // highest position written, -1 for none
    int32_t next;  // position of the next argument

    PositionTableT() : top(-1), next(0) {}

    void record(int32_t position, char letter) {
        // The table has 128 slots and a format may name any position: one
        // outside the table (at or above 128, or below 0 through "%0$") is
        // not recorded and leaves `top` alone, so the argument shows as
        // missing instead of being written past the table.
        if (position < 0 || position >= slotCount) return;
        // Positions skipped over take nothing; the usual next position is
        // stored without a loop.
        if (position > top + 1)
            memset(slots + (top + 1), ' ', static_cast<size_t>(position - top - 1));
        if (position > top) top = position;
        slots[position] = letter;
    }
    int32_t advance() {
        int32_t position = next;
        if (next < 0x7FFFFFFF) ++next;
        return position;
    }
};

// The letter for a conversion, by its length letters and conversion letter;
// 0 when the parser does not know the pair and the conversion takes nothing.
inline char slotLetter(const char* length, uint32_t lengthCount, uint32_t conversion) {
    if (conversion < 'C' || conversion > 'x') return 0;
    bool isSigned = conversion == 'd' || conversion == 'i';
    bool isUnsigned = conversion == 'X' || conversion == 'b' || conversion == 'o' ||
                      conversion == 'u' || conversion == 'x';
    if (lengthCount == 0) {
        switch (conversion) {
        case 'd':
        case 'i':
        case 'c':
            return 'i';
        case 'X':
        case 'b':
        case 'o':
        case 'u':
        case 'x':
            return 'I';
        case 'C':
            return 'U';
        case 'S':
            return 'S';
        case 's':
            return 's';
        case 'p':
            return 'p';
        case 't':
            return 't';
        default:
            return 0;
        }
    }
    if (lengthCount == 1 && length[0] == 'h') return isSigned ? 'h' : isUnsigned ? 'H' : 0;
    if (lengthCount == 2 && length[0] == 'h' && length[1] == 'h')
        return isSigned ? 'c' : isUnsigned ? 'C' : 0;
    if (lengthCount == 1 && length[0] == 'l') {
        if (conversion == 'p') return 'p';
        return isSigned ? 'l' : isUnsigned ? 'L' : 0;
    }
    if (lengthCount == 2 && length[0] == 'l' && length[1] == 'l')
        return isSigned ? 'q' : isUnsigned ? 'Q' : 0;
    return 0;
}

inline bool isLengthLetter(uint32_t c) {
    return c == 'h' || c == 'j' || c == 'l' || c == 'L' || c == 'q' || c == 'z';
}

// Handles a `*` whose character behind it is in `c`: `*n$` (one digit and
// the byte `$`) names its position, anything else takes the next one. On
// return `c` is the character behind what was used.
inline void recordStar(PositionTableT& table, const uint8_t*& p, uint32_t& c) {
    c = nextChar(p);
    int32_t digit = digitValue(c);
    if (digit >= 0 && *p == '$') {
        ++p;
        table.record(digit - 1, 'i');
        c = nextChar(p);
        return;
    }
    table.record(table.advance(), 'i');
}

// The next `%` or the terminating NUL, a byte at a time: the plain walk
// whose answer scanFormat's search gives (the tests hold the two side by
// side).
inline const uint8_t* skipToPercent(const uint8_t* p) {
    while (*p != 0 && *p != '%') ++p;
    return p;
}

// One conversion, with `p` behind its `%`: records the position and letter
// of what it takes, and leaves `p` behind what it read. It never reads past
// the format's NUL.
inline void scanConversion(PositionTableT& table, const uint8_t*& p) {
    uint32_t c = nextChar(p);
    bool widthRead = false;
    if (digitValue(c) >= 0) {
        int32_t number = readNumber(p, c);
        if (c == '$') {
            table.next = number - 1;
            c = nextChar(p);
        } else {
            widthRead = true;
        }
    }
    if (!widthRead) {
        while (c == ' ' || c == '#' || c == '+' || c == '-') c = nextChar(p);
        if (digitValue(c) == 0) c = nextChar(p);
        if (c == '*') {
            recordStar(table, p, c);
        } else {
            while (digitValue(c) >= 0) c = nextChar(p);
        }
    }
    if (c == '.') {
        c = nextChar(p);
        if (c == '*') {
            recordStar(table, p, c);
        } else {
            while (digitValue(c) >= 0) c = nextChar(p);
        }
    }
    // The renderer skips any run of length letters; only h, hh, l and ll
    // give a conversion a type here, and anything else records nothing.
    char length[2] = {0, 0};
    uint32_t lengthCount = 0;
    while (isLengthLetter(c)) {
        if (lengthCount < 2) length[lengthCount] = static_cast<char>(c);
        ++lengthCount;
        c = nextChar(p);
    }
    if (lengthCount > 2) lengthCount = 3;
    char letter = slotLetter(length, lengthCount, c);
    if (letter != 0) table.record(table.advance(), letter);
}

// The usual conversion, one letter right behind the `%` (or a second `%`)
// with no flag, width, precision or length letter: records what
// scanConversion records for it, without its walk, and steps over it.
// False, with nothing read, for any other.
inline bool scanSingleLetter(PositionTableT& table, const uint8_t*& p) {
    uint32_t c = *p;
    bool letter = (c | 0x20) - 'a' < 26u && !isLengthLetter(c);
    if (!letter && c != '%') return false;
    ++p;
    char slot = slotLetter("", 0, c);
    if (slot != 0) table.record(table.advance(), slot);
    return true;
}

// First pass: walks the format and fills the table.
inline void scanFormat(PositionTableT& table, const uint8_t* p) {
    for (;;) {
        if (table.top > 127) return;
        // The C library's search, many bytes a step, stops where
        // skipToPercent stops: at the first `%`, else at the NUL.
        p = reinterpret_cast<const uint8_t*>(strchrnul(reinterpret_cast<const char*>(p), '%'));
        if (*p == 0) return;
        ++p;
        if (!scanSingleLetter(table, p)) scanConversion(table, p);
    }
}

// Second pass: takes each position's argument by its letter and hands it to
// `out`, which has the add forms of ArgListC (a list, or a holder of entries
// that renders at once). Arguments are read with the types that the calling
// code passes, so the same letters give the same entries on every target.
template <typename OutT>
inline void takeArgumentsInto(const PositionTableT& table, va_list arguments, OutT& out) {
    for (int32_t position = 0; position <= table.top; ++position) {
        switch (table.slots[position]) {
        case 'c':
            out.add(static_cast<int32_t>(static_cast<int8_t>(va_arg(arguments, int))));
            break;
        case 'C':
            out.add(static_cast<int32_t>(static_cast<uint8_t>(va_arg(arguments, int))));
            break;
        case 'h':
            out.add(static_cast<int16_t>(va_arg(arguments, int)));
            break;
        case 'H':
            out.add(static_cast<uint16_t>(va_arg(arguments, unsigned int)));
            break;
        case 'I':
        case 'L':
            out.add(static_cast<uint32_t>(va_arg(arguments, unsigned int)));
            break;
        case 'q':
            out.add(static_cast<int64_t>(va_arg(arguments, long long)));
            break;
        case 'Q':
            out.add(static_cast<uint64_t>(va_arg(arguments, unsigned long long)));
            break;
        case 'U':
            out.addUCS4(static_cast<uint32_t>(va_arg(arguments, unsigned int)));
            break;
        case 'S': {
            // A null pointer cannot be dereferenced; it stands for the empty
            // string.
            const StringC* string = va_arg(arguments, const StringC*);
            if (string) {
                out.add(*string);
            } else {
                out.add(StringC());
            }
            break;
        }
        case 's':
            out.add(va_arg(arguments, const char*));
            break;
        case 'p':
            out.add(static_cast<const void*>(va_arg(arguments, void*)));
            break;
        case 't': {
            // A null pointer is taken as the time 0, which is what the
            // renderer shows for a missing time anyway.
            const ArgTimeValT* time = va_arg(arguments, const ArgTimeValT*);
            ArgTimeValT copy = {0, 0};
            if (time) copy = *time;
            out.add(copy);
            break;
        }
        default:  // 'i', 'l' and the blank of a position nobody named
            out.add(static_cast<int32_t>(va_arg(arguments, int)));
            break;
        }
    }
}

// The same appended to a new list.
inline ArgListC takeArguments(const PositionTableT& table, va_list arguments) {
    ArgListC list;
    takeArgumentsInto(table, arguments, list);
    return list;
}

}  // namespace formatparse

// A list body that holds the entries of one variadic call on the caller's
// stack: no body, entry array, entry block or copy of a text is allocated.
// It is for a list that is handed on and comes back within one call, to
// readers that keep nothing:
//
//     ArgListStackBodyC body;
//     va_list copy;
//     va_copy(copy, arguments);
//     bool fits = body.take(format, copy);
//     va_end(copy);
//     if (fits) tracerI()->trace(path, &cell, format, body.handle());
//
// Read through a handle it is a list like any other (get, count, the entry
// array of getImpl) with the codes and values that ArgListC::add gives, in
// blocks laid out as ArgEntry::allocate lays them out; but a "CharStar"
// entry points at the caller's text instead of a copy, so neither the body
// nor any entry may outlive the call. Whoever hands it to code that might
// keep a list hands over toList() instead (the tracer does so for every
// consumer but its own file consumer). Handles on it are counted in a plain
// field: they never leave the thread that made it. The shared count of
// RefCountC stays 0, which no heap body that a handle holds ever shows:
// isOnStack tells the two apart by it. Nothing appends to it.
class ArgListStackBodyC : public ArgListC::ArgListImplC {
public:
    enum { kSlots = sizeof firstEntries / sizeof firstEntries[0] };

    ArgListStackBodyC() : handles_(0), used_(0), full_(false), strings_(false) {
        entries = firstEntries;
        capacity = kSlots;
    }
    ~ArgListStackBodyC() override {
        if (strings_) {
            for (int32_t i = 0; i < count; ++i) {
                if (firstEntries[i]->code() == ArgString)
                    static_cast<StringC*>(firstEntries[i]->value())->~StringC();
            }
        }
        // The blocks are this object's own: the list's destructor, which
        // runs next, finds nothing to free.
        count = 0;
        entries = nullptr;
    }
    ArgListStackBodyC(const ArgListStackBodyC&) = delete;
    ArgListStackBodyC& operator=(const ArgListStackBodyC&) = delete;

    int32_t addRef() override { return ++handles_; }
    int32_t release() override { return --handles_; }

    // Takes the arguments that the 8-bit `format` (null: none) names from
    // `arguments`, which it consumes. False when they do not fit: more than
    // 16 positions, or a %s text of 16 MiB or more, which a list would cut;
    // the caller then makes a list from a copy of its own va_list.
    bool take(const char* format, va_list arguments) {
        formatparse::PositionTableT table;
        if (format) formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>(format));
        return take(table, arguments);
    }
    // The same with the table of the format already made.
    bool take(const formatparse::PositionTableT& table, va_list arguments) {
        if (table.top >= kSlots) return false;
        formatparse::takeArgumentsInto(table, arguments, *this);
        return !full_;
    }

    // A handle on this body, gone before the body is; the empty handle when
    // nothing was taken, as fromFormat answers for a format without
    // arguments.
    ArgListC handle() {
        ArgListC made;
        if (count > 0) {
            addRef();
            made.cell.initialize(this);
        }
        return made;
    }

    // A list on the heap with the same entries, as takeArguments would have
    // made it: for a reader that may keep what it is given.
    ArgListC toList() const {
        ArgListC list;
        for (int32_t i = 0; i < count; ++i) {
            const ArgEntry* entry = firstEntries[i];
            if (entry->code() == ArgString) {
                list.add(entry->string());
            } else if (entry->code() == ArgCharStar) {
                list.add(static_cast<const char*>(entry->pointer()));
            } else {
                ArgEntry* copy = ArgEntry::allocate(entry->code(), sizes_[i]);
                memcpy(copy->value(), entry->value(), sizes_[i]);
                list.append(copy);
            }
        }
        return list;
    }

    // Whether `list` holds a body of this kind.
    static bool isOnStack(const ArgListC& list) {
        ArgListC::ArgListImplC* body = list.getImpl();
        return body && body->refCount() == 0;
    }

    // The add forms of ArgListC that takeArgumentsInto uses.
    void add(int16_t value) { addValue(ArgInt16, value); }
    void add(int32_t value) { addValue(ArgInt32, value); }
    void add(int64_t value) { addValue(ArgInt64, value); }
    void add(uint16_t value) { addValue(ArgUnsigned16, value); }
    void add(uint32_t value) { addValue(ArgUnsigned32, value); }
    void add(uint64_t value) { addValue(ArgUnsigned64, value); }
    void addUCS4(uint32_t character) { addValue(ArgUCS4, character); }
    void add(const StringC& value) {
        if (ArgEntry* entry = allocate(ArgString, sizeof(StringC))) {
            new (entry->value()) StringC(value);
            strings_ = true;
        }
    }
    // The caller's text itself, or the empty text for null; one of 16 MiB
    // or more does not fit (a list would copy only the first 16 MiB).
    void add(const char* text) {
        if (text && !shorterThanListLimit(text)) {
            full_ = true;
            return;
        }
        addValue(ArgCharStar, text ? text : "");
    }
    void add(const void* object) { addValue(ArgObjRef, object); }
    void add(const ArgTimeValT& time) { addValue(ArgTimeVal, time); }

private:
    // Every block takes at most 16 bytes (a code, then a value of at most
    // 8 bytes one pointer width behind it), rounded to 8.
    enum { kRoom = kSlots * 16 };

    // A block for an entry of `code` with `valueSize` bytes of value; null
    // (and full_) when the room is used up.
    ArgEntry* allocate(int32_t code, size_t valueSize) {
        size_t size = (ArgEntry::valueOffset + valueSize + 7) & ~static_cast<size_t>(7);
        if (full_ || count >= kSlots || size > kRoom - used_) {
            full_ = true;
            return nullptr;
        }
        void* block = room_ + used_;
        used_ += static_cast<uint32_t>(size);
        memcpy(block, &code, sizeof code);
        ArgEntry* entry = static_cast<ArgEntry*>(block);
        sizes_[count] = static_cast<uint8_t>(valueSize);
        firstEntries[count++] = entry;
        return entry;
    }
    template <typename T>
    void addValue(int32_t code, const T& value) {
        if (ArgEntry* entry = allocate(code, sizeof(T))) memcpy(entry->value(), &value, sizeof(T));
    }

    // Whether `text` ends within the 16 MiB that a list copies. The short
    // texts of messages are measured here, in line; the C library's search
    // takes the rest.
    static bool shorterThanListLimit(const char* text) {
        for (size_t i = 0; i < 64; ++i) {
            if (text[i] == 0) return true;
        }
        return strnlen(text + 64, 0x1000000 - 64) < 0x1000000 - 64;
    }

    int32_t handles_;
    uint32_t used_;
    bool full_;
    bool strings_;  // a "String" entry was made: the destructor has work
    uint8_t sizes_[kSlots];
    alignas(8) unsigned char room_[kRoom];
};

inline ArgListC ArgListC::fromFormat(const StringC& format, va_list arguments) {
    formatparse::PositionTableT table;
    const char* text = format.textUtf8();
    // A representation without a buffer has no text: the empty format.
    if (text) formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>(text));
    format.releaseUtf8(text);
    if (table.top < 0) return ArgListC();
    va_list copy;
    va_copy(copy, arguments);
    ArgListC list = formatparse::takeArguments(table, copy);
    va_end(copy);
    return list;
}

}  // namespace keel

#endif
