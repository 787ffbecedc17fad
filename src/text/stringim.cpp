// The library's own string representation, StringImplC: construction from
// outside bytes (through the in-place decoders), storage and its growth, the
// position cursor, reading, and the changing operations. The searches are in
// stringim_search.cpp, the static, empty and secure variants in
// stringim_variants.cpp, the UTF-8 block kernels in utf8scan.
//
// Invariants: the buffer holds internal form and ends in a NUL; a shared
// representation (count above 1) never changes its text; the count and the
// cursor are caches that any reader may rewrite, each one atomic cell.
#include "text/stringim.h"

#include <string.h>

#include <algorithm>
#include <new>
#include <typeinfo>

#include "text/case.h"
#include "text/textencoding.h"
#include "text/utf8.h"
#include "text/utf8scan.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// What a representation without a buffer reads as.
const uint8_t emptyText[1] = {0};

bool isInternalForm(const char* encoding) {
    return encoding && encodingNamesEqual(encoding, "vutf8");
}

bool isUtf8(const char* encoding) { return encoding && encodingNamesEqual(encoding, "utf8"); }

// "utf8" spelled exactly so, as nearly every string is made; other spellings
// are for isUtf8.
inline bool isUtf8AsSpelt(const char* encoding) {
    return encoding[0] == 'u' && encoding[1] == 't' && encoding[2] == 'f' && encoding[3] == '8' &&
           encoding[4] == 0;
}

// A decoder or encoder of one conversion, made in place inside this object
// instead of on the heap: the class that the encoding's newDecoder or
// newEncoder would make, given the same encoding. findEncoding knows the
// library's eight encoding objects only, so those are all there is to tell
// apart. One allocation less for every string made from outside bytes and
// every text given out.
template <class Interface, size_t kRoom>
class LocalCoderM {
public:
    LocalCoderM() : coder_(nullptr) {}
    ~LocalCoderM() {
        if (coder_) coder_->~Interface();
    }
    LocalCoderM(const LocalCoderM&) = delete;
    LocalCoderM& operator=(const LocalCoderM&) = delete;
    Interface* get() const { return coder_; }

protected:
    template <class Coder>
    Coder* place(TextEncodingI* encoding) {
        static_assert(sizeof(Coder) <= kRoom && alignof(Coder) <= alignof(void*),
                      "room for the coder");
        Coder* coder = new (room_) Coder(encoding);
        coder_ = coder;
        return coder;
    }

private:
    alignas(void*) unsigned char room_[kRoom];
    Interface* coder_;
};

class LocalDecoderC : public LocalCoderM<TextDecoderI, 64> {
public:
    explicit LocalDecoderC(TextEncodingI* encoding) {
        if (encoding == utf8Encoding() || encoding == system8Encoding()) {
            place<UTF8TextDecoderC>(encoding);
        } else if (encoding == utf16Encoding() || encoding == utf16leEncoding() ||
                   encoding == utf16beEncoding()) {
            place<UTF16TextDecoderC>(encoding);
        } else if (encoding == wcharEncoding()) {
            place<WCharTextDecoderC>(encoding);
        } else if (encoding == latin1Encoding()) {
            place<Latin1TextDecoderC>(encoding);
        } else {
            place<ASCIITextDecoderC>(encoding);  // asciiEncoding()
        }
    }
};

// With no encoding (an unknown name) it holds no encoder.
class LocalEncoderC : public LocalCoderM<TextEncoderI, 64> {
public:
    explicit LocalEncoderC(TextEncodingI* encoding) : held_(nullptr) {
        if (!encoding) return;
        if (encoding == utf16Encoding() || encoding == utf16leEncoding() ||
            encoding == utf16beEncoding()) {
            held_ = place<UTF16TextEncoderC>(encoding);
        } else if (encoding == wcharEncoding()) {
            held_ = place<WCharTextEncoderC>(encoding);
        } else if (encoding == latin1Encoding()) {
            held_ = place<Latin1TextEncoderC>(encoding);
        } else if (encoding == utf8Encoding() || encoding == system8Encoding()) {
            held_ = &place<UTF8TextEncoderC>(encoding)->heldBuffer();
        } else {
            held_ = place<ASCIITextEncoderC>(encoding);  // asciiEncoding()
        }
    }
    // Bytes of a sequence cut by the end of the last input, kept back.
    uint32_t heldCount() const { return held_ ? held_->heldCount() : 0; }

private:
    const UnusedByteBufferC* held_;
};

