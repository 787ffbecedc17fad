// Text encodings: conversions between the internal form of strings (extended
// UTF-8) and the eight outside encodings "ascii", "system-8", "iso-8859-1",
// "utf8", "utf16", "utf16be", "utf16le" and "wchar_t".
//
// An encoding is a process-wide object found by name with findEncoding; it is
// made on first use and never destroyed. It hands out one-shot decoders
// (outside bytes to internal form) and encoders (internal form to outside
// bytes), which the caller deletes. Both may be fed in pieces of any size: a
// sequence cut by the end of a piece is held until the next call. Nothing
// fails: bad input becomes U+FFFD on the way in, and a character that the
// target cannot hold becomes 0x7E (8-bit targets) or U+FFFD (UTF-16) on the
// way out, which only the `lost` flag of encode tells.
//
// Typical use, the way a string is built from bytes:
//     TextDecoderI* d = findEncoding("utf16")->newDecoder();
//     uint32_t size = d->decodedSize(bytes, n);
//     ... d->decode(bytes, n, buffer, size, &characters); delete d;
#ifndef KEEL_TEXT_TEXTENCODING_H
#define KEEL_TEXT_TEXTENCODING_H

#include <stdint.h>

namespace keel {

class TextDecoderI;
class TextEncoderI;

// An encoding: hands out decoders and encoders and knows its byte-order mark.
class TextEncodingI {
public:
    virtual ~TextEncodingI() {}
    // A new decoder, owned by the caller.
    virtual TextDecoderI* newDecoder() = 0;
    // A new encoder, owned by the caller.
    virtual TextEncoderI* newEncoder() = 0;
    // The mark that may stand at the head of a file in this encoding; its
    // length goes to *length when that is not null. Null with length 0 when
    // the encoding has none.
    virtual const uint8_t* byteOrderMark(uint32_t* length) = 0;
    // Bytes of one code unit (1, 2 or 4); also the size of a terminator.
    virtual uint32_t unitWidth() = 0;
};

// Outside bytes to internal form.
class TextDecoderI {
public:
    virtual ~TextDecoderI() {}
    virtual TextEncodingI* getEncoding() = 0;
    // The greatest output for so many input bytes.
    virtual uint32_t maxOutput(uint32_t inputBytes) = 0;
    // The exact output of a decode of these bytes, held bytes included. Leaves
    // the held bytes as they are.
    virtual uint32_t decodedSize(const void* bytes, uint32_t length) = 0;
    // Decodes into `output` (no terminator is written), answers the bytes
    // written and, when `characters` is not null, the characters in it.
    virtual uint32_t decode(const void* bytes, uint32_t length, void* output, uint32_t room,
                            uint32_t* characters) = 0;
};

// Internal form to outside bytes.
class TextEncoderI {
public:
    virtual ~TextEncoderI() {}
    virtual TextEncodingI* getEncoding() = 0;
    // The exact output of an encode of these bytes, held bytes included.
    // Leaves the held bytes as they are.
    virtual uint32_t encodedSize(const void* internal, uint32_t length) = 0;
    // Encodes into `output` (no terminator is written) and answers the bytes
    // written; *lost, when wanted, tells whether a character was replaced.
    virtual uint32_t encode(const void* internal, uint32_t length, void* output, uint32_t room,
                            bool* lost) = 0;
};

// The lookup by name, in a fixed order. Null for a name that is no encoding;
// "vutf8", which marks bytes that are internal form already, is not one.
TextEncodingI* findEncoding(const char* name);

// Names compare byte by byte with bit 5 ignored on every byte, so "UTF8"
// matches "utf8". Equal pointers match at once.
bool encodingNamesEqual(const char* a, const char* b);

// Load time: fixes the addresses of the "utf16be" and "utf16le" objects, which
// the UTF-16 classes compare against to know their byte order.
void loadStepTextencoding();

// The address kept by loadStepTextencoding for the big-endian or the
// little-endian object; null before that step has run.
TextEncodingI* utf16OrderObject(bool bigEndian);

// Bytes held between calls: the end of a piece that cut a sequence.
class UnusedByteBufferC {
public:
    explicit UnusedByteBufferC(uint32_t size);
    virtual ~UnusedByteBufferC();
    // How many bytes the whole sequence needs that starts at `bytes`, given
    // that `count` of them are there.
    virtual uint32_t sequenceBytes(const uint8_t* bytes, uint32_t count) = 0;

