// One thread's error buffer driven by fuzzer-chosen operations beside the
// plain model of tests/testing/errbufmodel.h: reports, marks, recovery,
// removal by index, takeText and reportAll. After each operation the buffer
// must hold exactly the model's entries, in order, with their codes,
// severities, sequence numbers and texts.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "../tests/testing/errbufmodel.h"
#include "../tests/testing/modelrun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::errbufmodel::DriverC driver;
    keel::testkit::runBytes(driver, data, size, 500);
    return 0;
}
