// The typed array driven by fuzzer-chosen operations beside the plain model
// of tests/testing/arraymodel.h: insertions anywhere, insertions of the
// array's own elements, removals in and out of range, removeAll. Contents,
// the growth rule and the count of live elements must agree after each step
// and nothing may be left alive at the end.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/arraymodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        keel::arraymodel::DriverC driver;
        for (size_t i = 0; i + 2 <= size && i < 2 * 2000; i += 2) {
            std::string broken = driver.step(data[i], data[i + 1]);
            if (!broken.empty()) {
                fprintf(stderr, "model and array differ after %s\n", broken.c_str());
                abort();
            }
        }
    }
    if (keel::arraymodel::TrackedT::live() != 0) abort();
    return 0;
}
