#include "containers/qsort.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

namespace keel {
namespace {

// Counts comparisons and the addresses handed to them that are inside the
// array but not on an element boundary (the pivot copy lies outside it).
struct CountingT {
    const char *first, *end;
    uint32_t size, calls, outside;
};

int compareKeys(void* context, const void* a, const void* b) {
    CountingT* counting = static_cast<CountingT*>(context);
    ++counting->calls;
    for (const char* p : {static_cast<const char*>(a), static_cast<const char*>(b)}) {
        if (p >= counting->first && p < counting->end && (p - counting->first) % counting->size != 0) {
            ++counting->outside;
        }
    }
    uint32_t x, y;
    memcpy(&x, a, sizeof x);
    memcpy(&y, b, sizeof y);
    return x < y ? -1 : (x > y ? 1 : 0);
}

// An element of `Size` bytes whose first four bytes are the key and whose
// other bytes are derived from it, so that a torn move shows. Packed, so
// that odd sizes really are odd.
template <uint32_t Size>
struct __attribute__((packed)) ElementT {
    uint32_t key;
    unsigned char rest[Size - sizeof(uint32_t)];
};

template <uint32_t Size>
ElementT<Size> makeElement(uint32_t key) {
    ElementT<Size> element;
    element.key = key;
    for (uint32_t i = 0; i < sizeof element.rest; ++i) element.rest[i] = static_cast<unsigned char>(key * 31 + i);
    return element;
}

template <uint32_t Size>
void sortAndCheck(const std::vector<uint32_t>& keys) {
    std::vector<ElementT<Size>> elements;
    for (uint32_t key : keys) elements.push_back(makeElement<Size>(key));
    CountingT counting = {reinterpret_cast<const char*>(elements.data()),
                          reinterpret_cast<const char*>(elements.data() + elements.size()), Size, 0, 0};
    quickSort(elements.data(), static_cast<uint32_t>(elements.size()), Size, compareKeys, &counting);
    std::vector<uint32_t> expected(keys);
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(0u, counting.outside);
    for (size_t i = 0; i < elements.size(); ++i) {
        ASSERT_EQ(expected[i], elements[i].key) << "at " << i << " of " << keys.size() << " size " << Size;
        ElementT<Size> whole = makeElement<Size>(expected[i]);
        ASSERT_EQ(0, memcmp(&whole, &elements[i], Size)) << "element " << i << " torn";
    }
}

std::vector<std::vector<uint32_t>> inputShapes() {
    std::mt19937 random(12345);
    std::vector<std::vector<uint32_t>> shapes;
    for (uint32_t count : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 16u, 31u, 100u, 1000u, 5000u}) {
        std::vector<uint32_t> ascending(count), descending(count), equal(count, 7), randomKeys(count),
            fewKeys(count), organPipe(count);
        for (uint32_t i = 0; i < count; ++i) {
            ascending[i] = i;
            descending[i] = count - i;
            randomKeys[i] = random();
            fewKeys[i] = random() % 3;
            organPipe[i] = i < count / 2 ? i : count - i;
        }
        for (auto* shape : {&ascending, &descending, &equal, &randomKeys, &fewKeys, &organPipe})
            shapes.push_back(*shape);
    }
    return shapes;
}

TEST(QuickSort, SortsEveryShapeForSeveralElementSizes) {
    for (const auto& keys : inputShapes()) {
        sortAndCheck<4>(keys);
        sortAndCheck<8>(keys);
        sortAndCheck<12>(keys);
        sortAndCheck<37>(keys);
    }
    // Elements larger than the pivot's stack buffer.
    std::vector<uint32_t> keys;
    for (uint32_t i = 0; i < 40; ++i) keys.push_back((i * 17) % 23);
    sortAndCheck<5000>(keys);
}

TEST(QuickSort, ComparisonCountsOfShortArrays) {
    const std::pair<std::vector<uint32_t>, uint32_t> cases[] = {
        {{}, 0}, {{5}, 0},
        {{1, 2}, 1}, {{2, 1}, 1},  // two elements: the search for the smallest is the only comparison
        {{1, 2, 3}, 3},            // two to find the smallest, one for the third element
        {{3, 2, 1}, 3},            // 1,2,3 after the exchange; the third then stops at once
        {{1, 3, 2}, 4},            // the third steps back once (2 < 3) and stops at the sentinel
        // Median of three: 2 (no exchange needed, so the third is skipped).
        // Partition of 1..5 with pivot 3, left at 2, right at 4: compare(2,p) <0,
        // compare(3,p) stops; compare(p,4) <0, compare(p,3) stops; left==right:
        // 4 comparisons. Sentinel search over five: 4. Insertion of 3, 4, 5:
        // one each. Total 2 + 4 + 4 + 3.
        {{1, 2, 3, 4, 5}, 13},
    };
    for (const auto& c : cases) {
        std::vector<uint32_t> keys = c.first;
        CountingT counting = {nullptr, nullptr, 4, 0, 0};
        quickSort(keys.data(), static_cast<uint32_t>(keys.size()), 4, compareKeys, &counting);
        EXPECT_EQ(c.second, counting.calls) << ::testing::PrintToString(c.first);
    }
}

// A comparison that contradicts itself must still leave a permutation of the
// input and touch nothing outside the array; elements of size 0 are left alone.
int compareBadly(void* context, const void*, const void*) {
    uint32_t* state = static_cast<uint32_t*>(context);
    *state = *state * 1103515245u + 12345u;
    return static_cast<int>((*state >> 16) % 3) - 1;
}

int alwaysBefore(void*, const void*, const void*) { return -1; }

TEST(QuickSort, ContradictoryComparisonStaysInsideTheArray) {
    for (uint32_t seed = 0; seed <= 50; ++seed) {
        std::vector<uint32_t> keys(300);
        std::iota(keys.begin(), keys.end(), 0u);
        uint32_t state = seed;
        quickSort(keys.data(), 300, 4, seed < 50 ? compareBadly : alwaysBefore, &state);
        std::sort(keys.begin(), keys.end());
        for (uint32_t i = 0; i < keys.size(); ++i) ASSERT_EQ(i, keys[i]) << "seed " << seed;
    }
    char byte = 'x';
    quickSort(&byte, 10, 0, alwaysBefore, nullptr);
    EXPECT_EQ('x', byte);
}

}  // namespace
}  // namespace keel
