// The tree of control variables: naming, creation, the detail budget and the
// consumer table, on controllers of their own, and a model-based test of
// random operation sequences.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tracing/tracemodel.h"

namespace keel {
namespace {

using tracemodel::LogConsumerC;

struct TreeTest : ::testing::Test {
    TreeTest() { consumer.log = &log; }
    TraceValuesT* values(const char* path) {
        TraceValuesT* result = nullptr;
        controller.getVariable(path, &result);
        return result;
    }
    uint32_t active(const char* path) { return values(path)->active; }

    TraceControllerC controller;
    LogConsumerC consumer;
    std::vector<std::string> log;
};

TEST_F(TreeTest, PrefixNamesOneVariableAndSetsItsDetail) {
    struct {
        const char* path;
        int detail;
    } const steps[] = {{"3A/B", 3}, {"0,A/B", 0}, {"A/B", 0}, {"9A/B", 9}, {"5,A/B", 5}};
    TraceValuesT* first = values("3A/B");
    for (const auto& step : steps) {
        EXPECT_EQ(first, values(step.path)) << step.path;
        EXPECT_EQ(step.detail, first->detail) << step.path;
    }
    EXPECT_EQ(3, values("A")->detail) << "an ancestor takes the prefix of the path that made it";
    EXPECT_EQ(2u, controller.variableCount());
    // A name may itself begin with a digit behind a prefix.
    EXPECT_NE(values("0,7x"), values("7x"));
    EXPECT_EQ(values("0,7x"), values("1,7x"));
    EXPECT_EQ(values("x"), values("7x"));
}

TEST_F(TreeTest, FirstMentionCreatesEveryAncestorTopmostFirst) {
    controller.addConsumer(&consumer, 0, 9);
    values("2A/B/C");
    EXPECT_EQ((std::vector<std::string>{"c0 2A", "c0 2A/B", "c0 2A/B/C"}), log);
    const char* name = nullptr;
    EXPECT_EQ(0u, controller.getChildName("A", 0, &name));
    EXPECT_STREQ("A/B", name);
    // Empty components are variables too.
    log.clear();
    values("Q//R");
    EXPECT_EQ((std::vector<std::string>{"c0 Q", "c0 Q/", "c0 Q//R"}), log);
}

TEST_F(TreeTest, BudgetReachesAsFarAsTheDetailAllows) {
    controller.addConsumer(&consumer, 0, 9);
    struct {
        const char* prefix;
        int deepestReached;
    } const cases[] = {{"1", 8}, {"0", 12}, {"3", 2}};
    for (const auto& c : cases) {
        std::string top = std::string(c.prefix) + "Top" + c.prefix;
        ASSERT_EQ(0u, controller.enablePath(&consumer, top.c_str()));
        std::string path = top;
        for (int depth = 1; depth <= 12; ++depth) {
            path += "/L";
            EXPECT_EQ(depth <= c.deepestReached ? 1u : 0u, active(path.c_str())) << path;
        }
    }
}

TEST_F(TreeTest, DisableInheritAndStaleChildren) {
    controller.addConsumer(&consumer, 0, 9);
    controller.enablePath(&consumer, "A");
    EXPECT_EQ(1u, active("A/B/C"));
    controller.disablePath(&consumer, "A/B");
    EXPECT_EQ(0u, active("A/B"));
    EXPECT_EQ(1u, active("A"));
    // The children of a variable whose mask became 0 keep theirs.
    EXPECT_EQ(1u, active("A/B/C"));
    controller.inheritPath(&consumer, "A/B");
    EXPECT_EQ(1u, active("A/B"));
    controller.disablePath(&consumer, "A");
    EXPECT_EQ(0u, active("A"));
    EXPECT_EQ(1u, active("A/B")) << "not visited under a parent that is off";
    controller.inheritPath(&consumer, "A");
    EXPECT_EQ(0u, active("A"));
}

TEST_F(TreeTest, ConsumerTableAnswers) {
    LogConsumerC other;
    other.log = &log;
    other.id = 1;
    EXPECT_EQ(kTraceNoConsumer, controller.removeConsumer(&consumer));
    EXPECT_EQ(kTraceNoConsumer, controller.enablePath(&consumer, "A"));
    EXPECT_EQ(kTraceNoConsumer, controller.setConsumerLevel(&consumer, 3));
    EXPECT_EQ(kTraceNoConsumer, controller.addConsumer(nullptr, 0, 3));
    EXPECT_EQ(0u, controller.addConsumer(&consumer, 0, 12));
    EXPECT_EQ(9, controller.at(0)->level);
    EXPECT_EQ(0u, controller.setConsumerLevel(&consumer, -1));
    EXPECT_EQ(0, controller.at(0)->level);
    controller.enablePath(&consumer, "A");
    EXPECT_EQ(0u, controller.removeConsumer(&consumer));
    EXPECT_EQ(1u, controller.TraceConsumerArrayC::size());
    // The slot is reused; the former consumer's setting stays as an explicit off.
    EXPECT_EQ(0u, controller.addConsumer(&other, 0, 9));
    EXPECT_EQ(&other, controller.at(0)->consumer);
    EXPECT_EQ(0u, values("A")->enabled);
    EXPECT_EQ(1u, values("A")->explicit_);
    EXPECT_EQ(0u, active("A"));
}

TEST_F(TreeTest, SetVariableAndLookupsWithoutCreation) {
    TraceValuesT in = TraceValuesT();
    in.detail = 12;
    in.counter = 5;
    in.active = 7;
    controller.setVariable("A", &in);
    EXPECT_EQ(9, values("A")->detail);
    EXPECT_EQ(5, values("A")->counter);
    EXPECT_EQ(0u, values("A")->active);
    in.detail = -4;
    controller.setVariable("A", &in);
    EXPECT_EQ(0, values("A")->detail);

    uint32_t count = 99;
    EXPECT_EQ(0u, controller.getChildCount("Nowhere/Else", &count));
    EXPECT_EQ(0u, count);
    const char* name = nullptr;
    struct {
        const char* path;
        int32_t index;
    } const misses[] = {{"Nowhere", 0}, {"A", 0}, {"A", -1}, {nullptr, 0}};
    for (const auto& miss : misses) EXPECT_EQ(kTraceNoChild, controller.getChildName(miss.path, miss.index, &name));
    EXPECT_EQ(kTraceNoChild, controller.getChildName("A", 0, nullptr));
    EXPECT_EQ(1u, controller.variableCount());
}

TEST_F(TreeTest, BadPathsNameNothing) {
    controller.addConsumer(&consumer, 0, 9);
    std::string longest(kTraceMaxPath, 'x'), tooLong(kTraceMaxPath + 1, 'x');
    const uint32_t slashes = kTraceMaxPath - 2;
    std::string deep = "0," + std::string(slashes, '/');
    TraceValuesT* result = values("A");
    EXPECT_EQ(0u, controller.getVariable(tooLong.c_str(), &result));
    EXPECT_EQ(nullptr, result);
    EXPECT_EQ(0u, controller.getVariable(nullptr, &result));
    EXPECT_EQ(nullptr, result);
    EXPECT_EQ(0u, controller.enablePath(&consumer, tooLong.c_str()));
    EXPECT_EQ(0u, controller.enablePath(&consumer, nullptr));
    EXPECT_EQ(0u, controller.setVariable(nullptr, nullptr));
    EXPECT_NE(nullptr, values(longest.c_str()));
    // A path of nothing but separators is a chain of variables as deep as
    // the path is long; enabling its top walks all of it.
    EXPECT_NE(nullptr, values(deep.c_str()));
    EXPECT_EQ(0u, controller.enablePath(&consumer, "0,"));
    EXPECT_EQ(1u, values(deep.c_str())->active);
    EXPECT_EQ(3u + slashes, controller.variableCount());
}

TEST_F(TreeTest, TimeNeverRunsBackwards) {
    int64_t previous = -1;
    for (int i = 0; i < 1000; ++i) {
        int64_t now = -1;
        ASSERT_EQ(0u, controller.getTime(&now));
        EXPECT_GE(now, previous);
        previous = now;
    }
    uint64_t perSecond = 0;
    controller.getTicksPerSecond(&perSecond);
    EXPECT_EQ(1000000u, perSecond);
}

// Random operation sequences against the model.
TEST(TreeModelTest, RandomSequencesAgreeWithTheModel) {
    std::mt19937 rng(16);
    for (int round = 0; round < 60; ++round) {
        tracemodel::DriverC driver;
        for (int i = 0; i < 150; ++i) {
            uint8_t bytes[4];
            for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
            std::string broken = driver.step(bytes[0], bytes[1], bytes[2], bytes[3]);
            ASSERT_EQ("", broken) << "round " << round << " step " << i;
        }
    }
}

}  // namespace
}  // namespace keel
