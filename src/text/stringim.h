// The string representations behind StringC.
//
// StringImplC holds text in the internal form (extended UTF-8 with a NUL
// behind the last byte) and caches its character count and a position cursor
// so that indexed walks do not rescan. Three classes refine it:
// StaticStringImplC (never counted, never changed: the one-character strings),
// EmptyStringImplC (the cached empty string) and SecureStringImplC (wipes the
// text it frees). Representations are made by the string factory
// (text/string.h); a new one has count 0 and the first handle takes it.
//
// The compare and search operations are implemented with the character
// services and reach the storage directly: the fields and the cursor
// (`seek`, `setCursor`) are protected members, and the units that need them
// derive from or are friends of StringImplC (see `friend` below).
#ifndef KEEL_TEXT_STRINGIM_H
#define KEEL_TEXT_STRINGIM_H

#include <stdint.h>

#include <typeinfo>

#include <keel/atomic.h>
#include <keel/refcount.h>
#include <keel/string.h>

namespace keel {

class TextEncodingI;

// Maps one character to another (case mapping and the like).
typedef uint32_t (*CharMapFn)(uint32_t character);

class StringImplC : public StringImplI, private RefCountC {
public:
    // The empty, bufferless state of `reset`, without text.
    StringImplC();
    // Text from bytes in an encoding: null or 0 bytes give the empty text,
    // "vutf8" copies internal form as it is, an unknown name leaves the
    // representation without a buffer.
    StringImplC(const void* bytes, uint32_t byteCount, const char* encoding);
    // The concatenation of two representations' texts.
    StringImplC(StringImplI* first, StringImplI* second);
    ~StringImplC() override;

    // A new plain representation of the text, as the constructor above makes
    // it. For "utf8" and "vutf8" text of up to kInlineLimit bytes the first
    // buffer, of exactly the capacity that the first reserve would pick, is
    // part of the object's own block: one allocation instead of two. The
    // buffer is then never freed on its own; when the text grows it moves to
    // a buffer of its own like any other, and the place behind the object
    // stays unused until the object dies.
    // Short text from the other encodings is decoded in one pass and gets
    // its first buffer behind the object as well.
    static StringImplC* make(const void* bytes, uint32_t byteCount, const char* encoding);
    // make for an encoding object already found (findEncoding, or one of the
    // objects of text/textencoding.h; null for an unknown name): the same
    // representation without looking the name up. "system-8" text gets the
    // first buffer inside the object as "utf8" does: it is read by the same
    // decoder, into the same room.
    static StringImplC* makeEncoded(const void* bytes, uint32_t byteCount, TextEncodingI* encoding);
    static const uint32_t kInlineLimit = 8192;
    // Text of fewer bytes goes out to the wider encodings in one pass (see
    // text).
    static const uint32_t kOnePassText = 256;
    // Text from encodings other than UTF-8 whose decoder may write at most
    // this many bytes is decoded in one pass (see makeDecoded).
    static const uint32_t kOnePassDecode = 1024;

    // The object's block: ordinary, or with room for its first buffer behind
    // the object (see make).
    struct InlineTextT {};
    static void* operator new(size_t size) { return ::operator new(size); }
    static void* operator new(size_t size, InlineTextT, uint32_t room) {
        return ::operator new(size + room);
    }
    static void* operator new(size_t, void* place) { return place; }
    static void operator delete(void* block) { ::operator delete(block); }
    static void operator delete(void*, void*) {}
    static void operator delete(void* block, InlineTextT, uint32_t) { ::operator delete(block); }

    // Both tables, that of StringImplI and that of the RefCountC base, reach
    // these through one override.
    int32_t addRef() override;
    int32_t release() override;
    bool isShared() override;
    StringImplFactoryI* getFactory() override;
    int32_t length() override;
    bool isEmpty() override;
    int compare(StringImplI* other) override;
    int compareNatural(StringImplI* other, bool foldCase) override;
    int compareNoCase(StringImplI* other) override;
    int32_t findChar(uint32_t character, int32_t after) override;
    int32_t findLastChar(uint32_t character, int32_t before) override;
    int32_t findString(StringImplI* other, int32_t after) override;
    int32_t findLastString(StringImplI* other, int32_t before) override;
    int32_t findFirstOf(StringImplI* set, int32_t after) override;
    int32_t findLastOf(StringImplI* set, int32_t before) override;
    int32_t findFirstNotOf(StringImplI* set, int32_t after) override;
    int32_t findLastNotOf(StringImplI* set, int32_t before) override;
    uint32_t charAt(int32_t index) override;
    uint32_t textLength(const char* encoding) override;
    bool text(void** out, const char* encoding) override;
    void releaseText(void* text, const char* encoding) override;
    bool copyText(void* buffer, uint32_t* size, const char* encoding) override;
    StringImplI* substring(int32_t start, int32_t count) override;
    void erase(int32_t start, int32_t count) override;
    void append(StringImplI* other) override;
    void appendChar(uint32_t character) override;
    void insert(int32_t index, StringImplI* other) override;
    void toLower() override;
    void toUpper() override;
    void reset() override;
    void reserve(uint32_t wanted) override;

