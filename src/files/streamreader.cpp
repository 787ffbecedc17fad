#include "files/streamreader.h"

#include <stdlib.h>
#include <string.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "files/fileserv.h"
#include "text/stringim.h"
#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// The line goes into the caller's handle in place when the handle holds it
// alone (the usual loop that reads every line into one string), otherwise
// as a new representation.
void setLine(StringC& line, const char* bytes, uint32_t length) {
    StringImplC::assignText(line, reinterpret_cast<const uint8_t*>(bytes), length);
}

// The first carriage return or line feed in [p, end), or null. With SSE2
// sixteen bytes are tested a step for both at once, inline: a line is short
// enough that the call of a library search, and a second one for the other
// character, cost more than the search. Without it (the 32-bit build) one
// search for the line feed and one for a carriage return in front of it.
const char* findLineEnd(const char* p, const char* end) {
#if defined(__SSE2__)
    const __m128i feed = _mm_set1_epi8('\n');
    const __m128i back = _mm_set1_epi8('\r');
    while (end - p >= 16) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        int hits =
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, feed), _mm_cmpeq_epi8(v, back)));
        if (hits != 0) return p + __builtin_ctz(static_cast<unsigned>(hits));
        p += 16;
    }
    for (; p < end; ++p) {
        if (*p == '\n' || *p == '\r') return p;
    }
    return nullptr;
#else
    size_t left = static_cast<size_t>(end - p);
    const char* feed = left ? static_cast<const char*>(memchr(p, '\n', left)) : nullptr;
    size_t before = feed ? static_cast<size_t>(feed - p) : left;
    const char* back = before ? static_cast<const char*>(memchr(p, '\r', before)) : nullptr;
    return back ? back : feed;
#endif
}

}  // namespace

StreamReaderC::StreamReaderC(InputStreamC* stream, bool detect, TextEncodingI* encoding,
                             bool ownsStream)
    : stream(stream),
      ownsStream(ownsStream),
      detectPending(detect),
      ownMarkPending(false),
      decoder(nullptr),
      inputSize(kInputSize),
      input(new uint8_t[kInputSize]),
      outputSize(0),
      pending(nullptr),
      pendingStart(0),
      pendingEnd(0),
      pendingCapacity(0) {
    TextEncodingI* chosen = encoding ? encoding : findEncoding("system-8");
    setEncoding(chosen);
    uint32_t markLength = 0;
    chosen->byteOrderMark(&markLength);
    ownMarkPending = markLength > 0;
}

StreamReaderC::~StreamReaderC() { close(); }

StreamReaderC* StreamReaderC::open(const FileNameC* name, bool detect, TextEncodingI* encoding,
                                   uint32_t shareMode, bool wait) {
    IOStreamC* stream = FlnFileServiceC::instance()->openStream(name, 3, 1, shareMode, wait);
    if (!stream) return nullptr;
    return new StreamReaderC(stream, detect, encoding, true);
}

// The same shape as StreamWriterC::close on purpose: each side owns its own
// stream, coder and buffer, and the two are kept apart as units.
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
    free(pending);
    pending = nullptr;
    pendingStart = pendingEnd = pendingCapacity = 0;
    return code;
}

TextEncodingI* StreamReaderC::getEncoding() const {
    return decoder ? decoder->getEncoding() : nullptr;
}

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
        reservePending(outputSize);
        uint32_t written =
            decoder->decode(input + skip, have - skip, pending + pendingEnd, outputSize, nullptr);
        pendingEnd += written;
        return true;
    }
}

void StreamReaderC::compact() {
    if (pendingStart == pendingEnd) {
        pendingStart = pendingEnd = 0;
    } else if (pendingStart >= 4096 && pendingStart * 2 >= pendingEnd) {
        memmove(pending, pending + pendingStart, pendingEnd - pendingStart);
        pendingEnd -= pendingStart;
        pendingStart = 0;
    }
}

void StreamReaderC::reservePending(size_t more) {
    if (pendingCapacity - pendingEnd >= more) return;
    size_t wanted = pendingEnd + more;
    size_t capacity = pendingCapacity ? pendingCapacity : 4096;
    while (capacity < wanted) capacity += capacity / 2;
    char* grown = static_cast<char*>(realloc(pending, capacity));
    if (!grown) abort();
    pending = grown;
    pendingCapacity = capacity;
}

StringC* StreamReaderC::read(uint32_t count) {
    // Reading stops once two thirds of the pending bytes would cover the
    // count: a bound on bytes, not a count of characters.
    while (uint64_t(2) * pendingSize() / 3 < count) {
        if (!decodeBlock()) break;
    }
    if (pendingSize() == 0) return nullptr;
    const uint8_t* begin = reinterpret_cast<const uint8_t*>(pending) + pendingStart;
    const uint8_t* end = reinterpret_cast<const uint8_t*>(pending) + pendingEnd;
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
    Utf8ViewC view(text);
    const char* bytes = view.chars();
    uint32_t length = view.size();
    if (length > 0) {
        if (length <= pendingStart && memcmp(pending + pendingStart - length, bytes, length) == 0) {
            // The text just handed out comes back: only the start moves.
            pendingStart -= length;
        } else if (length <= pendingStart) {
            pendingStart -= length;
            memcpy(pending + pendingStart, bytes, length);
        } else {
            size_t rest = pendingEnd - pendingStart;
            reservePending(length);
            memmove(pending + length, pending + pendingStart, rest);
            memcpy(pending, bytes, length);
            pendingStart = 0;
            pendingEnd = length + rest;
        }
    }
}

uint32_t StreamReaderC::readLine(StringC& line) {
    // How far from the start the search has come; the start itself may move
    // when a block is decoded and the buffer compacted.
    size_t searched = 0;
    for (;;) {
        const char* from = pending + pendingStart + searched;
        const char* end = findLineEnd(from, pending + pendingEnd);
        if (end) {
            setLine(line, pending + pendingStart,
                    static_cast<uint32_t>(end - (pending + pendingStart)));
            bool carriageReturn = *end == '\r';
            pendingStart = static_cast<size_t>(end - pending) + 1;
            if (carriageReturn) {
                // A CR LF may be cut by the end of what is decoded so far.
                if (pendingStart == pendingEnd) decodeBlock();
                if (pendingStart < pendingEnd && pending[pendingStart] == '\n') ++pendingStart;
            }
            compact();
            return 0;
        }
        searched = pendingEnd - pendingStart;
        if (!decodeBlock()) {
            if (pendingSize() == 0) {
                line = StringC();
                return kEndOfText;
            }
            setLine(line, pending + pendingStart, pendingSize());
            pendingStart = pendingEnd;
            compact();
            return 0;
        }
    }
}

}  // namespace keel
