// File streams on real files: creation, access and share modes, the record
// locks as another process sees them (fork), reading, writing, seeking and
// truncating against a plain model, 64-bit offsets, and the reports.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>

#include "files/fileserv.h"
#include "files/filestream.h"
#include "testing/filestreammodel.h"
#include "testing/memstream.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

using testkit::errorCodes;
using testkit::errorTextAt;

typedef std::vector<uint32_t> Codes;

class FileStreamTest : public testkit::TempDirTest {
protected:
    std::unique_ptr<FileStreamC> open(const char* relative, uint32_t creation, uint32_t access,
                                      uint32_t share) {
        FileNameC n = name(relative);
        return std::unique_ptr<FileStreamC>(FileStreamC::open(&n, creation, access, share, false));
    }
};

TEST_F(FileStreamTest, CreationModes) {
    struct {
        uint32_t creation;
        bool exists;
        bool opens;
        const char* after;
        uint32_t systemCode;
    } const cases[] = {
        {0, false, true, "", 0},
        {0, true, true, "old", 0},
        {1, false, true, "", 0},
        {1, true, true, "", 0},
        {2, false, true, "", 0},
        {2, true, false, "old", 0xE0000011u},
        {3, false, false, "<missing>", 0xE0000002u},
        {3, true, true, "old", 0},
        {4, false, true, "", 0},
        {4, true, true, "old", 0},
        {5, false, false, "<missing>", 0xE0000002u},
        {5, true, true, "", 0},
    };
    for (uint32_t share = 0; share < 3; ++share) {
        for (const auto& c : cases) {
            SCOPED_TRACE(testing::Message() << "creation " << c.creation << " exists " << c.exists
                                            << " share " << share);
            ::unlink(path("f").c_str());
            if (c.exists) writeFile("f", "old");
            std::unique_ptr<FileStreamC> stream = open("f", c.creation, 2, share);
            EXPECT_EQ(c.opens, stream != nullptr);
            stream.reset();
            EXPECT_EQ(c.after, readFile("f"));
            if (c.opens) {
                EXPECT_TRUE(errorCodes().empty());
            } else {
                EXPECT_EQ((Codes{c.systemCode, 0xE0CB0010u}), errorCodes());
            }
            testkit::clearErrors();
        }
    }
}

TEST_F(FileStreamTest, ModesThatAreRefused) {
    std::unique_ptr<FileStreamC> stream = open("f", 0, 1, 2);
    EXPECT_EQ(nullptr, stream);
    EXPECT_EQ((Codes{0xE0CB0009u}), errorCodes());
    EXPECT_EQ("Attempted to open '" + path("f") + "' for appending without write access",
              errorTextAt(0));
    EXPECT_EQ("<missing>", readFile("f"));
    testkit::clearErrors();
    EXPECT_EQ(nullptr, open("f", 6, 3, 2));
    EXPECT_EQ((Codes{0xE0000009u, 0xE0CB0010u}), errorCodes());
    EXPECT_EQ("<missing>", readFile("f"));
}

TEST_F(FileStreamTest, ReadAccessWithShareOneKeepsContentsThatTruncationWouldTake) {
    // A read lock needs only a readable descriptor, so the put-off
    // truncation of creation modes 1 and 5 is skipped.
    writeFile("f", "keep");
    EXPECT_NE(nullptr, open("f", 1, 1, 1));
    EXPECT_NE(nullptr, open("f", 5, 1, 1));
    EXPECT_EQ("keep", readFile("f"));
    EXPECT_NE(nullptr, open("f", 5, 1, 2));
    EXPECT_EQ("", readFile("f"));
}

TEST_F(FileStreamTest, ReadWithShareZeroNeedsWritePermission) {
    writeFile("f", "x", 0444);
    chmod(path("f").c_str(), 0444);
    EXPECT_NE(nullptr, open("f", 3, 1, 1));
    EXPECT_NE(nullptr, open("f", 3, 1, 2));
    std::unique_ptr<FileStreamC> exclusive = open("f", 3, 1, 0);
    if (isRoot()) {
        EXPECT_NE(nullptr, exclusive) << "root writes any file, so share 0 opens here";
    } else {
        EXPECT_EQ(nullptr, exclusive);
        EXPECT_EQ((Codes{0xE000000Du, 0xE0CB0010u}), errorCodes());
    }
}

