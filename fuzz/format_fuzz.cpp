// The format engine with arbitrary formats: the parser's first pass must
// stay inside its table, and rendering a list of every entry type must give
// the same text into a new string as through a sink function and into a
// byte buffer, never reading outside the format or the entries.
//
// Input: the format's bytes, taken as internal form as they are (so broken
// sequences, stray bytes and overlong NULs all reach the engine). Formats
// with numbers of more than four digits are skipped: a width of a billion
// blanks is correct output, but not a useful test; for the same reason the
// entries are all small numbers as `*` reads them.
//
// The parser's own decoder must read the format as the library's does.
//
// The same format also goes through keel::format with C++ values of the
// types that make the same entries, which must render the same text.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>

#include <keel/keel.h>

#include "text/format.h"
#include "text/format_local.h"
#include "text/utf8.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "invariant broken: %s\n", what);
        abort();
    }
}

void appendBytes(void* context, const uint8_t* bytes, uint32_t count) {
    static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(bytes), count);
}

void appendUtf8(void* context, uint32_t character) {
    uint8_t bytes[8];
    uint8_t* end = bytes;
    keel::utf8Put(end, character);
    static_cast<std::string*>(context)->append(reinterpret_cast<char*>(bytes), end - bytes);
}

const keel::ArgListC& everyType() {
    static keel::ArgListC* list = [] {
        keel::ArgListC* args = new keel::ArgListC;
        keel::ArgGuidT guid = {0x01234567u, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};
        keel::ArgTimeValT time = {1700000000, 123456};
        // Every value is small in its 32-bit view, the view a `*` width reads.
        args->add(true).add(int16_t(-7)).add(int32_t(-123)).add(int64_t(-4294967296LL - 9));
        args->add(uint16_t(65535)).add(uint32_t(40)).add(uint64_t(~0ULL)).add(-3.75);
        args->addUCS4(0x141).add(keel::StringC("\xc3\xa9t\xc3\xa9", "utf8")).addDateTime(0);
        args->add(static_cast<const void*>(args)).add(guid).add(keel::ArgListC());
        args->add("caf\xc3\xa9").add(time).addNull().add(int32_t(-5)).add(int32_t(3));
        return args;
    }();
    return *list;
}

// everyType() with a null pointer where that list has its "Null" entry,
// which no C++ type makes: what keel::format builds from viaFrontEnd's values.
const keel::ArgListC& everyTypeTwin() {
    static keel::ArgListC* list = [] {
        keel::ArgListC* args = new keel::ArgListC;
        keel::ArgGuidT guid = {0x01234567u, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};
        keel::ArgTimeValT time = {1700000000, 123456};
        args->add(true).add(int16_t(-7)).add(int32_t(-123)).add(int64_t(-4294967296LL - 9));
        args->add(uint16_t(65535)).add(uint32_t(40)).add(uint64_t(~0ULL)).add(-3.75);
        args->addUCS4(0x141).add(keel::StringC("\xc3\xa9t\xc3\xa9", "utf8")).addDateTime(0);
        args->add(static_cast<const void*>(&everyType())).add(guid).add(keel::ArgListC());
        args->add("caf\xc3\xa9")
            .add(time)
            .add(static_cast<const void*>(nullptr))
            .add(int32_t(-5))
            .add(int32_t(3));
        return args;
    }();
    return *list;
}

