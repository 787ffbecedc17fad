// The streaming converter of `keel text convert` against its oracle
// (tests/testing/textconvmodel.h): the input, fed in the piece sizes the
// fuzzer chooses, converts to what one decoder and one encoder call over all
// of it give. The first bytes choose the encodings, the mark and the piece
// sizes; the rest is the input, ended by six plain units and, for wchar_t,
// kept below 0x80000000 as the oracle needs.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "testing/textconvmodel.h"
#include "textconv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const keel::cli::EncodingT& from =
        *keel::cli::findEncoding(keel::testkit::kEncodingNames[data[0] % 8]);
    const keel::cli::EncodingT& to =
        *keel::cli::findEncoding(keel::testkit::kEncodingNames[data[1] % 8]);
    bool mark = data[0] & 0x80;
    std::vector<size_t> pieces = {size_t(1 + data[2] % 16), size_t(1 + data[3] % 64),
                                  size_t(1 + data[2] / 16)};
    std::string input(reinterpret_cast<const char*>(data + 4), size - 4);
    if (from.kind == keel::cli::EncodingT::Wide) {
        input.resize(input.size() & ~size_t(3));
        for (size_t i = 3; i < input.size(); i += 4) input[i] = static_cast<char>(input[i] & 0x7F);
    }
    bool bigEndian = input.size() >= 2 && static_cast<uint8_t>(input[0]) == 0xFE &&
                     static_cast<uint8_t>(input[1]) == 0xFF;
    if (from.kind == keel::cli::EncodingT::Utf16) input.resize(input.size() & ~size_t(1));
    for (int i = 0; i < 6; ++i) {
        keel::testkit::appendUnit(from, bigEndian || std::string(from.name) == "utf16be", 'z',
                                  input);
    }
    if (!(keel::testkit::convertAtOnce(from, to, mark, input) ==
          keel::testkit::convertInPieces(from, to, mark, input, pieces)))
        abort();
    return 0;
}
