#include "files/copyfile.h"

#include <gtest/gtest.h>

#include <ftw.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace keel {
namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    return remove(path);
}

// A fresh directory under /tmp for one test, removed with its content after.
class CopyFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/keel-copyfile-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        if (!dir.empty()) nftw(dir.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    }
    std::string path(const char* name) const { return dir + "/" + name; }
    void writeFile(const std::string& name, const std::string& content) const {
        FILE* f = fopen(name.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        ASSERT_EQ(fwrite(content.data(), 1, content.size(), f), content.size());
        fclose(f);
    }
    std::string readFile(const std::string& name) const {
        std::string content;
        FILE* f = fopen(name.c_str(), "rb");
        if (!f) return "<missing>";
        char buffer[512];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) content.append(buffer, n);
        fclose(f);
        return content;
    }
    std::string dir;
};

TEST_F(CopyFileTest, QueriesOnFilesAndDirectories) {
    std::string file = path("f");
    writeFile(file, "12345");
    int64_t size = -1;
    EXPECT_TRUE(regularFileSize(file.c_str(), &size));
    EXPECT_EQ(size, 5);
    size = -1;
    EXPECT_FALSE(regularFileSize(dir.c_str(), &size));
    EXPECT_EQ(size, 0);
    size = -1;
    EXPECT_FALSE(regularFileSize(path("missing").c_str(), &size));
    EXPECT_EQ(size, 0);

    EXPECT_TRUE(pathExists(file.c_str()));
    EXPECT_TRUE(pathExists(dir.c_str()));
    EXPECT_FALSE(pathExists(path("missing").c_str()));

    EXPECT_TRUE(removePath(file.c_str()));
    EXPECT_FALSE(pathExists(file.c_str()));
    EXPECT_FALSE(removePath(file.c_str()));
}

TEST_F(CopyFileTest, RemovePathTakesEmptyDirectoriesOnly) {
    std::string sub = path("d");
    ASSERT_EQ(mkdir(sub.c_str(), 0777), 0);
    writeFile(sub + "/x", "x");
    EXPECT_FALSE(removePath(sub.c_str()));
    ASSERT_TRUE(removePath((sub + "/x").c_str()));
    EXPECT_TRUE(removePath(sub.c_str()));
}

TEST_F(CopyFileTest, FreeDiskSpace) {
    int64_t bytes = -1;
    EXPECT_EQ(freeDiskSpace(dir.c_str(), &bytes), 0);
    EXPECT_GE(bytes, 0);
    bytes = -1;
    EXPECT_EQ(freeDiskSpace(path("missing/deeper").c_str(), &bytes), 1);
    EXPECT_EQ(bytes, 0);
}

TEST(FreeBytesOf, ProductOrCeiling) {
    EXPECT_EQ(freeBytesOf(10, 4096), 40960);
    EXPECT_EQ(freeBytesOf(0, 4096), 0);
    // A file system larger than 2^63 bytes reads as exactly INT64_MAX.
    EXPECT_EQ(freeBytesOf(uint64_t(1) << 52, 4096), INT64_MAX);
    EXPECT_EQ(freeBytesOf(UINT64_MAX, 1), INT64_MAX);
    // Just below the limit the product is exact; at the limit it is capped.
    uint64_t limit = uint64_t(INT64_MAX) / 4096;
    EXPECT_EQ(freeBytesOf(limit - 1, 4096), int64_t((limit - 1) * 4096));
    EXPECT_EQ(freeBytesOf(limit, 4096), INT64_MAX);
    EXPECT_EQ(freeBytesOf(123, 0), 0);
}

