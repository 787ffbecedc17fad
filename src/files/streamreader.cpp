#include "files/streamreader.h"

#include <string.h>

#include "files/fileserv.h"
#include "text/utf8.h"

namespace keel {

StreamReaderC::StreamReaderC(InputStreamC* stream, bool detect, TextEncodingI* encoding, bool ownsStream)
    : stream(stream), ownsStream(ownsStream), detectPending(detect), ownMarkPending(false), decoder(nullptr),
      inputSize(kInputSize), input(new uint8_t[kInputSize]), outputSize(0), pendingStart(0) {
    TextEncodingI* chosen = encoding ? encoding : findEncoding("system-8");
    setEncoding(chosen);
    uint32_t markLength = 0;
    chosen->byteOrderMark(&markLength);
    ownMarkPending = markLength > 0;
}

StreamReaderC::~StreamReaderC() { close(); }

StreamReaderC* StreamReaderC::open(const FileNameC* name, bool detect, TextEncodingI* encoding, uint32_t shareMode,
                                   bool wait) {
    IOStreamC* stream = FlnFileServiceC::instance()->openStream(name, 3, 1, shareMode, wait);
    if (!stream) return nullptr;
    return new StreamReaderC(stream, detect, encoding, true);
}

uint32_t StreamReaderC::close() {
    uint32_t code = 0;
    if (stream && ownsStream) {
        code = stream->close();
        delete stream;
    }
    stream = nullptr;
    delete decoder;
    decoder = nullptr;
    delete[] input;
    input = nullptr;
    outputSize = 0;
    std::string().swap(pending);
    pendingStart = 0;
    return code;
}

TextEncodingI* StreamReaderC::getEncoding() const { return decoder ? decoder->getEncoding() : nullptr; }

void StreamReaderC::setEncoding(TextEncodingI* encoding) {
    if (decoder && decoder->getEncoding() == encoding) return;
    delete decoder;
    decoder = encoding->newDecoder();
    // The decoded text goes straight behind the pending bytes, so the
    // output room is reserved there rather than in a buffer of its own.
    outputSize = decoder->maxOutput(inputSize) + 4;
}

uint32_t StreamReaderC::fillInput(uint32_t have, uint32_t want) {
    while (have < want && stream) {
        int32_t got = stream->read(input + have, inputSize - have);
        if (got < 1) break;
        have += static_cast<uint32_t>(got);
    }
    return have;
}

uint32_t StreamReaderC::detectEncoding(uint32_t have) {
    detectPending = false;
    ownMarkPending = false;
    // Only what the first block holds counts; `have` may grow here.
    uint32_t filled = fillInput(have, 3);
    struct {
        const char* name;
    } const candidates[] = {{"utf8"}, {"utf16le"}, {"utf16be"}};
    for (const auto& candidate : candidates) {
        TextEncodingI* encoding = findEncoding(candidate.name);
        uint32_t length = 0;
        const uint8_t* mark = encoding->byteOrderMark(&length);
        if (length > 0 && filled >= length && memcmp(input, mark, length) == 0) {
            setEncoding(encoding);
            lastFill = filled;
            return length;
        }
    }
    lastFill = filled;
    return 0;
}

uint32_t StreamReaderC::skipOwnMark(uint32_t have) {
    ownMarkPending = false;
    uint32_t length = 0;
    const uint8_t* mark = decoder->getEncoding()->byteOrderMark(&length);
    uint32_t filled = fillInput(have, length);
    lastFill = filled;
    if (length == 0) return 0;
    return filled >= length && memcmp(input, mark, length) == 0 ? length : 0;
}

bool StreamReaderC::decodeBlock() {
    for (;;) {
        if (!stream || !input) return false;
        int32_t got = stream->read(input, inputSize);
        if (got < 1) return false;
        uint32_t have = static_cast<uint32_t>(got);
        uint32_t skip = 0;
        bool checked = false;
        if (detectPending) {
            skip = detectEncoding(have);
            have = lastFill;
            checked = true;
        } else if (ownMarkPending) {
            skip = skipOwnMark(have);
            have = lastFill;
            checked = true;
        }
        // A block made only of a mark gives no text; read on.
        if (checked && skip >= have) continue;
        compact();
        size_t at = pending.size();
        pending.resize(at + outputSize);
        uint32_t written = decoder->decode(input + skip, have - skip, &pending[at], outputSize, nullptr);
        pending.resize(at + written);
        return true;
    }
}

void StreamReaderC::compact() {
    if (pendingStart == pending.size()) {
        pending.clear();
        pendingStart = 0;
    } else if (pendingStart >= 4096 && pendingStart * 2 >= pending.size()) {
        pending.erase(0, pendingStart);
        pendingStart = 0;
    }
}

StringC* StreamReaderC::read(uint32_t count) {
    // Reading stops once two thirds of the pending bytes would cover the
    // count: a bound on bytes, not a count of characters.
    while (uint64_t(2) * pendingSize() / 3 < count) {
        if (!decodeBlock()) break;
    }
    if (pendingSize() == 0) return nullptr;
    const uint8_t* begin = reinterpret_cast<const uint8_t*>(pending.data()) + pendingStart;
    const uint8_t* end = reinterpret_cast<const uint8_t*>(pending.data()) + pending.size();
    const uint8_t* p = begin;
    for (uint32_t taken = 0; taken < count && p < end; ++taken) {
        uint32_t length = utf8SequenceLength(p);
        p += length <= static_cast<uint32_t>(end - p) ? length : static_cast<uint32_t>(end - p);
    }
    size_t bytes = static_cast<size_t>(p - begin);
    StringC* text = new StringC(begin, static_cast<uint32_t>(bytes), "vutf8");
    pendingStart += bytes;
    compact();
    return text;
}

void StreamReaderC::pushBack(const StringC& text) {
    const char* bytes = text.textUtf8();
    uint32_t length = text.textUtf8Length();
    if (length > 0) {
        if (length <= pendingStart && memcmp(pending.data() + pendingStart - length, bytes, length) == 0) {
            // The text just handed out comes back: only the start moves.
            pendingStart -= length;
        } else {
            pending.insert(pendingStart, bytes, length);
        }
    }
    text.releaseUtf8(bytes);
}

uint32_t StreamReaderC::readLine(StringC& line) {
    size_t scanned = pendingStart;
    for (;;) {
        const char* data = pending.data();
        size_t size = pending.size();
        size_t at = scanned;
        while (at < size && data[at] != '\n' && data[at] != '\r') ++at;
        if (at < size) {
            line = StringC(data + pendingStart, static_cast<uint32_t>(at - pendingStart), "vutf8");
            bool carriageReturn = data[at] == '\r';
            pendingStart = at + 1;
            if (carriageReturn) {
                // A CR LF may be cut by the end of what is decoded so far.
                if (pendingStart == pending.size()) decodeBlock();
                if (pendingStart < pending.size() && pending[pendingStart] == '\n') ++pendingStart;
            }
            compact();
            return 0;
        }
        // The start may move when a block is decoded; keep the offset.
        size_t scannedFromStart = size - pendingStart;
        if (!decodeBlock()) {
            if (pendingSize() == 0) {
                line = StringC();
                return kEndOfText;
            }
            line = StringC(pending.data() + pendingStart, pendingSize(), "vutf8");
            pendingStart = pending.size();
            compact();
            return 0;
        }
        scanned = pendingStart + scannedFromStart;
    }
}

}  // namespace keel
