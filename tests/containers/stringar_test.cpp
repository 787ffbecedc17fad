#include <keel/stringar.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "testing/countedimpl.h"

namespace keel {
namespace {

std::string textOf(const StringC& string) {
    return static_cast<CountedImplC*>(string.getImpl())->text();
}

std::string texts(const StringArrayC& array) {
    std::string result;
    for (uint32_t i = 0; i < array.size(); ++i) result += (i ? " " : "") + textOf(*array.at(i));
    return result;
}

// A few representations that outlive every handle of a test.
struct WordsT {
    CountedImplC pear{"pear"}, apple{"apple"}, fig{"fig"}, kiwi{"kiwi"};
    StringC handle(CountedImplC& impl) { return StringC::fromNew(&impl); }
    int compares() const { return pear.compares + apple.compares + fig.compares + kiwi.compares; }
};

// Insertion past the end appends and removal out of range does nothing;
// each element holds one reference, which removal, clear and the destructor
// release. Emptying keeps the storage; the plain clear of the base frees it
// (and releases nothing). Appending element 0 across the growth steps reads
// an element whose storage the growth frees.
TEST(StringArray, ElementsAreHandlesByValue) {
    WordsT words;
    {
        StringArrayC array;
        array.append(words.handle(words.pear));
        array.append(words.handle(words.apple));
        array.insertAt(0, words.handle(words.fig));
        array.insertAt(42, words.handle(words.kiwi));
        EXPECT_EQ(std::make_pair(std::string("fig pear apple kiwi"), 1),
                  std::make_pair(texts(array), words.pear.refs));
        array.removeAt(1);
        array.removeAt(3);
        EXPECT_EQ(std::make_pair(std::string("fig apple kiwi"), 0),
                  std::make_pair(texts(array), words.pear.refs));
        for (int i = 0; i < 100; ++i) array.append(words.handle(words.fig));
        EXPECT_EQ(101, words.fig.refs);
    }
    EXPECT_EQ(0, words.fig.refs + words.apple.refs + words.kiwi.refs);
    StringArrayC array;
    for (int i = 0; i < 3; ++i) array.append(words.handle(words.fig));
    const void* storage = array.data();
    for (int i = 0; i < 3; ++i) array.removeAt(0);
    EXPECT_EQ(std::make_tuple(0, 32u, storage),
              std::make_tuple(words.fig.refs, array.capacity(), array.data()));
    for (int i = 0; i < 40; ++i) array.append(words.handle(words.kiwi));
    array.clear();
    EXPECT_EQ(std::make_pair(0, 64u), std::make_pair(words.kiwi.refs, array.capacity()));
    array.BlobArrayC::clear();
    EXPECT_TRUE(array.capacity() == 0 && array.data() == nullptr);
    array.append(words.handle(words.apple));
    for (int i = 0; i < 300; ++i) array.append(*array.at(0));
    for (int i = 0; i < 50; ++i) array.insertAt(0, *array.at(array.size() - 1));
    EXPECT_EQ(std::make_pair(351u, 351), std::make_pair(array.size(), words.apple.refs));
}

TEST(StringArray, ConstructionCopyAssignmentAndAppendAll) {
    WordsT words;
    StringC pear = words.handle(words.pear), fig = words.handle(words.fig);
    const StringC* list[] = {&pear, &fig, &pear, nullptr};
    StringArrayC fromList(list), fromNull(static_cast<const StringC*const*>(nullptr)),
        copy(fromList);
    EXPECT_EQ(std::make_tuple(std::string("pear fig pear"), 0u, 5),
              std::make_tuple(texts(copy), fromNull.capacity(), words.pear.refs));
    StringArrayC assigned;
    assigned.append(words.handle(words.kiwi));
    assigned = fromList;
    assigned = assigned;
    EXPECT_EQ(std::make_pair(std::string("pear fig pear"), 0),
              std::make_pair(texts(assigned), words.kiwi.refs));
    assigned.appendAll(fromNull).appendAll(assigned);
    EXPECT_EQ("pear fig pear pear fig pear", texts(assigned));
}

// Records, at each call, every word's count less the call's own copies.
struct SortSeenT {
    WordsT* words;
    std::vector<std::pair<CountedImplC*, int32_t>> counts;
};

int byLength(void* context, const StringC& first, const StringC& second) {
    SortSeenT* seen = static_cast<SortSeenT*>(context);
    WordsT& words = *seen->words;
    for (CountedImplC* impl : {&words.pear, &words.apple, &words.fig, &words.kiwi}) {
        seen->counts.push_back(
            {impl, impl->refs - (first.getImpl() == impl) - (second.getImpl() == impl)});
    }
    return static_cast<int>(textOf(first).size()) - static_cast<int>(textOf(second).size());
}

TEST(StringArray, SortsByCompareOrByTheCallersFunction) {
    WordsT words;
    StringArrayC array;
    array.append(words.handle(words.pear));
    array.append(words.handle(words.fig));
    array.sort();
    EXPECT_EQ(1, words.compares());  // two elements: one comparison
    for (CountedImplC* impl : {&words.apple, &words.kiwi, &words.apple, &words.pear})
        array.append(words.handle(*impl));
    array.sort();
    EXPECT_EQ("apple apple fig kiwi pear pear", texts(array));
    SortSeenT seen{&words, {}};
    array.sortWith(byLength, &seen);
    std::vector<size_t> lengths;
    for (uint32_t i = 0; i < array.size(); ++i) lengths.push_back(textOf(*array.at(i)).size());
    EXPECT_EQ((std::vector<size_t>{3, 4, 4, 4, 5, 5}), lengths);
    // The function gets copies: during each call every representation counts
    // the array's references and the call's own copies, nothing else (copies
    // kept from one call to the next must not show). Sorting leaves every
    // count as it was.
    ASSERT_FALSE(seen.counts.empty());
    for (const auto& [impl, refs] : seen.counts) EXPECT_EQ(impl->refs, refs);
    EXPECT_EQ(std::make_pair(2, 1), std::make_pair(words.apple.refs, words.fig.refs));
}

}  // namespace
}  // namespace keel
