// The format engine: parses a format in the library's format language and
// renders the entries of an argument list into a new string.
//
// Invariant: the engine reads the format and the list and writes only the
// string it builds; plain runs of the format are copied a word at a time.
#include "text/format.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include "text/case.h"
#include "text/stringim.h"
#include "text/utf8.h"
#include "text/utf8view.h"
#include "text/wordbits.h"

namespace keel {

namespace {
int readSystemClock(struct timeval* now) { return gettimeofday(now, nullptr); }
}  // namespace

FormatClockFn formatClock = readSystemClock;

namespace {

const char kLowerDigits[] = "0123456789abcdef";
// "00" to "99", for decimal numbers two digits at a time.
const char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";
const char kUpperDigits[] = "0123456789ABCDEF";

// Ticks of 10 ns between 0000-12-31 and 1970-01-01, and per second.
const uint64_t kUnixEpochTicks = 6213568320000000000ull;
const int64_t kTicksPerSecond = 100000000;

// digitValue with the ASCII answers inline: nothing below U+0660 but the
// ASCII digits is a digit.
inline int32_t digitOf(uint32_t c) {
    if (c - '0' < 10u) return static_cast<int32_t>(c - '0');
    if (c < 0x660) return -1;
    return digitValue(c);
}

// Reads one character of the format. At the terminating NUL it answers 0
// without moving, so a conversion cut off by the end reads 0 and the text is
// never left.
inline uint32_t nextChar(const uint8_t*& p) {
    uint32_t b = *p;
    if (b < 0x80) {
        if (b != 0) ++p;
        return b;
    }
    return utf8Next(p);
}

// A run of digits starting with `c`; `c` ends as the character behind it.
// The parser's loop, with this file's digit table and decoder.
inline int32_t readNumber(const uint8_t*& p, uint32_t& c) {
    return formatparse::readNumberWith<digitOf, nextChar>(p, c);
}

// Reals are truncated toward zero. Values outside the target range (and
// NaN) have no defined conversion in C++, so they are pinned to the nearest
// end of the range (NaN to 0); a negative real seen as unsigned wraps the
// way a negative integer does.
int64_t realToSigned(double value) {
    if (value != value) return 0;
    if (value >= 9223372036854775808.0) return INT64_MAX;
    if (value <= -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(value);
}

uint64_t realToUnsigned(double value) {
    if (value != value) return 0;
    if (value >= 18446744073709551616.0) return UINT64_MAX;
    if (value > -1.0) return value > 0 ? static_cast<uint64_t>(value) : 0;
    return static_cast<uint64_t>(realToSigned(value));
}

int32_t realTo32(double value) {
    if (value != value) return 0;
    if (value >= 2147483648.0) return INT32_MAX;
    if (value <= -2147483649.0) return INT32_MIN;
    return static_cast<int32_t>(value);
}

// Bytes that end a run of plain format text: NUL, `%` and every byte of a
// sequence of more than one byte.
struct PlainRunStopsT {
    bool stops[256];
    constexpr PlainRunStopsT() : stops() {
        for (int b = 0; b < 256; ++b) stops[b] = b == 0 || b == '%' || b >= 0x80;
    }
    constexpr bool operator[](uint32_t b) const { return stops[b]; }
};
constexpr PlainRunStopsT kStopsPlainRun;

// How many of the eight bytes (first in memory first) come before the first
// that is NUL or above 0x7F.
inline uint32_t asciiBytes(uint64_t word) {
    const uint64_t ones = kLowBits;
    const uint64_t highs = kHighBits;
    // The lowest flag is exact (a borrow only runs upward from a true zero).
    uint64_t flags = (word | ((word - ones) & ~word)) & highs;
    return flags ? static_cast<uint32_t>(__builtin_ctzll(flags)) >> 3 : 8;
}

// The same for bytes that are NUL, `%` or above 0x7F.
inline uint32_t plainBytes(uint64_t word) {
    const uint64_t ones = kLowBits;
    const uint64_t highs = kHighBits;
    uint64_t percent = word ^ (ones * '%');
    uint64_t zeroOrPercent = ((word - ones) & ~word) | ((percent - ones) & ~percent);
    uint64_t flags = (word | zeroOrPercent) & highs;
    return flags ? static_cast<uint32_t>(__builtin_ctzll(flags)) >> 3 : 8;
}

bool isLengthLetter(uint32_t c) {
    return c == 'h' || c == 'j' || c == 'l' || c == 'L' || c == 'q' || c == 'z';
}

// A sink made of a CharSinkFn and its context: one call per character.
class CallbackSinkC {
public:
    CallbackSinkC(CharSinkFn sink, void* context) : sink_(sink), context_(context) {}

    void put(uint32_t character) { sink_(context_, character); }

    // Puts the run of plain ASCII characters at `p` (anything but `%` and
    // NUL) and answers where it stopped.
    const uint8_t* putPlainRun(const uint8_t* p, const uint8_t*) {
        for (uint32_t b = *p; b < 0x80 && b != '%' && b != 0; b = *++p) sink_(context_, b);
        return p;
    }

    // Puts up to `count` characters of internal-form text, stopping at its
    // NUL. `byteEnd`, where known, is where the text's bytes end.
    void putText(const uint8_t* p, int32_t count, const uint8_t*) {
        for (; count > 0; --count) {
            uint32_t b = *p;
            if (b < 0x80) {
                if (b == 0) return;
                ++p;
                sink_(context_, b);
            } else {
                sink_(context_, utf8Next(p));
            }
        }
    }

    void pad(uint32_t filler, int32_t count) {
        for (; count > 0; --count) sink_(context_, filler);
    }

private:
    CharSinkFn sink_;
    void* context_;
};

// A sink into a FormatBytesT: characters go in as UTF-8 bytes, in blocks.
class ByteSinkC {
public:
    explicit ByteSinkC(FormatBytesT& out) : out_(out) {}

    void put(uint32_t character) {
        if (out_.used > out_.capacity - 8) flush();
        uint8_t* p = out_.buffer + out_.used;
        if (character < 0x80) {
            *p++ = static_cast<uint8_t>(character);
        } else {
            utf8Put(p, character);
        }
        out_.used = static_cast<uint32_t>(p - out_.buffer);
    }

    // The run is found first, eight bytes a step inside the format's known
    // bytes (`textEnd`), and copied in stretches that leave the 8 bytes
    // behind them that put() keeps free.
    const uint8_t* putPlainRun(const uint8_t* p, const uint8_t* textEnd) {
        const uint8_t* end = p;
        uint32_t taken = 8;
        if (textEnd) {
            while (taken == 8 && textEnd - end >= 8) {
                taken = plainBytes(load64(end));
                end += taken;
            }
        }
        if (taken == 8) {
            while (!kStopsPlainRun[*end]) ++end;
        }
        putBytes(p, static_cast<uint32_t>(end - p));
        return end;
    }

    // As CallbackSinkC::putText: ASCII runs are copied as they are (found
    // eight bytes a step inside the text's known bytes), other characters
    // go through put().
    void putText(const uint8_t* p, int32_t count, const uint8_t* byteEnd) {
        while (count > 0) {
            uint32_t taken = 0;
            if (byteEnd) {
                uint32_t word = 8;
                while (word == 8 && static_cast<uint32_t>(count) - taken >= 8 &&
                       byteEnd - (p + taken) >= 8) {
                    word = asciiBytes(load64(p + taken));
                    taken += word;
                }
            }
            while (taken < static_cast<uint32_t>(count) && p[taken] - 1u < 0x7Fu) ++taken;
            putBytes(p, taken);
            p += taken;
            count -= static_cast<int32_t>(taken);
            if (count == 0 || *p == 0) return;
            put(utf8Next(p));
            --count;
        }
    }

    void pad(uint32_t filler, int32_t count) {
        for (; count > 0; --count) put(filler);
    }

private:
    void putBytes(const uint8_t* bytes, uint32_t count) {
        while (count > 0) {
            uint32_t limit = out_.capacity - 8;
            if (out_.used >= limit) flush();
            uint32_t room = limit - out_.used;
            uint32_t stretch = count < room ? count : room;
            memcpy(out_.buffer + out_.used, bytes, stretch);
            out_.used += stretch;
            bytes += stretch;
            count -= stretch;
        }
    }

    void flush() {
        out_.flush(out_.context, out_.buffer, out_.used);
        out_.used = 0;
    }

    FormatBytesT& out_;
};

}  // namespace

// The sink of StringC::format: appends each character straight into the
// buffer of a new representation that no one else holds yet, as appendChar
// would, without a virtual call and a count update per character. The
// representation's length and count are brought up to date by `finish`.
class StringFormatSinkC {
public:
    explicit StringFormatSinkC(StringImplC* target) : target_(target), count_(0) { load(); }

