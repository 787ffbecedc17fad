#include <keel/blobarr.h>

#include <stddef.h>

namespace keel {

uint32_t nextArrayCapacity(uint32_t capacity) {
    // ((capacity * 3) / 2 | 31) + 1, computed wide so that the step past
    // 32 bits fails as an allocation instead of wrapping to a small block.
    uint64_t next = ((static_cast<uint64_t>(capacity) * 3) / 2 | 31) + 1;
    if (next > UINT32_MAX) throw std::bad_alloc();
    return static_cast<uint32_t>(next);
}

size_t arrayBytes(uint32_t capacity, size_t elementSize) {
    if (elementSize != 0 && capacity > SIZE_MAX / elementSize) throw std::bad_alloc();
    return static_cast<size_t>(capacity) * elementSize;
}

BlobArrayC::~BlobArrayC() { BlobArrayC::clear(); }

void BlobArrayC::clear() {
    size_ = 0;
    capacity_ = 0;
    delete[] data_;
    data_ = nullptr;
}

void BlobArrayC::grow() {
    uint32_t newCapacity = nextArrayCapacity(capacity_);
    char* fresh = new char[arrayBytes(newCapacity, elementSize_)];
    if (size_ != 0) memcpy(fresh, data_, static_cast<size_t>(size_) * elementSize_);
    delete[] data_;
    data_ = fresh;
    capacity_ = newCapacity;
}

void* BlobArrayC::insertAt(uint32_t index) {
    if (size_ == capacity_) grow();
    if (index < size_) {
        memmove(data_ + static_cast<size_t>(index + 1) * elementSize_,
                data_ + static_cast<size_t>(index) * elementSize_,
                static_cast<size_t>(size_ - index) * elementSize_);
    } else {
        index = size_;
    }
    ++size_;
    return data_ + static_cast<size_t>(index) * elementSize_;
}

void BlobArrayC::removeAt(uint32_t index) {
    if (index >= size_) return;
    destroyElement(data_ + static_cast<size_t>(index) * elementSize_);
    closeGap(index);
}

void BlobArrayC::closeGap(uint32_t index) {
    --size_;
    if (index < size_) {
        memmove(data_ + static_cast<size_t>(index) * elementSize_,
                data_ + static_cast<size_t>(index + 1) * elementSize_,
                static_cast<size_t>(size_ - index) * elementSize_);
    }
    if (size_ == 0) clear();
}

}  // namespace keel
