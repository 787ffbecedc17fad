// File streams on real files: creation, access and share modes, the record
// locks as another process sees them (fork), reading, writing, seeking and
// truncating against a plain model, 64-bit offsets, and the reports.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <tuple>

#include "files/filestream.h"
#include "testing/filestreammodel.h"
#include "testing/filetree.h"
#include "testing/memstream.h"
#include "testing/modelrun.h"

namespace keel {
namespace {

typedef std::vector<int64_t> AnswersT;

class FileStreamTest : public testkit::FileTreeTest {
protected:
    std::unique_ptr<FileStreamC> open(const char* relative, uint32_t creation, uint32_t access,
                                      uint32_t share) {
        return std::unique_ptr<FileStreamC>(
            FileStreamC::open(at(relative), creation, access, share, false));
    }
};

// Each creation mode on a missing file and on a file of "old": what the file
// holds after "+" was written at the start, and the system's code when the
// open is refused (0: it opens).
TEST_F(FileStreamTest, CreationModes) {
    const std::tuple<uint32_t, std::array<const char*, 2>, std::array<uint32_t, 2>> cases[] = {
        {0, {"+", "old+"}, {0, 0}},          {1, {"+", "+"}, {0, 0}},
        {2, {"+", "old"}, {0, 0xE0000011u}}, {3, {"<missing>", "+ld"}, {0xE0000002u, 0}},
        {4, {"+", "+ld"}, {0, 0}},           {5, {"<missing>", "+"}, {0xE0000002u, 0}},
    };
    for (uint32_t share = 0; share < 3; ++share) {
        for (int exists = 0; exists < 2; ++exists) {
            for (const auto& [creation, after, code] : cases) {
                SCOPED_TRACE(testing::Message() << "creation " << creation << " exists " << exists
                                                << " share " << share);
                ::unlink(path("f").c_str());
                if (exists) writeFile("f", "old");
                std::unique_ptr<FileStreamC> stream = open("f", creation, 2, share);
                EXPECT_EQ(code[exists] == 0, stream != nullptr);
                // Append opens at the end, and writes there after any seek.
                if (stream) {
                    EXPECT_EQ(creation == 0 && exists ? 3 : 0, stream->getPosition());
                    stream->seek(0, 0);
                    EXPECT_EQ(0u, stream->write("+", 1));
                }
                stream.reset();
                EXPECT_EQ(after[exists], readFile("f"));
                EXPECT_EQ(code[exists] ? Codes({code[exists], 0xE0CB0010u}) : Codes(),
                          takeErrorCodes());
            }
        }
    }
}

TEST_F(FileStreamTest, ModesThatAreRefused) {
    EXPECT_EQ(nullptr, open("f", 0, 1, 2));
    EXPECT_EQ("Attempted to open '" + path("f") + "' for appending without write access",
              errorTextAt(0));
    EXPECT_EQ((Codes{0xE0CB0009u}), takeErrorCodes());
    EXPECT_EQ(nullptr, open("f", 6, 3, 2));
    EXPECT_EQ((Codes{0xE0000009u, 0xE0CB0010u}), takeErrorCodes());
    EXPECT_EQ("<missing>", readFile("f"));
}

TEST_F(FileStreamTest, ReadWithShareZeroNeedsWritePermission) {
    writeFile("f", "x");
    chmod(path("f").c_str(), 0444);
    EXPECT_NE(nullptr, open("f", 3, 1, 1));
    EXPECT_NE(nullptr, open("f", 3, 1, 2));
    std::unique_ptr<FileStreamC> exclusive = open("f", 3, 1, 0);
    if (isRoot()) {
        EXPECT_NE(nullptr, exclusive) << "root writes any file, so share 0 opens here";
    } else {
        EXPECT_EQ(nullptr, exclusive);
        EXPECT_EQ((Codes{0xE000000Du, 0xE0CB0010u}), takeErrorCodes());
    }
}

// Each operation's answer in turn; an unknown origin of seek counts from the
// start.
TEST_F(FileStreamTest, OperationsByAccessAndAfterClose) {
    writeFile("f", "hello");
    std::unique_ptr<FileStreamC> reader = open("f", 3, 1, 2);
    char buffer[16];
    EXPECT_EQ((AnswersT{true, false, 0xE0CB0008u, 0xE0CB0008u, 0xE0CB000Bu, 0, 5, 2}),
              (AnswersT{reader->canRead(), reader->canWrite(), reader->write("x", 1),
                        reader->write("x", 0), reader->setLength(0), reader->flush(),
                        reader->read(buffer, sizeof buffer), reader->seek(2, 7)}));
    EXPECT_EQ("Attempted to write to a stream that does not support writing", errorTextAt(0));
    EXPECT_EQ((Codes{0xE0CB0008u, 0xE0CB0008u, 0xE0CB000Bu}), takeErrorCodes());
    EXPECT_EQ(-1, reader->seek(-10, 0));
    EXPECT_EQ((Codes{0xE0000016u}), takeErrorCodes());

    std::unique_ptr<FileStreamC> writer = open("f", 3, 2, 2);
    EXPECT_EQ((AnswersT{-1, 0, 0, 0}), (AnswersT{writer->read(buffer, 1), writer->write("x", 0),
                                                 writer->write("x", -3), writer->flush()}));
    EXPECT_EQ((Codes{0xE0CB0006u}), takeErrorCodes());

    EXPECT_EQ((AnswersT{0, 0, false, false, false, 0, -1, -1, 0xE0CB0008u, 0xE0CB000Bu}),
              (AnswersT{writer->close(), writer->close(), writer->canRead(), writer->canWrite(),
                        writer->canSeek(), writer->flush(), writer->getLength(), writer->seek(0, 0),
                        writer->write("x", 1), writer->setLength(0)}));
    EXPECT_EQ("Cannot obtain length of stream", errorTextAt(0));
    EXPECT_EQ("Attempted to set current position in a stream that does not support seeking",
              errorTextAt(1));
    EXPECT_EQ("Attempted to set length on non-resizable stream", errorTextAt(3));
    EXPECT_EQ((Codes{0xE0CB0005u, 0xE0CB0007u, 0xE0CB0008u, 0xE0CB000Bu}), takeErrorCodes());
}

TEST_F(FileStreamTest, WriteFromCopiesInChunks) {
    std::string content(3000, 'z');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>('a' + i % 26);
    writeFile("in", content);
    std::unique_ptr<FileStreamC> in = open("in", 3, 1, 1), out = open("out", 1, 2, 0);
    testkit::PiecewiseInputC counting(content, 0);
    EXPECT_EQ(0u, out->writeFrom(&counting, 2500));
    EXPECT_EQ((std::vector<uint32_t>{1024, 1024, 452}), counting.asked);
    EXPECT_EQ(content.substr(0, 2500), readFile("out"));
    in->seek(2500, 0);
    out->writeAll(in.get());
    EXPECT_EQ(content, readFile("out"));

    // A failing write reports its own code behind the cause.
    in->seek(0, 0);
    EXPECT_EQ(0xE0CB0015u, open("out", 3, 1, 2)->writeFrom(in.get(), 0));
    EXPECT_EQ("Failed to write to a stream", errorTextAt(1));
    EXPECT_EQ((Codes{0xE0CB0008u, 0xE0CB0015u}), takeErrorCodes());
}

TEST_F(FileStreamTest, OffsetsBeyondFourGigabytes) {
    std::unique_ptr<FileStreamC> stream = open("big", 1, 3, 0);
    const int64_t far = (int64_t(5) << 30) + 7;
    char buffer[4] = {};
    // seek, write, getLength, seek from the end, read, setLength, getLength
    EXPECT_EQ((AnswersT{far, 0, far + 1, far - 2, 3, 0, int64_t(3) << 30}),
              (AnswersT{stream->seek(far, 0), stream->write("!", 1), stream->getLength(),
                        stream->seek(-3, 2), stream->read(buffer, 4),
                        stream->setLength(int64_t(3) << 30), stream->getLength()}));
    EXPECT_EQ(std::string("\0\0!", 3), std::string(buffer, 3));
}

// Random operations on one stream against a std::string and a position.
TEST_F(FileStreamTest, RandomOperationsAgainstAModel) {
    EXPECT_EQ("", testkit::runSeeded<filestreammodel::DriverC>(3, 1000, path("model")));
}

// Another process that opens a file (creation 3) with a share mode, waiting
// for the lock when asked to, writes whether it has the stream and the codes
// it was given to a pipe, and holds the stream until it is killed.
class LockHolderC {
public:
    LockHolderC(const FileNameC* name, uint32_t access, uint32_t share, bool wait = false) {
        EXPECT_EQ(0, pipe(report));
        if ((pid = fork()) == 0) {
            testkit::clearErrors();
            bool opened = FileStreamC::open(name, 3, access, share, wait) != nullptr;
            Codes answer = errorCodes();
            answer.insert(answer.begin(), opened);
            if (write(report[1], answer.data(), answer.size() * sizeof(uint32_t)) < 0) _exit(1);
            for (;;) pause();
        }
        close(report[1]);
        if (!wait) opened = answer() == Codes{1};
    }
    ~LockHolderC() { kill(); }
    // Blocks until the other process has tried; no clock involved.
    Codes answer() {
        uint32_t words[8];
        ssize_t got = read(report[0], words, sizeof words);
        return Codes(words, words + (got > 0 ? got / sizeof(uint32_t) : 0));
    }
    void kill() {
        if (pid <= 0) return;
        ::kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        close(report[0]);
        pid = -1;
    }
    pid_t pid = -1;
    int report[2];
    bool opened = false;
};

// Opens of a file of "old" while another process holds it with a share mode
// (9: nobody does). A read lock needs only a readable descriptor, so the
// put-off truncation of creation modes 1 and 5 is skipped then; truncation
// waits for the lock, and without a lock the contents go at the open.
TEST_F(FileStreamTest, RecordLocksAsAnotherProcessSeesThem) {
    // {held share, creation, access, share, opens, after}
    const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, bool, const char*> cases[] = {
        {0, 3, 3, 0, false, "old"}, {0, 3, 1, 1, false, "old"}, {0, 3, 3, 2, true, "old"},
        {1, 3, 3, 0, false, "old"}, {1, 3, 1, 1, true, "old"},  {1, 3, 3, 3, true, "old"},
        {2, 3, 3, 0, true, "old"},  {0, 1, 2, 1, false, "old"}, {0, 1, 2, 2, true, ""},
        {9, 1, 1, 1, true, "old"},  {9, 5, 1, 1, true, "old"},  {9, 5, 1, 2, true, ""},
    };
    for (const auto& [heldShare, creation, access, share, opens, after] : cases) {
        SCOPED_TRACE(testing::Message() << "held " << heldShare << " creation " << creation
                                        << " access " << access << " share " << share);
        writeFile("f", "old");
        std::unique_ptr<LockHolderC> holder;
        if (heldShare != 9) holder.reset(new LockHolderC(at("f"), heldShare ? 1 : 2, heldShare));
        ASSERT_TRUE(!holder || holder->opened);
        EXPECT_EQ(opens, open("f", creation, access, share) != nullptr);
        EXPECT_EQ(after, readFile("f"));
        EXPECT_EQ(opens ? Codes() : Codes({0xE000000Bu, 0xE0CB0010u}), takeErrorCodes());
    }
}

TEST_F(FileStreamTest, ALockDiesWithItsProcess) {
    writeFile("f", "x");
    LockHolderC holder(at("f"), 2, 0);
    ASSERT_TRUE(holder.opened);
    EXPECT_EQ(nullptr, open("f", 3, 2, 0));
    holder.kill();
    EXPECT_EQ((Codes{0xE000000Bu, 0xE0CB0010u}), takeErrorCodes());
    std::unique_ptr<FileStreamC> stream = open("f", 3, 2, 0);
    EXPECT_NE(nullptr, stream);
    // And a lock held here is refused to a child process in turn.
    EXPECT_FALSE(LockHolderC(at("f"), 1, 1).opened);
}

// True once /proc/locks shows a process waiting for a lock ("->" lines).
bool someoneWaitsForALock() {
    FILE* locks = fopen("/proc/locks", "r");
    if (!locks) return false;
    char line[512];
    bool waiting = false;
    while (fgets(line, sizeof line, locks)) waiting = waiting || strstr(line, "->");
    fclose(locks);
    return waiting;
}

// A waiting open whose file is renamed away and replaced while it waits:
// after the lock it finds that the name names another file.
TEST_F(FileStreamTest, AFileReplacedWhileTheOpenWaitsIsRefused) {
    if (!someoneWaitsForALock() && access("/proc/locks", R_OK) != 0)
        GTEST_SKIP() << "no /proc/locks to watch";
    writeFile("f", "old");
    LockHolderC holder(at("f"), 2, 0);
    ASSERT_TRUE(holder.opened);
    LockHolderC waiter(at("f"), 2, 0, true);
    // Wait (generously: the i386 suite may run under an emulator) until the
    // second process blocks in fcntl; no answer depends on how long it took.
    for (int i = 0; i < 12000 && !someoneWaitsForALock(); ++i) usleep(10000);
    ASSERT_EQ(0, rename(path("f").c_str(), path("g").c_str()));
    writeFile("f", "new");
    holder.kill();
    EXPECT_EQ((Codes{0, 0xE000000Bu, 0xE0CB0010u}), waiter.answer());
    EXPECT_EQ("new", readFile("f"));
    EXPECT_EQ("old", readFile("g"));
}

}  // namespace
}  // namespace keel
