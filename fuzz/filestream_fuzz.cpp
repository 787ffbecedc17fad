// One read-write file stream on a real file driven by fuzzer-chosen writes,
// reads, seeks and new lengths beside the plain model of
// tests/testing/filestreammodel.h: length, position and the bytes read must
// agree after each step, and the file must hold the model at each reopen.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/filestreammodel.h"
#include "../tests/testing/modelrun.h"

namespace {

// One directory for the whole run, removed at exit.
std::string dir;
void removeDir() {
    ::remove((dir + "/stream").c_str());
    ::remove(dir.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (dir.empty()) {
        char pattern[] = "/tmp/keel-filestream-fuzz-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        dir = pattern;
        atexit(removeDir);
    }
    keel::filestreammodel::DriverC driver(dir + "/stream");
    keel::testkit::runBytes(driver, data, size, 1000);
    return 0;
}
