// openFileOrStandardInput and createFileText. getProcessId and getTimeOfDay
// are getpid and gettimeofday passed through: nothing of their own to test.
#include "files/fopen.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

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

}  // namespace
}  // namespace keel
