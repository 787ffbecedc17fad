// The typed array driven by fuzzer-chosen operations beside the plain model
// of tests/testing/arraymodel.h: insertions anywhere, insertions of the
// array's own elements, removals in and out of range, removeAll. Contents,
// the growth rule and the count of live elements must agree after each step
// and nothing may be left alive at the end.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "../tests/testing/arraymodel.h"
#include "../tests/testing/modelrun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        keel::arraymodel::DriverC driver;
        keel::testkit::runBytes(driver, data, size, 2000);
    }
    if (keel::arraymodel::TrackedT::live() != 0) abort();
    return 0;
}