// An encoder for `encoding` while it is in scope; unknown names have none.
class OutputC {
public:
    explicit OutputC(const char* encoding)
        : found_(encoding ? findEncoding(encoding) : nullptr), local_(found_) {
        encoder_ = local_.get();
        unitWidth_ = found_ ? found_->unitWidth() : 0;
    }
    OutputC(const OutputC&) = delete;
    OutputC& operator=(const OutputC&) = delete;

    bool known() const { return encoder_ != nullptr; }
    uint32_t unitWidth() const { return unitWidth_; }
    uint32_t heldCount() const { return local_.heldCount(); }
    uint32_t encodedSize(const uint8_t* internal, uint32_t length) {
        return encoder_->encodedSize(internal, length);
    }
    uint32_t encode(const uint8_t* internal, uint32_t length, void* output, uint32_t room,
                    bool* lost) {
        return encoder_->encode(internal, length, output, room, lost);
    }

private:
    TextEncodingI* found_;
    LocalEncoderC local_;
    TextEncoderI* encoder_;
    uint32_t unitWidth_;
};

// The text goes out, then its terminator as one unit of the encoding. The
// terminator is not handed to the encoder with the text: a text that ends
// inside a sequence (bytes taken as "vutf8" are not checked, so it can)
// would have the encoder hold the NUL behind the cut bytes, or take it as
// the sequence's last byte, and the result would lack its end. The cut
// bytes are dropped, as a decoder that dies drops them, and count as lost.
// `room` holds the text and the terminator.
uint32_t encodeTerminated(OutputC& output, const uint8_t* text, uint32_t length, uint8_t* out,
                          uint32_t room, bool* lost) {
    uint32_t written = output.encode(text, length, out, room, lost);
    if (output.heldCount() != 0) *lost = true;
    memset(out + written, 0, output.unitWidth());
    return written + output.unitWidth();
}

uint32_t utf8LengthOf(StringImplI* string) { return string->textLength("utf8"); }

// A heap copy of a few bytes (at least one byte of buffer). Out of line, as
// storeInternal below: inlined where the size is known to be small, the copy
// became a `rep movsq`, slower than the memcpy call for short text.
__attribute__((noinline)) uint8_t* heapCopy(const uint8_t* bytes, uint32_t size) {
    uint8_t* buffer = new uint8_t[size ? size : 1];
    memcpy(buffer, bytes, size);
    return buffer;
}

// One character forward by the length its first byte announces. A sequence
// cut off by the end of the text would step over the NUL into whatever lies
// behind it; it ends at the end instead, as one character.
template <typename Byte>
Byte* stepForward(Byte* p, const uint8_t* end) {
    Byte* next = p + utf8SequenceLength(p);
    return next > end ? p + (end - p) : next;
}

}  // namespace

void StringImplC::setVectorPaths(bool on) { setUtf8VectorPaths(on); }

// --- Construction ------------------------------------------------------------

// Count 0, every cached field 0 and no buffer; then reset puts the fields
// into their empty state.
namespace {

// The cursor cell: index in the low 32 bits, byte offset in the high 32.
inline uint64_t packCursor(int32_t index, int32_t offset) {
    return static_cast<uint64_t>(static_cast<uint32_t>(index)) |
           (static_cast<uint64_t>(static_cast<uint32_t>(offset)) << 32);
}

}  // namespace

// The fields start as reset() leaves them, stored plainly: the object is
// reachable by no other thread until a handle that holds it is shared, and
// that hand-over orders these stores before every other reader. The same
// holds for the stores of the text below, which only constructors make.
StringImplC::StringImplC()
    : data(nullptr), charCount(-1), byteLength(0), capacity(0), cursor(packCursor(-1, 0)) {}

