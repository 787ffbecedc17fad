// The keel command-line tool, run as a program of the build (through the
// emulator of an i386 run) on real files in a fresh directory: exit
// statuses and messages, the catalog round trip, conversions and their
// checks, constant memory on a 100 MB file, trace check, and the registry
// commands beside a program of the SDK. Writers in parallel are the
// configuration tests' (confregini_test, confregini_lock_test): each "reg set"
// is one mount, change and commit of the same registry in a process of its own.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "testing/process.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

using namespace std::string_literals;
using testkit::ProgramRunT;

class KeelToolTest : public testkit::TempDirTest {
protected:
    ProgramRunT keel(const std::vector<std::string>& args, const std::string& input = "/dev/null") {
        return testkit::runCaptured(testkit::builtProgram("bin/keel"), args, input);
    }
};

// --- Usage and failures ---

TEST_F(KeelToolTest, EveryCommandHasHelp) {
    for (const char* command :
         {"", "text", "text convert", "catalog", "catalog dump", "trace check", "reg"}) {
        std::vector<std::string> args;
        std::istringstream words(command);
        for (std::string word; words >> word;) args.push_back(word);
        args.push_back("--help");
        ProgramRunT run = keel(args);
        EXPECT_TRUE(run.exited(0)) << command << " " << run.err;
        EXPECT_EQ(0u, run.out.find("usage: keel")) << run.out;
    }
}

TEST_F(KeelToolTest, BadArgumentsAndBadFilesGiveTwoOrOneWithAMessage) {
    writeFile("text.txt", "abc\n");
    writeFile("kept.txt", "precious");
    writeFile("cafe.txt", "caf\xc3\xa9");
    writeFile("notacatalog", "0123456789");
    struct CaseT {
        std::vector<std::string> args;
        int status;
        const char* message;  // part of stderr
    };
    const std::vector<CaseT> cases = {
        {{}, 2, "usage: keel"},
        {{"frobnicate"}, 2, "no command 'frobnicate'"},
        {{"text"}, 2, "which action?"},
        {{"text", "convert", "--to", "utf8"}, 2, "--from is missing"},
        {{"text", "convert", "--from", "utf8"}, 2, "--to is missing"},
        {{"text", "convert", "--from", "UTF-8", "--to", "utf8"}, 2, "no encoding 'UTF-8'"},
        {{"text", "convert", "--from", "utf8", "--to"}, 2, "needs a value"},
        {{"text", "convert", "--from", "utf8", "--to", "utf8", "--frob"},
         2,
         "unknown option '--frob'"},
        {{"text", "convert", "--from", "utf8", "--to", "utf8", "a", "b", "c"},
         2,
         "too many operands"},
        {{"catalog", "compile", "only-one"}, 2, "an operand is missing"},
        {{"catalog", "lookup", path("notacatalog"), "banana"}, 2, "'banana' is no code"},
        {{"trace", "check", "a", "b"}, 2, "too many operands"},
        // Nothing to read: the old output stays as it was.
        {{"text", "convert", "--from", "utf8", "--to", "utf16", path("missing"), path("kept.txt")},
         1,
         "cannot open"},
        // A character without a form: converted and replaced, reported with status 1.
        {{"text", "convert", "--from", "utf8", "--to", "ascii", path("cafe.txt"), path("out.txt")},
         1,
         "without a form in ascii"},
        {{"text", "convert", "--from", "utf8", "--to", "utf16", dir}, 1, "cannot read"},
        {{"text", "convert", "--from", "utf8", "--to", "utf16", path("text.txt"),
          path("no/such/dir/out")},
         1,
         "cannot create a file beside"},
        {{"text", "convert", "--from", "utf8", "--to", "utf16", path("text.txt"), path("text.txt")},
         1,
         "is the input file"},
        {{"catalog", "dump", path("notacatalog")}, 1, "fewer than the 12 of a catalog header"},
        {{"catalog", "lookup", path("missing"), "s1m1"}, 1, "cannot open"},
        {{"trace", "check", path("missing")}, 1, "cannot read"},
    };
    for (const CaseT& c : cases) {
        ProgramRunT run = keel(c.args);
        std::string shown;
        for (const std::string& arg : c.args) shown += arg + " ";
        EXPECT_TRUE(run.exited(c.status)) << shown << "-> status " << run.status << ", " << run.err;
        EXPECT_NE(std::string::npos, run.err.find(c.message)) << shown << "-> " << run.err;
        if (c.status == 1) {
            // One line, and the input is left as it was.
            EXPECT_EQ(0u, run.err.find("keel: ")) << run.err;
            EXPECT_EQ(run.err.size() - 1, run.err.find('\n')) << run.err;
        }
    }
    EXPECT_EQ("abc\n", readFile("text.txt"));
    EXPECT_EQ("precious", readFile("kept.txt"));
    EXPECT_EQ("caf~", readFile("out.txt"));
}

