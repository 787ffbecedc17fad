#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <set>
#include <string>

#include <keel/keel.h>

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

TEST(SlotOrderTest, RefCountInterface) {
    EXPECT_EQ(0u, slotOf(&RefCountI::addRef));
    EXPECT_EQ(1u, slotOf(&RefCountI::release));
    // Slots 2 and 3 are the two destructors.
}

TEST(SlotOrderTest, StringRepresentationInterface) {
    EXPECT_EQ(0u, slotOf(&StringImplI::addRef));
    EXPECT_EQ(1u, slotOf(&StringImplI::release));
    EXPECT_EQ(2u, slotOf(&StringImplI::isShared));
    EXPECT_EQ(3u, slotOf(&StringImplI::getFactory));
    EXPECT_EQ(4u, slotOf(&StringImplI::length));
    EXPECT_EQ(5u, slotOf(&StringImplI::isEmpty));
    EXPECT_EQ(6u, slotOf(&StringImplI::compare));
    EXPECT_EQ(7u, slotOf(&StringImplI::compareNatural));
    EXPECT_EQ(8u, slotOf(&StringImplI::compareNoCase));
    EXPECT_EQ(9u, slotOf(&StringImplI::findChar));
    EXPECT_EQ(10u, slotOf(&StringImplI::findLastChar));
    EXPECT_EQ(11u, slotOf(&StringImplI::findString));
    EXPECT_EQ(12u, slotOf(&StringImplI::findLastString));
    EXPECT_EQ(13u, slotOf(&StringImplI::findFirstOf));
    EXPECT_EQ(14u, slotOf(&StringImplI::findLastOf));
    EXPECT_EQ(15u, slotOf(&StringImplI::findFirstNotOf));
    EXPECT_EQ(16u, slotOf(&StringImplI::findLastNotOf));
    EXPECT_EQ(17u, slotOf(&StringImplI::charAt));
    EXPECT_EQ(18u, slotOf(&StringImplI::textLength));
    EXPECT_EQ(19u, slotOf(&StringImplI::text));
    EXPECT_EQ(20u, slotOf(&StringImplI::releaseText));
    EXPECT_EQ(21u, slotOf(&StringImplI::copyText));
    EXPECT_EQ(22u, slotOf(&StringImplI::substring));
    EXPECT_EQ(23u, slotOf(&StringImplI::erase));
    EXPECT_EQ(24u, slotOf(&StringImplI::append));
    EXPECT_EQ(25u, slotOf(&StringImplI::appendChar));
    EXPECT_EQ(26u, slotOf(&StringImplI::insert));
    EXPECT_EQ(27u, slotOf(&StringImplI::toLower));
    EXPECT_EQ(28u, slotOf(&StringImplI::toUpper));
    // Slots 29 and 30: the two destructors.
    EXPECT_EQ(31u, slotOf(&StringImplI::reset));
    EXPECT_EQ(32u, slotOf(&StringImplI::reserve));
}

TEST(SlotOrderTest, StringFactoryInterface) {
    EXPECT_EQ(0u, slotOf(&StringImplFactoryI::fromText));
    EXPECT_EQ(1u, slotOf(&StringImplFactoryI::fromBytesNew));
    EXPECT_EQ(2u, slotOf(&StringImplFactoryI::fromChar));
    EXPECT_EQ(3u, slotOf(&StringImplFactoryI::fromUtf16));
    EXPECT_EQ(4u, slotOf(&StringImplFactoryI::concat));
    EXPECT_EQ(5u, slotOf(&StringImplFactoryI::fromWide));
    EXPECT_EQ(6u, slotOf(&StringImplFactoryI::fromWideCounted));
    EXPECT_EQ(7u, slotOf(&StringImplFactoryI::substring));
    EXPECT_EQ(8u, slotOf(&StringImplFactoryI::format));
    EXPECT_EQ(9u, slotOf(&StringImplFactoryI::formatTo));
    EXPECT_EQ(10u, slotOf(&StringImplFactoryI::fromBytes));
    EXPECT_EQ(11u, slotOf(&StringImplFactoryI::secureFromText));
    EXPECT_EQ(12u, slotOf(&StringImplFactoryI::secureFromBytes));
}

// A reference-counted object that records its destruction.
class CountedC : public RefCountC {
public:
    explicit CountedC(int* destroyed) : destroyed_(destroyed) {}
    ~CountedC() override { ++*destroyed_; }

private:
    int* destroyed_;
};

TEST(RefCountTest, NewObjectStartsAtZeroAndDiesOnceAtZero) {
    int destroyed = 0;
    CountedC* object = new CountedC(&destroyed);
    EXPECT_EQ(0, object->refCount());
    EXPECT_EQ(1, object->addRef());
    EXPECT_EQ(2, object->addRef());
    EXPECT_EQ(1, object->release());
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(0, object->release());
    EXPECT_EQ(1, destroyed);
}

// The shared object shows the entry points and nothing else.
TEST(ExportTest, SharedObjectExportsOnlyEntryPoints) {
    std::string command = std::string("nm -D --defined-only '") + KEEL_SHARED_LIBRARY + "'";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(nullptr, pipe);
    const std::set<std::string> allowed = {"getConfiguration", "getErrBuf",          "getLocale",
                                           "getStringFactory", "getTraceController", "getTracer"};
    std::set<std::string> seen;
    char line[1024];
    while (fgets(line, sizeof line, pipe)) {
        std::string text(line);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
        std::string name = text.substr(text.rfind(' ') + 1);
        size_t version = name.find('@');
        if (version != std::string::npos) name.erase(version);
        if (name == "KEEL_1") continue;  // the version node
        EXPECT_TRUE(allowed.count(name)) << "unexpected export: " << text;
        seen.insert(name);
    }
    EXPECT_EQ(0, pclose(pipe));
    EXPECT_TRUE(seen.count("getStringFactory"));
}

// A handle released by an exit handler that runs after the empty string
// cache has gone does not crash the program.
TEST(ExitTest, LateReleaseOfAnEmptyStringDuringExit) {
    std::string program = std::string(KEEL_BINARY_DIR) + "/tests/lateexit_main";
    int status = system(program.c_str());
    ASSERT_NE(-1, status);
    ASSERT_TRUE(WIFEXITED(status)) << "helper died";
    EXPECT_EQ(0, WEXITSTATUS(status));
}

}  // namespace
}  // namespace keel