StringImplC::StringImplC(InlineTextT, uint32_t room) : StringImplC() {
    data = inlineText();
    capacity = room;
    data[0] = 0;
}

StringImplC* StringImplC::make(const void* bytes, uint32_t byteCount, const char* encoding) {
    // Only where the first reserve is known to be for byteCount + 1 bytes:
    // "vutf8" copies the bytes, "utf8" copies its clean head into that room
    // (and when the rest makes the text another size, it starts again with a
    // buffer of its own, of the capacity it would have had). The name is read
    // once here: "utf8" spelled so takes four byte tests and no lookup.
    if (encoding && isUtf8AsSpelt(encoding)) return makeEncoded(bytes, byteCount, utf8Encoding());
    if (isInternalForm(encoding)) {
        if (bytes && byteCount != 0 && byteCount < kInlineLimit) {
            uint32_t room = grownCapacity(0, byteCount + 1);
            StringImplC* string = new (InlineTextT(), room) StringImplC(InlineTextT(), room);
            string->storeInternal(bytes, byteCount);
            return string;
        }
        return new StringImplC(bytes, byteCount, encoding);
    }
    return makeEncoded(bytes, byteCount, encoding ? findEncoding(encoding) : nullptr);
}

StringImplC* StringImplC::makeEncoded(const void* bytes, uint32_t byteCount,
                                      TextEncodingI* encoding) {
    if (bytes && byteCount != 0 && byteCount < kInlineLimit) {
        if (encoding == utf8Encoding() || encoding == system8Encoding()) {
            uint32_t room = grownCapacity(0, byteCount + 1);
            StringImplC* string = new (InlineTextT(), room) StringImplC(InlineTextT(), room);
            if (!string->storeUtf8(static_cast<const uint8_t*>(bytes), byteCount, encoding)) {
                string->storeDecoded(bytes, byteCount, encoding);
            }
            return string;
        }
        StringImplC* decoded = makeDecoded(bytes, byteCount, encoding);
        if (decoded) return decoded;
    }
    StringImplC* string = new StringImplC();
    string->storeEncoded(bytes, byteCount, encoding);
    return string;
}

// Short text from the other encodings in one pass: a fresh decoder writes at
// most its maxOutput and exactly what its decodedSize answers (the encoding
// tests and fuzz target hold both), so decoding into room of maxOutput gives
// the text and the size of the two passes; the object then gets its first
// buffer behind it, of the capacity reserve(size + 1) picks, as make's other
// objects. Null for the encodings this does not take: none found, the UTF-8
// ones (store has the clean-head copy for them), or too much text.
StringImplC* StringImplC::makeDecoded(const void* bytes, uint32_t byteCount, TextEncodingI* found) {
    if (!found || found == utf8Encoding() || found == system8Encoding()) return nullptr;
    LocalDecoderC local(found);
    TextDecoderI* decoder = local.get();
    uint8_t decoded[kOnePassDecode];
    if (decoder->maxOutput(byteCount) > sizeof decoded) return nullptr;
    uint32_t characters = 0;
    uint32_t size = decoder->decode(bytes, byteCount, decoded, sizeof decoded, &characters);
    uint32_t room = grownCapacity(0, size + 1);
    StringImplC* string = new (InlineTextT(), room) StringImplC(InlineTextT(), room);
    memcpy(string->data, decoded, size);
    string->data[size] = 0;
    string->byteLength = size;
    string->charCount.initialize(static_cast<int32_t>(characters));
    return string;
}

StringImplC::StringImplC(const void* bytes, uint32_t byteCount, const char* encoding)
    : StringImplC() {
    store(bytes, byteCount, encoding);
}

StringImplC::StringImplC(StringImplI* first, StringImplI* second) : StringImplC() {
    storeJoined(first, second);
}

void StringImplC::storeJoined(StringImplI* first, StringImplI* second) {
    uint32_t firstLength = utf8LengthOf(first);
    uint32_t secondLength = utf8LengthOf(second);
    Utf8ViewC firstText(first);
    Utf8ViewC secondText(second);
    reserve(firstLength + secondLength + 1);
    if (firstLength) memcpy(data, firstText.data(), firstLength);
    if (secondLength) memcpy(data + firstLength, secondText.data(), secondLength);
    // The second's NUL; written here since a representation without a
    // buffer has no NUL to copy.
    data[firstLength + secondLength] = 0;
    byteLength = firstLength + secondLength;
    // Counting both parts here also gives them their counts.
    charCount.initialize(first->length() + second->length());
}