// --- Catalogs ---

TEST_F(KeelToolTest, CatalogRoundTrip) {
    writeFile("app.fr.txt",
              "# messages of the application\n"
              "203 17 w Le disque est presque plein\n"
              "203 16 e Impossible d'ouvrir le fichier '%1$S'\n"
              "0x12 7 - {w} d\\xc3\\xa9j\\xc3\\xa0 vu\\n\n");
    ProgramRunT run = keel({"catalog", "compile", path("app.fr.txt"), path("app.fr.cat")});
    ASSERT_TRUE(run.exited(0)) << run.err;
    EXPECT_NE(std::string::npos, run.err.find("warning"))
        << "out of order is a warning: " << run.err;

    run = keel({"catalog", "dump", path("app.fr.cat"), path("dumped.txt")});
    ASSERT_TRUE(run.exited(0)) << run.err;
    run = keel({"catalog", "compile", path("dumped.txt"), path("again.cat")});
    ASSERT_TRUE(run.exited(0)) << run.err;
    EXPECT_EQ(readFile("app.fr.cat"), readFile("again.cat"));
    EXPECT_EQ(readFile("dumped.txt"), keel({"catalog", "dump", path("again.cat")}).out);

    // The code in each of its forms, as the library finds it.
    for (const char* code : {"s203m16", "0xE0CB0010", "3771400208"}) {
        run = keel({"catalog", "lookup", path("again.cat"), code});
        EXPECT_TRUE(run.exited(0)) << code << ": " << run.err;
        EXPECT_EQ("{e} Impossible d'ouvrir le fichier '%1$S'\n", run.out) << code;
    }
    run = keel({"catalog", "lookup", path("again.cat"), "s18m7"});
    EXPECT_EQ("{w} d\xc3\xa9j\xc3\xa0 vu\n\n", run.out);
    run = keel({"catalog", "lookup", path("again.cat"), "s203m18"});
    EXPECT_TRUE(run.exited(1));
    EXPECT_EQ("keel: '" + path("again.cat") + "': no message s203m18\n", run.err);

    // A source with an error makes no catalog, and names the line.
    writeFile("bad.txt", "203 16 e one\n203 16 e twice\n");
    run = keel({"catalog", "compile", path("bad.txt"), path("bad.cat")});
    EXPECT_TRUE(run.exited(1));
    EXPECT_NE(std::string::npos, run.err.find("line 2")) << run.err;
    EXPECT_EQ("<missing>", readFile("bad.cat"));
}

// --- Conversions ---

