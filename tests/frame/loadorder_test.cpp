#include "frame/loadorder.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <keel/string.h>

namespace keel {
namespace {

TEST(LoadOrderTest, EveryStepHasRunBeforeMain) {
    EXPECT_EQ(12, loadStepsCompleted());
}

TEST(LoadOrderTest, TheStringFactoryExistsAfterLoad) {
    StringImplFactoryI* factory = getStringFactory();
    ASSERT_NE(nullptr, factory);
    EXPECT_EQ(factory, getStringFactory());
}

int exitPipe = -1;

void writeMark(void* argument) {
    char mark = static_cast<char>(reinterpret_cast<intptr_t>(argument));
    ssize_t written = write(exitPipe, &mark, 1);
    (void)written;
}

// Exit actions run in exact reverse order of registration, interleaved with
// the destructors of function-local statics made in between.
TEST(LoadOrderTest, ExitActionsRunInReverseOrder) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(fds[0]);
        exitPipe = fds[1];
        registerExitAction(writeMark, reinterpret_cast<void*>(intptr_t('a')));
        registerExitAction(writeMark, reinterpret_cast<void*>(intptr_t('b')));
        struct Local {
            ~Local() { writeMark(reinterpret_cast<void*>(intptr_t('s'))); }
        };
        static Local local;
        registerExitAction(writeMark, reinterpret_cast<void*>(intptr_t('c')));
        exit(0);
    }
    close(fds[1]);
    std::string marks;
    char buffer[16];
    ssize_t got;
    while ((got = read(fds[0], buffer, sizeof buffer)) > 0) marks.append(buffer, static_cast<size_t>(got));
    close(fds[0]);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ("csba", marks);
}

TEST(LoadOrderTest, RegisterExitDeleteDeletesAtExit) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        close(fds[0]);
        exitPipe = fds[1];
        struct Owned {
            ~Owned() { writeMark(reinterpret_cast<void*>(intptr_t('d'))); }
        };
        registerExitDelete(new Owned());
        exit(0);
    }
    close(fds[1]);
    char mark = 0;
    EXPECT_EQ(1, read(fds[0], &mark, 1));
    EXPECT_EQ('d', mark);
    close(fds[0]);
    waitpid(child, nullptr, 0);
}

}  // namespace
}  // namespace keel
