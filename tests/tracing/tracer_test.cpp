// The tracer through its public faces: trace points, dispatch, counters and
// timers, the older face, and threads tracing while settings and consumers
// change. The tests share the one tracer: each uses paths of its own and
// removes the consumers it added. Then the tree of control variables on
// controllers of their own: random operation sequences against the model of
// tracemodel.h (which covers the prefix rules, names that begin with a
// digit, empty components, creation order, settings, levels and slot
// reuse), the detail budget along chains deeper than the model's, and bad
// input.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <keel/keel.h>

#include "testing/modelrun.h"
#include "testing/tracelines.h"
#include "testing/tracemodel.h"
#include "tracing/tracer.h"

namespace keel {
namespace {

using testing_errors::TraceLinesC;
typedef std::vector<std::string> LinesT;

// An enter through one face shows through the other (the faces themselves
// are checked with the entry points); lines reach the consumers whose paths
// are on, through handles the points keep.
TEST(TracerTest, IndentDispatchAndHandles) {
    TraceLinesC consumer("Faces");
    int32_t before = tracerInstance()->currentIndent();
    EXPECT_EQ(1u, tracerV1I()->enter("Faces", nullptr));
    EXPECT_EQ(before + 1, tracerInstance()->currentIndent());
    EXPECT_EQ(0u, tracerI()->enter("Faces/Out/Of/The/Budget/Of/Nine/At/Level/Nine", nullptr));
    tracerI()->leave();
    EXPECT_EQ(before, tracerInstance()->currentIndent());
    // Dispatch: a failing consumer losing its place is the tree model's.
    TraceLinesC first("Dispatch"), second("Dispatch/Two");
    static TracePointT one = {nullptr, "Dispatch/One"}, two = {nullptr, "Dispatch/Two"};
    EXPECT_EQ(1u, traceLine(one, "one %d", 1));
    EXPECT_NE(nullptr, one.handle);
    EXPECT_EQ(1u, traceLine(two, "two %s", "x"));
    // A point without a cell never traces, though its path is on.
    EXPECT_NE(0u, tracerI()->isEnabled("Dispatch/One", nullptr));
    EXPECT_EQ(0u, tracerI()->trace("Dispatch/One", nullptr, "x", ArgListC()));
    // The older face builds its list from the variadic block.
    TraceValuesT* cell = nullptr;
    EXPECT_EQ(1u, tracerV1I()->traceFormat("Dispatch/Old", &cell, "%s=%d", "n", 42));
    EXPECT_EQ((LinesT{"Dispatch/One one 1", "Dispatch/Two two x", "Dispatch/Old n=42"}),
              first.lines);
    EXPECT_EQ((LinesT{"Dispatch/Two two x"}), second.lines);
    // Bad paths are off and fill no cell.
    TraceValuesT* fresh = nullptr;
    std::string tooLong(kTraceMaxPath + 1, 'D');
    EXPECT_EQ(0u, tracerI()->isEnabled(nullptr, &fresh));
    EXPECT_EQ(0u, tracerI()->trace(tooLong.c_str(), &fresh, "x", ArgListC()));
    EXPECT_EQ(0u, tracerI()->enter(nullptr, &fresh));
    EXPECT_EQ(nullptr, fresh);
}

// A line for consumer 0 alone holds its arguments on the stack; a consumer of
// the program's own in the file consumer's place still keeps a list of its own.
TEST(TracerTest, AConsumerInTheFileConsumersPlaceKeepsItsOwnList) {
    TraceDefaultConsumerI* own = tracerI()->getDefaultConsumer();
    ASSERT_EQ(0u, getTraceController()->removeConsumer(own));
    {
        TraceLinesC first("Slot/Zero");
        static TracePointT point = {nullptr, "Slot/Zero"};
        EXPECT_EQ(1u, traceLine(point, "%s %d", "kept", 5));
        EXPECT_EQ(kTraceOwnConsumerBit, point.handle->active);
        EXPECT_EQ((LinesT{"Slot/Zero kept 5"}), first.lines);
        EXPECT_FALSE(ArgListStackBodyC::isOnStack(first.last));
        EXPECT_STREQ("kept", static_cast<const char*>(first.last.get(0)->pointer()));
    }
    EXPECT_EQ(0u, getTraceController()->addConsumer(own, 0, 9));
}

// Every consumer hears of a change, whatever the masks. A stop needs the
// cell that its start filled, and a running timer. The counter is read as
// a change from what an earlier run left.
TEST(TracerTest, CountersTimersAndInit) {
    TraceLinesC consumer;
    TracerI* tracer = tracerI();
    TraceValuesT *cell = nullptr, *timer = nullptr;
    int32_t before = 0, counter = 0;
    int64_t total = -1;
    uint64_t perSecond = 0;
    tracer->getValues("Values/Count", nullptr, &before, nullptr, nullptr);
    tracer->count("Values/Count", &cell, 5);
    tracer->uncount("Values/Count", &cell, 2);
    tracer->uncount("Values/Count", nullptr, INT32_MIN);
    EXPECT_EQ(1u, tracer->getValues("Values/Count", nullptr, &counter, &total, &perSecond));
    EXPECT_EQ(std::make_tuple(before + 3u + 0x80000000u, int64_t(0), uint64_t(1000000)),
              std::make_tuple(uint32_t(counter), total, perSecond));
    tracer->stopTimer("Values/Timer", &timer);
    EXPECT_EQ(1u, tracer->startTimer("Values/Timer", &timer));
    ASSERT_NE(nullptr, timer);
    if (timer->started == 0) timer->started = -1;  // started in the tracer's first microsecond
    tracer->stopTimer("Values/Timer", &timer);
    tracer->stopTimer("Values/Timer", &timer);
    EXPECT_EQ(0, timer->started);
    EXPECT_GE(timer->total, 0);
    EXPECT_EQ((LinesT{"Values/Count", "Values/Count", "Values/Count", "Values/Timer"}),
              consumer.changes);
    EXPECT_EQ(0u, tracer->init("prog", nullptr, "info"));
    EXPECT_EQ(0u, tracer->init(nullptr, "/nonexistent/control", nullptr));
    const char *name = nullptr, *info = nullptr;
    getTraceController()->getName(&name);
    getTraceController()->getInfo(&info);
    EXPECT_EQ(std::string("prog info"), std::string(name) + " " + info);
}

// A consumer calls back into the tracer from write, on another thread than
// the test's: the latch is recursive, and the nested line reaches it too.
TEST(TracerThreadTest, ConsumerCallsBackFromWrite) {
    TraceLinesC consumer("Back/Line");
    consumer.onWrite = [&consumer] {
        consumer.onWrite = nullptr;
        TraceValuesT* values = nullptr;
        getTraceController()->getVariable("Back/Nested/Made", &values);
        consumer.enable("Back/Other");
        static TracePointT other = {nullptr, "Back/Other"};
        traceLine(other, "nested");
        tracerI()->count("Back/Counted", nullptr, 1);
    };
    static TracePointT line = {nullptr, "Back/Line"};
    uint32_t passed = 0;
    std::thread([&passed] { passed = traceLine(line, "outer"); }).join();
    EXPECT_EQ(1u, passed);
    EXPECT_EQ((LinesT{"Back/Line outer", "Back/Other nested"}), consumer.lines);
    EXPECT_EQ((LinesT{"Back/Counted"}), consumer.changes);
}

// Threads trace and count at points of their own while another thread
// enables, disables and re-levels those paths and adds and removes consumers.
TEST(TracerThreadTest, TracingWhileSettingsAndConsumersChange) {
    TraceLinesC steady("Busy");
    std::atomic<int> passed(0);
    int32_t before = 0, counter = 0;  // what an earlier run left
    tracerI()->getValues("Busy/T0/Line", nullptr, &before, nullptr, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t, &passed] {
            std::string path = "Busy/T" + std::to_string(t) + "/Line";
            TracePointT point = {nullptr, path.c_str()};
            for (int i = 0; i < 3000; ++i) {
                passed += static_cast<int>(traceLine(point, "%d %d", t, i));
                tracerI()->count(point.path, &point.handle, 1);
            }
        });
    }
    threads.emplace_back([&steady] {
        TraceControllerI* controller = getTraceController();
        for (int i = 0; i < 300; ++i) {
            TraceLinesC extra;
            controller->setConsumerLevel(&extra, i % 11);
            extra.enable("Busy/T1");
            controller->disablePath(&steady, i % 2 ? "Busy/T2" : "Busy/T3");
            controller->setConsumerLevel(&steady, i % 10);
            controller->inheritPath(&steady, i % 2 ? "Busy/T3" : "Busy/T2");
        }
    });
    for (std::thread& thread : threads) thread.join();
    tracerI()->getValues("Busy/T0/Line", nullptr, &counter, nullptr, nullptr);
    EXPECT_EQ(before + 3000, counter);
    // A line may have passed to an extra consumer only; steady saw no more.
    EXPECT_LE(steady.lines.size(), static_cast<size_t>(passed.load()));
}

