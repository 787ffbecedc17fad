// `keel trace check`: reads a trace control file with the same parser as the
// tracer's file consumer and tells what it will switch on: the paths with
// their detail levels, the patterns, the options in force at the end of the
// file, the trace file's expanded name, and the lines that change nothing,
// each with its reason.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include <keel/tracectl.h>

#include "cli.h"
#include "commands.h"

namespace keel {
namespace cli {

namespace {

const char kTraceHelp[] =
    "usage: keel trace check [CONTROLFILE]\n"
    "\n"
    "Reads a trace control file (standard input when missing or '-') as a program's\n"
    "tracer will read it when the program names it in TracerI::init, and prints\n"
    "what it switches on: the paths with their detail levels and how far below\n"
    "them tracing reaches, the patterns, the options, the trace file's name as it\n"
    "expands now, and each line that changes nothing, with the reason.\n"
    "\n"
    "Exit status: 0 the file was read, 1 it cannot be read, 2 usage error.\n";

// The file consumer's settings as the control file leaves them, starting
// from the consumer's own defaults.
struct SettingsT {
    std::string filename = "/tmp/%p%t.trc";
    int32_t values[kTraceOptionShowClass + 1] = {0, 0, 0, 0, 0, 0, 1, 16, 9, 0, 0, 0};
};

struct ReportT {
    SettingsT settings;
    std::vector<std::string> paths;
    std::vector<std::string> skipped;
};

std::string lineLabel(const TraceControlLineT& line) {
    char text[48];
    snprintf(text, sizeof text, "line %-4u", line.lineNumber);
    return text;
}

// "3,Net/Socket" -> detail 3 and "Net/Socket"; no digit gives detail 1.
int32_t splitDetail(const char* path, const char** name) {
    int32_t detail = 1;
    if (*path >= '0' && *path <= '9') {
        detail = *path++ - '0';
        if (*path == ',') ++path;
    }
    *name = path;
    return detail;
}

void applyOption(ReportT& report, const TraceControlLineT& line, const std::string& label) {
    TraceOptionE option = traceOptionKey(line.text);
    std::string shown = std::string("'") + line.text + " = " + line.value + "'";
    if (option == kTraceOptionUnknown) {
        report.skipped.push_back(label + shown + ": no option '" + line.text +
                                 "' (a path that holds '=' is written with a leading '+')");
        return;
    }
    if (option == kTraceOptionFilename) {
        report.settings.filename = line.value;
        return;
    }
    int32_t number = 0;
    if (!traceOptionNumber(line.value, &number)) {
        report.skipped.push_back(label + shown +
                                 ": the value is no number and no yes/no, true/false; " +
                                 traceOptionName(option) + " keeps its setting");
        return;
    }
    int32_t* values = report.settings.values;
    switch (option) {
    case kTraceOptionTimeOfDay:
        values[option] = number == 1 ? 1 : 0;
        if (number == 1) values[kTraceOptionTimestamp] = 1;
        break;
    case kTraceOptionShowClass:
        values[option] = number == 1 ? 1 : 0;
        break;
    case kTraceOptionFlushFrequency:
    case kTraceOptionMaxIndent:
    case kTraceOptionMaxDetail:
        values[option] = number;
        break;
    default:
        values[option] = static_cast<uint8_t>(number);
        break;
    }
}

void visitLine(void* context, const TraceControlLineT& line) {
    ReportT& report = *static_cast<ReportT*>(context);
    std::string label = lineLabel(line);
    if (line.continued) {
        report.skipped.push_back(
            label + "is longer than " + std::to_string(kTraceControlLineBuffer - 1) +
            " bytes: its rest '" + line.text + "' is read as a line of its own");
    }
    const char* name = nullptr;
    switch (line.kind) {
    case TraceControlLineT::Empty:
        return;
    case TraceControlLineT::Option:
        applyOption(report, line, label);
        return;
    case TraceControlLineT::Pattern:
        if (!*line.text) {
            report.skipped.push_back(label + "'*' names no component");
            return;
        }
        report.paths.push_back(label + "pattern  " + line.text + ": every path with a component '" +
                               line.text + "' is switched on as it comes into being");
        return;
    case TraceControlLineT::Disable:
    case TraceControlLineT::Enable: {
        bool on = line.kind == TraceControlLineT::Enable;
        int32_t detail = splitDetail(line.text, &name);
        if (!*name) {
            report.skipped.push_back(label + "'" + (on ? "+" : "-") + line.text +
                                     "' names no path");
            return;
        }
        std::string entry = label + (on ? "on       " : "off      ") + name;
        if (on) entry += " (detail " + std::to_string(detail) + ")";
        // The level is only known at the end of the file; mark the place.
        if (on) entry += "\x01" + std::to_string(detail);
        report.paths.push_back(entry);
        return;
    }
    }
}

// The reach of an enabled path under the consumer's level: the path itself
// spends its detail, every level below it at least 1 more.
std::string reach(int32_t level, int32_t detail) {
    int32_t left = level - detail;
    if (left < 0) return ": not traced, its detail is above the level " + std::to_string(level);
    if (left == 0) return ": traced, the levels below it are not";
    return ": traced, with " + std::to_string(left) + (left == 1 ? " level" : " levels") +
           " below it";
}

int checkAction(int argc, char** argv) {
    CommandLineC line;
    if (!line.parse(argc, argv, nullptr, 0)) return usageError("trace check", line.error());
    if (line.helpWanted()) return printHelp(kTraceHelp);
    if (line.operandCount() > 1) return usageError("trace check", "too many operands");
    std::string path = line.operand(0) ? line.operand(0) : "-";
    ReportT report;
    uint32_t code =
        readTraceControlFile(path == "-" ? "/dev/stdin" : path.c_str(), visitLine, &report);
    if (code != 0) {
        reportSystemFailure(static_cast<int>(code & 0xFFFF), "cannot read", path);
        return printFailure();
    }
    const int32_t* values = report.settings.values;
    int32_t level = values[kTraceOptionMaxDetail];
    level = level < 0 ? 0 : level > 9 ? 9 : level;

    char expanded[kTraceNameBuffer];
    bool exclusive = false;
    expandTraceFileName(report.settings.filename.c_str(), 0, expanded, &exclusive);
    printf("Control file: %s\n", path.c_str());
    printf("Trace file:   %s\n", expanded);
    printf("              from '%s'", report.settings.filename.c_str());
    if (strstr(report.settings.filename.c_str(), "%p"))
        printf("; %%p is the id of the tracing process");
    if (exclusive) printf("; %%u numbers the file when the name is taken");
    printf("\nConsumer:     the trace file, detail level %d (max_detail)\n", level);
    printf("Options:     ");
    for (int32_t option = kTraceOptionTimeOfDay; option <= kTraceOptionShowClass; ++option) {
        if (option == kTraceOptionMaxDetail) continue;
        printf(" %s=%d", traceOptionName(static_cast<TraceOptionE>(option)), values[option]);
    }
    printf("\nPaths:\n");
    if (report.paths.empty()) printf("  none: nothing is traced\n");
    for (std::string entry : report.paths) {
        size_t mark = entry.find('\x01');
        if (mark != std::string::npos) {
            int32_t detail = atoi(entry.c_str() + mark + 1);
            entry = entry.substr(0, mark) + reach(level, detail);
        }
        printf("  %s\n", entry.c_str());
    }
    printf("Skipped:\n");
    if (report.skipped.empty()) printf("  none\n");
    for (const std::string& entry : report.skipped) printf("  %s\n", entry.c_str());
    return fflush(stdout) == 0 ? kExitOk : kExitFailed;
}

}  // namespace

int runTrace(int argc, char** argv) {
    static const ActionT actions[] = {{"check", checkAction}};
    return dispatchAction("trace", kTraceHelp, argc, argv, actions, 1);
}

}  // namespace cli
}  // namespace keel
