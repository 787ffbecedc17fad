// The streaming core of `keel text convert`, in-process: whatever the sizes
// of the pieces it is fed, it writes what one decoder and one encoder call
// over the whole input write (the model of testing/textconvmodel.h), for
// every pair of the eight encodings. The random inputs hold U+FEFF inside
// UTF-16 text, where a piece may begin with it: it stays text, which one
// decoder call per piece would take for a mark.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/textconvmodel.h"
#include "textconv.h"

namespace keel {
namespace {

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

}  // namespace
}  // namespace keel
