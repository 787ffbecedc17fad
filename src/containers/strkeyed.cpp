// String-keyed tables and their elements, and the string hashes and key
// equality that every string-keyed table uses (the generic table in hashtbl
// knows nothing of strings). The hashes are pinned: a change of any value
// changes the order a table lists its elements in.
#include <keel/strkeyed.h>

#include <string.h>

#include "text/case.h"
#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

uint32_t hashOfString(const StringC& string) {
    Utf8ViewC text(string);
    return hashOfBytes(text.data(), static_cast<int32_t>(text.size()));
}

uint32_t hashOfStringNoCase(const StringC& string) {
    Utf8ViewC text(string);
    uint32_t h = 0;
    if (text.size() == 0) return h;
    const uint8_t* p = text.data();
    const uint8_t* end = p + text.size();
    while (p < end) {
        // ASCII is only OR-ed with 0x20: both cases of a letter meet, and so
        // do a few punctuation pairs, which costs nothing but a shared list.
        // utf8Next stops at the NUL behind the text, so a sequence cut off at
        // the end is not read past it.
        uint32_t c = *p < 0x80 ? uint32_t(*p++ | 0x20) : toLowerChar(utf8Next(p));
        h += c;
        h *= 1025;
        h ^= h >> 6;
    }
    h *= 9;
    h ^= h >> 11;
    h *= 32769;
    return h;
}

bool stringKeysEqual(const StringC& first, const StringC& second, bool caseInsensitive) {
    StringImplI* a = first.getImpl();
    StringImplI* b = second.getImpl();
    if (a == b) return true;
    if (!caseInsensitive) {
        // compare is a byte comparison of the two "utf8" texts that answers 0
        // only for equal bytes and equal byte counts, and equal bytes hold
        // equal character counts: for two plain representations the answer
        // is the byte test alone.
        const uint8_t *x, *y;
        uint32_t xSize, ySize;
        if (Utf8ViewC::readPlain(a, x, xSize) && Utf8ViewC::readPlain(b, y, ySize)) {
            return xSize == ySize && (xSize == 0 || memcmp(x, y, xSize) == 0);
        }
    }
    if (a->length() != b->length()) return false;
    return (caseInsensitive ? a->compareNoCase(b) : a->compare(b)) == 0;
}

StringKeyedHashC::~StringKeyedHashC() { eraseAll(); }

uint32_t StringKeyedHashC::hashValue(const void* key) {
    const StringC& string = *static_cast<const StringC*>(key);
    return caseInsensitive ? hashOfStringNoCase(string) : hashOfString(string);
}

StringKeyedHashElemC::~StringKeyedHashElemC() {
    if (chain != 0) selfDetach(this);
}

bool StringKeyedHashElemC::matchesKey(const void* key, HashTableC* table) {
    return stringKeysEqual(keyString, *static_cast<const StringC*>(key),
                           static_cast<StringKeyedHashC*>(table)->caseInsensitive);
}

void StringKeyedHashElemC::printHashed(FILE* stream, uint32_t mask) {
    printStringHashed(stream, keyString, this, mask & hash);
}

void printStringHashed(FILE* stream, const StringC& key, const void* element, uint32_t hash) {
    const char* text = key.textSystem();
    fprintf(stream ? stream : stdout, "\"%s\"@%p(0x%lX)", text ? text : "", element,
            static_cast<unsigned long>(hash));
    key.releaseSystem(text);
}

}  // namespace keel