    // Gives `target` the internal-form `bytes` as its text, as assigning a
    // new string of them ("vutf8") would. When the handle holds this plain
    // class and no other handle shares it, the text is written over in
    // place, in the buffer it has (copy on write with a single owner, as
    // append does): a reader that hands out one line after another into the
    // same handle makes no representation per line. Otherwise a new
    // representation goes into the handle and the old one is released.
    static void assignText(StringC& target, const uint8_t* bytes, uint32_t length);

    // Rewrites the text character by character through `map`; toLower and
    // toUpper are this routine with the case mappings.
    void mapCharacters(CharMapFn map);

    // The handle of a representation that its maker has just made (count 0)
    // and that no other thread can see yet, as StringC::fromNew gives it.
    // For this plain class the first reference is a plain store, which
    // nobody can tell from the increment (RefCountC::firstRef); any other
    // class is given it by addRef.
    static StringC handleOfNew(StringImplI* fresh) {
        if (typeid(*fresh) != typeid(StringImplC)) return StringC::fromNew(fresh);
        static_cast<StringImplC*>(fresh)->firstRef();
        return StringC::fromReferenced(fresh);
    }

    // Read access for tests and for the units that work on the storage.
    const uint8_t* bytes() const { return data; }
    uint32_t byteCount() const { return byteLength; }
    uint32_t byteCapacity() const { return capacity; }
    int32_t storedCharCount() const { return charCount.load(); }
    int32_t storedCursorIndex() const { return loadCursor().index; }
    int32_t storedCursorOffset() const { return loadCursor().offset; }
    int32_t referenceCount() const { return refCount(); }
    // Test hook: with false, the 32- and 64-byte block paths (construction
    // from UTF-8, search for an ASCII character) are left out, so that tests
    // can hold them to the character-by-character ones. On by default.
    static void setVectorPaths(bool on);

    // The place of the character at `index` (see the cursor rules in
    // stringim.cpp); null when there is no buffer or a backward walk ran in
    // front of the text.
    uint8_t* seek(int32_t index);
    // seek, telling also the index of the character at the place answered:
    // `index` itself, or less when the text ended first.
    uint8_t* seek(int32_t index, int32_t* reached);

    // The cursor as one pair: the character index (below 1: no cursor) and
    // its byte offset in `data`.
    struct CursorT {
        int32_t index;
        int32_t offset;
    };

protected:
    // The format engine appends to a new representation's buffer directly.
    friend class StringFormatSinkC;

