// Starting other programs of the build from a test, and forked children.
//
// The i386 suite runs natively where the kernel executes 32-bit programs and
// under qemu-user elsewhere. A test that starts another program of the build
// (a helper linked to libkeel.so, a forked writer that execs, ...) must start
// it through the same emulator as the suite itself, or the kernel refuses it.
// CMake passes the emulator it configured as KEEL_TEST_EMULATOR, its words
// separated by spaces; it is empty for a native run. `fork()` without `exec` needs none of this.
//
//     int status = keel::testkit::runProgram(keel::testkit::builtProgram("tests/lateexit_main"));
//     ASSERT_TRUE(WIFEXITED(status));
//     keel::testkit::ProgramRunT run = keel::testkit::runCaptured(keel::testkit::builtProgram("bin/keel"), {"--help"});
//     EXPECT_TRUE(run.exited(0)) << run.err;
//     EXPECT_TRUE(keel::testkit::runForked(4, [](int i) { return work(i) ? 0 : 1; }));
#ifndef KEEL_TESTS_TESTING_PROCESS_H
#define KEEL_TESTS_TESTING_PROCESS_H

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "testing/filetext.h"

#ifndef KEEL_TEST_EMULATOR
#define KEEL_TEST_EMULATOR ""
#endif

namespace keel {
namespace testkit {

// The emulator's words, empty when programs of the build run natively.
inline std::vector<std::string> emulatorWords() {
    std::istringstream words(KEEL_TEST_EMULATOR);
    return {std::istream_iterator<std::string>(words), std::istream_iterator<std::string>()};
}

// A program of the build, by its path below the build directory.
inline std::string builtProgram(const std::string& relative) {
#ifdef KEEL_BINARY_DIR
    return std::string(KEEL_BINARY_DIR) + "/" + relative;
#else
    return relative;
#endif
}

// Replaces the calling (forked) process by `program`, started through the
// emulator when one is configured; returns only when the exec failed.
inline void execProgram(const std::string& program, const std::vector<std::string>& args = {}) {
    std::vector<std::string> words = emulatorWords();
    words.push_back(program);
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
}

// Waits for `child` and answers its wait status, or -1; with `maxRssKb`,
// its peak resident set size in KiB (ru_maxrss of that child alone).
inline int waitFor(pid_t child, long* maxRssKb = nullptr) {
    int status = -1;
    struct rusage usage;
    while (child > 0 && wait4(child, &status, 0, &usage) < 0 && errno == EINTR) {}
    if (maxRssKb && status != -1) *maxRssKb = usage.ru_maxrss;
    return status;
}

// Runs `program` to its end and answers its wait status (as `system` does),
// or -1 when it could not be started; 127 when it could not be executed. No
// shell is involved. With `streams`, its standard input, output and error
// are those descriptors; with `maxRssKb`, its peak resident set size.
inline int runProgram(const std::string& program, const std::vector<std::string>& args = {},
                      std::vector<int> streams = {}, long* maxRssKb = nullptr) {
    pid_t child = fork();
    if (child == 0) {
        for (int fd = 0; fd < static_cast<int>(streams.size()); ++fd)
            if (streams[fd] < 0 || dup2(streams[fd], fd) < 0) _exit(126);
        execProgram(program, args);
        _exit(127);
    }
    return waitFor(child, maxRssKb);
}

// Runs `body(i)` for each i below `count` in a forked child of its own, whose
// exit status is the body's answer; true when every child exited with 0.
inline bool runForked(int count, const std::function<int(int)>& body) {
    std::vector<pid_t> children;
    for (int i = 0; i < count; ++i) {
        children.push_back(fork());
        if (children.back() == 0) _exit(body(i));
    }
    bool all = true;
    for (pid_t child : children) {
        int status = waitFor(child);
        all = WIFEXITED(status) && WEXITSTATUS(status) == 0 && all;
    }
    return all;
}

// What a program run by runCaptured did.
struct ProgramRunT {
    int status = -1;     // wait status, -1 when it could not be started
    std::string out;     // its standard output
    std::string err;     // its standard error
    long maxRssKb = -1;  // its peak resident set size (ru_maxrss), in KiB

    bool exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

// Runs `program` with its standard input from `input` and its standard
// output and error captured (through files, so that nothing can block).
inline ProgramRunT runCaptured(const std::string& program, const std::vector<std::string>& args,
                               const std::string& input = "/dev/null") {
    ProgramRunT run;
    char outName[] = "/tmp/keel-run-out-XXXXXX", errName[] = "/tmp/keel-run-err-XXXXXX";
    std::vector<int> streams = {open(input.c_str(), O_RDONLY), mkstemp(outName), mkstemp(errName)};
    run.status = runProgram(program, args, streams, &run.maxRssKb);
    for (int fd : streams) close(fd);
    for (auto [name, text] :
         {std::make_pair(outName, &run.out), std::make_pair(errName, &run.err)}) {
        *text = readFileAt(name);
        if (*text == "<missing>") text->clear();
        unlink(name);
    }
    return run;
}

}  // namespace testkit
}  // namespace keel

#endif
