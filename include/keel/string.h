// The string value of keel.
//
// StringC is a one-word handle on a reference-counted representation
// (StringImplI) that holds Unicode text in the library's internal form:
// extended UTF-8 with a NUL behind it, indexes counted in characters. Copying
// a handle costs one atomic increment; every changing operation first makes
// the representation private (copy on write). Representations are made only by
// a StringImplFactoryI, normally the one getStringFactory() hands out.
//
//     keel::StringC name("caf\xc3\xa9", "utf8");
//     keel::StringC copy = name;           // shares the representation
//     copy.append(keel::StringC("!", "ascii"));   // copy gets its own text
//     const uint16_t* units = name.textUtf16();
//     ...
//     name.releaseUtf16(units);            // every text...() has its release...()
//
// Encoding names are plain C texts: "ascii", "iso-8859-1", "system-8", "utf8",
// "utf16", "utf16le", "utf16be", "wchar_t"; "vutf8" marks bytes that are
// internal form already.
#ifndef KEEL_STRING_H
#define KEEL_STRING_H

#include <stddef.h>
#include <stdint.h>

#include <keel/atomic.h>

#if defined(__GNUC__)
#define KEEL_EXPORT __attribute__((visibility("default")))
#else
#define KEEL_EXPORT
#endif

namespace keel {

class ArgListC;
class StringImplFactoryI;

// Receives rendered output one character at a time (see StringC::formatTo).
typedef void (*CharSinkFn)(void* context, uint32_t character);

// A string representation. The order of the operations is part of the
// binary interface: programs and the library call each other through it.
class StringImplI {
public:
    virtual int32_t addRef() = 0;
    virtual int32_t release() = 0;
    virtual bool isShared() = 0;
    virtual StringImplFactoryI* getFactory() = 0;
    virtual int32_t length() = 0;
    virtual bool isEmpty() = 0;
    virtual int compare(StringImplI* other) = 0;
    virtual int compareNatural(StringImplI* other, bool foldCase) = 0;
    virtual int compareNoCase(StringImplI* other) = 0;
    virtual int32_t findChar(uint32_t character, int32_t after) = 0;
    virtual int32_t findLastChar(uint32_t character, int32_t before) = 0;
    virtual int32_t findString(StringImplI* other, int32_t after) = 0;
    virtual int32_t findLastString(StringImplI* other, int32_t before) = 0;
    virtual int32_t findFirstOf(StringImplI* set, int32_t after) = 0;
    virtual int32_t findLastOf(StringImplI* set, int32_t before) = 0;
    virtual int32_t findFirstNotOf(StringImplI* set, int32_t after) = 0;
    virtual int32_t findLastNotOf(StringImplI* set, int32_t before) = 0;
    virtual uint32_t charAt(int32_t index) = 0;
    virtual uint32_t textLength(const char* encoding) = 0;
    virtual bool text(void** out, const char* encoding) = 0;
    virtual void releaseText(void* text, const char* encoding) = 0;
    virtual bool copyText(void* buffer, uint32_t* size, const char* encoding) = 0;
    virtual StringImplI* substring(int32_t start, int32_t count) = 0;
    virtual void erase(int32_t start, int32_t count) = 0;
    virtual void append(StringImplI* other) = 0;
    virtual void appendChar(uint32_t character) = 0;
    virtual void insert(int32_t index, StringImplI* other) = 0;
    virtual void toLower() = 0;
    virtual void toUpper() = 0;
    virtual ~StringImplI() {}
    virtual void reset() = 0;
    virtual void reserve(uint32_t wanted) = 0;
};

// Where representations are born. Every result comes with count 0 (or is a
// static representation); the caller takes the first reference.
class StringImplFactoryI {
public:
    virtual StringImplI* fromText(const char* text, const char* encoding) = 0;
    virtual StringImplI* fromBytesNew(const void* bytes, uint32_t byteCount, const char* encoding) = 0;
    virtual StringImplI* fromChar(uint32_t character) = 0;
    virtual StringImplI* fromUtf16(const uint16_t* text) = 0;
    virtual StringImplI* concat(StringImplI* first, StringImplI* second) = 0;
    virtual StringImplI* fromWide(const wchar_t* text) = 0;
    virtual StringImplI* fromWideCounted(const wchar_t* text, int32_t count) = 0;
    virtual StringImplI* substring(StringImplI* string, int32_t start, int32_t count) = 0;
    virtual StringImplI* format(StringImplI* format, ArgListC args) = 0;
    virtual void formatTo(CharSinkFn sink, void* context, StringImplI* format, ArgListC args) = 0;
    virtual StringImplI* fromBytes(const void* bytes, uint32_t byteCount, const char* encoding) = 0;
    virtual StringImplI* secureFromText(const char* text, const char* encoding) = 0;
    virtual StringImplI* secureFromBytes(const void* bytes, uint32_t byteCount, const char* encoding) = 0;
    virtual ~StringImplFactoryI() {}
};

}  // namespace keel

