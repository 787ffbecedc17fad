// The streaming converter and checker of `keel text convert`. The framer
// holds at most one cut sequence (fewer than eight bytes) between pieces;
// every run it hands on holds whole sequences only, found by the same rules
// as the library's decoders walk them, so decoding run by run gives the
// text that one decoder fed the whole input would give. Buffers are sized by
// kPieceSize, never by the input.
#include "textconv.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <keel/string.h>

namespace keel {
namespace cli {

namespace {

const size_t kScratch = 2;   // room for a UTF-16 mark in front of a run
const size_t kMaxHeld = 16;  // more than the longest cut sequence

const EncodingT kEncodings[] = {
    {"ascii", EncodingT::Byte, 1, "", ""},
    {"iso-8859-1", EncodingT::Byte, 1, "", ""},
    {"system-8", EncodingT::Utf8, 1, "", "\xEF\xBB\xBF"},
    {"utf8", EncodingT::Utf8, 1, "\xEF\xBB\xBF", "\xEF\xBB\xBF"},
    {"utf16", EncodingT::Utf16, 2, "\xFF\xFE", "\xFF\xFE"},
    {"utf16le", EncodingT::Utf16, 2, "\xFF\xFE", "\xFF\xFE"},
    {"utf16be", EncodingT::Utf16, 2, "\xFE\xFF", "\xFE\xFF"},
    {"wchar_t", EncodingT::Wide, 4, "", ""},
};

bool isContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

// The length that a first byte announces, as the library's walkers read it.
size_t sequenceLength(uint8_t byte) {
    return byte < 0xC0   ? 1
           : byte < 0xE0 ? 2
           : byte < 0xF0 ? 3
           : byte < 0xF8 ? 4
           : byte < 0xFC ? 5
           : byte < 0xFE ? 6
                         : 1;
}

uint32_t unitAt(const uint8_t* p, bool bigEndian) {
    return bigEndian ? (uint32_t(p[0]) << 8 | p[1]) : (uint32_t(p[1]) << 8 | p[0]);
}

uint32_t wideAt(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool isHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

std::string hexBytes(const uint8_t* bytes, size_t count) {
    std::string text;
    char piece[4];
    for (size_t i = 0; i < count && i < 8; ++i) {
        snprintf(piece, sizeof piece, "%s%02X", i ? " " : "", bytes[i]);
        text += piece;
    }
    return text;
}

}  // namespace

const EncodingT* findEncoding(const char* name) {
    if (!name) return nullptr;
    for (const EncodingT& encoding : kEncodings) {
        if (strcasecmp(name, encoding.name) == 0) return &encoding;
    }
    return nullptr;
}

std::string encodingNames() {
    std::string names;
    for (const EncodingT& encoding : kEncodings)
        names += (names.empty() ? "" : ", ") + std::string(encoding.name);
    return names;
}

// --- SequenceFramerC ---

SequenceFramerC::SequenceFramerC(const EncodingT& from)
    : from_(from),
      decodeName_(from.name),
      bigEndian_(strcmp(from.name, "utf16be") == 0),
      headPending_(true),
      work_(kScratch + kMaxHeld + kPieceSize),
      held_(0),
      offset_(0) {}

bool SequenceFramerC::feed(const uint8_t* bytes, size_t count) {
    while (count > 0) {
        size_t piece = count < kPieceSize ? count : kPieceSize;
        memcpy(work_.data() + kScratch + held_, bytes, piece);
        held_ += piece;
        bytes += piece;
        count -= piece;
        if (!drain(false)) return false;
    }
    return true;
}

bool SequenceFramerC::finish() { return drain(true); }

size_t SequenceFramerC::wholeLength(const uint8_t* p, size_t n) const {
    switch (from_.kind) {
    case EncodingT::Byte:
        return n;
    case EncodingT::Wide:
        return n & ~size_t(3);
    case EncodingT::Utf16: {
        size_t whole = n & ~size_t(1);
        // A high surrogate as the last unit waits for its partner.
        if (whole >= 2 && isHighSurrogate(unitAt(p + whole - 2, bigEndian_))) whole -= 2;
        return whole;
    }
    case EncodingT::Utf8:
        break;
    }
    // Every byte that is no continuation byte is a place where the decoder's
    // walk stands (a sequence takes only continuation bytes behind its first
    // byte); the walk stops at the first such byte whose announced length
    // runs past the end. Only the last five bytes can do that.
    for (size_t i = n > 5 ? n - 5 : 0; i < n; ++i) {
        if (isContinuation(p[i])) continue;
        if (i + sequenceLength(p[i]) > n) return i;
    }
    return n;
}

size_t SequenceFramerC::brokenLength(const uint8_t* p, size_t n) const {
    switch (from_.kind) {
    case EncodingT::Utf8: {
        // One replacement for the first byte and the continuation bytes
        // behind it, as the decoder's walk takes a broken sequence.
        size_t length = sequenceLength(p[0]);
        size_t k = 1;
        while (k < n && k < length && isContinuation(p[k])) ++k;
        return k;
    }
    case EncodingT::Utf16:
        return n < 2 ? n : 2;
    default:
        return n;
    }
}

bool SequenceFramerC::drain(bool atEnd) {
    uint8_t* p = work_.data() + kScratch;
    size_t n = held_;
    if (headPending_) {
        bool detect = strcmp(from_.name, "utf16") == 0;
        size_t need = strlen(from_.ownMark);
        if (detect) need = 2;
        if (n < need && !atEnd) return true;
        headPending_ = false;
        const char* mark = from_.ownMark;
        if (detect) {
            // FE FF means big-endian; anything else, no mark included, little.
            bigEndian_ = n >= 2 && p[0] == 0xFE && p[1] == 0xFF;
            decodeName_ = bigEndian_ ? "utf16be" : "utf16le";
            mark = bigEndian_ ? "\xFE\xFF" : "\xFF\xFE";
        }
        size_t length = strlen(mark);
        if (length > 0 && n >= length && memcmp(p, mark, length) == 0) {
            p += length;
            n -= length;
            offset_ += length;
        }
    }
    for (;;) {
        size_t whole = wholeLength(p, n);
        if (whole > 0 && !onWhole(p, whole, offset_)) return false;
        p += whole;
        n -= whole;
        offset_ += whole;
        if (!atEnd || n == 0) break;
        size_t broken = brokenLength(p, n);
        if (!onBroken(p, broken, offset_, broken == n)) return false;
        p += broken;
        n -= broken;
        offset_ += broken;
    }
    memmove(work_.data() + kScratch, p, n);
    held_ = n;
    return true;
}

// --- TextConverterC ---

TextConverterC::TextConverterC(const EncodingT& from, const EncodingT& to, bool writeMark,
                               ByteSinkFn sink, void* context)
    : SequenceFramerC(from),
      to_(to),
      markPending_(writeMark && to.writerMark[0] != 0),
      sink_(sink),
      context_(context) {}

bool TextConverterC::onWhole(uint8_t* bytes, size_t count, uint64_t) {
    if (from().kind == EncodingT::Wide) {
        // Values without an internal form would vanish in the decoder.
        for (size_t i = 0; i + 4 <= count; i += 4) {
            if (wideAt(bytes + i) >= 0x80000000u) {
                static const uint8_t kWideReplacement[] = {0xFD, 0xFF, 0, 0};
                memcpy(bytes + i, kWideReplacement, 4);
            }
        }
    }
    if (from().kind == EncodingT::Utf8) count = settleBroken(bytes, count);
    if (from().kind == EncodingT::Utf16 && count >= 2 &&
        isHighSurrogate(unitAt(bytes + count - 2, bigEndian()))) {
        // A run ends in a high surrogate only when the next unit is another
        // one: the framer holds a last high surrogate back. The decoder
        // would wait for a partner and drop it; the whole input shows it
        // lone, which is U+FFFD.
        bytes[count - 2] = bigEndian() ? 0xFF : 0xFD;
        bytes[count - 1] = bigEndian() ? 0xFD : 0xFF;
    }
    if (from().kind == EncodingT::Utf16) {
        // The decoder takes a mark of its order at the start of every call
        // for a mark; giving it one keeps a U+FEFF at the start of the run.
        bytes -= 2;
        count += 2;
        bytes[0] = bigEndian() ? 0xFE : 0xFF;
        bytes[1] = bigEndian() ? 0xFF : 0xFE;
    }
    return convert(bytes, static_cast<uint32_t>(count), decodeName());
}

size_t TextConverterC::settleBroken(uint8_t* bytes, size_t count) {
    // The decoder judges a sequence whole by the length its first byte
    // announces before it looks at the bytes, so a broken sequence near the
    // end of a run (E4 41 as the last two bytes) would be held and dropped
    // with the decoder, although the whole input shows it broken. So broken
    // sequences are settled here, in place: one byte FF where the decoder
    // took one byte, EF BF BD where it took three or more, FF and one byte
    // less where it took two. Each gives the one U+FFFD the decoder gives,
    // and nothing in the run is longer than announced. The run only shrinks.
    size_t in = 0, out = 0;
    bool moved = false;
    while (in < count) {
        uint8_t first = bytes[in];
        size_t length = first < 0x80 ? 1 : sequenceLength(first);
        size_t taken = 1;
        while (taken < length && in + taken < count && isContinuation(bytes[in + taken])) ++taken;
        if (length == 1 || taken == length) {
            if (moved) memmove(bytes + out, bytes + in, taken);
            in += taken;
            out += taken;
            continue;
        }
        if (taken >= 3) {
            bytes[out++] = 0xEF;
            bytes[out++] = 0xBF;
            bytes[out++] = 0xBD;
        } else {
            bytes[out++] = 0xFF;
        }
        in += taken;
        moved = moved || in != out;
    }
    return out;
}

bool TextConverterC::onBroken(const uint8_t*, size_t, uint64_t, bool) {
    static const uint8_t kReplacement[] = {0xEF, 0xBF, 0xBD};
    return convert(kReplacement, sizeof kReplacement, "utf8");
}

bool TextConverterC::convert(const void* bytes, uint32_t count, const char* encoding) {
    StringC text(bytes, count, encoding);
    // The longest output of one byte of internal form is four bytes
    // ("wchar_t"), plus the terminator that copyText converts too.
    size_t bound = 4 * static_cast<size_t>(text.textUtf8Length()) + 8;
    if (output_.size() < bound) output_.resize(bound);
    uint32_t size = static_cast<uint32_t>(output_.size());
    bool whole = text.copyText(output_.data(), &size, to_.name);
    if (size + to_.unit > output_.size()) {
        output_.resize(size + to_.unit);
        size = static_cast<uint32_t>(output_.size());
        whole = text.copyText(output_.data(), &size, to_.name);
    }
    if (!whole) lost_ = true;
    return emit(output_.data(), size);
}

bool TextConverterC::emit(const uint8_t* bytes, size_t count) {
    if (count == 0) return true;
    if (markPending_) {
        markPending_ = false;
        if (!sink_(context_, reinterpret_cast<const uint8_t*>(to_.writerMark),
                   strlen(to_.writerMark)))
            return false;
    }
    return sink_(context_, bytes, count);
}

// --- TextCheckerC ---

TextCheckerC::TextCheckerC(const EncodingT& from, const EncodingT* to)
    : SequenceFramerC(from), to_(to) {
    limit_ = 0xFFFFFFFFu;
    if (to && strcmp(to->name, "ascii") == 0) limit_ = 0x7F;
    if (to && strcmp(to->name, "iso-8859-1") == 0) limit_ = 0xFF;
    if (to && to->kind == EncodingT::Utf16) limit_ = 0x10FFFF;
}

bool TextCheckerC::invalid(const uint8_t* bytes, size_t count, uint64_t offset, const char* why) {
    found_ = true;
    problemOffset_ = offset;
    problem_ = std::string(why) + " " + from().name + " sequence " + hexBytes(bytes, count);
    return false;
}

bool TextCheckerC::value(uint32_t character, uint64_t offset) {
    if (character <= limit_) return true;
    char text[64];
    snprintf(text, sizeof text, "U+%04X has no form in %s", character, to_->name);
    found_ = true;
    problemOffset_ = offset;
    problem_ = text;
    return false;
}

bool TextCheckerC::onWhole(uint8_t* p, size_t n, uint64_t offset) {
    size_t i = 0;
    switch (from().kind) {
    case EncodingT::Byte: {
        bool ascii = strcmp(from().name, "ascii") == 0;
        for (; i < n; ++i) {
            if (ascii && p[i] >= 0x80) return invalid(p + i, 1, offset + i, "invalid");
            if (!value(p[i], offset + i)) return false;
        }
        return true;
    }
    case EncodingT::Wide:
        for (; i + 4 <= n; i += 4) {
            uint32_t character = wideAt(p + i);
            if (character >= 0x80000000u) return invalid(p + i, 4, offset + i, "invalid");
            if (!value(character, offset + i)) return false;
        }
        return true;
    case EncodingT::Utf16:
        while (i + 2 <= n) {
            uint32_t unit = unitAt(p + i, bigEndian());
            if (isHighSurrogate(unit) && i + 4 <= n &&
                isLowSurrogate(unitAt(p + i + 2, bigEndian()))) {
                uint32_t low = unitAt(p + i + 2, bigEndian());
                if (!value(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), offset + i))
                    return false;
                i += 4;
                continue;
            }
            if (isHighSurrogate(unit) || isLowSurrogate(unit))
                return invalid(p + i, 2, offset + i, "invalid");
            if (!value(unit, offset + i)) return false;
            i += 2;
        }
        return true;
    case EncodingT::Utf8:
        break;
    }
    while (i < n) {
        uint8_t first = p[i];
        if (first < 0x80) {
            if (!value(first, offset + i)) return false;
            ++i;
            continue;
        }
        size_t length = sequenceLength(first);
        size_t k = 1;
        while (k < length && i + k < n && isContinuation(p[i + k])) ++k;
        if (length == 1 || k < length) return invalid(p + i, k, offset + i, "invalid");
        uint32_t character = first & (0x7F >> length);
        for (k = 1; k < length; ++k) character = character << 6 | (p[i + k] & 0x3F);
        if (!value(character, offset + i)) return false;
        i += length;
    }
    return true;
}

bool TextCheckerC::onBroken(const uint8_t* bytes, size_t count, uint64_t offset, bool cut) {
    if (!cut) return invalid(bytes, count, offset, "invalid");
    found_ = true;
    problemOffset_ = offset;
    problem_ = std::string(from().name) + " sequence " + hexBytes(bytes, count) +
               " cut off by the end of the input";
    return false;
}

}  // namespace cli
}  // namespace keel
