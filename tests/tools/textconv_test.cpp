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

using namespace std::string_literals;

const cli::EncodingT& encoding(const char* name) { return *cli::findEncoding(name); }

TEST(TextConverterModel, PiecesOfAnySizeGiveTheOneShotConversion) {
    uint32_t seed = 2026;
    for (const char* fromName : testkit::kEncodingNames) {
        for (const char* toName : testkit::kEncodingNames) {
            for (int round = 0; round < 12; ++round) {
                SCOPED_TRACE(std::string(fromName) + " -> " + toName + " round " +
                             std::to_string(round));
                std::string input = testkit::randomInput(encoding(fromName), seed, 1 + seed % 200);
                std::vector<size_t> pieces;
                for (int i = 0; i < 5; ++i)
                    pieces.push_back(1 + (seed >> (i * 3)) % (round < 6 ? 7 : 300));
                bool mark = round % 2 == 0;
                testkit::ConvertedT expected =
                    testkit::convertAtOnce(encoding(fromName), encoding(toName), mark, input);
                ASSERT_EQ(expected, testkit::convertInPieces(encoding(fromName), encoding(toName),
                                                             mark, input, pieces))
                    << ::testing::PrintToString(input);
            }
        }
    }
}

// Long inputs cross the tool's own buffer of kPieceSize bytes too.
TEST(TextConverterModel, InputsLongerThanOnePiece) {
    uint32_t seed = 7;
    for (const char* fromName : {"utf8", "utf16", "wchar_t"}) {
        const cli::EncodingT& from = encoding(fromName);
        std::string input = testkit::randomInput(from, seed, 3 * cli::kPieceSize / from.unit);
        testkit::ConvertedT expected = testkit::convertAtOnce(from, encoding("utf8"), false, input);
        for (size_t piece : {size_t(1000), cli::kPieceSize, cli::kPieceSize - 1}) {
            EXPECT_TRUE(expected ==
                        testkit::convertInPieces(from, encoding("utf8"), false, input, {piece}))
                << fromName << " in pieces of " << piece;
        }
    }
}

// A U+FEFF that a piece of UTF-16 begins with stays text: one decoder call
// per piece would take it for a mark.
TEST(TextConverterModel, MarksInsideUtf16TextStayText) {
    const std::string input =
        "\xFF\xFE"
        "A\0\xFF\xFE\xFF\xFE\xFF\xFE"s;
    for (size_t piece = 1; piece <= 4; ++piece) {
        EXPECT_EQ(
            "A\xEF\xBB\xBF\xEF\xBB\xBF\xEF\xBB\xBF",
            testkit::convertInPieces(encoding("utf16le"), encoding("utf8"), false, input, {piece})
                .bytes)
            << "pieces of " << piece;
    }
}

}  // namespace
}  // namespace keel
