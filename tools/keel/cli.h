// What every subcommand of the keel tool shares: the small parser of its
// words, the three exit statuses, failures kept in the calling thread's
// error buffer until main prints them as one line, and files that are read
// whole or replaced in one step.
//
//     int runThing(int argc, char** argv) {          // argv[0] is "thing"
//         static const cli::OptionT options[] = {{"force", false}, {"to", true}};
//         cli::CommandLineC line;
//         if (!line.parse(argc, argv, options, 2)) return cli::usageError("thing", line.error());
//         if (line.helpWanted()) return cli::printHelp(kThingHelp);
//         if (!cli::readWholeFile(line.operand(0), text)) return cli::kExitFailed;   // reported
//         ...
//     }
//
// A subcommand returns kExitFailed only after it reported what failed
// (reportFailure, reportSystemFailure, or a library call that reports);
// main then prints the buffer's text.
#ifndef KEEL_TOOLS_KEEL_CLI_H
#define KEEL_TOOLS_KEEL_CLI_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

namespace keel {
namespace cli {

enum : int { kExitOk = 0, kExitFailed = 1, kExitUsage = 2 };

// An option "--name" of a subcommand, with or without a value ("--to utf8"
// or "--to=utf8").
struct OptionT {
    const char* name;
    bool takesValue;
};

class CommandLineC {
public:
    // Parses argv[1] to argv[argc - 1] (argv[0] is the subcommand's name):
    // options anywhere, "--" ends them, "-" alone is an operand (standard
    // input or output). "--help" and "-h" are always known. False on an
    // unknown option or a missing value, with error() saying which.
    bool parse(int argc, char** argv, const OptionT* options, size_t optionCount);

    bool helpWanted() const { return help_; }
    bool has(const char* name) const;
    // The option's value; null when it was not given. The last one counts.
    const char* value(const char* name) const;
    // Every value of an option that may be given more than once, in order.
    std::vector<std::string> values(const char* name) const;
    size_t operandCount() const { return operands_.size(); }
    // Operand `index`; null past the end.
    const char* operand(size_t index) const;
    const std::string& error() const { return error_; }

private:
    struct GivenT {
        std::string name;
        std::string value;
    };
    std::vector<GivenT> given_;
    std::vector<const char*> operands_;
    std::string error_;
    bool help_ = false;
};

// An action of a command ("convert" of "text").
struct ActionT {
    const char* name;
    int (*run)(int argc, char** argv);  // argv[0] is the action's name
};
// Runs the action named by argv[1] (argv[0] is the command); "--help" or
// "-h" there prints `help`, no action or an unknown one is a usage error.
int dispatchAction(const char* command, const char* help, int argc, char** argv,
                   const ActionT* actions, size_t actionCount);

// "keel <command>: <message>" and a hint at --help on stderr; answers kExitUsage.
int usageError(const char* command, const std::string& message);
// The help text on stdout; answers kExitOk.
int printHelp(const char* text);

// Stores a failure in the calling thread's error buffer (severity Error).
void reportFailure(uint32_t code, const std::string& text);
// The same for a failed system call: the code 0xE0000000 | error and the
// text "<what> '<path>': <strerror>".
void reportSystemFailure(int error, const char* what, const std::string& path);
// Prints what the error buffer holds as one line on stderr ("keel: ...",
// several entries joined by "; "), empties it, and answers kExitFailed.
int printFailure();

// The whole content of a file ("-": standard input). False, reported, when
// it cannot be read.
bool readWholeFile(const std::string& path, std::string& content);

// An output file that appears in one step: bytes go to a temporary file
// beside it, which commit() moves over the name, so a reader (a program
// that has the catalog open, say) sees the old file or the new one, never
// a part, and a failure leaves the old file as it was. "-", a name that is
// not a regular file (a device, a pipe) and a symbolic link are written in
// place instead.
class OutputFileC {
public:
    OutputFileC() {}
    ~OutputFileC();
    OutputFileC(const OutputFileC&) = delete;
    OutputFileC& operator=(const OutputFileC&) = delete;

    // False, reported, when the file cannot be made.
    bool open(const std::string& path);
    // Descriptor of the output, for fstat comparisons; -1 before open.
    int descriptor() const { return fd_; }
    // False, reported, on a write error.
    bool write(const void* bytes, size_t count);
    // Flushes and moves the file into place. False, reported, on failure.
    bool commit();
    // Removes the temporary file; the old file stays. Done by the
    // destructor when commit() was not called.
    void abandon();

private:
    std::string path_;
    std::string temporary_;
    int fd_ = -1;
    bool ownsDescriptor_ = false;
};

// Writes `text` to standard output: kExitOk, or kExitFailed with the
// failure printed.
int printOutput(const std::string& text);

// Writes everything, retrying after interruptions and short writes; false
// with errno set on failure.
bool writeAll(int fd, const void* bytes, size_t count);

}  // namespace cli
}  // namespace keel

#endif