    // Puts input behind the held bytes so that the held sequence can be
    // finished. Answers the held buffer, or null when nothing is held; *taken
    // is the number of input bytes that belong to the sequence and *total the
    // bytes to walk in the buffer.
    const uint8_t* completeHeld(const uint8_t* input, uint32_t inputLength, uint32_t* taken,
                                uint32_t* total);
    // Adds bytes behind the held ones; a tail that does not fit is dropped
    // whole.
    void appendHeld(const uint8_t* bytes, uint32_t count);
    // Takes `count` bytes off the front.
    void dropHeld(uint32_t count);
    // Keeps a copy of the held bytes aside, unless one is kept already.
    void snapshot();
    // Brings a kept copy back and frees it.
    void restore();

    // What is held now (heldBytes may be null when none is).
    uint32_t heldCount() const { return heldUsed; }
    const uint8_t* heldBytes() const { return held; }

protected:
    // The walk shared by the buffered decoders and encoders: finishes the
    // held sequence with the head of the input, then converts the rest.
    // `raw` is called as raw(bytes, length, &consumed, output, room) and
    // answers the bytes it wrote (or would write). When `sizing`, nothing
    // changes in the held bytes in the end and `output` is not touched.
    template <class Raw>
    uint32_t heldWalk(const uint8_t* input, uint32_t length, uint8_t* output, uint32_t room,
                      bool sizing, Raw& raw);

    uint8_t* held;       // new[] of heldSize bytes, made when bytes are first held
    uint32_t heldUsed;   // how many are held
    uint32_t heldSize;   // fixed at construction
    uint8_t* savedHeld;  // copy kept by snapshot, null when there is none
    uint32_t savedUsed;  // heldUsed at the snapshot

private:
    UnusedByteBufferC(const UnusedByteBufferC&) = delete;
    UnusedByteBufferC& operator=(const UnusedByteBufferC&) = delete;
};

// A decoder that holds cut sequences; the concrete classes give the loops
// over whole input.
class TextDecoderWithUnusedBytesC : public UnusedByteBufferC, public TextDecoderI {
public:
    explicit TextDecoderWithUnusedBytesC(uint32_t size) : UnusedByteBufferC(size) {}
    uint32_t decodedSize(const void* bytes, uint32_t length) override;
    uint32_t decode(const void* bytes, uint32_t length, void* output, uint32_t room,
                    uint32_t* characters) override;
    // Output size of whole input; *consumed is the input walked.
    virtual uint32_t rawDecodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) = 0;
    // Converts whole input; stops in front of a sequence that is not whole.
    virtual uint32_t rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed,
                               uint8_t* output, uint32_t room, uint32_t* characters) = 0;
};

// An encoder from the internal form that holds cut sequences.
class FromUTF8TextEncoderC : public UnusedByteBufferC, public TextEncoderI {
public:
    FromUTF8TextEncoderC() : UnusedByteBufferC(6) {}
    uint32_t sequenceBytes(const uint8_t* bytes, uint32_t count) override;
    uint32_t encodedSize(const void* internal, uint32_t length) override;
    uint32_t encode(const void* internal, uint32_t length, void* output, uint32_t room,
                    bool* lost) override;
    virtual uint32_t rawEncodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) = 0;
    virtual uint32_t rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output,
                               uint32_t room, bool* lost, uint32_t* consumed) = 0;
};

