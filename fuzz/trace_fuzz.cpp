// The tree of control variables driven by fuzzer-chosen operations beside
// the plain model of tests/testing/tracemodel.h: add, remove and re-level
// consumers, enable, disable and inherit paths, mention paths with and
// without detail prefixes, set variables, and dispatch lines to consumers
// that may fail. After each operation the controller must agree with the
// model in every mask, detail, child list and consumer call.
//
// Input: groups of four bytes (operation, two bytes of path, argument).
// A trailing run of bytes is also looked up as a raw path, so that odd
// texts (digits, commas, empty components, no terminator in sight) meet the
// prefix rules.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>

#include <keel/keel.h>

#include "../tests/testing/tracemodel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    keel::tracemodel::DriverC driver;
    size_t i = 0;
    for (; i + 4 <= size && i < 4 * 400; i += 4) {
        std::string broken =
            driver.step(data[i] | data[i + 1] << 8 | data[i + 2] << 16, data[i + 3]);
        if (!broken.empty()) {
            fprintf(stderr, "model and controller differ after %s\n", broken.c_str());
            abort();
        }
    }
    std::string raw(reinterpret_cast<const char*>(data + i), size - i);
    raw = raw.substr(0, raw.find('\0'));
    keel::TraceValuesT* values = nullptr;
    driver.controller.getVariable(raw.c_str(), &values);
    if ((values != nullptr) != (raw.size() <= keel::kTraceMaxPath)) abort();
    if (values && driver.controller.lookupVariable(raw.c_str()) != values) abort();
    return 0;
}
