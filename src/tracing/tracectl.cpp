// The trace control file without a tracer: the line parser, the option keys
// and values, and the expansion of the trace file name. Stateless, so it is a
// toolkit unit as well; the file consumer (tracefil) and the command-line
// tool both read control files through it. Lines are cut and trimmed in
// place; nothing here allocates.
#include <keel/tracectl.h>

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>
#include <unistd.h>

namespace keel {

namespace {

// In the order of TraceOptionE.
const char* const kOptionNames[] = {"filename",     "timeofday",      "timestamp",    "timedeltas",
                                    "trace_timers", "trace_counters", "flush_freq",   "max_indent",
                                    "max_detail",   "show_process",   "show_threads", "show_class"};
const int32_t kOptionCount = static_cast<int32_t>(sizeof kOptionNames / sizeof kOptionNames[0]);

// Appends to a bounded name buffer; whatever does not fit is dropped.
struct NameSinkT {
    char* out;
    uint32_t used;
    void put(char c) {
        if (used < kTraceNameBuffer - 1) out[used++] = c;
    }
    void put(const char* text) {
        while (*text) put(*text++);
    }
};

// Expands one sequence letter (after "%" or "%_").
void expandLetter(NameSinkT& sink, char letter, uint32_t attempt, bool* exclusive) {
    char number[32];
    switch (letter) {
    case 'p':
        snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(getpid()));
        sink.put(number);
        return;
    case 'd':
    case 't': {
        time_t now = time(nullptr);
        struct tm local;
        memset(&local, 0, sizeof local);
        localtime_r(&now, &local);
        if (letter == 'd') {
            snprintf(number, sizeof number, "%04d%02d%02d", local.tm_year + 1900, local.tm_mon + 1,
                     local.tm_mday);
        } else {
            snprintf(number, sizeof number, "%02d%02d%02d", local.tm_hour, local.tm_min,
                     local.tm_sec);
        }
        sink.put(number);
        return;
    }
    case 'u':
        *exclusive = true;
        if (attempt != 0) {
            snprintf(number, sizeof number, "%u", attempt);
            sink.put(number);
        }
        return;
    default:
        sink.put(letter);
        return;
    }
}

bool isBlank(char c) { return isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

TraceOptionE traceOptionKey(const char* key) {
    if (!key) return kTraceOptionUnknown;
    for (int32_t i = 0; i < kOptionCount; ++i) {
        if (strcasecmp(key, kOptionNames[i]) == 0) return static_cast<TraceOptionE>(i);
    }
    return kTraceOptionUnknown;
}

const char* traceOptionName(TraceOptionE option) {
    return option >= 0 && option < kOptionCount ? kOptionNames[option] : "";
}

bool traceOptionNumber(const char* value, int32_t* number) {
    char c = value ? value[0] : 0;
    if (c >= '0' && c <= '9') {
        // atoi as the C library has it on each target, without its undefined
        // case: an overlong number clamps in `long` and is cut to 32 bits.
        *number = static_cast<int32_t>(strtol(value, nullptr, 10));
        return true;
    }
    if (c == 'F' || c == 'f' || c == 'N' || c == 'n') {
        *number = 0;
        return true;
    }
    if (c == 'T' || c == 't' || c == 'Y' || c == 'y') {
        *number = 1;
        return true;
    }
    return false;
}

TraceControlLineT parseTraceControlLine(char* line) {
    TraceControlLineT result = {TraceControlLineT::Empty, "", "", 0, false};
    if (char* hash = strchr(line, '#')) *hash = 0;
    size_t length = strlen(line);
    while (length > 0 && isBlank(line[length - 1])) line[--length] = 0;
    while (isBlank(*line)) ++line;
    if (*line == 0) return result;
    // A leading '-' or '+' wins over everything, so a '=' in such a line is
    // part of the path.
    if (*line == '-') {
        result.kind = TraceControlLineT::Disable;
        result.text = line + 1;
        return result;
    }
    if (*line == '+' && line[1] != '*') {
        result.kind = TraceControlLineT::Enable;
        result.text = line + 1;
        return result;
    }
    char* equals = strchr(line, '=');
    if (*line == '+' || (*line == '*' && !equals)) {
        char* name = line + (*line == '+' ? 2 : 1);
        if (*name == '/') ++name;
        result.kind = TraceControlLineT::Pattern;
        result.text = name;
        return result;
    }
    if (equals) {
        char* keyEnd = equals;
        while (keyEnd > line && isBlank(keyEnd[-1])) --keyEnd;
        *keyEnd = 0;
        char* value = equals + 1;
        while (isBlank(*value)) ++value;
        result.kind = TraceControlLineT::Option;
        result.text = line;
        result.value = value;
        return result;
    }
    result.kind = TraceControlLineT::Enable;
    result.text = line;
    return result;
}

uint32_t readTraceControlFile(const char* path, TraceControlVisitFn visit, void* context) {
    FILE* file = path ? fopen(path, "r") : nullptr;
    if (!file) return 0xE0000000u | (static_cast<uint32_t>(path ? errno : ENOENT) & 0xFFFFu);
    char line[kTraceControlLineBuffer];
    uint32_t lineNumber = 1;
    bool continued = false;
    while (fgets(line, sizeof line, file)) {
        // fgets stops at a line feed or when the buffer is full; in the
        // second case the next piece belongs to the same line.
        bool whole = strchr(line, '\n') != nullptr;
        TraceControlLineT parsed = parseTraceControlLine(line);
        parsed.lineNumber = lineNumber;
        parsed.continued = continued;
        if (parsed.kind != TraceControlLineT::Empty) visit(context, parsed);
        continued = !whole;
        if (whole) ++lineNumber;
    }
    fclose(file);
    return 0;
}

void expandTraceFileName(const char* pattern, uint32_t attempt, char* out, bool* exclusive) {
    NameSinkT sink = {out, 0};
    *exclusive = false;
    for (const char* p = pattern; *p; ++p) {
        if (*p != '%') {
            sink.put(*p);
            continue;
        }
        char letter = p[1];
        // A '%' at the very end expands to nothing; a second '%' starts a
        // sequence of its own.
        if (letter == 0) break;
        if (letter == '%') continue;
        ++p;
        if (letter != '_') {
            expandLetter(sink, letter, attempt, exclusive);
            continue;
        }
        char next = p[1];
        if (next == 0) break;
        ++p;
        // "%_x": nothing at attempt 0, "_" and x's expansion from attempt 1.
        if (attempt == 0) {
            if (next == 'u') *exclusive = true;
            continue;
        }
        sink.put('_');
        expandLetter(sink, next, attempt, exclusive);
    }
    out[sink.used] = 0;
}

}  // namespace keel