void StringImplC::store(const void* bytes, uint32_t byteCount, const char* encoding) {
    if (!bytes || byteCount == 0) {
        reserve(1);
        data[0] = 0;
        charCount.initialize(0);
        return;
    }
    if (isInternalForm(encoding)) {
        storeInternal(bytes, byteCount);
        return;
    }
    storeEncoded(bytes, byteCount, encoding ? findEncoding(encoding) : nullptr);
}

void StringImplC::storeEncoded(const void* bytes, uint32_t byteCount, TextEncodingI* found) {
    if (!bytes || byteCount == 0) {
        reserve(1);
        data[0] = 0;
        charCount.initialize(0);
        return;
    }
    if (!found) return;  // unknown name: no buffer, byteLength 0, charCount -1
    if ((found == utf8Encoding() || found == system8Encoding()) &&
        storeUtf8(static_cast<const uint8_t*>(bytes), byteCount, found)) {
        return;
    }
    storeDecoded(bytes, byteCount, found);
}

// Bytes out of another string: copied as they are, not checked. Kept out of
// make: inlined there, where the count is known to be small, the compiler
// made the copy a `rep movsq`, whose start-up cost made splits 30 % slower
// than the library's memcpy call.
__attribute__((noinline)) void StringImplC::storeInternal(const void* bytes, uint32_t byteCount) {
    reserve(byteCount + 1);
    byteLength = byteCount;
    memcpy(data, bytes, byteCount);
    data[byteCount] = 0;
}

void StringImplC::storeDecoded(const void* bytes, uint32_t byteCount, TextEncodingI* found) {
    LocalDecoderC local(found);
    TextDecoderI* decoder = local.get();
    uint32_t size = decoder->decodedSize(bytes, byteCount);
    byteLength = size;
    reserve(size + 1);
    uint32_t characters = 0;
    uint32_t written = decoder->decode(bytes, byteCount, data, size, &characters);
    // A decoder that wrote less than it announced leaves no unset bytes.
    if (written < size) memset(data + written, 0, size - written);
    data[size] = 0;
    charCount.initialize(static_cast<int32_t>(characters));
}

// The UTF-8 decoder writes clean sequences as they are, so a clean head is
// copied in one pass (copyCleanUtf8) into a buffer of the size the bytes have,
// and only the rest, if any, is decoded. The result is that of the decoder on
// the whole input: the head ends at a character boundary, where a fresh
// decoder holds nothing. When the rest makes the text a size that would give
// another capacity, the head is dropped by reset and the answer is false: the
// caller then decodes everything the ordinary way.
bool StringImplC::storeUtf8(const uint8_t* bytes, uint32_t byteCount, TextEncodingI* encoding) {
    reserve(byteCount + 1);
    uint32_t characters = 0;
    uint32_t clean = copyCleanUtf8(data, bytes, byteCount, &characters);
    if (clean == byteCount) {
        byteLength = byteCount;
        data[byteCount] = 0;
        charCount.initialize(static_cast<int32_t>(characters));
        return true;
    }
    LocalDecoderC local(encoding);
    TextDecoderI* decoder = local.get();
    uint32_t restSize = decoder->decodedSize(bytes + clean, byteCount - clean);
    uint32_t size = clean + restSize;
    if (grownCapacity(0, size + 1) != capacity) {
        // What was copied is in the buffer up to `clean`; a secure string
        // wipes it there.
        byteLength = clean;
        data[clean] = 0;
        reset();
        return false;
    }
    uint32_t restCharacters = 0;
    uint32_t written =
        decoder->decode(bytes + clean, byteCount - clean, data + clean, restSize, &restCharacters);
    if (written < restSize) memset(data + clean + written, 0, restSize - written);
    byteLength = size;
    data[size] = 0;
    charCount.initialize(static_cast<int32_t>(characters + restCharacters));
    return true;
}

