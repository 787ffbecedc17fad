// The representations beside the ordinary one: the static strings (never
// counted, never freed), the empty strings (no buffer, every search fails),
// and the secure strings, whose buffers are wiped before they are freed.
//
// Invariant: each changes only what makes it different; storage, the cursor
// and the reading operations are StringImplC's own (stringim.cpp).
#include "text/stringim.h"

#include <string.h>

#include <algorithm>

#include <keel/atomic.h>

#include "text/case.h"
#include "text/textencoding.h"
#include "text/utf8.h"
#include "text/utf8scan.h"
#include "text/utf8view.h"

namespace keel {

namespace {

bool isUtf8(const char* encoding) { return encoding && encodingNamesEqual(encoding, "utf8"); }

uint32_t utf8LengthOf(StringImplI* string) { return string->textLength("utf8"); }

}  // namespace

// --- StaticStringImplC -------------------------------------------------------

int32_t StaticStringImplC::addRef() { return 1; }

int32_t StaticStringImplC::release() { return 1; }

bool StaticStringImplC::isShared() { return true; }

// --- EmptyStringImplC --------------------------------------------------------

EmptyStringImplC::EmptyStringImplC() { store(nullptr, 0, "utf8"); }

int32_t EmptyStringImplC::length() { return 0; }

bool EmptyStringImplC::isEmpty() { return true; }

int EmptyStringImplC::compare(StringImplI* other) { return other->isEmpty() ? 0 : -1; }

int EmptyStringImplC::compareNatural(StringImplI* other, bool) { return other->isEmpty() ? 0 : -1; }

int EmptyStringImplC::compareNoCase(StringImplI* other) { return other->isEmpty() ? 0 : -1; }

int32_t EmptyStringImplC::findChar(uint32_t, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastChar(uint32_t, int32_t) { return -1; }

int32_t EmptyStringImplC::findString(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastString(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findFirstOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findFirstNotOf(StringImplI*, int32_t) { return -1; }

int32_t EmptyStringImplC::findLastNotOf(StringImplI*, int32_t) { return -1; }

uint32_t EmptyStringImplC::charAt(int32_t) { return 0; }

uint32_t EmptyStringImplC::textLength(const char*) { return 0; }

StringImplI* EmptyStringImplC::substring(int32_t, int32_t) { return this; }

// --- SecureStringImplC -------------------------------------------------------

namespace {
SecureStringImplC::WipeHookFn wipeHook = nullptr;
}

void SecureStringImplC::setWipeHook(WipeHookFn hook) { atomicStoreRelease(&wipeHook, hook); }

// A volatile store per byte, so that the compiler cannot drop the writes to
// memory that is about to be freed.
void SecureStringImplC::wipe(void* buffer, uint32_t bytes) {
    if (!buffer) return;
    volatile uint8_t* p = static_cast<volatile uint8_t*>(buffer);
    for (uint32_t i = 0; i < bytes; ++i) p[i] = 0;
    WipeHookFn hook = atomicLoadAcquire(&wipeHook);
    if (hook) hook(buffer, bytes);
}

SecureStringImplC::SecureStringImplC(const void* bytes, uint32_t byteCount, const char* encoding) {
    store(bytes, byteCount, encoding);
}

SecureStringImplC::SecureStringImplC(StringImplI* first, StringImplI* second) {
    storeJoined(first, second);
}

SecureStringImplC::SecureStringImplC(StringImplI* other) {
    uint32_t length = utf8LengthOf(other);
    Utf8ViewC otherText(other);
    reserve(length + 1);
    if (length) memcpy(data, otherText.data(), length);
    data[length] = 0;
    byteLength = length;
    charCount = other->length();
}

SecureStringImplC::~SecureStringImplC() {
    wipe(data, byteLength);
    // ~StringImplC frees the wiped buffer.
}

void SecureStringImplC::reset() {
    wipe(data, byteLength);
    StringImplC::reset();
}

void SecureStringImplC::reserve(uint32_t wanted) {
    if (capacity >= wanted) return;
    capacity = grownCapacity(capacity, wanted);
    uint8_t* grown = new uint8_t[capacity];
    if (data) {
        memcpy(grown, data, byteLength + 1);
        wipe(data, byteLength);
        delete[] data;
    } else {
        grown[0] = 0;
    }
    data = grown;
}

void SecureStringImplC::releaseText(void* text, const char* encoding) {
    if (!text || isUtf8(encoding)) return;
    // The encoded terminator is not wiped: it is no secret.
    wipe(text, textLength(encoding));
    delete[] static_cast<uint8_t*>(text);
}

}  // namespace keel
