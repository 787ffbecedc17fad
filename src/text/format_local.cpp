// The scans of a format that know its length (by words, and remembered per
// thread), and LocalArgumentsC's way of taking arguments by them.
//
// Invariant: every scan here makes the table that formatparse::scanFormat
// makes of the same bytes (the remembered one leaves `next` alone).
#include "text/format_local.h"

#include <string.h>

#include "text/wordbits.h"

namespace keel {

namespace {

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

}  // namespace

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
    int32_t top;            // below ArgListStackBodyC::kSlots
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
    return take(table, arguments);
}

}  // namespace keel
