// The format engine's renderer: turns a format string and an ArgListC into
// characters, one at a time, through a CharSinkFn. The string factory calls
// it for StringC::format and StringC::formatTo; the parser that builds lists
// from variadic calls (ArgListC::fromFormat) is inline in <keel/format.h>.
//
//     renderFormat(appendToString, result, format.getImpl(), args);
//
// The renderer never fails: a letter it does not know prints itself, and a
// missing or mismatched argument renders as empty text or 0.
#ifndef KEEL_TEXT_FORMAT_H
#define KEEL_TEXT_FORMAT_H

#include <stdint.h>
#include <sys/time.h>

#include <keel/arglist.h>
#include <keel/string.h>

namespace keel {

// Renders `format` with `args`, one character at a time into `sink`. The
// value of errno on entry is what %! shows.
void renderFormat(CharSinkFn sink, void* context, StringImplI* format, const ArgListC& args);

// The same into a new representation of this library's own class (count 0),
// as the factory's format makes it: each character goes straight into the
// new buffer, with the outcome of one appendChar per character.
StringImplI* renderFormatToNew(StringImplI* format, const ArgListC& args);

// The entries that a rendering reads, by position: a list's own array, or
// one that code rendering at once made on its stack (ArgListStackBodyC). Reads
// answer as ArgListC::get does.
struct FormatEntriesT {
    ArgEntry* const* entries;
    int32_t count;

    const ArgEntry* get(int32_t index) const {
        return index >= 0 && index < count ? entries[index] : nullptr;
    }
};

inline FormatEntriesT formatEntriesOf(const ArgListC::ArgListImplC& body) {
    FormatEntriesT view = {body.entries, body.count};
    return view;
}
inline FormatEntriesT formatEntriesOf(const ArgListC& args) {
    ArgListC::ArgListImplC* body = args.getImpl();
    if (!body) return FormatEntriesT{nullptr, 0};
    return formatEntriesOf(*body);
}

// renderFormatToNew with the format given as internal-form text (for
// ASCII, the bytes themselves), as the library's factory renders a string
// of its own that holds that text.
StringImplI* renderFormatBytesToNew(const uint8_t* format, const FormatEntriesT& args);
// The same for a format whose length up to its NUL (strlen) is known.
StringImplI* renderFormatBytesToNew(const uint8_t* format, size_t length,
                                    const FormatEntriesT& args);

// A buffer that renderFormatToBytes fills with the UTF-8 bytes of the
// rendered characters (the bytes of the "utf8" text of the string that
// StringC::format would make). Whenever fewer than 8 bytes are left before
// a character, `flush` is handed the bytes so far and `used` starts again
// from 0; so after rendering at least 2 bytes are left. `capacity` must be
// at least 16.
struct FormatBytesT {
    uint8_t* buffer;
    uint32_t capacity;
    uint32_t used;
    void (*flush)(void* context, const uint8_t* bytes, uint32_t count);
    void* context;
};

// renderFormat with the format given as internal-form text (for ASCII, the
// bytes themselves), rendering into `out` without a call per character.
void renderFormatToBytes(FormatBytesT& out, const uint8_t* format, const ArgListC& args);
// The same for a format whose length up to its NUL (strlen) is known.
void renderFormatToBytes(FormatBytesT& out, const uint8_t* format, size_t length,
                         const ArgListC& args);

// The views of an entry that conversions use, for the renderer and its
// tests. A null entry counts as 0.
int32_t formatView32(const ArgEntry* entry);         // widths and precisions from `*`
int64_t formatSignedView(const ArgEntry* entry);     // %d %i
uint64_t formatUnsignedView(const ArgEntry* entry);  // %u %o %x %X %b

// The clock that %D and %T read: gettimeofday unless a test has put a fixed
// instant in its place, so that what they render can be checked exactly
// instead of against the wall clock. Not meant to be set outside tests, and
// not while another thread formats.
typedef int (*FormatClockFn)(struct timeval* now);
extern FormatClockFn formatClock;

}  // namespace keel

#endif
