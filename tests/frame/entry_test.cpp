#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>

#include <cstddef>
#include <numeric>
#include <set>
#include <string>
#include <thread>
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

TEST(SlotOrderTest, TracingInterfaces) {
    EXPECT_EQ(slots(3), (std::vector<size_t>{SLOT(TraceConsumerI, write), SLOT(TraceConsumerI, valueChanged),
                                             SLOT(TraceConsumerI, variableCreated)}));
    EXPECT_EQ(slots(12), (std::vector<size_t>{
                             SLOT(TraceDefaultConsumerI, write), SLOT(TraceDefaultConsumerI, valueChanged),
                             SLOT(TraceDefaultConsumerI, variableCreated), SLOT(TraceDefaultConsumerI, setOption),
                             SLOT(TraceDefaultConsumerI, setTimestamp), SLOT(TraceDefaultConsumerI, setTimeDeltas),
                             SLOT(TraceDefaultConsumerI, setTraceTimers), SLOT(TraceDefaultConsumerI, setTraceCounters),
                             SLOT(TraceDefaultConsumerI, setFilename), SLOT(TraceDefaultConsumerI, setFlushFrequency),
                             SLOT(TraceDefaultConsumerI, setMaxIndent), SLOT(TraceDefaultConsumerI, setMaxDetail)}));
    EXPECT_EQ(slots(13), (std::vector<size_t>{
                             SLOT(TracerI, init), SLOT(TracerI, reserved1), SLOT(TracerI, getDefaultConsumer),
                             SLOT(TracerI, reserved2), SLOT(TracerI, isEnabled), SLOT(TracerI, trace),
                             SLOT(TracerI, enter), SLOT(TracerI, leave), SLOT(TracerI, count), SLOT(TracerI, uncount),
                             SLOT(TracerI, startTimer), SLOT(TracerI, stopTimer), SLOT(TracerI, getValues)}));
    EXPECT_EQ(slots(12), (std::vector<size_t>{
                             SLOT(TracerV1I, init), SLOT(TracerV1I, reserved1), SLOT(TracerV1I, getDefaultConsumer),
                             SLOT(TracerV1I, reserved2), SLOT(TracerV1I, isEnabled), SLOT(TracerV1I, traceFormat),
                             SLOT(TracerV1I, enter), SLOT(TracerV1I, leave), SLOT(TracerV1I, count),
                             SLOT(TracerV1I, uncount), SLOT(TracerV1I, startTimer), SLOT(TracerV1I, stopTimer)}));
    EXPECT_EQ(slots(15), (std::vector<size_t>{
                             SLOT(TraceControllerI, addConsumer), SLOT(TraceControllerI, removeConsumer),
                             SLOT(TraceControllerI, setConsumerLevel), SLOT(TraceControllerI, enablePath),
                             SLOT(TraceControllerI, disablePath), SLOT(TraceControllerI, inheritPath),
                             SLOT(TraceControllerI, getVariable), SLOT(TraceControllerI, setVariable),
                             SLOT(TraceControllerI, getChildCount), SLOT(TraceControllerI, getChildName),
                             SLOT(TraceControllerI, getTime), SLOT(TraceControllerI, getTicksPerSecond),
                             SLOT(TraceControllerI, getName), SLOT(TraceControllerI, getProcessId),
                             SLOT(TraceControllerI, getInfo)}));
    // The mask lies first, so a trace point's test is one load behind the cell.
    EXPECT_EQ(0u, offsetof(TraceValuesT, active));
}

TEST(SlotOrderTest, ErrorInterfaces) {
    // ErrEntryI and ErrBufI end with their two destructors; ErrCatalogI
    // begins with them.
    EXPECT_EQ(slots(8), (std::vector<size_t>{SLOT(ErrEntryI, getCode), SLOT(ErrEntryI, getText),
                                             SLOT(ErrEntryI, getSeverity), SLOT(ErrEntryI, getSequence),
                                             SLOT(ErrEntryI, setSeverity), SLOT(ErrEntryI, getProblem),
                                             SLOT(ErrEntryI, getReason), SLOT(ErrEntryI, getSolution)}));
    EXPECT_EQ(slots(10), (std::vector<size_t>{SLOT(ErrBufI, addError), SLOT(ErrBufI, getCount),
                                              SLOT(ErrBufI, getEntry), SLOT(ErrBufI, reportAll),
                                              SLOT(ErrBufI, getMark), SLOT(ErrBufI, recover),
                                              SLOT(ErrBufI, takeText), SLOT(ErrBufI, addRef),
                                              SLOT(ErrBufI, release), SLOT(ErrBufI, removeEntry)}));
    EXPECT_EQ((std::vector<size_t>{2, 3}),
              (std::vector<size_t>{SLOT(ErrCatalogI, fetch), SLOT(ErrCatalogI, setQualifiers)}));
}

