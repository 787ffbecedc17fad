// Starting other programs of the build from a test.
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
#ifndef KEEL_TESTS_TESTING_PROCESS_H
#define KEEL_TESTS_TESTING_PROCESS_H

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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
    std::vector<std::string> words;
    std::string word;
    for (const char* p = KEEL_TEST_EMULATOR;; ++p) {
        if (*p == ' ' || *p == '\0') {
            if (!word.empty()) words.push_back(word);
            word.clear();
            if (*p == '\0') break;
        } else {
            word += *p;
        }
    }
    return words;
}

// A program of the build, by its path below the build directory.
inline std::string builtProgram(const std::string& relative) {
#ifdef KEEL_BINARY_DIR
    return std::string(KEEL_BINARY_DIR) + "/" + relative;
#else
    return relative;
#endif
}

// The argument vector that starts `program` with `args`, through the emulator
// when one is configured.
inline std::vector<std::string> programArgv(const std::string& program,
                                            const std::vector<std::string>& args = {}) {
    std::vector<std::string> argv = emulatorWords();
    argv.push_back(program);
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
}

// Replaces the calling (forked) process by `program`; returns only when the
// exec failed, with errno set.
inline void execProgram(const std::string& program, const std::vector<std::string>& args = {}) {
    std::vector<std::string> words = programArgv(program, args);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
}

// Runs `program` to its end and answers its wait status (as `system` does),
// or -1 when it could not be started. No shell is involved.
inline int runProgram(const std::string& program, const std::vector<std::string>& args = {}) {
    pid_t child = fork();
    if (child < 0) return -1;
    if (child == 0) {
        execProgram(program, args);
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return status;
}

// What a program run by runCaptured did.
struct ProgramRunT {
    int status = -1;     // wait status, -1 when it could not be started
    std::string out;     // its standard output
    std::string err;     // its standard error
    long maxRssKb = -1;  // its peak resident set size (ru_maxrss), in KiB

    bool exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

inline std::string slurpAndRemove(const std::string& path) {
    std::string content = readFileAt(path);
    unlink(path.c_str());
    return content == "<missing>" ? "" : content;
}

// Runs `program` with its standard input from `input` and its standard
// output and error captured (through files, so that nothing can block). The
// peak RSS is getrusage(RUSAGE_CHILDREN) of a process that has this one
// child only: a forked go-between runs the program, waits for it, and passes
// the figure back through a pipe, so earlier children of the test do not
// count.
inline ProgramRunT runCaptured(const std::string& program, const std::vector<std::string>& args,
                               const std::string& input = "/dev/null") {
    ProgramRunT run;
    char outName[] = "/tmp/keel-run-out-XXXXXX";
    char errName[] = "/tmp/keel-run-err-XXXXXX";
    int outFd = mkstemp(outName);
    int errFd = mkstemp(errName);
    int figures[2];
    if (outFd < 0 || errFd < 0 || pipe(figures) != 0) return run;
    pid_t between = fork();
    if (between == 0) {
        close(figures[0]);
        pid_t child = fork();
        if (child == 0) {
            int in = open(input.c_str(), O_RDONLY);
            if (in < 0) _exit(126);
            dup2(in, 0);
            dup2(outFd, 1);
            dup2(errFd, 2);
            execProgram(program, args);
            _exit(127);
        }
        long result[2] = {-1, -1};
        int status = 0;
        while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        struct rusage usage;
        if (child > 0 && getrusage(RUSAGE_CHILDREN, &usage) == 0) {
            result[0] = status;
            result[1] = usage.ru_maxrss;
        }
        ssize_t ignored = write(figures[1], result, sizeof result);
        (void)ignored;
        _exit(0);
    }
    close(figures[1]);
    long result[2] = {-1, -1};
    if (between > 0) {
        ssize_t got;
        while ((got = read(figures[0], result, sizeof result)) < 0 && errno == EINTR) {
        }
        int status = 0;
        while (waitpid(between, &status, 0) < 0 && errno == EINTR) {
        }
    }
    close(figures[0]);
    close(outFd);
    close(errFd);
    run.status = static_cast<int>(result[0]);
    run.maxRssKb = result[1];
    run.out = slurpAndRemove(outName);
    run.err = slurpAndRemove(errName);
    return run;
}

}  // namespace testkit
}  // namespace keel

#endif
