// The string value of keel.
//
//     #include <keel/string.h>        // link keel::keel (-lkeel)
//
//     keel::StringC name("caf\xc3\xa9", "utf8");
//     keel::StringC copy = name;                  // shares the representation
//     copy.append(keel::StringC("!", "ascii"));   // copy gets its own text
//     keel::StringC word(std::string_view("Stra\xc3\x9f" "e"));   // UTF-8
//     std::string out = word.toStdString();       // UTF-8 again
//     for (char32_t c : name.chars()) { ... }     // characters, decoded
//     keel::StringC upper = name.toUpper();       // a copy; name is unchanged
//     std::cout << name << '\n';                  // (include <ostream> first)
//     std::unordered_map<keel::StringC, int> counts;   // ==, < and std::hash too
//     const uint16_t* units = name.textUtf16();
//     ...
//     name.releaseUtf16(units);                   // every text...() has its release...()
//
// StringC is a one-word handle on a reference-counted representation
// (StringImplI) that holds Unicode text in the library's internal form:
// extended UTF-8 with a NUL behind it, indexes counted in characters. Copying
// a handle costs one atomic increment; moving one touches no reference count;
// every changing operation first makes the representation private (copy on
// write). Representations are made only by a StringImplFactoryI, normally the
// one getStringFactory() hands out.
//
// Encoding names are plain C texts: "ascii", "iso-8859-1", "system-8" (the
// platform's 8-bit text; UTF-8 here), "utf8", "utf16", "utf16le",
// "utf16be", "wchar_t"; "vutf8" marks bytes that are internal form already.
// ASCII case does not matter ("UTF8" is "utf8"), anything else does:
// "UTF-8", "latin1" and "utf-16" are no names.
//
// What happens on bad input. The string layer never fails visibly: it
// replaces and goes on.
//
// - An encoding name that is not one of the above is not an error: the
//   string is made without any text. It reads as empty (length() 0,
//   isEmpty() true), its textUtf8() is null, and valid() is false; valid()
//   is the way to tell it from a real empty string. (The empty text and a
//   single ASCII byte come from the factory's shared strings whatever the
//   name, so those stay valid.)
// - Bytes that are not valid in their encoding become U+FFFD, one for each
//   broken sequence; in "ascii" every byte of 0x80 or above does.
// - A sequence cut off by the end of the bytes is dropped without a
//   replacement: "abc" followed by the single byte E4 in "utf8" gives "abc".
// - Byte-order marks: the "utf8" and "system-8" decoders keep a leading
//   EF BB BF, which arrives as the character U+FEFF. "utf16" looks at the
//   first two bytes: FE FF means big-endian, anything else, a missing mark
//   included, means little-endian; a mark of the chosen order is skipped.
//   "utf16le" and "utf16be" skip a mark of their own order and read the
//   other one as the character U+FFFE. No text...() writes a mark.
// - Going out, a character that the encoding cannot hold becomes 0x7E ("~")
//   in "ascii" and "iso-8859-1"; the text...() accessors do not report it
//   (copyText() answers false).
// - A NUL inside the text (from bytes with an embedded 00) is kept, but
//   everything that walks characters (length, charAt, chars(), searches)
//   stops in front of it.
#ifndef KEEL_STRING_H
#define KEEL_STRING_H

#include <stddef.h>
#include <stdint.h>

#include <iosfwd>
#include <iterator>
#include <new>
#include <string>
#include <string_view>

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
    virtual StringImplI* fromBytesNew(const void* bytes, uint32_t byteCount,
                                      const char* encoding) = 0;
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
    virtual StringImplI* secureFromBytes(const void* bytes, uint32_t byteCount,
                                         const char* encoding) = 0;
    virtual ~StringImplFactoryI() {}
};

}  // namespace keel

extern "C" KEEL_EXPORT keel::StringImplFactoryI* getStringFactory();

