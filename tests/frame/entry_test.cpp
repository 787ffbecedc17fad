#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <numeric>
#include <set>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "testing/process.h"

namespace keel {
namespace {

// Under the Itanium C++ ABI a pointer to a virtual member function holds
// 1 + the byte offset of its slot in the table. Pinning these offsets pins
// the binary interface that programs compile against.
template <typename MemberFn>
size_t slotOf(MemberFn member) {
    static_assert(sizeof(MemberFn) == 2 * sizeof(void*), "Itanium member pointer layout");
    uintptr_t word[2];
    memcpy(word, &member, sizeof word);
    EXPECT_EQ(1u, word[0] % sizeof(void*)) << "not a virtual function";
    EXPECT_EQ(0u, word[1]) << "this-adjustment";
    return (word[0] - 1) / sizeof(void*);
}

// Slots 0 to `count` - 1 in order, then `tail`.
std::vector<size_t> slots(size_t count, std::vector<size_t> tail = {}) {
    std::vector<size_t> all(count);
    std::iota(all.begin(), all.end(), size_t(0));
    all.insert(all.end(), tail.begin(), tail.end());
    return all;
}

#define SLOT(Interface, name) slotOf(&Interface::name)

TEST(SlotOrderTest, PublicInterfaces) {
    // RefCountI: slots 2 and 3 are the two destructors.
    EXPECT_EQ(slots(2), (std::vector<size_t>{SLOT(RefCountI, addRef), SLOT(RefCountI, release)}));
    // StringImplI: slots 29 and 30 are the two destructors.
    EXPECT_EQ(slots(29, {31, 32}),
              (std::vector<size_t>{
                  SLOT(StringImplI, addRef), SLOT(StringImplI, release), SLOT(StringImplI, isShared),
                  SLOT(StringImplI, getFactory), SLOT(StringImplI, length), SLOT(StringImplI, isEmpty),
                  SLOT(StringImplI, compare), SLOT(StringImplI, compareNatural), SLOT(StringImplI, compareNoCase),
                  SLOT(StringImplI, findChar), SLOT(StringImplI, findLastChar), SLOT(StringImplI, findString),
                  SLOT(StringImplI, findLastString), SLOT(StringImplI, findFirstOf), SLOT(StringImplI, findLastOf),
                  SLOT(StringImplI, findFirstNotOf), SLOT(StringImplI, findLastNotOf), SLOT(StringImplI, charAt),
                  SLOT(StringImplI, textLength), SLOT(StringImplI, text), SLOT(StringImplI, releaseText),
                  SLOT(StringImplI, copyText), SLOT(StringImplI, substring), SLOT(StringImplI, erase),
                  SLOT(StringImplI, append), SLOT(StringImplI, appendChar), SLOT(StringImplI, insert),
                  SLOT(StringImplI, toLower), SLOT(StringImplI, toUpper), SLOT(StringImplI, reset),
                  SLOT(StringImplI, reserve)}));
    EXPECT_EQ(slots(13), (std::vector<size_t>{
                             SLOT(StringImplFactoryI, fromText), SLOT(StringImplFactoryI, fromBytesNew),
                             SLOT(StringImplFactoryI, fromChar), SLOT(StringImplFactoryI, fromUtf16),
                             SLOT(StringImplFactoryI, concat), SLOT(StringImplFactoryI, fromWide),
                             SLOT(StringImplFactoryI, fromWideCounted), SLOT(StringImplFactoryI, substring),
                             SLOT(StringImplFactoryI, format), SLOT(StringImplFactoryI, formatTo),
                             SLOT(StringImplFactoryI, fromBytes), SLOT(StringImplFactoryI, secureFromText),
                             SLOT(StringImplFactoryI, secureFromBytes)}));
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
    EXPECT_TRUE(seen.count("getStringFactory"));
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
