// Character services that need no string: digit values of every script, the
// simple case mappings, and the letter and ideograph classes.
//
//     #include <keel/case.h>          // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     if (keel::isDigit(c)) value = value * 10 + keel::digitValue(c);
//     uint32_t folded = keel::toLowerChar(c);       // U+03A3 -> U+03C3
//
// Characters are 32-bit values; no locale comes into any answer. The case
// maps cover the 16-bit range with the simple one-to-one mappings of the
// Unicode data of the early 3.x versions; anything outside them, and every
// letter that gained a mapping later (U+0220, Cherokee, ...), maps to itself.
// There are no one-to-many mappings: U+00DF stays U+00DF in upper case.
#ifndef KEEL_CASE_H
#define KEEL_CASE_H

#include <stdint.h>

namespace keel {

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