TEST_F(FileStreamTest, OperationsByAccessAndAfterClose) {
    writeFile("f", "hello");
    std::unique_ptr<FileStreamC> reader = open("f", 3, 1, 2);
    ASSERT_NE(nullptr, reader);
    char buffer[16];
    EXPECT_TRUE(reader->canRead());
    EXPECT_FALSE(reader->canWrite());
    EXPECT_EQ(0xE0CB0008u, reader->write("x", 1));
    EXPECT_EQ(0xE0CB0008u, reader->write("x", 0));
    EXPECT_EQ(0xE0CB000Bu, reader->setLength(0));
    EXPECT_EQ(0u, reader->flush());
    EXPECT_EQ(5, reader->read(buffer, sizeof buffer));
    EXPECT_EQ(2, reader->seek(2, 7));  // an unknown origin counts from the start
    EXPECT_EQ((Codes{0xE0CB0008u, 0xE0CB0008u, 0xE0CB000Bu}), errorCodes());
    EXPECT_EQ("Attempted to write to a stream that does not support writing", errorTextAt(0));
    testkit::clearErrors();

    EXPECT_EQ(-1, reader->seek(-10, 0));
    EXPECT_EQ((Codes{0xE0000016u}), errorCodes());
    testkit::clearErrors();

    std::unique_ptr<FileStreamC> writer = open("f", 3, 2, 2);
    EXPECT_EQ(-1, writer->read(buffer, 1));
    EXPECT_EQ(0u, writer->write("x", 0));
    EXPECT_EQ(0u, writer->write("x", -3));
    EXPECT_EQ(0u, writer->flush());
    EXPECT_EQ((Codes{0xE0CB0006u}), errorCodes());
    testkit::clearErrors();

    EXPECT_EQ(0u, writer->close());
    EXPECT_EQ(0u, writer->close());
    EXPECT_FALSE(writer->canRead() || writer->canWrite() || writer->canSeek());
    EXPECT_EQ(0u, writer->flush());
    EXPECT_EQ(-1, writer->getLength());
    EXPECT_EQ(-1, writer->seek(0, 0));
    EXPECT_EQ(0xE0CB0008u, writer->write("x", 1));
    EXPECT_EQ(0xE0CB000Bu, writer->setLength(0));
    EXPECT_EQ((Codes{0xE0CB0005u, 0xE0CB0007u, 0xE0CB0008u, 0xE0CB000Bu}), errorCodes());
    EXPECT_EQ("Cannot obtain length of stream", errorTextAt(0));
    EXPECT_EQ("Attempted to set current position in a stream that does not support seeking",
              errorTextAt(1));
    EXPECT_EQ("Attempted to set length on non-resizable stream", errorTextAt(3));
}

TEST_F(FileStreamTest, AppendWritesAtTheEnd) {
    writeFile("f", "ab");
    std::unique_ptr<FileStreamC> stream = open("f", 0, 3, 0);
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(2, stream->getPosition());
    stream->seek(0, 0);
    EXPECT_EQ(0u, stream->write("cd", 2));
    stream.reset();
    EXPECT_EQ("abcd", readFile("f"));
}

TEST_F(FileStreamTest, WriteFromCopiesInChunks) {
    std::string content(3000, 'z');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>('a' + i % 26);
    writeFile("in", content);
    std::unique_ptr<FileStreamC> in = open("in", 3, 1, 1);
    std::unique_ptr<FileStreamC> out = open("out", 1, 2, 0);
    testkit::PiecewiseInputC counting(content, 0);
    EXPECT_EQ(0u, out->writeFrom(&counting, 2500));
    EXPECT_EQ((std::vector<uint32_t>{1024, 1024, 452}), counting.asked);
    EXPECT_EQ(content.substr(0, 2500), readFile("out"));
    in->seek(2500, 0);
    out->writeAll(in.get());
    EXPECT_EQ(content, readFile("out"));

    // A failing write reports its own code behind the cause.
    std::unique_ptr<FileStreamC> readOnly = open("out", 3, 1, 2);
    in->seek(0, 0);
    EXPECT_EQ(0xE0CB0015u, readOnly->writeFrom(in.get(), 0));
    EXPECT_EQ((Codes{0xE0CB0008u, 0xE0CB0015u}), errorCodes());
    EXPECT_EQ("Failed to write to a stream", errorTextAt(1));
}

