// The scans of a format, the parser's (with its shortcut for a conversion of
// one letter) and that of a known length, against the walk that reads every
// conversion in full, over random formats.
#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>

#include "text/format_local.h"

namespace keel {
namespace {

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
    // Pieces that make conversions of every kind, long plain runs (so that
    // the search crosses words) and characters of more than one byte.
    const char* const pieces[] = {
        "%",        "d",       "s",  "S", "1$", "2$", "*",  "*3$", ".",
        "-",        "0",       "12", "l", "h",  "q",  "z",  "L",   "y",
        "C",        "#",       "+",  " ", "x",  "%%", "%p", "%t",  "plain text of some length",
        "\xC3\xA9", "\xE2\x82"};
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::string format;
        for (int n = random() % 14; n > 0; --n)
            format += pieces[random() % (sizeof pieces / sizeof *pieces)];
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

}  // namespace
}  // namespace keel
