// LocalArgumentsC: entries of a variadic call in a block on the stack.
//
// Invariants: slots_[0..count_) point into room_, each at a multiple of 8,
// laid out as ArgEntry::allocate lays out its blocks (the code, then the
// value one pointer width behind it); a "String" entry holds a constructed
// StringC that the destructor destroys, and strings_ is set once there is
// one; a "CharStar" entry holds the caller's pointer (or the empty text for
// null), never a copy to free.
#include "text/format_local.h"

#include <string.h>

#include <new>

#include "text/wordbits.h"

namespace keel {

namespace {

const size_t kListTextLimit = 0x1000000;

// The first `%` in [p, end), or `end`.
const uint8_t* findPercent(const uint8_t* p, const uint8_t* end) {
    while (end - p >= 8) {
        uint64_t word = load64(p) ^ (kLowBits * '%');
        // A flag in each byte that is 0 after the XOR, exact up to the first.
        uint64_t found = (word - kLowBits) & ~word & kHighBits;
        if (found) return p + (__builtin_ctzll(found) >> 3);
        p += 8;
    }
    while (p < end && *p != '%') ++p;
    return p;
}

// Whether `text` ends within the 16 MiB that a list copies.
bool shorterThanListLimit(const char* text) {
    for (size_t i = 0; i < 64; ++i) {
        if (text[i] == 0) return true;
    }
    return strnlen(text + 64, kListTextLimit - 64) < kListTextLimit - 64;
}

}  // namespace

LocalArgumentsC::~LocalArgumentsC() {
    if (!strings_) return;
    for (int32_t i = 0; i < count_; ++i) {
        if (slots_[i]->code() == ArgString) static_cast<StringC*>(slots_[i]->value())->~StringC();
    }
}

void LocalArgumentsC::add(const StringC& value) {
    if (ArgEntry* entry = allocate(ArgString, sizeof(StringC))) {
        new (entry->value()) StringC(value);
        strings_ = true;
    }
}

void LocalArgumentsC::add(const char* text) {
    // A list copies at most 16 MiB of the text: a longer one does not fit
    // here, so that the caller's list cuts it as before. Short texts, the
    // usual ones, are measured here; the library's search takes the rest.
    if (text && !shorterThanListLimit(text)) {
        full_ = true;
        return;
    }
    const char* shown = text ? text : "";
    if (ArgEntry* entry = allocate(ArgCharStar, sizeof shown))
        memcpy(entry->value(), &shown, sizeof shown);
}

bool LocalArgumentsC::take(const char* format, va_list arguments) {
    formatparse::PositionTableT table;
    if (format) formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>(format));
    if (table.top >= kSlots) return false;
    formatparse::takeArgumentsInto(table, arguments, *this);
    return !full_;
}

void scanFormatOfLength(formatparse::PositionTableT& table, const uint8_t* format, size_t length) {
    // scanFormat's walk, with the search for the next `%` done by words
    // inside the known bytes: it stops where the byte loop stops (the first
    // `%`, else the NUL at `end`), and a conversion never reads past the NUL.
    const uint8_t* p = format;
    const uint8_t* end = p + length;
    while (table.top <= 127) {
        p = findPercent(p, end);
        if (p == end) return;
        ++p;
        if (!formatparse::scanSingleLetter(table, p)) formatparse::scanConversion(table, p);
    }
}

namespace {

// Each thread remembers the tables of the short formats it scanned last: a
// report names its format as a literal of the code, so the same bytes at the
// same place come again and again. A cell is used only when its bytes are
// the format's bytes, compared in full: a table is a function of those bytes
// alone, so a buffer written over with another format (at the same place, of
// the same length) is scanned again. Direct-mapped by the format's address,
// a fixed number of cells, well under a KiB in every thread, nothing to free.
// Only tables that fit the stack-held entries are kept; `next`, which
// takeArgumentsInto does not read, is not.
const uint32_t kScanCells = 8;
const uint32_t kScanText = 64;

struct ScanCellT {
    const uint8_t* format;  // null: empty cell
    uint32_t length;        // below kScanText
    int32_t top;            // below LocalArgumentsC's slot count
    char slots[16];
    uint8_t text[kScanText];
};

uint32_t scanCellIndex(const uint8_t* format) {
    uintptr_t address = reinterpret_cast<uintptr_t>(format);
    return static_cast<uint32_t>((address >> 3) ^ (address >> 11)) % kScanCells;
}

}  // namespace

void scanFormatRemembered(formatparse::PositionTableT& table, const uint8_t* format,
                          size_t length) {
    if (length >= kScanText) return scanFormatOfLength(table, format, length);
    static thread_local ScanCellT cells[kScanCells];
    ScanCellT& cell = cells[scanCellIndex(format)];
    if (cell.format == format && cell.length == length && memcmp(cell.text, format, length) == 0) {
        table.top = cell.top;
        memcpy(table.slots, cell.slots, static_cast<size_t>(cell.top + 1));
        return;
    }
    scanFormatOfLength(table, format, length);
    if (table.top >= static_cast<int32_t>(sizeof cell.slots)) return;
    cell.format = format;
    cell.length = static_cast<uint32_t>(length);
    cell.top = table.top;
    memcpy(cell.slots, table.slots, static_cast<size_t>(table.top + 1));
    memcpy(cell.text, format, length);
}

bool LocalArgumentsC::take(const char* format, size_t length, va_list arguments) {
    formatparse::PositionTableT table;
    scanFormatRemembered(table, reinterpret_cast<const uint8_t*>(format), length);
    if (table.top >= kSlots) return false;
    formatparse::takeArgumentsInto(table, arguments, *this);
    return !full_;
}

}  // namespace keel
