// Argument-list handles driven by fuzzer-chosen operations beside the plain
// models of tests/testing/arglistmodel.h: values of every plain type, texts,
// strings and a nested list appended, handles copied, assigned and dropped,
// appends through temporary copies. Entries, shared bodies and reference
// counts must agree after each step, and nothing may leak.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "../tests/testing/arglistmodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::arglistmodel::DriverC driver;
    for (size_t i = 0; i + 2 <= size && i < 2 * 2000; i += 2) {
        std::string broken = driver.step(data[i], data[i + 1]);
        if (!broken.empty()) {
            fprintf(stderr, "model and lists differ after %s\n", broken.c_str());
            abort();
        }
    }
    return 0;
}