// Every encoding by name on each side, the marks and what is cut off by the
// end; marks, broken sequences and piece borders in general are the
// converter's model test's. Bytes are written with octal escapes (at most
// three digits), so a letter may follow one directly.
TEST_F(KeelToolTest, ConversionsBetweenEncodings) {
    struct CaseT {
        const char *from, *to;
        std::string input, output;
        bool noMark;
    };
    const std::vector<CaseT> cases = {
        {"utf8", "utf16le", "caf\303\251", "\377\376c\0a\0f\0\351\0"s, false},
        {"utf8", "utf16be", "caf\303\251", "\376\377\0c\0a\0f\0\351"s, false},
        {"utf8", "utf16", "caf\303\251", "\377\376c\0a\0f\0\351\0"s, false},
        {"utf8", "utf16be", "caf\303\251", "\0c\0a\0f\0\351"s, true},
        {"utf8", "wchar_t", "\344\270\255", "-N\0\0"s, false},
        {"utf8", "iso-8859-1", "caf\303\251", "caf\351", false},
        {"iso-8859-1", "utf8", "caf\351", "\357\273\277caf\303\251", false},
        {"iso-8859-1", "system-8", "caf\351", "\357\273\277caf\303\251", false},
        {"ascii", "utf8", "a\351", "a\357\277\275", true},  // a high byte is U+FFFD
        {"system-8", "utf8", "\357\273\277a", "\357\273\277a", true},
        {"utf16", "utf8", "\376\377\0AN-"s, "A\344\270\255", true},
        {"utf16be", "utf8", "\377\376\0A"s, "\357\277\276A", true},
        // Cut off by the end: U+FFFD instead of nothing.
        {"utf8", "utf8", "ab\344\270", "ab\357\277\275", true},
        {"utf16le", "utf8", "A\0B"s, "A\357\277\275", true},
        {"utf16le", "utf8", "A\0=\330"s, "A\357\277\275", true},
        {"wchar_t", "utf8", "A\0\0\0B\0"s, "A\357\277\275", true},
        {"wchar_t", "utf8", "A\0\0\0\0\0\0\200"s, "A\357\277\275", true},
        {"utf8", "utf16le", "a\0b"s, "a\0\0\0b\0"s, true},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const CaseT& c = cases[i];
        writeFile("in", c.input);
        std::vector<std::string> args = {"text", "convert", "--from", c.from, "--to", c.to};
        if (c.noMark) args.push_back("--no-mark");
        ProgramRunT run = keel(args, path("in"));
        EXPECT_TRUE(run.exited(0)) << "case " << i << ": " << run.err;
        EXPECT_EQ(c.output, run.out) << "case " << i << " " << c.from << " -> " << c.to;
    }
}

TEST_F(KeelToolTest, CheckReportsTheFirstProblemAndItsOffset) {
    struct CaseT {
        const char *from, *to;  // to: null for the input only
        std::string input;
        const char* message;  // null: valid, status 0
    };
    const std::vector<CaseT> cases = {
        {"utf8", nullptr, "caf\303\251", nullptr},
        {"utf8", nullptr, "ab\344A", "invalid utf8 sequence E4 at byte 2"},
        {"utf8", nullptr, "\357\273\277a\200", "invalid utf8 sequence 80 at byte 4"},
        {"utf8", nullptr, "abc\344\270",
         "sequence E4 B8 cut off by the end of the input at byte 3"},
        {"utf8", nullptr, "a\376", "invalid utf8 sequence FE at byte 1"},
        {"ascii", nullptr, "abc\351", "invalid ascii sequence E9 at byte 3"},
        {"iso-8859-1", nullptr, "abc\351\377", nullptr},
        {"utf16le", nullptr, "a\0\0\334b\0"s, "invalid utf16le sequence 00 DC at byte 2"},
        {"utf16", nullptr, "\376\377\0a\330\0\0b"s, "invalid utf16 sequence D8 00 at byte 4"},
        {"utf16be", nullptr, "\0a\0"s, "cut off by the end of the input at byte 2"},
        {"wchar_t", nullptr, "a\0\0\0\0\0\0\200"s,
         "invalid wchar_t sequence 00 00 00 80 at byte 4"},
        {"utf8", "iso-8859-1", "caf\303\251", nullptr},
        {"utf8", "ascii", "caf\303\251", "U+00E9 has no form in ascii at byte 3"},
        {"utf8", "utf16", "a\370\210\200\200\200", "U+200000 has no form in utf16 at byte 1"},
        {"utf16le", "iso-8859-1", "a\0-N"s, "U+4E2D has no form in iso-8859-1 at byte 2"},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        const CaseT& c = cases[i];
        writeFile("in", c.input);
        std::vector<std::string> args = {"text", "convert", "--check", "--from", c.from};
        if (c.to) args.insert(args.end(), {"--to", c.to});
        args.push_back(path("in"));
        ProgramRunT run = keel(args);
        EXPECT_TRUE(run.exited(c.message ? 1 : 0)) << "case " << i << ": " << run.err;
        EXPECT_NE(std::string::npos, run.err.find(c.message ? c.message : "")) << "case " << i;
        if (!c.message) {
            EXPECT_EQ("", run.err) << "case " << i;
        }
    }
}

