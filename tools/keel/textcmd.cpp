// `keel text convert`: converts a file between the library's eight
// encodings in constant memory, or checks it (--check). The input is read
// in pieces of kPieceSize bytes; progress goes to stderr for large regular
// files when stderr is a terminal.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "cli.h"
#include "commands.h"
#include "textconv.h"

namespace keel {
namespace cli {

namespace {

const char kTextHelp[] =
    "usage: keel text convert --from ENC --to ENC [--no-mark] [IN [OUT]]\n"
    "       keel text convert --check --from ENC [--to ENC] [IN]\n"
    "\n"
    "Converts IN (standard input when missing or '-') from one encoding to another\n"
    "and writes OUT (standard output when missing or '-'), streaming in constant\n"
    "memory. OUT is replaced in one step when the conversion succeeded.\n"
    "Encodings: ascii, iso-8859-1, system-8, utf8, utf16, utf16le, utf16be, wchar_t.\n"
    "\n"
    "Input is read as keel's text reader reads it: a byte-order mark of the --from\n"
    "encoding at the head is skipped (utf16 takes its byte order from it and is\n"
    "little-endian without one). Output is written as keel's text writer writes it:\n"
    "the mark of the --to encoding first (EF BB BF for utf8 and system-8, FF FE for\n"
    "utf16 and utf16le, FE FF for utf16be), unless --no-mark is given.\n"
    "Invalid input becomes U+FFFD; a character that --to cannot hold becomes '~'\n"
    "(U+FFFD in UTF-16), and the conversion then ends with status 1.\n"
    "\n"
    "  --check    convert nothing: report the first invalid sequence of IN, and\n"
    "             with --to the first character that has no form in it, with its\n"
    "             byte offset; status 1 when there is one\n"
    "  --no-mark  write no byte-order mark\n"
    "\n"
    "Exit status: 0 success, 1 failure (one line on stderr), 2 usage error.\n";

// The progress line: shown for regular files of this size and more.
const uint64_t kProgressFrom = 16u << 20;

struct ProgressT {
    bool shown = false;
    uint64_t total = 0;
    int lastPercent = -1;

    void update(uint64_t done) {
        if (!shown || total == 0) return;
        int percent = static_cast<int>(done * 100 / total);
        if (percent == lastPercent) return;
        lastPercent = percent;
        fprintf(stderr, "\rkeel: %3d%% of %llu MB", percent,
                static_cast<unsigned long long>(total >> 20));
        fflush(stderr);
    }
    void end() {
        if (shown && lastPercent >= 0) fputs("\r\033[K", stderr);
    }
};

bool sinkToOutput(void* context, const uint8_t* bytes, size_t count) {
    return static_cast<OutputFileC*>(context)->write(bytes, count);
}

// Reads the whole input through `framer`; false when reading failed
// (reported) or a hook stopped it (`stopped` set).
bool pump(int fd, const std::string& inName, SequenceFramerC& framer, ProgressT& progress,
          bool* stopped) {
    std::string piece(kPieceSize, '\0');
    uint64_t done = 0;
    *stopped = false;
    for (;;) {
        ssize_t got = ::read(fd, &piece[0], piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            reportSystemFailure(errno, "cannot read", inName);
            return false;
        }
        if (got == 0) break;
        done += static_cast<uint64_t>(got);
        if (!framer.feed(reinterpret_cast<const uint8_t*>(piece.data()),
                         static_cast<size_t>(got))) {
            *stopped = true;
            return false;
        }
        progress.update(done);
    }
    if (!framer.finish()) {
        *stopped = true;
        return false;
    }
    return true;
}

int convertCommand(int argc, char** argv) {
    static const OptionT options[] = {
        {"from", true}, {"to", true}, {"check", false}, {"no-mark", false}};
    CommandLineC line;
    if (!line.parse(argc, argv, options, sizeof options / sizeof options[0]))
        return usageError("text convert", line.error());
    if (line.helpWanted()) return printHelp(kTextHelp);
    bool check = line.has("check");
    const EncodingT* from = findEncoding(line.value("from"));
    const EncodingT* to = findEncoding(line.value("to"));
    if (!line.has("from")) return usageError("text convert", "--from is missing");
    if (!from)
        return usageError("text convert", std::string("no encoding '") + line.value("from") +
                                              "' (known: " + encodingNames() + ")");
    if (!line.has("to") && !check) return usageError("text convert", "--to is missing");
    if (line.has("to") && !to)
        return usageError("text convert", std::string("no encoding '") + line.value("to") +
                                              "' (known: " + encodingNames() + ")");
    if (line.operandCount() > (check ? 1u : 2u))
        return usageError("text convert", "too many operands");
    if (check && line.has("no-mark"))
        return usageError("text convert", "--no-mark writes nothing with --check");

    std::string inName = line.operand(0) ? line.operand(0) : "-";
    std::string outName = line.operand(1) ? line.operand(1) : "-";
    int fd = inName == "-" ? 0 : ::open(inName.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        reportSystemFailure(errno, "cannot open", inName);
        return printFailure();
    }
    struct stat inInfo;
    ProgressT progress;
    if (fstat(fd, &inInfo) == 0 && S_ISREG(inInfo.st_mode) &&
        static_cast<uint64_t>(inInfo.st_size) >= kProgressFrom) {
        progress.total = static_cast<uint64_t>(inInfo.st_size);
        progress.shown = isatty(2) != 0;
    }

    int status = kExitOk;
    bool stopped = false;
    if (check) {
        TextCheckerC checker(*from, to);
        if (!pump(fd, inName, checker, progress, &stopped)) {
            if (stopped) {
                reportFailure(0xE0000000u | EILSEQ, "'" + inName + "': " + checker.problem() +
                                                        " at byte " +
                                                        std::to_string(checker.problemOffset()));
            }
            status = kExitFailed;
        }
    } else {
        struct stat outInfo;
        if (outName != "-" && stat(outName.c_str(), &outInfo) == 0 &&
            outInfo.st_dev == inInfo.st_dev && outInfo.st_ino == inInfo.st_ino) {
            reportFailure(0xE0000000u | EINVAL,
                          "'" + outName + "' is the input file; write to another file");
            status = kExitFailed;
        } else {
            OutputFileC out;
            if (!out.open(outName)) {
                status = kExitFailed;
            } else {
                TextConverterC converter(*from, *to, !line.has("no-mark"), sinkToOutput, &out);
                if (!pump(fd, inName, converter, progress, &stopped) || !out.commit()) {
                    status = kExitFailed;
                } else if (converter.lost()) {
                    reportFailure(0xE0000000u | EILSEQ,
                                  "'" + inName + "': characters without a form in " + to->name +
                                      " were replaced (see --check --to " + to->name +
                                      " for the first)");
                    status = kExitFailed;
                }
            }
        }
    }
    progress.end();
    if (fd != 0) ::close(fd);
    return status == kExitOk ? kExitOk : printFailure();
}

}  // namespace

int runText(int argc, char** argv) {
    static const ActionT actions[] = {{"convert", convertCommand}};
    return dispatchAction("text", kTextHelp, argc, argv, actions, 1);
}

}  // namespace cli
}  // namespace keel
