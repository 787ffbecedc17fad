#include "text/stringim.h"

#include <string.h>

#include "text/case.h"
#include "text/textencoding.h"
#include "text/utf8.h"

namespace keel {

namespace {

// What a representation without a buffer reads as.
const uint8_t emptyText[1] = {0};

bool isInternalForm(const char* encoding) { return encoding && encodingNamesEqual(encoding, "vutf8"); }

bool isUtf8(const char* encoding) { return encoding && encodingNamesEqual(encoding, "utf8"); }

// An encoder for `encoding` while it is in scope; unknown names have none.
class OutputC {
public:
    explicit OutputC(const char* encoding) {
        TextEncodingI* found = encoding ? findEncoding(encoding) : nullptr;
        encoder_ = found ? found->newEncoder() : nullptr;
        unitWidth_ = found ? found->unitWidth() : 0;
    }
    ~OutputC() { delete encoder_; }
    OutputC(const OutputC&) = delete;
    OutputC& operator=(const OutputC&) = delete;

    bool known() const { return encoder_ != nullptr; }
    uint32_t unitWidth() const { return unitWidth_; }
    uint32_t encodedSize(const uint8_t* internal, uint32_t length) {
        return encoder_->encodedSize(internal, length);
    }
    uint32_t encode(const uint8_t* internal, uint32_t length, void* output, uint32_t room, bool* lost) {
        return encoder_->encode(internal, length, output, room, lost);
    }

private:
    TextEncoderI* encoder_;
    uint32_t unitWidth_;
};

uint32_t utf8LengthOf(StringImplI* string) { return string->textLength("utf8"); }

// One character forward by the length its first byte announces. A sequence
// cut off by the end of the text would step over the NUL into whatever lies
// behind it; it ends at the end instead, as one character.
template <typename Byte>
Byte* stepForward(Byte* p, const uint8_t* end) {
    Byte* next = p + utf8SequenceLength(p);
    return next > end ? p + (end - p) : next;
}

}  // namespace

// --- Construction ------------------------------------------------------------

// Count 0, every cached field 0 and no buffer; then reset puts the fields
// into their empty state.
StringImplC::StringImplC()
    : data(nullptr), charCount(0), byteLength(0), capacity(0), cursorIndex(0), cursorOffset(0) {
    StringImplC::reset();
}

StringImplC::StringImplC(const void* bytes, uint32_t byteCount, const char* encoding) : StringImplC() {
    store(bytes, byteCount, encoding);
}

StringImplC::StringImplC(StringImplI* first, StringImplI* second) : StringImplC() {
    uint32_t firstLength = utf8LengthOf(first);
    uint32_t secondLength = utf8LengthOf(second);
    void* firstText = nullptr;
    void* secondText = nullptr;
    first->text(&firstText, "utf8");
    second->text(&secondText, "utf8");
    StringImplC::reserve(firstLength + secondLength + 1);
    if (firstLength) memcpy(data, firstText, firstLength);
    if (secondLength) memcpy(data + firstLength, secondText, secondLength);
    // The second's NUL; written here since a representation without a
    // buffer has no NUL to copy.
    data[firstLength + secondLength] = 0;
    byteLength = firstLength + secondLength;
    // Counting both parts here also gives them their counts.
    charCount = first->length() + second->length();
    first->releaseText(firstText, "utf8");
    second->releaseText(secondText, "utf8");
}

void StringImplC::store(const void* bytes, uint32_t byteCount, const char* encoding) {
    if (!bytes || byteCount == 0) {
        reserve(1);
        data[0] = 0;
        charCount = 0;
        return;
    }
    if (isInternalForm(encoding)) {
        // Bytes out of another string: copied as they are, not checked.
        reserve(byteCount + 1);
        byteLength = byteCount;
        memcpy(data, bytes, byteCount);
        data[byteCount] = 0;
        return;
    }
    TextEncodingI* found = encoding ? findEncoding(encoding) : nullptr;
    if (!found) return;  // unknown name: no buffer, byteLength 0, charCount -1
    TextDecoderI* decoder = found->newDecoder();
    uint32_t size = decoder->decodedSize(bytes, byteCount);
    byteLength = size;
    reserve(size + 1);
    uint32_t characters = 0;
    uint32_t written = decoder->decode(bytes, byteCount, data, size, &characters);
    // A decoder that wrote less than it announced leaves no unset bytes.
    if (written < size) memset(data + written, 0, size - written);
    data[size] = 0;
    charCount = static_cast<int32_t>(characters);
    delete decoder;
}

StringImplC::~StringImplC() { freeBuffer(); }

void StringImplC::freeBuffer() {
    delete[] data;
    data = nullptr;
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
    cursorIndex = -1;
    cursorOffset = 0;
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
        delete[] data;
    } else {
        // A first buffer reads as the empty text until the caller fills it.
        grown[0] = 0;
    }
    data = grown;
}

