// openFileOrStandardInput, createFileText and the process and time helpers.
#include "files/fopen.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "files/gettime.h"
#include "files/taskid.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

TEST(OpenFileOrStandardInput, DashIsStandardInputWhateverTheMode) {
    EXPECT_EQ(nullptr, openFileOrStandardInput(nullptr, "rb"));
    EXPECT_EQ(stdin, openFileOrStandardInput("-", "rb"));
    EXPECT_EQ(stdin, openFileOrStandardInput("-", "wb"));
    EXPECT_EQ(nullptr, openFileOrStandardInput("/nonexistent/keel/file", "rb"));
}

// createFileText makes the file with the mode under the umask, and empties
// an existing one.
TEST(OpenFileOrStandardInput, CreateAndOpenAFile) {
    testkit::TempDirC dir;
    std::string path = dir.file("made");
    mode_t oldMask = umask(022);
    int fd = createFileText(path.c_str(), 0660);
    umask(oldMask);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(4, write(fd, "text", 4));
    close(fd);
    FILE* f = openFileOrStandardInput(path.c_str(), "rb");
    ASSERT_NE(nullptr, f);
    fclose(f);
    close(createFileText(path.c_str(), 0600));
    struct stat info;
    ASSERT_EQ(0, stat(path.c_str(), &info));
    EXPECT_EQ(0640u, info.st_mode & 0777);
    EXPECT_EQ(0, info.st_size);
    EXPECT_EQ(-1, createFileText(dir.file("no/such").c_str(), 0644));
}

// Each process has its own id: a child reports the id its parent was given.
TEST(ProcessAndTime, ChildKnowsItsOwnId) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    pid_t child = fork();
    if (child == 0) {
        int32_t id = getProcessId();
        _exit(write(fds[1], &id, sizeof id) == sizeof id ? 0 : 1);
    }
    int32_t id = 0;
    EXPECT_EQ(static_cast<ssize_t>(sizeof id), read(fds[0], &id, sizeof id));
    waitpid(child, nullptr, 0);
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ(static_cast<int32_t>(child), id);
    EXPECT_NE(id, getProcessId());
}

// The clock is read, never compared with another reading of it: a time of
// day, with microseconds below one second.
TEST(ProcessAndTime, ClockGivesATimeOfDay) {
    struct timeval now = {-1, -1};
    EXPECT_EQ(0, getTimeOfDay(&now));
    EXPECT_GT(now.tv_sec, 0);
    EXPECT_GE(now.tv_usec, 0);
    EXPECT_LT(now.tv_usec, 1000000);
}

}  // namespace
}  // namespace keel