TEST_F(CopyFileTest, CopyKeepsContentAndMode) {
    std::string source = path("src");
    std::string content;
    // Several blocks and a partial one.
    for (int i = 0; i < 3000; ++i) content.push_back(static_cast<char>(i * 7));
    writeFile(source, content);
    ASSERT_EQ(chmod(source.c_str(), 0640), 0);

    std::string destination = path("dst");
    writeFile(destination, "old content that is longer than nothing");
    EXPECT_EQ(copyFileData(source.c_str(), destination.c_str()), kCopyDone);
    EXPECT_EQ(readFile(destination), content);
    struct stat info;
    ASSERT_EQ(stat(destination.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(readFile(source), content);
}

TEST_F(CopyFileTest, CopyEmptyFile) {
    std::string source = path("empty");
    writeFile(source, "");
    std::string destination = path("copy");
    EXPECT_EQ(copyFileData(source.c_str(), destination.c_str()), kCopyDone);
    EXPECT_EQ(readFile(destination), "");
}

TEST_F(CopyFileTest, CopyFailures) {
    std::string destination = path("dst");
    EXPECT_EQ(copyFileData(path("missing").c_str(), destination.c_str()), kCopyFileFailed);
    EXPECT_FALSE(pathExists(destination.c_str()));

    std::string source = path("src");
    writeFile(source, "abc");
    // The destination's directory does not exist.
    EXPECT_EQ(copyFileData(source.c_str(), path("no/such/dst").c_str()), kCopyFileFailed);
    // A directory opens for reading, and its read error looks like the end
    // of the file: the copy is an empty file.
    EXPECT_EQ(copyFileData(dir.c_str(), destination.c_str()), kCopyDone);
    EXPECT_EQ(readFile(destination), "");
    EXPECT_EQ(copyFileData(nullptr, destination.c_str()), kCopyFileFailed);
    EXPECT_EQ(copyFileData(source.c_str(), nullptr), kCopyFileFailed);
}

TEST_F(CopyFileTest, SpaceTestNeverRefusesAnUnsizedSource) {
    // A source whose size cannot be found (a directory entry that is not a
    // regular file) is compared against a size of 0 and so never gets the
    // code for missing space; a FIFO with a writer already gone copies as
    // an empty file.
    std::string fifo = path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        FILE* w = fopen(fifo.c_str(), "wb");
        if (w) {
            fputs("through a pipe", w);
            fclose(w);
        }
        _exit(0);
    }
    std::string destination = path("dst");
    EXPECT_EQ(copyFileData(fifo.c_str(), destination.c_str()), kCopyDone);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(readFile(destination), "through a pipe");
}

TEST_F(CopyFileTest, MoveRenamesOnTheSameDevice) {
    std::string source = path("a");
    std::string destination = path("b");
    writeFile(source, "moving");
    ASSERT_EQ(chmod(source.c_str(), 0600), 0);
    struct stat before;
    ASSERT_EQ(stat(source.c_str(), &before), 0);
    EXPECT_EQ(moveFileData(source.c_str(), destination.c_str()), kCopyDone);
    EXPECT_FALSE(pathExists(source.c_str()));
    EXPECT_EQ(readFile(destination), "moving");
    struct stat after;
    ASSERT_EQ(stat(destination.c_str(), &after), 0);
    // A rename keeps the file itself.
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(CopyFileTest, MoveFallsBackToCopyAndRemove) {
    // rename refuses to put a file over a directory; the copy then fails
    // too, and the source must stay.
    std::string source = path("a");
    writeFile(source, "stays");
    std::string target = path("d");
    ASSERT_EQ(mkdir(target.c_str(), 0777), 0);
    EXPECT_EQ(moveFileData(source.c_str(), target.c_str()), kCopyFileFailed);
    EXPECT_EQ(readFile(source), "stays");

    EXPECT_EQ(moveFileData(path("missing").c_str(), path("x").c_str()), kCopyFileFailed);
}

TEST_F(CopyFileTest, MoveAcrossDevicesCopiesAndRemoves) {
    // /dev/shm is usually another file system than /tmp; where it is not,
    // the rename path is taken and the outcome is the same.
    if (access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "no /dev/shm";
    char pattern[] = "/dev/shm/keel-move-XXXXXX";
    int fd = mkstemp(pattern);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "across", 6), 6);
    close(fd);
    ASSERT_EQ(chmod(pattern, 0604), 0);
    std::string destination = path("moved");
    EXPECT_EQ(moveFileData(pattern, destination.c_str()), kCopyDone);
    EXPECT_FALSE(pathExists(pattern));
    EXPECT_EQ(readFile(destination), "across");
    struct stat info;
    ASSERT_EQ(stat(destination.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0604u);
    unlink(pattern);
}

}  // namespace
}  // namespace keel
