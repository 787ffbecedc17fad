// Typed argument lists: the model run (growth, every plain type, shared
// bodies and their counts), the codes no model step makes, the references
// string entries hold, entries of open layout, and handles on many threads.
#include <keel/arglist.h>

#include <gtest/gtest.h>
#include <string.h>

#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "text/arglist.h"
#include "testing/arglistmodel.h"
#include "testing/countedimpl.h"
#include "testing/modelrun.h"
#include "testing/threads.h"

namespace keel {
namespace {

int32_t bodyRefs(const ArgListC& list) { return list.getImpl() ? list.getImpl()->refCount() : 0; }

// The shared empty list is one object and has no body; a copy of it grows
// on its own. Copies of other empty handles are the model's.
TEST(ArgList, SharedEmptyListHasNoBody) {
    const ArgListC& shared = emptyArgList();
    EXPECT_TRUE(&shared == &emptyArgList() && shared.get(INT32_MIN) == nullptr);
    ArgListC copy(shared);
    copy.add(int32_t(1));
    EXPECT_TRUE(copy.count() == 1 && shared.getImpl() == nullptr);
}

// Growth past 16 and 32 entries, every type of fixed layout with its code
// and value, copies that share one body, assignments, and the reference
// counts, against plain models.
TEST(ArgList, RandomOperationsAgainstAModel) {
    EXPECT_EQ("", testkit::runSeeded<arglistmodel::DriverC>(10, 400));
}

// Every code has a name of its own; outside the table the name is empty.
// (The model gives each entry of every type the name of its code.)
TEST(ArgList, EachCodeHasItsOwnName) {
    std::set<std::string> names;
    for (int32_t code = 0; code <= ArgNull; ++code) names.insert(ArgListC::typeName(code));
    EXPECT_TRUE(names.size() == static_cast<size_t>(ArgNull) + 1 && names.count("") == 0);
    for (int32_t code : {-1, ArgNull + 1, INT32_MIN}) EXPECT_STREQ("", ArgListC::typeName(code));
}

// A string entry holds one reference of its own (a nested list's count is
// the model's), and an empty nested list is a null cell.
TEST(ArgList, StringEntriesTakeOneReferenceAndDropIt) {
    CountedImplC representation;
    {
        StringC text = StringC::fromNew(&representation);
        {
            ArgListC list;
            list.add(text).add(ArgListC());
            ArgListC copy(list);
            EXPECT_EQ(2, representation.refs);
            EXPECT_EQ(&representation, list.get(0)->string().getImpl());
            EXPECT_EQ(nullptr, list.get(1)->argList().getImpl());
        }
        EXPECT_EQ(1, representation.refs);
    }
    EXPECT_EQ(0, representation.refs);
}

TEST(ArgList, EntriesOfOpenLayoutOutliveTheList) {
    // "Decimal", "Blob", "User" and codes outside the table belong to whoever appended them.
    std::vector<ArgEntry*> foreign;
    for (int32_t code :
         {int32_t(ArgDecimal), int32_t(ArgBlob), int32_t(ArgUser), int32_t(20), int32_t(-5)}) {
        foreign.push_back(ArgEntry::allocate(code, 8));
        memset(foreign.back()->value(), 0xAB, 8);
    }
    {
        ArgListC list;
        for (ArgEntry* entry : foreign) list.append(entry);
        list.append(nullptr);  // read back as a missing entry
        EXPECT_TRUE(list.count() == 6 && list.get(5) == nullptr && !*list.get(3)->typeName());
    }
    for (ArgEntry* entry : foreign) {
        EXPECT_EQ(0xAB, static_cast<unsigned char*>(entry->value())[7]);
        ArgEntry::free(entry);
    }
}

// The entries that ArgListStackBodyC takes, and the heap list it makes of
// them, against fromFormat's list of the same call: codes, values, the text
// of a "CharStar" and the representation of a "String".
const size_t kValueBytes[] = {1, 2, 4, 8, 2, 4, 8, 8, 4, 0, 8, sizeof(void*), 0, 0, 16, 0, 0, 8};

void expectOnStack(bool fits, const char* format, ...) {
    va_list arguments, copy;
    va_start(arguments, format);
    va_copy(copy, arguments);
    ArgListStackBodyC body;
    EXPECT_EQ(fits, body.take(format, copy)) << format;
    va_end(copy);
    ArgListC list = ArgListC::fromFormat(StringC(format, "system-8"), arguments);
    va_end(arguments);
    if (!fits) return;
    ArgListC held = body.handle(), kept = body.toList();
    EXPECT_EQ(list.count() > 0, ArgListStackBodyC::isOnStack(held)) << format;
    EXPECT_FALSE(ArgListStackBodyC::isOnStack(kept));
    for (const ArgListC* each : {&held, &kept}) {
        ASSERT_EQ(list.count(), each->count()) << format;
        for (int32_t i = 0; i < each->count(); ++i) {
            const ArgEntry *want = list.get(i), *got = each->get(i);
            ASSERT_EQ(want->code(), got->code()) << format << " at " << i;
            if (want->code() == ArgCharStar) {
                EXPECT_STREQ(static_cast<char*>(want->pointer()),
                             static_cast<char*>(got->pointer()));
            } else if (want->code() == ArgString) {
                EXPECT_EQ(want->string().getImpl(), got->string().getImpl());
            } else {
                EXPECT_EQ(0, memcmp(want->value(), got->value(), kValueBytes[want->code()]));
            }
        }
    }
}

TEST(ArgList, EntriesOnTheStackAreTheListsEntries) {
    StringC wide("\xC3\xA9t\xC3\xA9", "utf8");
    ArgTimeValT time = {86400, 5};
    expectOnStack(true, "no arguments");
    expectOnStack(true, "%d %u %hd %hu %hhd %hhu %lld %llu %C %x %p", -1, 4000000000u, 70000, 70000,
                  300, 300, -5ll, 6ull, 0xE9u, 255u, &time);
    expectOnStack(true, "%s|%s|%S|%S|%3$S|%t|%t", "text", nullptr, &wide, nullptr, &time, nullptr);
    expectOnStack(true, "%2$s %1$*3$d", 42, "second", 6);
    // More positions than the stack holds.
    expectOnStack(false, "%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11,
                  12, 13, 14, 15, 16, 17);
}

// Handles may be copied, assigned and dropped on any thread once the list
// is built; only the reference count and the cell are touched concurrently.
TEST(ArgListThread, CopiesAcrossThreadsKeepTheCount) {
    ArgListC inner;
    inner.add(int32_t(7)).add("inner");
    ArgListC list;
    list.add(int32_t(1)).add("shared text").add(inner).addNull();
    const ArgListC::ArgListImplC* body = list.getImpl();
    std::vector<int64_t> sums(4, 0);
    testkit::onThreads(4, [&list, &sums](int t) {
        ArgListC held;
        for (int i = 0; i < 2000; ++i) {
            ArgListC copy(list);
            held = copy;
            ArgListC again = held;
            sums[t] +=
                again.get(0)->read<int32_t>() + again.get(2)->argList().get(0)->read<int32_t>();
            if (strcmp(static_cast<const char*>(again.get(1)->pointer()), "shared text") != 0)
                sums[t] = -1;
        }
    });
    EXPECT_EQ(std::vector<int64_t>(4, 2000 * 8), sums);
    EXPECT_EQ(std::make_tuple(body, 1, 2),
              std::make_tuple(list.getImpl(), bodyRefs(list), bodyRefs(inner)));
}

TEST(ArgListThread, ListsBuiltOnOneThreadDieOnAnother) {
    std::vector<ArgListC> built(8);
    std::thread builder([&built] {
        for (ArgListC& slot : built) {
            ArgListC fresh;
            for (int32_t j = 0; j < 20; ++j) fresh.add(j).add("entry");
            slot = fresh;
        }
    });
    builder.join();
    std::vector<std::thread> droppers;
    for (const ArgListC& handed : built) {
        droppers.emplace_back([handed] { EXPECT_EQ(40, ArgListC(handed).count()); });
    }
    built.clear();  // the last references now sit with the threads
    for (std::thread& thread : droppers) thread.join();
}

}  // namespace
}  // namespace keel
