// An input stream over bytes in memory that hands them out in pieces of
// chosen sizes: how a pipe or a slow device feeds a reader. Used by the text
// reader's tests and fuzz target to show that the cut of the input does not
// change the text.
#ifndef KEEL_TESTS_TESTING_MEMSTREAM_H
#define KEEL_TESTS_TESTING_MEMSTREAM_H

#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "files/iostream.h"

namespace keel {
namespace testkit {

class PiecewiseInputC : public InputStreamC {
public:
    // `seed` 0 hands out as much as is asked; any other seed draws the size
    // of each piece from 1 to the size asked.
    PiecewiseInputC(const std::string& bytes, uint32_t seed)
        : bytes(bytes), random(seed), piecewise(seed != 0) {}
    int32_t read(void* buffer, uint32_t length) override {
        asked.push_back(length);
        size_t left = bytes.size() - position;
        if (left == 0 || length == 0) return 0;
        size_t piece = piecewise ? 1 + random() % length : length;
        if (piece > left) piece = left;
        memcpy(buffer, bytes.data() + position, piece);
        position += piece;
        return static_cast<int32_t>(piece);
    }
    int64_t getLength() override { return static_cast<int64_t>(bytes.size()); }
    bool canRead() override { return true; }
    bool canSeek() override { return false; }
    bool canWrite() override { return false; }
    int64_t seek(int64_t, int32_t) override { return -1; }
    std::vector<uint32_t> asked;  // the length of each read, in order

private:
    std::string bytes;
    size_t position = 0;
    std::mt19937 random;
    bool piecewise;
};

}  // namespace testkit
}  // namespace keel

#endif