namespace keel {

// Walking the internal form in inline code (the character range below, the
// format parser of <keel/arglist.h>). It answers exactly as the library's
// own decoder does: one to six bytes a character, overlong forms and
// surrogates pass, a broken sequence is one U+FFFD; only at the terminating
// NUL it answers 0 without moving, so reading on at the end never leaves the
// buffer.
namespace textform {

// The length of the sequence that a first byte announces: 1 for ASCII, a
// stray continuation byte, 0xFE and 0xFF.
inline uint32_t announcedLength(uint8_t b) {
    return b < 0xC0   ? 1
           : b < 0xE0 ? 2
           : b < 0xF0 ? 3
           : b < 0xF8 ? 4
           : b < 0xFC ? 5
           : b < 0xFE ? 6
                      : 1;
}

inline uint32_t nextChar(const uint8_t*& p) {
    uint8_t b = *p;
    if (b < 0x80) {
        if (b != 0) ++p;
        return b;
    }
    uint32_t n = announcedLength(b);
    if (n == 1) {
        ++p;
        return 0xFFFD;
    }
    uint32_t value = b & (0x7Fu >> n);
    for (uint32_t i = 1; i < n; ++i) {
        uint8_t c = p[i];
        if ((c & 0xC0) != 0x80) {
            uint32_t skip = 1;
            while (skip < n && (p[skip] & 0xC0) == 0x80) ++skip;
            p += skip;
            return 0xFFFD;
        }
        value = (value << 6) | (c & 0x3F);
    }
    p += n;
    return value;
}

// The place of the next character as the string's own indexing steps: by
// the length that the first byte announces (1 for a stray continuation byte,
// 0xFE and 0xFF), but never past `end`. On broken text this can differ from
// where nextChar stops; charAt, length and the searches step this way.
inline const uint8_t* nextPlace(const uint8_t* p, const uint8_t* end) {
    uint8_t b = *p;
    uint32_t n = announcedLength(b);
    return static_cast<size_t>(end - p) < n ? end : p + n;
}

}  // namespace textform

class StringCharsC;

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

    // Moving hands the representation over and touches no reference count
    // (the other handle's cell is emptied by exchange; the new handle's own,
    // which no other thread can see yet, is stored plainly). The moved-from
    // handle holds nothing and reads as the empty string; it may be assigned
    // to or destroyed as usual.
    StringC(StringC&& other) noexcept { impl.initialize(other.impl.exchange(nullptr)); }
    StringC& operator=(StringC&& other) noexcept {
        if (this == &other) return *this;
        StringImplI* old = impl.exchange(other.impl.exchange(nullptr));
        if (old) old->release();
        return *this;
    }

    // From UTF-8 text (decoded as "utf8": broken sequences become U+FFFD, a
    // leading mark stays as U+FEFF). A std::string converts too.
    explicit StringC(std::string_view utf8) {
        // The representation counts bytes in 32 bits; a longer text could
        // not be stored, which is what an allocation failure says.
        if (utf8.size() > 0xFFFFFFF0u) throw std::bad_alloc();
        take(
            getStringFactory()->fromBytes(utf8.data(), static_cast<uint32_t>(utf8.size()), "utf8"));
    }

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
    // The representation. A moved-from handle holds none and answers the
    // empty one, so every operation on it behaves as on the empty string.
    StringImplI* getImpl() const {
        StringImplI* current = impl.load();
        return current ? current : emptyImpl();
    }

    // False for a string made with an encoding name that does not exist: it
    // has no text at all (textUtf8() is null), where an empty string made
    // from a known encoding has the empty text.
    bool valid() const {
        const char* text = textUtf8();
        bool hasText = text != nullptr;
        releaseUtf8(text);
        return hasText;
    }

    // The "utf8" text as a view of the representation's own buffer (as
    // textUtf8() gives it): valid until this string changes or dies. The view
    // of a string without text is empty.
    std::string_view view() const {
        const char* text = textUtf8();
        std::string_view result =
            text ? std::string_view(text, textUtf8Length()) : std::string_view();
        releaseUtf8(text);
        return result;
    }
    explicit operator std::string_view() const { return view(); }
    // A copy of the "utf8" text.
    std::string toStdString() const { return std::string(view()); }
    explicit operator std::string() const { return toStdString(); }

