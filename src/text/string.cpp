// The string factory, StringImplFactoryC: the one object that makes every
// representation, with its caches (the two empty strings, the one-character
// ASCII strings) and the counting of 16- and 32-bit texts.
//
// Invariant: cached objects are never destroyed (handles may be released
// after exit began); the empty caches only drop their buffers at exit.
#include "text/string.h"

#include <string.h>
#include <wchar.h>

#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "frame/nodestroy.h"
#include "text/format.h"
#include "text/stringim.h"
#include "text/utf8.h"

namespace keel {

namespace {

// Holds one cached empty string. The holder is a function-local static, so
// its exit action is registered at the first use. At exit it frees the
// buffer but leaves the object itself in place: handles that are released
// later during exit (or default-constructed, through the pointer StringC
// remembers) still meet a valid empty string without a buffer, instead of
// calling into a destroyed object.
class EmptyCacheC {
public:
    ~EmptyCacheC() { object_->reset(); }
    EmptyStringImplC* get() { return object_.get(); }

private:
    NoDestroyM<EmptyStringImplC> object_;
};

// Entries 1 to 127; entry 0 stays unused. Each entry is made on first use
// and published by compare-and-swap (see asciiString); the objects are never
// destroyed.
StaticStringImplC* asciiTable[128];

// The units in front of the terminator of a 16-bit text. Past the first
// 16-byte boundary the walk reads whole aligned blocks (16 bytes with SSE2,
// 8 without), which never cross a page: in the block that holds the
// terminator it may look at units behind it, as the C library's own string
// functions do. The address and thread checkers are told so.
__attribute__((no_sanitize("address", "thread"))) uint32_t utf16UnitCount(const uint16_t* text) {
    const uint16_t* p = text;
    // Units off their own alignment are walked one by one.
    if (reinterpret_cast<uintptr_t>(p) & 1) {
        while (*p != 0) ++p;
        return static_cast<uint32_t>(p - text);
    }
    while (reinterpret_cast<uintptr_t>(p) & 15) {
        if (*p == 0) return static_cast<uint32_t>(p - text);
        ++p;
    }
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    for (;;) {
        __m128i block = _mm_load_si128(reinterpret_cast<const __m128i*>(p));
        uint32_t zeros = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(block, zero)));
        if (zeros != 0)
            return static_cast<uint32_t>(p - text) +
                   (static_cast<uint32_t>(__builtin_ctz(zeros)) >> 1);
        p += 8;
    }
#else
    const uint64_t ones = 0x0001000100010001ull;
    const uint64_t highs = 0x8000800080008000ull;
    for (;;) {
        uint64_t word;
        memcpy(&word, p, sizeof word);
        uint64_t zeros = (word - ones) & ~word & highs;
        if (zeros != 0)
            return static_cast<uint32_t>(p - text) +
                   (static_cast<uint32_t>(__builtin_ctzll(zeros)) >> 4);
        p += 4;
    }
#endif
}

}  // namespace

EmptyStringImplC* StringImplFactoryC::emptyString() {
    static EmptyCacheC cache;
    return cache.get();
}

EmptyStringImplC* StringImplFactoryC::secureEmptyString() {
    static EmptyCacheC cache;
    return cache.get();
}

StaticStringImplC* StringImplFactoryC::asciiString(uint8_t byte) {
    StaticStringImplC* entry = atomicLoadAcquire(&asciiTable[byte & 0x7F]);
    if (!entry) {
        // Several threads may make the same character at once: the first to
        // publish wins and the others drop their copy, so the table never
        // loses an object that some handle already points at.
        StaticStringImplC* made = new StaticStringImplC(&byte, 1, "utf8");
        StaticStringImplC* expected = nullptr;
        if (atomicCompareExchange(&asciiTable[byte & 0x7F], expected, made)) {
            entry = made;
        } else {
            delete made;
            entry = expected;
        }
    }
    return entry;
}

StringImplFactoryC::~StringImplFactoryC() {}

// The shared strings that stand for some texts whatever the encoding: the
// empty one and the one-character ASCII ones; null for any other text.
StringImplI* StringImplFactoryC::sharedFor(const void* bytes, uint32_t byteCount) {
    if (byteCount == 0) return emptyString();
    // A null pointer is the empty text at any count. The one-byte test below
    // reads the byte first; with a null pointer that read went through null
    // before anything looked at the pointer. It is only made when there are
    // bytes to read; the null goes on to the constructor, which stores the
    // empty text, as it does for a null with any other count.
    if (byteCount == 1 && bytes) {
        // One byte from 1 to 127 is that ASCII character whatever the
        // encoding name says.
        int8_t value = *static_cast<const int8_t*>(bytes);
        if (value > 0) return asciiString(static_cast<uint8_t>(value));
    }
    return nullptr;
}

