// The paths behind reports: the trace variables that each thread remembers
// answer as the plain lookup does, and a default text rendered from its
// bytes gives what StringC::format of the fetched text gives.
#include <gtest/gtest.h>
#include <stdarg.h>

#include <string>
#include <thread>

#include <keel/keel.h>

#include "errors/errapi.h"
#include "errors/errimpl.h"
#include "testing/errtracemodel.h"
#include "testing/modelrun.h"
#include "testing/scantest.h"

namespace keel {
namespace {

TEST(ErrorTraceModelTest, RememberedVariablesAgreeWithTheLookup) {
    EXPECT_EQ("", testkit::runSeeded<errtracemodel::DriverC>(6, 600));
}

// Reports read their remembered variables without the latch while another
// thread changes the same variables' details and settings (run under TSan).
// The driver's argument c * 32 + 16 names "0,Error/Occurrence/Error/203/c".
TEST(ErrorTraceThreadTest, ReportsWhileAnotherThreadChangesTheirVariables) {
    errtracemodel::DriverC consumer;
    std::thread changer([&consumer] {
        for (uint32_t i = 0; i < 400; ++i) consumer.step(2 + (i % 2) + (i << 2), (i % 3) * 32 + 16);
    });
    ErrBufI* errors = getErrBuf();
    for (uint32_t i = 0; i < 400; ++i) {
        reportErrorFormat(0xE0CB0000u + i % 3, "report %d", static_cast<int32_t>(i));
        errors->takeText(nullptr);
    }
    changer.join();
    for (uint32_t c = 0; c < 3; ++c) EXPECT_EQ("", consumer.step(0, c * 32 + 16));
}

TEST(ErrorTextTest, PlainDefaultTextsRenderAsTheFetchedString) {
    ArgListC args;
    args.add(int32_t(7)).add("name").add(StringC("\xC3\xA9t\xC3\xA9", "utf8"));
    const char* const texts[] = {nullptr,
                                 "",
                                 "plain %d of %s, %3$S",
                                 "{w} short form %2$s",
                                 "{#}",
                                 "\001\001e\001structured %d\001reason %s\001solution",
                                 "\001\001i\001two groups %d\001\001\001sel\001w\001other",
                                 "\001sel\001w\001no general group",
                                 "caf\303\251 %d",
                                 "{e} caf\303\251 %s"};
    for (const char* text : texts) {
        SCOPED_TRACE(text ? text : "(null)");
        uint32_t fetchedSeverity = 9, renderedSeverity = 9;
        StringC expected = StringC::format(errorText(&fetchedSeverity, 0xE0CB0001, text), args);
        StringC rendered = errorText(&renderedSeverity, 0xE0CB0001, text, args);
        EXPECT_EQ(str(expected), str(rendered));
        EXPECT_EQ(expected.length(), rendered.length());
        EXPECT_EQ(fetchedSeverity, renderedSeverity);
    }
}

// The text a variadic report stores beside StringC::format of its format
// with the list that fromFormat makes of the same arguments.
void expectReportedAsFormatted(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ArgListC list = argListFromText(format, arguments);
    std::string expected = str(StringC::format(StringC(format, "system-8"), list));
    ErrBufI* errors = getErrBuf();
    reportErrorV(0xE0CB0002, format, arguments);
    va_end(arguments);
    ErrEntryI* entry = errors->getEntry(errors->getCount() - 1);
    EXPECT_EQ(expected, str(entry->getText())) << format;
    errors->takeText(nullptr);
}

TEST(ErrorTextTest, ArgumentsOnTheStackRenderAsTheList) {
    StringC wide("\xC3\xA9t\xC3\xA9", "utf8");
    ArgTimeValT time = {86400, 5};
    expectReportedAsFormatted("%d %u %hd %hu %hhd %hhu %lld %llu %C %x", -1, 4000000000u, 70000,
                              70000, 300, 300, -5ll, 6ull, 0xE9u, 255u);
    expectReportedAsFormatted("%s|%s|%S|%S|%.2s|%3$S", "text", nullptr, &wide, nullptr, "abc");
    expectReportedAsFormatted("%2$s %1$*3$d %4$t %5$t", 42, "second", 6, &time, nullptr);
    // More positions than the stack holds: the list is made instead.
    expectReportedAsFormatted("%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d %s", 1, 2, 3, 4, 5, 6, 7, 8, 9,
                              10, 11, 12, 13, 14, 15, 16, 17, "end");
}

}  // namespace
}  // namespace keel
