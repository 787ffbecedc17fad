// The helpers by plain path below the file service, on real files in a
// fresh directory: queries, whole-file copies and moves, and the opens of
// fopen.h (openFileOrStandardInput, createFileText). getProcessId and
// getTimeOfDay are getpid and gettimeofday passed through: nothing of their
// own to test.
#include "files/copyfile.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "files/fopen.h"
#include "testing/filetree.h"

namespace keel {
namespace {

class CopyFileTest : public testkit::FileTreeTest {
protected:
    // Writes `relative` with exactly `mode` (past the umask); answers its path.
    std::string put(const char* relative, const std::string& content, mode_t mode = 0644) const {
        chmod(writeFile(relative, content).c_str(), mode);
        return path(relative);
    }
};

TEST_F(CopyFileTest, QueriesAndRemoval) {
    std::string f = put("f", "12345"), sub = path("d"), inner = path("d/x");
    int64_t size = -1;
    EXPECT_TRUE(regularFileSize(f.c_str(), &size));
    EXPECT_EQ(5, size);
    EXPECT_FALSE(regularFileSize(dir.c_str(), &size));  // not a regular file
    EXPECT_EQ(0, size);
    // removePath takes files and empty directories only.
    makeTree({"d/", "d/x=x"});
    EXPECT_FALSE(removePath(sub.c_str()));
    EXPECT_TRUE(removePath(inner.c_str()));
    EXPECT_FALSE(pathExists(inner.c_str()));
    EXPECT_FALSE(removePath(inner.c_str()));
    EXPECT_TRUE(removePath(sub.c_str()));
    int64_t bytes = -1;
    EXPECT_EQ(0, freeDiskSpace(dir.c_str(), &bytes));
    EXPECT_GE(bytes, 0);
    EXPECT_EQ(1, freeDiskSpace(path("missing/deeper").c_str(), &bytes));
    EXPECT_EQ(0, bytes);
}

// A file system larger than 2^63 bytes reads as exactly INT64_MAX; just
// below the limit the product is exact.
TEST(FreeBytesOf, ProductOrCeiling) {
    uint64_t limit = uint64_t(INT64_MAX) / 4096;
    EXPECT_EQ(40960, freeBytesOf(10, 4096));
    EXPECT_EQ(0, freeBytesOf(123, 0));
    EXPECT_EQ(int64_t((limit - 1) * 4096), freeBytesOf(limit - 1, 4096));
    EXPECT_EQ(INT64_MAX, freeBytesOf(limit, 4096));
    EXPECT_EQ(INT64_MAX, freeBytesOf(UINT64_MAX, 1));
}

TEST_F(CopyFileTest, CopyKeepsContentAndMode) {
    std::string content;
    for (int i = 0; i < 3000; ++i)
        content.push_back(static_cast<char>(i * 7));  // several blocks and a part
    std::string source = put("src", content, 0640), destination = put("dst", "old, and longer");
    EXPECT_EQ(kCopyDone, copyFileData(source.c_str(), destination.c_str()));
    EXPECT_EQ(content, readFile("dst"));
    EXPECT_EQ(0640u, modeOf("dst"));
    EXPECT_EQ(kCopyDone, copyFileData(put("empty", "").c_str(), destination.c_str()));
    EXPECT_EQ("", readFile("dst"));
}

// Closes the stream and answers as a full disk seen only at close does.
int failingClose(FILE* stream) {
    fclose(stream);
    errno = ENOSPC;
    return EOF;
}

TEST_F(CopyFileTest, CopyFailures) {
    std::string source = put("src", std::string(3000, 'k')), destination = path("dst");
    EXPECT_EQ(kCopyFileFailed, copyFileData(path("missing").c_str(), destination.c_str()));
    EXPECT_FALSE(pathExists(destination.c_str()));
    EXPECT_EQ(kCopyFileFailed, copyFileData(source.c_str(), path("no/such/dst").c_str()));
    EXPECT_EQ(kCopyFileFailed, copyFileData(nullptr, destination.c_str()));
    // A destination that does not close is a failed write, and is removed.
    setCopyCloseFunction(failingClose);
    EXPECT_EQ(kCopyFileFailed, copyFileData(source.c_str(), destination.c_str()));
    setCopyCloseFunction(nullptr);
    EXPECT_FALSE(pathExists(destination.c_str()));
    EXPECT_EQ(std::string(3000, 'k'), readFile("src"));
    // A directory opens for reading, and its read error looks like the end
    // of the file: the copy is an empty file. Its size cannot be found, so it
    // is measured as 0 and never gets the code for missing space.
    EXPECT_EQ(kCopyDone, copyFileData(dir.c_str(), destination.c_str()));
    EXPECT_EQ("", readFile("dst"));
}

TEST_F(CopyFileTest, MoveRenamesOrCopiesAndRemoves) {
    std::string source = put("a", "moving", 0600), destination = path("b");
    struct stat before, after;
    ASSERT_EQ(0, stat(source.c_str(), &before));
    EXPECT_EQ(kCopyDone, moveFileData(source.c_str(), destination.c_str()));
    EXPECT_FALSE(pathExists(source.c_str()));
    ASSERT_EQ(0, stat(destination.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);  // a rename keeps the file itself
    EXPECT_EQ("moving", readFile("b"));
    // rename refuses to put a file over a directory; the copy then fails
    // too, and the source must stay.
    makeTree({"c=stays", "d/"});
    EXPECT_EQ(kCopyFileFailed, moveFileData(path("c").c_str(), path("d").c_str()));
    EXPECT_EQ("stays", readFile("c"));
    EXPECT_EQ(kCopyFileFailed, moveFileData(path("missing").c_str(), path("x").c_str()));
}

// /dev/shm is usually another file system than /tmp: the move copies and
// removes, and a destination that does not close keeps the source. Where it
// is the same, the rename path is taken and the outcome is the same.
TEST_F(CopyFileTest, MoveAcrossDevicesCopiesAndRemoves) {
    char pattern[] = "/dev/shm/keel-move-XXXXXX";
    int fd = access("/dev/shm", W_OK) == 0 ? mkstemp(pattern) : -1;
    if (fd < 0) GTEST_SKIP() << "no /dev/shm";
    ASSERT_EQ(6, write(fd, "across", 6));
    close(fd);
    ASSERT_EQ(0, chmod(pattern, 0604));
    std::string destination = path("moved");
    struct stat shm, tmp;
    if (stat("/dev/shm", &shm) == 0 && stat(dir.c_str(), &tmp) == 0 && shm.st_dev != tmp.st_dev) {
        setCopyCloseFunction(failingClose);
        EXPECT_EQ(kCopyFileFailed, moveFileData(pattern, destination.c_str()));
        setCopyCloseFunction(nullptr);
        EXPECT_EQ("across", testkit::readFileAt(pattern));
        EXPECT_FALSE(pathExists(destination.c_str()));
    }
    EXPECT_EQ(kCopyDone, moveFileData(pattern, destination.c_str()));
    EXPECT_FALSE(pathExists(pattern));
    EXPECT_EQ("across", readFile("moved"));
    EXPECT_EQ(0604u, modeOf("moved"));
    unlink(pattern);
}

TEST(OpenFileOrStandardInput, DashIsStandardInputWhateverTheMode) {
    EXPECT_EQ(nullptr, openFileOrStandardInput(nullptr, "rb"));
    EXPECT_EQ(stdin, openFileOrStandardInput("-", "rb"));
    EXPECT_EQ(stdin, openFileOrStandardInput("-", "wb"));
    EXPECT_EQ(nullptr, openFileOrStandardInput("/nonexistent/keel/file", "rb"));
}

// createFileText makes the file with the mode under the umask, and empties
// an existing one.
TEST_F(CopyFileTest, CreateAndOpenAFile) {
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
