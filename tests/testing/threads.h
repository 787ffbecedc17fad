// Runs one piece of work on several threads at once and waits for them all:
// the frame of the thread tests.
//
//     keel::testkit::onThreads(4, [&](int t) { ... });  // t is 0 to 3
#ifndef KEEL_TESTS_TESTING_THREADS_H
#define KEEL_TESTS_TESTING_THREADS_H

#include <thread>
#include <vector>

namespace keel {
namespace testkit {

template <typename F>
void onThreads(int count, F work) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(work, t);
    for (std::thread& thread : threads) thread.join();
}

}  // namespace testkit
}  // namespace keel

#endif