// Threads mention the same fresh paths at once: each gets one variable.
TEST(TracerThreadTest, RacingFirstMentionsMakeOneVariable) {
    std::vector<TraceValuesT*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &seen] {
            for (int i = 0; i < 200; ++i)
                tracerI()->isEnabled(("Race/" + std::to_string(i)).c_str(), nullptr);
            tracerI()->isEnabled("Race/Same/Leaf", &seen[t]);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::vector<TraceValuesT*>(8, seen[0]), seen);
    uint32_t children = 0;
    getTraceController()->getChildCount("Race", &children);
    EXPECT_EQ(201u, children);
}

struct TreeTest : ::testing::Test {
    TreeTest() { consumer.log = &log; }
    TraceValuesT* values(const std::string& path) {
        TraceValuesT* result = nullptr;
        controller.getVariable(path.c_str(), &result);
        return result;
    }
    TraceControllerC controller;
    tracemodel::LogConsumerC consumer;
    std::vector<std::string> log;
};

TEST_F(TreeTest, BudgetReachesAsFarAsTheDetailAllows) {
    controller.addConsumer(&consumer, 0, 9);
    for (auto c : {std::make_pair("1", 8), {"0", 12}, {"3", 2}}) {
        std::string path = std::string(c.first) + "Top" + c.first;
        controller.enablePath(&consumer, path.c_str());
        for (int depth = 1; depth <= 12; ++depth) {
            path += "/L";
            EXPECT_EQ(depth <= c.second ? 1u : 0u, values(path)->active) << path;
        }
    }
}

