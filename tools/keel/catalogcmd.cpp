// `keel catalog`: compiles message catalog sources into keel's binary
// catalog, dumps a catalog back to its canonical source, and looks a code up
// as the library does. The work is done by the catalog tool's core
// (catalogtool.h) on bytes in memory; this file reads and writes the files.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "catalogtool.h"
#include "cli.h"
#include "commands.h"

namespace keel {
namespace cli {

namespace {

using catalogtool::DiagnosticT;
using catalogtool::MessageT;

const char kCatalogHelp[] =
    "usage: keel catalog compile SRC OUT\n"
    "       keel catalog dump CAT [OUT]\n"
    "       keel catalog lookup CAT CODE\n"
    "\n"
    "compile  makes the binary catalog OUT from the source SRC ('-': standard input);\n"
    "         OUT is replaced in one step, so programs that read it never see a part\n"
    "dump     writes the canonical source of CAT (to standard output without OUT);\n"
    "         compiling it again gives the same bytes\n"
    "lookup   prints the stored text of CODE (0xE0CB0010, 3771400208 or s203m16)\n"
    "\n"
    "Source: one message a line, 'SET NUMBER SEVERITY TEXT', for example\n"
    "    203 16 e Impossible d'ouvrir le fichier '%1$S'\n"
    "SET and NUMBER decimal or 0x hexadecimal; SEVERITY the letters of the\n"
    "severity (#, m, i, w, e, f) or '-' to store TEXT as written; escapes \\\\ \\n \\r\n"
    "\\t \\xHH; lines starting with '#' are comments.\n"
    "\n"
    "Exit status: 0 success, 1 failure (one line on stderr), 2 usage error.\n";

// Warnings go to stderr at once; errors into the error buffer, for the one
// failure line.
void report(const std::string& path, const char* unit,
            const std::vector<DiagnosticT>& diagnostics) {
    for (const DiagnosticT& diagnostic : diagnostics) {
        std::string text = "'" + path + "': " + catalogtool::describe(diagnostic, unit);
        if (diagnostic.error) {
            reportFailure(0xE0000000u | EINVAL, text);
        } else {
            fprintf(stderr, "keel: %s\n", text.c_str());
        }
    }
}

// 0xE0CB0010, 3771400208, or s203m16.
bool parseCode(const char* text, uint32_t* set, uint32_t* number) {
    unsigned s = 0, m = 0;
    char tail = 0;
    if (sscanf(text, "s%um%u%c", &s, &m, &tail) == 2) {
        *set = s;
        *number = m;
        return s <= 0xFFF && m <= 0xFFFF;
    }
    char* end = nullptr;
    unsigned long long code = strtoull(text, &end, 0);
    if (!*text || *end || *text == '-' || code > 0xFFFFFFFFull) return false;
    *set = (code >> 16) & 0xFFF;
    *number = code & 0xFFFF;
    return true;
}

bool writeOutput(const std::string& path, const std::string& bytes) {
    OutputFileC out;
    return out.open(path) && out.write(bytes.data(), bytes.size()) && out.commit();
}

// Parses the action's words: exactly `least` to `most` operands.
bool operands(int argc, char** argv, CommandLineC& line, size_t least, size_t most,
              const char* action, int* status) {
    std::string command = std::string("catalog ") + action;
    if (!line.parse(argc, argv, nullptr, 0)) {
        *status = usageError(command.c_str(), line.error());
        return false;
    }
    if (line.helpWanted()) {
        *status = printHelp(kCatalogHelp);
        return false;
    }
    if (line.operandCount() < least || line.operandCount() > most) {
        *status = usageError(command.c_str(), line.operandCount() < least ? "an operand is missing"
                                                                          : "too many operands");
        return false;
    }
    return true;
}

typedef bool (*TransformFn)(const std::string& in, std::string& out,
                            std::vector<DiagnosticT>& diagnostics);

// Reads the first operand, transforms it, reports the diagnostics (of
// source lines or of index records), and writes the second operand or
// standard output.
int transform(int argc, char** argv, const char* action, size_t least, TransformFn work,
              const char* unit) {
    CommandLineC line;
    int status = kExitOk;
    if (!operands(argc, argv, line, least, 2, action, &status)) return status;
    std::string in, out;
    if (!readWholeFile(line.operand(0), in)) return printFailure();
    std::vector<DiagnosticT> diagnostics;
    bool ok = work(in, out, diagnostics);
    report(line.operand(0), unit, diagnostics);
    if (!ok || !writeOutput(line.operand(1) ? line.operand(1) : "-", out)) return printFailure();
    return kExitOk;
}

int compileAction(int argc, char** argv) {
    return transform(argc, argv, "compile", 2, catalogtool::compileCatalog, "line");
}

int dumpAction(int argc, char** argv) {
    return transform(argc, argv, "dump", 1, catalogtool::dumpCatalog, "record");
}

int lookupAction(int argc, char** argv) {
    CommandLineC line;
    int status = kExitOk;
    if (!operands(argc, argv, line, 2, 2, "lookup", &status)) return status;
    uint32_t set = 0, number = 0;
    if (!parseCode(line.operand(1), &set, &number)) {
        return usageError("catalog lookup", std::string("'") + line.operand(1) +
                                                "' is no code (write 0xE0CB0010 or s203m16)");
    }
    std::string binary;
    if (!readWholeFile(line.operand(0), binary)) return printFailure();
    std::vector<MessageT> messages;
    std::vector<DiagnosticT> diagnostics;
    if (!catalogtool::readCatalog(binary, messages, diagnostics)) {
        report(line.operand(0), "record", diagnostics);
        return printFailure();
    }
    std::string text;
    if (!catalogtool::lookupCatalog(binary, set, number, text)) {
        reportFailure(0xE0000000u | ENOENT, "'" + std::string(line.operand(0)) + "': no message s" +
                                                std::to_string(set) + "m" + std::to_string(number));
        return printFailure();
    }
    return printOutput(text + "\n");
}

}  // namespace

int runCatalog(int argc, char** argv) {
    static const ActionT actions[] = {
        {"compile", compileAction}, {"dump", dumpAction}, {"lookup", lookupAction}};
    return dispatchAction("catalog", kCatalogHelp, argc, argv, actions, 3);
}

}  // namespace cli
}  // namespace keel