    // A new representation as fromBytesNew makes it for no bytes (the empty
    // text, whose count of 0 `finish` writes), but with its first buffer of
    // `capacity` bytes at once rather than one byte that the first append
    // replaces. Up to the limit of StringImplC::make, that buffer is part of
    // the object's own block, as make places it: one allocation, not two.
    static StringImplC* newEmpty(uint32_t capacity) {
        uint32_t room = StringImplC::grownCapacity(0, capacity);
        if (room < StringImplC::kInlineLimit) {
            return new (StringImplC::InlineTextT(), room)
                StringImplC(StringImplC::InlineTextT(), room);
        }
        StringImplC* string = new StringImplC();
        string->reserve(capacity);
        string->data[0] = 0;
        string->byteLength = 0;
        return string;
    }

    void put(uint32_t character) {
        if (character < 0x80 && length_ < limit_) {
            data_[length_++] = static_cast<uint8_t>(character);
            ++count_;
            return;
        }
        putSlow(character);
    }

    // `textEnd` is the format's terminator: whole words are read only where
    // they lie in front of it.
    const uint8_t* putPlainRun(const uint8_t* p, const uint8_t* textEnd) {
        for (;;) {
            // Locals, not fields: the byte stores cannot alias them, so the
            // loop stays in registers. Room is counted once per stretch.
            uint8_t* out = data_ + length_;
            uint8_t* end = data_ + limit_;
            uint8_t* start = out;
            // Eight bytes are looked at together; the characters in front of
            // the first that ends the run are taken (bytes stored behind them
            // lie in the free room and are overwritten later).
            while (end - out >= 8 && textEnd - p >= 8) {
                uint64_t word;
                memcpy(&word, p, 8);
                uint32_t taken = plainBytes(word);
                memcpy(out, &word, 8);
                out += taken;
                p += taken;
                if (taken < 8) break;
            }
            uint32_t b;
            while (out < end && !kStopsPlainRun[b = *p]) {
                *out++ = static_cast<uint8_t>(b);
                ++p;
            }
            uint32_t done = static_cast<uint32_t>(out - start);
            count_ += static_cast<int32_t>(done);
            length_ += done;
            if (kStopsPlainRun[*p]) return p;
            // The buffer is full: the slow path grows it.
            putSlow(*p++);
        }
    }

