#include <gtest/gtest.h>
#include <sys/wait.h>

#include <set>
#include <string>
#include <thread>

#include <keel/keel.h>

#include "testing/process.h"
#include "testing/symbols.h"

namespace keel {
namespace {

// The entry points hand out the faces their headers promise.
TEST(EntryTest, TracerFacesAndErrorBuffer) {
    EXPECT_EQ(getTracer(2), getTracer(7));
    EXPECT_NE(getTracer(1), getTracer(2));
    EXPECT_NE(nullptr, getTraceController());
    EXPECT_EQ(static_cast<void*>(tracerI()), getTracer(2));
    EXPECT_EQ(getErrBuf(), getErrBuf());
    ErrBufI* other = nullptr;
    std::thread([&other] { other = getErrBuf(); }).join();
    EXPECT_NE(nullptr, other);
}

// The shared object shows the entry points and nothing else.
TEST(ExportTest, SharedObjectExportsOnlyEntryPoints) {
    std::set<std::string> seen;
    for (const std::string& name : testkit::definedSymbols(KEEL_SHARED_LIBRARY, "-D"))
        if (name != "KEEL_1") seen.insert(name.substr(0, name.find('@')));  // KEEL_1: the version
    EXPECT_EQ((std::set<std::string>{"getConfiguration", "getErrBuf", "getLocale",
                                     "getStringFactory", "getTraceController", "getTracer"}),
              seen);
}

// A handle released by an exit handler that runs after the empty string
// cache has gone does not crash the program.
TEST(ExitTest, LateReleaseOfAnEmptyStringDuringExit) {
    int status = testkit::runProgram(testkit::builtProgram("tests/lateexit_main"));
    ASSERT_TRUE(WIFEXITED(status)) << "helper died";
    ASSERT_NE(127, WEXITSTATUS(status)) << "helper could not be started";
    EXPECT_EQ(0, WEXITSTATUS(status));
}

}  // namespace
}  // namespace keel
