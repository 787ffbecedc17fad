// The trace control file read without a tracer: what each line asks for,
// and the line numbers and pieces of a file as readTraceControlFile hands
// them on. (What the file consumer makes of the lines is tracefil_test's.)
#include <keel/tracectl.h>

#include <gtest/gtest.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

namespace keel {
namespace {

TEST(TraceControlLine, EachLineKind) {
    struct CaseT {
        const char* line;
        TraceControlLineT::Kind kind;
        const char* text;
        const char* value;
    };
    const CaseT cases[] = {
        {"   \t\n", TraceControlLineT::Empty, "", ""},
        {"# only a comment", TraceControlLineT::Empty, "", ""},
        {"Error\n", TraceControlLineT::Enable, "Error", ""},
        {"  3,Net/Socket  # why\n", TraceControlLineT::Enable, "3,Net/Socket", ""},
        {"+A=B", TraceControlLineT::Enable, "A=B", ""},
        {"-Error/Occurrence", TraceControlLineT::Disable, "Error/Occurrence", ""},
        {"-*x", TraceControlLineT::Disable, "*x", ""},
        {"*Catalog", TraceControlLineT::Pattern, "Catalog", ""},
        {"*/Catalog", TraceControlLineT::Pattern, "Catalog", ""},
        {"+*Catalog", TraceControlLineT::Pattern, "Catalog", ""},
        {"+*a=b", TraceControlLineT::Pattern, "a=b", ""},
        {"*a = b", TraceControlLineT::Option, "*a", "b"},
        {"timestamp = yes", TraceControlLineT::Option, "timestamp", "yes"},
        {"filename=  /tmp/x%p.trc ", TraceControlLineT::Option, "filename", "/tmp/x%p.trc"},
        {"Error = 1", TraceControlLineT::Option, "Error", "1"},
        {"a#b = c", TraceControlLineT::Enable, "a", ""},
    };
    for (const CaseT& c : cases) {
        std::string line = c.line;
        TraceControlLineT parsed = parseTraceControlLine(&line[0]);
        EXPECT_EQ(c.kind, parsed.kind) << c.line;
        EXPECT_STREQ(c.text, parsed.text) << c.line;
        EXPECT_STREQ(c.value, parsed.value) << c.line;
    }
}

TEST(TraceControlLine, OptionKeysAndValues) {
    EXPECT_EQ(kTraceOptionTimestamp, traceOptionKey("TIMESTAMP"));
    EXPECT_EQ(kTraceOptionFlushFrequency, traceOptionKey("flush_freq"));
    EXPECT_EQ(kTraceOptionUnknown, traceOptionKey("colour"));
    EXPECT_STREQ("show_class", traceOptionName(kTraceOptionShowClass));
    EXPECT_STREQ("", traceOptionName(kTraceOptionUnknown));
    int32_t number = -5;
    EXPECT_TRUE(traceOptionNumber("12abc", &number));
    EXPECT_EQ(12, number);
    EXPECT_TRUE(traceOptionNumber("yes", &number));
    EXPECT_EQ(1, number);
    EXPECT_TRUE(traceOptionNumber("False", &number));
    EXPECT_EQ(0, number);
    EXPECT_FALSE(traceOptionNumber("maybe", &number));
    EXPECT_FALSE(traceOptionNumber("", &number));
}

TEST(TraceControlFile, LinesAreNumberedAndLongOnesComeInPieces) {
    char name[] = "/tmp/keel-tracectl-XXXXXX";
    int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    std::string content = "# head\nError\n\n" + std::string(300, 'x') + "\n-Net\n";
    ASSERT_EQ(static_cast<ssize_t>(content.size()), write(fd, content.data(), content.size()));
    close(fd);
    std::vector<std::string> seen;
    ASSERT_EQ(0u, readTraceControlFile(
                      name,
                      [](void* context, const TraceControlLineT& line) {
                          static_cast<std::vector<std::string>*>(context)->push_back(
                              std::to_string(line.lineNumber) + (line.continued ? "+" : " ") +
                              std::to_string(line.kind) + " " + std::to_string(strlen(line.text)));
                      },
                      &seen));
    unlink(name);
    const std::vector<std::string> expected = {"2 2 5", "4 2 255", "4+2 45", "5 1 3"};
    EXPECT_EQ(expected, seen);
    EXPECT_EQ(0xE0000000u | ENOENT, readTraceControlFile(name, nullptr, nullptr));
}

}  // namespace
}  // namespace keel
