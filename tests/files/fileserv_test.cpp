// The file service on real files in a fresh directory: predicates, sizes,
// times and attributes, permissions, directories, the reports with their
// codes and texts, and names the system cannot take.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>

#include "testing/fileservmodel.h"
#include "testing/filetree.h"
#include "testing/modelrun.h"

namespace keel {
namespace {

class FileServiceTest : public testkit::FileTreeTest {};

// Random writes, directories, copies, moves and removals over a small tree,
// each checked against a plain model of the tree.
TEST_F(FileServiceTest, RandomOperationsAgainstAModel) {
    EXPECT_EQ("", testkit::runSeeded<fileservmodel::DriverC>(5, 400, dir));
}

TEST_F(FileServiceTest, PredicatesByKindOfName) {
    makeTree({"file=abc", "dir/", "dangling->missing", "tofile->file", "todir->dir"});
    ASSERT_EQ(0, mkfifo(path("p").c_str(), 0600));
    // exists, isFile, isDirectory, isSymbolicLink, isDirectoryEmpty, and the
    // type getFileInfo gives without following links (9 for none).
    typedef std::tuple<bool, bool, bool, bool, bool, uint32_t> AnswersT;
    const std::pair<std::string, AnswersT> cases[] = {
        {path("file"), AnswersT{true, true, false, false, true, 0}},
        {path("dir"), AnswersT{true, false, true, false, true, 1}},
        {path("dir/.."), AnswersT{true, false, true, false, false, 1}},
        {path("dangling"), AnswersT{false, false, false, true, true, 5}},
        {path("tofile"), AnswersT{true, true, false, true, true, 5}},
        {path("todir"), AnswersT{true, false, true, true, true, 5}},
        {path("p"), AnswersT{true, false, false, false, true, 4}},
        // "." collapses to the empty text: no directory here, but it exists.
        {".", AnswersT{true, false, false, false, true, 1}},
        {"", AnswersT{false, false, false, false, true, 9}},
    };
    for (const auto& c : cases) {
        const FileNameC* n = fullName(c.first);
        std::unique_ptr<FileInfoC> info(files->getFileInfo(n, false));
        EXPECT_EQ(c.second, AnswersT(files->exists(n), files->isFile(n), files->isDirectory(n),
                                     files->isSymbolicLink(n), files->isDirectoryEmpty(n),
                                     info ? info->type : 9u))
            << c.first;
    }
    EXPECT_FALSE(std::unique_ptr<FileNameC>(files->readSymbolicLink(at("p"))));
    makeTree({"l->a//b/./c/"});
    std::unique_ptr<FileNameC> target(files->readSymbolicLink(at("l")));
    EXPECT_EQ("a/b/./c", str(target->toString()));
}

// The rest of what createDirectory answers is the model test's.
TEST_F(FileServiceTest, CreateDirectoryOfRootDotAndItsMode) {
    EXPECT_FALSE(files->createDirectory(fullName("/"), true));
    EXPECT_TRUE(files->createDirectory(fullName("."), false));
    EXPECT_TRUE(files->createDirectory(at("a/b/c"), true));
    mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(0777u & ~mask, modeOf("a/b"));
}

TEST_F(FileServiceTest, SizesTimesAndFreeSpace) {
    // A link to a file counts its target; a link to a directory is not entered.
    makeTree({"one=12345", "tree/", "tree/sub/", "tree/a=aa", "tree/sub/b=bbbb",
              "tree/link->../one", "tree/sub/up->.."});
    // getSize and its count, then setModifiedTime and getModifiedTime.
    int32_t count = 7;
    EXPECT_EQ(
        (std::vector<int64_t>{2 + 4 + 5, 3, 5, 0xE0CB000C, 0, 1000000000, 0, 0xE0000002}),
        (std::vector<int64_t>{
            files->getSize(at("tree"), &count), count, files->getSize(at("one"), nullptr),
            files->setModifiedTime(at("one"), -1), files->setModifiedTime(at("one"), 1000000000),
            files->getModifiedTime(at("one")), files->getModifiedTime(at("missing")),
            files->setModifiedTime(at("missing"), 5)}));
    EXPECT_GT(files->getFreeSpace(at("not/yet/there")), 0);
    EXPECT_GT(files->getFreeSpace(fullName("no-such-dir-here/x")), 0);
}

TEST_F(FileServiceTest, PermissionChangesRefuseLinks) {
    makeTree({"f=x", "l->f", "w=x"});
    EXPECT_TRUE(files->setReadOnly(at("f"), true));
    EXPECT_TRUE(files->isReadOnly(at("f")));
    EXPECT_TRUE(files->setReadOnly(at("f"), false));
    EXPECT_EQ(0644u, modeOf("f"));
    EXPECT_EQ(0644u, std::unique_ptr<FileInfoC>(files->getFileInfo(at("f"), true))->permissions);

    // Without the owner read bit, making it writable changes nothing; the
    // verified open needs read access, which only root has then.
    chmod(path("w").c_str(), 0044);
    EXPECT_EQ(isRoot(), files->setReadOnly(at("w"), false))
        << (isRoot() ? "as root, which reads any file" : "");
    EXPECT_EQ(0044u, modeOf("w"));
    chmod(path("w").c_str(), 0751);
    EXPECT_EQ(0u, files->copyAttributes(at("w"), at("f")));
    EXPECT_EQ(0751u, modeOf("f"));

    EXPECT_FALSE(files->setReadOnly(at("l"), true));
    // A link is refused with ELOOP, set because nothing failed (a stale
    // errno could otherwise make the answer 0).
    errno = 0;
    EXPECT_EQ(0xE0000028u, files->copyAttributes(at("w"), at("l")));
    EXPECT_EQ(0xE0000028u, files->copyAttributes(at("l"), at("f")));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(at("missing"), at("f")));
    EXPECT_EQ(0751u, modeOf("f"));

