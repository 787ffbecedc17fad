// The thread's error buffer and the per-report shortcuts, driven by
// fuzzer-chosen operations beside the plain models of
// tests/testing/reportmodel.h: marks, recovery, removal by index, takeText
// and reportAll; module and process catalogs switched between files with
// and without the codes, reports by the four forms; and changes to the
// details and settings of the trace variables that error entries remember.
// After each operation the buffer must hold exactly the model's entries;
// each answered text and severity must be the plain road's, and each
// remembered variable the one the plain lookup gives, with the same mask
// and its detail 0.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>

#include "../tests/testing/modelrun.h"
#include "../tests/testing/reportmodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::reportmodel::DriverC driver;
    keel::testkit::runBytes(driver, data, size, 1000);
    return 0;
}
