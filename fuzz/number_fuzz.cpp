// parseInt32 and parseInt64 beside a plain reference of the same rules, for
// every base from 0 to 39 and every outcome code: the value, the code and the
// end index must agree.
//
// Input layout: byte 0 picks the base (modulo 40), the rest is UTF-8 text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <vector>

#include <keel/keel.h>

#include "text/case.h"
#include <keel/number.h>

namespace {

struct Outcome {
    uint64_t value;
    uint32_t error;
    uint32_t endIndex;
};

bool isBlank(uint32_t c) { return c == 0x20 || c == 0xA0 || c == 9 || c == 10 || c == 13; }

// The rules written out as directly as possible, in `width` bits.
Outcome reference(const std::vector<uint32_t>& text, int base, int width) {
    const uint64_t mask = width == 64 ? ~uint64_t(0) : (uint64_t(1) << width) - 1;
    const uint64_t top = uint64_t(1) << (width - 1);
    size_t n = text.size(), i = 0;
    if (base > 36) return {0, 0xE0C90006, 0};
    while (i < n && isBlank(text[i])) ++i;
    if (i == n) return {0, 0xE0C90003, uint32_t(i)};
    bool minus = false;
    if (text[i] == '+' || text[i] == '-') {
        minus = text[i] == '-';
        ++i;
        while (i < n && isBlank(text[i])) ++i;
        if (i == n) return {0, 0xE0C90003, uint32_t(i)};
    }
    if (keel::digitValue(text[i]) == 0 && i + 1 < n) {
        uint32_t next = text[i + 1];
        if ((next == 'b' || next == 'B') && (base == 0 || base == 2)) {
            i += 2;
            if (i == n) return {0, 0xE0C90003, uint32_t(i)};
            base = 2;
        } else if ((next == 'x' || next == 'X') && (base == 0 || base == 16)) {
            i += 2;
            if (i == n) return {0, 0xE0C90003, uint32_t(i)};
            base = 16;
        } else if (base == 0) {
            base = 8;
        }
    }
    if (base == 0) base = 10;
    auto valueOf = [&](uint32_t c) -> int64_t {
        int32_t d = keel::digitValue(c);
        if (d >= 0) return d;
        if (base > 10 && c < 0x80 && ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'))
            return (c | 0x20) - 'a' + 10;
        return -1;
    };
    auto isDigitOfBase = [&](uint32_t c) {
        int64_t v = valueOf(c);
        return v >= 0 && (v < base || (base == 1 && v == 1));
    };
    if (!isDigitOfBase(text[i])) return {0, 0xE0C90005, uint32_t(i)};
    uint64_t acc = 0;
    const uint64_t limit = (mask - 1) / uint64_t(base) + 1;
    bool first = true;
    while (i < n && isDigitOfBase(text[i])) {
        if (!first && acc > limit) return {0, 0xE0C90004, uint32_t(i)};
        uint64_t d = uint64_t(valueOf(text[i]));
        // Wrap-around of acc * base + d in the width.
        unsigned __int128 wide = (unsigned __int128)acc * uint64_t(base) + d;
        if (wide > mask) return {0, 0xE0C90004, uint32_t(i)};
        acc = uint64_t(wide);
        first = false;
        ++i;
    }
    uint32_t error = 0;
    while (i < n && isBlank(text[i])) ++i;
    if (i < n) error = 0xE0C90002;
    uint64_t value = acc;
    if (!minus) {
        if (value & top) error = 0xE0C90004;
    } else {
        if (value > top) error = 0xE0C90004;
        value = (~value + 1) & mask;
    }
    return {value, error, uint32_t(i)};
}

void fail(const char* what, int base, uint64_t got, uint64_t want) {
    fprintf(stderr, "%s differs (base %d): got %llx, want %llx\n", what, base,
            (unsigned long long)got, (unsigned long long)want);
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 4096) return 0;
    int base = data[0] % 40;
    keel::StringC text(data + 1, static_cast<uint32_t>(size - 1), "utf8");
    std::vector<uint32_t> chars;
    for (int32_t i = 0; i < text.length(); ++i) chars.push_back(text.charAt(i));
    // The scanners stop at the first NUL like every character walk.
    for (size_t i = 0; i < chars.size(); ++i) {
        if (chars[i] == 0) {
            chars.resize(i);
            break;
        }
    }

    for (int width : {32, 64}) {
        uint32_t error = 0xFFFFFFFF, end = 0xFFFFFFFF;
        uint64_t got = width == 32 ? uint64_t(uint32_t(keel::parseInt32(text, &error, base, &end)))
                                   : uint64_t(keel::parseInt64(text, &error, base, &end));
        Outcome want = reference(chars, base, width);
        if (error != want.error)
            fail(width == 32 ? "error of parseInt32" : "error of parseInt64", base, error,
                 want.error);
        if (got != want.value)
            fail(width == 32 ? "value of parseInt32" : "value of parseInt64", base, got,
                 want.value);
        if (end != want.endIndex) fail("endIndex", base, end, want.endIndex);
        // Null out parameters change nothing of the value.
        uint64_t again = width == 32
                             ? uint64_t(uint32_t(keel::parseInt32(text, nullptr, base, nullptr)))
                             : uint64_t(keel::parseInt64(text, nullptr, base, nullptr));
        if (again != got) fail("value without out parameters", base, again, got);
    }
    return 0;
}