extern "C" KEEL_EXPORT keel::StringImplFactoryI* getStringFactory();

namespace keel {

class StringC {
public:
    StringC() { take(emptyImpl()); }
    StringC(const char* text, const char* encoding, StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->fromText(text, encoding));
    }
    StringC(const void* bytes, uint32_t byteCount, const char* encoding,
            StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->fromBytes(bytes, byteCount, encoding));
    }
    explicit StringC(uint32_t character, StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->fromChar(character));
    }
    explicit StringC(const uint16_t* utf16Text, StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->fromUtf16(utf16Text));
    }
    StringC(const StringC& first, const StringC& second, StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->concat(first.getImpl(), second.getImpl()));
    }
    explicit StringC(const wchar_t* wideText, StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->fromWide(wideText));
    }
    StringC(const wchar_t* wideText, int32_t count, StringImplFactoryI* factory = nullptr) {
        take(chosen(factory)->fromWideCounted(wideText, count));
    }
    // A copy with one character added.
    StringC(const StringC& string, uint32_t character) : StringC(string) { append(character); }
    StringC(const StringC& other) { take(other.getImpl()); }

    // The new reference is taken before the exchange and the old one dropped
    // after it, so self-assignment is safe and each old representation is
    // released exactly once however many threads assign to this handle.
    StringC& operator=(const StringC& other) {
        StringImplI* fresh = other.getImpl();
        if (fresh) fresh->addRef();
        StringImplI* old = impl.exchange(fresh);
        if (old) old->release();
        return *this;
    }
    ~StringC() {
        StringImplI* current = impl.load();
        if (current) current->release();
    }

    // Stores a representation and takes a reference; the old one is not released.
    void adopt(StringImplI* representation) {
        representation->addRef();
        impl.exchange(representation);
    }
    StringImplI* getImpl() const { return impl.load(); }

    int32_t length() const { return getImpl()->length(); }
    bool isEmpty() const { return getImpl()->isEmpty(); }
    int compare(const StringC& other) const { return getImpl()->compare(other.getImpl()); }
    int compareNatural(const StringC& other, bool foldCase) const {
        return getImpl()->compareNatural(other.getImpl(), foldCase);
    }
    int compareNoCase(const StringC& other) const { return getImpl()->compareNoCase(other.getImpl()); }
    int32_t find(uint32_t character, int32_t after = -1) const {
        return getImpl()->findChar(character, after);
    }
    int32_t findLast(uint32_t character, int32_t before = -1) const {
        return getImpl()->findLastChar(character, before);
    }
    int32_t find(const StringC& string, int32_t after = -1) const {
        return getImpl()->findString(string.getImpl(), after);
    }
    int32_t findLast(const StringC& string, int32_t before = -1) const {
        return getImpl()->findLastString(string.getImpl(), before);
    }
    int32_t findFirstOf(const StringC& set, int32_t after = -1) const {
        return getImpl()->findFirstOf(set.getImpl(), after);
    }
    int32_t findLastOf(const StringC& set, int32_t before = -1) const {
        return getImpl()->findLastOf(set.getImpl(), before);
    }
    int32_t findFirstNotOf(const StringC& set, int32_t after = -1) const {
        return getImpl()->findFirstNotOf(set.getImpl(), after);
    }
    int32_t findLastNotOf(const StringC& set, int32_t before = -1) const {
        return getImpl()->findLastNotOf(set.getImpl(), before);
    }
    uint32_t charAt(int32_t index) const { return getImpl()->charAt(index); }

    // Text in an encoding. Each text...() must be paired with its release...():
    // the "utf8" text is the representation's own buffer (valid until the
    // string changes or dies), the others are new buffers.
    const char* textLatin1() const { return static_cast<const char*>(textIn("iso-8859-1")); }
    uint32_t textLatin1Length() const { return getImpl()->textLength("iso-8859-1"); }
    void releaseLatin1(const char* text) const { releaseIn(text, "iso-8859-1"); }
    const char* textSystem() const { return static_cast<const char*>(textIn("system-8")); }
    uint32_t textSystemLength() const { return getImpl()->textLength("system-8"); }
    void releaseSystem(const char* text) const { releaseIn(text, "system-8"); }
    const uint16_t* textUtf16() const { return static_cast<const uint16_t*>(textIn("utf16")); }
    uint32_t textUtf16Length() const { return getImpl()->textLength("utf16"); }
    void releaseUtf16(const uint16_t* text) const { releaseIn(text, "utf16"); }
    const char* textUtf8() const { return static_cast<const char*>(textIn("utf8")); }
    uint32_t textUtf8Length() const { return getImpl()->textLength("utf8"); }
    void releaseUtf8(const char* text) const { releaseIn(text, "utf8"); }
    const wchar_t* textWide() const { return static_cast<const wchar_t*>(textIn("wchar_t")); }
    uint32_t textWideLength() const { return getImpl()->textLength("wchar_t"); }
    void releaseWide(const wchar_t* text) const { releaseIn(text, "wchar_t"); }
    bool copyText(void* buffer, uint32_t* size, const char* encoding) const {
        return getImpl()->copyText(buffer, size, encoding);
    }

    friend StringC operator+(const StringC& first, const StringC& second) {
        StringImplI* a = first.getImpl();
        return fromNew(a->getFactory()->concat(a, second.getImpl()));
    }

    // Gives this handle a private representation if it shares one.
    void makeUnique() {
        StringImplI* current = getImpl();
        if (!current->isShared()) return;
        uint32_t size = current->textLength("utf8");
        void* bytes = nullptr;
        current->text(&bytes, "utf8");
        StringImplI* fresh = current->getFactory()->fromBytesNew(bytes, size, "vutf8");
        current->releaseText(bytes, "utf8");
        fresh->addRef();
        StringImplI* old = impl.exchange(fresh);
        if (old) old->release();
    }

    // A string decoded anew from this one's "utf8" text, up to its first NUL.
    StringC clone() const {
        const char* text = textUtf8();
        StringC copy(text, "utf8");
        releaseUtf8(text);
        return copy;
    }

    StringC substring(int32_t start, int32_t count = -1) const {
        StringImplI* current = getImpl();
        StringImplI* part = current->getFactory()->substring(current, start, count);
        if (!part) return StringC();
        return fromNew(part);
    }

    void erase(int32_t start, int32_t count = -1) {
        if (count == 0) return;
        makeUnique();
        getImpl()->erase(start, count);
    }

    // Appending to an empty string shares the other's representation;
    // appending to a shared one concatenates into a new one.
    StringC& append(const StringC& other) {
        StringImplI* current = getImpl();
        if (current->isEmpty()) {
            *this = other;
        } else if (other.isEmpty()) {
        } else if (!current->isShared()) {
            current->append(other.getImpl());
        } else {
            StringImplI* joined = current->getFactory()->concat(current, other.getImpl());
            joined->addRef();
            StringImplI* old = impl.exchange(joined);
            if (old) old->release();
        }
        return *this;
    }
    StringC& operator+=(const StringC& other) { return append(other); }
    StringC& append(uint32_t character) {
        makeUnique();
        getImpl()->appendChar(character);
        return *this;
    }

    void insert(int32_t index, const StringC& string) {
        if (string.isEmpty()) return;
        makeUnique();
        getImpl()->insert(index, string.getImpl());
    }

    // Rendering with the library's format language; defined in <keel/arglist.h>.
    static StringC format(const StringC& format, ArgListC args);
    static void formatTo(CharSinkFn sink, void* context, const StringC& format, ArgListC args);

    // Wraps a representation that a factory has just made (count 0).
    static StringC fromNew(StringImplI* fresh) {
        StringC result(fresh, AdoptTag());
        return result;
    }