// An 8-bit source: no held bytes, every byte is one character, an ASCII byte
// stands for itself and `High` (in textencoding.cpp) tells what one of 0x80
// and above becomes. maxOutput is the input times the bytes of that.
template <class High>
class ByteTextDecoderM : public TextDecoderI {
public:
    explicit ByteTextDecoderM(TextEncodingI* encoding) : encoding(encoding) {}
    TextEncodingI* getEncoding() override { return encoding; }
    uint32_t maxOutput(uint32_t inputBytes) override;
    uint32_t decodedSize(const void* bytes, uint32_t length) override;
    uint32_t decode(const void* bytes, uint32_t length, void* output, uint32_t room,
                    uint32_t* characters) override;

private:
    TextEncodingI* encoding;
};

// "ascii" in: bytes of 0x80 and above become U+FFFD (maxOutput 3n).
struct AsciiHighByteT;
using ASCIITextDecoderC = ByteTextDecoderM<AsciiHighByteT>;
extern template class ByteTextDecoderM<AsciiHighByteT>;
// "iso-8859-1" in: every byte is the code point of the same value (2n).
struct Latin1HighByteT;
using Latin1TextDecoderC = ByteTextDecoderM<Latin1HighByteT>;
extern template class ByteTextDecoderM<Latin1HighByteT>;

// "utf8" and "system-8" in: a validating copy; each broken sequence becomes
// one U+FFFD, and the bytes are rewritten from the decoded values.
class UTF8TextDecoderC : public TextDecoderWithUnusedBytesC {
public:
    explicit UTF8TextDecoderC(TextEncodingI* = nullptr) : TextDecoderWithUnusedBytesC(6) {}
    uint32_t sequenceBytes(const uint8_t* bytes, uint32_t count) override;
    uint32_t rawDecodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed, uint8_t* output,
                       uint32_t room, uint32_t* characters) override;
    uint32_t decode(const void* bytes, uint32_t length, void* output, uint32_t room,
                    uint32_t* characters) override;
    TextEncodingI* getEncoding() override;
    uint32_t maxOutput(uint32_t inputBytes) override { return 3 * inputBytes; }
};

// "utf16", "utf16be", "utf16le" in. A decoder of "utf16" takes its byte order
// from the first two bytes it sees and then keeps it.
class UTF16TextDecoderC : public TextDecoderWithUnusedBytesC {
public:
    explicit UTF16TextDecoderC(TextEncodingI* encoding)
        : TextDecoderWithUnusedBytesC(4), encoding(encoding) {}
    uint32_t sequenceBytes(const uint8_t* bytes, uint32_t count) override;
    uint32_t rawDecodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed, uint8_t* output,
                       uint32_t room, uint32_t* characters) override;
    TextEncodingI* getEncoding() override { return encoding; }
    uint32_t maxOutput(uint32_t inputBytes) override { return 4 * (inputBytes / 2); }

private:
    // Settles the order of a "utf16" decoder and answers whether units are
    // big-endian.
    bool fixOrder(const uint8_t* bytes);
    // Order and start of a raw call: skips a leading mark of that order.
    const uint8_t* rawStart(const uint8_t* bytes, bool* swapped);

    TextEncodingI* encoding;
};

// "wchar_t" in: one 32-bit word per character, unchecked.
class WCharTextDecoderC : public TextDecoderWithUnusedBytesC {
public:
    explicit WCharTextDecoderC(TextEncodingI* = nullptr) : TextDecoderWithUnusedBytesC(8) {}
    uint32_t sequenceBytes(const uint8_t* bytes, uint32_t count) override;
    uint32_t rawDecodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawDecode(const uint8_t* bytes, uint32_t length, uint32_t* consumed, uint8_t* output,
                       uint32_t room, uint32_t* characters) override;
    TextEncodingI* getEncoding() override;
    uint32_t maxOutput(uint32_t inputBytes) override { return 6 * (inputBytes / 4); }
};

// The encoders below declare the same three operations each (a deliberate
// repetition of the FromUTF8TextEncoderC interface): each is a class of its
// own so that the encoding objects can make it in place by type.
//
// "ascii" out: characters above 127 become 0x7E.
class ASCIITextEncoderC : public FromUTF8TextEncoderC {
public:
    explicit ASCIITextEncoderC(TextEncodingI* encoding) : encoding(encoding) {}
    uint32_t rawEncodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output, uint32_t room,
                       bool* lost, uint32_t* consumed) override;
    TextEncodingI* getEncoding() override { return encoding; }

