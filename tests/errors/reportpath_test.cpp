// The error buffer and the road of a report against the plain models of
// tests/testing/reportmodel.h (the entries, where their text comes from, and
// the trace variables they remember),
// reports on several threads while the process catalog is replaced or their
// variables change, and the arguments of the variadic forms.
#include <gtest/gtest.h>
#include <stdarg.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "testing/modelrun.h"
#include "testing/reportmodel.h"
#include "testing/scantest.h"

namespace keel {
namespace {

TEST(ReportPathTest, RandomReportsAgainstThePlainRoad) {
    EXPECT_EQ("", testkit::runSeeded<reportmodel::DriverC>(40, 400));
}

// The language facet tells whether its catalog has an index to look in
// without the latch; a report on another thread sees the catalog before or
// after a change, whole, never a mix of two (run under TSan).
TEST(ReportPathTest, ThreadsReportWhileTheProcessCatalogIsReplaced) {
    const reportmodel::FilesT& files = reportmodel::files();
    LocaleLanguageI* language = defaultLocale()->getLanguage(1);
    std::atomic<bool> done(false);
    std::vector<std::thread> reporters;
    for (int i = 0; i < 3; ++i) {
        reporters.emplace_back([&] {
            ErrBufI* buffer = getErrBuf();
            while (!done.load()) {
                uint32_t mark = buffer->getMark();
                reportErrorFormat(0xE0CB0010, "D%d of %s", 7, "x");
                std::string text = str(buffer->getEntry(0)->getText());
                if (text != "Process 7" && text != "Module 7 of x" && text != "D7 of x")
                    ADD_FAILURE() << text;
                buffer->recover(mark);
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        const std::string* names[] = {&files.process, &files.module};
        language->openCatalog(i % 3 < 2 ? StringC(names[i % 3]->c_str(), "utf8") : StringC());
    }
    done = true;
    for (std::thread& reporter : reporters) reporter.join();
    language->openCatalog(StringC());
}

// Reports read their remembered variables without the latch while another
// thread changes the same variables' details and settings (run under TSan).
// The driver's argument c * 32 + 16 names "0,Error/Occurrence/Error/203/c".
TEST(ReportPathTest, ReportsWhileAnotherThreadChangesTheirVariables) {
    reportmodel::DriverC consumer;
    std::thread changer([&consumer] {
        for (uint32_t i = 0; i < 400; ++i)
            consumer.step(2 + (i % 2) + (i / 2 << 4), (i % 3) * 32 + 16);
    });
    ErrBufI* errors = getErrBuf();
    for (uint32_t i = 0; i < 400; ++i) {
        reportErrorFormat(0xE0CB0000u + i % 3, "report %d", static_cast<int32_t>(i));
        errors->takeText(nullptr);
    }
    changer.join();
    for (uint32_t c = 0; c < 3; ++c) EXPECT_EQ("", consumer.step(4, c * 32 + 16));
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
    EXPECT_EQ(expected, str(errors->getEntry(errors->getCount() - 1)->getText())) << format;
    errors->takeText(nullptr);
}

TEST(ReportPathTest, ArgumentsOnTheStackRenderAsTheList) {
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