    void putText(const uint8_t* p, int32_t count, const uint8_t* byteEnd) {
        while (count > 0) {
            uint8_t* out = data_ + length_;
            uint32_t room = limit_ - length_;
            uint32_t stretch =
                static_cast<uint32_t>(count) < room ? static_cast<uint32_t>(count) : room;
            uint8_t* end = out + stretch;
            uint8_t* start = out;
            if (byteEnd) {
                // ASCII characters eight bytes at a time inside the known
                // bytes, as in putPlainRun.
                while (end - out >= 8 && byteEnd - p >= 8) {
                    uint64_t word;
                    memcpy(&word, p, 8);
                    uint32_t taken = asciiBytes(word);
                    memcpy(out, &word, 8);
                    out += taken;
                    p += taken;
                    if (taken < 8) break;
                }
            }
            uint32_t b;
            while (out < end && (b = *p) - 1 < 0x7Fu) {
                *out++ = static_cast<uint8_t>(b);
                ++p;
            }
            uint32_t done = static_cast<uint32_t>(out - start);
            count_ += static_cast<int32_t>(done);
            length_ += done;
            count -= static_cast<int32_t>(done);
            if (count == 0 || *p == 0) return;
            putSlow(*p < 0x80 ? *p++ : utf8Next(p));
            --count;
        }
    }

    void pad(uint32_t filler, int32_t count) {
        for (; count > 0; --count) put(filler);
    }

    // Ends the text and stores length and count (the representation was
    // empty when the sink took it).
    void finish() {
        data_[length_] = 0;
        target_->byteLength = length_;
        // A plain store: the representation is new and no other thread
        // can see it yet (the caller hands it out after this), as with the
        // stores of a constructor.
        target_->charCount.initialize(count_);
    }

private:
    void load() {
        data_ = target_->data;
        length_ = target_->byteLength;
        limit_ = target_->capacity - 1;  // room for the NUL
    }

