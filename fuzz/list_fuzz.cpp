// The three list classes driven by fuzzer-chosen operations beside the plain
// models of tests/testing/listmodel.h: appends, prepends, insertions after
// and before (also before a node outside the list), removals of nodes inside
// and outside, clear. Order, end marks, counts, tails and backward links must
// agree after each step.
//
// Input: pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include "../tests/testing/listmodel.h"
#include "../tests/testing/modelrun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::listmodel::DriverC driver;
    keel::testkit::runBytes(driver, data, size, 2000);
    return 0;
}
