// The three list classes driven by fuzzer-chosen operations beside the plain
// models of tests/testing/listmodel.h: appends, prepends, insertions after
// and before (also before a node outside the list), removals of nodes inside
// and outside, clear. Order, end marks, counts, tails and backward links must
// agree after each step.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/listmodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::listmodel::DriverC driver;
    for (size_t i = 0; i + 2 <= size && i < 2 * 2000; i += 2) {
        std::string broken = driver.step(data[i], data[i + 1]);
        if (!broken.empty()) {
            fprintf(stderr, "model and lists differ after %s\n", broken.c_str());
            abort();
        }
    }
    return 0;
}