TEST_F(FileStreamTest, OffsetsBeyondFourGigabytes) {
    std::unique_ptr<FileStreamC> stream = open("big", 1, 3, 0);
    ASSERT_NE(nullptr, stream);
    const int64_t far = (int64_t(5) << 30) + 7;
    ASSERT_EQ(far, stream->seek(far, 0));
    ASSERT_EQ(0u, stream->write("!", 1));
    EXPECT_EQ(far + 1, stream->getLength());
    EXPECT_EQ(far - 2, stream->seek(-3, 2));
    char buffer[4] = {};
    EXPECT_EQ(3, stream->read(buffer, 4));
    EXPECT_EQ(std::string("\0\0!", 3), std::string(buffer, 3));
    EXPECT_EQ(0u, stream->setLength(int64_t(3) << 30));
    EXPECT_EQ(int64_t(3) << 30, stream->getLength());
}

// Random operations on one stream against a std::string and a position.
TEST_F(FileStreamTest, RandomOperationsAgainstAModel) {
    std::mt19937 random(18);
    filestreammodel::DriverC driver(path("model"));
    for (int step = 0; step < 3000; ++step) {
        uint32_t operation = random(), argument = random();
        ASSERT_EQ("", driver.step(operation, argument)) << "step " << step;
    }
    EXPECT_EQ("", driver.finish());
    EXPECT_TRUE(errorCodes().empty());
}

// A second process that opens a file with a share mode, says so on a pipe,
// and holds the stream until its other pipe closes or it is killed.
class LockHolderC {
public:
    LockHolderC(const FileNameC& name, uint32_t creation, uint32_t access, uint32_t share) {
        int ready[2];
        int release[2];
        EXPECT_EQ(0, pipe(ready));
        EXPECT_EQ(0, pipe(release));
        pid = fork();
        if (pid == 0) {
            close(ready[0]);
            close(release[1]);
            FileStreamC* stream = FileStreamC::open(&name, creation, access, share, false);
            char answer = stream ? 'y' : 'n';
            if (write(ready[1], &answer, 1) != 1) _exit(2);
            char c;
            while (read(release[0], &c, 1) > 0) {}
            _exit(stream ? 0 : 1);
        }
        close(ready[1]);
        close(release[0]);
        releaseFd = release[1];
        char answer = 0;
        // Blocks until the child has its stream; no clock involved.
        EXPECT_EQ(1, read(ready[0], &answer, 1));
        close(ready[0]);
        opened = answer == 'y';
    }
    ~LockHolderC() { finish(); }
    void finish() {
        if (pid <= 0) return;
        close(releaseFd);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }
    void kill() {
        ::kill(pid, SIGKILL);
        close(releaseFd);
        waitpid(pid, nullptr, 0);
        pid = -1;
    }
    pid_t pid = -1;
    int releaseFd = -1;
    bool opened = false;
};

TEST_F(FileStreamTest, RecordLocksAsAnotherProcessSeesThem) {
    writeFile("f", "contents");
    FileNameC f = name("f");
    struct {
        uint32_t heldShare;
        uint32_t share;
        bool opens;
    } const cases[] = {
        {0, 0, false}, {0, 1, false}, {0, 2, true}, {1, 0, false},
        {1, 1, true},  {1, 3, true},  {2, 0, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "held " << c.heldShare << " asked " << c.share);
        LockHolderC holder(f, 3, c.heldShare == 0 ? 2 : 1, c.heldShare);
        ASSERT_TRUE(holder.opened);
        std::unique_ptr<FileStreamC> stream(
            FileStreamC::open(&f, 3, c.share == 1 ? 1 : 3, c.share, false));
        EXPECT_EQ(c.opens, stream != nullptr);
        if (!c.opens) {
            EXPECT_EQ((Codes{0xE000000Bu, 0xE0CB0010u}), errorCodes());
        }
        testkit::clearErrors();
    }
}

