// The file service on real files in a fresh directory: predicates, sizes,
// times and attributes, permissions, directories, the reports with their
// codes and texts, and names the system cannot take.
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <memory>
#include <string>

#include "files/fileserv.h"
#include "files/iostream.h"
#include "testing/fileservmodel.h"
#include "testing/modelrun.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

using testkit::errorCodes;
using testkit::errorTextAt;
typedef std::vector<uint32_t> Codes;

class FileServiceTest : public testkit::TempDirTest {
protected:
    FileServiceI* files = FlnFileServiceC::instance();
    mode_t modeOf(const char* relative) {
        struct stat record;
        return stat(path(relative).c_str(), &record) == 0 ? record.st_mode & 0777 : 0;
    }
};

// Random writes, directories, copies, moves and removals over a small tree,
// each checked against a plain model of the tree.
TEST_F(FileServiceTest, RandomOperationsAgainstAModel) {
    EXPECT_EQ("", testkit::runSeeded<fileservmodel::DriverC>(5, 400, dir));
}

TEST_F(FileServiceTest, PredicatesByKindOfName) {
    writeFile("file", "abc");
    mkdir(path("dir").c_str(), 0755);
    ASSERT_EQ(0, symlink("missing", path("dangling").c_str()));
    ASSERT_EQ(0, symlink("file", path("tofile").c_str()));
    ASSERT_EQ(0, symlink("dir", path("todir").c_str()));
    struct {
        std::string name;
        bool exists, isFile, isDirectory, isLink, isEmpty;
        uint32_t type;  // getFileInfo without following links; 9 for none
    } const cases[] = {
        {path("file"), true, true, false, false, true, 0},
        {path("dir"), true, false, true, false, true, 1},
        {path("dir/.."), true, false, true, false, false, 1},
        {path("dangling"), false, false, false, true, true, 5},
        {path("tofile"), true, true, false, true, true, 5},
        {path("todir"), true, false, true, true, true, 5},
        // "." collapses to the empty text: no directory here, but it exists.
        {".", true, false, false, false, true, 1},
        {"", false, false, false, false, true, 9},
    };
    for (const auto& c : cases) {
        FileNameC n(StringC(c.name.c_str(), "utf8"));
        EXPECT_EQ(c.exists, files->exists(&n)) << c.name;
        EXPECT_EQ(c.isFile, files->isFile(&n)) << c.name;
        EXPECT_EQ(c.isDirectory, files->isDirectory(&n)) << c.name;
        EXPECT_EQ(c.isLink, files->isSymbolicLink(&n)) << c.name;
        EXPECT_EQ(c.isEmpty, files->isDirectoryEmpty(&n)) << c.name;
        std::unique_ptr<FileInfoC> info(files->getFileInfo(&n, false));
        EXPECT_EQ(c.type, info ? info->type : 9u) << c.name;
    }
    ASSERT_EQ(0, mkfifo(path("p").c_str(), 0600));
    FileNameC pipe = name("p");
    EXPECT_EQ(4u, std::unique_ptr<FileInfoC>(files->getFileInfo(&pipe, true))->type);
    std::unique_ptr<FileNameC> target(files->readSymbolicLink(&pipe));
    EXPECT_EQ(nullptr, target);
    ASSERT_EQ(0, symlink("a//b/./c/", path("l").c_str()));
    FileNameC link = name("l");
    target.reset(files->readSymbolicLink(&link));
    EXPECT_EQ("a/b/./c", str(target->toString()));
    EXPECT_TRUE(errorCodes().empty());
}

