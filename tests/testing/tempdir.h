// A fresh directory for one test and the error-buffer questions that file
// tests ask.
//
//     class MyTest : public keel::testkit::TempDirTest {};
//     TEST_F(MyTest, X) { writeFile("a", "text"); FileNameC n = name("a"); ... }
//
// The directory is made under /tmp (mkdtemp) before each test and removed
// with everything in it afterwards, permissions restored first so that a test
// that made something unreadable still leaves nothing behind.
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

inline std::string textOf(const StringC& string) {
    const char* text = string.textUtf8();
    std::string result(text, string.textUtf8Length());
    string.releaseUtf8(text);
    return result;
}

// The text of entry `index` of the calling thread's buffer.
inline std::string errorTextAt(uint32_t index) {
    ErrEntryI* entry = getErrBuf()->getEntry(index);
    return entry ? textOf(entry->getText()) : std::string("<none>");
}

class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/keel-files-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        dir = pattern;
        clearErrors();
    }
    void TearDown() override {
        nftw64(dir.c_str(), openUpEntry, 16, FTW_PHYS);
        nftw64(dir.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
        clearErrors();
    }

    std::string path(const std::string& relative) const { return dir + "/" + relative; }
    FileNameC name(const std::string& relative) const { return FileNameC(StringC(path(relative).c_str(), "utf8")); }

    void writeFile(const std::string& relative, const std::string& content, mode_t mode = 0644) const {
        int fd = ::open(path(relative).c_str(), O_WRONLY | O_CREAT | O_TRUNC, mode);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(static_cast<ssize_t>(content.size()), ::write(fd, content.data(), content.size()));
        ::close(fd);
    }
    std::string readFile(const std::string& relative) const {
        std::string content;
        FILE* file = fopen(path(relative).c_str(), "rb");
        if (!file) return "<missing>";
        char chunk[4096];
        size_t got;
        while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) content.append(chunk, got);
        fclose(file);
        return content;
    }

    static bool isRoot() { return geteuid() == 0; }

    std::string dir;
};

}  // namespace testkit
}  // namespace keel

#endif
