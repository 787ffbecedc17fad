// A consumer that keeps the rendered trace lines of the paths it enables,
// added to the one tracer for the life of the object. Brings in the string
// helpers of scantest.h, which the tests that watch traces use for texts.
#ifndef KEEL_TESTS_TESTING_TRACELINES_H
#define KEEL_TESTS_TESTING_TRACELINES_H

#include <string>
#include <vector>

#include <keel/keel.h>

#include "testing/scantest.h"

namespace keel {
namespace testing_errors {

class TraceLinesC : public TraceConsumerI {
public:
    explicit TraceLinesC(const char* path) { getTraceController()->addConsumer(this, 0, 9), enable(path); }
    ~TraceLinesC() { getTraceController()->removeConsumer(this); }
    void enable(const char* path) { getTraceController()->enablePath(this, path); }

    uint32_t write(const char* path, int32_t, const char* format, ArgListC args) override {
        StringC text = StringC::format(StringC(format, "system-8"), args);
        const char* utf8 = text.textUtf8();
        lines.push_back(std::string(path) + " " + utf8);
        text.releaseUtf8(utf8);
        return 0;
    }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char*) override { return 0; }

    std::vector<std::string> lines;
};

}  // namespace testing_errors
}  // namespace keel

#endif
