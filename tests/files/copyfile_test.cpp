#include "files/copyfile.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <ftw.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "testing/tempdir.h"

namespace keel {
namespace {

// A fresh directory for each test (tests/testing/tempdir.h).
class CopyFileTest : public testkit::TempDirTest {
protected:
    std::string put(const char* name, const std::string& content, mode_t mode = 0644) const {
        std::string made = writeFile(name, content, mode);
        chmod(made.c_str(), mode);  // past the umask
        return made;
    }
    static std::string read(const std::string& path) { return testkit::readFileAt(path); }
    static mode_t modeOf(const std::string& path) {
        struct stat info;
        return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
    }
};

TEST_F(CopyFileTest, QueriesAndRemoval) {
    std::string f = put("f", "12345"), sub = path("d");
    int64_t size = -1;
    EXPECT_TRUE(regularFileSize(f.c_str(), &size));
    EXPECT_EQ(5, size);
    EXPECT_FALSE(regularFileSize(dir.c_str(), &size));  // not a regular file
    EXPECT_EQ(0, size);
    // removePath takes files and empty directories only.
    ASSERT_EQ(0, mkdir(sub.c_str(), 0777));
    std::string inner = put("d/x", "x");
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
    std::string source = put("src", content, 0640);
    std::string destination = put("dst", "old content that is longer than nothing");
    EXPECT_EQ(kCopyDone, copyFileData(source.c_str(), destination.c_str()));
    EXPECT_EQ(content, read(destination));
    EXPECT_EQ(0640u, modeOf(destination));
    EXPECT_EQ(kCopyDone, copyFileData(put("empty", "").c_str(), destination.c_str()));
    EXPECT_EQ("", read(destination));
}

TEST_F(CopyFileTest, CopyFailures) {
    std::string source = put("src", "abc"), destination = path("dst");
    EXPECT_EQ(kCopyFileFailed, copyFileData(path("missing").c_str(), destination.c_str()));
    EXPECT_FALSE(pathExists(destination.c_str()));
    EXPECT_EQ(kCopyFileFailed, copyFileData(source.c_str(), path("no/such/dst").c_str()));
    EXPECT_EQ(kCopyFileFailed, copyFileData(nullptr, destination.c_str()));
    // A directory opens for reading, and its read error looks like the end
    // of the file: the copy is an empty file. Its size cannot be found, so it
    // is measured as 0 and never gets the code for missing space.
    EXPECT_EQ(kCopyDone, copyFileData(dir.c_str(), destination.c_str()));
    EXPECT_EQ("", read(destination));
}

TEST_F(CopyFileTest, MoveRenamesOrCopiesAndRemoves) {
    std::string source = put("a", "moving", 0600), destination = path("b");
    struct stat before, after;
    ASSERT_EQ(0, stat(source.c_str(), &before));
    EXPECT_EQ(kCopyDone, moveFileData(source.c_str(), destination.c_str()));
    EXPECT_FALSE(pathExists(source.c_str()));
    ASSERT_EQ(0, stat(destination.c_str(), &after));
    EXPECT_EQ(before.st_ino, after.st_ino);  // a rename keeps the file itself
    EXPECT_EQ("moving", read(destination));
    // rename refuses to put a file over a directory; the copy then fails
    // too, and the source must stay.
    source = put("c", "stays");
    ASSERT_EQ(0, mkdir(path("d").c_str(), 0777));
    EXPECT_EQ(kCopyFileFailed, moveFileData(source.c_str(), path("d").c_str()));
    EXPECT_EQ("stays", read(source));
    EXPECT_EQ(kCopyFileFailed, moveFileData(path("missing").c_str(), path("x").c_str()));
}

// Closes the stream and answers as a full disk seen only at close does.
int failingClose(FILE* stream) {
    fclose(stream);
    errno = ENOSPC;
    return EOF;
}

// A destination that does not close is a failed write: it is removed, the
// copy answers 1, and a move across file systems keeps its source.
TEST_F(CopyFileTest, FailedCloseRemovesTheDestinationAndKeepsTheSource) {
    std::string source = put("src", std::string(3000, 'k')), destination = path("dst");
    setCopyCloseFunction(failingClose);
    EXPECT_EQ(kCopyFileFailed, copyFileData(source.c_str(), destination.c_str()));
    EXPECT_FALSE(pathExists(destination.c_str()));
    EXPECT_EQ(std::string(3000, 'k'), read(source));
    char pattern[] = "/dev/shm/keel-move-XXXXXX";
    int fd = access("/dev/shm", W_OK) == 0 ? mkstemp(pattern) : -1;
    if (fd >= 0) {
        // rename fails across file systems (or works, where /dev/shm is on
        // the same one: then no copy and no close are involved).
        ASSERT_EQ(4, write(fd, "kept", 4));
        close(fd);
        int code = moveFileData(pattern, destination.c_str());
        struct stat shm, tmp;
        bool across =
            stat("/dev/shm", &shm) == 0 && stat(dir.c_str(), &tmp) == 0 && shm.st_dev != tmp.st_dev;
        if (across) {
            EXPECT_EQ(kCopyFileFailed, code);
            EXPECT_EQ("kept", read(pattern));
            EXPECT_FALSE(pathExists(destination.c_str()));
        }
        unlink(pattern);
    }
    setCopyCloseFunction(nullptr);
    EXPECT_EQ(kCopyDone, copyFileData(source.c_str(), destination.c_str()));
    EXPECT_EQ(std::string(3000, 'k'), read(destination));
}

// /dev/shm is usually another file system than /tmp; where it is not, the
// rename path is taken and the outcome is the same.
TEST_F(CopyFileTest, MoveAcrossDevicesCopiesAndRemoves) {
    if (access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "no /dev/shm";
    char pattern[] = "/dev/shm/keel-move-XXXXXX";
    int fd = mkstemp(pattern);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(6, write(fd, "across", 6));
    close(fd);
    ASSERT_EQ(0, chmod(pattern, 0604));
    std::string destination = path("moved");
    EXPECT_EQ(kCopyDone, moveFileData(pattern, destination.c_str()));
    EXPECT_FALSE(pathExists(pattern));
    EXPECT_EQ("across", read(destination));
    EXPECT_EQ(0604u, modeOf(destination));
    unlink(pattern);
}

}  // namespace
}  // namespace keel
