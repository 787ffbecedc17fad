// The file service on a small real tree driven by fuzzer-chosen writes,
// directories, copies, moves and removals beside the plain
// model of tests/testing/fileservmodel.h: the disk must hold the model after
// each step, and the service's queries must answer as the model says.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/fileservmodel.h"
#include "../tests/testing/modelrun.h"

namespace {

// One directory for the whole run; each input's tree is made and removed
// below it by the driver.
std::string dir;
void removeDir() { ::remove(dir.c_str()); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (dir.empty()) {
        char pattern[] = "/tmp/keel-fileserv-fuzz-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        dir = pattern;
        atexit(removeDir);
    }
    keel::fileservmodel::DriverC driver(dir);
    keel::testkit::runBytes(driver, data, size, 300);
    return 0;
}
