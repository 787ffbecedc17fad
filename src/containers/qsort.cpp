#include <keel/qsort.h>

#include <alloca.h>
#include <stddef.h>
#include <string.h>

#include <memory>

namespace keel {

namespace {

// Segments of at most this many elements (counted as the byte distance
// between their ends) are left for the closing insertion pass.
const uint32_t kThresholdElements = 4;

// Postponed segments. The larger part of every split is pushed and the
// smaller one is worked on, so the depth never exceeds log2 of the count.
const int kStackDepth = 32;

// Pivot copies up to this size live on the stack. Nothing in the library
// sorts larger elements; a larger one gets a heap block so that a caller's
// odd element size cannot exhaust the stack.
const uint32_t kStackPivotLimit = 4096;

struct SegmentT {
    char* low;
    char* high;
};

inline void exchangeBytes(char* first, char* second, uint32_t size) {
    for (uint32_t i = 0; i < size; ++i) {
        char saved = first[i];
        first[i] = second[i];
        second[i] = saved;
    }
}

// Splits [low, high] until every part left is short, pushing the larger part
// of each split. `pivot` is a block of `size` bytes for the pivot copy.
void partitionAll(char* low, char* high, uint32_t size, SortCompareFn compare, void* context,
                  char* pivot) {
    const ptrdiff_t threshold = static_cast<ptrdiff_t>(kThresholdElements) * size;
    SegmentT stack[kStackDepth];
    int top = 0;
    for (;;) {
        // Median of three: afterwards low <= middle <= high.
        char* middle = low + ((static_cast<size_t>(high - low) / size) / 2) * size;
        if (compare(context, middle, low) < 0) exchangeBytes(middle, low, size);
        if (compare(context, high, middle) < 0) {
            exchangeBytes(high, middle, size);
            if (compare(context, middle, low) < 0) exchangeBytes(middle, low, size);
        }
        // The partition compares against a copy, so exchanges that move the
        // middle element cannot change the pivot under the scan.
        memcpy(pivot, middle, size);

        char* left = low + size;
        char* right = high - size;
        do {
            // With a consistent comparison the ends of the segment stop both
            // scans (low <= pivot <= high). The bound tests come after the
            // comparison, so they never change which comparisons are made;
            // they only keep a comparison that contradicts itself inside the
            // segment.
            while (compare(context, left, pivot) < 0 && left < high) left += size;
            while (compare(context, pivot, right) < 0 && right > low) right -= size;
            if (left < right) {
                exchangeBytes(left, right, size);
                left += size;
                right -= size;
            } else if (left == right) {
                left += size;
                right -= size;
                break;
            }
        } while (left <= right);

        const ptrdiff_t lowPart = right - low;
        const ptrdiff_t highPart = high - left;
        if (lowPart <= threshold) {
            if (highPart <= threshold) {
                if (top == 0) return;
                --top;
                low = stack[top].low;
                high = stack[top].high;
            } else {
                low = left;
            }
        } else if (highPart <= threshold) {
            high = right;
        } else if (lowPart <= highPart) {
            stack[top].low = left;
            stack[top].high = high;
            ++top;
            high = right;
        } else {
            stack[top].low = low;
            stack[top].high = right;
            ++top;
            low = left;
        }
    }
}

}  // namespace

void quickSort(void* base, uint32_t count, uint32_t size, SortCompareFn compare, void* context) {
    // Elements of no bytes are all alike; there is nothing to move (and the
    // middle of a segment could not be computed).
    if (count == 0 || size == 0) return;
    char* const first = static_cast<char*>(base);
    char* const last = first + static_cast<size_t>(count - 1) * size;

    if (count > kThresholdElements) {
        std::unique_ptr<char[]> large;
        char* pivot;
        if (size <= kStackPivotLimit) {
            pivot = static_cast<char*>(alloca(size));
        } else {
            large.reset(new char[size]);
            pivot = large.get();
        }
        partitionAll(first, last, size, compare, context, pivot);
    }

    // The smallest element sits among the first five now (the partitions
    // leave only short segments unsorted, and the first one holds the
    // minimum). Put it first: it stops the insertion loop below, which then
    // needs no bounds test.
    const uint32_t sentinelRange = count - 1 < kThresholdElements ? count - 1 : kThresholdElements;
    char* smallest = first;
    for (uint32_t i = 1; i <= sentinelRange; ++i) {
        char* run = first + static_cast<size_t>(i) * size;
        if (compare(context, run, smallest) < 0) smallest = run;
    }
    if (smallest != first) exchangeBytes(smallest, first, size);

    // Insertion from the third element on; the second already follows the
    // smallest. An element that must move is rotated into place one byte
    // offset at a time, from its last byte to its first.
    for (uint32_t i = 2; i < count; ++i) {
        char* run = first + static_cast<size_t>(i) * size;
        uint32_t target = i;
        // The sentinel ends this scan for a consistent comparison; the test
        // of target keeps a contradictory one from stepping before the array
        // without changing any comparison the sentinel allows.
        while (target > 0 &&
               compare(context, run, first + static_cast<size_t>(target - 1) * size) < 0) {
            --target;
        }
        if (target == i) continue;
        for (uint32_t byte = size; byte-- > 0;) {
            char saved = run[byte];
            for (uint32_t k = i; k > target; --k) {
                first[static_cast<size_t>(k) * size + byte] =
                    first[static_cast<size_t>(k - 1) * size + byte];
            }
            first[static_cast<size_t>(target) * size + byte] = saved;
        }
    }
}

}  // namespace keel
