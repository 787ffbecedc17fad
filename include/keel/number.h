// Text to numbers and booleans: the scanners behind configuration values,
// date texts and format arguments.
//
//     #include <keel/number.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     uint32_t error, end;
//     int32_t port = keel::parseInt32(text, &error, 0, &end);   // "0x1F" -> 31
//     if (error == keel::kScanTrailingText) { ... a number, then other text at `end` ... }
//     bool on = keel::parseBool(value);                         // "Yes", "on", "1" ...
//
// Digits of every script count ("\u0663\u0664" reads as 34). The scanners
// answer through the optional `error` and never touch the error buffer.
#ifndef KEEL_NUMBER_H
#define KEEL_NUMBER_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

// The codes a scanner stores in its `error` argument (message set 201).
const uint32_t kScanTrailingText = 0xE0C90002;  // a number was read, but other text follows it
const uint32_t kScanNoDigits = 0xE0C90003;      // empty, only blanks, only a sign, or only a 0x / 0b prefix
const uint32_t kScanOverflow = 0xE0C90004;      // the value does not fit
const uint32_t kScanBadDigit = 0xE0C90005;      // the first character is no digit of the base
const uint32_t kScanBadBase = 0xE0C90006;       // the base is above 36

// Reads a signed integer. `base` is 0 for automatic (a 0x prefix gives 16, 0b
// gives 2, a leading 0 gives 8, anything else 10), 1 for tally counting, or
// 2 to 36. Blanks (space, no-break space, tab, line feed, carriage return)
// may stand around the number and between the sign and the digits.
// `error` (0 or a code above) and `endIndex` (the character index where the
// scan stopped) may be null. A value that does not fit in the width is still
// answered as its bits read, with kScanOverflow; a value whose digits run past
// the width answers 0.
int32_t parseInt32(const StringC& text, uint32_t* error = nullptr, int base = 10,
                   uint32_t* endIndex = nullptr);
int64_t parseInt64(const StringC& text, uint32_t* error = nullptr, int base = 10,
                   uint32_t* endIndex = nullptr);

// True when the whole text, case aside, is one of "TRUE", "T", "1", "YES",
// "ON", "OK", "ENABLED", "ACTIVE". Everything else is false; nothing is
// trimmed.
bool parseBool(const StringC& text);

}  // namespace keel

#endif
