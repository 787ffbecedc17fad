// The remembered trace variables of error entries (errorTraceVariable)
// beside the plain lookup they stand for: a path made by hand and asked of
// the tracer with a fresh handle. A driver applies random reports, settings
// and detail changes and says where the two first differ. Shared by the
// random-sequence test and the fuzz target.
//
//     keel::errtracemodel::DriverC driver;
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_ERRTRACEMODEL_H
#define KEEL_TESTS_TESTING_ERRTRACEMODEL_H

#include <stdint.h>
#include <stdio.h>

#include <string>

#include <keel/keel.h>

#include "errors/errimpl.h"
#include "tracing/tracer.h"

namespace keel {
namespace errtracemodel {

// Three role texts; the table is keyed by the pointer, so a fourth pointer
// with the text of the first is asked too.
const char kOccurrence[] = "Occurrence";
const char kReport[] = "Report";
const char kRecovery[] = "Recovery";
const char kOccurrenceAgain[] = "Occurrence";
const char* const kRoles[] = {kOccurrence, kReport, kRecovery, kOccurrenceAgain};

class DriverC : public TraceConsumerI {
public:
    DriverC() { getTraceController()->addConsumer(this, 0, 9); }
    ~DriverC() { getTraceController()->removeConsumer(this); }

    uint32_t write(const char*, int32_t, const char*, ArgListC) override { return 0; }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char*) override { return 0; }

    // Operation by `operation % 4`: ask (twice as often), change the detail
    // of a path's variable, change this consumer's setting of a path.
    // `argument` picks the role, the severity (0 to 7) and one of 200 codes,
    // more than the table has slots, so that slots are taken over.
    // Half of the operations take the triple of the one before, so that a
    // changed variable is asked again while it is remembered.
    std::string step(uint32_t operation, uint32_t argument) {
        if ((operation >> 5) % 2) argument = last;
        last = argument;
        const char* role = kRoles[argument % 4];
        uint32_t severity = (argument >> 2) % 8;
        uint32_t code = 0xE0CB0000u + (argument >> 5) % 200;
        std::string path = pathOf(role, severity, code);
        switch (operation % 4) {
        case 0:
        case 1: {
            TraceControlVarC* remembered = errorTraceVariable(role, code, severity);
            // Asked afterwards: the plain lookup sets the detail to 0 itself.
            int16_t detail = remembered ? remembered->detail : -1;
            TraceValuesT* fresh = nullptr;
            uint32_t active = tracerInstance()->isEnabled(path.c_str(), &fresh);
            if (fresh != remembered) return "another variable for " + path;
            if (detail != 0) return "detail " + std::to_string(detail) + " left on " + path;
            if (remembered->active != active) return "another mask for " + path;
            return "";
        }
        case 2: {
            TraceValuesT* values = nullptr;
            getTraceController()->getVariable(path.c_str(), &values);
            TraceValuesT changed = *values;
            changed.detail = static_cast<int16_t>((operation >> 6) % 10);
            getTraceController()->setVariable(path.c_str(), &changed);
            return "";
        }
        default: {
            // The setting goes on an ancestor now and then, so that masks
            // change under remembered variables.
            typedef uint32_t (TraceControllerI::*SetterT)(TraceConsumerI*, const char*);
            static const SetterT setters[] = {&TraceControllerI::enablePath,
                                              &TraceControllerI::disablePath,
                                              &TraceControllerI::inheritPath};
            std::string target = (operation >> 2) % 2 ? path : "0,Error/" + std::string(role);
            (getTraceController()->*setters[(operation >> 3) % 3])(this, target.c_str());
            return "";
        }
        }
    }

private:
    uint32_t last = 0;

    static std::string pathOf(const char* role, uint32_t severity, uint32_t code) {
        static const char* const names[] = {"None",    "Monitor", "Information",
                                            "Warning", "Error",   "Fatal"};
        char path[128];
        std::string name = severity <= 5 ? names[severity] : std::to_string(severity);
        snprintf(path, sizeof path, "0,Error/%s/%s/%u/%u", role, name.c_str(), (code >> 16) & 0xFFF,
                 code & 0xFFFF);
        return path;
    }
};

}  // namespace errtracemodel
}  // namespace keel

#endif
