// The tracer through its public faces: trace points, dispatch to consumers,
// counters and timers, the older face, and threads tracing while settings
// and consumers change. All tests share the one tracer, so each uses paths
// of its own and removes the consumers it added.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <keel/keel.h>

#include "tracing/tracer.h"

namespace keel {
namespace {

// Collects rendered lines; may be told to fail or to call back.
class LineConsumerC : public TraceConsumerI {
public:
    uint32_t write(const char* path, int32_t indent, const char* format, ArgListC args) override {
        lines.push_back(std::string(path) + "|" + std::to_string(indent) + "|" + rendered(format, args));
        if (onWrite) onWrite();
        return failing ? 0xE0000005u : 0;
    }
    uint32_t valueChanged(const char* path, int32_t) override {
        changes.push_back(path);
        return 0;
    }
    uint32_t variableCreated(const char*) override { return 0; }

    static std::string rendered(const char* format, ArgListC args) {
        StringC text = StringC::format(StringC(format, "system-8"), args);
        const char* utf8 = text.textUtf8();
        std::string result = utf8;
        text.releaseUtf8(utf8);
        return result;
    }

    std::vector<std::string> lines;
    std::vector<std::string> changes;
    bool failing = false;
    void (*onWrite)() = nullptr;
};

// Adds a consumer for the life of a test.
struct Added {
    explicit Added(TraceConsumerI* consumer, int32_t level = 9) : consumer(consumer) {
        getTraceController()->addConsumer(consumer, 0, level);
    }
    ~Added() { getTraceController()->removeConsumer(consumer); }
    TraceConsumerI* consumer;
};

TEST(TracerTest, FacesAreOneObject) {
    EXPECT_EQ(getTracer(2), getTracer(7));
    EXPECT_EQ(getTracer(2), getTracer(0));
    EXPECT_EQ(getTracer(2), getTracer(-3));
    EXPECT_NE(getTracer(1), getTracer(2));
    EXPECT_EQ(static_cast<TracerI*>(tracerInstance()), tracerI());
    EXPECT_EQ(static_cast<TraceControllerI*>(tracerInstance()), getTraceController());
    // An enter through one face shows through the other.
    LineConsumerC consumer;
    Added added(&consumer);
    getTraceController()->enablePath(&consumer, "Faces");
    int32_t before = tracerInstance()->currentIndent();
    EXPECT_EQ(1u, tracerV1I()->enter("Faces", nullptr));
    EXPECT_EQ(before + 1, tracerInstance()->currentIndent());
    EXPECT_EQ(0u, tracerI()->enter("Faces/Off/Not/Reached/At/All/Below/The/Budget/Of/Nine", nullptr));
    tracerI()->leave();
    EXPECT_EQ(before, tracerInstance()->currentIndent());
    EXPECT_EQ(0u, tracerI()->reserved1());
}

TEST(TracerTest, DispatchHandlesAndFailingConsumers) {
    LineConsumerC first, second;
    Added addFirst(&first), addSecond(&second);
    TraceControllerI* controller = getTraceController();
    controller->enablePath(&first, "Dispatch");
    controller->enablePath(&second, "Dispatch/Two");
    static TracePointT one = {nullptr, "Dispatch/One"};
    static TracePointT two = {nullptr, "Dispatch/Two"};
    EXPECT_EQ(1u, traceLine(one, "one %d", 1));
    EXPECT_NE(nullptr, one.handle);
    EXPECT_EQ(1u, traceLine(two, "two %s", "x"));
    EXPECT_EQ((std::vector<std::string>{"Dispatch/One|0|one 1", "Dispatch/Two|0|two x"}), first.lines);
    EXPECT_EQ((std::vector<std::string>{"Dispatch/Two|0|two x"}), second.lines);
    // A point without a cell never traces, though its path is on.
    EXPECT_NE(0u, tracerI()->isEnabled("Dispatch/One", nullptr));
    EXPECT_EQ(0u, tracerI()->trace("Dispatch/One", nullptr, "x", ArgListC()));
    // A consumer that fails once gets no further lines.
    second.failing = true;
    traceLine(two, "again");
    traceLine(two, "and again");
    EXPECT_EQ(2u, second.lines.size());
    EXPECT_EQ(4u, first.lines.size());
    EXPECT_EQ(kTraceNoConsumer, controller->removeConsumer(&second));
    // The older face builds its list from the variadic block.
    TraceValuesT* cell = nullptr;
    EXPECT_EQ(1u, tracerV1I()->traceFormat("Dispatch/Old", &cell, "%s=%d", "n", 42));
    EXPECT_EQ("Dispatch/Old|0|n=42", first.lines.back());
    // Bad input answers "off".
    TraceValuesT* fresh = nullptr;
    EXPECT_EQ(0u, tracerI()->isEnabled(nullptr, &fresh));
    EXPECT_EQ(0u, tracerI()->trace(std::string(kTraceMaxPath + 1, 'D').c_str(), &fresh, "x", ArgListC()));
    EXPECT_EQ(0u, tracerI()->enter(nullptr, &fresh));
    EXPECT_EQ(nullptr, fresh);
}

TEST(TracerTest, CountersAndTimers) {
    LineConsumerC consumer;
    Added added(&consumer);
    TracerI* tracer = tracerI();
    TraceValuesT* cell = nullptr;
    EXPECT_EQ(0u, tracer->count("Values/Count", &cell, 5));
    EXPECT_EQ(0u, tracer->uncount("Values/Count", &cell, 2));
    EXPECT_EQ(0u, tracer->uncount("Values/Count", nullptr, INT32_MIN));
    int32_t counter = 0;
    int64_t total = -1;
    uint64_t perSecond = 0;
    EXPECT_EQ(1u, tracer->getValues("Values/Count", nullptr, &counter, &total, &perSecond));
    EXPECT_EQ(static_cast<int32_t>(3u + 0x80000000u), counter);
    EXPECT_EQ(0, total);
    EXPECT_EQ(1000000u, perSecond);
    EXPECT_EQ(3u, consumer.changes.size()) << "every consumer hears of a change, whatever the masks";
    // A stop needs the cell that the start filled.
    TraceValuesT* timer = nullptr;
    tracer->stopTimer("Values/Timer", &timer);
    EXPECT_EQ(nullptr, timer);
    EXPECT_EQ(1u, tracer->startTimer("Values/Timer", &timer));
    ASSERT_NE(nullptr, timer);
    if (timer->started == 0) timer->started = -1;  // a start in the tracer's first microsecond
    tracer->stopTimer("Values/Timer", &timer);
    EXPECT_EQ(0, timer->started);
    EXPECT_GE(timer->total, 0);
    EXPECT_EQ(4u, consumer.changes.size());
    tracer->stopTimer("Values/Timer", &timer);
    EXPECT_EQ(4u, consumer.changes.size()) << "no timer runs";
    EXPECT_EQ(0u, tracer->getValues(nullptr, nullptr, &counter, nullptr, nullptr));
}

TEST(TracerTest, InitStoresNameInfoAndProcess) {
    TracerI* tracer = tracerI();
    EXPECT_EQ(0u, tracer->init("prog", nullptr, "info"));
    EXPECT_EQ(0u, tracer->init(nullptr, "/nonexistent/control", nullptr));
    const char* text = nullptr;
    getTraceController()->getName(&text);
    EXPECT_STREQ("prog", text);
    getTraceController()->getInfo(&text);
    EXPECT_STREQ("info", text);
    uint32_t process = 0;
    getTraceController()->getProcessId(&process);
    EXPECT_EQ(static_cast<uint32_t>(getpid()), process);
    EXPECT_EQ(nullptr, tracer->getDefaultConsumer());
}

// A consumer that calls back into the tracer from write: the latch is
// recursive, and the nested line reaches the consumer too.
LineConsumerC* callingBack = nullptr;

void callBack() {
    static int depth = 0;
    if (depth > 0) return;
    ++depth;
    TraceValuesT* values = nullptr;
    getTraceController()->getVariable("Back/Nested/Made", &values);
    getTraceController()->enablePath(callingBack, "Back/Other");
    static TracePointT other = {nullptr, "Back/Other"};
    traceLine(other, "nested");
    tracerI()->count("Back/Counted", nullptr, 1);
    --depth;
}

TEST(TracerThreadTest, ConsumerCallsBackFromWriteOnAnotherThread) {
    LineConsumerC consumer;
    consumer.onWrite = callBack;
    callingBack = &consumer;
    Added added(&consumer);
    getTraceController()->enablePath(&consumer, "Back/Line");
    static TracePointT line = {nullptr, "Back/Line"};
    uint32_t passed = 0;
    std::thread([&passed] { passed = traceLine(line, "outer"); }).join();
    EXPECT_EQ(1u, passed);
    EXPECT_EQ((std::vector<std::string>{"Back/Line|0|outer", "Back/Other|0|nested"}), consumer.lines);
    EXPECT_EQ((std::vector<std::string>{"Back/Counted"}), consumer.changes);
}

// Threads trace at points of their own while another thread enables,
// disables and re-levels those paths and adds and removes consumers.
TEST(TracerThreadTest, TracingWhileSettingsAndConsumersChange) {
    LineConsumerC steady;
    Added added(&steady);
    TraceControllerI* controller = getTraceController();
    controller->enablePath(&steady, "Busy");
    std::vector<std::thread> tracers;
    std::atomic<int> passed(0);
    for (int t = 0; t < 4; ++t) {
        tracers.emplace_back([t, &passed] {
            TracePointT point = {nullptr, nullptr};
            std::string path = "Busy/T" + std::to_string(t) + "/Line";
            point.path = path.c_str();
            for (int i = 0; i < 3000; ++i) {
                passed += static_cast<int>(traceLine(point, "%d %d", t, i));
                tracerI()->count(point.path, &point.handle, 1);
            }
        });
    }
    std::thread changer([&] {
        LineConsumerC extra[3];
        for (int i = 0; i < 300; ++i) {
            LineConsumerC& consumer = extra[i % 3];
            controller->addConsumer(&consumer, 0, i % 11);
            controller->enablePath(&consumer, "Busy/T1");
            controller->disablePath(&steady, i % 2 ? "Busy/T2" : "Busy/T3");
            controller->setConsumerLevel(&steady, i % 10);
            controller->inheritPath(&steady, i % 2 ? "Busy/T3" : "Busy/T2");
            controller->removeConsumer(&consumer);
        }
    });
    for (std::thread& thread : tracers) thread.join();
    changer.join();
    int32_t counter = 0;
    tracerI()->getValues("Busy/T0/Line", nullptr, &counter, nullptr, nullptr);
    EXPECT_EQ(3000, counter);
    // A line may pass to an extra consumer only, never to steady alone unseen.
    EXPECT_LE(steady.lines.size(), static_cast<size_t>(passed.load()));
}

// Many threads create the same fresh paths at once: each path gets one
// variable, and every thread's cell holds it.
TEST(TracerThreadTest, RacingFirstMentionsMakeOneVariable) {
    std::vector<TraceValuesT*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t, &seen] {
            TraceValuesT* cell = nullptr;
            for (int i = 0; i < 200; ++i) tracerI()->isEnabled(("Race/" + std::to_string(i)).c_str(), nullptr);
            tracerI()->isEnabled("Race/Same/Leaf", &cell);
            seen[t] = cell;
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (TraceValuesT* cell : seen) EXPECT_EQ(seen[0], cell);
    uint32_t children = 0;
    getTraceController()->getChildCount("Race", &children);
    EXPECT_EQ(201u, children);
}

}  // namespace
}  // namespace keel
