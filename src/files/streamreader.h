// StreamReaderC: text decoded from a byte stream, in any of the eight
// encodings, with the encoding found from a byte-order mark where asked.
//
//     keel::StreamReaderC* reader = keel::StreamReaderC::open(&name, true, nullptr, 1, false);
//     if (!reader) ...                      // the open failure is in the error buffer
//     keel::StringC line;
//     while (reader->readLine(line) == 0) ...
//     delete reader;                        // closes and deletes the stream it owns
//
// With `detect`, the first block is searched for EF BB BF ("utf8"), FF FE
// ("utf16le") and FE FF ("utf16be"), in that order; a mark found switches
// the encoding and is not text. Without it, only the mark of the reader's own
// encoding is skipped. The reader keeps one input block of 1,024 bytes and
// the decoded text not yet handed out: one line and one block at most when
// read line by line, whatever the size of the stream. A failing stream read
// counts as the end (the stream has reported it).
#ifndef KEEL_FILES_STREAMREADER_H
#define KEEL_FILES_STREAMREADER_H

#include <stdint.h>

#include <keel/filename.h>
#include "files/iostream.h"
#include "files/textreader.h"
#include "text/textencoding.h"

namespace keel {

class StreamReaderC : public TextReaderC {
public:
    // `encoding` null means "system-8". The stream is deleted by close when
    // `ownsStream`.
    StreamReaderC(InputStreamC* stream, bool detect, TextEncodingI* encoding, bool ownsStream);
    ~StreamReaderC() override;

    // Opens an existing file for reading with the share mode and the wait
    // flag; null when the file service gave no stream.
    static StreamReaderC* open(const FileNameC* name, bool detect, TextEncodingI* encoding,
                               uint32_t shareMode, bool wait);

    uint32_t close() override;
    StringC* read(uint32_t count) override;
    void pushBack(const StringC& text) override;
    // The same lines as TextReaderC::readLine, found in the decoded bytes
    // without cutting them into blocks of 128 characters first.
    uint32_t readLine(StringC& line) override;
    using TextReaderC::readLine;

    // The current encoding (after detection, the one found).
    TextEncodingI* getEncoding() const;
    // Makes `encoding` current: a new decoder, and an output buffer sized
    // for one input block.
    void setEncoding(TextEncodingI* encoding);

    static const uint32_t kInputSize = 1024;

private:
    StreamReaderC(const StreamReaderC&) = delete;
    StreamReaderC& operator=(const StreamReaderC&) = delete;

    // Reads into `input` from `have` until `want` bytes are there or the
    // stream gives nothing; answers the count.
    uint32_t fillInput(uint32_t have, uint32_t want);
    uint32_t detectEncoding(uint32_t have);
    uint32_t skipOwnMark(uint32_t have);
    // Reads one block, passes its mark checks and appends its text to the
    // pending bytes. False at the end of the stream.
    bool decodeBlock();
    uint32_t pendingSize() const { return static_cast<uint32_t>(pendingEnd - pendingStart); }
    // Room for `more` bytes behind the pending ones.
    void reservePending(size_t more);
    // Drops what has been handed out once it is most of the buffer.
    void compact();

    InputStreamC* stream;
    bool ownsStream;
    bool detectPending;
    bool ownMarkPending;
    TextDecoderI* decoder;
    uint32_t inputSize;
    uint8_t* input;
    uint32_t outputSize;
    // Decoded text not yet handed out: the internal-form bytes of `pending`
    // from `pendingStart` on. Handing out the front only moves the start, and
    // pushing back what was just handed out moves it back, so neither copies
    // the rest.
    char* pending;
    size_t pendingStart;
    size_t pendingEnd;
    size_t pendingCapacity;
    // The byte count in `input` after the mark checks of the first block,
    // which may read more than one call gave.
    uint32_t lastFill = 0;
};

}  // namespace keel

#endif
