// The tree of control variables on controllers of their own: random
// operation sequences against the model of tracemodel.h (which covers the
// prefix rules, names that begin with a digit, empty components, creation
// order, settings, levels and slot reuse), the detail budget along chains
// deeper than the model's, and bad input.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/modelrun.h"
#include "testing/tracemodel.h"

namespace keel {
namespace {

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