    // Stores the text by the construction rule (see the constructor above).
    void store(const void* bytes, uint32_t byteCount, const char* encoding);
    // The parts of store once the name is read: "vutf8" (some bytes), and
    // everything else with the encoding found.
    void storeInternal(const void* bytes, uint32_t byteCount);
    void storeEncoded(const void* bytes, uint32_t byteCount, TextEncodingI* found);
    // makeEncoded for short text from an encoding other than UTF-8; null
    // when it does not take the text.
    static StringImplC* makeDecoded(const void* bytes, uint32_t byteCount, TextEncodingI* found);
    // The ordinary way of storeEncoded: the decoder's two passes.
    void storeDecoded(const void* bytes, uint32_t byteCount, TextEncodingI* found);
    // The part of store for the UTF-8 decoder's encodings; false when it
    // left the representation reset for the ordinary way.
    bool storeUtf8(const uint8_t* bytes, uint32_t byteCount, TextEncodingI* encoding);
    // Stores the two texts one behind the other, with the sum of their
    // character counts.
    void storeJoined(StringImplI* first, StringImplI* second);
    // Writes the cursor, index and offset in one store. Nothing for an index
    // below 1; an index past a known count is stored as the count.
    void setCursor(int32_t index, const uint8_t* place);
    // No cursor: index -1, offset 0.
    void clearCursor();
    // Index and offset as one pair, read in one load.
    CursorT loadCursor() const;
    // The text as bytes: the buffer, or an empty text when there is none, so
    // that nothing reads through a null buffer.
    const uint8_t* textBytes() const;
    // Frees the buffer without wiping; the secure class wipes first. A
    // buffer inside the object's block (see make) is only let go.
    void freeBuffer();
    // Where make puts the first buffer: right behind a plain StringImplC.
    // Only the objects of make and of the format engine's new strings
    // (StringFormatSinkC::newEmpty) ever have their buffer there.
    uint8_t* inlineText() { return reinterpret_cast<uint8_t*>(this) + sizeof(StringImplC); }
    // The state of a new object whose first buffer of `room` bytes is the
    // one behind it.
    StringImplC(InlineTextT, uint32_t room);
    // The capacity that reserve(wanted) picks when `capacity` is too small.
    static uint32_t grownCapacity(uint32_t capacity, uint32_t wanted);

    uint8_t* data;
    AtomicM<int32_t> charCount;
    uint32_t byteLength;
    uint32_t capacity;
    // The position cursor: index in the low 32 bits, byte offset in the
    // high 32 bits of one cell. Readers on other threads move it while they
    // walk a shared text; two cells written one after the other would let a
    // reader pair one walk's index with another's offset and answer a
    // neighbouring character, so both go in and out together.
    AtomicM<uint64_t> cursor;
};

// Lives until the process ends and is never changed: handles neither count
// it nor change it, since isShared always answers true.
class StaticStringImplC : public StringImplC {
public:
    StaticStringImplC() {}
    StaticStringImplC(const void* bytes, uint32_t byteCount, const char* encoding)
        : StringImplC(bytes, byteCount, encoding) {}
    int32_t addRef() override;
    int32_t release() override;
    bool isShared() override;
};

// The empty string: a buffer of one NUL byte. It overrides most of the
// operations that StringImplC declares, so the list below repeats a part of
// that one deliberately: each answers for empty text without a walk.
class EmptyStringImplC : public StaticStringImplC {
public:
    EmptyStringImplC();
    int32_t length() override;
    bool isEmpty() override;
    int compare(StringImplI* other) override;
    int compareNatural(StringImplI* other, bool foldCase) override;
    int compareNoCase(StringImplI* other) override;
    int32_t findChar(uint32_t character, int32_t after) override;
    int32_t findLastChar(uint32_t character, int32_t before) override;
    int32_t findString(StringImplI* other, int32_t after) override;
    int32_t findLastString(StringImplI* other, int32_t before) override;
    int32_t findFirstOf(StringImplI* set, int32_t after) override;
    int32_t findLastOf(StringImplI* set, int32_t before) override;
    int32_t findFirstNotOf(StringImplI* set, int32_t after) override;
    int32_t findLastNotOf(StringImplI* set, int32_t before) override;
    uint32_t charAt(int32_t index) override;
    uint32_t textLength(const char* encoding) override;
    StringImplI* substring(int32_t start, int32_t count) override;
};

// For text that must not stay in memory: every buffer it frees itself is
// wiped first. What it does not protect: erase and insert leave old bytes
// behind the new end, toLower/toUpper and copyText free without wiping, and
// substrings, copies made on write and concatenations are plain strings.
class SecureStringImplC : public StringImplC {
public:
    SecureStringImplC(const void* bytes, uint32_t byteCount, const char* encoding);
    SecureStringImplC(StringImplI* first, StringImplI* second);
    // Takes over the other's text and character count.
    explicit SecureStringImplC(StringImplI* other);
    ~SecureStringImplC() override;
    void releaseText(void* text, const char* encoding) override;
    void reset() override;
    void reserve(uint32_t wanted) override;

    // Test hook: called with every buffer right after it was wiped and before
    // it is freed. Null (the default) calls nothing.
    typedef void (*WipeHookFn)(const void* buffer, uint32_t wipedBytes);
    static void setWipeHook(WipeHookFn hook);

private:
    void wipe(void* buffer, uint32_t bytes);
};

}  // namespace keel

#endif
