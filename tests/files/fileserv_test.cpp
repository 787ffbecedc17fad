// The file service on real files in a fresh directory: predicates, sizes and
// times, attributes and permissions, directories, free space, the reports
// with their codes and texts, and names the system cannot take.
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "files/fileserv.h"
#include "files/iostream.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

using testkit::errorCodes;
using testkit::errorTextAt;
using testkit::textOf;

class FileServiceTest : public testkit::TempDirTest {
protected:
    FileServiceI* files = FlnFileServiceC::instance();
};

TEST_F(FileServiceTest, PredicatesByKindOfName) {
    writeFile("file", "abc");
    mkdir(path("dir").c_str(), 0755);
    mkdir(path("dir/sub").c_str(), 0755);
    ASSERT_EQ(0, symlink("missing", path("dangling").c_str()));
    ASSERT_EQ(0, symlink("file", path("tofile").c_str()));
    ASSERT_EQ(0, symlink("dir", path("todir").c_str()));
    struct {
        std::string name;
        bool exists, isFile, isDirectory, isLink, isEmpty;
    } const cases[] = {
        {path("file"), true, true, false, false, true},
        {path("dir"), true, false, true, false, false},
        {path("dir/sub"), true, false, true, false, true},
        {path("dir/sub/.."), true, false, true, false, false},
        {path("dangling"), false, false, false, true, true},
        {path("tofile"), true, true, false, true, true},
        {path("todir"), true, false, true, true, false},
        {path("missing"), false, false, false, false, true},
        // "." collapses to the empty text: no directory here, but it exists.
        {".", true, false, false, false, true},
        {"", false, false, false, false, true},
    };
    for (const auto& c : cases) {
        FileNameC n(StringC(c.name.c_str(), "utf8"));
        EXPECT_EQ(c.exists, files->exists(&n)) << c.name;
        EXPECT_EQ(c.isFile, files->isFile(&n)) << c.name;
        EXPECT_EQ(c.isDirectory, files->isDirectory(&n)) << c.name;
        EXPECT_EQ(c.isLink, files->isSymbolicLink(&n)) << c.name;
        EXPECT_EQ(c.isEmpty, files->isDirectoryEmpty(&n)) << c.name;
    }
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, ConstantsAndCopies) {
    FileNameC n = name("x");
    EXPECT_EQ(0u, files->reservedQueryA());
    EXPECT_EQ(0u, files->reservedQueryD());
    EXPECT_EQ(0xE0CB000Du, files->reservedSetter());
    EXPECT_EQ(0x80000001u, files->reservedCodeA());
    EXPECT_EQ(0x80000001u, files->reservedCodeB());
    EXPECT_EQ(0u, files->reservedFileCheck(&n));
    std::unique_ptr<FileNameC> copy(files->copyNameA(&n));
    EXPECT_EQ(0, copy->compare(n));
    std::unique_ptr<FileNameArrayC> roots(files->getRoots());
    ASSERT_EQ(1u, roots->size());
    EXPECT_EQ("/", textOf(roots->nameAt(0)->toString()));
    std::unique_ptr<FileNameC> cwd(files->getCurrentDirectory());
    ASSERT_NE(nullptr, cwd);
    EXPECT_TRUE(files->isDirectory(cwd.get()));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, HiddenAndSystemStateReportTheirTexts) {
    FileNameC n = name("x");
    EXPECT_FALSE(files->isHidden(&n));
    EXPECT_FALSE(files->isSystem(&n));
    EXPECT_EQ(0xE0CB0013u, files->setHidden(&n));
    EXPECT_EQ((std::vector<uint32_t>{0xE0CB0012u, 0xE0CB0014u, 0xE0CB0013u}), errorCodes());
    EXPECT_EQ("Cannot get hidden state of file '" + path("x") + "'", errorTextAt(0));
    EXPECT_EQ("Cannot get system state of file '" + path("x") + "'", errorTextAt(1));
    EXPECT_EQ("Cannot set hidden state of file '" + path("x") + "'", errorTextAt(2));
}

