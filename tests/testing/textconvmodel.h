// The oracle of the keel tool's streaming converter (tools/keel/textconv.h):
// the converter fed an input in pieces of any sizes must write what one
// decoder call over the whole input and one encoder call over its text
// write, with the writer's mark in front. The two agree where the input
// ends with whole sequences (the converter turns a cut tail into U+FFFD,
// where a one-shot decoder drops it) and holds no wchar_t value of
// 0x80000000 or more (which the converter replaces and a decoder drops);
// randomInput makes such inputs. Shared by the test and the fuzz target,
// with the eight encodings' names; results compare and print as values.
#ifndef KEEL_TESTS_TESTING_TEXTCONVMODEL_H
#define KEEL_TESTS_TESTING_TEXTCONVMODEL_H

#include <string.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include <keel/string.h>

#include "textconv.h"

namespace keel {
namespace testkit {

const char* const kEncodingNames[] = {"ascii", "iso-8859-1", "system-8", "utf8",
                                      "utf16", "utf16le",    "utf16be",  "wchar_t"};

struct ConvertedT {
    std::string bytes;
    bool lost = false;

    bool operator==(const ConvertedT& other) const {
        return bytes == other.bytes && lost == other.lost;
    }
};
inline std::ostream& operator<<(std::ostream& out, const ConvertedT& converted) {
    for (unsigned char c : converted.bytes)
        out << "0123456789ABCDEF"[c >> 4] << "0123456789ABCDEF"[c & 15] << ' ';
    return out << (converted.lost ? "(lost)" : "");
}

inline bool appendToString(void* context, const uint8_t* bytes, size_t count) {
    static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(bytes), count);
    return true;
}

// The converter, fed `input` in pieces whose sizes cycle through `pieces`
// (each at least 1 and at most kPieceSize).
inline ConvertedT convertInPieces(const cli::EncodingT& from, const cli::EncodingT& to, bool mark,
                                  const std::string& input, const std::vector<size_t>& pieces) {
    ConvertedT result;
    cli::TextConverterC converter(from, to, mark, appendToString, &result.bytes);
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(input.data());
    for (size_t i = 0, at = 0, piece; at < input.size(); ++i, at += piece) {
        piece =
            std::min(pieces.empty() ? input.size() : pieces[i % pieces.size()], input.size() - at);
        converter.feed(bytes + at, piece);
    }
    converter.finish();
    result.lost = converter.lost();
    return result;
}

// One decoder call and one encoder call over the input without the head
// mark that a reader of `from` skips.
inline ConvertedT convertAtOnce(const cli::EncodingT& from, const cli::EncodingT& to, bool mark,
                                std::string input) {
    ConvertedT result;
    size_t own = strlen(from.ownMark);
    // A UTF-16 decoder skips the mark of its order at the start of the call
    // itself, once; the "utf8" mark is the reader's to skip.
    if (from.kind == cli::EncodingT::Utf8 && own > 0 && input.compare(0, own, from.ownMark) == 0)
        input.erase(0, own);
    StringC text(input.data(), static_cast<uint32_t>(input.size()), from.name);
    uint32_t size = 4 * text.textUtf8Length() + 8;
    std::vector<char> out(size);
    result.lost = !text.copyText(out.data(), &size, to.name);
    result.bytes.assign(out.data(), size);
    if (mark && !result.bytes.empty()) result.bytes.insert(0, to.writerMark);
    return result;
}

// One code unit of `from` holding `value`.
inline void appendUnit(const cli::EncodingT& from, bool bigEndian, uint32_t value,
                       std::string& out) {
    for (int i = 0; i < from.unit; ++i)
        out += static_cast<char>(value >> (8 * (bigEndian ? from.unit - 1 - i : i)));
}

// Random input for `from`: plain and multibyte characters, broken and cut
// sequences, stray marks, and at the end six plain units, so that nothing
// is cut off by the end.
inline std::string randomInput(const cli::EncodingT& from, uint32_t& seed, size_t units) {
    auto next = [&seed]() {
        seed = seed * 1664525u + 1013904223u;
        return seed >> 8;
    };
    bool bigEndian =
        strcmp(from.name, "utf16be") == 0 || (strcmp(from.name, "utf16") == 0 && next() % 2 == 0);
    std::string out;
    if (strcmp(from.name, "utf16") == 0 && next() % 3 != 0)
        appendUnit(from, bigEndian, 0xFEFF, out);
    if (next() % 4 == 0) out += from.ownMark;
    static const char* const kUtf8Pieces[] = {
        "\xc3\xa9", "\xe4\xb8\xad", "\xF0\x9F\x98\x80",    "\xEF\xBB\xBF", "\xe4\xb8",
        "\x80",     "\xFE",         "\xF8\x88\x80\x80\x80"};
    static const uint32_t kValues[] = {0xE9,   0x4E2D, 0xFEFF,   0xFFFE,     0xD83D,
                                       0xDE00, 0xDC00, 0x10FFFF, 0x7FFFFFFF, 0};
    for (size_t i = 0; i < units; ++i) {
        uint32_t pick = next() % 16;
        if (pick < 8) {
            appendUnit(from, bigEndian, 'a' + pick, out);
        } else if (from.kind == cli::EncodingT::Utf8) {
            out += kUtf8Pieces[pick - 8];
        } else if (from.kind == cli::EncodingT::Byte) {
            out += static_cast<char>(0x80 + next() % 128);
        } else if (from.kind == cli::EncodingT::Utf16) {
            if (pick == 15) {
                appendUnit(from, bigEndian, 0xD83D, out);
                appendUnit(from, bigEndian, 0xDE00, out);
            } else {
                appendUnit(from, bigEndian, kValues[pick - 8] & 0xFFFF, out);
            }
        } else {
            appendUnit(from, bigEndian, kValues[pick - 8], out);
        }
    }
    for (int i = 0; i < 6; ++i) appendUnit(from, bigEndian, 'z', out);
    return out;
}

}  // namespace testkit
}  // namespace keel

#endif
