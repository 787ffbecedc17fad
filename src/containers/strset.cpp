// String sets.
#include <keel/strset.h>

#include <keel/strkeyed.h>

namespace keel {

StringSetEntryC::~StringSetEntryC() {
    if (chain != 0) selfDetach(this);
}

bool StringSetEntryC::matchesKey(const void* key, HashTableC* table) {
    return stringKeysEqual(*this, *static_cast<const StringC*>(key), static_cast<StringSetC*>(table)->caseInsensitive);
}

void StringSetEntryC::printHashed(FILE* stream, uint32_t mask) {
    printStringHashed(stream, *this, static_cast<HashElemI*>(this), mask & hash);
}

StringSetC::~StringSetC() { eraseAll(); }

uint32_t StringSetC::hashValue(const void* key) {
    const StringC& string = *static_cast<const StringC*>(key);
    return caseInsensitive ? hashOfStringNoCase(string) : hashOfString(string);
}

void StringSetC::add(const StringC& text) {
    HashElemI* displaced = replace(new StringSetEntryC(text));
    if (displaced) displaced->destroy();
}

}  // namespace keel