TEST_F(TreeTest, BadInputNamesNothingAndCreatesNothing) {
    EXPECT_EQ(kTraceNoConsumer, controller.addConsumer(nullptr, 0, 3));
    EXPECT_EQ(kTraceNoConsumer, controller.enablePath(&consumer, "A"));
    controller.addConsumer(&consumer, 0, 9);
    std::string tooLong(kTraceMaxPath + 1, 'x');
    TraceValuesT* result = values("A");
    for (const char* path : {tooLong.c_str(), static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(0u, controller.getVariable(path, &result));
        EXPECT_EQ(nullptr, result);
        EXPECT_EQ(0u, controller.enablePath(&consumer, path));
    }
    EXPECT_EQ(0u, controller.setVariable("A", nullptr));
    uint32_t count = 99;
    EXPECT_EQ(0u, controller.getChildCount("Nowhere/Else", &count));
    EXPECT_EQ(0u, count);
    const char* name = nullptr;
    for (auto miss : {std::make_pair("Nowhere", 0), {"A", 0}, {"A", -1}, {nullptr, 0}})
        EXPECT_EQ(kTraceNoChild, controller.getChildName(miss.first, miss.second, &name));
    EXPECT_EQ(kTraceNoChild, controller.getChildName("A", 0, nullptr));
    EXPECT_EQ(1u, controller.variableCount());
    // The longest path, all separators and detail 0, is a chain of 4,094
    // variables; enabling its top walks all of it.
    std::string deep = "0," + std::string(kTraceMaxPath - 2, '/');
    EXPECT_NE(nullptr, values(deep));
    EXPECT_EQ(0u, controller.enablePath(&consumer, "0,"));
    EXPECT_EQ(1u, values(deep)->active);
}

TEST(TreeModelTest, RandomSequencesAgreeWithTheModel) {
    EXPECT_EQ("", testkit::runSeeded<tracemodel::DriverC>(60, 150));
}

}  // namespace
}  // namespace keel