keel::StringC viaFrontEnd(const keel::StringC& format) {
    keel::ArgGuidT guid = {0x01234567u, 0x89AB, 0xCDEF, {1, 2, 3, 4, 5, 6, 7, 8}};
    keel::ArgTimeValT time = {1700000000, 123456};
    timespec dateTimeZero = {static_cast<time_t>(-62135683200LL), 0};
    return keel::format(format, true, short(-7), -123, -4294967296LL - 9,
                        static_cast<unsigned short>(65535), 40u, ~0ULL, -3.75, U'\u0141',
                        keel::StringC("\xc3\xa9t\xc3\xa9", "utf8"), dateTimeZero, &everyType(),
                        guid, keel::ArgListC(), "caf\xc3\xa9", time, nullptr, -5, 3);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    bytes.resize(strnlen(bytes.c_str(), bytes.size()));

    // Long numbers make long output; skip them. The parser's own decoder
    // must step as the library's does, never past the terminator.
    const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes.c_str());
    const uint8_t* theirs = p;
    int run = 0;
    while (*p) {
        uint32_t c = keel::formatparse::nextChar(p);
        check(c == keel::utf8Next(theirs) && p == theirs,
              "the parser's decoder differs from utf8Next");
        run = keel::formatparse::digitValue(c) >= 0 ? run + 1 : 0;
        if (run > 4) return 0;
    }

    keel::formatparse::PositionTableT table;
    keel::formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>(bytes.c_str()));
    check(table.top >= -1 && table.top < 128, "parser table overrun");
    for (int32_t i = 0; i <= table.top; ++i) {
        check(strchr(" iIlLcChHqQUSspt", table.slots[i]) != nullptr, "unknown slot letter");
    }
    // The walk of a report, which knows the length, makes the same table.
    keel::formatparse::PositionTableT measured;
    keel::scanFormatOfLength(measured, reinterpret_cast<const uint8_t*>(bytes.c_str()),
                             bytes.size());
    check(measured.top == table.top && measured.next == table.next &&
              memcmp(measured.slots, table.slots, static_cast<size_t>(table.top + 1)) == 0,
          "the scan of a known length differs");
    // The remembered scan, asked twice (the second from the thread's table),
    // and once more after a byte changed in place.
    std::string scratch = bytes;
    for (int round = 0; round < 3; ++round) {
        if (round == 2 && !scratch.empty()) scratch[scratch.size() / 2] = '%';
        const uint8_t* text = reinterpret_cast<const uint8_t*>(scratch.c_str());
        keel::formatparse::PositionTableT plain, remembered;
        keel::scanFormatOfLength(plain, text, strlen(scratch.c_str()));
        keel::scanFormatRemembered(remembered, text, strlen(scratch.c_str()));
        check(plain.top == remembered.top &&
                  memcmp(plain.slots, remembered.slots, static_cast<size_t>(plain.top + 1)) == 0,
              "the remembered scan differs");
    }

    keel::StringC format(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");
    keel::StringC result = keel::StringC::format(format, everyType());
    std::string viaSink;
    keel::StringC::formatTo(appendUtf8, &viaSink, format, everyType());
    const char* text = result.textUtf8();
    uint32_t length = result.textUtf8Length();
    // %D and %T read the clock, which may move between the two renderings.
    bool readsClock = bytes.find_first_of("DT") != std::string::npos;
    check(readsClock || std::string(text, length) == viaSink, "string and sink differ");
    // The trace file's way: the bytes rendered into a small buffer that is
    // handed on whenever it fills.
    std::string viaBuffer;
    uint8_t buffer[16];
    keel::FormatBytesT out = {buffer, sizeof buffer, 0, appendBytes, &viaBuffer};
    keel::renderFormatToBytes(out, reinterpret_cast<const uint8_t*>(bytes.c_str()), bytes.size(),
                              everyType());
    viaBuffer.append(reinterpret_cast<const char*>(buffer), out.used);
    check(readsClock || std::string(text, length) == viaBuffer, "string and byte buffer differ");
    result.releaseUtf8(text);

    // The typed front end: the same entries from C++ values, so the same text
    // (but for %p of the "CharStar", which shows the address of each list's
    // own copy of the text).
    keel::StringC typed = viaFrontEnd(format);
    if (!readsClock && bytes.find('p') == std::string::npos) {
        keel::StringC twin = keel::StringC::format(format, everyTypeTwin());
        check(typed.compare(twin) == 0, "keel::format and the engine differ");
    }
    return 0;
}
