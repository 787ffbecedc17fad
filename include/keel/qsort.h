// The one sort of the library: an in-place, unstable quicksort over raw
// elements of any fixed size. Every array sorts through it
// (BlobArrayC::sortWith and the typed sorts built on that).
//
//     #include <keel/qsort.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     static int byValue(void*, const void* a, const void* b) { ... }
//     quickSort(base, count, sizeof(uint32_t), byValue, nullptr);
//
// The sort allocates nothing from the heap for ordinary element sizes: the
// pivot copy and the stack of postponed segments live on the machine stack.
#ifndef KEEL_QSORT_H
#define KEEL_QSORT_H

#include <stdint.h>

namespace keel {

// Answers a negative number when `first` sorts before `second`. `first` and
// `second` are element addresses; `context` is passed through untouched.
typedef int (*SortCompareFn)(void* context, const void* first, const void* second);

// Sorts `count` elements of `size` bytes at `base`. Elements are exchanged
// byte by byte, so any type that can be moved by bytes may be sorted.
void quickSort(void* base, uint32_t count, uint32_t size, SortCompareFn compare, void* context);

}  // namespace keel

#endif
