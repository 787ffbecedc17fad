// A fresh directory for a test, and the error-buffer questions that file
// tests ask.
//
//     keel::testkit::TempDirC dir;               // anywhere: made now, removed at the end
//     std::string file = dir.write("a", "text");  // answers the full path
//
//     class MyTest : public keel::testkit::TempDirTest {};  // a fixture with one
//     TEST_F(MyTest, X) { writeFile("a", "text"); FileNameC n = name("a"); ... }
//
// The directory is made under /tmp (mkdtemp) and removed with everything in
// it afterwards, permissions restored first so that a test that made
// something unreadable still leaves nothing behind.
#ifndef KEEL_TESTS_TESTING_TEMPDIR_H
#define KEEL_TESTS_TESTING_TEMPDIR_H

#include <fcntl.h>
#include <ftw.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <keel/keel.h>

#include <keel/filename.h>

#include "testing/filetext.h"
#include "testing/scantest.h"

namespace keel {
namespace testkit {

// nftw64 and stat64: a test's file may be larger than 2 GiB, which the
// plain walk of a 32-bit program cannot stat, and would then leave behind.
inline int openUpEntry(const char* path, const struct stat64*, int type, struct FTW*) {
    if (type == FTW_D || type == FTW_DNR) chmod(path, 0700);
    return 0;
}
inline int removeEntry(const char* path, const struct stat64*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

inline void writeFileAt(const std::string& path, const std::string& content, mode_t mode = 0644) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
    EXPECT_GE(fd, 0) << path;
    EXPECT_EQ(static_cast<ssize_t>(content.size()), ::write(fd, content.data(), content.size())) << path;
    ::close(fd);
}

class TempDirC {
public:
    TempDirC() {
        char pattern[] = "/tmp/keel-test-XXXXXX";
        if (mkdtemp(pattern)) path_ = pattern;
        EXPECT_FALSE(path_.empty()) << "mkdtemp";
    }
    ~TempDirC() {
        if (path_.empty()) return;
        nftw64(path_.c_str(), openUpEntry, 16, FTW_PHYS);
        nftw64(path_.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    }
    TempDirC(const TempDirC&) = delete;
    TempDirC& operator=(const TempDirC&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& relative) const { return path_ + "/" + relative; }
    // Writes `content` to `relative` and answers its full path.
    std::string write(const std::string& relative, const std::string& content, mode_t mode = 0644) const {
        writeFileAt(file(relative), content, mode);
        return file(relative);
    }

private:
    std::string path_;
};

inline void clearErrors() {
    uint32_t highest;
    getErrBuf()->takeText(&highest);
}

// The codes in the calling thread's buffer, oldest first.
inline std::vector<uint32_t> errorCodes() {
    std::vector<uint32_t> codes;
    ErrBufI* buffer = getErrBuf();
    for (uint32_t i = 0; i < buffer->getCount(); ++i) codes.push_back(buffer->getEntry(i)->getCode());
    return codes;
}

// The text of entry `index` of the calling thread's buffer.
inline std::string errorTextAt(uint32_t index) {
    ErrEntryI* entry = getErrBuf()->getEntry(index);
    return entry ? str(entry->getText()) : std::string("<none>");
}

class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override { clearErrors(); }
    void TearDown() override { clearErrors(); }

    std::string path(const std::string& relative) const { return temp.file(relative); }
    FileNameC name(const std::string& relative) const { return FileNameC(StringC(path(relative).c_str(), "utf8")); }
    std::string writeFile(const std::string& relative, const std::string& content, mode_t mode = 0644) const {
        return temp.write(relative, content, mode);
    }
    std::string readFile(const std::string& relative) const { return readFileAt(path(relative)); }

    static bool isRoot() { return geteuid() == 0; }

    TempDirC temp;
    const std::string dir = temp.path();
};

}  // namespace testkit
}  // namespace keel

#endif
