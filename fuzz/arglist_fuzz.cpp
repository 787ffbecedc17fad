// Argument-list handles driven by fuzzer-chosen operations beside the plain
// models of tests/testing/arglistmodel.h: values of every plain type, texts,
// strings and a nested list appended, handles copied, assigned and dropped,
// appends through temporary copies. Entries, shared bodies and reference
// counts must agree after each step, and nothing may leak.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "../tests/testing/arglistmodel.h"
#include "../tests/testing/modelrun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::arglistmodel::DriverC driver;
    keel::testkit::runBytes(driver, data, size, 2000);
    return 0;
}
