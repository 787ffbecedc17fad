// LocalArgumentsC: entries of a variadic call in a block on the stack.
//
// Invariants: slots_[0..count_) point into room_, each at a multiple of 8,
// laid out as ArgEntry::allocate lays out its blocks (the code, then the
// value one pointer width behind it); a "String" entry holds a constructed
// StringC that the destructor destroys; a "CharStar" entry holds the
// caller's pointer (or the empty text for null), never a copy to free.
#include "text/format_local.h"

#include <string.h>

#include <new>

namespace keel {

LocalArgumentsC::~LocalArgumentsC() {
    for (int32_t i = 0; i < count_; ++i) {
        if (slots_[i]->code() == ArgString) static_cast<StringC*>(slots_[i]->value())->~StringC();
    }
}

ArgEntry* LocalArgumentsC::allocate(int32_t code, size_t valueSize) {
    size_t size = (ArgEntry::valueOffset + valueSize + 7) & ~static_cast<size_t>(7);
    if (full_ || count_ >= kSlots || size > kRoom - used_) {
        full_ = true;
        return nullptr;
    }
    void* block = room_ + used_;
    used_ += static_cast<uint32_t>(size);
    memcpy(block, &code, sizeof code);
    ArgEntry* entry = static_cast<ArgEntry*>(block);
    slots_[count_++] = entry;
    return entry;
}

void LocalArgumentsC::add(const StringC& value) {
    if (ArgEntry* entry = allocate(ArgString, sizeof(StringC))) new (entry->value()) StringC(value);
}

void LocalArgumentsC::add(const char* text) {
    // A list copies at most 16 MiB of the text: a longer one does not fit
    // here, so that the caller's list cuts it as before.
    if (text && strnlen(text, 0x1000000) >= 0x1000000) {
        full_ = true;
        return;
    }
    const char* shown = text ? text : "";
    if (ArgEntry* entry = allocate(ArgCharStar, sizeof shown))
        memcpy(entry->value(), &shown, sizeof shown);
}

bool LocalArgumentsC::take(const char* format, va_list arguments) {
    formatparse::PositionTableT table;
    if (format) formatparse::scanFormat(table, reinterpret_cast<const uint8_t*>(format));
    if (table.top >= kSlots) return false;
    formatparse::takeArgumentsInto(table, arguments, *this);
    return !full_;
}

}  // namespace keel
