// `keel reg`: the configuration registry from the command line. Built on
// the configuration service once it is part of the library.
#include "cli.h"
#include "commands.h"

namespace keel {
namespace cli {

int runReg(int argc, char** argv) {
    static const char kRegHelp[] = "usage: keel reg get|set|delete|list PATH [VALUE]\n";
    return dispatchAction("reg", kRegHelp, argc, argv, nullptr, 0);
}

}  // namespace cli
}  // namespace keel
