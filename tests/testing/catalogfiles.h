// Real files for catalog tests: a temporary directory (tempdir.h) into which
// catalogs are compiled with the catalog tool's core.
#ifndef KEEL_TESTS_TESTING_CATALOGFILES_H
#define KEEL_TESTS_TESTING_CATALOGFILES_H

#include <string>
#include <vector>

#include "catalogtool.h"
#include "testing/tempdir.h"

namespace keel {
namespace testkit {

class CatalogDirC : public TempDirC {
public:
    // Compiles `source` and writes the catalog; an empty path when the
    // source was refused.
    std::string compile(const std::string& name, const std::string& source) const {
        std::string binary;
        std::vector<catalogtool::DiagnosticT> diagnostics;
        if (!catalogtool::compileCatalog(source, binary, diagnostics)) return "";
        return write(name, binary);
    }
};

}  // namespace testkit
}  // namespace keel

#endif
