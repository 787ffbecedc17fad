#include "files/streamwriter.h"

#include <string.h>

#include "files/fileserv.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// The most bytes one byte of internal text can become in an encoding made
// by this library, or 0 for an encoding from elsewhere (whose encoder is
// then asked for the exact size). One internal byte gives at most one unit:
// a one-byte character is one unit, a longer sequence at most two (a
// surrogate pair for four bytes), and the substitute for a character the
// target cannot hold is one unit too.
uint32_t outputWidthBound(TextEncodingI* encoding) {
    static const char* const names[] = {"ascii", "system-8", "iso-8859-1", "utf8",
                                        "utf16", "utf16be",  "utf16le",    "wchar_t"};
    for (const char* name : names) {
        if (encoding == findEncoding(name)) return encoding->unitWidth();
    }
    return 0;
}

}  // namespace

StreamWriterC::StreamWriterC(OutputStreamC* stream, TextEncodingI* encoding, bool writeMark,
                             bool ownsStream)
    : stream(stream),
      ownsStream(ownsStream),
      encoder(nullptr),
      markPending(writeMark),
      bufferSize(0),
      buffer(nullptr),
      widthBound(0) {
    encoder = (encoding ? encoding : findEncoding("system-8"))->newEncoder();
    widthBound = outputWidthBound(encoder->getEncoding());
}

StreamWriterC::~StreamWriterC() { close(); }

StreamWriterC* StreamWriterC::open(const FileNameC* name, bool append, TextEncodingI* encoding,
                                   bool writeMark, uint32_t shareMode, bool wait) {
    IOStreamC* stream =
        FlnFileServiceC::instance()->openStream(name, append ? 0 : 1, 2, shareMode, wait);
    if (!stream) return nullptr;
    bool mark = writeMark && (!append || stream->getPosition() == 0);
    return new StreamWriterC(stream, encoding, mark, true);
}

TextEncodingI* StreamWriterC::getEncoding() { return encoder ? encoder->getEncoding() : nullptr; }

uint32_t StreamWriterC::close() {
    uint32_t code = 0;
    if (stream && ownsStream) {
        code = stream->close();
        delete stream;
    }
    stream = nullptr;
    delete encoder;
    encoder = nullptr;
    delete[] buffer;
    buffer = nullptr;
    bufferSize = 0;
    return code;
}

uint32_t StreamWriterC::flush() { return stream ? stream->flush() : 0; }

uint32_t StreamWriterC::write(const StringC& original) {
    if (!stream || !encoder) return 0;
    // The line ends change only where a carriage return stands, since the
    // line end written is the line feed itself; a text without one skips
    // the three passes and their copies.
    StringC text = original;
    {
        Utf8ViewC bytes(original);
        if (memchr(bytes.data(), '\r', bytes.size()) != nullptr) text = convertLineEnds(original);
    }
    if (text.isEmpty()) return 0;
    TextEncodingI* encoding = encoder->getEncoding();
    if (markPending) {
        markPending = false;
        uint32_t length = 0;
        const uint8_t* mark = encoding->byteOrderMark(&length);
        uint32_t code = stream->write(mark, static_cast<int32_t>(length));
        if (code != 0) return code;
    }
    Utf8ViewC view(text);
    const char* bytes = view.chars();
    uint32_t length = view.size();
    uint32_t code;
    if (encoding == findEncoding("utf8")) {
        code = stream->write(bytes, static_cast<int32_t>(length));
    } else {
        // A string holds whole sequences, so the encoder holds nothing between
        // writes and the bound per byte covers the whole output; the size
        // pass is needed only for an encoding whose bound is unknown.
        uint32_t needed = widthBound != 0 && length <= 0x3FFFFFFFu
                              ? widthBound * length
                              : encoder->encodedSize(bytes, length);
        if (bufferSize < needed) {
            delete[] buffer;
            bufferSize = static_cast<uint32_t>(uint64_t(needed) * 3 / 2);
            buffer = new uint8_t[bufferSize];
        }
        uint32_t written = encoder->encode(bytes, length, buffer, bufferSize, nullptr);
        code = stream->write(buffer, static_cast<int32_t>(written));
    }
    return code;
}

}  // namespace keel
