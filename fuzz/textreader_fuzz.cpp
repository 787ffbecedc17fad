// The text reader over arbitrary bytes in every encoding: input cut into
// pieces of random sizes gives the same lines (and the same whole text) as
// the same bytes in one piece, the line reader built on read and pushBack
// agrees with the stream reader's own, and nothing crashes.
//
// Input layout: byte 0 picks the encoding (low 3 bits) and detection (bit
// 3); byte 1 seeds the sizes of the pieces; the rest is the stream.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <random>
#include <utility>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "files/streamreader.h"
#include "text/stringim.h"
#include "../tests/testing/memstream.h"

namespace {

using keel::StreamReaderC;
using keel::StringC;
using keel::testkit::PiecewiseInputC;

const char* const kEncodings[] = {"ascii", "iso-8859-1", "system-8", "utf8",
                                  "utf16", "utf16le",    "utf16be",  "wchar_t"};

// The UTF-16 decoders drop a U+FEFF that begins a piece of input, wherever
// the piece lies, so where the pieces are cut decides which of them stay.
// The comparisons leave U+FEFF out, and a line made of nothing else is left
// out whole (where the pieces dropped its only character, there is no line,
// or an empty one); everything else must be the same. An input that holds
// no U+FEFF in any byte order keeps every line, empty ones included.
std::string bytesOf(const StringC& s) {
    const char* t = s.textUtf8();
    std::string out(t, s.textUtf8Length());
    s.releaseUtf8(t);
    for (size_t at; (at = out.find("\xEF\xBB\xBF")) != std::string::npos;) out.erase(at, 3);
    return out;
}

std::vector<std::string> lines(const std::string& bytes, const char* encoding, bool detect,
                               uint32_t seed, bool baseReader, bool byteOrderMarks) {
    StreamReaderC reader(new PiecewiseInputC(bytes, seed), detect, keel::findEncoding(encoding),
                         true);
    std::vector<std::string> result;
    // Every line goes into the one handle; a copy of every second line is
    // kept and must still hold its text at the end, though the reader writes
    // the lines after it over the handle's text where the handle holds it
    // alone.
    std::vector<std::pair<StringC, std::string>> kept;
    StringC line;
    for (size_t count = 0;
         (baseReader ? reader.TextReaderC::readLine(line) : reader.readLine(line)) == 0; ++count) {
        std::string text = bytesOf(line);
        if (count % 2 == 1) kept.emplace_back(line, text);
        if ((byteOrderMarks || !line.isEmpty()) && text.empty()) continue;  // only U+FEFF
        result.push_back(text);
    }
    for (const auto& copy : kept) {
        if (bytesOf(copy.first) != copy.second) {
            fprintf(stderr, "a line kept by the caller changed with the next line\n");
            abort();
        }
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const char* encoding = kEncodings[data[0] & 7];
    bool detect = (data[0] & 8) != 0;
    uint32_t seed = data[1] + 1u;
    std::string bytes(reinterpret_cast<const char*>(data + 2), size - 2);

    bool marks =
        bytes.find("\xFE\xFF") != std::string::npos || bytes.find("\xFF\xFE") != std::string::npos;
    // The reference in one piece without the run-time chosen decoder
    // kernels; every other reading with them.
    keel::StringImplC::setVectorPaths(false);
    std::vector<std::string> whole = lines(bytes, encoding, detect, 0, false, marks);
    keel::StringImplC::setVectorPaths(true);
    if (lines(bytes, encoding, detect, seed, false, marks) != whole) {
        fprintf(stderr, "pieces of random sizes gave other lines\n");
        abort();
    }
    StreamReaderC reader(new PiecewiseInputC(bytes, seed), detect, keel::findEncoding(encoding),
                         true);
    std::string all = bytesOf(reader.readAll());
    StreamReaderC once(new PiecewiseInputC(bytes, 0), detect, keel::findEncoding(encoding), true);
    if (bytesOf(once.readAll()) != all) {
        fprintf(stderr, "readAll depends on the pieces\n");
        abort();
    }
    // The line reader over read and pushBack walks the blocks by character
    // index, and a string's length ends at a U+0000; the stream reader's own
    // finds line ends in the bytes. The two agree on text without U+0000.
    if (all.find('\0') == std::string::npos &&
        lines(bytes, encoding, detect, seed, true, marks) != whole) {
        fprintf(stderr, "the line reader over read and pushBack gave other lines\n");
        abort();
    }
    return 0;
}
