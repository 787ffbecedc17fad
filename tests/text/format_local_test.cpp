// The scans of a format, the parser's (with its shortcut for a conversion of
// one letter), that of a known length and the remembered one, against the
// walk that reads every conversion in full, over random formats.
//
// And rendering into a byte buffer (renderFormatToBytes, the trace file's path)
// gives the bytes of the string that StringC::format makes of the same
// format and list, whatever the buffer's size and however often it fills.
#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>

#include <keel/keel.h>

#include "testing/scantest.h"
#include "text/format.h"
#include "text/format_local.h"

namespace keel {
namespace {

// Pieces that make conversions of every kind, long plain runs (so that the
// search crosses words) and characters of more than one byte.
const char* const kPieces[] = {
    "%",        "d",       "s",  "S", "1$", "2$", "*",  "*3$", ".",
    "-",        "0",       "12", "l", "h",  "q",  "z",  "L",   "y",
    "C",        "#",       "+",  " ", "x",  "%%", "%p", "%t",  "plain text of some length",
    "\xC3\xA9", "\xE2\x82"};

std::string randomFormat(std::mt19937& random, int most) {
    std::string format;
    for (int n = random() % most; n > 0; --n)
        format += kPieces[random() % (sizeof kPieces / sizeof *kPieces)];
    return format;
}

// The parser's walk in its own terms: every conversion read by
// scanConversion, with no shortcut for a single letter.
void scanByConversions(formatparse::PositionTableT& table, const uint8_t* p) {
    while (table.top <= 127) {
        p = formatparse::skipToPercent(p);
        if (*p == 0) return;
        ++p;
        formatparse::scanConversion(table, p);
    }
}

TEST(FormatLocalTest, ScansMatchTheWalkOfEveryConversion) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::string format = randomFormat(random, 14);
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(format.c_str());
        formatparse::PositionTableT plain, parsed, measured;
        scanByConversions(plain, bytes);
        formatparse::scanFormat(parsed, bytes);
        scanFormatOfLength(measured, bytes, format.size());
        for (const formatparse::PositionTableT* table : {&parsed, &measured}) {
            ASSERT_EQ(plain.top, table->top) << format;
            EXPECT_EQ(plain.next, table->next) << format;
            EXPECT_EQ(0, memcmp(plain.slots, table->slots, static_cast<size_t>(plain.top + 1)))
                << format;
        }
    }
}

// The remembered scan against the plain one: formats written into a few
// fixed buffers, more than the thread remembers, and rewritten in place (also
// with another format of the same length), so that the same address comes
// back with other bytes.
TEST(FormatLocalTest, RememberedScanAgainstThePlainScan) {
    std::mt19937 random(9);
    char buffers[24][80];
    for (auto& buffer : buffers) strcpy(buffer, "%d of %s");
    for (int step = 0; step < 20000; ++step) {
        char* buffer = buffers[random() % 24];
        if (random() % 3 == 0) {
            std::string format = randomFormat(random, 5).substr(0, 70);
            if (random() % 2 && strlen(buffer) >= 2) {
                // Same length, one byte changed.
                buffer[random() % strlen(buffer)] = "%dsS1$*.l"[random() % 9];
            } else {
                strcpy(buffer, format.c_str());
            }
        }
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(buffer);
        formatparse::PositionTableT plain, remembered;
        scanFormatOfLength(plain, bytes, strlen(buffer));
        scanFormatRemembered(remembered, bytes, strlen(buffer));
        ASSERT_EQ(plain.top, remembered.top) << buffer;
        ASSERT_EQ(0, memcmp(plain.slots, remembered.slots, static_cast<size_t>(plain.top + 1)))
            << buffer;
    }
}

void collect(void* context, const uint8_t* bytes, uint32_t count) {
    static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(bytes), count);
}

std::string renderedToBytes(const char* format, const ArgListC& args, uint32_t capacity) {
    std::string result;
    std::string buffer(capacity, '\0');
    FormatBytesT out = {reinterpret_cast<uint8_t*>(&buffer[0]), capacity, 0, collect, &result};
    StringC decoded(format, "utf8");
    const char* text = decoded.textUtf8();
    renderFormatToBytes(out, reinterpret_cast<const uint8_t*>(text), args);
    decoded.releaseUtf8(text);
    // The promised room behind the last character.
    EXPECT_LE(out.used + 2, capacity);
    result.append(reinterpret_cast<const char*>(out.buffer), out.used);
    return result;
}

TEST(FormatBytesTest, SameBytesAsTheFormattedString) {
    ArgListC args;
    StringC wide("\xE6\x97\xA5\xE6\x9C\xAC-\xC3\xA9t\xC3\xA9", "utf8");
    args.add(int32_t(-42)).add("plain text that is longer than a small buffer").add(wide);
    args.addUCS4(0x1F600).add(uint32_t(255)).add(int64_t(1) << 40);
    const char* const formats[] = {
        "",
        "no conversions at all, but a run of plain text longer than sixteen bytes",
        "%d|%s|%S|%C|%x|%lld",
        "%08d|%-60s|%20S|%5C|%#X|%3$.4S",
        "\xC3\xA9t\xC3\xA9 %2$s \xE6\x97\xA5 %1$+d %%",
        "%1$*5$d|%9$s|%q|%",
        "%t and %.3t",
    };
    for (const char* format : formats) {
        std::string expected = str(StringC::format(StringC(format, "utf8"), args));
        for (uint32_t capacity : {16u, 17u, 64u, 512u}) {
            EXPECT_EQ(expected, renderedToBytes(format, args, capacity))
                << format << " in " << capacity;
        }
    }
}

}  // namespace
}  // namespace keel
