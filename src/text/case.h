// The case tables behind the character services of <keel/case.h>, whole,
// for the tests that look at them (generated into casetables.inc by
// tools/gen_case_tables.py).
#ifndef KEEL_TEXT_CASE_H
#define KEEL_TEXT_CASE_H

#include <stdint.h>

#include <keel/case.h>

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

}  // namespace keel

#endif