// The rest of what createDirectory answers is the model test's.
TEST_F(FileServiceTest, CreateDirectoryOfRootDotAndItsMode) {
    FileNameC root(StringC("/", "ascii")), dot(StringC(".", "ascii")), deep = name("a/b/c");
    EXPECT_FALSE(files->createDirectory(&root, true));
    EXPECT_TRUE(files->createDirectory(&dot, false));
    EXPECT_TRUE(files->createDirectory(&deep, true));
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(0777u & ~mask, modeOf("a/b"));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, SizesTimesAndFreeSpace) {
    int32_t count = 7;
    FileNameC missing = name("missing");
    mkdir(path("tree").c_str(), 0755);
    FileNameC tree = name("tree");
    mkdir(path("tree/sub").c_str(), 0755);
    writeFile("one", "12345");
    writeFile("tree/a", "aa");
    writeFile("tree/sub/b", "bbbb");
    // A link to a file counts its target; a link to a directory is not entered.
    ASSERT_EQ(0, symlink("../one", path("tree/link").c_str()));
    ASSERT_EQ(0, symlink("..", path("tree/sub/up").c_str()));
    EXPECT_EQ(2 + 4 + 5, files->getSize(&tree, &count));
    EXPECT_EQ(3, count);
    FileNameC one = name("one");
    EXPECT_EQ(5, files->getSize(&one, nullptr));

    EXPECT_EQ(0xE0CB000Cu, files->setModifiedTime(&one, -1));
    EXPECT_EQ(0u, files->setModifiedTime(&one, 1000000000));
    EXPECT_EQ(1000000000, files->getModifiedTime(&one));
    EXPECT_EQ(0, files->getModifiedTime(&missing));
    EXPECT_EQ(0xE0000002u, files->setModifiedTime(&missing, 5));

    FileNameC below = name("not/yet/there");
    EXPECT_GT(files->getFreeSpace(&below), 0);
    FileNameC relative(StringC("no-such-dir-here/x", "ascii"));
    EXPECT_GT(files->getFreeSpace(&relative), 0);
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, PermissionChangesRefuseLinks) {
    writeFile("f", "x", 0644);
    FileNameC f = name("f");
    EXPECT_TRUE(files->setReadOnly(&f, true));
    EXPECT_TRUE(files->isReadOnly(&f));
    EXPECT_TRUE(files->setReadOnly(&f, false));
    EXPECT_EQ(0644u, modeOf("f"));
    std::unique_ptr<FileInfoC> info(files->getFileInfo(&f, true));
    EXPECT_EQ(0644u, info->permissions);

    // Without the owner read bit, making it writable changes nothing; the
    // verified open needs read access, which only root has then.
    writeFile("w", "x");
    chmod(path("w").c_str(), 0044);
    FileNameC w = name("w");
    EXPECT_EQ(isRoot(), files->setReadOnly(&w, false))
        << (isRoot() ? "as root, which reads any file" : "");
    EXPECT_EQ(0044u, modeOf("w"));

    chmod(path("w").c_str(), 0751);
    EXPECT_EQ(0u, files->copyAttributes(&w, &f));
    EXPECT_EQ(0751u, modeOf("f"));

    ASSERT_EQ(0, symlink("f", path("l").c_str()));
    FileNameC l = name("l");
    FileNameC missing = name("missing");
    EXPECT_FALSE(files->setReadOnly(&l, true));
    // A link is refused with ELOOP, set because nothing failed (a stale
    // errno could otherwise make the answer 0).
    errno = 0;
    EXPECT_EQ(0xE0000028u, files->copyAttributes(&w, &l));
    EXPECT_EQ(0xE0000028u, files->copyAttributes(&l, &f));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(&missing, &f));
    EXPECT_EQ(0751u, modeOf("f"));

    struct stat64 record;
    int before = dup(0);
    close(before);
    EXPECT_EQ(-1, files->openVerified(path("l").c_str(), &record));
    EXPECT_EQ(ELOOP, errno);
    int after = dup(0);
    close(after);
    EXPECT_EQ(before, after) << "the refused descriptor is closed";
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, ReportsOfTheirOwn) {
    FileNameC n = name("x");
    EXPECT_FALSE(files->isHidden(&n));
    EXPECT_FALSE(files->isSystem(&n));
    EXPECT_EQ(0xE0CB0013u, files->setHidden(&n));
    EXPECT_EQ(0xE0CB0011u, files->setCurrentDirectory(&n));
    EXPECT_EQ((Codes{0xE0CB0012u, 0xE0CB0014u, 0xE0CB0013u, 0xE0000002u, 0xE0CB0011u}),
              errorCodes());
    EXPECT_EQ("Cannot get hidden state of file '" + path("x") + "'", errorTextAt(0));
    EXPECT_EQ("Cannot get system state of file '" + path("x") + "'", errorTextAt(1));
    EXPECT_EQ("Cannot set hidden state of file '" + path("x") + "'", errorTextAt(2));
    EXPECT_EQ("Cannot change to directory '" + path("x") + "'", errorTextAt(4));
    testkit::clearErrors();
    // The constants and the operations that come with the listers report
    // nothing and touch nothing.
    EXPECT_EQ(0xE0CB000Du, files->reservedSetter());
    EXPECT_EQ(0x80000001u, files->reservedCodeA());
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, NamesTheSystemCannotTake) {
    writeFile("a", "x");
    std::string withNul = path("a") + std::string(1, '\0') + "b";
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
        {path(std::string(5000, 'n')), 0xE0000024u},
        {longPath, 0xE0000024u},
    };
    for (const auto& c : cases) {
        FileNameC n(StringC(c.text.data(), static_cast<uint32_t>(c.text.size()), "utf8"));
        SCOPED_TRACE(c.text.substr(0, 40));
        EXPECT_FALSE(files->exists(&n) || files->isFile(&n) || files->isDirectory(&n) ||
                     files->canRead(&n));
        EXPECT_EQ(nullptr, files->getFileInfo(&n, true));
        EXPECT_EQ(-1, files->getSize(&n, nullptr));
        EXPECT_FALSE(files->setReadOnly(&n, true));
        // The empty name is the current directory, which is there already.
        EXPECT_EQ(c.text.empty(), files->createDirectory(&n, true));
        EXPECT_EQ(nullptr, files->openStream(&n, 3, 1, 2, false));
        EXPECT_EQ((Codes{c.systemCode, 0xE0CB0010u}), errorCodes());
        testkit::clearErrors();
    }
    EXPECT_EQ("x", readFile("a"));

    // A file that disappears between two calls.
    FileNameC a = name("a");
    EXPECT_TRUE(files->isFile(&a));
    unlink(path("a").c_str());
    EXPECT_EQ(nullptr, files->getFileInfo(&a, true));
    EXPECT_FALSE(files->setReadOnly(&a, true));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(&a, &a));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, UnreadableDirectory) {
    if (isRoot())
        GTEST_SKIP() << "running as root: root reads any directory, so nothing is unreadable";
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
    EXPECT_EQ(nullptr, files->openStream(&inside, 3, 1, 2, false));
    EXPECT_EQ((Codes{0xE000000Du, 0xE0CB0010u}), errorCodes());
}

