// The linear-hashing table: insertion with list splitting, removal, dump and
// consistency check, the iterator, and the generic hash functions (bytes and
// zero-terminated texts). It knows nothing of strings: their hash and key
// equality live in strkeyed.
#include <keel/hashtbl.h>

#include <string.h>

#include <keel/arglist.h>

namespace keel {

namespace {

inline HashElemI* hashElement(uintptr_t word) {
    return static_cast<HashElemI*>(chainElement(word));
}
inline bool isElement(uintptr_t word) { return word != 0 && !chainIsEnd(word); }

inline uint32_t rotateLeft(uint32_t value, unsigned count) {
    return (value << count) | (value >> (32 - count));
}

// The mixing of one step of the byte hashes: a step is
// h = mixStep(h ^ word) ^ word, in both word orders.
inline uint32_t mixStep(uint32_t x) { return rotateLeft(x * 1103515245u + 12345u, 6); }
inline uint32_t hashStep(uint32_t h, uint32_t word) { return mixStep(h ^ word) ^ word; }

// Renders `format` with the library's format engine and writes the text in
// the system's 8-bit encoding.
void writeFormatted(FILE* stream, const char* format, const ArgListC& args) {
    StringC text = StringC::format(StringC(format, "ascii"), args);
    const char* bytes = text.textSystem();
    if (bytes) fwrite(bytes, 1, text.textSystemLength(), stream);
    text.releaseSystem(bytes);
}

// One line of check() about an element, with its full stored hash.
void reportElementFault(const char* what, HashElemI* element) {
    fputs(what, stderr);
    element->printHashed(stderr, 0xFFFFFFFFu);
    fputc('\n', stderr);
}

}  // namespace

void HashElemI::printHashed(FILE* stream, uint32_t mask) {
    fprintf(stream ? stream : stdout, "%p(0x%lX)", static_cast<void*>(this),
            static_cast<unsigned long>(mask & *hashSlot()));
}

// ---------------------------------------------------------------------------

void HashArrayC::clear() {
    uintptr_t* head = heads();
    for (uint32_t i = 0; i < size_; ++i) chainClear(head + i);
    BlobArrayC::clear();
}

void HashArrayC::appendList(const void* owner) {
    chainInit(static_cast<uintptr_t*>(insertAt(size_)), owner);
}

// ---------------------------------------------------------------------------

HashTableC::HashTableC()
    : size(0), bits_mask(0), lists(new HashArrayC), empty_lists(0), generation(0) {
    split();
}

HashTableC::~HashTableC() { delete lists; }

bool HashTableC::keysEqual(HashElemI* element, const void* key) {
    return element->matchesKey(key, this);
}

HashElemI* HashTableC::matchFrom(uintptr_t word, const void* key) {
    while (isElement(word)) {
        HashElemI* element = hashElement(word);
        if (keysEqual(element, key)) return element;
        word = *element->nextLink();
    }
    return nullptr;
}

HashElemI* HashTableC::find(const void* key) {
    return matchFrom(*listHead(listIndex(hashValue(key))), key);
}

HashElemI* HashTableC::findNext(HashElemI* after, const void* key) {
    if (!after) {
        after = find(key);
        // Without a first match there is nothing to start behind (and no
        // chain word to read).
        if (!after) return nullptr;
    }
    return matchFrom(*after->nextLink(), key);
}

void HashTableC::insert(HashElemI* element) {
    ++generation;
    ++size;
    // The element is in no list yet while the table grows.
    while (static_cast<double>(size) / static_cast<double>(lists->size()) > 0.9) split();
    uint32_t hash = hashValue(element->key());
    *element->hashSlot() = hash;
    uintptr_t* head = listHead(listIndex(hash));
    if (!isElement(*head)) --empty_lists;
    chainPrepend(head, element);
}

HashElemI* HashTableC::replace(HashElemI* element) {
    HashElemI* displaced = find(element->key());
    if (displaced) detach(displaced);
    insert(element);
    return displaced;
}

bool HashTableC::detach(HashElemI* element) {
    if (*element->nextLink() == 0) return false;
    uintptr_t* head = listHead(listIndex(*element->hashSlot()));
    if (!chainUnlink(head, element)) return false;
    ++generation;
    --size;
    if (!isElement(*head)) ++empty_lists;
    return true;
}

HashElemI* HashTableC::detachKey(const void* key) {
    HashElemI* element = find(key);
    if (element && detach(element)) return element;
    return nullptr;
}

bool HashTableC::erase(const void* key) {
    HashElemI* element = find(key);
    if (!element || !detach(element)) return false;
    element->destroy();
    return true;
}

void HashTableC::unlinkAll(bool destroy) {
    uint32_t count = lists->size();
    for (uint32_t i = 0; i < count; ++i) {
        uintptr_t* head = listHead(i);
        while (isElement(*head)) {
            HashElemI* element = hashElement(*head);
            uintptr_t* link = element->nextLink();
            *head = *link;
            *link = 0;
            if (destroy) element->destroy();
        }
    }
    size = 0;
    empty_lists = count;
    ++generation;
}

void HashTableC::detachAll() { unlinkAll(false); }

void HashTableC::eraseAll() { unlinkAll(true); }

void HashTableC::split() {
    lists->appendList(this);
    uint32_t added = lists->size() - 1;
    uint32_t high, low;
    if (added <= bits_mask) {
        high = bits_mask;
        low = bits_mask >> 1;
    } else {
        low = bits_mask;
        high = bits_mask * 2 + 1;
        bits_mask = high;
    }
    ++empty_lists;
    // The heads are read after appendList, which may have moved them.
    uintptr_t* source = listHead(added & low);
    if (!isElement(*source)) return;
    ++empty_lists;

    // Deal the source's elements out in order to the tail of the new list
    // (those with the new bit) and to the tail of a temporary list that then
    // becomes the source again. Both chains end in this table's mark.
    uint32_t bit = ~low & high;
    uintptr_t* target = listHead(added);
    uintptr_t stay;
    chainInit(&stay, this);
    uintptr_t* targetEnd = target;
    uintptr_t* stayEnd = &stay;
    uintptr_t word = *source;
    while (isElement(word)) {
        HashElemI* element = hashElement(word);
        uintptr_t* link = element->nextLink();
        uintptr_t following = *link;
        uintptr_t*& end = (*element->hashSlot() & bit) ? targetEnd : stayEnd;
        *link = *end;
        *end = word;
        end = link;
        word = following;
    }
    *source = stay;
    if (targetEnd != target) --empty_lists;
    if (stayEnd != &stay) --empty_lists;
}

void HashTableC::dump(FILE* stream) {
    if (!stream) stream = stdout;
    uint32_t count = lists->size();
    ArgListC header;
    header.add(static_cast<const void*>(this)).add(static_cast<int32_t>(count));
    header.add(static_cast<int32_t>(empty_lists)).add(bits_mask);
    writeFormatted(stream, "Dumping table at %p, size=%d (%d empty), mask=%X\n", header);
    for (uint32_t i = 0; i < count; ++i) {
        uintptr_t word = *listHead(i);
        if (!isElement(word)) continue;
        ArgListC index;
        index.add(i);
        writeFormatted(stream, "\t0x%X:", index);
        while (isElement(word)) {
            HashElemI* element = hashElement(word);
            fputc(' ', stream);
            element->printHashed(stream, bits_mask);
            word = *element->nextLink();
        }
        fputc('\n', stream);
    }
}

bool HashTableC::check() {
    bool good = true;
    uint32_t count = lists->size();
    uint32_t expected = 0;
    // A table always has a list; without the test, a head array emptied
    // from outside would make the loop below run forever.
    if (count > 1) {
        while (expected < count - 1) expected = expected * 2 + 1;
    }
    if (bits_mask != expected) {
        fprintf(stderr, "bits_mask 0x%lX incorrect, should be 0x%lX\n",
                static_cast<unsigned long>(bits_mask), static_cast<unsigned long>(expected));
        bits_mask = expected;
        good = false;
    }
    uint32_t empty = 0;
    for (uint32_t i = 0; i < count; ++i) {
        uintptr_t word = *listHead(i);
        if (!isElement(word)) ++empty;
        while (isElement(word)) {
            HashElemI* element = hashElement(word);
            uint32_t stored = *element->hashSlot();
            if (hashValue(element->key()) != stored) {
                reportElementFault("Element hash value wrong: ", element);
                good = false;
            }
            if (listIndex(stored) != i) {
                reportElementFault("Element in wrong list: ", element);
                good = false;
            }
            word = *element->nextLink();
        }
    }
    if (empty_lists != empty) {
        fprintf(stderr, "empty_lists %d incorrect, should be %d\n", static_cast<int>(empty_lists),
                static_cast<int>(empty));
        good = false;
    }
    if (!good) fputs("consistency check failed\n", stderr);
    return good;
}

bool selfDetach(HashElemI* element) {
    if (*element->nextLink() == 0) return false;
    HashTableC* table = static_cast<HashTableC*>(chainOwner(element));
    // A chain cut short by a 0 word names no table.
    if (!table) return false;
    return table->detach(element);
}

// ---------------------------------------------------------------------------

HashIteratorC::HashIteratorC(HashTableC* table, bool allElements)
    : table(table), listIndex(0), currentElement(nullptr), generation(0), allElements(allElements) {
    reset();
}

void HashIteratorC::reset() {
    listIndex = 0;
    currentElement = nullptr;
    generation = table->currentGeneration();
}

bool HashIteratorC::changed(uint32_t& status) const {
    if (table->currentGeneration() == generation) {
        status = 0;
        return false;
    }
    // Only the caller learns of this; nothing is recorded for it.
    status = kHashTableChanged;
    return true;
}

HashElemI* HashIteratorC::successor(uint32_t& index, HashElemI* from) const {
    uint32_t count = table->listCount();
    while (index < count) {
        if (!from) {
            uintptr_t head = *table->listHead(index);
            if (!isElement(head)) {
                ++index;
                continue;
            }
            return hashElement(head);
        }
        uintptr_t word = *from->nextLink();
        if (!isElement(word)) {
            from = nullptr;
            ++index;
            continue;
        }
        HashElemI* candidate = hashElement(word);
        if (allElements) return candidate;
        // Only the newest of equal keys counts: the first match from the head.
        if (table->matchFrom(*table->listHead(index), candidate->key()) == candidate)
            return candidate;
        from = candidate;
    }
    return nullptr;
}

HashElemI* HashIteratorC::next(uint32_t& status) {
    if (changed(status)) return nullptr;
    currentElement = successor(listIndex, currentElement);
    return currentElement;
}

HashElemI* HashIteratorC::current(uint32_t& status) {
    if (changed(status)) return nullptr;
    if (currentElement) return currentElement;
    return next(status);
}

HashElemI* HashIteratorC::removeCurrent(uint32_t& status) {
    HashElemI* old = current(status);
    if (!old) return nullptr;
    uint32_t index = listIndex;
    HashElemI* following = successor(index, old);
    table->detach(old);
    currentElement = following;
    listIndex = index;
    generation = table->currentGeneration();
    return old;
}

// ---------------------------------------------------------------------------

uint32_t hashOfBytes(const void* data, int32_t length) {
    if (length <= 0) return 0;
    const uint8_t* p = static_cast<const uint8_t*>(data);
    uint32_t left = static_cast<uint32_t>(length);
    // Each step is h = mixStep(h ^ w) ^ w, from h = 0. Carrying g = h ^ w
    // instead of h merges the XOR with the old word and the one with the new
    // word into w ^ w', which is computed beside the multiplication and so
    // stays off the chain of dependent steps: g' = mixStep(g) ^ (w ^ w').
    uint32_t word = 0;
    uint32_t g = 0;
    bool first = true;
    while (left > 4) {
        uint32_t next;
        memcpy(&next, p, 4);
        next = __builtin_bswap32(next);  // the first byte is the most significant
        g = first ? next : mixStep(g) ^ (word ^ next);
        first = false;
        word = next;
        p += 4;
        left -= 4;
    }
    uint32_t last = 0;
    for (uint32_t i = 0; i < left; ++i) last = (last << 8) | p[i];
    g = first ? last : mixStep(g) ^ (word ^ last);
    return mixStep(g) ^ last;
}

uint32_t hashOfCString(const char* text) {
    uint32_t h = 0;
    const uint8_t* p = reinterpret_cast<const uint8_t*>(text);
    for (;;) {
        uint32_t word = 0;
        unsigned taken = 0;
        while (taken < 4 && p[taken] != 0) {
            word |= uint32_t(p[taken]) << (8 * taken);
            ++taken;
        }
        if (taken == 0) return h;
        h = hashStep(h, word);
        if (taken < 4) return h;
        p += 4;
    }
}

}  // namespace keel