    // The characters, decoded, for range-for: for (char32_t c : s.chars()).
    // The range keeps a reference, so the text it walks cannot change under
    // it (changing `s` meanwhile gives `s` a copy of its own).
    StringCharsC chars() const;

    // Copies in lower or upper case by the simple one-to-one mappings (see
    // <keel/case.h>); this string is left as it is, and so is every other
    // handle that shares its text.
    StringC toLower() const {
        StringC copy(*this);
        copy.makeUnique();
        copy.getImpl()->toLower();
        return copy;
    }
    StringC toUpper() const {
        StringC copy(*this);
        copy.makeUnique();
        copy.getImpl()->toUpper();
        return copy;
    }

    // The number of characters (not bytes).
    int32_t length() const { return getImpl()->length(); }
    bool isEmpty() const { return getImpl()->isEmpty(); }

    // Comparisons answer a negative number, 0 or a positive number; only the
    // sign means anything. None of them knows a locale.
    //
    // compare: the bytes of the "utf8" texts, shorter first on a tie; on
    // valid text that is code-point order ("Z" < "a" < "\u00e9").
    int compare(const StringC& other) const { return getImpl()->compare(other.getImpl()); }
    // compareNatural: a run of digits that starts with 1-9 compares by its
    // value, so "file9" < "file10". A digit 0 starts no number: it compares
    // as a character and sorts after everything else, so zero-padded numbers
    // do not sort by value against unpadded ones, and a longer run of zeros
    // sorts later:
    //     "file2" < "file9" < "file10" < "file0" < "file08" < "file007"
    // ("file10" against "file08" meets 1 against 0). A character that is no
    // digit against a digit 1-9 reads as the number 0, so "filea" < "file2".
    // Other characters compare one by one, folded to lower case with
    // `foldCase`. Numbers wrap at 32 bits.
    int compareNatural(const StringC& other, bool foldCase) const {
        return getImpl()->compareNatural(other.getImpl(), foldCase);
    }
    // compareNoCase: characters folded by toLowerChar (<keel/case.h>), no
    // one-to-many mappings: "STRASSE" and "Stra\u00dfe" differ.
    int compareNoCase(const StringC& other) const {
        return getImpl()->compareNoCase(other.getImpl());
    }

    // Searches answer a character index, or -1 when there is no match.
    // `after` and `before` are exclusive positions: a forward search starts at
    // index after + 1 (so -1, the default, means the start, and passing the
    // last match finds the next one); a backward search starts at the
    // character in front of index `before` (-1 means the end of the text). On
    // "banana": find('a') is 1, find('a', 1) is 3, findLast('a') is 5,
    // findLast('a', 5) is 3. A string match found by findLast ends in front
    // of `before`. An empty string or an empty set is never found; with an
    // empty set the ...NotOf searches answer the first character they visit.
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
    // The character at `index`; 0 at or past the end.
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
    // Wraps a representation that already holds the reference this handle
    // is to own (its maker set its count to 1 while no other thread could
    // see it): the handle takes that reference over and adds none.
    static StringC fromReferenced(StringImplI* referenced) {
        return StringC(referenced, TakeOverTag());
    }

private:
    struct AdoptTag {};
    struct TakeOverTag {};
    StringC(StringImplI* fresh, AdoptTag) { take(fresh); }
    StringC(StringImplI* referenced, TakeOverTag) { impl.initialize(referenced); }

