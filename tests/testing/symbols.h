// The symbols an object file or library defines, as nm lists them: for the
// tests that check what the shared object exports and what the toolkit
// archive holds. Uses only the C and C++ libraries, so that the client tests
// (tests/sdk) may include it too.
//
//     std::set<std::string> names = keel::testkit::definedSymbols(file, "-D");
#ifndef KEEL_TESTS_TESTING_SYMBOLS_H
#define KEEL_TESTS_TESTING_SYMBOLS_H

#include <stdio.h>
#include <string.h>

#include <set>
#include <string>

namespace keel {
namespace testkit {

// The names (nm's third column) of `file`'s defined symbols, nm run with
// `options`; empty when nm cannot read the file.
inline std::set<std::string> definedSymbols(const std::string& file, const char* options) {
    std::set<std::string> names;
    std::string command = std::string("nm ") + options + " --defined-only '" + file +
                          "' 2>/dev/null | cut -s -d' ' -f3-";
    FILE* pipe = popen(command.c_str(), "r");
    char line[4096];
    while (pipe && fgets(line, sizeof line, pipe))
        names.insert(std::string(line, strcspn(line, "\r\n")));
    if (pipe) pclose(pipe);
    names.erase("");
    return names;
}

}  // namespace testkit
}  // namespace keel

#endif
