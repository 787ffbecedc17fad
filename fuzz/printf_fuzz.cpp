// The format engine against snprintf where the two languages agree: the
// fuzzer picks a conversion, its flags, a width and a precision (written out
// or taken by `*`) and a value, and both must give the same text. The places
// where the engine differs from printf on purpose are left out here; each has
// a test of its own in tests/text/format_test.cpp.
//
// Input: byte 0 the conversion (of "diuoxXcs"), byte 1 the flags (bits 0-4:
// "-+ #0"), byte 2 the width, byte 3 the precision, the next eight bytes the
// value; the rest is the text of a %s.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <keel/keel.h>

using keel::ArgListC;
using keel::StringC;

namespace {

struct SpecT {
    std::string flags;
    const char* width;  // "", digits or "*"
    int32_t widthValue;
    const char* precision;  // "", "." , ".digits" or ".*"
    int32_t precisionValue;
    char conversion;
    bool wide;  // a 64-bit value, "ll" in front of the letter for snprintf
    int64_t number;
    std::string text;
};

// The cases in which this engine differs from printf on purpose.
bool languagesAgree(const SpecT& s) {
    bool numeric = strchr("diuoxX", s.conversion) != nullptr;
    bool minus = s.flags.find('-') != std::string::npos,
         zero = s.flags.find('0') != std::string::npos;
    bool alternate = s.flags.find('#') != std::string::npos;
    bool widthStar = *s.width == '*', precisionStar = !strcmp(s.precision, ".*");
    int32_t precision = !*s.precision   ? -1
                        : precisionStar ? s.precisionValue
                                        : atoi(s.precision + 1);
    // printf leaves these undefined, or pads text with blanks.
    if ((alternate && strchr("diucs", s.conversion)) || (!numeric && zero) ||
        (s.conversion == 'c' && precision >= 0))
        return false;
    // "%-0*d": with `-` on, the 0 is a width of its own and `*` the letter.
    if (minus && zero && widthStar) return false;
    // A negative precision from `*` is 0 here, "none" for printf.
    if (precisionStar && precision < 0) return false;
    if (!numeric) return true;
    // A filler set before a negative `*` width stays: the zeros become digits.
    if (zero && !minus && widthStar && s.widthValue < 0) return false;
    // A precision of 0 still prints one digit here; "." or ".*" of 0 keeps the zero filler.
    if (precision == 0 &&
        (s.number == 0 || (zero && !minus && (precisionStar || !strcmp(s.precision, ".")))))
        return false;
    // %#o puts its 0 in front of the precision's zeros.
    return !(alternate && s.conversion == 'o' && precision > 1);
}

std::string engine(const std::string& format, const ArgListC& args) {
    StringC out = StringC::format(StringC(format.c_str(), "utf8"), args);
    const char* text = out.textUtf8();
    std::string result(text, out.textUtf8Length());
    out.releaseUtf8(text);
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 12) return 0;
    static const char* const kWidths[] = {"", "1", "3", "7", "12", "*", "*", "*"};
    static const char* const kPrecisions[] = {"",   ".",   ".0", ".1", ".2",
                                              ".5", ".12", ".*", ".*", ".*"};
    SpecT s;
    s.conversion = "diuoxXcs"[data[0] % 8];
    for (int bit = 0; bit < 5; ++bit)
        if (data[1] & (1 << bit)) s.flags += "-+ #0"[bit];
    s.width = kWidths[data[2] % 8];
    s.widthValue = static_cast<int8_t>(data[2]) / 8 % 20;
    s.precision = kPrecisions[data[3] % 10];
    s.precisionValue = static_cast<int8_t>(data[3]) / 10 % 14;
    int64_t raw;
    memcpy(&raw, data + 4, sizeof raw);
    // 32-bit values mostly, small ones often, 64-bit ones (signed or not) now and then.
    s.wide = strchr("diuoxX", s.conversion) && (data[0] & 0x80);
    s.number = s.wide             ? raw
               : (data[0] & 0x40) ? static_cast<int8_t>(raw)
                                  : static_cast<int32_t>(raw);
    // %c takes the low byte: a printable one, whatever is above it.
    if (s.conversion == 'c')
        s.number = 32 + static_cast<uint8_t>(raw) % 95 + 256 * static_cast<int8_t>(raw >> 8);
    s.text.assign(reinterpret_cast<const char*>(data + 12), size - 12);
    s.text = s.text.substr(0, strnlen(s.text.c_str(), s.text.size() < 100 ? s.text.size() : 100));
    for (char& c : s.text)
        c = static_cast<char>(0x20 + static_cast<uint8_t>(c) % 0x5F);  // ASCII: no bytes to replace
    if (!languagesAgree(s)) return 0;

    // snprintf reads `*` as the digits in its place.
    std::string format =
        "%" + s.flags + (*s.width == '*' ? std::to_string(s.widthValue) : s.width) +
        (strcmp(s.precision, ".*") ? s.precision : "." + std::to_string(s.precisionValue)) +
        (s.wide ? "ll" : "") + s.conversion;
    char out[512];
    ArgListC args;
    if (*s.width == '*') args.add(s.widthValue);
    if (!strcmp(s.precision, ".*")) args.add(s.precisionValue);
    if (s.conversion == 's') {
        snprintf(out, sizeof out, format.c_str(), s.text.c_str());
        args.add(s.text.c_str());
    } else if (!s.wide) {
        snprintf(out, sizeof out, format.c_str(), static_cast<int>(s.number));
        args.add(static_cast<int32_t>(s.number));
    } else {
        snprintf(out, sizeof out, format.c_str(), static_cast<long long>(s.number));
        // An Unsigned64 entry where its bits read alike either way.
        if ((data[1] & 0x80) && (strchr("uoxX", s.conversion) || s.number == -1)) {
            args.add(static_cast<uint64_t>(s.number));
        } else {
            args.add(s.number);
        }
    }
    std::string ours = engine("%" + s.flags + s.width + s.precision + s.conversion, args);
    if (ours != out) {
        fprintf(stderr, "%s: snprintf \"%s\", keel \"%s\"\n", format.c_str(), out, ours.c_str());
        abort();
    }
    return 0;
}
