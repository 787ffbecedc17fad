// Runs of a model driver: a class whose `std::string step(uint32_t
// operation, uint32_t argument)` applies one operation to the real unit and
// to its plain model and answers where they differ (empty while they agree).
// The tests draw the pairs from seeded generators, the fuzz targets from
// their input.
//
//     EXPECT_EQ("", keel::testkit::runSeeded<listmodel::DriverC>(20, 300));
//     keel::testkit::runBytes(driver, data, size, 2000);  // aborts on a difference
#ifndef KEEL_TESTS_TESTING_MODELRUN_H
#define KEEL_TESTS_TESTING_MODELRUN_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <random>
#include <string>

namespace keel {
namespace testkit {

// Seeds 1 to `seeds`, `steps` operations each on a fresh driver made from
// `args`; answers the first difference with its seed and step, or "".
template <typename Driver, typename... Args>
std::string runSeeded(uint32_t seeds, int steps, const Args&... args) {
    for (uint32_t seed = 1; seed <= seeds; ++seed) {
        std::mt19937 random(seed);
        Driver driver(args...);
        for (int step = 0; step < steps; ++step) {
            uint32_t operation = random(), argument = random();
            std::string broken = driver.step(operation, argument);
            if (!broken.empty())
                return "seed " + std::to_string(seed) + " step " + std::to_string(step) + ": " +
                       broken;
        }
    }
    return "";
}

// The input's byte pairs as operations, `most` of them at most; a difference
// aborts the fuzz target with what differed.
template <typename Driver>
void runBytes(Driver& driver, const uint8_t* data, size_t size, size_t most) {
    for (size_t i = 0; i + 2 <= size && i < 2 * most; i += 2) {
        std::string broken = driver.step(data[i], data[i + 1]);
        if (!broken.empty()) {
            fprintf(stderr, "model and unit differ after %s\n", broken.c_str());
            abort();
        }
    }
}

}  // namespace testkit
}  // namespace keel

#endif
