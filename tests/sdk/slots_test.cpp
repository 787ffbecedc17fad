// The order of the virtual operations of every interface that the entry
// points hand out (and of what those hand out in turn) is the binary
// interface that programs are compiled against: a reordered, inserted or
// removed declaration would still compile everywhere and then call the wrong
// operation in a program built against an older header. These tables are the
// second copy of that order, on purpose, so that such an edit fails here.
#include <stddef.h>
#include <string.h>

#include <vector>

#include <gtest/gtest.h>

#include <keel/config.h>
#include <keel/errors.h>
#include <keel/filelister.h>
#include <keel/fileserv.h>
#include <keel/keel.h>
#include <keel/locale.h>
#include <keel/trace.h>

using namespace keel;

namespace {

// Under the Itanium C++ ABI a pointer to a virtual member function holds
// 1 + the byte offset of its slot in the table.
template <typename MemberFn>
size_t slotOf(MemberFn member) {
    static_assert(sizeof(MemberFn) == 2 * sizeof(void*), "Itanium member pointer layout");
    uintptr_t word[2];
    memcpy(word, &member, sizeof word);
    EXPECT_EQ(1u, word[0] % sizeof(void*)) << "not a virtual function";
    return (word[0] - 1) / sizeof(void*);
}

// The operations, listed in declaration order, take the slots from `first`
// on; the destructor (two slots) stands before the operation at
// `destructorAt` (the count when it comes last or is not declared).
template <typename... MemberFns>
void expectSlots(size_t first, size_t destructorAt, MemberFns... members) {
    std::vector<size_t> seen = {slotOf(members)...};
    std::vector<size_t> expected;
    for (size_t k = 0; k < seen.size(); ++k)
        expected.push_back(first + k + (k >= destructorAt ? 2 : 0));
    EXPECT_EQ(expected, seen);
}

// The slots of `Interface`'s operations, each named as &I::name.
#define SLOTS(Interface, first, destructorAt, ...)     \
    [] {                                               \
        using I = Interface;                           \
        expectSlots(first, destructorAt, __VA_ARGS__); \
    }()

TEST(SlotOrderTest, TheStringLayerAndTheReferenceCount) {
    SLOTS(RefCountI, 0, 2, &I::addRef, &I::release);
    SLOTS(StringImplI, 0, 29, &I::addRef, &I::release, &I::isShared, &I::getFactory, &I::length,
          &I::isEmpty, &I::compare, &I::compareNatural, &I::compareNoCase, &I::findChar,
          &I::findLastChar, &I::findString, &I::findLastString, &I::findFirstOf, &I::findLastOf,
          &I::findFirstNotOf, &I::findLastNotOf, &I::charAt, &I::textLength, &I::text,
          &I::releaseText, &I::copyText, &I::substring, &I::erase, &I::append, &I::appendChar,
          &I::insert, &I::toLower, &I::toUpper, &I::reset, &I::reserve);
    SLOTS(StringImplFactoryI, 0, 13, &I::fromText, &I::fromBytesNew, &I::fromChar, &I::fromUtf16,
          &I::concat, &I::fromWide, &I::fromWideCounted, &I::substring, &I::format, &I::formatTo,
          &I::fromBytes, &I::secureFromText, &I::secureFromBytes);
}

TEST(SlotOrderTest, Tracing) {
    SLOTS(TraceConsumerI, 0, 3, &I::write, &I::valueChanged, &I::variableCreated);
    SLOTS(TraceDefaultConsumerI, 3, 9, &I::setOption, &I::setTimestamp, &I::setTimeDeltas,
          &I::setTraceTimers, &I::setTraceCounters, &I::setFilename, &I::setFlushFrequency,
          &I::setMaxIndent, &I::setMaxDetail);
    SLOTS(TracerI, 0, 13, &I::init, &I::reserved1, &I::getDefaultConsumer, &I::reserved2,
          &I::isEnabled, &I::trace, &I::enter, &I::leave, &I::count, &I::uncount, &I::startTimer,
          &I::stopTimer, &I::getValues);
    SLOTS(TracerV1I, 0, 12, &I::init, &I::reserved1, &I::getDefaultConsumer, &I::reserved2,
          &I::isEnabled, &I::traceFormat, &I::enter, &I::leave, &I::count, &I::uncount,
          &I::startTimer, &I::stopTimer);
    SLOTS(TraceControllerI, 0, 15, &I::addConsumer, &I::removeConsumer, &I::setConsumerLevel,
          &I::enablePath, &I::disablePath, &I::inheritPath, &I::getVariable, &I::setVariable,
          &I::getChildCount, &I::getChildName, &I::getTime, &I::getTicksPerSecond, &I::getName,
          &I::getProcessId, &I::getInfo);
    // The mask lies first, so a trace point's test is one load behind the cell.
    EXPECT_EQ(0u, offsetof(TraceValuesT, active));
}

TEST(SlotOrderTest, ErrorsLocaleAndConfiguration) {
    SLOTS(ErrEntryI, 0, 8, &I::getCode, &I::getText, &I::getSeverity, &I::getSequence,
          &I::setSeverity, &I::getProblem, &I::getReason, &I::getSolution);
    SLOTS(ErrBufI, 0, 10, &I::addError, &I::getCount, &I::getEntry, &I::reportAll, &I::getMark,
          &I::recover, &I::takeText, &I::addRef, &I::release, &I::removeEntry);
    SLOTS(ErrCatalogI, 0, 0, &I::fetch, &I::setQualifiers);
    SLOTS(LocaleI, 0, 5, &I::getRegion, &I::getNumbers, &I::getCalendar, &I::getCurrency,
          &I::getLanguage);
    SLOTS(LocaleRegionI, 0, 6, &I::languageCode, &I::languageLongCode, &I::territoryCode,
          &I::regionValue4, &I::localeName, &I::regionReserved);
    SLOTS(LocaleNumbersI, 0, 10, &I::numbersText1, &I::numbersText2, &I::numbersValue1,
          &I::numbersValue2, &I::decimalSeparator, &I::numbersText4, &I::numbersValue3,
          &I::numbersText5, &I::numbersText6, &I::numbersText7);
    SLOTS(LocaleCalendarI, 0, 18, &I::calendarValue1, &I::calendarValue2, &I::calendarValue3,
          &I::calendarFlag1, &I::calendarFlag2, &I::calendarFlag3, &I::calendarFlag4,
          &I::calendarValue4, &I::calendarValue5, &I::calendarText1, &I::calendarText2,
          &I::sevenTextA, &I::sevenTextB, &I::thirteenTextA, &I::thirteenTextB, &I::thirteenTextC,
          &I::calendarText3, &I::calendarText4);
    SLOTS(LocaleCurrencyI, 0, 9, &I::currencyValue1, &I::currencyValue2, &I::currencyValue3,
          &I::currencyText1, &I::currencyText2, &I::currencyText3, &I::currencyText4,
          &I::currencyText5, &I::currencyValue4);
    SLOTS(LocaleLanguageI, 0, 3, &I::getCatalog, &I::openCatalog, &I::languageValue);
    SLOTS(ConfigurationI, 0, 6, &I::getRegistry, &I::reservedPointer, &I::reservedAction,
          &I::reservedTextA, &I::reservedTextB, &I::reservedTextC);
    SLOTS(ConfRegistryI, 0, 26, &I::keyExists, &I::queryValue, &I::getString, &I::reservedGet,
          &I::getInteger, &I::openKey, &I::enumValue, &I::enumKey, &I::closeKey, &I::createKey,
          &I::setValue, &I::setString, &I::reservedSet, &I::setInteger, &I::deleteValue,
          &I::deleteKey, &I::parsePath, &I::rootKeyFromName, &I::rootKeyName, &I::rootKeyShortName,
          &I::reservedRootA, &I::reservedRootB, &I::openKeyEx, &I::closeKeyEx, &I::mountFile,
          &I::setAutoCommit);
}

TEST(SlotOrderTest, Files) {
    SLOTS(FileServiceI, 0, 0, &I::getRoots, &I::getCurrentDirectory, &I::reservedQueryA,
          &I::copyNameA, &I::copyNameB, &I::reservedQueryB, &I::canRead, &I::canWrite,
          &I::isReadOnly, &I::exists, &I::isDirectory, &I::isDirectoryEmpty, &I::isSymbolicLink,
          &I::readSymbolicLink, &I::isFile, &I::isHidden, &I::reservedQueryC, &I::getSize,
          &I::getModifiedTime, &I::setModifiedTime, &I::reservedQueryD, &I::reservedSetter,
          &I::setReadOnly, &I::copyAttributes, &I::getFreeSpace, &I::createTempName,
          &I::getTempDirectory, &I::createSecureTempFile, &I::createUniqueName, &I::remove,
          &I::removeAtExit, &I::removeFile, &I::createDirectory, &I::move, &I::moveAlias, &I::copy,
          &I::createLister, &I::isSystem, &I::setHidden, &I::reservedFileCheck, &I::openStream,
          &I::setCurrentDirectory, &I::getFileInfo, &I::reservedCodeA, &I::reservedCodeB,
          &I::openVerified, &I::isSameFile);
    SLOTS(FileListerI, 0, 0, &I::stepToSink, &I::runToSink, &I::nextName, &I::next, &I::finish,
          &I::skipDirectory, &I::clearStatus, &I::step, &I::accepts);
    SLOTS(FileListSinkI, 0, 0, &I::onFile, &I::onDirectory, &I::onError);
}
}  // namespace
