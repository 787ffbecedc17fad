// The subcommands of the keel tool. Each takes the words from its own name
// on (argv[0] is "text", "catalog", ...) and answers the exit status.
#ifndef KEEL_TOOLS_KEEL_COMMANDS_H
#define KEEL_TOOLS_KEEL_COMMANDS_H

namespace keel {
namespace cli {

int runText(int argc, char** argv);
int runCatalog(int argc, char** argv);
int runTrace(int argc, char** argv);
int runReg(int argc, char** argv);

}  // namespace cli
}  // namespace keel

#endif
