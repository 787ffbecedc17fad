// The road of a report against the plain model of tests/testing/reportmodel.h,
// and reports on several threads while the process catalog comes and goes.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "testing/modelrun.h"
#include "testing/reportmodel.h"

namespace keel {
namespace {

TEST(ReportPathTest, RandomReportsAgainstThePlainRoad) {
    EXPECT_EQ("", testkit::runSeeded<reportmodel::DriverC>(8, 400));
}

// The language facet tells whether its catalog has an index to look in
// without the latch; a report on another thread sees the catalog before or
// after a change, never a mix.
TEST(ReportPathTest, ThreadsReportWhileTheProcessCatalogComesAndGoes) {
    const std::string& process = reportmodel::files().process;
    LocaleLanguageI* language = defaultLocale()->getLanguage(1);
    std::atomic<bool> done(false);
    std::vector<std::thread> reporters;
    for (int i = 0; i < 3; ++i) {
        reporters.emplace_back([&] {
            ErrBufI* buffer = getErrBuf();
            while (!done.load()) {
                uint32_t mark = buffer->getMark();
                reportErrorFormat(0xE0CB0012, "default %s", "x");
                std::string text = reportmodel::utf8Of(buffer->getEntry(0)->getText());
                if (text != "Process only x" && text != "default x") ADD_FAILURE() << text;
                buffer->recover(mark);
            }
        });
    }
    for (int i = 0; i < 300; ++i)
        language->openCatalog(i % 2 ? StringC(process.c_str(), "utf8") : StringC());
    done = true;
    for (std::thread& reporter : reporters) reporter.join();
    language->openCatalog(StringC());
}

}  // namespace
}  // namespace keel