    void putSlow(uint32_t character) {
        uint32_t size = utf8EncodedLength(character);
        // A character of no encoded form (0x80000000 and above) adds nothing
        // and, as in appendChar, is not counted: a count above the text
        // would make the result's length and indexed reads answer wrong.
        if (size == 0) return;
        if (length_ + size > limit_) {
            data_[length_] = 0;
            target_->byteLength = length_;
            target_->reserve(length_ + size + 1);
            load();
        }
        uint8_t* end = data_ + length_;
        utf8Put(end, character);
        length_ = static_cast<uint32_t>(end - data_);
        ++count_;
    }

    StringImplC* target_;
    uint8_t* data_;
    uint32_t length_;
    uint32_t limit_;
    int32_t count_;
};

namespace {

// One rendering of one format: the sink, the list, the remembered errno and
// the running argument index, plus the fields of the conversion at hand.
template <typename SinkT>
class RendererM {
public:
    RendererM(SinkT& sink, const FormatEntriesT& args, int errorNumber)
        : sink_(sink), args_(args), errorNumber_(errorNumber), argIndex_(0) {}

    void run(const uint8_t* p, const uint8_t* end) {
        for (;;) {
            p = sink_.putPlainRun(p, end);
            uint32_t b = *p;
            if (b == '%') {
                ++p;
                conversion(p);
                continue;
            }
            if (b == 0) return;
            uint32_t c = utf8Next(p);
            // An overlong form of NUL reads as 0, which ends the format just
            // as the terminator does.
            if (c == 0) return;
            sink_.put(c);
        }
    }

private:
    // Reads and renders one conversion; `p` stands behind the `%`.
    void conversion(const uint8_t*& p) {
        padChar_ = ' ';
        left_ = false;
        alternate_ = false;
        sign_ = 0;
        width_ = 0;
        precision_ = -1;

        uint32_t c = nextChar(p);
        bool widthRead = false;
        // A zero right behind the % sets the filler; a number may follow.
        if (digitOf(c) == 0) {
            padChar_ = c;
            c = nextChar(p);
        }
        if (digitOf(c) >= 0) {
            int32_t number = readNumber(p, c);
            if (c == '$') {
                argIndex_ = number - 1;
                c = nextChar(p);
            } else {
                // A number not followed by `$` is the width, and no flags can
                // come behind it.
                width_ = number;
                widthRead = true;
            }
        }
        if (!widthRead) {
            for (;; c = nextChar(p)) {
                if (c == '-') {
                    left_ = true;
                } else if (c == '#') {
                    alternate_ = true;
                } else if (c == '+') {
                    sign_ = '+';
                } else if (c == ' ') {
                    if (sign_ != '+') sign_ = ' ';
                } else {
                    break;
                }
            }
            // With `left` on, a zero here belongs to the width: %-05d.
            if (!left_ && digitOf(c) == 0) {
                padChar_ = c;
                c = nextChar(p);
            }
            if (c == '*') {
                int32_t value;
                bool digitIsLetter = !starArgument(p, c, value);
                if (value < 0) {
                    left_ = true;
                    value = value == INT32_MIN ? INT32_MAX : -value;
                }
                width_ = value;
                if (digitIsLetter) return render(c);
            } else if (digitOf(c) >= 0) {
                width_ = readNumber(p, c);
            }
        }
        if (c == '.') {
            c = nextChar(p);
            if (c == '*') {
                int32_t value;
                bool digitIsLetter = !starArgument(p, c, value);
                precision_ = value < 0 ? 0 : value;
                if (digitIsLetter) return render(c);
            } else if (digitOf(c) >= 0) {
                precision_ = readNumber(p, c);
                padChar_ = ' ';
            } else {
                precision_ = 0;
            }
        }
        while (isLengthLetter(c)) c = nextChar(p);
        render(c);
    }

    // `*` or `*n$`: fetches the value through the 32-bit view. `c` ends as
    // the character behind what was used. Answers false when a digit behind
    // the `*` had no `$`: the `*` then took the next argument and the digit,
    // left in `c`, is the conversion letter.
    bool starArgument(const uint8_t*& p, uint32_t& c, int32_t& value) {
        c = nextChar(p);
        int32_t digit = digitOf(c);
        if (digit >= 0 && *p == '$') {
            ++p;
            value = formatView32(args_.get(digit - 1));
            c = nextChar(p);
            return true;
        }
        value = formatView32(takeArgument());
        return digit < 0;
    }

    const ArgEntry* takeArgument() {
        const ArgEntry* entry = args_.get(argIndex_);
        if (argIndex_ < INT32_MAX) ++argIndex_;
        return entry;
    }