    static StringImplFactoryI* chosen(StringImplFactoryI* factory) {
        return factory ? factory : getStringFactory();
    }
    // The empty representation is asked of the factory once; later default
    // constructions only read the remembered pointer.
    static StringImplI* emptyImpl() {
        static StringImplI* remembered = nullptr;
        StringImplI* empty = atomicLoadAcquire(&remembered);
        if (!empty) {
            empty = getStringFactory()->fromBytes(nullptr, 0, "utf8");
            atomicStoreRelease(&remembered, empty);
        }
        return empty;
    }
    // Constructors: the reference, then the store. The handle under
    // construction is reachable by no other thread, so its cell takes the
    // value plainly (it was set to null by its own constructor); whatever
    // later shares the handle orders the store before any other reader.
    void take(StringImplI* representation) {
        if (representation) representation->addRef();
        impl.initialize(representation);
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

// Equality and order by compare(): the bytes of the "utf8" texts, which on
// valid text is code-point order. No locale, no case folding; a string
// without text equals the empty string.
inline bool operator==(const StringC& first, const StringC& second) {
    return first.compare(second) == 0;
}
inline bool operator!=(const StringC& first, const StringC& second) {
    return first.compare(second) != 0;
}
inline bool operator<(const StringC& first, const StringC& second) {
    return first.compare(second) < 0;
}
inline bool operator>(const StringC& first, const StringC& second) {
    return first.compare(second) > 0;
}
inline bool operator<=(const StringC& first, const StringC& second) {
    return first.compare(second) <= 0;
}
inline bool operator>=(const StringC& first, const StringC& second) {
    return first.compare(second) >= 0;
}
// Against UTF-8 text, byte for byte.
inline bool operator==(const StringC& first, std::string_view second) {
    return first.view() == second;
}
inline bool operator!=(const StringC& first, std::string_view second) {
    return first.view() != second;
}
inline bool operator==(std::string_view first, const StringC& second) {
    return first == second.view();
}
inline bool operator!=(std::string_view first, const StringC& second) {
    return first != second.view();
}

// Writes the "utf8" text; a string without text writes nothing. A template,
// so that this header needs only <iosfwd>: include <ostream> to use it.
template <typename Traits>
std::basic_ostream<char, Traits>& operator<<(std::basic_ostream<char, Traits>& out,
                                             const StringC& string) {
    std::string_view text = string.view();
    return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

// The characters of a string as 32-bit values, for range-for: the same
// characters, in the same places, as charAt(0) to charAt(length() - 1).
class StringCharsC {
public:
    class iterator {
    public:
        typedef std::forward_iterator_tag iterator_category;
        typedef char32_t value_type;
        typedef ptrdiff_t difference_type;
        typedef const char32_t* pointer;
        typedef char32_t reference;

        iterator() : at_(nullptr), end_(nullptr), value_(0) {}
        iterator(const uint8_t* at, const uint8_t* end) : at_(at), end_(end), value_(0) { load(); }
        char32_t operator*() const { return value_; }
        iterator& operator++() {
            at_ = textform::nextPlace(at_, end_);
            load();
            return *this;
        }
        iterator operator++(int) {
            iterator before = *this;
            ++*this;
            return before;
        }
        // The end is a null position: a walk ends at the end of the text or
        // at a NUL, as length() counts.
        bool operator==(const iterator& other) const { return at_ == other.at_; }
        bool operator!=(const iterator& other) const { return at_ != other.at_; }

    private:
        void load() {
            if (!at_ || at_ >= end_ || *at_ == 0) {
                at_ = end_ = nullptr;
                return;
            }
            const uint8_t* p = at_;
            value_ = textform::nextChar(p);
        }
        const uint8_t* at_;
        const uint8_t* end_;
        char32_t value_;
    };

    explicit StringCharsC(const StringC& string) : string_(string), text_(string_.textUtf8()) {}
    ~StringCharsC() { string_.releaseUtf8(text_); }
    StringCharsC(const StringCharsC& other) : string_(other.string_), text_(string_.textUtf8()) {}
    StringCharsC& operator=(const StringCharsC&) = delete;

    iterator begin() const {
        const uint8_t* start = reinterpret_cast<const uint8_t*>(text_);
        return text_ ? iterator(start, start + string_.textUtf8Length()) : iterator();
    }
    iterator end() const { return iterator(); }

private:
    StringC string_;
    const char* text_;
};

inline StringCharsC StringC::chars() const { return StringCharsC(*this); }

}  // namespace keel

// Strings as keys of std::unordered_map and std::unordered_set: the hash of
// the "utf8" bytes, consistent with ==.
namespace std {
template <>
struct hash<keel::StringC> {
    size_t operator()(const keel::StringC& string) const noexcept {
        return std::hash<std::string_view>()(string.view());
    }
};
}  // namespace std

#endif
