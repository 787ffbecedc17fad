// openFileOrStandardInput and createFileText. getProcessId and getTimeOfDay
// are getpid and gettimeofday passed through: nothing of their own to test.
#include "files/fopen.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "testing/filetree.h"

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
class CreateFileTextTest : public testkit::FileTreeTest {};

TEST_F(CreateFileTextTest, CreateAndOpenAFile) {
    mode_t oldMask = umask(022);
    int fd = createFileText(path("made").c_str(), 0660);
    umask(oldMask);
    EXPECT_EQ(4, write(fd, "text", 4));
    close(fd);
    FILE* f = openFileOrStandardInput(path("made").c_str(), "rb");
    ASSERT_NE(nullptr, f);
    fclose(f);
    close(createFileText(path("made").c_str(), 0600));
    EXPECT_EQ(0640u, modeOf("made"));
    EXPECT_EQ("", readFile("made"));
    EXPECT_EQ(-1, createFileText(path("no/such").c_str(), 0644));
}

}  // namespace
}  // namespace keel
