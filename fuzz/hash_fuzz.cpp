// The string-keyed tables driven by fuzzer-chosen operations beside the
// plain model of tests/testing/hashmodel.h: insertions, replacements and
// removals (by key, by element, all at once), lookups of equal keys and
// iterations that remove as they go. After each step the table must hold
// the model's elements, newest first in each list, and pass its own check().
//
// Input: byte 0 picks the table (case-sensitive, case-blind, the typed
// string map) and the key space; then pairs of bytes (operation, argument).
#include <stddef.h>
#include <stdint.h>

#include "../tests/testing/hashmodel.h"
#include "../tests/testing/modelrun.h"

namespace {

template <typename Traits>
void run(uint32_t keys, const uint8_t* data, size_t size) {
    // Each step checks the whole table, so runs are kept to 500 steps.
    keel::hashmodel::DriverC<Traits> driver(keys);
    keel::testkit::runBytes(driver, data, size, 500);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    // Few keys make long lists of equal keys; many make the table split.
    uint32_t keys = data[0] & 4 ? 200 : 24;
    switch (data[0] % 4) {
    case 0:
        run<keel::hashmodel::KeyedT<false>>(keys, data + 1, size - 1);
        break;
    case 1:
        run<keel::hashmodel::KeyedT<true>>(keys, data + 1, size - 1);
        break;
    default:
        run<keel::hashmodel::MapT>(keys, data + 1, size - 1);
        break;
    }
    return 0;
}
