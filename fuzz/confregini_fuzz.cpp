// The registry over ini files driven by fuzzer-chosen operations beside the
// plain model of tests/testing/regmodel.h: values set, deleted and read,
// keys made and deleted, autoCommit switched, the other file mounted at the
// same point, another writer, the disk read by a registry of its own. Real
// files, in one temporary directory made for the run and emptied by the
// driver before each input. After each operation every key must open
// exactly when the model has it, with the model's values and children; at
// the end the disk must hold the model.
//
// Input: groups of five bytes (operation, then four bytes of argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "../tests/testing/regmodel.h"

namespace {

const std::string& runDirectory() {
    static std::string directory = [] {
        char pattern[] = "/tmp/keel-regfuzz-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (!made) abort();
        // Taken away at exit, with what the last input left in it.
        static std::string* removeAtExit = new std::string("rm -rf '" + std::string(made) + "'");
        atexit([] {
            if (system(removeAtExit->c_str()) != 0)
                fprintf(stderr, "could not run %s\n", removeAtExit->c_str());
        });
        return std::string(made);
    }();
    return directory;
}

void check(const std::string& broken) {
    if (broken.empty()) return;
    fprintf(stderr, "model and registry differ after %s\n", broken.c_str());
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string& directory = runDirectory();
    keel::regmodel::DriverC driver(directory, "");
    for (size_t i = 0; i + 5 <= size && i < 5 * 200; i += 5) {
        uint32_t argument = uint32_t(data[i + 1]) | uint32_t(data[i + 2]) << 8 |
                            uint32_t(data[i + 3]) << 16 | uint32_t(data[i + 4]) << 24;
        check(driver.step(data[i], argument));
    }
    check(driver.compareWithDisk());
    return 0;
}
