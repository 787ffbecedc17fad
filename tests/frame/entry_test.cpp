#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <keel/keel.h>

#include "testing/process.h"

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
    FILE* pipe = popen((std::string("nm -D --defined-only '") + KEEL_SHARED_LIBRARY + "'").c_str(), "r");
    ASSERT_NE(nullptr, pipe);
    std::set<std::string> seen;
    char line[1024];
    while (fgets(line, sizeof line, pipe)) {
        std::string name = line;
        name = name.substr(name.rfind(' ') + 1);
        name = name.substr(0, name.find_first_of("@\r\n"));
        if (name != "KEEL_1") seen.insert(name);  // the version node
    }
    EXPECT_EQ(0, pclose(pipe));
    const std::set<std::string> allowed = {"getConfiguration", "getErrBuf",          "getLocale",
                                           "getStringFactory", "getTraceController", "getTracer"};
    for (const std::string& name : seen) EXPECT_TRUE(allowed.count(name)) << "unexpected export: " << name;
    for (const char* name :
         {"getConfiguration", "getStringFactory", "getTracer", "getTraceController", "getErrBuf", "getLocale"}) {
        EXPECT_TRUE(seen.count(name)) << name;
    }
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
