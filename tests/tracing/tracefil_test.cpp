// The file trace consumer: the control file (a table and random files against
// a plain model), name patterns, the opening checks, and trace files whose
// lines are compared byte for byte.
#include "tracing/tracefil.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <pthread.h>

#include <algorithm>
#include <memory>
#include <regex>
#include <string>
#include <tuple>

#include <keel/keel.h>

#include "testing/tempdir.h"
#include "tracing/tracer.h"

namespace keel {
namespace {

using testkit::readFileAt;
using testkit::writeFileAt;

std::string pid() { return std::to_string(getpid()); }

std::string thread() {
    char text[32];
    snprintf(text, sizeof text, "0x%lx", static_cast<unsigned long>(pthread_self()));
    return text;
}

class TraceFileTest : public ::testing::Test {
protected:
    TraceFileTest() : controller(getTraceController()) {}
    // A consumer of the test's own, reading `control` as its control file.
    std::unique_ptr<TraceConsumerFileC> consumer(const std::string& control) {
        std::unique_ptr<TraceConsumerFileC> made(new TraceConsumerFileC(controller));
        writeFileAt(dir + "/control", control);
        EXPECT_EQ(made->readControlFile((dir + "/control").c_str()), 0u);
        return made;
    }
    TraceControllerI* controller;
    testkit::TempDirC temp;
    const std::string dir = temp.path();
};

// What each key and value of a control file sets, oddities included, is
// tracefil_fuzz's, which compares every option of arbitrary files (and of its
// seeds, which hold the oddities) with a plain model of the rules. Here one
// file of them (a time of day other than 1 is off, 'F' is 0), the answers of
// setOption and of a missing file, and the default name.
TEST_F(TraceFileTest, ControlFileKeysAndValues) {
    TraceFileOptionsT o = consumer("timeofday=2\nflush_freq = 100\nmax_detail=F")->options();
    EXPECT_EQ(std::make_tuple(0, 100, 0),
              std::make_tuple(static_cast<int>(o.timeOfDay), o.flushFrequency, o.maxDetail));
    EXPECT_STREQ(consumer("")->options().filename, "/tmp/%p%t.trc");
    TraceConsumerFileC plain(controller);
    EXPECT_EQ(plain.setOption("nonsense", "1"), kTraceUnknownKey);
    EXPECT_EQ(plain.setOption("Show_Process", "maybe"), 0u);
    EXPECT_EQ(plain.readControlFile((dir + "/missing").c_str()), 0xE0000000u | ENOENT);
}

// Paths and patterns of a control file go to the real controller: what each
// path line leaves is tracefil_fuzz's (against a plain model of the lines);
// here the patterns, which name components of variables yet to come (a
// fresh one on each run of the test).
TEST_F(TraceFileTest, PatternLinesAndLiteralStars) {
    static int run = 0;
    const std::string fresh = "Err" + std::to_string(++run) + "/Catalog/Open";
    std::unique_ptr<TraceConsumerFileC> made(new TraceConsumerFileC(controller));
    ASSERT_EQ(controller->addConsumer(made.get(), 0, 9), 0u);
    writeFileAt(dir + "/control", "*Catalog\n*/Catalog\n+*Catalog\n-*Catalog\n+TF/Plus\n");
    ASSERT_EQ(made->readControlFile((dir + "/control").c_str()), 0u);
    EXPECT_EQ(made->options().patternCount, 3u);
    for (uint32_t i = 0; i < 3; ++i) EXPECT_STREQ(made->options().patterns[i], "Catalog");
    // A literal star is a name: set, and off.
    TraceValuesT* values = nullptr;
    for (const char* path : {"*Catalog", fresh.c_str(), "TF/Plus"}) {
        controller->getVariable(path, &values);
        EXPECT_NE(values->explicit_, 0u) << path;
        EXPECT_EQ(values->enabled & values->explicit_, *path == '*' ? 0u : values->explicit_)
            << path;
    }
    controller->removeConsumer(made.get());
}

TEST_F(TraceFileTest, NamePatterns) {
    // Pattern, attempt, name, exclusive.
    const std::tuple<const char*, uint32_t, std::string, bool> cases[] = {
        {"/tmp/a%p.trc", 0, "/tmp/a" + pid() + ".trc", false},
        {"x%%p", 0, "x" + pid(), false},
        {"x%qy%", 0, "xqy", false},
        {"x%_p", 0, "x", false},
        {"x%_p", 2, "x_" + pid(), false},
        {"x%u", 0, "x", true},
        {"x%u", 7, "x7", true},
        {"x%_u", 0, "x", true},
        {"x%_u", 12, "x_12", true},
        {"x%_q", 0, "x", false},
        {"x%_q", 1, "x_q", false},
        {"x%_", 1, "x", false},
    };
    char out[4096];
    for (const auto& [pattern, attempt, expected, exclusive] : cases) {
        bool made = false;
        TraceConsumerFileC::expandName(pattern, attempt, out, &made);
        EXPECT_EQ(std::make_pair(expected, exclusive), std::make_pair(std::string(out), made))
            << pattern << " " << attempt;
    }
    bool exclusive = true;
    TraceConsumerFileC::expandName("%d-%t", 0, out, &exclusive);
    EXPECT_TRUE(std::regex_match(out, std::regex("[0-9]{8}-[0-9]{6}"))) << out;
    std::string longPattern(5000, 'a');
    TraceConsumerFileC::expandName((longPattern + "%p").c_str(), 0, out, &exclusive);
    EXPECT_EQ(strlen(out), 4095u);
}

// The lines of a trace file, byte for byte, for the prefix options.
TEST_F(TraceFileTest, LinesByteForByte) {
    // Control, indent, path, the prefix of "opened 7 x\n", and whether the
    // second line is the same (else its stamp counts from the first).
    const std::tuple<const char*, int32_t, const char*, std::string, bool> cases[] = {
        {"", 0, "Net/Open", "", true},
        {"show_class=1", 0, "Net/Open", "", true},
        {"timestamp=1", 0, "Net/Open", "0.0000: ", false},
        {"timedeltas=1", 0, "Net/Open", "+0.0000: ", false},
        {"timestamp=1\ntimedeltas=1", 0, "Net/Open", "0.0000 (+0.0000): ", false},
        {"show_process=2", 0, "Net/Open", "pid " + pid() + ": ", true},
        {"show_threads=1\nshow_class=1", 0, "3,Net/Open",
         "thread " + thread() + " (3,Net/Open): ", true},
        {"timestamp=1\ntimedeltas=1\nshow_process=1\nshow_threads=1\nshow_class=1", 0, "Net/Open",
         "0.0000 (+0.0000), pid " + pid() + ", thread " + thread() + " (Net/Open): ", false},
        {"", 17, "Net/Open", " ", true},
        {"max_indent=0", 17, "Net/Open", std::string(17, ' '), true},
        {"max_indent=4\nshow_process=1", 6, "Net/Open", "pid " + pid() + ":   ", true},
    };
    for (const auto& [control, indent, path, prefix, again] : cases) {
        SCOPED_TRACE(control);
        std::string name = dir + "/lines.trc", first = prefix + "opened 7 x\n";
        unlink(name.c_str());
        auto made = consumer(std::string(control) + "\nfilename=" + name);
        for (int line = 0; line < 2; ++line) {
            ArgListC args;
            ASSERT_EQ(made->write(path, indent, "opened %d %s", args.add(int32_t(7)).add("x")), 0u);
        }
        std::string both = readFileAt(name),
                    rest = both.substr(std::min(both.size(), first.size()));
        EXPECT_EQ(both.substr(0, first.size()), first);
        EXPECT_TRUE(again
                        ? rest == first
                        : std::regex_match(rest, std::regex("\\+?[0-9]+\\.[0-9]{4}.*opened 7 x\n")))
            << rest;
    }
    // Dates and times as stamps: local, three digits behind the seconds.
    std::string name = dir + "/day.trc";
    auto made = consumer("timeofday=1\nfilename=" + name);
    made->write("P", 0, "caf\xc3\xa9 %s", ArgListC().add("\xe2\x82\xac"));
    EXPECT_TRUE(std::regex_match(
        readFileAt(name),
        std::regex(
            "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{5}: caf\xc3\xa9 \xe2\x82\xac\n")))
        << readFileAt(name);
}

// The tracer's own consumer: init reads the control file, dispatch writes
// the line, counters and timers follow their switches.
TEST_F(TraceFileTest, TheTracersOwnConsumer) {
    TracerI* tracer = tracerI();
    TraceDefaultConsumerI* own = tracer->getDefaultConsumer();
    ASSERT_NE(own, nullptr);
    std::string name = dir + "/own.trc";
    writeFileAt(dir + "/control",
                "FileTest/Line\nFileTest/Count\nFileTest/Timer\ntrace_counters=1\ntrace_timers=1\n"
                "max_detail=7\nfilename=" +
                    name + "\n");
    ASSERT_EQ(tracer->init(nullptr, (dir + "/control").c_str(), nullptr), 0u);
    static TracePointT line = {nullptr, "FileTest/Line"};
    traceLine(line, "value %d of %s", 42, "six");
    static TraceValuesT* counter = nullptr;
    int32_t before = 0;  // what an earlier run left
    tracer->getValues("FileTest/Count", nullptr, &before, nullptr, nullptr);
    tracer->count("FileTest/Count", &counter, 3);
    static TraceValuesT* timer = nullptr;
    tracer->startTimer("FileTest/Timer", &timer);
    timer->started -= 1;  // at least a tick, whatever the clock: the interval line is written
    tracer->stopTimer("FileTest/Timer", &timer);
    std::string text = readFileAt(name);
    EXPECT_TRUE(std::regex_match(
        text,
        std::regex("value 42 of six\ncounter FileTest/Count now " + std::to_string(before + 3) +
                   "\ntimer FileTest/Timer interval 0, total [0-9]+\\.[0-9]{6}\n")))
        << text;
    // Back to where it was for the other tests: nothing on, no file.
    controller->inheritPath(own, "FileTest");
    for (const char* path : {"FileTest/Line", "FileTest/Count", "FileTest/Timer"})
        controller->inheritPath(own, path);
    own->setTraceCounters(0);
    own->setTraceTimers(0);
    own->setFilename("/tmp/%p%t.trc");
    controller->setConsumerLevel(own, 9);
}

// The opening checks: nothing planted under the name is written through.
// Each write answers its code.
TEST_F(TraceFileTest, OpeningRefusesWhatWasPlanted) {
    TraceConsumerFileC linked(controller);
    auto writeAs = [&linked](const std::string& name, const char* text = "x") {
        linked.setFilename(name.c_str());
        return linked.write("P", 0, text, ArgListC());
    };
    writeFileAt(dir + "/victim", "keep");
    ASSERT_EQ(symlink((dir + "/victim").c_str(), (dir + "/planted.trc").c_str()), 0);
    EXPECT_EQ(writeAs(dir + "/planted.trc"), 0xE0000000u | ELOOP);
    // A dangling link too: the open itself does not follow it.
    ASSERT_EQ(symlink((dir + "/nowhere").c_str(), (dir + "/dangling.trc").c_str()), 0);
    EXPECT_EQ(writeAs(dir + "/dangling.trc"), 0xE0000000u | ELOOP);
    EXPECT_EQ(readFileAt(dir + "/victim"), "keep");
    EXPECT_NE(access((dir + "/nowhere").c_str(), F_OK), 0);
    // A directory fails at once, even with attempts left.
    ASSERT_EQ(mkdir((dir + "/adir").c_str(), 0700), 0);
    EXPECT_EQ(writeAs(dir + "/adir%_u"), 0xE0000000u | EISDIR);
    EXPECT_NE(access((dir + "/adir_1").c_str(), F_OK), 0);
    // A file of another owner (the test can only plant one as root).
    if (geteuid() == 0) {
        writeFileAt(dir + "/foreign.trc", "theirs");
        ASSERT_EQ(chown((dir + "/foreign.trc").c_str(), 12345, 12345), 0);
        EXPECT_EQ(writeAs(dir + "/foreign.trc"), 0xE0000000u | EPERM);
        EXPECT_EQ(readFileAt(dir + "/foreign.trc"), "theirs");
    }
    // %_u: the plain name first, exclusively, then _1, _2, ...
    writeFileAt(dir + "/u.trc", "");
    writeFileAt(dir + "/u.trc_1", "");
    EXPECT_EQ(writeAs(dir + "/u.trc%_u", "third"), 0u);
    EXPECT_EQ(readFileAt(dir + "/u.trc_2"), "third\n");
    EXPECT_EQ(readFileAt(dir + "/u.trc"), "");
    // A name that cannot be made at all fails after the attempts.
    EXPECT_EQ(writeAs(dir + "/no/such/dir%u"), 0xE0000000u | ENOENT);
}

}  // namespace
}  // namespace keel
