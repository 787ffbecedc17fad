// openFileOrStandardInput, createFileText and the process and time helpers.
#include "files/fopen.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "files/gettime.h"
#include "files/taskid.h"

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
    char dir[] = "/tmp/keel-fopen-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    std::string path = std::string(dir) + "/made";
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
    EXPECT_EQ(-1, createFileText((std::string(dir) + "/no/such").c_str(), 0644));
    unlink(path.c_str());
    rmdir(dir);
}

TEST(ProcessAndTime, IdAndClock) {
    EXPECT_EQ(static_cast<int32_t>(getpid()), getProcessId());
    struct timeval now;
    time_t before = time(nullptr);
    EXPECT_EQ(0, getTimeOfDay(&now));
    // time() reads a coarse clock that may trail the fine one by a tick, so
    // a second boundary between the two readings is allowed for.
    EXPECT_GE(now.tv_sec + 1, before);
    EXPECT_LE(now.tv_sec, time(nullptr) + 1);
    EXPECT_LT(now.tv_usec, 1000000);
}

}  // namespace
}  // namespace keel
