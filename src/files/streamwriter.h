// StreamWriterC: text encoded onto a byte stream, in any of the eight
// encodings, with the encoding's byte-order mark once in front of the first
// text when asked.
//
//     keel::StreamWriterC* out = keel::StreamWriterC::open(&name, false, nullptr, true, 1, false);
//     out->write(keel::StringC("a=1\n", "ascii"));   // EF BB BF, then the text
//     delete out;                                     // closes the stream it owns
//
// Every line end (LF, CR LF, CR) goes out as a line feed. Text in "utf8" and
// "system-8" is written as it is held; other encodings go through one buffer
// that only grows. There is no buffering between writes: each write is one
// write of the stream.
#ifndef KEEL_FILES_STREAMWRITER_H
#define KEEL_FILES_STREAMWRITER_H

#include <stdint.h>

#include <keel/filename.h>
#include "files/iostream.h"
#include "files/textwriter.h"

namespace keel {

class StreamWriterC : public TextWriterC {
public:
    // `encoding` null means "system-8", whose encoder is that of "utf8".
    StreamWriterC(OutputStreamC* stream, TextEncodingI* encoding, bool writeMark, bool ownsStream);
    ~StreamWriterC() override;

    // Opens the file to append to or to create or empty, for writing, with
    // the share mode and the wait flag. When appending, the mark is written
    // only into a file that is empty. Null when no stream was opened.
    static StreamWriterC* open(const FileNameC* name, bool append, TextEncodingI* encoding,
                               bool writeMark, uint32_t shareMode, bool wait);

    TextEncodingI* getEncoding() override;
    uint32_t close() override;
    uint32_t flush() override;
    // 0, or the stream's code. Empty text (after the line ends) writes
    // nothing, not even the mark.
    uint32_t write(const StringC& text) override;

private:
    StreamWriterC(const StreamWriterC&) = delete;
    StreamWriterC& operator=(const StreamWriterC&) = delete;

    OutputStreamC* stream;
    bool ownsStream;
    TextEncoderI* encoder;
    bool markPending;
    uint32_t bufferSize;
    uint8_t* buffer;
    // Bytes of output per byte of text at most, for the library's own
    // encodings (0 for others): the buffer is sized by it without a size pass.
    uint32_t widthBound;
};

}  // namespace keel

#endif