StringImplC::~StringImplC() { freeBuffer(); }

void StringImplC::freeBuffer() {
    if (data != inlineText()) delete[] data;
    data = nullptr;
}

void StringImplC::assignText(StringC& target, const uint8_t* bytes, uint32_t length) {
    StringImplI* current = target.getImpl();
    if (typeid(*current) == typeid(StringImplC)) {
        StringImplC* own = static_cast<StringImplC*>(current);
        if (own->refCount() == 1) {
            if (own->capacity < length + 1) {
                // Nothing of the old text is kept: the buffer grows empty.
                own->byteLength = 0;
                if (own->data) own->data[0] = 0;
                own->reserve(length + 1);
            }
            if (length) memcpy(own->data, bytes, length);
            own->data[length] = 0;
            own->byteLength = length;
            // The count and the cursor go back to unknown with plain stores.
            // The one handle that holds this representation is the caller's,
            // which is being assigned to: no other thread may read through
            // it meanwhile (that would race with any assignment), so no
            // other thread can see these cells, as with a constructor's.
            own->charCount.initialize(-1);
            own->cursor.initialize(packCursor(-1, 0));
            return;
        }
    }
    StringImplI* fresh = getStringFactory()->fromBytes(bytes, length, "vutf8");
    target.adopt(fresh);
    current->release();
}

// --- Counting ----------------------------------------------------------------

int32_t StringImplC::addRef() { return RefCountC::addRef(); }

int32_t StringImplC::release() { return RefCountC::release(); }

bool StringImplC::isShared() { return refCount() > 1; }

StringImplFactoryI* StringImplC::getFactory() { return getStringFactory(); }

// --- Storage -----------------------------------------------------------------

void StringImplC::reset() {
    freeBuffer();
    charCount = -1;
    byteLength = 0;
    capacity = 0;
    clearCursor();
}

// The first allocation is exact to 8 bytes; later growth is by half and
// lands on a multiple of 32.
uint32_t StringImplC::grownCapacity(uint32_t capacity, uint32_t wanted) {
    uint32_t rounded = ((wanted - 1) | 7) + 1;
    if (capacity != 0) capacity = (((capacity * 3) >> 1) | 31) + 1;
    return rounded > capacity ? rounded : capacity;
}

void StringImplC::reserve(uint32_t wanted) {
    if (capacity >= wanted) return;
    capacity = grownCapacity(capacity, wanted);
    uint8_t* grown = new uint8_t[capacity];
    if (data) {
        memcpy(grown, data, byteLength + 1);
        if (data != inlineText()) delete[] data;
    } else {
        // A first buffer reads as the empty text until the caller fills it.
        grown[0] = 0;
    }
    data = grown;
}

const uint8_t* StringImplC::textBytes() const { return data ? data : emptyText; }

// --- The position cursor -----------------------------------------------------

StringImplC::CursorT StringImplC::loadCursor() const {
    uint64_t both = cursor.load();
    CursorT pair = {static_cast<int32_t>(static_cast<uint32_t>(both)),
                    static_cast<int32_t>(static_cast<uint32_t>(both >> 32))};
    return pair;
}

void StringImplC::clearCursor() { cursor = packCursor(-1, 0); }

// Index and offset go into the one cell together: a reader on another
// thread sees the whole of one cursor or the whole of another, never one's
// index with the other's offset.
//
// The walk to an index past the end of a counted text answers the end. Kept
// as it is asked, that index would stand at the end's offset, and every
// later backward walk from this cursor would land as many characters early
// as the index lay past the end (after charAt(length + 2), charAt(length - 1)
// would answer the character two places in front). The end's own index, the
// count, is stored instead; the place is the same.
void StringImplC::setCursor(int32_t index, const uint8_t* place) {
    if (index < 1) return;
    int32_t known = charCount.load();
    if (known >= 0 && index > known) {
        index = known;
        if (index < 1) return;
    }
    cursor = packCursor(index, static_cast<int32_t>(place - data));
}

