// Growable arrays of fixed-size elements.
//
// BlobArrayC keeps its elements as raw bytes; a derived class says what an
// element is by its element size and by destroyElement, the one thing that
// differs between them. ArrayM<T> is the typed template beside it, and
// PlainArrayM<T> the same three fields without a virtual table, for arrays
// embedded in other classes.
//
//     #include <keel/blobarr.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     class PtrArrayC : public BlobArrayC { ... destroyElement ... };
//     void* slot = array.insertAt(array.size());   // stale bytes: construct them
//     array.removeAt(0);                           // destroys, closes the gap
//
// Capacity grows to ((capacity * 3) / 2 | 31) + 1: 32, 64, 128, 224, 352, ...
// Elements are moved by plain byte copies when the array grows and when gaps
// open or close, so an element type must be movable by bytes. No array has a
// lock; an index out of range gives a null address from at() and is otherwise
// the caller's concern.
#ifndef KEEL_BLOBARR_H
#define KEEL_BLOBARR_H

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <utility>

#include <keel/qsort.h>

namespace keel {

// The capacity that follows `capacity`. Throws std::bad_alloc, as a failing
// allocation would, when the next step no longer fits in 32 bits: the plain
// 32-bit formula would wrap to a smaller block than the elements need.
uint32_t nextArrayCapacity(uint32_t capacity);

// The byte count of `capacity` elements of `elementSize` bytes, or
// std::bad_alloc when it does not fit in an address.
size_t arrayBytes(uint32_t capacity, size_t elementSize);

class BlobArrayC {
public:
    explicit BlobArrayC(uint32_t elementSize)
        : elementSize_(elementSize), data_(nullptr), size_(0), capacity_(0) {}
    BlobArrayC(const BlobArrayC&) = delete;
    BlobArrayC& operator=(const BlobArrayC&) = delete;

    // Frees the storage through BlobArrayC::clear; destroys no element
    // (a derived class that owns its elements removes them first).
    virtual ~BlobArrayC();
    // Size and capacity 0, storage freed; destroys no element.
    virtual void clear();
    // What the end of one element means; see removeAt for what is passed.
    virtual void destroyElement(void* element) = 0;
    // Raises the capacity by the growth rule and moves the elements.
    virtual void grow();

    uint32_t size() const { return size_; }
    uint32_t capacity() const { return capacity_; }
    uint32_t elementSize() const { return elementSize_; }
    const void* data() const { return data_; }

    // The address of element `index`, or null when it is not below size().
    void* at(uint32_t index) const {
        return index < size_ ? data_ + static_cast<size_t>(index) * elementSize_ : nullptr;
    }

    // Opens a gap at `index` (an index past the end appends) and answers its
    // address. The bytes there are stale until the caller constructs them.
    void* insertAt(uint32_t index);

    // Destroys element `index` (passing its address to destroyElement) and
    // closes the gap; nothing happens when `index` is not below size(). When
    // the array becomes empty the virtual clear runs. ObjArrayC hides this
    // with a removeAt that passes the object pointer instead, so remove
    // through the object array's own type.
    void removeAt(uint32_t index);

    // Sorts through the library's quicksort; `compare` gets element addresses.
    void sortWith(SortCompareFn compare, void* context) {
        quickSort(data_, size_, elementSize_, compare, context);
    }

protected:
    // Steps of removeAt after the element's end: size - 1, close the gap,
    // clear when empty. Classes that pass something other than the element
    // address to destroyElement build their removeAt on it.
    void closeGap(uint32_t index);

    uint32_t elementSize_;
    char* data_;
    uint32_t size_;
    uint32_t capacity_;
};

// The fields of ArrayM without its virtual table: an array that lives inside
// another class and is emptied by its owner (removeAll or the destructor).
// Elements are constructed in place and moved by bytes.
template <typename T>
class PlainArrayM {
public:
    PlainArrayM() : data_(nullptr), size_(0), capacity_(0) {}
    PlainArrayM(const PlainArrayM&) = delete;
    PlainArrayM& operator=(const PlainArrayM&) = delete;
    ~PlainArrayM() { removeAll(); }

    uint32_t size() const { return size_; }
    uint32_t capacity() const { return capacity_; }

    T* at(uint32_t index) const { return index < size_ ? data_ + index : nullptr; }

    // Dereferences at(index). An index out of range ends the process at
    // once; it is never allowed to read through the missing element.
    T& operator[](uint32_t index) const {
        T* element = at(index);
        if (!element) abort();
        return *element;
    }

    // Copies `value` into a gap at `index` (past the end appends). The value
    // is copied first, so inserting an element of this same array is safe.
    T* insertAt(uint32_t index, const T& value) {
        T copy(value);
        if (size_ == capacity_) grow();
        if (index < size_) {
            memmove(static_cast<void*>(data_ + index + 1), static_cast<const void*>(data_ + index),
                    sizeof(T) * (size_ - index));
        } else {
            index = size_;
        }
        T* slot = data_ + index;
        new (slot) T(std::move(copy));
        ++size_;
        return slot;
    }
    T* append(const T& value) { return insertAt(size_, value); }

    // Destroys element `index` and closes the gap; nothing happens when it
    // is out of range. The storage is freed when the last element goes.
    void removeAt(uint32_t index) {
        if (index >= size_) return;
        data_[index].~T();
        --size_;
        if (index < size_) {
            memmove(static_cast<void*>(data_ + index), static_cast<const void*>(data_ + index + 1),
                    sizeof(T) * (size_ - index));
        }
        if (size_ == 0) freeStorage();
    }

    // Removes every element, last first, so that nothing moves.
    void removeAll() {
        while (size_ != 0) removeAt(size_ - 1);
    }

    // Sorts through the library's quicksort; `compare` gets element addresses.
    void sortWith(SortCompareFn compare, void* context) {
        quickSort(data_, size_, sizeof(T), compare, context);
    }

private:
    void grow() {
        uint32_t newCapacity = nextArrayCapacity(capacity_);
        T* fresh = static_cast<T*>(static_cast<void*>(new char[arrayBytes(newCapacity, sizeof(T))]));
        if (size_ != 0) memcpy(static_cast<void*>(fresh), static_cast<const void*>(data_), sizeof(T) * size_);
        freeStorage();
        data_ = fresh;
        capacity_ = newCapacity;
    }
    void freeStorage() {
        delete[] static_cast<char*>(static_cast<void*>(data_));
        data_ = nullptr;
        capacity_ = 0;
    }

    T* data_;
    uint32_t size_;
    uint32_t capacity_;
};

// The typed array: a virtual destructor, then the fields of PlainArrayM.
// The destructor removes all elements from the last to the first.
template <typename T>
class ArrayM : public PlainArrayM<T> {
public:
    ArrayM() {}
    virtual ~ArrayM() { this->removeAll(); }
};

}  // namespace keel

#endif
