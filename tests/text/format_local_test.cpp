// The scans of a format, the parser's (with its shortcut for a conversion of
// one letter), that of a known length and the remembered one, against the
// walk that reads every conversion in full, over random formats.
#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>

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

}  // namespace
}  // namespace keel
