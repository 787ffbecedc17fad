// One read-write file stream on a real file driven by fuzzer-chosen writes,
// reads, seeks and new lengths beside the plain model of
// tests/testing/filestreammodel.h: length, position and the bytes read must
// agree after each step, and the file must hold the model at the end.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/filestreammodel.h"

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
    std::string broken;
    for (size_t i = 0; broken.empty() && i + 2 <= size && i < 2 * 1000; i += 2) {
        broken = driver.step(data[i], data[i + 1]);
    }
    if (broken.empty()) broken = driver.finish();
    if (!broken.empty()) {
        fprintf(stderr, "model and stream differ: %s\n", broken.c_str());
        abort();
    }
    return 0;
}
