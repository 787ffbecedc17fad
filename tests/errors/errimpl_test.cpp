// The per-thread error buffer: entries and their parts, the trace line of
// each entry, one buffer per thread (marks, recovery and what a report
// stores are the model's in tests/testing/reportmodel.h).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <keel/keel.h>

#include "errors/errapi.h"
#include "errors/errimpl.h"
#include "testing/tracelines.h"

namespace keel {
namespace {

using testing_errors::TraceLinesC;

// Each test starts and ends with an empty buffer.
struct ErrBufTest : ::testing::Test {
    ErrBufTest() : errors(getErrBuf()) { errors->takeText(nullptr); }
    ~ErrBufTest() override { errors->takeText(nullptr); }
    ErrBufI* errors;
};

// Each shape of a text with separators: the parts of the entry, its text,
// and its trace line, which labels the parts of the text as given.
TEST_F(ErrBufTest, EntriesSplitTheirText) {
    TraceLinesC trace("Error/Occurrence");
    trace.enable("Error/Report");
    // Text, problem, reason, solution, the text joined, the trace line.
    const std::tuple<const char*, const char*, const char*, const char*, const char*, const char*>
        cases[] = {
            {"P", "P", "", "", "P", "P"},
            {"P\x01R", "P", "R", "", "P\nR", "Problem: P"},
            {"P\x01\x01S", "P", "", "S", "P\nS", "Problem: P, Solution: S"},
            {"P\x01R\x01S", "P", "R", "S", "P\nR\nS", "Problem: P, Reason: R, Solution: S"},
            {"P\x01R\x01", "P", "R", "", "P\nR", "Problem: P, Reason: R"},
            {"P\x01R\x01S\x01T", "P", "R", "S", "P\nR\nS",
             "Problem: P, Reason: R, Solution: S\x01T"},
            {"\x01R", "", "R", "", "\nR", ""},
            {"\x01\x01", "", "", "", "", "Solution: "},
        };
    const std::string occurrence = "0,Error/Occurrence/Warning/203/5 Warning Occurrence (s203m5): ";
    for (const auto& [text, problem, reason, solution, joined, line] : cases) {
        SCOPED_TRACE(text);
        trace.lines.clear();
        errors->addError(0xE0CB0005, 3, StringC(text, "utf8"));
        ErrEntryI* entry = errors->getEntry(errors->getCount() - 1);
        std::vector<std::string> parts = {str(entry->getProblem()), str(entry->getReason()),
                                          str(entry->getSolution()), str(entry->getText())};
        parts.insert(parts.end(), trace.lines.begin(), trace.lines.end());
        EXPECT_EQ((std::vector<std::string>{problem, reason, solution, joined, occurrence + line}),
                  parts);
    }
    EXPECT_EQ(5u, errors->getEntry(0)->setSeverity(5)->getSeverity());
    // reportAll traces each entry as reported; recovery traces newest first.
    errors->takeText(nullptr);
    trace.lines.clear();
    trace.enable("Error/Recovery");
    errors->addError(0xE0000002, 9, StringC("a", "utf8"));
    errors->reportAll();
    uint32_t mark = errors->getMark();
    errors->addError(0xE0CB0006, 4, StringC("first", "utf8"));
    errors->addError(0xE0CB0007, 4, StringC("second", "utf8"));
    errors->recover(mark);
    EXPECT_EQ(0u, errors->getCount());
    const std::string error = "/Error/203/", in = " Error Occurrence (s203m",
                      out = " Error Recovery (s203m";
    EXPECT_EQ((std::vector<std::string>{"0,Error/Occurrence/9/0/2 9 Occurrence (s0m2): a",
                                        "0,Error/Report/9/0/2 9 Report (s0m2): a",
                                        "0,Error/Occurrence" + error + "6" + in + "6): first",
                                        "0,Error/Occurrence" + error + "7" + in + "7): second",
                                        "0,Error/Recovery" + error + "7" + out + "7): second",
                                        "0,Error/Recovery" + error + "6" + out + "6): first"}),
              trace.lines);
}

// Threads report, mark and recover at once; each sees only its own entries.
TEST(ErrBufThreadTest, EachThreadSeesOnlyItsOwnEntries) {
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, 0);
    for (uint32_t t = 0; t < 8; ++t) {
        threads.emplace_back([t, &wrong] {
            ErrBufI* errors = getErrBuf();
            for (uint32_t i = 0; i < 200; ++i) {
                uint32_t mark = errors->getMark();
                reportErrorFormat(0xE0CB0005 + t, "thread %d item %d", t, i);
                reportError(0xE0CB0005 + t, "expected");
                if (errors->getCount() != i / 2 * 2 + 2) ++wrong[t];
                if (i % 2 == 0) errors->recover(mark);
            }
            for (uint32_t i = 0; i < errors->getCount(); ++i)
                wrong[t] += errors->getEntry(i)->getCode() != 0xE0CB0005 + t;
            if (errors->getCount() != 200 || errors != getErrBuf()) ++wrong[t];
            // The entries are left for the thread's end to free.
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < 8; ++t) EXPECT_EQ(0, wrong[t]) << "thread " << t;
}

// A thread that ends releases its buffer through the key (the leak check
// of the sanitizer build sees one that is not); a buffer with another
// reference outlives the thread until that is released too.
TEST(ErrBufThreadTest, ThreadEndReleasesItsBuffer) {
    ErrBufI* kept = nullptr;
    std::thread([&kept] {
        kept = getErrBuf();
        kept->addRef();
        reportError(0xE0CB0005, "left behind");
    }).join();
    EXPECT_EQ(1u, kept->getCount());
    kept->release();
    std::thread([] {
        reportError(0xE0CB0005, "left behind");
        releaseErrBuf();
        releaseErrBuf();
        EXPECT_EQ(0u, getErrBuf()->getCount()) << "a fresh buffer after the release";
    }).join();
}

}  // namespace
}  // namespace keel
