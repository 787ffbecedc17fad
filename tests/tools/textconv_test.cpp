// The streaming core of `keel text convert`, in-process: whatever the sizes
// of the pieces it is fed, it writes what one decoder and one encoder call
// over the whole input write (the model of testing/textconvmodel.h), for
// every pair of the eight encodings.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/textconvmodel.h"
#include "textconv.h"

namespace keel {
namespace {

const char* const kNames[] = {"ascii", "iso-8859-1", "system-8", "utf8",
                              "utf16", "utf16le",    "utf16be",  "wchar_t"};

std::string hex(const std::string& bytes) {
    std::string text;
    char piece[4];
    for (unsigned char c : bytes) {
        snprintf(piece, sizeof piece, "%02X ", c);
        text += piece;
    }
    return text;
}

TEST(TextConverterModel, PiecesOfAnySizeGiveTheOneShotConversion) {
    uint32_t seed = 2026;
    for (const char* fromName : kNames) {
        for (const char* toName : kNames) {
            const cli::EncodingT& from = *cli::findEncoding(fromName);
            const cli::EncodingT& to = *cli::findEncoding(toName);
            for (int round = 0; round < 12; ++round) {
                std::string input = testkit::randomInput(from, seed, 1 + seed % 200);
                std::vector<size_t> pieces;
                for (int i = 0; i < 5; ++i)
                    pieces.push_back(1 + (seed >> (i * 3)) % (round < 6 ? 7 : 300));
                bool mark = round % 2 == 0;
                testkit::ConvertedT expected = testkit::convertAtOnce(from, to, mark, input);
                testkit::ConvertedT got = testkit::convertInPieces(from, to, mark, input, pieces);
                ASSERT_EQ(hex(expected.bytes), hex(got.bytes))
                    << fromName << " -> " << toName << " round " << round << ", input "
                    << hex(input);
                ASSERT_EQ(expected.lost, got.lost) << fromName << " -> " << toName;
            }
        }
    }
}

// Long inputs cross the tool's own buffer of kPieceSize bytes too.
TEST(TextConverterModel, InputsLongerThanOnePiece) {
    uint32_t seed = 7;
    for (const char* fromName : {"utf8", "utf16", "wchar_t"}) {
        const cli::EncodingT& from = *cli::findEncoding(fromName);
        std::string input = testkit::randomInput(from, seed, 3 * cli::kPieceSize / from.unit);
        for (size_t piece : {size_t(1000), cli::kPieceSize, cli::kPieceSize - 1}) {
            testkit::ConvertedT expected =
                testkit::convertAtOnce(from, *cli::findEncoding("utf8"), false, input);
            testkit::ConvertedT got =
                testkit::convertInPieces(from, *cli::findEncoding("utf8"), false, input, {piece});
            EXPECT_TRUE(expected.bytes == got.bytes) << fromName << " in pieces of " << piece;
        }
    }
}

// A U+FEFF that a piece of UTF-16 begins with stays text: one decoder call
// per piece would take it for a mark.
TEST(TextConverterModel, MarksInsideUtf16TextStayText) {
    std::string input =
        "\xFF\xFE"
        "A";
    input += '\0';
    for (int i = 0; i < 3; ++i) input += "\xFF\xFE";
    for (size_t piece = 1; piece <= 4; ++piece) {
        testkit::ConvertedT got = testkit::convertInPieces(
            *cli::findEncoding("utf16le"), *cli::findEncoding("utf8"), false, input, {piece});
        EXPECT_EQ("A\xEF\xBB\xBF\xEF\xBB\xBF\xEF\xBB\xBF", got.bytes) << "pieces of " << piece;
    }
}

}  // namespace
}  // namespace keel