uint8_t* StringImplC::seek(int32_t index) {
    int32_t reached = 0;
    return seek(index, &reached);
}

// Finds the character at `index`, starting from whichever known place is
// nearest: the start, the cursor, or the end when the count is known. The
// place found becomes the new cursor, so that walks through a string by
// index stay linear.
uint8_t* StringImplC::seek(int32_t index, int32_t* reached) {
    // An index below 0 answers the start.
    *reached = index < 0 ? 0 : index;
    // A representation without a buffer reads as the empty text.
    if (!data) return nullptr;
    int32_t known = charCount.load();
    if (known >= 0 && static_cast<uint32_t>(known) == byteLength) {
        // All characters are one byte long. A negative index answers the
        // start, as the walk below does, instead of a place in front of the
        // buffer.
        if (index <= 0) return data;
        if (index > known) {
            *reached = known;
            return data + known;
        }
        return data + index;
    }

    // One load: the index and the offset belong to the same cursor.
    CursorT pair = loadCursor();
    int32_t cursorIndex = pair.index;
    int32_t cursorAt = pair.offset;
    // A cursor left by a text that has since become shorter is not used.
    if (cursorAt < 0 || static_cast<uint32_t>(cursorAt) > byteLength) cursorIndex = 0;
    bool haveCursor = cursorIndex >= 1;

    int32_t forwardIndex = 0;
    uint8_t* forwardPlace = data;
    if (haveCursor && index >= cursorIndex) {
        forwardIndex = cursorIndex;
        forwardPlace = data + cursorAt;
    }
    bool haveBackward = false;
    int32_t backwardIndex = 0;
    uint8_t* backwardPlace = nullptr;
    if (haveCursor && index < cursorIndex) {
        haveBackward = true;
        backwardIndex = cursorIndex;
        backwardPlace = data + cursorAt;
    } else if (known >= 0) {
        haveBackward = true;
        backwardIndex = known;
        backwardPlace = data + byteLength;
    }

    uint8_t* place;
    bool walkBackward = false;
    int64_t back = 0;
    int64_t forward = static_cast<int64_t>(index) - forwardIndex;
    if (haveBackward) {
        back = static_cast<int64_t>(backwardIndex) - index;
        walkBackward = 2 * back <= forward;
    }
    if (walkBackward) {
        if (back <= 0) {
            // Past the end of a counted text: the end, whose index is the count.
            place = data + byteLength;
            if (back < 0) *reached = backwardIndex;
        } else {
            place = backwardPlace;
            for (int64_t steps = back; steps > 0; --steps) {
                do {
                    if (place <= data) return nullptr;  // ran in front of the text
                    --place;
                } while (utf8IsContinuation(*place));
            }
        }
    } else {
        place = forwardPlace;
        int64_t steps = forward;
        while (steps > 0 && *place != 0) {
            place = stepForward(place, data + byteLength);
            --steps;
        }
        if (steps > 0) {
            // The end, reached early: the cursor is left as it is.
            *reached = static_cast<int32_t>(index - steps);
            return place;
        }
    }
    setCursor(index, place);
    return place;
}

// --- Reading -----------------------------------------------------------------

int32_t StringImplC::length() {
    int32_t known = charCount.load();
    if (known >= 0) return known;
    if (!data) return 0;  // no buffer: the empty text, and nothing is stored
    int32_t counted = 0;
    const uint8_t* p = data;
    // One load, so that the count starts from an index and the offset of
    // that same index; a torn pair would store a wrong count for good.
    CursorT pair = loadCursor();
    if (pair.index >= 1 && pair.offset >= 0 && static_cast<uint32_t>(pair.offset) <= byteLength) {
        counted = pair.index;
        p = data + pair.offset;
    }
    const uint8_t* end = data + byteLength;
    while (p < end && *p != 0) {
        p = stepForward(p, end);
        ++counted;
    }
    charCount = counted;
    return counted;
}

bool StringImplC::isEmpty() { return byteLength == 0; }

uint32_t StringImplC::charAt(int32_t index) {
    const uint8_t* p = seek(index);
    if (!p || *p == 0) return 0;
    return utf8Next(p);
}

