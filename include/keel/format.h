// The format parser and the variadic formatting helpers.
//
// ArgListC::fromFormat turns a format and the variadic arguments of a call
// into a typed ArgListC, which StringC::format renders (possibly much later,
// and possibly with a translated format that reorders the arguments):
//
//     keel::StringC name("report.txt", "utf8");
//     keel::StringC text = keel::formatString("Failed to open '%S' (%d)", &name, 2);
//
// The variadic block has to be read in the caller's own code, since no entry
// point of the shared object takes a va_list; so everything here is inline.
// What each conversion takes from the arguments:
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
// values. Other length letters (%ls, %qd, %zu, %jd, ...) take no argument.
// Positions (%2$S) may reorder the arguments; a position nobody names still
// takes an int from the block.
#ifndef KEEL_FORMAT_H
#define KEEL_FORMAT_H

#include <stdarg.h>
#include <stdint.h>

#include <keel/arglist.h>
#include <keel/string.h>

namespace keel {

// The parser's view of the format language. It is compiled into every
// program that calls it, so it carries its own digit table and decoder; both
// answer exactly as the library's digitValue and utf8Next do (a test compares
// them over the whole character range).
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

// Decodes one character of internal form and moves `p` past it, as utf8Next
// does, except that the terminating NUL is answered without moving: reading
// on at the end keeps giving 0 and never leaves the buffer.
inline uint32_t nextChar(const uint8_t*& p) {
    uint8_t b = *p;
    if (b < 0x80) {
        if (b != 0) ++p;
        return b;
    }
    uint32_t n = b < 0xC0 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF8 ? 4 : b < 0xFC ? 5 : b < 0xFE ? 6 : 1;
    if (n == 1) {
        ++p;
        return 0xFFFD;
    }
    uint32_t value = b & (0x7Fu >> n);
    for (uint32_t i = 1; i < n; ++i) {
        uint8_t c = p[i];
        if ((c & 0xC0) != 0x80) {
            uint32_t skip = 1;
            while (skip < n && (p[skip] & 0xC0) == 0x80) ++skip;
            p += skip;
            return 0xFFFD;
        }
        value = (value << 6) | (c & 0x3F);
    }
    p += n;
    return value;
}

// Reads a run of digits that starts with `c` (a digit); `c` ends as the
// character behind the run. Large numbers stop growing at 0x7FFFFFFF rather
// than overflow.
inline int32_t readNumber(const uint8_t*& p, uint32_t& c) {
    int64_t number = 0;
    int32_t digit;
    while ((digit = digitValue(c)) >= 0) {
        number = number * 10 + digit;
        if (number > 0x7FFFFFFF) number = 0x7FFFFFFF;
        c = nextChar(p);
    }
    return static_cast<int32_t>(number);
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
        while (top < position) slots[++top] = ' ';
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
    bool isUnsigned = conversion == 'X' || conversion == 'b' || conversion == 'o' || conversion == 'u' ||
                      conversion == 'x';
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
    if (lengthCount == 2 && length[0] == 'h' && length[1] == 'h') return isSigned ? 'c' : isUnsigned ? 'C' : 0;
    if (lengthCount == 1 && length[0] == 'l') {
        if (conversion == 'p') return 'p';
        return isSigned ? 'l' : isUnsigned ? 'L' : 0;
    }
    if (lengthCount == 2 && length[0] == 'l' && length[1] == 'l') return isSigned ? 'q' : isUnsigned ? 'Q' : 0;
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

// First pass: walks the format and fills the table.
inline void scanFormat(PositionTableT& table, const uint8_t* p) {
    for (;;) {
        if (table.top > 127) return;
        while (*p != 0 && *p != '%') ++p;
        if (*p == 0) return;
        ++p;
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
}

// Second pass: takes each position's argument by its letter and appends the
// entry. Arguments are read with the types that the calling code passes, so
// the same letters give the same entries on every target.
inline ArgListC takeArguments(const PositionTableT& table, va_list arguments) {
    ArgListC list;
    for (int32_t position = 0; position <= table.top; ++position) {
        switch (table.slots[position]) {
        case 'c':
            list.add(static_cast<int32_t>(static_cast<int8_t>(va_arg(arguments, int))));
            break;
        case 'C':
            list.add(static_cast<int32_t>(static_cast<uint8_t>(va_arg(arguments, int))));
            break;
        case 'h':
            list.add(static_cast<int16_t>(va_arg(arguments, int)));
            break;
        case 'H':
            list.add(static_cast<uint16_t>(va_arg(arguments, unsigned int)));
            break;
        case 'I':
        case 'L':
            list.add(static_cast<uint32_t>(va_arg(arguments, unsigned int)));
            break;
        case 'q':
            list.add(static_cast<int64_t>(va_arg(arguments, long long)));
            break;
        case 'Q':
            list.add(static_cast<uint64_t>(va_arg(arguments, unsigned long long)));
            break;
        case 'U':
            list.addUCS4(static_cast<uint32_t>(va_arg(arguments, unsigned int)));
            break;
        case 'S': {
            // A null pointer cannot be dereferenced; it stands for the empty
            // string.
            const StringC* string = va_arg(arguments, const StringC*);
            if (string) {
                list.add(*string);
            } else {
                list.add(StringC());
            }
            break;
        }
        case 's':
            list.add(va_arg(arguments, const char*));
            break;
        case 'p':
            list.add(static_cast<const void*>(va_arg(arguments, void*)));
            break;
        case 't': {
            // A null pointer is taken as the time 0, which is what the
            // renderer shows for a missing time anyway.
            const ArgTimeValT* time = va_arg(arguments, const ArgTimeValT*);
            ArgTimeValT copy = {0, 0};
            if (time) copy = *time;
            list.add(copy);
            break;
        }
        default:  // 'i', 'l' and the blank of a position nobody named
            list.add(static_cast<int32_t>(va_arg(arguments, int)));
            break;
        }
    }
    return list;
}

}  // namespace formatparse

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

// Formats with the arguments of a variadic call; the format is 8-bit text in
// "system-8".
inline StringC formatStringV(const char* format, va_list arguments) {
    StringC pattern(format, "system-8");
    return StringC::format(pattern, ArgListC::fromFormat(pattern, arguments));
}

inline StringC formatStringV(const StringC& format, va_list arguments) {
    return StringC::format(format, ArgListC::fromFormat(format, arguments));
}

inline StringC formatString(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringC result = formatStringV(format, arguments);
    va_end(arguments);
    return result;
}

// The same with the format as a string; a null pointer is the empty format.
inline StringC formatString(const StringC* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    StringC result = format ? formatStringV(*format, arguments) : StringC();
    va_end(arguments);
    return result;
}

}  // namespace keel

#endif
