// The stack-held arguments of a report: the scan of a format of known length
// against the parser's own scan, over random formats.
#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>

#include "text/format_local.h"

namespace keel {
namespace {

TEST(FormatLocalTest, ScanOfKnownLengthMatchesTheParser) {
    // Pieces that make conversions of every kind, long plain runs (so that
    // the search crosses words) and characters of more than one byte.
    const char* const pieces[] = {
        "%",        "d",        "s", "S",  "1$", "2$", "*",  "*3$",
        ".",        "-",        "0", "12", "l",  "h",  "%%", "plain text of some length",
        "\xC3\xA9", "\xE2\x82", " ", "x"};
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        std::string format;
        for (int n = random() % 14; n > 0; --n)
            format += pieces[random() % (sizeof pieces / sizeof *pieces)];
        formatparse::PositionTableT plain, measured;
        formatparse::scanFormat(plain, reinterpret_cast<const uint8_t*>(format.c_str()));
        scanFormatOfLength(measured, reinterpret_cast<const uint8_t*>(format.c_str()),
                           format.size());
        ASSERT_EQ(plain.top, measured.top) << format;
        EXPECT_EQ(plain.next, measured.next) << format;
        EXPECT_EQ(0, memcmp(plain.slots, measured.slots, static_cast<size_t>(plain.top + 1)))
            << format;
    }
}

}  // namespace
}  // namespace keel
