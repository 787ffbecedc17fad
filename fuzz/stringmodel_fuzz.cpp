// String operations chosen by the fuzzer, checked against a std::u32string:
// the run of tests/testing/stringmodel.h with the input as its choices.
//
// Input layout: byte 0 switches the block paths of the searches (bit 0);
// every later byte is a choice of the run (one byte for small choices,
// four for large ones), read until the input ends.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "testing/stringmodel.h"
#include "text/stringim.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    keel::StringImplC::setVectorPaths((data[0] & 1) == 0);
    keel::testkit::ByteChoicesC choices(data + 1, size - 1);
    std::string failure = keel::testkit::StringModelRunC(choices).run();
    keel::StringImplC::setVectorPaths(true);
    if (!failure.empty()) {
        fprintf(stderr, "mismatch: %s\n", failure.c_str());
        abort();
    }
    return 0;
}
