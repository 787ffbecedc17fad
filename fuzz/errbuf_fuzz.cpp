// One thread's error buffer driven by fuzzer-chosen operations beside the
// plain model of tests/testing/errbufmodel.h: reports, marks, recovery,
// removal by index, takeText and reportAll. After each operation the buffer
// must hold exactly the model's entries, in order, with their codes,
// severities, sequence numbers and texts.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/errbufmodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::errbufmodel::DriverC driver;
    for (size_t i = 0; i + 2 <= size && i < 2 * 500; i += 2) {
        std::string broken = driver.step(data[i], data[i + 1]);
        if (!broken.empty()) {
            fprintf(stderr, "model and buffer differ after %s\n", broken.c_str());
            abort();
        }
    }
    return 0;
}
