// A consumer that keeps the rendered trace lines ("path text") of the paths
// it enables, the last line's arguments, and the paths whose values changed,
// added to the one tracer for the life of the object; `onWrite` runs after
// each line is kept (a test may call back into the tracer from it). Brings in the string helpers of
// scantest.h, which the tests that watch traces use for texts.
#ifndef KEEL_TESTS_TESTING_TRACELINES_H
#define KEEL_TESTS_TESTING_TRACELINES_H

#include <functional>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "testing/scantest.h"

namespace keel {
namespace testing_errors {

class TraceLinesC : public TraceConsumerI {
public:
    explicit TraceLinesC(const char* path = nullptr) {
        getTraceController()->addConsumer(this, 0, 9);
        if (path) enable(path);
    }
    ~TraceLinesC() { getTraceController()->removeConsumer(this); }
    void enable(const char* path) { getTraceController()->enablePath(this, path); }

    uint32_t write(const char* path, int32_t, const char* format, ArgListC args) override {
        last = args;
        lines.push_back(std::string(path) + " " +
                        str(StringC::format(StringC(format, "system-8"), args)));
        if (onWrite) onWrite();
        return 0;
    }
    uint32_t valueChanged(const char* path, int32_t) override {
        changes.push_back(path);
        return 0;
    }
    uint32_t variableCreated(const char*) override { return 0; }

    std::vector<std::string> lines, changes;
    ArgListC last;  // the arguments of the last line, kept
    std::function<void()> onWrite;
};

}  // namespace testing_errors
}  // namespace keel

#endif