StringImplI* StringImplFactoryC::fromBytes(const void* bytes, uint32_t byteCount,
                                           const char* encoding) {
    StringImplI* shared = sharedFor(bytes, byteCount);
    return shared ? shared : StringImplC::make(bytes, byteCount, encoding);
}

StringImplI* StringImplFactoryC::fromEncoded(const void* bytes, uint32_t byteCount,
                                             TextEncodingI* encoding) {
    StringImplI* shared = sharedFor(bytes, byteCount);
    return shared ? shared : StringImplC::makeEncoded(bytes, byteCount, encoding);
}

StringC stringFromEncoded(const void* bytes, uint32_t byteCount, TextEncodingI* encoding) {
    // getStringFactory() hands out the one StringImplFactoryC of the library.
    StringImplFactoryC* factory = static_cast<StringImplFactoryC*>(getStringFactory());
    return StringC::fromNew(factory->fromEncoded(bytes, byteCount, encoding));
}

StringImplI* StringImplFactoryC::fromText(const char* text, const char* encoding) {
    uint32_t count = text ? static_cast<uint32_t>(strlen(text)) : 0;
    return fromBytes(text, count, encoding);
}

StringImplI* StringImplFactoryC::fromBytesNew(const void* bytes, uint32_t byteCount,
                                              const char* encoding) {
    return StringImplC::make(bytes, byteCount, encoding);
}

StringImplI* StringImplFactoryC::fromChar(uint32_t character) {
    uint8_t buffer[8];
    uint8_t* end = buffer;
    utf8Put(end, character);
    return fromBytes(buffer, static_cast<uint32_t>(end - buffer), "utf8");
}

StringImplI* StringImplFactoryC::fromUtf16(const uint16_t* text) {
    uint32_t units = text ? utf16UnitCount(text) : 0;
    return fromBytes(text, units * 2, "utf16");
}

StringImplI* StringImplFactoryC::concat(StringImplI* first, StringImplI* second) {
    return new StringImplC(first, second);
}

StringImplI* StringImplFactoryC::fromWide(const wchar_t* text) {
    uint32_t count = text ? static_cast<uint32_t>(wcslen(text)) : 0;
    return fromBytes(text, count * 4, "wchar_t");
}

// A negative count would turn into a byte count far past the caller's text;
// it gives the empty string.
StringImplI* StringImplFactoryC::fromWideCounted(const wchar_t* text, int32_t count) {
    if (count < 0) count = 0;
    return fromBytes(text, static_cast<uint32_t>(count) * 4, "wchar_t");
}

StringImplI* StringImplFactoryC::substring(StringImplI* string, int32_t start, int32_t count) {
    return string->substring(start, count);
}

namespace {
void appendToString(void* context, uint32_t character) {
    static_cast<StringImplI*>(context)->appendChar(character);
}
}  // namespace

StringImplI* StringImplFactoryC::format(StringImplI* format, ArgListC args) {
    StringImplFactoryI* factory = format->getFactory();
    // Our own fromBytesNew makes a StringImplC; the engine makes that one
    // itself and appends to its buffer directly.
    if (factory == this) return renderFormatToNew(format, args);
    StringImplI* result = factory->fromBytesNew(nullptr, 0, "utf8");
    renderFormat(appendToString, result, format, args);
    return result;
}

void StringImplFactoryC::formatTo(CharSinkFn sink, void* context, StringImplI* format,
                                  ArgListC args) {
    renderFormat(sink, context, format, args);
}

StringImplI* StringImplFactoryC::secureFromText(const char* text, const char* encoding) {
    uint32_t count = text ? static_cast<uint32_t>(strlen(text)) : 0;
    return secureFromBytes(text, count, encoding);
}

// A secret of one character gets its own wiped storage: the shared table
// of one-character strings is not used.
StringImplI* StringImplFactoryC::secureFromBytes(const void* bytes, uint32_t byteCount,
                                                 const char* encoding) {
    if (byteCount == 0) return secureEmptyString();
    return new SecureStringImplC(bytes, byteCount, encoding);
}

}  // namespace keel
