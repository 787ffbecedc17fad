// The date parser over arbitrary texts, the strict constructor over
// arbitrary fields, and arbitrary tick counts. The parser may only erase
// separators from the caller's text (at most five of them), a text it accepts
// without a report parses again from its own rendering to the same second,
// and the strict constructor reports exactly when the fields do not come back
// as given. A tick count's fields give it back, and every render form of it is
// what the format engine writes with the documented formats.
//
// Input: the first 14 bytes are six 16-bit fields and a fraction seed for the
// constructor, the first eight of them also a tick count (local when bit 0 of
// byte 13 is set); the rest, as UTF-8, is the text to parse.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <keel/keel.h>

#include "locale/datetime.h"

namespace {

std::string utf8Of(const keel::StringC& text) {
    const char* bytes = text.textUtf8();
    std::string result(bytes, text.textUtf8Length());
    text.releaseUtf8(bytes);
    return result;
}

// True when `part` is `whole` with some characters taken out.
bool isSubsequence(const std::u32string& part, const std::u32string& whole) {
    size_t j = 0;
    for (size_t i = 0; i < whole.size() && j < part.size(); ++i) {
        if (whole[i] == part[j]) ++j;
    }
    return j == part.size();
}

std::u32string charsOf(const keel::StringC& text) {
    std::u32string chars;
    for (int32_t i = 0; i < text.length(); ++i) chars += static_cast<char32_t>(text.charAt(i));
    return chars;
}

// The render form of `flags` written with the format engine, with the formats
// and argument types of the documented rendering.
std::string byFormatEngine(const keel::DateTimeC& value, int64_t ticks, int32_t flags) {
    using keel::ArgListC;
    using keel::StringC;
    const int64_t second = keel::DateTimeC::kTicksPerSecond;
    int32_t digits = (flags & 16) ? 0 : flags & 7;
    const char* dsep = (flags & 8) ? "-" : "";
    const char* tsep = (flags & 8) ? ":" : "";
    ArgListC args;
    StringC pattern;
    auto num = [&](int32_t v) { args.add(static_cast<int16_t>(v)); };
    if (value.getYear() == 0) {
        pattern = StringC(digits ? "%02d%s%02d%s%02d%S%0.*lu" : "%02d%s%02d%s%02d", "system-8");
        num(value.getHour()), args.add(tsep), num(value.getMinute()), args.add(tsep),
            num(value.getSecond());
    } else if (flags & 16) {
        pattern = StringC("%04d%s%02d%s%02d", "system-8");
        num(value.getYear()), args.add(dsep), num(value.getMonth()), args.add(dsep),
            num(value.getDay());
    } else {
        pattern = StringC(digits ? "%04d%s%02d%s%02d%s%02d%s%02d%s%02d%S%0.*lu"
                                 : "%04d%s%02d%s%02d%s%02d%s%02d%s%02d",
                          "system-8");
        num(value.getYear()), args.add(dsep), num(value.getMonth()), args.add(dsep),
            num(value.getDay());
        args.add((flags & 32) ? " " : "T");
        num(value.getHour()), args.add(tsep), num(value.getMinute()), args.add(tsep),
            num(value.getSecond());
    }
    if (digits) {
        int64_t divisor = 1;
        for (int d = digits; d < 8; ++d) divisor *= 10;
        args.add(StringC()).add(digits).add(
            static_cast<uint32_t>((ticks % second + divisor / 2) / divisor));
    }
    std::string expected = utf8Of(StringC::format(pattern, args));
    if (value.getYear() != 0 && !(flags & 16) && !value.isLocalTime()) expected += "Z";
    return expected;
}

// Any tick count: its fields give it back through the strict constructor
// (without a report), and eight render forms from `firstFlags` on are the
// format engine's.
void checkTicks(int64_t ticks, bool local, int32_t firstFlags) {
    keel::DateTimeC value(ticks, local);
    if (ticks >= 0) {
        keel::DateTimeC again(value.getYear(), value.getMonth(), value.getDay(), value.getHour(),
                              value.getMinute(), value.getSecond(),
                              ticks % keel::DateTimeC::kTicksPerSecond, local);
        if (again.getTicks() != ticks ||
            again.getWeekday() != (ticks / keel::DateTimeC::kTicksPerDay) % 7 ||
            getErrBuf()->getCount() != 0) {
            fprintf(stderr, "ticks %lld do not come back from their fields\n",
                    static_cast<long long>(ticks));
            abort();
        }
    }
    for (int32_t k = 0; k < 8; ++k) {
        int32_t flags = (firstFlags + 9 * k) % 64;
        if (utf8Of(value.format(flags)) != byFormatEngine(value, ticks, flags)) {
            fprintf(stderr, "ticks %lld, flags %d: %s, the engine %s\n",
                    static_cast<long long>(ticks), flags, utf8Of(value.format(flags)).c_str(),
                    byFormatEngine(value, ticks, flags).c_str());
            abort();
        }
    }
}

// The fast parser (short ASCII stamps on their own bytes, dates that exist
// made without the strict constructor's round trip) against the plain one:
// the same value, the same text left behind, the same reports.
void checkAgainstReference(const std::string& given, const keel::DateTimeC& value,
                           const keel::StringC& left) {
    keel::ErrBufI* errors = getErrBuf();
    uint32_t reports = errors->getCount();
    std::string reported;
    for (uint32_t i = 0; i < reports; ++i) {
        reported += std::to_string(errors->getEntry(i)->getCode()) + " " +
                    utf8Of(errors->getEntry(i)->getText()) + "\n";
    }
    uint32_t mark = errors->getMark();
    keel::StringC text(given.data(), static_cast<uint32_t>(given.size()), "vutf8");
    keel::DateTimeC plain = keel::DateTimeC::parseReference(text);
    std::string plainReported;
    for (uint32_t i = reports; i < errors->getCount(); ++i) {
        plainReported += std::to_string(errors->getEntry(i)->getCode()) + " " +
                         utf8Of(errors->getEntry(i)->getText()) + "\n";
    }
    bool same = plain.getTicks() == value.getTicks() &&
                plain.isLocalTime() == value.isLocalTime() && plain.getYear() == value.getYear() &&
                plain.getMonth() == value.getMonth() && plain.getDay() == value.getDay() &&
                plain.getHour() == value.getHour() && plain.getMinute() == value.getMinute() &&
                plain.getSecond() == value.getSecond() &&
                plain.getWeekday() == value.getWeekday() && utf8Of(text) == utf8Of(left) &&
                plainReported == reported;
    if (!same) {
        fprintf(stderr, "parse and the plain parser differ on '%s'\n", given.c_str());
        abort();
    }
    // Back to the reports of the fast parse alone.
    errors->recover(mark);
}

}  // namespace

