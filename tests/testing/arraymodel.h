// A typed array of heap-owning elements driven beside a std::vector<int>:
// insertions anywhere (past the end appends), insertions of one of the
// array's own elements, removals in and out of range, removeAll. After each
// step the contents, the capacity rule and the count of live elements must
// agree. Shared by the random-sequence test and the fuzz target.
//
//     keel::arraymodel::DriverC driver;
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_ARRAYMODEL_H
#define KEEL_TESTS_TESTING_ARRAYMODEL_H

#include <stdint.h>

#include <string>
#include <vector>

#include <keel/blobarr.h>

namespace keel {
namespace arraymodel {

// Owns a heap block (so it is movable by bytes, as array elements must be)
// and counts live objects, so that leaks and double destruction show.
struct TrackedT {
    static int& live() {
        static int count = 0;
        return count;
    }
    int* value;
    explicit TrackedT(int v) : value(new int(v)) { ++live(); }
    TrackedT(const TrackedT& other) : value(new int(*other.value)) { ++live(); }
    TrackedT& operator=(const TrackedT&) = delete;
    ~TrackedT() {
        delete value;
        --live();
    }
};

class DriverC {
public:
    ArrayM<TrackedT> array;
    std::vector<int> model;
    int next = 0;

    std::string step(uint32_t operation, uint32_t argument) {
        uint32_t size = static_cast<uint32_t>(model.size());
        uint32_t index = argument % (size + 3);  // up to two past the end
        uint32_t op = operation % 6, at = index < size ? index : size;
        if (op < 2) {
            array.insertAt(index, TrackedT(next));
            model.insert(model.begin() + at, next++);
        } else if (op == 2 && size > 0) {
            // The value is copied before the gap opens, so an element of
            // the array itself may be inserted.
            array.insertAt(index, array[argument % size]);
            model.insert(model.begin() + at, model[argument % size]);
        } else if (op == 3 || op == 4) {
            array.removeAt(index);
            if (index < size) model.erase(model.begin() + index);
        } else if (op == 5 && argument % 8 == 0) {
            array.removeAll();
            model.clear();
        }
        return agrees() ? "" : "operation " + std::to_string(op);
    }

    bool agrees() const {
        if (array.size() != model.size()) return false;
        if (TrackedT::live() != static_cast<int>(model.size())) return false;
        // Storage goes with the last element; otherwise the capacity is a
        // step of the growth rule that holds the elements.
        if (model.empty() != (array.capacity() == 0)) return false;
        uint32_t capacity = 0;
        while (capacity < array.capacity()) capacity = nextArrayCapacity(capacity);
        if (capacity != array.capacity() || capacity < array.size()) return false;
        for (uint32_t i = 0; i < model.size(); ++i)
            if (*array[i].value != model[i]) return false;
        return array.at(static_cast<uint32_t>(model.size())) == nullptr;
    }
};

}  // namespace arraymodel
}  // namespace keel

#endif