TEST_F(FileServiceTest, CreateDirectory) {
    writeFile("file", "");
    FileNameC root(StringC("/", "ascii"));
    FileNameC dot(StringC(".", "ascii"));
    FileNameC existingFile = name("file");
    FileNameC existingDir(StringC(dir.c_str(), "utf8"));
    EXPECT_FALSE(files->createDirectory(&root, true));
    EXPECT_TRUE(files->createDirectory(&dot, false));
    EXPECT_TRUE(files->createDirectory(&existingDir, false));
    EXPECT_FALSE(files->createDirectory(&existingFile, true));

    FileNameC deep = name("a/b/c");
    EXPECT_FALSE(files->createDirectory(&deep, false));
    FileNameC a = name("a");
    EXPECT_FALSE(files->exists(&a));
    EXPECT_TRUE(files->createDirectory(&deep, true));
    EXPECT_TRUE(files->isDirectory(&deep));
    // Made with 0777 under the umask.
    mode_t mask = umask(0);
    umask(mask);
    struct stat record;
    ASSERT_EQ(0, stat(path("a/b").c_str(), &record));
    EXPECT_EQ(0777u & ~mask, record.st_mode & 0777u);
    FileNameC belowFile = name("file/x/y");
    EXPECT_FALSE(files->createDirectory(&belowFile, true));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, SizesOfFilesAndTrees) {
    int32_t count = 7;
    FileNameC missing = name("missing");
    EXPECT_EQ(-1, files->getSize(&missing, &count));
    EXPECT_EQ(-1, count);
    mkdir(path("empty").c_str(), 0755);
    FileNameC empty = name("empty");
    EXPECT_EQ(0, files->getSize(&empty, &count));
    EXPECT_EQ(0, count);

    writeFile("one", "12345");
    FileNameC one = name("one");
    EXPECT_EQ(5, files->getSize(&one, &count));
    EXPECT_EQ(-1, count);
    EXPECT_EQ(5, files->getSize(&one, nullptr));

    mkdir(path("tree").c_str(), 0755);
    mkdir(path("tree/sub").c_str(), 0755);
    writeFile("tree/a", "aa");
    writeFile("tree/sub/b", "bbbb");
    // A link to a file counts its target; a link to a directory is not entered.
    ASSERT_EQ(0, symlink("../one", path("tree/link").c_str()));
    ASSERT_EQ(0, symlink("..", path("tree/sub/up").c_str()));
    FileNameC tree = name("tree");
    EXPECT_EQ(2 + 4 + 5, files->getSize(&tree, &count));
    EXPECT_EQ(3, count);
}

TEST_F(FileServiceTest, ModifiedTime) {
    writeFile("f", "x");
    FileNameC f = name("f");
    EXPECT_EQ(0xE0CB000Cu, files->setModifiedTime(&f, -1));
    EXPECT_EQ(0xE0CB000Cu, files->setModifiedTime(nullptr, 5));
    EXPECT_EQ(0u, files->setModifiedTime(&f, 1000000000));
    EXPECT_EQ(1000000000, files->getModifiedTime(&f));
    FileNameC missing = name("missing");
    EXPECT_EQ(0, files->getModifiedTime(&missing));
    EXPECT_EQ(0xE0000002u, files->setModifiedTime(&missing, 5));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, FileInfoKindsAndPermissions) {
    writeFile("f", "hello", 0640);
    chmod(path("f").c_str(), 0640);
    mkdir(path("d").c_str(), 0755);
    ASSERT_EQ(0, symlink("f", path("l").c_str()));
    ASSERT_EQ(0, mkfifo(path("p").c_str(), 0600));
    struct {
        const char* name;
        bool follow;
        uint32_t type;
    } const cases[] = {{"f", true, 0}, {"d", true, 1}, {"l", false, 5}, {"l", true, 0}, {"p", false, 4}};
    for (const auto& c : cases) {
        FileNameC n = name(c.name);
        std::unique_ptr<FileInfoC> info(files->getFileInfo(&n, c.follow));
        ASSERT_NE(nullptr, info) << c.name;
        EXPECT_EQ(c.type, info->type) << c.name;
    }
    FileNameC f = name("f");
    std::unique_ptr<FileInfoC> info(files->getFileInfo(&f, false));
    EXPECT_EQ(0640u, info->permissions);
    EXPECT_EQ(5, info->size);
    EXPECT_EQ(geteuid(), info->userId);
    FileNameC missing = name("missing");
    EXPECT_EQ(nullptr, files->getFileInfo(&missing, true));
    FileInfoC fresh;
    EXPECT_EQ(7u, fresh.type);
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, ReadOnlyAndPermissionChanges) {
    writeFile("f", "x", 0644);
    FileNameC f = name("f");
    EXPECT_FALSE(files->isReadOnly(&f));
    EXPECT_TRUE(files->setReadOnly(&f, true));
    EXPECT_TRUE(files->isReadOnly(&f));
    EXPECT_TRUE(files->setReadOnly(&f, false));
    EXPECT_FALSE(files->isReadOnly(&f));

    // Without the owner read bit, making it writable changes nothing; the
    // verified open needs read access, which only root has then.
    writeFile("w", "x", 0244);
    chmod(path("w").c_str(), 0044);
    FileNameC w = name("w");
    bool answer = files->setReadOnly(&w, false);
    struct stat record;
    stat(path("w").c_str(), &record);
    EXPECT_EQ(0044u, record.st_mode & 0777u);
    if (isRoot()) {
        EXPECT_TRUE(answer) << "root opens the file regardless of its bits";
    } else {
        EXPECT_FALSE(answer);
    }

    ASSERT_EQ(0, symlink("f", path("l").c_str()));
    FileNameC l = name("l");
    EXPECT_FALSE(files->setReadOnly(&l, true));
    stat(path("f").c_str(), &record);
    EXPECT_EQ(0644u, record.st_mode & 0777u);
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, CopyAttributes) {
    writeFile("src", "x", 0600);
    chmod(path("src").c_str(), 0751);
    writeFile("dst", "y", 0644);
    FileNameC src = name("src");
    FileNameC dst = name("dst");
    EXPECT_EQ(0u, files->copyAttributes(&src, &dst));
    struct stat record;
    stat(path("dst").c_str(), &record);
    EXPECT_EQ(0751u, record.st_mode & 0777u);

    ASSERT_EQ(0, symlink("dst", path("link").c_str()));
    FileNameC link = name("link");
    FileNameC missing = name("missing");
    // A link is refused with ELOOP, set because nothing failed (a stale errno
    // could otherwise make the answer 0).
    errno = 0;
    EXPECT_EQ(0xE0000028u, files->copyAttributes(&src, &link));
    EXPECT_EQ(0xE0000028u, files->copyAttributes(&link, &dst));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(&missing, &dst));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(&src, &missing));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, OpenVerifiedClosesWhatItRefuses) {
    writeFile("f", "x");
    ASSERT_EQ(0, symlink("f", path("l").c_str()));
    struct stat64 record;
    int before = dup(0);
    close(before);
    EXPECT_EQ(-1, files->openVerified(path("l").c_str(), &record));
    EXPECT_EQ(ELOOP, errno);
    // No descriptor was left open by the refusal.
    int after = dup(0);
    close(after);
    EXPECT_EQ(before, after);
    int fd = files->openVerified(path("f").c_str(), &record);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(files->isSameFile(path("f").c_str(), &record));
    EXPECT_FALSE(files->isSameFile(path("l").c_str(), &record));
    close(fd);
}

