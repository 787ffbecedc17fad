// Joining arrays of strings, and escaping and unescaping characters in text
// (see <keel/escape.h> for the rules). Stateless; part of the toolkit.
#include <keel/escape.h>

#include <string>
#include <vector>

#include <keel/stringar.h>
#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// Calls step(p, end) while p is in front of the end of `text` and of its first
// NUL; step moves p on by at least one character. The bytes are borrowed for
// the walk only.
template <class Step>
void walkText(const StringC& text, Step step) {
    Utf8ViewC bytes(text);
    const uint8_t* p = bytes.data();
    const uint8_t* end = p + bytes.size();
    while (p < end && *p != 0) step(p, end);
}

// A small set of characters: a bitmap for ASCII, a list for the rest.
class CharMembersC {
public:
    CharMembersC() : ascii_{0, 0, 0, 0} {}
    void add(uint32_t c) {
        if (c < 0x80) {
            ascii_[c >> 5] |= 1u << (c & 31);
        } else {
            others_.push_back(c);
        }
    }
    void addAll(const StringC& set) {
        walkText(set, [this](const uint8_t*& p, const uint8_t*) { add(utf8Next(p)); });
    }
    bool contains(uint32_t c) const {
        if (c < 0x80) return (ascii_[c >> 5] >> (c & 31)) & 1u;
        for (uint32_t member : others_) {
            if (member == c) return true;
        }
        return false;
    }

private:
    uint32_t ascii_[4];
    std::vector<uint32_t> others_;
};

// The bytes of `text` as it is, up to its end.
void appendWhole(std::string& out, const StringC& text) {
    Utf8ViewC bytes(text);
    out.append(bytes.chars(), bytes.size());
}

// Appends the characters of `source` (up to its first NUL), each with the
// escape's bytes in front of it when it is special. Characters are copied
// byte for byte, so even a broken sequence comes back unchanged from
// unescapeString.
void appendEscaped(std::string& out, const StringC& source, const CharMembersC& specials,
                   uint32_t escape) {
    uint8_t escapeBytes[6];
    uint8_t* put = escapeBytes;
    utf8Put(put, escape);
    size_t escapeLength = static_cast<size_t>(put - escapeBytes);

    walkText(source, [&](const uint8_t*& p, const uint8_t*) {
        const uint8_t* start = p;
        uint32_t c = utf8Next(p);
        if (specials.contains(c))
            out.append(reinterpret_cast<const char*>(escapeBytes), escapeLength);
        out.append(reinterpret_cast<const char*>(start), static_cast<size_t>(p - start));
    });
}

StringC fromInternal(const std::string& bytes) {
    return StringC(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");
}

const uint32_t kBackslash = 0x5C;

}  // namespace

StringC joinStrings(const StringArrayC& array, const StringC& separator) {
    std::string out;
    for (uint32_t i = 0; i < array.size(); ++i) {
        if (i > 0) appendWhole(out, separator);
        appendWhole(out, *array.at(i));
    }
    return fromInternal(out);
}

StringC joinEscaped(const StringArrayC& array, const StringC& separator, uint32_t special) {
    // The specials of each element: the one character and the escape.
    CharMembersC specials;
    specials.add(special);
    specials.add(kBackslash);
    std::string out;
    for (uint32_t i = 0; i < array.size(); ++i) {
        if (i > 0) appendWhole(out, separator);
        appendEscaped(out, *array.at(i), specials, kBackslash);
    }
    return fromInternal(out);
}

StringC escapeString(const StringC& source, StringC& specials, uint32_t escape) {
    specials.append(escape);
    CharMembersC members;
    members.addAll(specials);
    std::string out;
    appendEscaped(out, source, members, escape);
    return fromInternal(out);
}

StringC unescapeString(const StringC& source, uint32_t escape) {
    std::string out;
    walkText(source, [&out, escape](const uint8_t*& p, const uint8_t* end) {
        const uint8_t* start = p;
        uint32_t c = utf8Next(p);
        if (c == escape) {
            // Drop the escape and keep the character behind it as it is; a
            // lone escape at the end is dropped (and ends the walk).
            if (p >= end || *p == 0) return;
            start = p;
            utf8Next(p);
        }
        out.append(reinterpret_cast<const char*>(start), static_cast<size_t>(p - start));
    });
    return fromInternal(out);
}

}  // namespace keel
