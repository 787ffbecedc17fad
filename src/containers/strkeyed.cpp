// String-keyed tables and their elements.
#include <keel/strkeyed.h>

namespace keel {

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
    fprintf(stream ? stream : stdout, "\"%s\"@%p(0x%lX)", text ? text : "", element, static_cast<unsigned long>(hash));
    key.releaseSystem(text);
}

}  // namespace keel