private:
    TextEncodingI* encoding;
};

// "iso-8859-1" out: characters above 255 become 0x7E.
class Latin1TextEncoderC : public FromUTF8TextEncoderC {
public:
    explicit Latin1TextEncoderC(TextEncodingI* encoding) : encoding(encoding) {}
    uint32_t rawEncodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output, uint32_t room,
                       bool* lost, uint32_t* consumed) override;
    TextEncodingI* getEncoding() override { return encoding; }

private:
    TextEncodingI* encoding;
};

// "utf16", "utf16be", "utf16le" out: big-endian only for "utf16be", so
// "utf16" writes little-endian. Values of 0x110000 and above become U+FFFD.
class UTF16TextEncoderC : public FromUTF8TextEncoderC {
public:
    explicit UTF16TextEncoderC(TextEncodingI* encoding) : encoding(encoding) {}
    uint32_t rawEncodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output, uint32_t room,
                       bool* lost, uint32_t* consumed) override;
    TextEncodingI* getEncoding() override { return encoding; }

private:
    TextEncodingI* encoding;
};

// "wchar_t" out: one word per character, nothing is ever lost.
class WCharTextEncoderC : public FromUTF8TextEncoderC {
public:
    explicit WCharTextEncoderC(TextEncodingI* = nullptr) {}
    uint32_t rawEncodedSize(const uint8_t* bytes, uint32_t length, uint32_t* consumed) override;
    uint32_t rawEncode(const uint8_t* bytes, uint32_t length, uint8_t* output, uint32_t room,
                       bool* lost, uint32_t* consumed) override;
    TextEncodingI* getEncoding() override;
};

// "utf8" and "system-8" out: the internal form is copied through a UTF-8
// decoder, so what is invalid becomes U+FFFD and a cut sequence is held; no
// character counts as lost.
class UTF8TextEncoderC : public TextEncoderI {
public:
    explicit UTF8TextEncoderC(TextEncodingI* = nullptr) : decoder(new UTF8TextDecoderC()) {}
    ~UTF8TextEncoderC() override { delete decoder; }
    TextEncodingI* getEncoding() override;
    uint32_t encodedSize(const void* internal, uint32_t length) override;
    uint32_t encode(const void* internal, uint32_t length, void* output, uint32_t room,
                    bool* lost) override;
    // The bytes of a cut sequence that the last encode kept back.
    const UnusedByteBufferC& heldBuffer() const { return *decoder; }

private:
    UTF8TextEncoderC(const UTF8TextEncoderC&) = delete;
    UTF8TextEncoderC& operator=(const UTF8TextEncoderC&) = delete;

    UTF8TextDecoderC* decoder;
};

// An encoding object: decoder class D, encoder class E, units of n bytes and a
// byte-order mark of m bytes.
template <class D, class E, uint32_t n, uint32_t m>
class TextEncodingM : public TextEncodingI {
public:
    explicit TextEncodingM(const uint8_t* markBytes = nullptr) : mark(m ? markBytes : nullptr) {}
    TextDecoderI* newDecoder() override { return new D(this); }
    TextEncoderI* newEncoder() override { return new E(this); }
    const uint8_t* byteOrderMark(uint32_t* length) override {
        if (length) *length = m;
        return mark;
    }
    uint32_t unitWidth() override { return n; }

protected:
    const uint8_t* mark;
};

// The encoding objects by themselves, made on first use.
TextEncodingI* asciiEncoding();
TextEncodingI* system8Encoding();
TextEncodingI* latin1Encoding();
TextEncodingI* utf8Encoding();
TextEncodingI* utf16Encoding();
TextEncodingI* utf16beEncoding();
TextEncodingI* utf16leEncoding();
TextEncodingI* wcharEncoding();

}  // namespace keel

#endif