uint32_t StringImplC::textLength(const char* encoding) {
    if (isUtf8(encoding)) return byteLength;
    OutputC output(encoding);
    if (!output.known()) return 0;
    return output.encodedSize(textBytes(), byteLength);
}

bool StringImplC::text(void** out, const char* encoding) {
    if (isUtf8(encoding)) {
        *out = data;
        return true;
    }
    OutputC output(encoding);
    if (!output.known()) {
        *out = nullptr;
        return false;
    }
    if (output.unitWidth() >= 2 && byteLength < kOnePassText) {
        // Short text into UTF-16 or wchar_t in one pass: every character
        // takes at least one byte and gives at most four, so the room below
        // always holds all of it, and the conversion is the one the two
        // passes make. Only the copy goes to the heap, of the size the first
        // pass would have answered. (A full room would mean the bound were
        // wrong: then the two passes below.)
        uint8_t local[4 * kOnePassText + 4];
        bool lost = false;
        uint32_t written =
            encodeTerminated(output, textBytes(), byteLength, local, sizeof local, &lost);
        if (written < sizeof local) {
            *out = heapCopy(local, written);
            return !lost;
        }
    }
    uint32_t needed = output.encodedSize(textBytes(), byteLength) + output.unitWidth();
    uint8_t* buffer = new uint8_t[needed];
    bool lost = false;
    encodeTerminated(output, textBytes(), byteLength, buffer, needed, &lost);
    *out = buffer;
    return !lost;
}

void StringImplC::releaseText(void* text, const char* encoding) {
    if (!text || isUtf8(encoding)) return;
    delete[] static_cast<uint8_t*>(text);
}

// The caller learns the full length (without terminator) even when the
// buffer was too small, and gets as many bytes as fit, cut anywhere.
bool StringImplC::copyText(void* buffer, uint32_t* size, const char* encoding) {
    OutputC output(encoding);
    if (!output.known()) {
        *size = 0;
        return false;
    }
    uint32_t needed = output.encodedSize(textBytes(), byteLength) + output.unitWidth();
    bool lost = false;
    if (*size >= needed) {
        encodeTerminated(output, textBytes(), byteLength, static_cast<uint8_t*>(buffer), needed,
                         &lost);
    } else {
        uint8_t* temporary = new uint8_t[needed];
        encodeTerminated(output, textBytes(), byteLength, temporary, needed, &lost);
        // A caller that only asks for the size may pass no buffer at all.
        if (*size != 0) memcpy(buffer, temporary, *size);
        delete[] temporary;
    }
    *size = needed - output.unitWidth();
    return !lost;
}

StringImplI* StringImplC::substring(int32_t start, int32_t count) {
    if (start == 0 && count < 0) return this;
    const uint8_t* p = seek(start);
    if (!p) return nullptr;
    const uint8_t* end;
    if (count == -1) {
        end = data + byteLength;
    } else {
        end = p;
        for (int32_t steps = count; steps > 0 && *end != 0; --steps)
            end = stepForward(end, data + byteLength);
    }
    return make(p, static_cast<uint32_t>(end - p), "vutf8");
}

// --- Changing ----------------------------------------------------------------