TEST_F(FileStreamTest, TruncationWaitsForTheLock) {
    writeFile("f", "contents");
    FileNameC f = name("f");
    {
        LockHolderC holder(f, 3, 2, 0);
        ASSERT_TRUE(holder.opened);
        EXPECT_EQ(nullptr, FileStreamC::open(&f, 1, 2, 1, false));
        EXPECT_EQ("contents", readFile("f"));
        // Without a lock the contents go at the open.
        delete FileStreamC::open(&f, 1, 2, 2, false);
        EXPECT_EQ("", readFile("f"));
    }
}

TEST_F(FileStreamTest, ALockDiesWithItsProcess) {
    writeFile("f", "x");
    FileNameC f = name("f");
    LockHolderC holder(f, 3, 2, 0);
    ASSERT_TRUE(holder.opened);
    EXPECT_EQ(nullptr, FileStreamC::open(&f, 3, 2, 0, false));
    holder.kill();
    testkit::clearErrors();
    std::unique_ptr<FileStreamC> stream(FileStreamC::open(&f, 3, 2, 0, false));
    EXPECT_NE(nullptr, stream);
    // And a lock held here is refused to a child process in turn.
    LockHolderC second(f, 3, 1, 1);
    EXPECT_FALSE(second.opened);
}

// True once /proc/locks shows a process waiting for a lock ("->" lines).
bool someoneWaitsForALock() {
    FILE* locks = fopen("/proc/locks", "r");
    if (!locks) return false;
    char line[512];
    bool waiting = false;
    while (fgets(line, sizeof line, locks)) {
        if (strstr(line, "->")) waiting = true;
    }
    fclose(locks);
    return waiting;
}

// A waiting open whose file is renamed away and replaced while it waits:
// after the lock it finds that the name names another file.
TEST_F(FileStreamTest, AFileReplacedWhileTheOpenWaitsIsRefused) {
    if (!someoneWaitsForALock() && access("/proc/locks", R_OK) != 0)
        GTEST_SKIP() << "no /proc/locks to watch";
    writeFile("f", "old");
    FileNameC f = name("f");
    LockHolderC holder(f, 3, 2, 0);
    ASSERT_TRUE(holder.opened);
    int report[2];
    ASSERT_EQ(0, pipe(report));
    pid_t waiter = fork();
    if (waiter == 0) {
        // The holder lets go when every copy of its pipe's end is closed.
        close(holder.releaseFd);
        close(report[0]);
        testkit::clearErrors();
        FileStreamC* stream = FileStreamC::open(&f, 3, 2, 0, true);
        std::vector<uint32_t> codes = errorCodes();
        codes.insert(codes.begin(), stream ? 1u : 0u);
        ssize_t size = static_cast<ssize_t>(codes.size() * sizeof(uint32_t));
        _exit(write(report[1], codes.data(), codes.size() * sizeof(uint32_t)) == size ? 0 : 1);
    }
    close(report[1]);
    // Wait (generously: the i386 suite may run under an emulator) until the
    // second process blocks in fcntl; no answer depends on how long it took.
    for (int i = 0; i < 12000 && !someoneWaitsForALock(); ++i) usleep(10000);
    ASSERT_EQ(0, rename(path("f").c_str(), path("g").c_str()));
    writeFile("f", "new");
    holder.finish();
    uint32_t answer[8] = {};
    ssize_t got = read(report[0], answer, sizeof answer);
    close(report[0]);
    waitpid(waiter, nullptr, 0);
    ASSERT_EQ(static_cast<ssize_t>(3 * sizeof(uint32_t)), got);
    EXPECT_EQ(0u, answer[0]);
    EXPECT_EQ(0xE000000Bu, answer[1]);
    EXPECT_EQ(0xE0CB0010u, answer[2]);
    EXPECT_EQ("new", readFile("f"));
    EXPECT_EQ("old", readFile("g"));
}

}  // namespace
}  // namespace keel