    struct stat64 record;
    int before = dup(0);
    close(before);
    EXPECT_EQ(-1, files->openVerified(path("l").c_str(), &record));
    EXPECT_EQ(ELOOP, errno);
    int after = dup(0);
    close(after);
    EXPECT_EQ(before, after) << "the refused descriptor is closed";
}

TEST_F(FileServiceTest, ReportsOfTheirOwn) {
    EXPECT_FALSE(files->isHidden(at("x")));
    EXPECT_FALSE(files->isSystem(at("x")));
    EXPECT_EQ(0xE0CB0013u, files->setHidden(at("x")));
    EXPECT_EQ(0xE0CB0011u, files->setCurrentDirectory(at("x")));
    EXPECT_EQ("Cannot get hidden state of file '" + path("x") + "'", errorTextAt(0));
    EXPECT_EQ("Cannot get system state of file '" + path("x") + "'", errorTextAt(1));
    EXPECT_EQ("Cannot set hidden state of file '" + path("x") + "'", errorTextAt(2));
    EXPECT_EQ("Cannot change to directory '" + path("x") + "'", errorTextAt(4));
    EXPECT_EQ((Codes{0xE0CB0012u, 0xE0CB0014u, 0xE0CB0013u, 0xE0000002u, 0xE0CB0011u}),
              takeErrorCodes());
    // The constants and the operations that come with the listers report
    // nothing and touch nothing.
    EXPECT_EQ(0xE0CB000Du, files->reservedSetter());
    EXPECT_EQ(0x80000001u, files->reservedCodeA());
}

TEST_F(FileServiceTest, NamesTheSystemCannotTake) {
    makeTree({"a=x"});
    std::string longPath = dir;
    while (longPath.size() < 4200) longPath += "/d";
    const std::pair<std::string, uint32_t> cases[] = {
        // The part in front of the NUL names "a", which exists: it must not
        // be what the operations see.
        {path("a") + std::string(1, '\0') + "b", 0xE0000016u},
        {"", 0xE0000002u},
        {path(std::string(5000, 'n')), 0xE0000024u},
        {longPath, 0xE0000024u},
    };
    for (const auto& c : cases) {
        const FileNameC* n = fullName(c.first);
        SCOPED_TRACE(c.first.substr(0, 40));
        EXPECT_FALSE(files->exists(n) || files->isFile(n) || files->isDirectory(n) ||
                     files->canRead(n));
        EXPECT_EQ(nullptr, files->getFileInfo(n, true));
        EXPECT_EQ(-1, files->getSize(n, nullptr));
        EXPECT_FALSE(files->setReadOnly(n, true));
        // The empty name is the current directory, which is there already.
        EXPECT_EQ(c.first.empty(), files->createDirectory(n, true));
        EXPECT_EQ(nullptr, files->openStream(n, 3, 1, 2, false));
        EXPECT_EQ((Codes{c.second, 0xE0CB0010u}), takeErrorCodes());
    }
    EXPECT_EQ("x", readFile("a"));

    // A file that disappears between two calls.
    EXPECT_TRUE(files->isFile(at("a")));
    unlink(path("a").c_str());
    EXPECT_EQ(nullptr, files->getFileInfo(at("a"), true));
    EXPECT_FALSE(files->setReadOnly(at("a"), true));
    EXPECT_EQ(0xE0000002u, files->copyAttributes(at("a"), at("a")));
}

TEST_F(FileServiceTest, UnreadableDirectory) {
    if (isRoot())
        GTEST_SKIP() << "running as root: root reads any directory, so nothing is unreadable";
    makeTree({"closed/", "closed/f=abc"});
    chmod(path("closed").c_str(), 0);
    EXPECT_TRUE(files->isDirectory(at("closed")));
    EXPECT_TRUE(files->isDirectoryEmpty(at("closed")));
    int32_t count = 9;
    EXPECT_EQ(0, files->getSize(at("closed"), &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(nullptr, files->openStream(at("closed/f"), 3, 1, 2, false));
    EXPECT_EQ((Codes{0xE000000Du, 0xE0CB0010u}), takeErrorCodes());
}

TEST_F(FileServiceTest, SecureTempFilesAndUniqueNames) {
    const FileNameC* here = fullName(dir);
    StringC made;
    int32_t fd = -2;
    // The code, and the name made without the six random characters.
    auto make = [&](const FileNameC* directory, const std::string& prefix) {
        fd = -2;
        uint32_t code =
            files->createSecureTempFile(made, &fd, directory, StringC(prefix.c_str(), "ascii"));
        if (fd >= 0) close(fd);
        return std::make_pair(code, str(made).substr(0, std::max<size_t>(6, str(made).size()) - 6));
    };
    EXPECT_EQ(std::make_pair(0u, path("pre")), make(here, "pre"));
    EXPECT_EQ(0600u, modeOf(str(made).substr(dir.size() + 1)));

    // A missing directory falls back to the temporary one; an empty TMPDIR
    // or one naming nothing fails with its own code.
    std::string saved = getenv("TMPDIR") ? getenv("TMPDIR") : "<unset>";
    setenv("TMPDIR", dir.c_str(), 1);
    EXPECT_EQ(std::make_pair(0u, path("fb")), make(at("missing"), "fb"));
    setenv("TMPDIR", "", 1);
    EXPECT_EQ(0xE0CB001Eu, make(nullptr, "").first);
    EXPECT_EQ(-1, fd);
    setenv("TMPDIR", path("missing").c_str(), 1);
    EXPECT_EQ(0xE0CB001Fu, make(nullptr, "").first);
    saved == "<unset>" ? unsetenv("TMPDIR") : setenv("TMPDIR", saved.c_str(), 1);
    // The bound on the template: 4,095 characters pass it, 4,096 do not.
    std::string longPrefix(4095 - dir.size() - 1 - 6, 'p');
    EXPECT_EQ(std::make_pair(0xE0CB001Du, dir + "/" + longPrefix), make(here, longPrefix));
    EXPECT_EQ(std::make_pair(0xE0CB001Eu, std::string()), make(here, longPrefix + "p"));
    testkit::clearErrors();

    // A symbolic link planted where the first random name falls is refused
    // (create new), and its target is never made.
    srand(77);
    std::string first = "u" + std::to_string(rand()) + ".x";
    makeTree({first + "->" + path("target")});
    srand(77);
    std::unique_ptr<FileNameC> unique(
        files->createUniqueName(here, StringC("u", "ascii"), StringC(".x", "ascii"), true));
    ASSERT_TRUE(unique);
    EXPECT_NE(path(first), str(unique->toString()));
    EXPECT_EQ("", readFile(str(unique->toString()).substr(dir.size() + 1)));
    EXPECT_EQ("<missing>", readFile("target"));
    EXPECT_EQ(Codes{}, errorCodes());
    // A missing directory stops at once, its errors left in the buffer.
    EXPECT_EQ(nullptr,
              files->createUniqueName(at("missing"), StringC("u", "ascii"), StringC(), true));
    EXPECT_NE(Codes{}, takeErrorCodes());
    std::unique_ptr<FileNameC> free(files->createTempName(StringC("t", "ascii")));
    ASSERT_TRUE(free);
    EXPECT_FALSE(files->exists(free.get()));
}

struct ProgressT {
    int calls, stopAt;
    int64_t totalBytes;
    int32_t totalFiles;
};

bool countProgress(const FileNameC*, const FileNameC*, int64_t totalBytes, int32_t totalFiles,
                   int64_t, int64_t, void* context) {
    ProgressT* progress = static_cast<ProgressT*>(context);
    *progress = {progress->calls + 1, progress->stopAt, totalBytes, totalFiles};
    return progress->calls != progress->stopAt;
}

// Copy and removal of a tree holding a link to a directory outside it and a
// link to its own ancestor: the outside is read, never changed, the loop
// ends, and removal takes the links away as links.
TEST_F(FileServiceTest, CopyAndRemovalOfTreesWithLinks) {
    makeTree({"outside/", "outside/keep=k", "tree/", "tree/a/",
              "tree/a/f=" + std::string(5000, 'x'), "tree/empty=", "tree/out->" + path("outside"),
              "tree/a/loop->" + path("tree"), "direct->" + path("outside")});
    ProgressT all = {0, -1, 0, 0};
    EXPECT_EQ(0u, files->copy(at("tree"), at("copy"), countProgress, &all));
    EXPECT_EQ(std::string(5000, 'x'), readFile("copy/a/f"));
    EXPECT_EQ("", readFile("copy/empty"));
    EXPECT_EQ("k", readFile("copy/out/keep"));
    EXPECT_TRUE(files->isDirectory(at("copy/a/loop")));
    EXPECT_TRUE(files->isDirectoryEmpty(at("copy/a/loop")));
    // Two blocks of a/f and one of out/keep, read through the link; the
    // empty file calls nothing.
    EXPECT_EQ(3, all.calls);
    EXPECT_TRUE(files->remove(at("copy"), true, true));
    EXPECT_EQ(std::string(5000, 'x'), readFile("tree/a/f"));

    // Stopped by the call-back after the first block: no error, a partial
    // destination of one block.
    ProgressT stop = {0, 1, 0, 0};
    EXPECT_EQ(0u, files->copy(at("tree/a/f"), at("part"), countProgress, &stop));
    EXPECT_EQ(4096u, readFile("part").size());
    EXPECT_EQ(5000, stop.totalBytes);
    EXPECT_EQ(1, stop.totalFiles);

    EXPECT_TRUE(files->remove(at("tree"), false, true));
    EXPECT_EQ("<missing>", readFile("tree/a/f"));
    // A link given directly goes as a link too.
    EXPECT_TRUE(files->remove(at("direct"), true, true));
    EXPECT_FALSE(files->isSymbolicLink(at("direct")));
    EXPECT_EQ("k", readFile("outside/keep"));
}

// A destination that cannot grow (RLIMIT_FSIZE, SIGXFSZ ignored: EFBIG), in
// a child so the limit stays there: the copy's code with both names, the
// source whole, the process alive.
TEST_F(FileServiceTest, CopyIntoAFileThatCannotGrow) {
    writeFile("big", std::string(20000, 'b'));
    auto copyInChild = [&] {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {8192, 8192};
        setrlimit(RLIMIT_FSIZE, &limit);
        testkit::clearErrors();
        uint32_t code = files->copy(at("big"), at("small"), nullptr, nullptr);
        uint32_t last = static_cast<uint32_t>(errorCodes().size() - 1);
        fprintf(stderr, "%x %x %s\n", code, errorCodes().at(last), errorTextAt(last).c_str());
        _exit(0);
    };
    EXPECT_EXIT(copyInChild(), testing::ExitedWithCode(0),
                "e0cb0019 e0cb0019 Failed to write to the destination file when copying file '" +
                    path("big") + "' to '" + path("small") + "'");
    EXPECT_EQ(std::string(20000, 'b'), readFile("big"));
}

// Within one device, move is the model test's.
TEST_F(FileServiceTest, MoveAcrossDevices) {
    makeTree({"n=moved", "d/"});
    chmod(path("n").c_str(), 0640);
    EXPECT_EQ(0xE0000002u, files->moveAlias(at("missing"), at("n")));
    struct stat64 shm, here;
    if (stat64("/dev/shm", &shm) != 0 || stat64(dir.c_str(), &here) != 0 ||
        shm.st_dev == here.st_dev)
        GTEST_SKIP() << "/dev/shm is missing or on the same device as " << dir;
    char pattern[] = "/dev/shm/keel-move-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    std::string other = pattern;
    struct utimbuf times = {1000000, 1000000};
    utime(path("n").c_str(), &times);
    EXPECT_EQ(0u, files->move(at("n"), fullName(other + "/n")));
    EXPECT_EQ("<missing>", readFile("n"));
    struct stat64 record;
    ASSERT_EQ(0, stat64((other + "/n").c_str(), &record));
    EXPECT_EQ(0640u, record.st_mode & 0777u);
    EXPECT_EQ(1000000, record.st_mtime);
    // A directory does not move across devices, and stays.
    EXPECT_EQ(0xE0000012u, files->move(at("d"), fullName(other + "/d")));
    EXPECT_TRUE(files->isDirectory(at("d")));
    ::unlink((other + "/n").c_str());
    ::rmdir(other.c_str());
}

}  // namespace
}  // namespace keel
