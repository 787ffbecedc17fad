// The file service on a small real tree driven by fuzzer-chosen writes,
// directories, copies, moves and removals beside the plain model of
// tests/testing/fileservmodel.h: the disk must hold the model after each
// step, and the service's queries must answer as the model says.
//
// Input: pairs of bytes (operation, argument). Each input's tree is made in a
// fresh directory below /tmp and removed by the driver.
#include <stddef.h>
#include <stdint.h>

#include "../tests/testing/fileservmodel.h"
#include "../tests/testing/modelrun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::fileservmodel::DriverC driver("/tmp");
    keel::testkit::runBytes(driver, data, size, 300);
    return 0;
}