const uint8_t* StringImplC::textBytes() const { return data ? data : emptyText; }

// --- The position cursor -----------------------------------------------------

void StringImplC::setCursor(int32_t index, const uint8_t* place) {
    if (index < 1) return;
    cursorIndex = index;
    cursorOffset = static_cast<int32_t>(place - data);
}

// Finds the character at `index`, starting from whichever known place is
// nearest: the start, the cursor, or the end when the count is known. The
// place found becomes the new cursor, so that walks through a string by
// index stay linear.
uint8_t* StringImplC::seek(int32_t index) {
    // A representation without a buffer reads as the empty text.
    if (!data) return nullptr;
    int32_t known = charCount.load();
    if (known >= 0 && static_cast<uint32_t>(known) == byteLength) {
        // All characters are one byte long. A negative index answers the
        // start, as the walk below does, instead of a place in front of the
        // buffer.
        if (index <= 0) return data;
        return data + (index < known ? index : known);
    }

    int32_t cursor = cursorIndex.load();
    int32_t cursorAt = cursorOffset.load();
    // Another thread may pair an index with the other's offset; keep the
    // offset inside the text whatever it reads.
    if (cursorAt < 0 || static_cast<uint32_t>(cursorAt) > byteLength) cursor = 0;
    bool haveCursor = cursor >= 1;

    int32_t forwardIndex = 0;
    uint8_t* forwardPlace = data;
    if (haveCursor && index >= cursor) {
        forwardIndex = cursor;
        forwardPlace = data + cursorAt;
    }
    bool haveBackward = false;
    int32_t backwardIndex = 0;
    uint8_t* backwardPlace = nullptr;
    if (haveCursor && index < cursor) {
        haveBackward = true;
        backwardIndex = cursor;
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
            place = data + byteLength;
        } else {
            place = backwardPlace;
            for (int64_t steps = back; steps > 0; --steps) {
                do {
                    if (place <= data) return nullptr;  // ran in front of the text
                    --place;
                } while ((*place & 0xC0) == 0x80);
            }
        }
    } else {
        place = forwardPlace;
        int64_t steps = forward;
        while (steps > 0 && *place != 0) {
            place = stepForward(place, data + byteLength);
            --steps;
        }
        if (steps > 0) return place;  // the end, reached early: cursor unchanged
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
    int32_t cursor = cursorIndex.load();
    int32_t cursorAt = cursorOffset.load();
    if (cursor >= 1 && cursorAt >= 0 && static_cast<uint32_t>(cursorAt) <= byteLength) {
        counted = cursor;
        p = data + cursorAt;
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
    // byteLength + 1 bytes: the terminator goes out as one unit of the
    // encoding.
    uint32_t needed = output.encodedSize(textBytes(), byteLength + 1);
    uint8_t* buffer = new uint8_t[needed ? needed : 1];
    bool lost = false;
    output.encode(textBytes(), byteLength + 1, buffer, needed, &lost);
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
    uint32_t needed = output.encodedSize(textBytes(), byteLength + 1);
    bool lost = false;
    if (*size >= needed) {
        output.encode(textBytes(), byteLength + 1, buffer, needed, &lost);
    } else {
        uint8_t* temporary = new uint8_t[needed];
        output.encode(textBytes(), byteLength + 1, temporary, needed, &lost);
        memcpy(buffer, temporary, *size);
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
        for (int32_t steps = count; steps > 0 && *end != 0; --steps) end = stepForward(end, data + byteLength);
    }
    return new StringImplC(p, static_cast<uint32_t>(end - p), "vutf8");
}

// --- Changing ----------------------------------------------------------------

// The stored count goes down by the count asked for, not by the characters
// removed: a count that runs past the end leaves a wrong (or negative, so
// unknown) count until the next change rewrites it. Callers rely on the
// cheap arithmetic.
void StringImplC::erase(int32_t start, int32_t count) {
    uint8_t* p = seek(start);
    uint8_t* q = count == -1 ? (data ? data + byteLength : nullptr) : seek(start + count);
    if (!p || !q) return;  // no buffer, or no such place: nothing to move
    if (start == 0) {
        cursorOffset = 0;
        cursorIndex = -1;
    } else {
        setCursor(start, p);
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
        charCount = static_cast<int32_t>(static_cast<uint32_t>(known) - static_cast<uint32_t>(count));
    } else {
        charCount = -1;
    }
}

// The cursor stays valid: the text in front of it does not change.
void StringImplC::append(StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    void* otherText = nullptr;
    other->text(&otherText, "utf8");
    reserve(byteLength + length + 1);
    if (length) memcpy(data + byteLength, otherText, length);
    byteLength += length;
    data[byteLength] = 0;
    charCount = -1;
    other->releaseText(otherText, "utf8");
}

void StringImplC::appendChar(uint32_t character) {
    reserve(byteLength + utf8EncodedLength(character) + 1);
    uint8_t* end = data + byteLength;
    utf8Put(end, character);
    byteLength = static_cast<uint32_t>(end - data);
    *end = 0;
    int32_t known = charCount.load();
    if (known >= 0) charCount = known + 1;
}

void StringImplC::insert(int32_t index, StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    if (length == 0) return;
    void* otherText = nullptr;
    other->text(&otherText, "utf8");
    reserve(byteLength + length + 1);
    // After the reserve, which may have moved the buffer.
    uint8_t* p = seek(index);
    if (p) {
        uint32_t tail = static_cast<uint32_t>(data + byteLength - p) + 1;
        memmove(p + length, p, tail);
        memcpy(p, otherText, length);
        byteLength += length;
        charCount = -1;
    }
    other->releaseText(otherText, "utf8");
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
    delete[] old;
}

void StringImplC::toLower() { mapCharacters(toLowerChar); }

void StringImplC::toUpper() { mapCharacters(toUpperChar); }

// --- StaticStringImplC -------------------------------------------------------

int32_t StaticStringImplC::addRef() { return 1; }

int32_t StaticStringImplC::release() { return 1; }

bool StaticStringImplC::isShared() { return true; }

// --- EmptyStringImplC --------------------------------------------------------

EmptyStringImplC::EmptyStringImplC() { store(nullptr, 0, "utf8"); }

int32_t EmptyStringImplC::length() { return 0; }

bool EmptyStringImplC::isEmpty() { return true; }

int EmptyStringImplC::compare(StringImplI* other) { return other->isEmpty() ? 0 : -1; }

int EmptyStringImplC::compareNatural(StringImplI* other, bool) { return other->isEmpty() ? 0 : -1; }

int EmptyStringImplC::compareNoCase(StringImplI* other) { return other->isEmpty() ? 0 : -1; }

int32_t EmptyStringImplC::findChar(uint32_t, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastChar(uint32_t, int32_t) { return -1; }

int32_t EmptyStringImplC::findString(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastString(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findFirstOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findFirstNotOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastNotOf(StringImplI*, int32_t) { return -1; }

uint32_t EmptyStringImplC::charAt(int32_t) { return 0; }

uint32_t EmptyStringImplC::textLength(const char*) { return 0; }

StringImplI* EmptyStringImplC::substring(int32_t, int32_t) { return this; }

// --- SecureStringImplC -------------------------------------------------------

namespace {
SecureStringImplC::WipeHookFn wipeHook = nullptr;
}

void SecureStringImplC::setWipeHook(WipeHookFn hook) { __atomic_store_n(&wipeHook, hook, __ATOMIC_RELEASE); }

// A volatile store per byte, so that the compiler cannot drop the writes to
// memory that is about to be freed.
void SecureStringImplC::wipe(void* buffer, uint32_t bytes) {
    if (!buffer) return;
    volatile uint8_t* p = static_cast<volatile uint8_t*>(buffer);
    for (uint32_t i = 0; i < bytes; ++i) p[i] = 0;
    WipeHookFn hook = __atomic_load_n(&wipeHook, __ATOMIC_ACQUIRE);
    if (hook) hook(buffer, bytes);
}

SecureStringImplC::SecureStringImplC(const void* bytes, uint32_t byteCount, const char* encoding) {
    store(bytes, byteCount, encoding);
}

SecureStringImplC::SecureStringImplC(StringImplI* first, StringImplI* second) {
    uint32_t firstLength = utf8LengthOf(first);
    uint32_t secondLength = utf8LengthOf(second);
    void* firstText = nullptr;
    void* secondText = nullptr;
    first->text(&firstText, "utf8");
    second->text(&secondText, "utf8");
    reserve(firstLength + secondLength + 1);
    if (firstLength) memcpy(data, firstText, firstLength);
    if (secondLength) memcpy(data + firstLength, secondText, secondLength);
    data[firstLength + secondLength] = 0;
    byteLength = firstLength + secondLength;
    charCount = first->length() + second->length();
    first->releaseText(firstText, "utf8");
    second->releaseText(secondText, "utf8");
}

SecureStringImplC::SecureStringImplC(StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    void* otherText = nullptr;
    other->text(&otherText, "utf8");
    reserve(length + 1);
    if (length) memcpy(data, otherText, length);
    data[length] = 0;
    byteLength = length;
    charCount = other->length();
    other->releaseText(otherText, "utf8");
}

SecureStringImplC::~SecureStringImplC() {
    wipe(data, byteLength);
    // ~StringImplC frees the wiped buffer.
}

void SecureStringImplC::reset() {
    wipe(data, byteLength);
    StringImplC::reset();
}

void SecureStringImplC::reserve(uint32_t wanted) {
    if (capacity >= wanted) return;
    capacity = grownCapacity(capacity, wanted);
    uint8_t* grown = new uint8_t[capacity];
    if (data) {
        memcpy(grown, data, byteLength + 1);
        wipe(data, byteLength);
        delete[] data;
    } else {
        grown[0] = 0;
    }
    data = grown;
}

void SecureStringImplC::releaseText(void* text, const char* encoding) {
    if (!text || isUtf8(encoding)) return;
    // The encoded terminator is not wiped: it is no secret.
    wipe(text, textLength(encoding));
    delete[] static_cast<uint8_t*>(text);
}

// Comparing and searching
// Placeholders until the character services provide the bodies.

int StringImplC::compare(StringImplI*) { return 0; }

int StringImplC::compareNatural(StringImplI*, bool) { return 0; }

int StringImplC::compareNoCase(StringImplI*) { return 0; }

int32_t StringImplC::findChar(uint32_t, int32_t) { return -1; }

int32_t StringImplC::findLastChar(uint32_t, int32_t) { return -1; }

int32_t StringImplC::findString(StringImplI*, int32_t) { return -1; }

int32_t StringImplC::findLastString(StringImplI*, int32_t) { return -1; }

int32_t StringImplC::findFirstOf(StringImplI*, int32_t) { return -1; }

int32_t StringImplC::findLastOf(StringImplI*, int32_t) { return -1; }

int32_t StringImplC::findFirstNotOf(StringImplI*, int32_t) { return -1; }

int32_t StringImplC::findLastNotOf(StringImplI*, int32_t) { return -1; }

}  // namespace keel