// 100 MB through the tool: the peak resident set size of the child stays
// under 16 MB, for both directions of a conversion that changes every size.
TEST_F(KeelToolTest, HundredMegabytesInConstantMemory) {
    const std::string line =
        "Gr\xc3\xbc\xc3\x9f"
        "e aus K\xc3\xb6ln, \xe4\xb8\xad\xe6\x96\x87 and plain text, \xF0\x9F\x98\x80.\n";
    const size_t total = 100u << 20;
    {
        // Written in blocks, never held whole.
        std::string block;
        while (block.size() < (1u << 20)) block += line;
        int fd = ::open(path("big.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        for (size_t written = 0; written < total; written += block.size()) {
            ASSERT_EQ(static_cast<ssize_t>(block.size()), ::write(fd, block.data(), block.size()));
        }
        ::close(fd);
    }
    ProgramRunT there = keel(
        {"text", "convert", "--from", "utf8", "--to", "utf16le", path("big.txt"), path("big16")});
    ASSERT_TRUE(there.exited(0)) << there.err;
    ProgramRunT back = keel({"text", "convert", "--from", "utf16le", "--to", "utf8", "--no-mark",
                             path("big16"), path("back.txt")});
    ASSERT_TRUE(back.exited(0)) << back.err;
    printf(
        "peak RSS of keel text convert on %zu MB: utf8 -> utf16le %ld KiB, utf16le -> utf8 %ld "
        "KiB\n",
        total >> 20, there.maxRssKb, back.maxRssKb);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizers' own shadow memory is no figure of the tool's.
#else
    // Under an emulator the figure is the emulator's resident set, which
    // holds its translated code as well: the tool's share is what 100 MB add
    // to the same conversion of one line under the same emulator.
    long limit = 16 * 1024;
    if (!testkit::emulatorWords().empty()) {
        writeFile("small.txt", line);
        ProgramRunT small = keel({"text", "convert", "--from", "utf8", "--to", "utf16le",
                                  path("small.txt"), path("small16")});
        ASSERT_TRUE(small.exited(0)) << small.err;
        printf("under the emulator one line takes %ld KiB\n", small.maxRssKb);
        limit += small.maxRssKb;
    }
    EXPECT_LT(there.maxRssKb, limit);
    EXPECT_LT(back.maxRssKb, limit);
#endif
    // Compared in blocks, as it was written.
    FILE* a = fopen(path("big.txt").c_str(), "rb");
    FILE* b = fopen(path("back.txt").c_str(), "rb");
    ASSERT_TRUE(a && b);
    std::vector<char> x(1 << 20), y(1 << 20);
    size_t got = 0, compared = 0;
    bool same = true;
    while ((got = fread(x.data(), 1, x.size(), a)) > 0) {
        same = same && fread(y.data(), 1, got, b) == got && memcmp(x.data(), y.data(), got) == 0;
        compared += got;
    }
    same = same && fread(y.data(), 1, 1, b) == 0;
    fclose(a);
    fclose(b);
    EXPECT_TRUE(same) << "after " << compared << " bytes";
}

// Progress is shown for a large file when stderr is a terminal, and only then.
TEST_F(KeelToolTest, ProgressGoesToAnErrorStreamThatIsATerminal) {
    writeFile("large.txt", "");
    ASSERT_EQ(0, truncate(path("large.txt").c_str(), 20 << 20));  // 20 MB of NUL, all ASCII
    std::vector<std::string> args = {"text", "convert", "--from",          "ascii",
                                     "--to", "utf16",   path("large.txt"), path("out")};
    ProgramRunT plain = keel(args);
    EXPECT_TRUE(plain.exited(0));
    EXPECT_EQ("", plain.err);

    int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(0, grantpt(master));
    ASSERT_EQ(0, unlockpt(master));
    std::string slaveName = ptsname(master);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int slave = ::open(slaveName.c_str(), O_RDWR);
        int null = ::open("/dev/null", O_RDWR);
        if (slave < 0 || null < 0) _exit(126);
        dup2(null, 0);
        dup2(null, 1);
        dup2(slave, 2);
        testkit::execProgram(testkit::builtProgram("bin/keel"), args);
        _exit(127);
    }
    // The lines are few (one per percent), far below what the terminal holds.
    std::string shown;
    char chunk[4096];
    ssize_t got;
    while ((got = read(master, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR)) {
        if (got > 0) shown.append(chunk, static_cast<size_t>(got));
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ::close(master);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_NE(std::string::npos, shown.find("keel: 100% of 20 MB")) << shown;
    struct stat written;
    ASSERT_EQ(0, stat(path("out").c_str(), &written));
    EXPECT_EQ((40 << 20) + 2, written.st_size);  // the mark and two bytes a character
}

// --- Trace control files ---

TEST_F(KeelToolTest, TraceCheckTellsWhatTheControlFileSwitchesOn) {
    writeFile("control",
              "# tracing for the support case\n"
              "timestamp = yes\n"
              "filename = " +
                  path("app%_u.trc") +
                  "\n"
                  "Error\n"
                  "3,Net/Socket\n"
                  "-Error/Occurrence\n"
                  "*/Catalog\n"
                  "Error = 1\n"
                  "show_threads = maybe\n"
                  "max_detail = 5\n" +
                  std::string(300, 'x') + "\n");
    ProgramRunT run = keel({"trace", "check", path("control")});
    ASSERT_TRUE(run.exited(0)) << run.err;
    const char* expected[] = {
        "Trace file:   ",
        "Consumer:     the trace file, detail level 5 (max_detail)",
        " timestamp=1 ",
        "line 4   on       Error (detail 1): traced, with 4 levels below it",
        "line 5   on       Net/Socket (detail 3): traced, with 2 levels below it",
        "line 6   off      Error/Occurrence",
        "line 7   pattern  Catalog",
        "line 8   'Error = 1': no option 'Error'",
        "line 9   'show_threads = maybe': the value is no number",
        "line 11  is longer than 255 bytes",
    };
    for (const char* text : expected)
        EXPECT_NE(std::string::npos, run.out.find(text)) << text << "\n" << run.out;
    // The name expands as the consumer will expand it; nothing is created.
    EXPECT_NE(std::string::npos, run.out.find("Trace file:   " + path("app.trc") + "\n"))
        << run.out;
    EXPECT_EQ("<missing>", readFile("app.trc"));

    run = keel({"trace", "check"}, path("control"));
    EXPECT_TRUE(run.exited(0)) << run.err;
    EXPECT_NE(std::string::npos, run.out.find("pattern  Catalog")) << run.out;
    writeFile("empty", "# nothing\n");
    EXPECT_NE(std::string::npos,
              keel({"trace", "check", path("empty")}).out.find("none: nothing is traced"));
}

// --- Registry ---

class KeelRegistryTest : public KeelToolTest {
protected:
    void SetUp() override {
        KeelToolTest::SetUp();
        ini = path("conf/app.ini");  // the directory is made by the first commit
        mount = "--mount=" + ini + "=HKLM\\Software\\App";
    }
    ProgramRunT reg(const std::string& action, std::vector<std::string> args) {
        args.insert(args.begin(), {"reg", action, mount});
        return keel(args);
    }
    // The SDK program: get or set a value of a key below HKLM.
    ProgramRunT client(const std::vector<std::string>& args) {
        std::vector<std::string> all = {args[0], ini, "HKLM", "Software\\App"};
        all.insert(all.end(), args.begin() + 1, args.end());
        return testkit::runCaptured(testkit::builtProgram("tests/regclient_main"), all);
    }
    std::string ini;
    std::string mount;
};

TEST_F(KeelRegistryTest, WhatTheToolSetsAProgramReadsAndTheOtherWayRound) {
    ProgramRunT run = reg("set", {"HKLM\\Software\\App\\Window\\Width", "640"});
    ASSERT_TRUE(run.exited(0)) << run.err;
    run = client({"get", "Software\\App\\Window", "Width"});
    EXPECT_TRUE(run.exited(0));
    EXPECT_EQ("640\n", run.out);

    ASSERT_TRUE(client({"set", "Software\\App\\Window", "Title", "Hello"}).exited(0));
    run = reg("get", {"HKLM\\Software\\App\\Window\\Title"});
    EXPECT_TRUE(run.exited(0)) << run.err;
    EXPECT_EQ("Hello\n", run.out);
    // Text beyond ASCII, whole both ways.
    ASSERT_TRUE(reg("set", {"HKLM\\Software\\App\\Window\\Title",
                            "Gr\xc3\xbc\xc3\x9f"
                            "e"})
                    .exited(0));
    run = client({"get", "Software\\App\\Window", "Title"});
    EXPECT_EQ(
        "Gr\xc3\xbc\xc3\x9f"
        "e\n",
        run.out);
    run = reg("list", {"HKLM\\Software\\App\\Window"});
    EXPECT_EQ(
        "Width=640\nTitle=Gr\xc3\xbc\xc3\x9f"
        "e\n",
        run.out)
        << run.err;
    ASSERT_TRUE(reg("set", {"HKLM\\Software\\App\\Window\\Pos\\X", "3"}).exited(0));
    EXPECT_EQ(
        "Pos\\\nWidth=640\nTitle=Gr\xc3\xbc\xc3\x9f"
        "e\n",
        reg("list", {"HKLM\\Software\\App\\Window"}).out);

    // The file as a program leaves it: a mark, sections, no companions left.
    EXPECT_EQ(0u, readFile("conf/app.ini").find("\xEF\xBB\xBF"));
    EXPECT_NE(std::string::npos, readFile("conf/app.ini").find("[Window]"));
    EXPECT_EQ("<missing>", readFile("conf/app.ini.lck"));
    EXPECT_EQ("<missing>", readFile("conf/app.ini.tmp"));

    // Removal, and what fails.
    EXPECT_TRUE(reg("delete", {"HKLM\\Software\\App\\Window\\Width"}).exited(0));
    run = reg("get", {"HKLM\\Software\\App\\Window\\Width"});
    EXPECT_TRUE(run.exited(1));
    EXPECT_NE(std::string::npos, run.err.find("not found (0xE1370069)")) << run.err;
    EXPECT_TRUE(client({"get", "Software\\App\\Window", "Width"}).exited(1));
    run = reg("delete", {"--key", "HKLM\\Software\\App\\Window"});
    EXPECT_TRUE(run.exited(1));
    EXPECT_NE(std::string::npos, run.err.find("not empty")) << run.err;
    EXPECT_TRUE(reg("delete", {"--key", "--recursive", "HKLM\\Software\\App\\Window"}).exited(0));
    EXPECT_TRUE(client({"get", "Software\\App\\Window", "Title"}).exited(1));
    run = reg("list", {"HKLM\\Software\\App"});
    EXPECT_TRUE(run.exited(1));
    EXPECT_NE(std::string::npos, run.err.find("mount point")) << run.err;

    const std::vector<std::vector<std::string>> usage = {
        {"reg", "get", "HKLM\\Software\\App\\X"},                  // no --mount
        {"reg", "get", "--mount", ini, "HKLM\\Software\\App\\X"},  // no point
        {"reg", "get", "--mount", ini + "=HKXX\\A", "HKLM\\A\\X"},
        {"reg", "set", mount, "HKLM\\Software\\App\\X"},
        {"reg", "get", mount, "--recursive", "HKLM\\Software\\App\\X"},
        {"reg", "frob"},
    };
    for (const auto& args : usage)
        EXPECT_TRUE(keel(args).exited(2)) << args[1] << " " << args.back();
    run = reg("get", {"Nowhere\\X"});
    EXPECT_TRUE(run.exited(1));
    EXPECT_NE(std::string::npos, run.err.find("0xE1370077")) << run.err;
}

}  // namespace
}  // namespace keel