// The locale, its facets and the catalog switch are made once and live for
// the process: made here, before the first input, so that the leak check of
// each input sees only what that input allocated.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    keel::StringC text("2024-02-30", "utf8");
    keel::DateTimeC::parse(text);
    keel::DateTimeC(0, false).format(43);
    getErrBuf()->takeText(nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::ErrBufI* errors = getErrBuf();
    errors->takeText(nullptr);
    if (size >= 14) {
        int16_t f[7];
        memcpy(f, data, 14);
        keel::DateTimeC value(f[0], f[1], f[2], f[3], f[4], f[5], static_cast<int64_t>(f[6]) * 1000,
                              false);
        bool same = value.getYear() == f[0] && value.getMonth() == f[1] && value.getDay() == f[2] &&
                    value.getHour() == f[3] && value.getMinute() == f[4] &&
                    value.getSecond() == f[5];
        if (same == (errors->getCount() != 0)) abort();
        for (int flags = 0; flags < 64; flags += 7) value.format(flags);
        errors->takeText(nullptr);
        int64_t ticks;
        memcpy(&ticks, data, sizeof ticks);
        checkTicks(ticks, data[13] & 1, data[12]);
        // Times of day and days just before the origin, which arbitrary
        // bytes seldom give.
        checkTicks(ticks % keel::DateTimeC::kTicksPerDay, false, data[11]);
        checkTicks(-(ticks & 0x7FFFFFFFFFFFFFFF) % (4000 * keel::DateTimeC::kTicksPerDay),
                   data[13] & 2, data[10]);
        data += 14;
        size -= 14;
    }
    // Texts end at their first U+0000 here (a NUL byte, or an overlong C0 80
    // decoded to one): a copy-on-write copy of a string that holds a NUL
    // keeps only what stands in front of it, which is the string layer's
    // matter and not the parser's.
    keel::StringC text(data, static_cast<uint32_t>(size), "utf8");
    {
        const char* bytes = text.textUtf8();
        std::string stored(bytes, text.textUtf8Length());
        text.releaseUtf8(bytes);
        size_t nul = stored.find('\0');
        if (nul != std::string::npos)
            text = keel::StringC(stored.data(), static_cast<uint32_t>(nul), "utf8");
    }
    std::u32string before = charsOf(text);
    std::string given = utf8Of(text);
    // A second handle on the same text: the parser gives the caller's handle
    // a new text and leaves this one as it was.
    keel::StringC shared = text;
    keel::DateTimeC value = keel::DateTimeC::parse(text);
    std::u32string after = charsOf(text);
    if (utf8Of(shared) != given) {
        fprintf(stderr, "the parser changed a string it shares its text with\n");
        abort();
    }
    checkAgainstReference(given, value, text);
    if (after.size() > before.size() || before.size() - after.size() > 5 ||
        !isSubsequence(after, before)) {
        fprintf(stderr, "the parser changed more than separators\n");
        abort();
    }
    bool reported = errors->getCount() != 0;
    if (reported) {
        uint32_t code = errors->getEntry(0)->getCode();
        if (code != 0xE3E80064 && code != 0xE3E80065) abort();
        if (code == 0xE3E80064 && value.getTicks() != 0) abort();
    } else if (value.getYear() >= 1 && value.getYear() <= 9999) {
        // A date: its rendering reads back to the same second.
        keel::StringC again = value.format(8);
        keel::DateTimeC back = keel::DateTimeC::parse(again);
        int64_t second = keel::DateTimeC::kTicksPerSecond;
        if (errors->getCount() != 0 || back.getTicks() / second != value.getTicks() / second ||
            back.isLocalTime() != value.isLocalTime()) {
            fprintf(stderr, "rendering %s does not parse back\n", utf8Of(value.format(8)).c_str());
            abort();
        }
    }
    errors->takeText(nullptr);
    return 0;
}
