// A fixture for the files subsystem's tests over a fresh directory
// (tempdir.h): whole trees made in one call, names that live as long as the
// test (for the calls that take a pointer), the mode of a file, and the
// codes of the error buffer taken out in one step. A test ends with the
// buffer empty: what it provokes, it takes out and checks.
//
//     class MyTest : public keel::testkit::FileTreeTest {};
//     TEST_F(MyTest, X) {
//         makeTree({"d/", "d/f=abc", "d/l->f"});  // a directory, a file, a link
//         EXPECT_EQ(nullptr, files->openStream(at("d/missing"), 3, 1, 2, false));
//         EXPECT_EQ((Codes{0xE0000002u, 0xE0CB0010u}), takeErrorCodes());
//     }
#ifndef KEEL_TESTS_TESTING_FILETREE_H
#define KEEL_TESTS_TESTING_FILETREE_H

#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

#include "files/fileserv.h"
#include "testing/tempdir.h"

namespace keel {
namespace testkit {

// The codes in the calling thread's buffer, oldest first; the buffer is
// emptied.
typedef std::vector<uint32_t> Codes;
inline Codes takeErrorCodes() {
    Codes codes = errorCodes();
    clearErrors();
    return codes;
}

class FileTreeTest : public TempDirTest {
protected:
    void TearDown() override {
        EXPECT_EQ(Codes{}, errorCodes()) << "reports the test left in the buffer";
        TempDirTest::TearDown();
    }
    // Each entry in turn, below the directory: "d/" a directory, "f=text" a
    // file that holds the text, "l->target" a symbolic link to the target.
    void makeTree(std::initializer_list<std::string> entries) const {
        for (const std::string& entry : entries) {
            size_t link = entry.find("->"), equals = entry.find('=');
            if (link != std::string::npos) {
                std::string target = entry.substr(link + 2);
                ASSERT_EQ(0, symlink(target.c_str(), path(entry.substr(0, link)).c_str())) << entry;
            } else if (equals != std::string::npos) {
                writeFile(entry.substr(0, equals), entry.substr(equals + 1));
            } else {
                ASSERT_EQ(0, mkdir(path(entry).c_str(), 0755)) << entry;
            }
        }
    }
    // The name of `relative` below the directory, or of any text (NULs kept).
    const FileNameC* at(const std::string& relative) { return fullName(path(relative)); }
    const FileNameC* fullName(const std::string& text) {
        names.emplace_back(StringC(text.data(), static_cast<uint32_t>(text.size()), "utf8"));
        return &names.back();
    }
    // The permission bits of `relative`, 0 when it cannot be read.
    mode_t modeOf(const std::string& relative) const {
        struct stat record;
        return stat(path(relative).c_str(), &record) == 0 ? record.st_mode & 07777 : 0;
    }

    FileServiceI* files = FlnFileServiceC::instance();

private:
    std::deque<FileNameC> names;
};

}  // namespace testkit

using testkit::Codes;
using testkit::errorCodes;
using testkit::errorTextAt;
using testkit::takeErrorCodes;

}  // namespace keel

#endif
