// keel-catalog: compiles message catalog sources, dumps binary catalogs back
// to source, and looks a code up as the library does.
//
//     keel-catalog compile SOURCE CATALOG
//     keel-catalog dump CATALOG [SOURCE]       (standard output without SOURCE)
//     keel-catalog lookup CATALOG CODE         (CODE as 0xE0CB0010 or s203m16)
//
// Exit status 0 on success, 1 when the input was refused, 2 on wrong usage
// or a file that cannot be read or written.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "catalogtool.h"

using namespace keel::catalogtool;

namespace {

bool readFile(const char* path, std::string& content) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    content = buffer.str();
    return !in.bad();
}

bool writeFile(const char* path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    return !out.fail();
}

void print(const char* path, const char* unit, const std::vector<DiagnosticT>& diagnostics) {
    for (const DiagnosticT& diagnostic : diagnostics) {
        fprintf(stderr, "%s: %s\n", path, describe(diagnostic, unit).c_str());
    }
}

int usage() {
    fprintf(stderr,
            "usage: keel-catalog compile SOURCE CATALOG\n"
            "       keel-catalog dump CATALOG [SOURCE]\n"
            "       keel-catalog lookup CATALOG CODE\n");
    return 2;
}

// 0xE0CB0010, 3758817296, or s203m16.
bool parseCode(const char* text, uint32_t* set, uint32_t* number) {
    unsigned s = 0, m = 0;
    char tail = 0;
    if (sscanf(text, "s%um%u%c", &s, &m, &tail) == 2) {
        *set = s;
        *number = m;
        return s <= 0xFFFF;
    }
    char* end = nullptr;
    unsigned long long code = strtoull(text, &end, 0);
    if (!*text || *end || code > 0xFFFFFFFFull) return false;
    *set = (code >> 16) & 0xFFF;
    *number = code & 0xFFFF;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) return usage();
    const std::string command = argv[1];
    std::string input;
    if ((command == "compile" && argc == 4) || (command == "dump" && (argc == 3 || argc == 4)) ||
        (command == "lookup" && argc == 4)) {
        if (!readFile(argv[2], input)) {
            fprintf(stderr, "%s: cannot read: %s\n", argv[2], strerror(errno));
            return 2;
        }
    } else {
        return usage();
    }
    std::vector<DiagnosticT> diagnostics;
    if (command == "compile") {
        std::string binary;
        bool ok = compileCatalog(input, binary, diagnostics);
        print(argv[2], "line", diagnostics);
        if (!ok) return 1;
        if (!writeFile(argv[3], binary)) {
            fprintf(stderr, "%s: cannot write: %s\n", argv[3], strerror(errno));
            return 2;
        }
        return 0;
    }
    if (command == "dump") {
        std::string source;
        bool ok = dumpCatalog(input, source, diagnostics);
        print(argv[2], "record", diagnostics);
        if (!ok) return 1;
        if (argc == 3) {
            fwrite(source.data(), 1, source.size(), stdout);
            return fflush(stdout) == 0 ? 0 : 2;
        }
        if (!writeFile(argv[3], source)) {
            fprintf(stderr, "%s: cannot write: %s\n", argv[3], strerror(errno));
            return 2;
        }
        return 0;
    }
    uint32_t set = 0, number = 0;
    if (!parseCode(argv[3], &set, &number)) {
        fprintf(stderr, "%s: not a code (write 0xE0CB0010 or s203m16)\n", argv[3]);
        return 2;
    }
    std::vector<MessageT> messages;
    if (!readCatalog(input, messages, diagnostics)) {
        print(argv[2], "record", diagnostics);
        return 1;
    }
    std::string text;
    if (!lookupCatalog(input, set, number, text)) {
        fprintf(stderr, "%s: no message s%um%u\n", argv[2], set, number);
        return 1;
    }
    text += '\n';
    fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}
