#include <keel/arglist.h>

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <thread>
#include <vector>

#include "text/arglist.h"
#include "text/countedimpl.h"

namespace keel {
namespace {

int32_t bodyRefs(const ArgListC& list) { return list.getImpl() ? list.getImpl()->refCount() : 0; }

TEST(ArgList, NullCellIsAnEmptyList) {
    ArgListC list;
    EXPECT_EQ(nullptr, list.getImpl());
    EXPECT_EQ(0, list.count());
    for (int32_t index : {0, 1, -1, 16, INT32_MAX, INT32_MIN}) EXPECT_EQ(nullptr, list.get(index));
    // Copies and assignments of an empty list allocate nothing.
    ArgListC copy(list);
    ArgListC assigned;
    assigned = list;
    EXPECT_EQ(nullptr, copy.getImpl());
    EXPECT_EQ(nullptr, assigned.getImpl());
}

TEST(ArgList, GetAnswersOnlyInsideTheList) {
    ArgListC list;
    list.add(int32_t(10)).add(int32_t(20)).add(int32_t(30));
    EXPECT_EQ(3, list.count());
    EXPECT_EQ(nullptr, list.get(-1));
    EXPECT_EQ(nullptr, list.get(3));
    EXPECT_EQ(nullptr, list.get(INT32_MIN));
    ASSERT_NE(nullptr, list.get(2));
    EXPECT_EQ(30, list.get(2)->read<int32_t>());
    EXPECT_EQ(10, list.get(0)->read<int32_t>());
}

TEST(ArgList, CapacityRisesBySixteen) {
    ArgListC list;
    for (int32_t i = 0; i < 16; ++i) list.add(i);
    EXPECT_EQ(16, list.getImpl()->capacity);
    ArgEntry* const* before = list.getImpl()->entries;
    list.add(int32_t(16));
    EXPECT_EQ(32, list.getImpl()->capacity);
    EXPECT_NE(before, list.getImpl()->entries);
    for (int32_t i = 17; i < 33; ++i) list.add(i);
    EXPECT_EQ(48, list.getImpl()->capacity);
    EXPECT_EQ(33, list.count());
    for (int32_t i = 0; i < 33; ++i) ASSERT_EQ(i, list.get(i)->read<int32_t>());
}

TEST(ArgList, TypeNames) {
    const char* const names[] = {"Bool",     "Int16",   "Int32",    "Int64",   "Unsigned16",
                                 "Unsigned32", "Unsigned64", "Real", "UCS4",    "String",
                                 "DateTime", "ObjRef",  "Decimal",  "Blob",    "Guid",
                                 "ArgList",  "CharStar", "TimeVal", "User",    "Null"};
    for (int32_t code = 0; code < 20; ++code) EXPECT_STREQ(names[code], ArgListC::typeName(code));
    EXPECT_STREQ("Null", ArgListC::typeName(19));
    EXPECT_STREQ("", ArgListC::typeName(20));
    EXPECT_STREQ("", ArgListC::typeName(-1));
    EXPECT_STREQ("", ArgListC::typeName(INT32_MIN));
}

TEST(ArgList, EachOverloadStoresItsCodeAndValue) {
    int object = 0;
    ArgGuidT guid = {0x12345678u, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
    ArgTimeValT time = {1700000000, 250000};
    ArgListC list;
    list.add(true)
        .add(int16_t(-2))
        .add(int32_t(-3))
        .add(int64_t(-4000000000LL))
        .add(uint16_t(65535))
        .add(uint32_t(4000000000u))
        .add(uint64_t(18000000000000000000ull))
        .add(2.5)
        .addUCS4(0x1F600)
        .addDateTime(int64_t(123456789012345LL))
        .add(static_cast<const void*>(&object))
        .add(guid)
        .add("text")
        .add(time)
        .addNull()
        .add(false);
    const int32_t codes[] = {ArgBool,     ArgInt16,    ArgInt32,  ArgInt64,   ArgUnsigned16, ArgUnsigned32,
                             ArgUnsigned64, ArgReal,   ArgUCS4,   ArgDateTime, ArgObjRef,    ArgGuid,
                             ArgCharStar, ArgTimeVal,  ArgNull,   ArgBool};
    ASSERT_EQ(16, list.count());
    for (int32_t i = 0; i < 16; ++i) {
        EXPECT_EQ(codes[i], list.get(i)->code()) << i;
        EXPECT_STREQ(ArgListC::typeName(codes[i]), list.get(i)->typeName());
    }
    EXPECT_EQ(1, list.get(0)->read<uint8_t>());
    EXPECT_EQ(0, list.get(15)->read<uint8_t>());
    EXPECT_EQ(-2, list.get(1)->read<int16_t>());
    EXPECT_EQ(-3, list.get(2)->read<int32_t>());
    EXPECT_EQ(-4000000000LL, list.get(3)->read<int64_t>());
    EXPECT_EQ(65535, list.get(4)->read<uint16_t>());
    EXPECT_EQ(4000000000u, list.get(5)->read<uint32_t>());
    EXPECT_EQ(18000000000000000000ull, list.get(6)->read<uint64_t>());
    EXPECT_EQ(2.5, list.get(7)->read<double>());
    EXPECT_EQ(0x1F600u, list.get(8)->read<uint32_t>());
    EXPECT_EQ(123456789012345LL, list.get(9)->read<int64_t>());
    EXPECT_EQ(&object, list.get(10)->pointer());
    ArgGuidT stored = list.get(11)->read<ArgGuidT>();
    EXPECT_EQ(0, memcmp(&guid, &stored, sizeof guid));
    EXPECT_EQ(16u, sizeof(ArgGuidT));
    EXPECT_STREQ("text", static_cast<const char*>(list.get(12)->pointer()));
    ArgTimeValT storedTime = list.get(13)->read<ArgTimeValT>();
    EXPECT_EQ(1700000000, storedTime.seconds);
    EXPECT_EQ(250000, storedTime.microseconds);
}

TEST(ArgList, CharStarHoldsItsOwnCopy) {
    char text[] = "hello";
    ArgListC list;
    list.add(text).add(static_cast<const char*>(nullptr));
    const char* stored = static_cast<const char*>(list.get(0)->pointer());
    EXPECT_NE(text, stored);
    text[0] = 'j';
    EXPECT_STREQ("hello", stored);
    // A null pointer is stored as the empty text, not as null.
    const char* empty = static_cast<const char*>(list.get(1)->pointer());
    ASSERT_NE(nullptr, empty);
    EXPECT_STREQ("", empty);
}

TEST(ArgList, CopiesShareOneBody) {
    ArgListC original;
    original.add(int32_t(1));
    EXPECT_EQ(1, bodyRefs(original));
    {
        ArgListC copy(original);
        EXPECT_EQ(original.getImpl(), copy.getImpl());
        EXPECT_EQ(2, bodyRefs(original));
        // No copy on write: an entry appended through the copy shows in the
        // original.
        copy.add(int32_t(2));
        EXPECT_EQ(2, original.count());
        EXPECT_EQ(2, original.get(1)->read<int32_t>());

        ArgListC other;
        other.add(int32_t(9));
        ArgListC::ArgListImplC* otherBody = other.getImpl();
        other.getImpl()->addRef();  // keep it alive to watch its count
        other = original;
        EXPECT_EQ(1, otherBody->refCount());
        otherBody->release();
        EXPECT_EQ(3, bodyRefs(original));
        other = other;  // self-assignment keeps the body
        EXPECT_EQ(3, bodyRefs(original));
    }
    EXPECT_EQ(1, bodyRefs(original));
}

TEST(ArgList, AppendingToAnEmptyCopyLeavesTheSourceEmpty) {
    ArgListC empty;
    ArgListC copy(empty);
    copy.add(int32_t(1));
    EXPECT_EQ(0, empty.count());
    EXPECT_EQ(1, copy.count());
}

TEST(ArgList, StringEntryDropsOneReference) {
    CountedImplC representation;
    {
        StringC text = StringC::fromNew(&representation);
        EXPECT_EQ(1, representation.refs);
        {
            ArgListC list;
            list.add(text);
            EXPECT_EQ(2, representation.refs);
            EXPECT_EQ(&representation, list.get(0)->string().getImpl());
            ArgListC copy(list);
            EXPECT_EQ(2, representation.refs);
        }
        // The caller's handle is still valid.
        EXPECT_EQ(1, representation.refs);
        EXPECT_EQ(&representation, text.getImpl());
    }
    EXPECT_EQ(0, representation.refs);
}

TEST(ArgList, StringEntrySharesTheCallersRepresentation) {
    StringC text("a text long enough to have a representation of its own", "ascii");
    EXPECT_FALSE(text.getImpl()->isShared());
    {
        ArgListC list;
        list.add(text);
        EXPECT_TRUE(text.getImpl()->isShared());
        EXPECT_EQ(0, list.get(0)->string().compare(text));
    }
    EXPECT_FALSE(text.getImpl()->isShared());
    EXPECT_EQ(54, text.length());
}

TEST(ArgList, ArgListEntryDropsOneReferenceOnTheInnerBody) {
    ArgListC inner;
    inner.add(int32_t(5));
    {
        ArgListC outer;
        outer.add(inner);
        EXPECT_EQ(2, bodyRefs(inner));
        EXPECT_EQ(inner.getImpl(), outer.get(0)->argList().getImpl());
        EXPECT_EQ(5, outer.get(0)->argList().get(0)->read<int32_t>());
        // An empty inner list is an entry holding a null cell.
        outer.add(ArgListC());
        EXPECT_EQ(nullptr, outer.get(1)->argList().getImpl());
    }
    EXPECT_EQ(1, bodyRefs(inner));
}

TEST(ArgList, EntriesOfOpenLayoutOutliveTheList) {
    // "Decimal", "Blob", "User" and codes above "Null" belong to whoever
    // appended them; the list leaves them alone.
    std::vector<ArgEntry*> foreign;
    for (int32_t code : {int32_t(ArgDecimal), int32_t(ArgBlob), int32_t(ArgUser), int32_t(20), int32_t(-5)}) {
        ArgEntry* entry = ArgEntry::allocate(code, 8);
        memset(entry->value(), 0xAB, 8);
        foreign.push_back(entry);
    }
    {
        ArgListC list;
        for (ArgEntry* entry : foreign) list.append(entry);
        list.append(nullptr);  // a missing entry reads as null and is skipped
        EXPECT_EQ(6, list.count());
        EXPECT_EQ(nullptr, list.get(5));
        EXPECT_STREQ("", list.get(3)->typeName());
    }
    for (ArgEntry* entry : foreign) {
        EXPECT_EQ(0xAB, static_cast<unsigned char*>(entry->value())[7]);
        ArgEntry::free(entry);
    }
}

TEST(ArgList, SharedEmptyHandleStaysEmpty) {
    const ArgListC& shared = emptyArgList();
    EXPECT_EQ(&shared, &emptyArgList());
    EXPECT_EQ(nullptr, shared.getImpl());
    EXPECT_EQ(nullptr, shared.get(0));
    ArgListC copy(shared);
    copy.add(int32_t(1));
    EXPECT_EQ(nullptr, shared.getImpl());
    EXPECT_EQ(0, shared.count());
}

// Handles may be copied, assigned and dropped on any thread once the list
// is built; only the reference count and the cell are touched concurrently.
TEST(ArgListThread, CopiesAcrossThreadsKeepTheCount) {
    ArgListC inner;
    inner.add(int32_t(7)).add("inner");
    ArgListC list;
    list.add(int32_t(1)).add("shared text").add(inner).addNull();
    const ArgListC::ArgListImplC* body = list.getImpl();

    std::vector<std::thread> threads;
    std::vector<int64_t> sums(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&list, &sums, t] {
            ArgListC held;
            for (int i = 0; i < 2000; ++i) {
                ArgListC copy(list);
                held = copy;
                ArgListC again = held;
                sums[t] += again.get(0)->read<int32_t>();
                sums[t] += again.get(2)->argList().get(0)->read<int32_t>();
                if (strcmp(static_cast<const char*>(again.get(1)->pointer()), "shared text") != 0) sums[t] = -1;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int64_t sum : sums) EXPECT_EQ(2000 * 8, sum);
    EXPECT_EQ(body, list.getImpl());
    EXPECT_EQ(1, bodyRefs(list));
    EXPECT_EQ(2, bodyRefs(inner));
}

TEST(ArgListThread, ListsBuiltOnOneThreadDieOnAnother) {
    std::vector<ArgListC> built(8);
    std::thread builder([&built] {
        for (size_t i = 0; i < built.size(); ++i) {
            ArgListC fresh;
            for (int32_t j = 0; j < 20; ++j) fresh.add(j).add("entry");
            built[i] = fresh;
        }
    });
    builder.join();
    std::vector<std::thread> droppers;
    for (size_t i = 0; i < built.size(); ++i) {
        ArgListC handed = built[i];
        droppers.emplace_back([handed] {
            ArgListC local(handed);
            EXPECT_EQ(40, local.count());
        });
    }
    built.clear();  // the last references now sit with the threads
    for (std::thread& thread : droppers) thread.join();
}

}  // namespace
}  // namespace keel
