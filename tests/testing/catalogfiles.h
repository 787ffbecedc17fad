// Real files for catalog tests: a fresh temporary directory per object,
// removed with everything in it at the end, and catalogs compiled into it
// with the catalog tool's core.
#ifndef KEEL_TESTS_TESTING_CATALOGFILES_H
#define KEEL_TESTS_TESTING_CATALOGFILES_H

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "catalogtool.h"

namespace keel {
namespace testkit {

class TempDirC {
public:
    TempDirC() {
        const char* base = getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/keel-catalog-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back(0);
        path_ = mkdtemp(buffer.data()) ? buffer.data() : "";
    }
    ~TempDirC() {
        if (!path_.empty()) {
            std::string command = "rm -rf '" + path_ + "'";
            if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", path_.c_str());
        }
    }
    TempDirC(const TempDirC&) = delete;
    TempDirC& operator=(const TempDirC&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    // Writes `bytes` to `name` below the directory and answers its path.
    std::string write(const std::string& name, const std::string& bytes) const {
        std::string full = file(name);
        FILE* out = fopen(full.c_str(), "wb");
        if (out) {
            fwrite(bytes.data(), 1, bytes.size(), out);
            fclose(out);
        }
        return full;
    }

    // Compiles `source` and writes the catalog; an empty path when the
    // source was refused.
    std::string compile(const std::string& name, const std::string& source) const {
        std::string binary;
        std::vector<catalogtool::DiagnosticT> diagnostics;
        if (!catalogtool::compileCatalog(source, binary, diagnostics)) return "";
        return write(name, binary);
    }

private:
    std::string path_;
};

}  // namespace testkit
}  // namespace keel

#endif
