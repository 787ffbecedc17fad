#include <keel/qsort.h>

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

// Elements of `size` bytes: the key in the first four, the other bytes
// derived from it, so that a torn move shows. Odd sizes leave them unaligned.
std::vector<unsigned char> elementsOf(const std::vector<uint32_t>& keys, uint32_t size) {
    std::vector<unsigned char> bytes(keys.size() * size);
    for (size_t i = 0; i < keys.size(); ++i) {
        memcpy(&bytes[i * size], &keys[i], 4);
        for (uint32_t k = 4; k < size; ++k) bytes[i * size + k] = static_cast<unsigned char>(keys[i] * 31 + k);
    }
    return bytes;
}

void sortAndCheck(const std::vector<uint32_t>& keys, uint32_t size) {
    std::vector<unsigned char> bytes = elementsOf(keys, size);
    const char* first = reinterpret_cast<const char*>(bytes.data());
    CountingT counting = {first, first + bytes.size(), size, 0, 0};
    quickSort(bytes.data(), static_cast<uint32_t>(keys.size()), size, compareKeys, &counting);
    std::vector<uint32_t> sorted(keys);
    std::sort(sorted.begin(), sorted.end());
    ASSERT_EQ(0u, counting.outside);
    ASSERT_TRUE(bytes == elementsOf(sorted, size)) << keys.size() << " keys of " << size << " bytes";
}

// Ascending, descending, all equal, random, three values and organ pipe.
TEST(QuickSort, SortsEveryShapeForSeveralElementSizes) {
    std::mt19937 random(12345);
    for (uint32_t count : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 16u, 31u, 100u, 1000u, 5000u}) {
        for (int shape = 0; shape < 6; ++shape) {
            std::vector<uint32_t> keys;
            for (uint32_t i = 0; i < count; ++i) {
                const uint32_t key[] = {i, count - i, 7, static_cast<uint32_t>(random()),
                                        static_cast<uint32_t>(random() % 3),
                                        i < count / 2 ? i : count - i};
                keys.push_back(key[shape]);
            }
            for (uint32_t size : {4u, 8u, 12u, 37u}) sortAndCheck(keys, size);
        }
    }
    // Elements larger than the pivot's stack buffer.
    std::vector<uint32_t> keys;
    for (uint32_t i = 0; i < 40; ++i) keys.push_back((i * 17) % 23);
    sortAndCheck(keys, 5000);
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
