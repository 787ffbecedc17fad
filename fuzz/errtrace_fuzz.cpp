// The trace variables that error entries remember, driven by fuzzer-chosen
// reports, detail changes and settings beside the plain lookup of
// tests/testing/errtracemodel.h: after each report the remembered variable
// must be the one the lookup gives, with the same mask and its detail 0.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>

#include "../tests/testing/errtracemodel.h"
#include "../tests/testing/modelrun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::errtracemodel::DriverC driver;
    keel::testkit::runBytes(driver, data, size, 500);
    return 0;
}