TEST_F(FileServiceTest, FreeSpaceWalksUpToAnExistingDirectory) {
    FileNameC below = name("not/yet/there");
    int64_t space = files->getFreeSpace(&below);
    EXPECT_GT(space, 0);
    FileNameC relative(StringC("no-such-dir-here/x", "ascii"));
    EXPECT_GT(files->getFreeSpace(&relative), 0);
    EXPECT_EQ(0, files->getFreeSpace(nullptr));
}

TEST_F(FileServiceTest, CurrentDirectoryChangeAndItsReport) {
    std::unique_ptr<FileNameC> old(files->getCurrentDirectory());
    FileNameC d(StringC(dir.c_str(), "utf8"));
    EXPECT_EQ(0u, files->setCurrentDirectory(&d));
    std::unique_ptr<FileNameC> now(files->getCurrentDirectory());
    EXPECT_EQ(dir, textOf(now->toString()));
    EXPECT_EQ(0u, files->setCurrentDirectory(old.get()));
    FileNameC missing = name("missing");
    EXPECT_EQ(0xE0CB0011u, files->setCurrentDirectory(&missing));
    EXPECT_EQ((std::vector<uint32_t>{0xE0000002u, 0xE0CB0011u}), errorCodes());
    EXPECT_EQ("Cannot change to directory '" + path("missing") + "'", errorTextAt(1));
}

TEST_F(FileServiceTest, SymbolicLinkTargetIsNormalised) {
    ASSERT_EQ(0, symlink("a//b/./c/", path("l").c_str()));
    FileNameC l = name("l");
    std::unique_ptr<FileNameC> target(files->readSymbolicLink(&l));
    ASSERT_NE(nullptr, target);
    EXPECT_EQ("a/b/./c", textOf(target->toString()));
    FileNameC missing = name("missing");
    EXPECT_EQ(nullptr, files->readSymbolicLink(&missing));
}