// A symbolic link planted inside a tree to a directory outside it: removing
// the tree takes the link away as a link and leaves the outside whole.
TEST_F(FileServiceTest, RemoveNeverFollowsALink) {
    ASSERT_EQ(0, mkdir(path("outside").c_str(), 0755));
    writeFile("outside/keep", "k");
    ASSERT_EQ(0, mkdir(path("tree").c_str(), 0755));
    ASSERT_EQ(0, mkdir(path("tree/sub").c_str(), 0755));
    writeFile("tree/sub/f", "x");
    ASSERT_EQ(0, symlink(path("outside").c_str(), path("tree/sub/link").c_str()));
    FileNameC tree = name("tree");
    EXPECT_FALSE(files->remove(&tree, false, false));
    EXPECT_FALSE(files->remove(&tree, true, false));
    EXPECT_TRUE(files->remove(&tree, false, true));
    EXPECT_EQ("<missing>", readFile("tree/sub/f"));
    EXPECT_EQ("k", readFile("outside/keep"));
    // A link given directly goes as a link too.
    ASSERT_EQ(0, symlink(path("outside").c_str(), path("direct").c_str()));
    FileNameC direct = name("direct");
    EXPECT_TRUE(files->remove(&direct, true, true));
    EXPECT_FALSE(files->isSymbolicLink(&direct));
    EXPECT_EQ("k", readFile("outside/keep"));
    EXPECT_TRUE(errorCodes().empty());
}