    void render(uint32_t letter) {
        switch (letter) {
        case 'd':
        case 'i': {
            int64_t value = formatSignedView(takeArgument());
            uint64_t magnitude = static_cast<uint64_t>(value);
            if (value < 0) {
                magnitude = 0 - magnitude;
                sign_ = '-';
            }
            renderNumber(magnitude, 10, kLowerDigits, 0);
            return;
        }
        case 'u':
            sign_ = 0;
            renderNumber(formatUnsignedView(takeArgument()), 10, kLowerDigits, 0);
            return;
        case 'o': {
            sign_ = 0;
            uint64_t value = formatUnsignedView(takeArgument());
            renderNumber(value, 8, kLowerDigits, alternate_ && value ? '0' : 0);
            return;
        }
        case 'x':
        case 'X':
        case 'b': {
            sign_ = 0;
            uint64_t value = formatUnsignedView(takeArgument());
            uint32_t prefix = alternate_ && value ? letter : 0;
            renderNumber(value, letter == 'b' ? 2 : 16, letter == 'X' ? kUpperDigits : kLowerDigits,
                         prefix);
            return;
        }
        case 'p': {
            const ArgEntry* entry = takeArgument();
            uint64_t value = 0;
            if (entry && (entry->code() == ArgObjRef || entry->code() == ArgCharStar)) {
                value = reinterpret_cast<uintptr_t>(entry->pointer());
            }
            precision_ = 8;
            emitNumber(value, 16, kUpperDigits, 'x');
            return;
        }
        case 'c':
        case 'C':
            renderCharacter(takeArgument());
            return;
        case 's':
            renderEightBitOrString(takeArgument());
            return;
        case 'S':
            renderString(takeArgument());
            return;
        case 't':
            renderTimeEntry(takeArgument());
            return;
        case 'D':
        case 'T': {
            struct timeval now;
            formatClock(&now);
            if (letter == 'D') {
                renderTime(now.tv_sec, static_cast<int32_t>(now.tv_usec), "%Y/%m/%d", 10, 10);
            } else {
                renderTime(now.tv_sec, static_cast<int32_t>(now.tv_usec), "%H:%M:%S.", 8, 271);
            }
            return;
        }
        case '!': {
            const char* text = strerror(errorNumber_);
            if (text) {
                emitEightBit(text, "system-8");
            } else {
                int64_t value = errorNumber_;
                if (value < 0) sign_ = '-';
                renderNumber(static_cast<uint64_t>(value < 0 ? -value : value), 10, kLowerDigits,
                             0);
            }
            return;
        }
        default:
            // Any other letter prints itself; the terminator read as a letter
            // is a character that no string can show, so only the filler
            // remains.
            emitOne(letter, false);
            return;
        }
    }

    // Fixes the number of digits from width and precision, then emits.
    // `prefix` is 0, the octal '0', or the letter of a two-character prefix.
    void renderNumber(uint64_t value, uint32_t base, const char* digits, uint32_t prefix) {
        if (width_ > 0 && precision_ <= 0) {
            if (padChar_ == ' ') {
                precision_ = 1;
            } else {
                // The zero filler turns into digits.
                int32_t wanted = width_;
                if (sign_) --wanted;
                if (prefix) wanted -= prefix == '0' ? 1 : 2;
                precision_ = wanted;
            }
        }
        if (precision_ > 64) precision_ = 64;
        if (precision_ < 1) precision_ = 1;
        emitNumber(value, base, digits, prefix);
    }

    // Builds digits, zeros up to the precision, prefix and sign on the stack
    // from the low end, then emits them with blanks up to the width.
    // The characters are ASCII, so they go to the sink as one run of text.
    void emitNumber(uint64_t value, uint32_t base, const char* digits, uint32_t prefix) {
        uint8_t buffer[72];
        uint8_t* end = buffer + 72;
        uint8_t* p = end;
        if (base == 10) {
            // 64-bit division only while the high word is set.
            while (value >> 32) {
                *--p = static_cast<uint8_t>('0' + value % 10);
                value /= 10;
            }
            // Two digits a step: half the dependent divisions.
            uint32_t low = static_cast<uint32_t>(value);
            while (low >= 100) {
                uint32_t pair = low % 100;
                low /= 100;
                p -= 2;
                p[0] = kDigitPairs[2 * pair];
                p[1] = kDigitPairs[2 * pair + 1];
            }
            if (low >= 10) {
                p -= 2;
                p[0] = kDigitPairs[2 * low];
                p[1] = kDigitPairs[2 * low + 1];
            } else {
                *--p = static_cast<uint8_t>('0' + low);
            }
        } else {
            uint32_t shift = base == 16 ? 4 : base == 8 ? 3 : 1;
            uint32_t mask = base - 1;
            do {
                *--p = static_cast<uint8_t>(digits[value & mask]);
                value >>= shift;
            } while (value);
        }
        while (end - p < precision_) *--p = '0';
        if (prefix) {
            *--p = static_cast<uint8_t>(prefix);
            if (prefix != '0') *--p = '0';
        }
        if (sign_) *--p = static_cast<uint8_t>(sign_);
        int32_t count = static_cast<int32_t>(end - p);
        if (!left_) pad(' ', width_ - count);
        sink_.putText(p, count, end);
        if (left_) pad(' ', width_ - count);
    }