TEST_F(FileServiceTest, NamesTheSystemCannotTake) {
    writeFile("a", "x");
    std::string withNul = path("a") + std::string(1, '\0') + "b";
    std::string longName = path(std::string(5000, 'n'));
    std::string longPath = dir;
    while (longPath.size() < 4200) longPath += "/d";
    struct {
        std::string text;
        uint32_t systemCode;
    } const cases[] = {
        // The part in front of the NUL names "a", which exists: it must not
        // be what the operations see.
        {withNul, 0xE0000016u},
        {"", 0xE0000002u},
        {longName, 0xE0000024u},
        {longPath, 0xE0000024u},
    };
    for (const auto& c : cases) {
        FileNameC n(StringC(c.text.data(), static_cast<uint32_t>(c.text.size()), "utf8"));
        SCOPED_TRACE(c.text.substr(0, 40));
        EXPECT_FALSE(files->exists(&n));
        EXPECT_FALSE(files->isFile(&n));
        EXPECT_FALSE(files->isDirectory(&n));
        EXPECT_FALSE(files->canRead(&n));
        EXPECT_EQ(nullptr, files->getFileInfo(&n, true));
        EXPECT_EQ(-1, files->getSize(&n, nullptr));
        EXPECT_FALSE(files->setReadOnly(&n, true));
        // The empty name is the current directory, which is there already.
        EXPECT_EQ(c.text.empty(), files->createDirectory(&n, true));
        testkit::clearErrors();
        EXPECT_EQ(nullptr, files->openStream(&n, 3, 1, 2, false));
        EXPECT_EQ((std::vector<uint32_t>{c.systemCode, 0xE0CB0010u}), errorCodes());
        testkit::clearErrors();
    }
    EXPECT_EQ("x", readFile("a"));
}

TEST_F(FileServiceTest, UnreadableDirectory) {
    if (isRoot()) GTEST_SKIP() << "running as root: root reads any directory, so nothing is unreadable";
    mkdir(path("closed").c_str(), 0755);
    writeFile("closed/f", "abc");
    chmod(path("closed").c_str(), 0);
    FileNameC closed = name("closed");
    FileNameC inside = name("closed/f");
    EXPECT_TRUE(files->isDirectory(&closed));
    EXPECT_TRUE(files->isDirectoryEmpty(&closed));
    int32_t count = 9;
    EXPECT_EQ(0, files->getSize(&closed, &count));
    EXPECT_EQ(0, count);
    EXPECT_FALSE(files->exists(&inside));
    EXPECT_EQ(nullptr, files->openStream(&inside, 3, 1, 2, false));
    EXPECT_EQ((std::vector<uint32_t>{0xE000000Du, 0xE0CB0010u}), errorCodes());
}

TEST_F(FileServiceTest, FileThatDisappearsBetweenTwoCalls) {
    writeFile("f", "abc");
    FileNameC f = name("f");
    EXPECT_TRUE(files->isFile(&f));
    unlink(path("f").c_str());
    EXPECT_EQ(nullptr, files->getFileInfo(&f, true));
    EXPECT_EQ(-1, files->getSize(&f, nullptr));
    EXPECT_FALSE(files->setReadOnly(&f, true));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(&f, &f));
    EXPECT_TRUE(errorCodes().empty());
}

// Opening a missing file: the system error and the summary, cause first.
TEST_F(FileServiceTest, OpeningAMissingFileLeavesBothEntries) {
    FileNameC missing = name("missing.txt");
    uint32_t mark = getErrBuf()->getMark();
    EXPECT_EQ(nullptr, files->openStream(&missing, 3, 1, 1, false));
    ASSERT_EQ((std::vector<uint32_t>{0xE0000002u, 0xE0CB0010u}), errorCodes());
    EXPECT_EQ(strerror(ENOENT), errorTextAt(0));
    EXPECT_EQ("Failed to open file '" + path("missing.txt") + "'", errorTextAt(1));
    EXPECT_EQ(4u, getErrBuf()->getEntry(1)->getSeverity());
    getErrBuf()->recover(mark);
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, OperationsOfTheNextStepAnswerAsNotDone) {
    writeFile("f", "x");
    FileNameC f = name("f");
    FileNameC g = name("g");
    EXPECT_EQ(nullptr, files->createLister(&f, 0));
    EXPECT_EQ(0xE0CB000Du, files->copy(&f, &g, nullptr, nullptr));
    EXPECT_EQ(0xE0CB000Du, files->move(&f, &g));
    EXPECT_FALSE(files->remove(&f, true, true));
    EXPECT_EQ("x", readFile("f"));
    EXPECT_EQ("<missing>", readFile("g"));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, TemporaryDirectoryFromTheEnvironment) {
    const char* saved[3];
    const char* names[] = {"TMPDIR", "TMP", "TEMP"};
    std::string values[3];
    for (int i = 0; i < 3; ++i) {
        saved[i] = getenv(names[i]);
        if (saved[i]) values[i] = saved[i];
        unsetenv(names[i]);
    }
    EXPECT_EQ("/tmp", textOf(files->getTempDirectory()));
    setenv("TEMP", "/c", 1);
    setenv("TMP", "", 1);
    EXPECT_EQ("", textOf(files->getTempDirectory()));
    unsetenv("TMP");
    EXPECT_EQ("/c", textOf(files->getTempDirectory()));
    for (int i = 0; i < 3; ++i) {
        if (saved[i]) {
            setenv(names[i], values[i].c_str(), 1);
        } else {
            unsetenv(names[i]);
        }
    }
}

}  // namespace
}  // namespace keel