TEST_F(FileServiceTest, SecureTempFilesAndUniqueNames) {
    FileNameC here(StringC(dir.c_str(), "utf8"));
    StringC made;
    int32_t fd = -2;
    ASSERT_EQ(0u, files->createSecureTempFile(made, &fd, &here, StringC("pre", "ascii")));
    ASSERT_GE(fd, 0);
    std::string madePath = str(made);
    EXPECT_EQ(path("pre"), madePath.substr(0, madePath.size() - 6));
    struct stat64 record;
    ASSERT_EQ(0, fstat64(fd, &record));
    EXPECT_EQ(0600u, record.st_mode & 0777u);
    close(fd);

    // A missing directory falls back to the temporary one; an empty TMPDIR
    // or one naming nothing fails with its own code.
    const char* saved = getenv("TMPDIR");
    std::string savedText = saved ? saved : "";
    setenv("TMPDIR", dir.c_str(), 1);
    FileNameC missing = name("missing");
    EXPECT_EQ(0u, files->createSecureTempFile(made, &fd, &missing, StringC("fb", "ascii")));
    EXPECT_EQ(path("fb"), str(made).substr(0, path("fb").size()));
    close(fd);
    setenv("TMPDIR", "", 1);
    EXPECT_EQ(0xE0CB001Eu, files->createSecureTempFile(made, &fd, nullptr, StringC()));
    EXPECT_EQ(-1, fd);
    setenv("TMPDIR", path("missing").c_str(), 1);
    EXPECT_EQ(0xE0CB001Fu, files->createSecureTempFile(made, &fd, nullptr, StringC()));
    if (saved)
        setenv("TMPDIR", savedText.c_str(), 1);
    else
        unsetenv("TMPDIR");
    testkit::clearErrors();
    // The bound on the template: 4,095 characters pass it, 4,096 do not.
    std::string longPrefix(4095 - dir.size() - 1 - 6, 'p');
    EXPECT_EQ(0xE0CB001Du,
              files->createSecureTempFile(made, &fd, &here, StringC(longPrefix.c_str(), "ascii")));
    EXPECT_EQ(4095u, str(made).size());
    longPrefix += 'p';
    EXPECT_EQ(0xE0CB001Eu,
              files->createSecureTempFile(made, &fd, &here, StringC(longPrefix.c_str(), "ascii")));
    EXPECT_EQ("", str(made));
    testkit::clearErrors();

    // A symbolic link planted where the first random name falls is refused
    // (create new), and its target is never made.
    srand(77);
    std::string first = "u" + std::to_string(rand()) + ".x";
    ASSERT_EQ(0, symlink(path("target").c_str(), path(first).c_str()));
    srand(77);
    FileNameC* unique =
        files->createUniqueName(&here, StringC("u", "ascii"), StringC(".x", "ascii"), true);
    ASSERT_NE(nullptr, unique);
    EXPECT_NE(path(first), str(unique->toString()));
    EXPECT_EQ("", readFile(str(unique->toString()).substr(dir.size() + 1)));
    EXPECT_EQ("<missing>", readFile("target"));
    EXPECT_TRUE(errorCodes().empty());
    delete unique;
    // A missing directory stops at once, its errors left in the buffer.
    EXPECT_EQ(nullptr, files->createUniqueName(&missing, StringC("u", "ascii"), StringC(), true));
    EXPECT_FALSE(errorCodes().empty());
    testkit::clearErrors();
    FileNameC* free = files->createTempName(StringC("t", "ascii"));
    ASSERT_NE(nullptr, free);
    EXPECT_FALSE(files->exists(free));
    delete free;
}

struct ProgressLog {
    int calls = 0;
    int stopAt = -1;
    int64_t lastDone = 0;
    int64_t totalBytes = 0;
    int32_t totalFiles = 0;
};

bool logProgress(const FileNameC*, const FileNameC*, int64_t totalBytes, int32_t totalFiles,
                 int64_t, int64_t done, void* context) {
    ProgressLog* log = static_cast<ProgressLog*>(context);
    ++log->calls;
    log->lastDone = done;
    log->totalBytes = totalBytes;
    log->totalFiles = totalFiles;
    return log->calls != log->stopAt;
}

