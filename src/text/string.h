// The string factory: where every string representation is born.
//
// StringImplFactoryC decides which representation serves a request and owns
// the caches that spare allocations: the empty string (plain and secure, each
// made once and emptied at exit) and the 127 one-character ASCII strings,
// which are made on first use and never destroyed. getStringFactory() hands
// out the one process-wide object.
#ifndef KEEL_TEXT_STRING_H
#define KEEL_TEXT_STRING_H

#include <keel/arglist.h>
#include <keel/string.h>

namespace keel {

class StaticStringImplC;
class EmptyStringImplC;
class TextEncodingI;

class StringImplFactoryC : public StringImplFactoryI {
public:
    StringImplI* fromText(const char* text, const char* encoding) override;
    StringImplI* fromBytesNew(const void* bytes, uint32_t byteCount, const char* encoding) override;
    StringImplI* fromChar(uint32_t character) override;
    StringImplI* fromUtf16(const uint16_t* text) override;
    StringImplI* concat(StringImplI* first, StringImplI* second) override;
    StringImplI* fromWide(const wchar_t* text) override;
    StringImplI* fromWideCounted(const wchar_t* text, int32_t count) override;
    StringImplI* substring(StringImplI* string, int32_t start, int32_t count) override;
    StringImplI* format(StringImplI* format, ArgListC args) override;
    void formatTo(CharSinkFn sink, void* context, StringImplI* format, ArgListC args) override;
    StringImplI* fromBytes(const void* bytes, uint32_t byteCount, const char* encoding) override;
    // fromBytes for an encoding object already found (see
    // StringImplC::makeEncoded): the same representation, without the
    // lookup by name.
    StringImplI* fromEncoded(const void* bytes, uint32_t byteCount, TextEncodingI* encoding);
    StringImplI* secureFromText(const char* text, const char* encoding) override;
    StringImplI* secureFromBytes(const void* bytes, uint32_t byteCount,
                                 const char* encoding) override;
    ~StringImplFactoryC() override;

    // The caches, for the units and tests that need them directly.
    static EmptyStringImplC* emptyString();
    static EmptyStringImplC* secureEmptyString();
    // The cached string of an ASCII byte from 1 to 127, made on first use.
    static StaticStringImplC* asciiString(uint8_t byte);

private:
    static StringImplI* sharedFor(const void* bytes, uint32_t byteCount);
};

// StringC(bytes, byteCount, name) where the encoding is known beforehand
// (findEncoding, or an object of text/textencoding.h such as
// system8Encoding()): the same string, without finding the encoding by its
// name. For units of the library, whose strings come from its own factory.
StringC stringFromEncoded(const void* bytes, uint32_t byteCount, TextEncodingI* encoding);

}  // namespace keel

#endif
