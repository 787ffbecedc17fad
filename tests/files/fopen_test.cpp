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
    EXPECT_EQ(openFileOrStandardInput(nullptr, "rb"), nullptr);
    EXPECT_EQ(openFileOrStandardInput("-", "rb"), stdin);
    EXPECT_EQ(openFileOrStandardInput("-", "wb"), stdin);
    EXPECT_EQ(openFileOrStandardInput("/nonexistent/keel/file", "rb"), nullptr);
}

TEST(OpenFileOrStandardInput, CreateAndOpenAFile) {
    char dir[] = "/tmp/keel-fopen-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string path = std::string(dir) + "/made";

    mode_t oldMask = umask(022);
    int fd = createFileText(path.c_str(), 0640);
    umask(oldMask);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(write(fd, "text", 4), 4);
    close(fd);
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);

    FILE* f = openFileOrStandardInput(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    char buffer[8] = {};
    EXPECT_EQ(fread(buffer, 1, sizeof buffer, f), 4u);
    EXPECT_STREQ(buffer, "text");
    fclose(f);

    // creat empties an existing file.
    fd = createFileText(path.c_str(), 0640);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 0);

    EXPECT_EQ(createFileText((std::string(dir) + "/no/such").c_str(), 0644), -1);
    unlink(path.c_str());
    rmdir(dir);
}

TEST(ProcessAndTime, IdAndClock) {
    EXPECT_EQ(getProcessId(), static_cast<int32_t>(getpid()));
    struct timeval now;
    time_t before = time(nullptr);
    EXPECT_EQ(getTimeOfDay(&now), 0);
    time_t after = time(nullptr);
    EXPECT_GE(now.tv_sec, before);
    EXPECT_LE(now.tv_sec, after);
    EXPECT_LT(now.tv_usec, 1000000);
}

}  // namespace
}  // namespace keel
