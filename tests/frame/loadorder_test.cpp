#include "frame/loadorder.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <keel/string.h>

#include "testing/process.h"

namespace keel {
namespace {

// The runner's table in its own program, with every step replaced by one that
// records itself: each step runs once, in order, the factory between 7 and 8.
TEST(LoadOrderTest, StepsRunOnceInOrderBeforeMain) {
    int status = testkit::runProgram(testkit::builtProgram("tests/loadsteps_probe"));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ(12, loadStepsCompleted());
}

int exitPipe = -1;

void writeMark(void* mark) {
    char c = static_cast<char>(reinterpret_cast<intptr_t>(mark));
    ssize_t written = write(exitPipe, &c, 1);
    (void)written;
}

void* markOf(char c) { return reinterpret_cast<void*>(intptr_t(c)); }

// Runs `registrations` in a child that then exits, and answers the marks its
// exit actions wrote, in order.
template <typename F>
std::string marksAtExit(F registrations) {
    int fds[2];
    EXPECT_EQ(0, pipe(fds));
    pid_t child = fork();
    if (child == 0) {
        close(fds[0]);
        exitPipe = fds[1];
        registrations();
        exit(0);
    }
    close(fds[1]);
    std::string marks;
    char buffer[16];
    for (ssize_t got; (got = read(fds[0], buffer, sizeof buffer)) > 0;)
        marks.append(buffer, static_cast<size_t>(got));
    close(fds[0]);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    return marks;
}

// Exit actions run in exact reverse order of registration, interleaved with
// the destructors of function-local statics made in between.
TEST(LoadOrderTest, ExitActionsRunInReverseOrder) {
    EXPECT_EQ("csba", marksAtExit([] {
                  registerExitAction(writeMark, markOf('a'));
                  registerExitAction(writeMark, markOf('b'));
                  struct Local {
                      ~Local() { writeMark(markOf('s')); }
                  };
                  static Local local;
                  registerExitAction(writeMark, markOf('c'));
              }));
    EXPECT_EQ("d", marksAtExit([] {
                  struct Owned {
                      ~Owned() { writeMark(markOf('d')); }
                  };
                  registerExitDelete(new Owned());
              }));
}

}  // namespace
}  // namespace keel