    void renderCharacter(const ArgEntry* entry) {
        uint32_t character = ' ';
        if (entry) {
            switch (entry->code()) {
            case ArgUnsigned32:
            case ArgUCS4:
                character = entry->read<uint32_t>();
                break;
            case ArgBool:
            case ArgInt16:
            case ArgInt32:
            case ArgInt64:
            case ArgUnsigned16:
            case ArgUnsigned64:
                character = static_cast<uint32_t>(formatView32(entry)) & 0xFF;
                break;
            default:
                break;
            }
        }
        emitOne(character, false);
    }

    void renderEightBitOrString(const ArgEntry* entry) {
        // An entry that is missing has no text to show.
        if (!entry) return emitText(reinterpret_cast<const uint8_t*>(""), 0, true);
        if (entry->code() == ArgString) return renderString(entry);
        if (entry->code() != ArgCharStar)
            return emitText(reinterpret_cast<const uint8_t*>(""), 0, true);
        const char* text = static_cast<const char*>(entry->pointer());
        emitEightBit(text ? text : "<null pointer>", "system-8");
    }

    void renderString(const ArgEntry* entry) {
        int32_t code = entry ? entry->code() : ArgNull;
        switch (code) {
        case ArgString:
            emitString(entry->string().getImpl());
            return;
        case ArgCharStar: {
            const char* text = static_cast<const char*>(entry->pointer());
            emitEightBit(text ? text : "", "utf8");
            return;
        }
        case ArgUCS4:
            emitOne(entry->read<uint32_t>(), true);
            return;
        case ArgGuid: {
            ArgGuidT guid = entry->read<ArgGuidT>();
            char text[40];
            char* out = text;
            *out++ = '{';
            out = hexDigits(out, guid.data1, 8);
            *out++ = '-';
            out = hexDigits(out, guid.data2, 4);
            *out++ = '-';
            out = hexDigits(out, guid.data3, 4);
            *out++ = '-';
            for (int i = 0; i < 8; ++i) {
                if (i == 2) *out++ = '-';
                out = hexDigits(out, guid.data4[i], 2);
            }
            *out++ = '}';
            *out = 0;
            emitText(reinterpret_cast<const uint8_t*>(text), static_cast<int32_t>(out - text),
                     true);
            return;
        }
        default:
            emitText(reinterpret_cast<const uint8_t*>(""), 0, true);
            return;
        }
    }

    static char* hexDigits(char* out, uint32_t value, int count) {
        for (int i = count - 1; i >= 0; --i) *out++ = kUpperDigits[(value >> (4 * i)) & 15];
        return out;
    }

    void renderTimeEntry(const ArgEntry* entry) {
        int64_t seconds = 0;
        int32_t microseconds = 0;
        if (entry && entry->code() == ArgDateTime) {
            // Unsigned arithmetic: a tick count far below the epoch wraps
            // silently instead of overflowing.
            int64_t ticks = static_cast<int64_t>(entry->read<uint64_t>() - kUnixEpochTicks);
            seconds = ticks / kTicksPerSecond;
            microseconds = static_cast<int32_t>((ticks % kTicksPerSecond) / 100);
        } else if (entry && entry->code() == ArgTimeVal) {
            ArgTimeValT time = entry->read<ArgTimeValT>();
            seconds = time.seconds;
            microseconds = time.microseconds;
        }
        renderTime(seconds, microseconds, "%Y/%m/%d %H:%M:%S.", 19, 271);
    }

