// The streaming core of `keel text convert`, in-process: whatever the sizes
// of the pieces it is fed, it writes what one decoder and one encoder call
// over the whole input write (the model of testing/textconvmodel.h), for
// every pair of the eight encodings. The random inputs hold U+FEFF inside
// UTF-16 text, where a piece may begin with it: it stays text, which one
// decoder call per piece would take for a mark. The last round of each pair
// to a UTF-8 form is long, in pieces about the size of the tool's own buffer
// (kPieceSize).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/textconvmodel.h"
#include "textconv.h"

namespace keel {
namespace {

const size_t kLongPieces[] = {1000, cli::kPieceSize, cli::kPieceSize - 1};

TEST(TextConverterModel, PiecesOfAnySizeGiveTheOneShotConversion) {
    uint32_t seed = 2026;
    for (const char* fromName : testkit::kEncodingNames) {
        for (const char* toName : testkit::kEncodingNames) {
            const cli::EncodingT &from = *cli::findEncoding(fromName),
                                 &to = *cli::findEncoding(toName);
            for (int round = 0; round < 13; ++round) {
                SCOPED_TRACE(std::string(fromName) + " -> " + toName + " round " +
                             std::to_string(round));
                bool longRound = round == 12 && to.kind == cli::EncodingT::Utf8,
                     mark = round % 2 == 0;
                std::string input = testkit::randomInput(
                    from, seed, longRound ? 3 * cli::kPieceSize / from.unit : 1 + seed % 200);
                std::vector<size_t> pieces(5);
                for (int i = 0; i < 5; ++i)
                    pieces[i] = longRound ? kLongPieces[i % 3]
                                          : 1 + (seed >> (i * 3)) % (round < 6 ? 7 : 300);
                ASSERT_EQ(testkit::convertAtOnce(from, to, mark, input),
                          testkit::convertInPieces(from, to, mark, input, pieces));
            }
        }
    }
}

}  // namespace
}  // namespace keel
