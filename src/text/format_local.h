// LocalArgumentsC: the arguments of a variadic call as the entries that
// ArgListC::fromFormat makes of them, held in a block of the caller's stack
// for a rendering that happens at once and keeps nothing.
//
//     LocalArgumentsC local;
//     va_list copy; va_copy(copy, arguments);
//     bool fits = local.take(format, copy);     // or take(format, strlen(format), copy)
//     va_end(copy);
//     if (fits) renderFormatBytesToNew(text, local.entries());
//
// A list costs a body, an array of entries, a block per entry and a copy of
// every %s text on the heap; here none of them is made. The entries hold the
// same codes and values, but a %s entry points at the caller's text instead
// of a copy of it: nothing here outlives the call that passed the text.
#ifndef KEEL_TEXT_FORMAT_LOCAL_H
#define KEEL_TEXT_FORMAT_LOCAL_H

#include <stdarg.h>
#include <stdint.h>
#include <string.h>

#include <keel/arglist.h>

#include "text/format.h"

namespace keel {

// formatparse::scanFormat for a format of `length` bytes up to its NUL
// (strlen): the same table, with the `%` signs looked for eight bytes at a
// time.
void scanFormatOfLength(formatparse::PositionTableT& table, const uint8_t* format, size_t length);
// The same table for top and slots (not `next`), answered from a small table
// of the calling thread when the same bytes at the same place were scanned
// lately.
void scanFormatRemembered(formatparse::PositionTableT& table, const uint8_t* format, size_t length);

class LocalArgumentsC {
public:
    LocalArgumentsC() : count_(0), used_(0), full_(false), strings_(false) {}
    ~LocalArgumentsC();
    LocalArgumentsC(const LocalArgumentsC&) = delete;
    LocalArgumentsC& operator=(const LocalArgumentsC&) = delete;

    // Takes the arguments that the 8-bit `format` names from `arguments`
    // (which it consumes). False when they do not fit here: more than 16
    // positions, or a %s text of 16 MiB or more (which a list would cut);
    // the caller then makes a list from a copy of its own va_list.
    bool take(const char* format, va_list arguments);
    // The same for a format of `length` bytes up to its NUL (strlen),
    // scanned by scanFormatRemembered.
    bool take(const char* format, size_t length, va_list arguments);

    FormatEntriesT entries() const {
        FormatEntriesT view = {slots_, count_};
        return view;
    }

    // The add forms of ArgListC that takeArgumentsInto uses.
    void add(int16_t value) { addValue(ArgInt16, value); }
    void add(int32_t value) { addValue(ArgInt32, value); }
    void add(int64_t value) { addValue(ArgInt64, value); }
    void add(uint16_t value) { addValue(ArgUnsigned16, value); }
    void add(uint32_t value) { addValue(ArgUnsigned32, value); }
    void add(uint64_t value) { addValue(ArgUnsigned64, value); }
    void addUCS4(uint32_t character) { addValue(ArgUCS4, character); }
    void add(const StringC& value);
    void add(const char* text);
    void add(const void* object) { addValue(ArgObjRef, object); }
    void add(const ArgTimeValT& time) { addValue(ArgTimeVal, time); }

private:
    enum { kSlots = 16, kRoom = kSlots * 24 };

    // A block for an entry of `code` with `valueSize` bytes of value, laid
    // out as ArgEntry::allocate lays it out; null (and full_) when the room
    // is used up.
    ArgEntry* allocate(int32_t code, size_t valueSize) {
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
    template <typename T>
    void addValue(int32_t code, const T& value) {
        if (ArgEntry* entry = allocate(code, sizeof(T))) memcpy(entry->value(), &value, sizeof(T));
    }

    ArgEntry* slots_[kSlots];
    int32_t count_;
    uint32_t used_;
    bool full_;
    bool strings_;  // a "String" entry was made: the destructor has work
    alignas(8) unsigned char room_[kRoom];
};

}  // namespace keel

#endif