    // Local time through strftime, cut at the precision, with as many digits
    // of the microseconds as the precision leaves room for (at most six).
    void renderTime(int64_t seconds, int32_t microseconds, const char* pattern, int32_t usual,
                    int32_t limit) {
        int32_t precision = precision_ < 0 ? usual : precision_;
        // The text must stay inside the 272 bytes of the buffer.
        if (precision > limit) precision = limit;
        precision_ = precision;

        struct tm fields;
        memset(&fields, 0, sizeof fields);
        time_t when = static_cast<time_t>(seconds);
        localtime_r(&when, &fields);
        char text[272];
        memset(text, 0, sizeof text);
        size_t produced = strftime(text, sizeof text, pattern, &fields);
        size_t end = produced < static_cast<size_t>(precision) && produced > 0
                         ? produced
                         : static_cast<size_t>(precision);
        size_t fraction = static_cast<size_t>(precision) - end;
        if (fraction > 6) fraction = 6;
        if (fraction > 0) {
            char digits[16];
            snprintf(digits, sizeof digits, "%06d", static_cast<int>(microseconds));
            memcpy(text + end, digits, fraction);
            end += fraction;
        }
        text[end] = 0;
        emitEightBit(text, "system-8");
    }

    // 8-bit text in `encoding` (a UTF-8 one). ASCII decodes to itself, so
    // only text with other bytes goes through a decoded string.
    void emitEightBit(const char* text, const char* encoding) {
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(text);
        size_t length = 0;
        while (bytes[length] != 0) {
            if (bytes[length] >= 0x80) {
                StringC decoded(text, encoding);
                emitString(decoded.getImpl());
                return;
            }
            ++length;
        }
        emitText(bytes, length > INT32_MAX ? INT32_MAX : static_cast<int32_t>(length), true,
                 bytes + length);
    }

    // A string's own internal text, read in place.
    void emitString(StringImplI* string) {
        Utf8ViewC text(string);
        // A representation without a buffer shows as empty, its end unknown.
        const uint8_t* byteEnd = text.rawBytes() ? text.data() + text.size() : nullptr;
        emitText(text.data(), width_ > 0 ? string->length() : -1, true, byteEnd);
    }

    // Internal-form text of `length` characters (-1: not counted yet), cut
    // at the precision when `cut` is set, padded with the filler. `byteEnd`,
    // where known, is where its bytes end (at or behind its first NUL).
    void emitText(const uint8_t* text, int32_t length, bool cut, const uint8_t* byteEnd = nullptr) {
        int32_t limit = cut && precision_ >= 0 ? precision_ : INT32_MAX;
        if (width_ <= 0) {
            sink_.putText(text, limit, byteEnd);
            return;
        }
        if (length < 0) length = countCharacters(text);
        int32_t shown = length < limit ? length : limit;
        if (!left_) pad(padChar_, width_ - shown);
        sink_.putText(text, shown, byteEnd);
        if (left_) pad(padChar_, width_ - shown);
    }

    // A string of one character: nothing shows for 0 or for a value that
    // has no encoded form, as for the string that such a value makes.
    void emitOne(uint32_t character, bool cut) {
        int32_t length = character == 0 || character >= 0x80000000u ? 0 : 1;
        int32_t shown = cut && precision_ >= 0 && precision_ < length ? precision_ : length;
        if (!left_) pad(padChar_, width_ - shown);
        if (shown) sink_.put(character);
        if (left_) pad(padChar_, width_ - shown);
    }

    static int32_t countCharacters(const uint8_t* p) {
        int32_t count = 0;
        while (*p != 0 && count < INT32_MAX) {
            utf8Next(p);
            ++count;
        }
        return count;
    }

    void pad(uint32_t filler, int32_t count) { sink_.pad(filler, count); }

    SinkT& sink_;
    FormatEntriesT args_;
    int errorNumber_;
    int32_t argIndex_;

