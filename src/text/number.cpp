// Scanners from text to numbers and booleans. Stateless; part of the toolkit.
#include <keel/number.h>

#include "text/case.h"
#include <keel/replace.h>
#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// Blanks around a number; form feed and vertical tab are not among them.
inline bool isScanBlank(uint32_t c) {
    return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0D || c == 0xA0;
}

// The character at `p` (not at the terminator) and the place behind it.
// ASCII is taken as it is, without going through the decoder.
inline uint32_t peekChar(const uint8_t* p, const uint8_t** next) {
    if (*p < 0x80) {
        *next = p + 1;
        return *p;
    }
    const uint8_t* q = p;
    uint32_t c = utf8Next(q);
    *next = q;
    return c;
}

// The value of `c` as a digit: its digit value in any script, or for a base
// above 10 a Latin letter, 10 to 35 in either case. -1 for anything else.
inline int32_t digitOf(uint32_t c, int base) {
    if (c < 0x80) {
        if (c - '0' < 10) return static_cast<int32_t>(c - '0');
        if (base > 10) {
            uint32_t folded = c | 0x20;
            if (folded - 'a' < 26) return static_cast<int32_t>(folded - 'a' + 10);
        }
        return -1;
    }
    return digitValue(c);
}

// Is `value` (from digitOf) a digit of `base`? In base 1 the digit 1 counts,
// so that tally marks "111" read as 3.
inline bool isDigitOfBase(int32_t value, int base) {
    return value >= 0 && (value < base || (base == 1 && value == 1));
}

// Passes over blanks, counting the characters.
inline void skipBlanks(const uint8_t*& p, uint32_t& index) {
    const uint8_t* next;
    while (*p && isScanBlank(peekChar(p, &next))) {
        p = next;
        ++index;
    }
}

// Reads the sign, the prefix and the digits at `p`. Answers 0 or
// kScanTrailingText with the unsigned magnitude in `acc`, or a failure code;
// `index` is left where the scan stopped either way.
template <typename Unsigned>
uint32_t scanMagnitude(const uint8_t* p, int base, uint32_t& index, Unsigned& acc, bool& negative) {
    const uint8_t* next;
    skipBlanks(p, index);
    if (!*p) return kScanNoDigits;

    uint32_t c = peekChar(p, &next);
    if (c == '+' || c == '-') {
        negative = c == '-';
        p = next;
        ++index;
        skipBlanks(p, index);
        if (!*p) return kScanNoDigits;
        c = peekChar(p, &next);
    }

    // A zero of any script in front of another character may open a prefix.
    if ((c == '0' || (c >= 0x80 && digitValue(c) == 0)) && *next) {
        const uint8_t* behind;
        uint32_t mark = peekChar(next, &behind);
        bool binary = (mark == 'b' || mark == 'B') && (base == 0 || base == 2);
        bool hex = (mark == 'x' || mark == 'X') && (base == 0 || base == 16);
        if (binary || hex) {
            p = behind;
            index += 2;
            base = binary ? 2 : 16;
            if (!*p) return kScanNoDigits;
            c = peekChar(p, &next);
        } else if (base == 0) {
            base = 8;
        }
    } else if (base == 0) {
        base = 10;
    }

    int32_t value = digitOf(c, base);
    if (!isDigitOfBase(value, base)) return kScanBadDigit;
    acc = static_cast<Unsigned>(value);
    p = next;
    ++index;

    // Above this the next digit can only wrap: (2^w - 2) / base + 1.
    const Unsigned most = static_cast<Unsigned>(~static_cast<Unsigned>(0));
    const Unsigned limit = static_cast<Unsigned>((most - 1) / static_cast<Unsigned>(base) + 1);
    while (*p) {
        value = digitOf(peekChar(p, &next), base);
        if (!isDigitOfBase(value, base)) break;
        Unsigned product;
        if (acc > limit || __builtin_mul_overflow(acc, static_cast<Unsigned>(base), &product) ||
            __builtin_add_overflow(product, static_cast<Unsigned>(value), &acc)) {
            return kScanOverflow;
        }
        p = next;
        ++index;
    }

    // Blanks behind the number are passed over; anything else is left over.
    skipBlanks(p, index);
    return *p ? kScanTrailingText : 0;
}

// The one scanner behind parseInt32 and parseInt64, over an unsigned
// accumulator of the result's width.
template <typename Unsigned, typename Signed>
Signed parseInteger(const StringC& text, uint32_t* error, int base, uint32_t* endIndex) {
    if (base > 36) {
        if (error) *error = kScanBadBase;
        if (endIndex) *endIndex = 0;
        return 0;
    }

    // A string without a buffer reads as the empty text.
    uint32_t index = 0;
    Unsigned acc = 0;
    bool negative = false;
    uint32_t code;
    {
        Utf8ViewC data(text);
        const uint8_t* p = data.data();
        code = scanMagnitude<Unsigned>(p, base, index, acc, negative);
    }
    if (endIndex) *endIndex = index;
    if (code != 0 && code != kScanTrailingText) {
        if (error) *error = code;
        return 0;
    }

    // Out of range is reported, but the bits are answered as they are: an
    // unsigned value with the top bit set reads as negative, and a magnitude
    // above 2^(w-1) negated wraps.
    const Unsigned top =
        static_cast<Unsigned>(static_cast<Unsigned>(1) << (sizeof(Unsigned) * 8 - 1));
    if (!negative) {
        if (acc & top) code = kScanOverflow;
    } else {
        if (acc > top) code = kScanOverflow;
        acc = static_cast<Unsigned>(static_cast<Unsigned>(0) - acc);
    }
    if (error) *error = code;
    return static_cast<Signed>(acc);
}

}  // namespace

int32_t parseInt32(const StringC& text, uint32_t* error, int base, uint32_t* endIndex) {
    return parseInteger<uint32_t, int32_t>(text, error, base, endIndex);
}

int64_t parseInt64(const StringC& text, uint32_t* error, int base, uint32_t* endIndex) {
    return parseInteger<uint64_t, int64_t>(text, error, base, endIndex);
}

// `size` bytes of printable ASCII equal to the upper-case `word`, case aside.
static bool equalsWordAscii(const char* data, uint32_t size, const char* word) {
    uint32_t i = 0;
    for (; i < size && word[i]; ++i) {
        char c = data[i];
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
        if (c != word[i]) return false;
    }
    return i == size && word[i] == '\0';
}

bool parseBool(const StringC& text) {
    static const char* const kTrueWords[] = {"TRUE", "T",  "1",       "YES",
                                             "ON",   "OK", "ENABLED", "ACTIVE"};
    Utf8ViewC bytes(text);
    const char* data = bytes.rawBytes() ? bytes.chars() : nullptr;
    uint32_t size = bytes.size();
    // ASCII text without NUL takes the byte path: there the case fold is the
    // ASCII one, and an equal character count is an equal byte count, so the
    // answer is that of equalsNoCase. Other text goes through equalsNoCase.
    bool ascii = data != nullptr;
    for (uint32_t i = 0; ascii && i < size; ++i) {
        uint8_t b = static_cast<uint8_t>(data[i]);
        ascii = b != 0 && b < 0x80;
    }
    bool result = false;
    for (const char* word : kTrueWords) {
        if (ascii ? equalsWordAscii(data, size, word)
                  : equalsNoCase(text, StringC(word, "ascii"))) {
            result = true;
            break;
        }
    }
    return result;
}

}  // namespace keel