private:
    struct AdoptTag {};
    StringC(StringImplI* fresh, AdoptTag) { take(fresh); }

    static StringImplFactoryI* chosen(StringImplFactoryI* factory) {
        return factory ? factory : getStringFactory();
    }
    // The empty representation is asked of the factory once; later default
    // constructions only read the remembered pointer.
    static StringImplI* emptyImpl() {
        static StringImplI* remembered = nullptr;
        StringImplI* empty = __atomic_load_n(&remembered, __ATOMIC_ACQUIRE);
        if (!empty) {
            empty = getStringFactory()->fromBytes(nullptr, 0, "utf8");
            __atomic_store_n(&remembered, empty, __ATOMIC_RELEASE);
        }
        return empty;
    }
    // Constructors: null into the cell, then the reference, then the exchange.
    void take(StringImplI* representation) {
        impl.exchange(nullptr);
        if (representation) representation->addRef();
        impl.exchange(representation);
    }
    const void* textIn(const char* encoding) const {
        void* out = nullptr;
        getImpl()->text(&out, encoding);
        return out;
    }
    void releaseIn(const void* text, const char* encoding) const {
        getImpl()->releaseText(const_cast<void*>(text), encoding);
    }

    AtomicM<StringImplI*> impl;
};

}  // namespace keel

#endif
