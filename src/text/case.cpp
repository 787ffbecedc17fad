// Digit values, case mappings and character classes over fixed tables.
#include "text/case.h"

#include <stddef.h>

#include <algorithm>

namespace keel {

namespace {

#include "text/casetables.inc"

// Decimal digits of every script, sorted. Three ranges have nine members and
// start at the digit one (Tamil U+0BE7, Ethiopic U+1369, Hangzhou U+3021),
// which is why a digit's value is counted from the end of its range.
struct DigitRangeT {
    uint16_t first;
    uint16_t last;
};

const DigitRangeT kDigitRanges[21] = {
    {0x0030, 0x0039}, {0x0660, 0x0669}, {0x06F0, 0x06F9}, {0x0966, 0x096F}, {0x09E6, 0x09EF},
    {0x0A66, 0x0A6F}, {0x0AE6, 0x0AEF}, {0x0B66, 0x0B6F}, {0x0BE7, 0x0BEF}, {0x0C66, 0x0C6F},
    {0x0CE6, 0x0CEF}, {0x0D66, 0x0D6F}, {0x0E50, 0x0E59}, {0x0ED0, 0x0ED9}, {0x0F20, 0x0F29},
    {0x1040, 0x1049}, {0x1369, 0x1371}, {0x17E0, 0x17E9}, {0x1810, 0x1819}, {0x3021, 0x3029},
    {0xFF10, 0xFF19},
};

// U+3007 is the zero of the Hangzhou digits, which lies apart from them.
const uint32_t kHangzhouZero = 0x3007;

// Binary search over a case map. The first probe is record 1, where the
// Latin-1 letters are, so the common accented letters are found at once.
uint32_t mapCase(const CaseRangeT* table, int32_t count, uint32_t c) {
    int32_t low = 0;
    int32_t high = count - 1;
    int32_t probe = 1;
    while (low <= high) {
        const CaseRangeT& record = table[probe];
        if (c < record.first) {
            high = probe - 1;
        } else if (c > record.last) {
            low = probe + 1;
        } else {
            return static_cast<uint32_t>(static_cast<int32_t>(c) + record.delta);
        }
        probe = (low + high) / 2;
    }
    return c;
}

const int32_t kLowerCount = static_cast<int32_t>(sizeof(kLowerMap) / sizeof(kLowerMap[0]));
const int32_t kUpperCount = static_cast<int32_t>(sizeof(kUpperMap) / sizeof(kUpperMap[0]));
const uint32_t kTitleCount = sizeof(kTitleMap) / sizeof(kTitleMap[0]);
const uint32_t kCaselessCount = sizeof(kCaselessLetters) / sizeof(kCaselessLetters[0]);

bool isCaseless(uint32_t c) {
    return std::binary_search(kCaselessLetters, kCaselessLetters + kCaselessCount, c);
}

}  // namespace

const CaseTablesT& caseTables() {
    static const CaseTablesT tables = {
        kLowerMap,        static_cast<uint32_t>(kLowerCount),
        kUpperMap,        static_cast<uint32_t>(kUpperCount),
        kTitleMap,        kTitleCount,
        kCaselessLetters, kCaselessCount,
    };
    return tables;
}

int32_t digitValue(uint32_t c) {
    for (size_t i = 0; i < sizeof(kDigitRanges) / sizeof(kDigitRanges[0]); ++i) {
        const DigitRangeT& range = kDigitRanges[i];
        if (range.first > c) break;
        if (c <= range.last) return static_cast<int32_t>(c + 9 - range.last);
    }
    return c == kHangzhouZero ? 0 : -1;
}

bool isDigit(uint32_t c) { return digitValue(c) != -1; }

uint32_t toLowerChar(uint32_t c) { return mapCase(kLowerMap, kLowerCount, c); }

uint32_t toUpperChar(uint32_t c) { return mapCase(kUpperMap, kUpperCount, c); }

uint32_t toTitleChar(uint32_t c) {
    for (uint32_t i = 0; i < kTitleCount; ++i) {
        if (kTitleMap[i].character == c) {
            return static_cast<uint32_t>(static_cast<int32_t>(c) + kTitleMap[i].delta);
        }
    }
    return toUpperChar(c);
}

bool isLetterChar(uint32_t c) {
    return toLowerChar(c) != c || toUpperChar(c) != c || isCaseless(c);
}

bool isIdeographic(uint32_t c) {
    return (c >= 0x3006 && c <= 0x3007) || (c >= 0x3021 && c <= 0x3029) ||
           (c >= 0x3038 && c <= 0x303A) || (c >= 0x3400 && c <= 0x4DB5) ||
           (c >= 0x4E00 && c <= 0x9FA5) || (c >= 0xF900 && c <= 0xFA2D);
}

}  // namespace keel