    uint32_t padChar_;
    bool left_;
    bool alternate_;
    uint32_t sign_;
    int32_t width_;
    int32_t precision_;
};

}  // namespace

int32_t formatView32(const ArgEntry* entry) {
    if (!entry) return 0;
    switch (entry->code()) {
    case ArgBool:
        return entry->read<uint8_t>();
    case ArgInt16:
        return entry->read<int16_t>();
    case ArgUnsigned16:
        return entry->read<uint16_t>();
    case ArgInt32:
    case ArgUnsigned32:
    case ArgUCS4:
        return static_cast<int32_t>(entry->read<uint32_t>());
    case ArgInt64:
    case ArgUnsigned64:
        return static_cast<int32_t>(static_cast<uint32_t>(entry->read<uint64_t>()));
    case ArgReal:
        return realTo32(entry->read<double>());
    default:
        return 0;
    }
}

// The three views of an entry as a number (above, signed, unsigned) are alike
// in shape on purpose: each is the table of one reading, and they differ in
// the width and sign at which each kind of entry is read.
int64_t formatSignedView(const ArgEntry* entry) {
    if (!entry) return 0;
    switch (entry->code()) {
    case ArgBool:
        return entry->read<uint8_t>();
    case ArgInt16:
    case ArgUnsigned16:
        return entry->read<int16_t>();
    case ArgInt32:
    case ArgUnsigned32:
        return entry->read<int32_t>();
    case ArgInt64:
    case ArgUnsigned64:
        return entry->read<int64_t>();
    case ArgReal:
        return realToSigned(entry->read<double>());
    case ArgUCS4:
        return entry->read<uint32_t>();
    default:
        return 0;
    }
}

uint64_t formatUnsignedView(const ArgEntry* entry) {
    if (!entry) return 0;
    switch (entry->code()) {
    case ArgBool:
        return entry->read<uint8_t>();
    case ArgInt16:
    case ArgUnsigned16:
        return entry->read<uint16_t>();
    case ArgInt32:
    case ArgUnsigned32:
    case ArgUCS4:
        return entry->read<uint32_t>();
    case ArgInt64:
    case ArgUnsigned64:
        return entry->read<uint64_t>();
    case ArgReal:
        return realToUnsigned(entry->read<double>());
    default:
        return 0;
    }
}

void renderFormat(CharSinkFn sink, void* context, StringImplI* format, const ArgListC& args) {
    // Taken first: %! shows the error of the caller, whatever rendering
    // does to errno on the way.
    int errorNumber = errno;
    {
        Utf8ViewC text(format);
        if (text.rawBytes()) {
            CallbackSinkC target(sink, context);
            RendererM<CallbackSinkC> renderer(target, formatEntriesOf(args), errorNumber);
            renderer.run(text.data(), nullptr);
        }
    }
    errno = errorNumber;
}

void renderFormatToBytes(FormatBytesT& out, const uint8_t* format, const ArgListC& args) {
    renderFormatToBytes(out, format, strlen(reinterpret_cast<const char*>(format)), args);
}

void renderFormatToBytes(FormatBytesT& out, const uint8_t* format, size_t length,
                         const ArgListC& args) {
    int errorNumber = errno;
    {
        ByteSinkC target(out);
        RendererM<ByteSinkC> renderer(target, formatEntriesOf(args), errorNumber);
        renderer.run(format, format + length);
    }
    errno = errorNumber;
}

namespace {

// `bytes` (null: no text) with its `length` up to its NUL; `errorNumber` is
// the errno that %! shows. Inlined into both callers: as a call of its own
// it made StringC::format of a short message measurably slower.
__attribute__((always_inline)) inline StringImplC* renderBytesToNew(const uint8_t* bytes,
                                                                    size_t length,
                                                                    const FormatEntriesT& args,
                                                                    int errorNumber) {
    // Room for the format's own text and a little more is made at once;
    // most messages then need no second buffer.
    uint32_t room = static_cast<uint32_t>(length < 0x7FFFFF00u ? length : 0) + 64;
    StringImplC* result = StringFormatSinkC::newEmpty(room);
    StringFormatSinkC target(result);
    if (bytes) {
        RendererM<StringFormatSinkC> renderer(target, args, errorNumber);
        renderer.run(bytes, bytes + length);
    }
    target.finish();
    return result;
}

}  // namespace

StringImplI* renderFormatToNew(StringImplI* format, const ArgListC& args) {
    int errorNumber = errno;
    StringImplC* result;
    {
        Utf8ViewC text(format);
        const uint8_t* bytes = text.rawBytes();
        size_t length = bytes ? strlen(text.chars()) : 0;
        result = renderBytesToNew(bytes, length, formatEntriesOf(args), errorNumber);
    }
    errno = errorNumber;
    return result;
}

StringImplI* renderFormatBytesToNew(const uint8_t* format, const FormatEntriesT& args) {
    return renderFormatBytesToNew(format, strlen(reinterpret_cast<const char*>(format)), args);
}

StringImplI* renderFormatBytesToNew(const uint8_t* format, size_t length,
                                    const FormatEntriesT& args) {
    int errorNumber = errno;
    StringImplC* result = renderBytesToNew(format, length, args, errorNumber);
    errno = errorNumber;
    return result;
}

}  // namespace keel
