// Character services that need no string: digit values of every script, the
// simple case mappings, and the letter and ideograph classes.
//
// Characters are 32-bit values; no locale comes into any answer. The case
// maps cover the 16-bit range with the simple mappings of the Unicode data of
// the early 3.x versions (generated into casetables.inc by
// tools/gen_case_tables.py); anything outside them maps to itself.
//
//     if (isDigit(c)) value = value * 10 + digitValue(c);
//     uint32_t folded = toLowerChar(c);
#ifndef KEEL_TEXT_CASE_H
#define KEEL_TEXT_CASE_H

#include <stdint.h>

namespace keel {

// One run of a case map: a character from `first` to `last` maps to itself
// plus `delta`. 8 bytes a record, runs kept as ranges.
struct CaseRangeT {
    uint16_t first;
    uint16_t last;
    int32_t delta;
};

// One record of the title-case table.
struct CaseTitleT {
    uint16_t character;
    int32_t delta;
};

// The generated tables, for those who need to look at them whole (tests).
struct CaseTablesT {
    const CaseRangeT* lower;
    uint32_t lowerCount;
    const CaseRangeT* upper;
    uint32_t upperCount;
    const CaseTitleT* title;
    uint32_t titleCount;
    const uint16_t* caseless;  // sorted letters that no map changes
    uint32_t caselessCount;
};
const CaseTablesT& caseTables();

// Value of a decimal digit of any script, 0 to 9; -1 for anything else.
int32_t digitValue(uint32_t c);
// digitValue(c) is not -1.
bool isDigit(uint32_t c);

// Simple case mappings; a character without one maps to itself.
uint32_t toLowerChar(uint32_t c);
uint32_t toUpperChar(uint32_t c);
// The title-case form of the four digraph letters, else toUpperChar(c).
uint32_t toTitleChar(uint32_t c);

// True when a case map changes `c` or `c` is a letter that has no case.
bool isLetterChar(uint32_t c);
// True for the CJK ideographs and the ideographic number letters.
bool isIdeographic(uint32_t c);

}  // namespace keel

#endif
