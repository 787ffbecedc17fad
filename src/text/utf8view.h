// Utf8ViewC: a string's "utf8" text borrowed for the length of a scope.
//
// Every unit that reads a string's bytes goes through this one class instead
// of pairing text() and releaseText() by hand. For the library's own plain
// representation (exactly StringImplC: not the secure one, not a class a
// program brought) the view reads the buffer and byte count from its fields:
// for "utf8" text() hands out that very buffer, textLength() that count, and
// releaseText() frees nothing, so the answer is the same bytes without three
// calls through the interface. This sits on the lookup path of every
// string-keyed table. Every other representation is asked through the
// interface, and its text is released when the view ends.
//
// The toolkit archive (KEEL_TOOLKIT) is linked into programs beside
// libkeel.so and reaches strings through the public handles only: it cannot
// name the representation class, whose code and type information live hidden
// inside the shared object, so there the view always takes the interface.
//
// The string must outlive the view and stay unchanged while it is used.
#ifndef KEEL_TEXT_UTF8VIEW_H
#define KEEL_TEXT_UTF8VIEW_H

#include <stdint.h>

#include <keel/string.h>

#ifndef KEEL_TOOLKIT
#include <typeinfo>

#include "text/stringim.h"
#endif

namespace keel {

class Utf8ViewC {
public:
    explicit Utf8ViewC(StringImplI* impl) : impl_(impl), plain_(readPlain(impl, bytes_, size_)) {
        if (plain_) return;
        void* text = nullptr;
        impl->text(&text, "utf8");
        bytes_ = static_cast<const uint8_t*>(text);
        // A representation without a buffer reads as the empty text.
        size_ = bytes_ ? impl->textLength("utf8") : 0;
    }
    explicit Utf8ViewC(const StringC& string) : Utf8ViewC(string.getImpl()) {}
    ~Utf8ViewC() {
        if (!plain_ && bytes_) impl_->releaseText(const_cast<uint8_t*>(bytes_), "utf8");
    }
    Utf8ViewC(const Utf8ViewC&) = delete;
    Utf8ViewC& operator=(const Utf8ViewC&) = delete;

    // The bytes, zero-terminated; an empty text when the representation
    // handed out no buffer.
    const uint8_t* data() const { return bytes_ ? bytes_ : emptyText(); }
    const char* chars() const { return reinterpret_cast<const char*>(data()); }
    // The bytes as handed out: null when there was no buffer.
    const uint8_t* rawBytes() const { return bytes_; }
    uint32_t size() const { return size_; }
    // True when the bytes were read from the library's own representation.
    bool isPlain() const { return plain_; }

    // The fast path alone: the bytes and byte count of the library's own
    // representation, or false (and nothing set) for any other one.
    static bool readPlain(StringImplI* impl, const uint8_t*& bytes, uint32_t& size) {
#ifdef KEEL_TOOLKIT
        (void)impl;
        (void)bytes;
        (void)size;
        return false;
#else
        if (typeid(*impl) != typeid(StringImplC)) return false;
        StringImplC* own = static_cast<StringImplC*>(impl);
        bytes = own->bytes();
        size = own->byteCount();
        return true;
#endif
    }

private:
    static const uint8_t* emptyText() {
        static const uint8_t kEmpty[1] = {0};
        return kEmpty;
    }

    StringImplI* impl_;
    const uint8_t* bytes_;
    uint32_t size_;
    bool plain_;
};

}  // namespace keel

#endif
