// The per-report shortcuts, driven by fuzzer-chosen operations:
//
// - the trace variables that error entries remember, beside the plain
//   lookup of tests/testing/errtracemodel.h (reports, detail changes and
//   settings): after each report the remembered variable must be the one
//   the lookup gives, with the same mask and its detail 0;
// - the road of a report beside the plain model of
//   tests/testing/reportmodel.h (module and process catalogs switched
//   between files with and without the codes, reports by the four forms):
//   each stored or answered text and severity must be the plain road's.
//
// Input: pairs of bytes (operation, argument), read by both drivers.
#include <stddef.h>
#include <stdint.h>

#include "../tests/testing/errtracemodel.h"
#include "../tests/testing/modelrun.h"
#include "../tests/testing/reportmodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    {
        keel::errtracemodel::DriverC driver;
        keel::testkit::runBytes(driver, data, size, 500);
    }
    keel::reportmodel::DriverC reports;
    keel::testkit::runBytes(reports, data, size, 500);
    return 0;
}