// Copy of a tree holding a link to a directory outside it and a link to its
// own ancestor: the outside is read, never changed, and the loop ends.
TEST_F(FileServiceTest, CopyOfTreesLinksAndProgress) {
    ASSERT_EQ(0, mkdir(path("outside").c_str(), 0755));
    writeFile("outside/keep", "k");
    ASSERT_EQ(0, mkdir(path("tree").c_str(), 0755));
    ASSERT_EQ(0, mkdir(path("tree/a").c_str(), 0755));
    writeFile("tree/a/f", std::string(5000, 'x'));
    writeFile("tree/empty", "");
    ASSERT_EQ(0, symlink(path("outside").c_str(), path("tree/out").c_str()));
    ASSERT_EQ(0, symlink(path("tree").c_str(), path("tree/a/loop").c_str()));
    FileNameC tree = name("tree");
    FileNameC copyName = name("copy");
    ProgressLog log;
    EXPECT_EQ(0u, files->copy(&tree, &copyName, logProgress, &log));
    EXPECT_EQ(std::string(5000, 'x'), readFile("copy/a/f"));
    EXPECT_EQ("", readFile("copy/empty"));
    EXPECT_EQ("k", readFile("copy/out/keep"));
    EXPECT_TRUE(files->isDirectory(&copyName));
    FileNameC loopCopy = name("copy/a/loop");
    EXPECT_TRUE(files->isDirectory(&loopCopy));
    EXPECT_TRUE(files->isDirectoryEmpty(&loopCopy));
    // Two blocks of a/f and one of out/keep, read through the link; the
    // empty file calls nothing.
    EXPECT_EQ(3, log.calls);
    EXPECT_TRUE(files->remove(&copyName, true, true));
    EXPECT_EQ("k", readFile("outside/keep"));
    EXPECT_EQ(std::string(5000, 'x'), readFile("tree/a/f"));

    // Stopped by the call-back after the first block: no error, a partial
    // destination of one block.
    ProgressLog stop;
    stop.stopAt = 1;
    FileNameC one = name("tree/a/f");
    FileNameC part = name("part");
    EXPECT_EQ(0u, files->copy(&one, &part, logProgress, &stop));
    EXPECT_EQ(4096u, readFile("part").size());
    EXPECT_EQ(5000, stop.totalBytes);
    EXPECT_EQ(1, stop.totalFiles);
    EXPECT_TRUE(errorCodes().empty());
}

// A destination that cannot grow (RLIMIT_FSIZE, SIGXFSZ ignored: EFBIG), in
// a child so the limit stays there: the copy's code with both names, the
// source whole, the process alive.
TEST_F(FileServiceTest, CopyIntoAFileThatCannotGrow) {
    writeFile("big", std::string(20000, 'b'));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {8192, 8192};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) _exit(10);
        testkit::clearErrors();
        FileNameC source = name("big");
        FileNameC destination = name("small");
        uint32_t code = files->copy(&source, &destination, nullptr, nullptr);
        if (code != 0xE0CB0019u) _exit(11);
        std::vector<uint32_t> codes = errorCodes();
        if (codes.empty() || codes.back() != 0xE0CB0019u) _exit(12);
        std::string text = testkit::errorTextAt(static_cast<uint32_t>(codes.size() - 1));
        if (text != "Failed to write to the destination file when copying file '" + path("big") +
                        "' to '" + path("small") + "'")
            _exit(13);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(0, WEXITSTATUS(status));
    EXPECT_EQ(std::string(20000, 'b'), readFile("big"));
}

// Within one device, move is the model test's.
TEST_F(FileServiceTest, MoveAcrossDevices) {
    writeFile("n", "moved");
    chmod(path("n").c_str(), 0640);
    FileNameC to = name("n");
    FileNameC missing = name("missing");
    EXPECT_EQ(0xE0000002u, files->moveAlias(&missing, &to));

    struct stat64 shm;
    struct stat64 here;
    if (stat64("/dev/shm", &shm) != 0 || stat64(dir.c_str(), &here) != 0 ||
        shm.st_dev == here.st_dev)
        GTEST_SKIP() << "/dev/shm is missing or on the same device as " << dir;
    char pattern[] = "/dev/shm/keel-move-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    std::string other = pattern;
    struct utimbuf times = {1000000, 1000000};
    utime(path("n").c_str(), &times);
    FileNameC across(StringC((other + "/n").c_str(), "utf8"));
    EXPECT_EQ(0u, files->move(&to, &across));
    EXPECT_EQ("<missing>", readFile("n"));
    struct stat64 record;
    ASSERT_EQ(0, stat64((other + "/n").c_str(), &record));
    EXPECT_EQ(0640u, record.st_mode & 0777u);
    EXPECT_EQ(1000000, record.st_mtime);
    // A directory does not move across devices, and stays.
    ASSERT_EQ(0, mkdir(path("d").c_str(), 0755));
    FileNameC directory = name("d");
    FileNameC acrossDirectory(StringC((other + "/d").c_str(), "utf8"));
    EXPECT_EQ(0xE0000012u, files->move(&directory, &acrossDirectory));
    EXPECT_TRUE(files->isDirectory(&directory));
    ::unlink((other + "/n").c_str());
    ::rmdir(other.c_str());
}

}  // namespace
}  // namespace keel