TEST(SlotOrderTest, LocaleInterfaces) {
    // Each ends with its two destructors.
    EXPECT_EQ(slots(5), (std::vector<size_t>{SLOT(LocaleI, getRegion), SLOT(LocaleI, getNumbers),
                                             SLOT(LocaleI, getCalendar), SLOT(LocaleI, getCurrency),
                                             SLOT(LocaleI, getLanguage)}));
    EXPECT_EQ(slots(6), (std::vector<size_t>{SLOT(LocaleRegionI, languageCode), SLOT(LocaleRegionI, languageLongCode),
                                             SLOT(LocaleRegionI, territoryCode), SLOT(LocaleRegionI, regionValue4),
                                             SLOT(LocaleRegionI, localeName), SLOT(LocaleRegionI, regionReserved)}));
    EXPECT_EQ(slots(10), (std::vector<size_t>{
                             SLOT(LocaleNumbersI, numbersText1), SLOT(LocaleNumbersI, numbersText2),
                             SLOT(LocaleNumbersI, numbersValue1), SLOT(LocaleNumbersI, numbersValue2),
                             SLOT(LocaleNumbersI, decimalSeparator), SLOT(LocaleNumbersI, numbersText4),
                             SLOT(LocaleNumbersI, numbersValue3), SLOT(LocaleNumbersI, numbersText5),
                             SLOT(LocaleNumbersI, numbersText6), SLOT(LocaleNumbersI, numbersText7)}));
    EXPECT_EQ(slots(18), (std::vector<size_t>{
                             SLOT(LocaleCalendarI, calendarValue1), SLOT(LocaleCalendarI, calendarValue2),
                             SLOT(LocaleCalendarI, calendarValue3), SLOT(LocaleCalendarI, calendarFlag1),
                             SLOT(LocaleCalendarI, calendarFlag2), SLOT(LocaleCalendarI, calendarFlag3),
                             SLOT(LocaleCalendarI, calendarFlag4), SLOT(LocaleCalendarI, calendarValue4),
                             SLOT(LocaleCalendarI, calendarValue5), SLOT(LocaleCalendarI, calendarText1),
                             SLOT(LocaleCalendarI, calendarText2), SLOT(LocaleCalendarI, sevenTextA),
                             SLOT(LocaleCalendarI, sevenTextB), SLOT(LocaleCalendarI, thirteenTextA),
                             SLOT(LocaleCalendarI, thirteenTextB), SLOT(LocaleCalendarI, thirteenTextC),
                             SLOT(LocaleCalendarI, calendarText3), SLOT(LocaleCalendarI, calendarText4)}));
    EXPECT_EQ(slots(9), (std::vector<size_t>{
                            SLOT(LocaleCurrencyI, currencyValue1), SLOT(LocaleCurrencyI, currencyValue2),
                            SLOT(LocaleCurrencyI, currencyValue3), SLOT(LocaleCurrencyI, currencyText1),
                            SLOT(LocaleCurrencyI, currencyText2), SLOT(LocaleCurrencyI, currencyText3),
                            SLOT(LocaleCurrencyI, currencyText4), SLOT(LocaleCurrencyI, currencyText5),
                            SLOT(LocaleCurrencyI, currencyValue4)}));
    EXPECT_EQ(slots(3), (std::vector<size_t>{SLOT(LocaleLanguageI, getCatalog), SLOT(LocaleLanguageI, openCatalog),
                                             SLOT(LocaleLanguageI, languageValue)}));
}

TEST(SlotOrderTest, ConfigurationInterfaces) {
    // Both end with their two destructors.
    EXPECT_EQ(slots(26), (std::vector<size_t>{
                             SLOT(ConfRegistryI, keyExists), SLOT(ConfRegistryI, queryValue),
                             SLOT(ConfRegistryI, getString), SLOT(ConfRegistryI, reservedGet),
                             SLOT(ConfRegistryI, getInteger), SLOT(ConfRegistryI, openKey),
                             SLOT(ConfRegistryI, enumValue), SLOT(ConfRegistryI, enumKey),
                             SLOT(ConfRegistryI, closeKey), SLOT(ConfRegistryI, createKey),
                             SLOT(ConfRegistryI, setValue), SLOT(ConfRegistryI, setString),
                             SLOT(ConfRegistryI, reservedSet), SLOT(ConfRegistryI, setInteger),
                             SLOT(ConfRegistryI, deleteValue), SLOT(ConfRegistryI, deleteKey),
                             SLOT(ConfRegistryI, parsePath), SLOT(ConfRegistryI, rootKeyFromName),
                             SLOT(ConfRegistryI, rootKeyName), SLOT(ConfRegistryI, rootKeyShortName),
                             SLOT(ConfRegistryI, reservedRootA), SLOT(ConfRegistryI, reservedRootB),
                             SLOT(ConfRegistryI, openKeyEx), SLOT(ConfRegistryI, closeKeyEx),
                             SLOT(ConfRegistryI, mountFile), SLOT(ConfRegistryI, setAutoCommit)}));
    EXPECT_EQ(slots(6), (std::vector<size_t>{SLOT(ConfigurationI, getRegistry), SLOT(ConfigurationI, reservedPointer),
                                             SLOT(ConfigurationI, reservedAction), SLOT(ConfigurationI, reservedTextA),
                                             SLOT(ConfigurationI, reservedTextB),
                                             SLOT(ConfigurationI, reservedTextC)}));
}

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
