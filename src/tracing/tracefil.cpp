#include "tracing/tracefil.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <keel/format.h>

#include <keel/strdup.h>
#include "locale/datetime.h"
#include "text/format.h"
#include "text/utf8.h"
#include "text/utf8view.h"
#include "text/wordbits.h"
#include "tracing/tracecim.h"

namespace keel {

namespace {

const uint32_t kAttempts = 100;

// 0xE0000000 with the low 16 bits of errno; never 0, so that the controller
// drops a consumer whose file cannot be had even when errno was left at 0.
uint32_t systemCode(int error) { return 0xE0000000u | (static_cast<uint32_t>(error) & 0xFFFFu); }

// Seconds and four decimals of a tick count, as "%lu.%04lu" prints them with
// the 32-bit unsigned long of the i386 target, on both targets alike.
char* putSeconds(char* p, int64_t ticks, uint64_t perSecond) {
    int64_t rate = static_cast<int64_t>(perSecond);
    uint32_t whole = static_cast<uint32_t>(ticks / rate);
    uint32_t decimals = static_cast<uint32_t>(((ticks % rate) * 10000) / rate);
    p += sprintf(p, "%u.%04u", whole, decimals);
    return p;
}

// Hands a block of the rendered message to the stream.
void writeBlock(void* stream, const uint8_t* bytes, uint32_t count) {
    fwrite(bytes, 1, count, static_cast<FILE*>(stream));
}

}  // namespace

TraceConsumerFileC::TraceConsumerFileC(TraceControllerI* controller_)
    : controller(controller_),
      stream(nullptr),
      filename(duplicateText("/tmp/%p%t.trc")),
      timeOfDay(0),
      timestamp(0),
      timeDeltas(0),
      traceCounters(0),
      traceTimers(0),
      showClass(0),
      firstTick(0),
      lastTick(0),
      ticksPerSecond(0),
      flushFrequency(1),
      linesUnflushed(0),
      maxIndent(16),
      maxDetail(9),
      showProcess(0),
      showThreads(0),
      patterns(nullptr),
      patternCount(0),
      patternCapacity(0) {}

TraceConsumerFileC::~TraceConsumerFileC() {
    closeStream();
    delete[] filename;
    // The texts of the patterns go with their array: a consumer made and
    // deleted again (as a test or a program's own may be) leaks nothing.
    for (uint32_t i = 0; i < patternCount; ++i) delete[] patterns[i];
    free(patterns);
}

void TraceConsumerFileC::closeStream() {
    if (stream) fclose(stream);
    stream = nullptr;
}

void TraceConsumerFileC::expandName(const char* pattern, uint32_t attempt, char* out,
                                    bool* exclusive) {
    expandTraceFileName(pattern, attempt, out, exclusive);
}

uint32_t TraceConsumerFileC::open() {
    char name[kTraceNameBuffer];
    int lastError = 0;
    for (uint32_t attempt = 0; attempt < kAttempts; ++attempt) {
        bool exclusive = false;
        expandName(filename, attempt, name, &exclusive);
        struct stat before;
        bool existed = lstat(name, &before) == 0;
        if (existed) {
            // A link, a directory or a device planted under the name, or a
            // file that somebody else owns: nothing of theirs is written to.
            if (S_ISLNK(before.st_mode)) return systemCode(ELOOP);
            if (!S_ISREG(before.st_mode))
                return systemCode(S_ISDIR(before.st_mode) ? EISDIR : EINVAL);
            if (before.st_uid != geteuid()) return systemCode(EPERM);
        }
        // O_NOFOLLOW: a link planted after the lstat is refused by the open
        // itself, also where lstat found nothing and there is no record to
        // compare with.
        int flags =
            O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC | (exclusive ? O_EXCL : 0);
        int fd = ::open(name, flags, 0644);
        if (fd < 0) {
            lastError = errno;
            continue;
        }
        struct stat after;
        if (fstat(fd, &after) != 0 || !S_ISREG(after.st_mode) || after.st_uid != geteuid() ||
            (existed && (after.st_dev != before.st_dev || after.st_ino != before.st_ino ||
                         after.st_mode != before.st_mode || after.st_size != before.st_size))) {
            // Swapped between the two looks.
            ::close(fd);
            return systemCode(EAGAIN);
        }
        stream = fdopen(fd, "w");
        if (!stream) {
            int error = errno;
            ::close(fd);
            return systemCode(error);
        }
        return 0;
    }
    return systemCode(lastError);
}

uint32_t TraceConsumerFileC::write(const char* path, int32_t indent, const char* format,
                                   ArgListC args) {
    if (!stream) {
        uint32_t code = open();
        if (code != 0) return code;
    }
    // The prefix is at most a stamp, a delta, a process, a thread and the
    // blanks of punctuation: 160 bytes hold it; the path goes separately.
    char prefix[192];
    char* p = prefix;
    bool prefixed = timestamp || timeDeltas || showProcess || showThreads;
    bool classShown = false;
    if (prefixed) {
        int64_t now = 0;
        controller->getTime(&now);
        if (ticksPerSecond == 0) controller->getTicksPerSecond(&ticksPerSecond);
        if (firstTick == 0) firstTick = now;
        int64_t relative = now - firstTick;
        bool written = false;
        if (timestamp && ticksPerSecond != 0) {
            if (timeOfDay) {
                struct timeval clock;
                gettimeofday(&clock, nullptr);
                DateTimeC stamp(
                    (static_cast<int64_t>(clock.tv_sec) + DateTimeC::kUnixEpochSeconds) *
                            DateTimeC::kTicksPerSecond +
                        static_cast<int64_t>(clock.tv_usec) * 100,
                    false);
                StringC text = stamp.toLocal().format(43);
                Utf8ViewC bytes(text);
                size_t length = bytes.size();
                if (length > 64) length = 64;
                memcpy(p, bytes.data(), length);
                p += length;
            } else if (ticksPerSecond != 0) {
                p = putSeconds(p, relative, ticksPerSecond);
            }
            written = true;
        }
        if (timeDeltas) {
            if (ticksPerSecond == 0) controller->getTicksPerSecond(&ticksPerSecond);
            if (timestamp) {
                if (written) *p++ = ' ';
                *p++ = '(';
            }
            *p++ = '+';
            if (ticksPerSecond != 0) {
                p = putSeconds(p, relative - lastTick, ticksPerSecond);
            }
            if (timestamp) *p++ = ')';
            written = true;
        }
        if (showProcess) {
            p += sprintf(p, "%spid %lu", written ? ", " : "", static_cast<unsigned long>(getpid()));
            written = true;
        }
        if (showThreads) {
            p += sprintf(p, "%sthread 0x%lx", written ? ", " : "",
                         static_cast<unsigned long>(pthread_self()));
            written = true;
        }
        lastTick = relative;
        classShown = showClass != 0;
        if (!classShown && written) {
            *p++ = ':';
            *p++ = ' ';
        }
    }
    if (p != prefix) fwrite(prefix, 1, static_cast<size_t>(p - prefix), stream);
    if (classShown) {
        // "(path): " behind a blank, the path as it came, prefix included.
        fputs(p == prefix ? "(" : " (", stream);
        fputs(path ? path : "", stream);
        fputs("): ", stream);
    }
    int32_t blanks = indent;
    if (maxIndent > 0) blanks = indent % maxIndent;
    static const char kBlanks[] =
        "                                                                ";
    while (blanks > 0) {
        int32_t part = blanks < 64 ? blanks : 64;
        fwrite(kBlanks, 1, static_cast<size_t>(part), stream);
        blanks -= part;
    }
    // The message goes from the renderer to the stream in blocks, in the
    // bytes that its string's "utf8" text would hold, without that string.
    // The format is decoded as "system-8" into a string only when it has
    // bytes outside ASCII; an ASCII format is its own internal form.
    uint8_t buffer[512];
    FormatBytesT out = {buffer, sizeof buffer, 0, writeBlock, stream};
    if (!format) format = "";
    size_t length = strlen(format);
    if (allAscii(reinterpret_cast<const uint8_t*>(format), length)) {
        renderFormatToBytes(out, reinterpret_cast<const uint8_t*>(format), length, args);
    } else {
        StringC decoded(format, "system-8");
        Utf8ViewC text(decoded);
        if (text.rawBytes()) renderFormatToBytes(out, text.data(), args);
    }
    // The renderer leaves room for the line feed.
    buffer[out.used++] = '\n';
    fwrite(buffer, 1, out.used, stream);
    // A frequency of 0 or below flushes every line, as 1 does.
    if (++linesUnflushed >= flushFrequency) {
        fflush(stream);
        linesUnflushed = 0;
    }
    return 0;
}

uint32_t TraceConsumerFileC::writeFormat(const char* path, int32_t indent, const char* format,
                                         ...) {
    va_list arguments;
    va_start(arguments, format);
    ArgListC args = argListFromText(format, arguments);
    va_end(arguments);
    return write(path, indent, format, args);
}

uint32_t TraceConsumerFileC::valueChanged(const char* path, int32_t indent) {
    if (!traceTimers && !traceCounters) return 0;
    TraceValuesT* values = nullptr;
    if (controller->getVariable(path, &values) != 0 || !values) return 0;
    if (values->total == 0) {
        if (traceCounters)
            writeFormat(path, indent, "counter %s now %ld", path,
                        static_cast<int>(values->counter));
        return 0;
    }
    if (!traceTimers) return 0;
    if (ticksPerSecond == 0) controller->getTicksPerSecond(&ticksPerSecond);
    if (ticksPerSecond == 0) return 0;
    int64_t rate = static_cast<int64_t>(ticksPerSecond);
    // "%ld" takes 32 bits in the format language, as long is on i386.
    writeFormat(path, indent, "timer %s interval %ld, total %ld.%06ld", path,
                static_cast<int>(values->counter), static_cast<int>(values->total / rate),
                static_cast<int>(values->total % rate));
    return 0;
}

uint32_t TraceConsumerFileC::variableCreated(const char* path) {
    if (patternCount == 0 || !path || !*path) return 0;
    const char* name = skipTracePrefix(path);
    for (uint32_t i = 0; i < patternCount; ++i) {
        size_t length = strlen(patterns[i]);
        for (const char* component = name;;) {
            const char* end = strchr(component, '/');
            size_t size = end ? static_cast<size_t>(end - component) : strlen(component);
            if (size == length && memcmp(component, patterns[i], length) == 0) {
                controller->enablePath(this, name);
                return 0;
            }
            if (!end) break;
            component = end + 1;
        }
    }
    return 0;
}

uint32_t TraceConsumerFileC::setOption(const char* key, const char* value) {
    if (!key) return kTraceUnknownKey;
    if (!value) value = "";
    TraceOptionE which = traceOptionKey(key);
    if (which == kTraceOptionUnknown) return kTraceUnknownKey;
    if (which == kTraceOptionFilename) return setFilename(value);
    int32_t v = 0;
    if (!traceOptionNumber(value, &v)) return 0;
    uint8_t low = static_cast<uint8_t>(v);
    switch (which) {
    case kTraceOptionTimeOfDay:
        if (v == 1) {
            timeOfDay = 1;
            setTimestamp(1);
        } else {
            timeOfDay = 0;
        }
        break;
    case kTraceOptionTimestamp:
        setTimestamp(low);
        break;
    case kTraceOptionTimeDeltas:
        setTimeDeltas(low);
        break;
    case kTraceOptionTraceTimers:
        setTraceTimers(low);
        break;
    case kTraceOptionTraceCounters:
        setTraceCounters(low);
        break;
    case kTraceOptionFlushFrequency:
        setFlushFrequency(v);
        break;
    case kTraceOptionMaxIndent:
        setMaxIndent(v);
        break;
    case kTraceOptionMaxDetail:
        setMaxDetail(v);
        break;
    case kTraceOptionShowProcess:
        setShowProcess(low);
        break;
    case kTraceOptionShowThreads:
        setShowThreads(low);
        break;
    default:  // kTraceOptionShowClass
        showClass = v == 1 ? 1 : 0;
        break;
    }
    return 0;
}

// The setters below share one shape on purpose: each stores one setting of
// the interface and answers 0; the file is reopened only for a new name.
uint32_t TraceConsumerFileC::setTimestamp(uint8_t on) {
    timestamp = on;
    return 0;
}

uint32_t TraceConsumerFileC::setTimeDeltas(uint8_t on) {
    timeDeltas = on;
    return 0;
}

uint32_t TraceConsumerFileC::setTraceTimers(uint8_t on) {
    traceTimers = on;
    return 0;
}

uint32_t TraceConsumerFileC::setTraceCounters(uint8_t on) {
    traceCounters = on;
    return 0;
}

uint32_t TraceConsumerFileC::setFilename(const char* pattern) {
    char* copy = duplicateText(pattern ? pattern : "");
    delete[] filename;
    filename = copy;
    closeStream();
    return 0;
}

uint32_t TraceConsumerFileC::setFlushFrequency(int32_t lines) {
    flushFrequency = lines;
    return 0;
}

uint32_t TraceConsumerFileC::setMaxIndent(int32_t blanks) {
    maxIndent = blanks;
    return 0;
}

uint32_t TraceConsumerFileC::setMaxDetail(int32_t level) {
    maxDetail = level;
    return 0;
}

uint32_t TraceConsumerFileC::readControlFile(const char* path) {
    return readTraceControlFile(
        path,
        [](void* self, const TraceControlLineT& line) {
            static_cast<TraceConsumerFileC*>(self)->controlLine(line);
        },
        this);
}

void TraceConsumerFileC::controlLine(const TraceControlLineT& line) {
    switch (line.kind) {
    case TraceControlLineT::Disable:
        controller->disablePath(this, line.text);
        return;
    case TraceControlLineT::Enable:
        controller->enablePath(this, line.text);
        return;
    case TraceControlLineT::Option:
        setOption(line.text, line.value);
        return;
    case TraceControlLineT::Pattern:
        break;
    case TraceControlLineT::Empty:
        return;
    }
    if (patternCount == patternCapacity) {
        uint32_t capacity = patternCapacity ? patternCapacity * 2 : 8;
        char** grown = static_cast<char**>(realloc(patterns, capacity * sizeof(char*)));
        if (!grown) return;
        patterns = grown;
        patternCapacity = capacity;
    }
    patterns[patternCount++] = duplicateText(line.text);
}

}  // namespace keel