// The stored count goes down by the count asked for, not by the characters
// removed: a count that runs past the end leaves a wrong (or negative, so
// unknown) count until the next change rewrites it. Callers rely on the
// cheap arithmetic.
void StringImplC::erase(int32_t start, int32_t count) {
    // The end of the range is start + count, summed in 64 bits: in 32 bits
    // erase(1, INT32_MAX) would overflow (undefined; in practice it wraps to
    // a negative index, and nothing is erased). A range running past the end
    // of the text ends at the end, as any count past the end does.
    int64_t endIndex = static_cast<int64_t>(start) + count;
    if (endIndex > INT32_MAX) endIndex = INT32_MAX;
    if (endIndex < INT32_MIN) endIndex = INT32_MIN;
    int32_t startReached = 0;
    uint8_t* p = seek(start, &startReached);
    uint8_t* q =
        count == -1 ? (data ? data + byteLength : nullptr) : seek(static_cast<int32_t>(endIndex));
    if (!p || !q) return;  // no buffer, or no such place: nothing to move
    // The cursor goes to the start of the erased range, which keeps its
    // index. A start that lies past the end of a text of unknown count
    // names no character: the place is the end, and storing the index asked
    // for there would send every later walk from the cursor astray. The
    // index that the walk reached at the end is stored instead.
    // A start at or in front of 0 leaves no cursor: the walk to the end of
    // the range may have put one behind the text that is about to move.
    if (startReached < 1) {
        clearCursor();
    } else {
        setCursor(startReached, p);
    }
    // A negative count other than -1 names an end in front of the start;
    // nothing is moved then, rather than the text being pushed past its
    // buffer.
    if (q > p) {
        uint32_t tail = static_cast<uint32_t>(data + byteLength - q) + 1;
        memmove(p, q, tail);
        byteLength -= static_cast<uint32_t>(q - p);
    }
    int32_t known = charCount.load();
    if (known >= 0 && count != -1) {
        charCount =
            static_cast<int32_t>(static_cast<uint32_t>(known) - static_cast<uint32_t>(count));
    } else {
        charCount = -1;
    }
}

// The cursor stays valid: the text in front of it does not change.
void StringImplC::append(StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    Utf8ViewC otherText(other);
    reserve(byteLength + length + 1);
    if (length) memcpy(data + byteLength, otherText.data(), length);
    byteLength += length;
    data[byteLength] = 0;
    charCount = -1;
}

void StringImplC::appendChar(uint32_t character) {
    reserve(byteLength + utf8EncodedLength(character) + 1);
    uint8_t* end = data + byteLength;
    utf8Put(end, character);
    byteLength = static_cast<uint32_t>(end - data);
    *end = 0;
    // A value of 0x80000000 or more has no encoded form and adds nothing.
    // Counting it anyway would leave a known count one above the text, and
    // length, the end of backward walks and the one-byte test of seek would
    // answer from that wrong count; the count goes up only for what was
    // written.
    int32_t known = charCount.load();
    if (known >= 0 && utf8EncodedLength(character) != 0) charCount = known + 1;
}

void StringImplC::insert(int32_t index, StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    if (length == 0) return;
    Utf8ViewC otherText(other);
    reserve(byteLength + length + 1);
    // After the reserve, which may have moved the buffer.
    uint8_t* p = seek(index);
    if (p) {
        // seek leaves the cursor where it was for index 0, for a one-byte
        // text with its count known, and past the end. A cursor behind the
        // insertion point would then keep its old index at an offset that
        // now holds other text, and later indexed reads and length() would
        // answer wrong; it is dropped. One at or in front of the point
        // stays right, since the text in front of it does not change.
        if (loadCursor().offset > static_cast<int32_t>(p - data)) clearCursor();
        uint32_t tail = static_cast<uint32_t>(data + byteLength - p) + 1;
        memmove(p + length, p, tail);
        memcpy(p, otherText.data(), length);
        byteLength += length;
        charCount = -1;
    }
}

void StringImplC::mapCharacters(CharMapFn map) {
    // No buffer reads as the empty text, which maps to itself.
    if (!data) return;
    uint8_t* old = data;
    uint32_t oldLength = byteLength;
    data = nullptr;
    reset();
    // 7 is the longest sequence plus the NUL.
    reserve(oldLength + 7);
    uint32_t offset = 0;
    int32_t characters = 0;
    const uint8_t* p = old;
    const uint8_t* end = old + oldLength;
    while (p < end) {
        uint32_t mapped = map(utf8Next(p));
        if (offset + 7 >= capacity) {
            byteLength = offset;
            data[offset] = 0;
            reserve(offset + 7);
        }
        uint8_t* at = data + offset;
        utf8Put(at, mapped);
        offset = static_cast<uint32_t>(at - data);
        ++characters;
    }
    byteLength = offset;
    charCount = characters;
    data[offset] = 0;
    if (old != inlineText()) delete[] old;
}

void StringImplC::toLower() { mapCharacters(toLowerChar); }

void StringImplC::toUpper() { mapCharacters(toUpperChar); }

}  // namespace keel
