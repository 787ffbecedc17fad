// The trace control file, read without a tracer: what each line asks for,
// how option values are read, and how the trace file's name is expanded.
//
//     #include <keel/tracectl.h>      // link keel::toolkit
//
//     keel::readTraceControlFile("/etc/app.trace", [](void*, const keel::TraceControlLineT& line) {
//         if (line.kind == keel::TraceControlLineT::Enable) printf("on: %s\n", line.text);
//     }, nullptr);
//     char name[keel::kTraceNameBuffer];
//     bool exclusive;
//     keel::expandTraceFileName("/tmp/%p%t.trc", 0, name, &exclusive);
//
// The tracer's own file consumer reads its control file with these
// functions, so a tool that shows what a control file will do sees exactly
// what the consumer will see. Lines are read with a buffer of 256 bytes: a
// longer line counts as several, as it does for the consumer.
//
// A line, once cut at '#' and trimmed of white space, is one of:
//   "-path"              turns the path off (the rest of the line as it stands)
//   "+path"              turns the path on
//   "*name", "+*name"    a pattern: every path with a component "name" is
//                        turned on as it comes into being ("*/name" alike)
//   "key = value"        an option (a '=' and no leading '+', '-' or '*';
//                        a '*' line with a '=' in it is an option line too)
//   anything else        turns the whole line on as a path
// Paths may carry a detail digit in front ("3,Net/Socket").
#ifndef KEEL_TRACECTL_H
#define KEEL_TRACECTL_H

#include <stdint.h>

namespace keel {

// The room, terminator included, of an expanded trace file name.
const uint32_t kTraceNameBuffer = 4096;
// The size of the line buffer: a line of this many bytes or more is read in pieces.
const uint32_t kTraceControlLineBuffer = 256;

struct TraceControlLineT {
    enum Kind : uint8_t { Empty, Disable, Enable, Pattern, Option };
    Kind kind;
    // Disable, Enable: the path; Pattern: the component name; Option: the
    // key. Points into the line that was parsed.
    const char* text;
    // Option: the value with its leading white space removed; "" otherwise.
    const char* value;
    // The line number in the file (from 1), and whether this piece continues
    // a line longer than the buffer; both 0 from parseTraceControlLine.
    uint32_t lineNumber;
    bool continued;
};

// The options a control file may set, in the order traceOptionKey answers.
enum TraceOptionE : int32_t {
    kTraceOptionUnknown = -1,
    kTraceOptionFilename = 0,
    kTraceOptionTimeOfDay,
    kTraceOptionTimestamp,
    kTraceOptionTimeDeltas,
    kTraceOptionTraceTimers,
    kTraceOptionTraceCounters,
    kTraceOptionFlushFrequency,
    kTraceOptionMaxIndent,
    kTraceOptionMaxDetail,
    kTraceOptionShowProcess,
    kTraceOptionShowThreads,
    kTraceOptionShowClass,
};

// The option of a key, compared without regard to ASCII case ("TIMESTAMP"
// is "timestamp"), or kTraceOptionUnknown.
TraceOptionE traceOptionKey(const char* key);
// The key's own spelling ("flush_freq"), or "" for an unknown option.
const char* traceOptionName(TraceOptionE option);

// A value as the numeric and boolean options read it: its first character
// decides. A digit: the number (strtol, cut to 32 bits); F, f, N, n: 0;
// T, t, Y, y: 1. False for anything else, the empty value included, and
// then the option keeps its setting.
bool traceOptionNumber(const char* value, int32_t* number);

// Cuts `line` at the first '#', trims white space at both ends in place, and
// says what it asks for.
TraceControlLineT parseTraceControlLine(char* line);

// Reads the control file at `path` and hands every line that is not empty
// after cutting and trimming to `visit`, in order. 0, or 0xE0000000 with the
// low 16 bits of errno when the file cannot be opened (nothing is visited).
typedef void (*TraceControlVisitFn)(void* context, const TraceControlLineT& line);
uint32_t readTraceControlFile(const char* path, TraceControlVisitFn visit, void* context);

// The trace file name of attempt `attempt` (0 to 99) expanded from
// `pattern` into `out` (kTraceNameBuffer bytes; longer names are cut):
// %p the process id, %d the local date YYYYMMDD, %t the local time HHMMSS,
// %u the attempt number (nothing at attempt 0; it makes the opening
// exclusive, which `*exclusive` tells), %_x as %x with a '_' in front from
// attempt 1 on and nothing at attempt 0, '%' and any other character that
// character. A '%' at the end expands to nothing.
void expandTraceFileName(const char* pattern, uint32_t attempt, char* out, bool* exclusive);

}  // namespace keel

#endif
