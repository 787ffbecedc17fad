// Streaming text conversion for `keel text convert`: input in pieces of any
// size, through the library's decoders (a StringC made from whole
// sequences) and encoders (StringC::copyText), in buffers whose size does
// not depend on the length of the input.
//
//     const cli::EncodingT* from = cli::findEncoding("utf16");
//     cli::TextConverterC converter(*from, *cli::findEncoding("utf8"), true, sink, &out);
//     while ((got = read(fd, piece, sizeof piece)) > 0) converter.feed(piece, got);
//     converter.finish();
//
// Reading is done as the library's text reader does it with a given
// encoding: a byte-order mark of that encoding at the head is skipped
// ("utf16" takes its order from it, little-endian without one), any other
// mark stays as text. Writing is done as the text writer does it: the mark
// of the encoder's encoding (EF BB BF for "utf8" and "system-8", FF FE for
// "utf16" and "utf16le", FE FF for "utf16be", none for the others) goes in
// front of the first byte of output, and empty output gets no mark.
//
// The tool keeps its own cut between pieces: a piece is decoded up to the
// start of the last sequence that it does not hold whole, and those bytes
// go in front of the next piece. So no sequence is ever split between two
// decoder calls, and U+FEFF inside a UTF-16 text (which a decoder would take
// for a mark at the start of a call) is never lost. A sequence cut off by
// the end of the input becomes U+FFFD rather than vanishing, as do wchar_t
// values of 0x80000000 or more, which have no internal form.
#ifndef KEEL_TOOLS_KEEL_TEXTCONV_H
#define KEEL_TOOLS_KEEL_TEXTCONV_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace keel {
namespace cli {

struct EncodingT {
    enum Kind : uint8_t { Byte, Utf8, Utf16, Wide };
    const char* name;
    Kind kind;
    uint8_t unit;            // bytes of one code unit
    const char* ownMark;     // the mark a reader skips at the head ("" for none)
    const char* writerMark;  // the mark a writer puts in front ("" for none)
};

// One of the eight encodings by name, ASCII case ignored; null otherwise.
const EncodingT* findEncoding(const char* name);
// "ascii, iso-8859-1, ..." for messages.
std::string encodingNames();

// Largest piece that feed() takes at once.
const size_t kPieceSize = 65536;

// Frames input into runs of whole sequences of one encoding. Derived
// classes see each run once, in order, with its offset in the input
// (counted from the first byte, mark included).
class SequenceFramerC {
public:
    explicit SequenceFramerC(const EncodingT& from);
    virtual ~SequenceFramerC() {}

    // The next piece, at most kPieceSize bytes. False when a hook said stop.
    bool feed(const uint8_t* bytes, size_t count);
    // The end of the input: what is still held is a sequence cut off by the
    // end, handed to onBroken. False when a hook said stop.
    bool finish();

protected:
    // A run of whole sequences. The two bytes in front of `bytes` are
    // writable scratch room, and so are the bytes themselves.
    virtual bool onWhole(uint8_t* bytes, size_t count, uint64_t offset) = 0;
    // At the end of the input, a sequence that the end cut off (`cut`) or
    // that holds a byte that cannot follow where it stands.
    virtual bool onBroken(const uint8_t* bytes, size_t count, uint64_t offset, bool cut) = 0;

    // The name under which runs are decoded: "utf16" is settled to
    // "utf16le" or "utf16be" by the head of the input.
    const char* decodeName() const { return decodeName_; }
    bool bigEndian() const { return bigEndian_; }
    const EncodingT& from() const { return from_; }

private:
    size_t wholeLength(const uint8_t* bytes, size_t count) const;
    size_t brokenLength(const uint8_t* bytes, size_t count) const;
    bool settleHead(bool atEnd);
    bool drain(bool atEnd);

    const EncodingT& from_;
    const char* decodeName_;
    bool bigEndian_;
    bool headPending_;
    std::vector<uint8_t> work_;  // scratch room, held bytes, then the piece
    size_t held_;
    uint64_t offset_;  // input offset of the first held byte
};

typedef bool (*ByteSinkFn)(void* context, const uint8_t* bytes, size_t count);

class TextConverterC : public SequenceFramerC {
public:
    TextConverterC(const EncodingT& from, const EncodingT& to, bool writeMark, ByteSinkFn sink,
                   void* context);
    // Some character had no form in the target and was written as its
    // replacement ('~' in "ascii" and "iso-8859-1", U+FFFD in UTF-16).
    bool lost() const { return lost_; }

protected:
    bool onWhole(uint8_t* bytes, size_t count, uint64_t offset) override;
    bool onBroken(const uint8_t* bytes, size_t count, uint64_t offset, bool cut) override;

private:
    size_t settleBroken(uint8_t* bytes, size_t count);
    bool convert(const void* bytes, uint32_t count, const char* encoding);
    bool emit(const uint8_t* bytes, size_t count);

    const EncodingT& to_;
    bool markPending_;
    ByteSinkFn sink_;
    void* context_;
    std::vector<uint8_t> output_;
    bool lost_ = false;
};

// Finds the first sequence that the decoder would replace or drop and, when
// a target is given, the first character that has no form in it.
class TextCheckerC : public SequenceFramerC {
public:
    TextCheckerC(const EncodingT& from, const EncodingT* to);
    bool found() const { return found_; }
    uint64_t problemOffset() const { return problemOffset_; }
    // "invalid utf8 sequence E4 41", "U+00E9 has no form in ascii", ...
    const std::string& problem() const { return problem_; }

protected:
    bool onWhole(uint8_t* bytes, size_t count, uint64_t offset) override;
    bool onBroken(const uint8_t* bytes, size_t count, uint64_t offset, bool cut) override;

private:
    bool invalid(const uint8_t* bytes, size_t count, uint64_t offset, const char* why);
    bool value(uint32_t character, uint64_t offset);

    const EncodingT* to_;
    uint32_t limit_;  // characters above it have no form in the target
    bool found_ = false;
    uint64_t problemOffset_ = 0;
    std::string problem_;
};

}  // namespace cli
}  // namespace keel

#endif
