// keel: the command-line tool for operators of programs that load keel. One
// program with subcommands (text, catalog, trace, reg), each in a file of
// its own; this file only dispatches.
#include <stdio.h>
#include <string.h>

#include <string>

#include "cli.h"
#include "commands.h"

namespace {

const char kHelp[] =
    "usage: keel COMMAND ACTION [OPTIONS] [OPERANDS]\n"
    "\n"
    "  keel text convert --from ENC --to ENC [IN [OUT]]   convert between encodings\n"
    "  keel catalog compile SRC OUT                        make a binary message catalog\n"
    "  keel catalog dump CAT [OUT]                         a catalog back to source\n"
    "  keel catalog lookup CAT CODE                        one message, as programs find it\n"
    "  keel trace check [CONTROLFILE]                      what a trace control file switches on\n"
    "  keel reg get|set|delete|list PATH [VALUE]           the configuration registry\n"
    "\n"
    "'keel COMMAND --help' tells more. Exit status: 0 success, 1 the work failed\n"
    "(one line on stderr says why), 2 usage error.\n";

struct CommandT {
    const char* name;
    int (*run)(int argc, char** argv);
};

const CommandT kCommands[] = {
    {"text", keel::cli::runText},
    {"catalog", keel::cli::runCatalog},
    {"trace", keel::cli::runTrace},
    {"reg", keel::cli::runReg},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fputs(kHelp, stderr);
        return keel::cli::kExitUsage;
    }
    if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0 ||
        strcmp(argv[1], "help") == 0) {
        return keel::cli::printHelp(kHelp);
    }
    for (const CommandT& command : kCommands) {
        if (strcmp(argv[1], command.name) == 0) return command.run(argc - 1, argv + 1);
    }
    fprintf(stderr, "keel: no command '%s'\nTry 'keel --help'.\n", argv[1]);
    return keel::cli::kExitUsage;
}
