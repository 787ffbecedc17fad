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
#ifndef KEEL_TESTS_TESTING_PROCESS_H
#define KEEL_TESTS_TESTING_PROCESS_H

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

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

}  // namespace testkit
}  // namespace keel

#endif
