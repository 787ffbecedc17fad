// The paths behind reports: the trace variables that each thread remembers
// answer as the plain lookup does, and a default text rendered from its
// bytes gives what StringC::format of the fetched text gives.
#include <gtest/gtest.h>

#include <string>

#include <keel/keel.h>

#include "errors/errapi.h"
#include "testing/errtracemodel.h"
#include "testing/modelrun.h"
#include "testing/scantest.h"

namespace keel {
namespace {

TEST(ErrorTraceModelTest, RememberedVariablesAgreeWithTheLookup) {
    EXPECT_EQ("", testkit::runSeeded<errtracemodel::DriverC>(6, 600));
}

TEST(ErrorTextTest, PlainDefaultTextsRenderAsTheFetchedString) {
    ArgListC args;
    args.add(int32_t(7)).add("name").add(StringC("\xC3\xA9t\xC3\xA9", "utf8"));
    const char* const texts[] = {
        nullptr,
        "",
        "plain %d of %s, %3$S",
        "{w} short form %2$s",
        "{#}",
        "\x01\x01"
        "e\x01"
        "structured %d\x01"
        "reason %s\x01"
        "solution",
        "\x01\x01"
        "i\x01"
        "two groups %d\x01\x01\x01"
        "sel\x01"
        "w\x01"
        "other",
        "\x01"
        "sel\x01"
        "w\x01"
        "no general group",
        "caf\xC3\xA9 %d",
        "{e} caf\xC3\xA9 %s",
    };
    for (const char* text : texts) {
        uint32_t fetchedSeverity = 9, renderedSeverity = 9;
        StringC expected = StringC::format(errorText(&fetchedSeverity, 0xE0CB0001, text), args);
        StringC rendered = errorText(&renderedSeverity, 0xE0CB0001, text, args);
        EXPECT_EQ(str(expected), str(rendered)) << (text ? text : "(null)");
        EXPECT_EQ(expected.length(), rendered.length());
        EXPECT_EQ(fetchedSeverity, renderedSeverity) << (text ? text : "(null)");
    }
}

}  // namespace
}  // namespace keel
