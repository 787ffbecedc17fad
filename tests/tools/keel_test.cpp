// The keel command-line tool, run as a program of the build (through the
// emulator of an i386 run) on real files in a fresh directory: exit
// statuses and messages, the catalog round trip, conversions and their
// checks, constant memory on a 100 MB file, trace check, and the registry
// commands beside a program of the SDK and in four processes at once.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "testing/process.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

using namespace std::string_literals;
using testkit::ProgramRunT;
typedef std::vector<std::string> ArgsT;

// One run of a program and what it must answer: the exit status, the whole
// standard output (or its start, where the text ends with "..."), and a
// part of the standard error (the whole of it, empty, where "" is given).
// A failure (status 1) with a message is one line that starts with "keel: ". With `in`,
// that text is written to the file "in" first and is the standard input.
struct RunT {
    ArgsT args;
    int status;
    std::string out, err;
    std::optional<std::string> in = std::nullopt;
};

ArgsT convert(const char* from, const char* to, ArgsT more = {}) {
    more.insert(more.begin(), {"text", "convert", "--from", from, "--to", to});
    return more;
}

class KeelToolTest : public testkit::TempDirTest {
protected:
    ProgramRunT keel(const ArgsT& args, const std::string& input = "/dev/null") {
        return testkit::runCaptured(testkit::builtProgram("bin/keel"), args, input);
    }
    void expectRuns(const std::vector<RunT>& rows,
                    std::function<ProgramRunT(const ArgsT&)> start = nullptr) {
        for (const RunT& row : rows) {
            SCOPED_TRACE(::testing::PrintToString(row.args));
            if (row.in) writeFile("in", *row.in);
            ProgramRunT run =
                start ? start(row.args) : keel(row.args, row.in ? path("in") : "/dev/null");
            EXPECT_TRUE(run.exited(row.status)) << "status " << run.status << ", " << run.err;
            size_t dots = row.out.size() >= 3 && row.out.compare(row.out.size() - 3, 3, "...") == 0
                              ? row.out.size() - 3
                              : std::string::npos;
            EXPECT_EQ(row.out.substr(0, dots), run.out.substr(0, dots));
            EXPECT_TRUE(row.err.empty() ? run.err.empty()
                                        : run.err.find(row.err) != std::string::npos)
                << run.err;
            if (row.status != 1 || row.err.empty()) continue;
            EXPECT_EQ(0u, run.err.find("keel: ")) << run.err;
            EXPECT_EQ(run.err.size() - 1, run.err.find('\n')) << run.err;
        }
    }
};

TEST_F(KeelToolTest, HelpAndWhatFailsWithTwoOrOneAndAMessage) {
    writeFile("text.txt", "abc\n");
    writeFile("kept.txt", "precious");
    writeFile("cafe.txt", "caf\xc3\xa9");
    writeFile("notacatalog", "0123456789");
    const std::string usage = "usage: keel...";
    expectRuns({
        {{"--help"}, 0, usage, ""},
        {{"text", "--help"}, 0, usage, ""},
        {{"text", "convert", "--help"}, 0, usage, ""},
        {{"catalog", "--help"}, 0, usage, ""},
        {{"catalog", "dump", "--help"}, 0, usage, ""},
        {{"trace", "check", "--help"}, 0, usage, ""},
        {{"reg", "--help"}, 0, usage, ""},
        {{}, 2, "", "usage: keel"},
        {{"frobnicate"}, 2, "", "no command 'frobnicate'"},
        {{"text"}, 2, "", "which action?"},
        {{"text", "convert", "--to", "utf8"}, 2, "", "--from is missing"},
        {{"text", "convert", "--from", "utf8"}, 2, "", "--to is missing"},
        {convert("UTF-8", "utf8"), 2, "", "no encoding 'UTF-8'"},
        {{"text", "convert", "--from", "utf8", "--to"}, 2, "", "needs a value"},
        {convert("utf8", "utf8", {"--frob"}), 2, "", "unknown option '--frob'"},
        {convert("utf8", "utf8", {"a", "b", "c"}), 2, "", "too many operands"},
        {{"catalog", "compile", "only-one"}, 2, "", "an operand is missing"},
        {{"catalog", "lookup", path("notacatalog"), "banana"}, 2, "", "'banana' is no code"},
        {{"trace", "check", "a", "b"}, 2, "", "too many operands"},
        // Nothing to read: the old output stays as it was.
        {convert("utf8", "utf16", {path("missing"), path("kept.txt")}), 1, "", "cannot open"},
        // A character without a form: converted and replaced, reported with status 1.
        {convert("utf8", "ascii", {path("cafe.txt"), path("out.txt")}), 1, "",
         "without a form in ascii"},
        {convert("utf8", "utf16", {dir}), 1, "", "cannot read"},
        {convert("utf8", "utf16", {path("text.txt"), path("no/such/dir/out")}), 1, "",
         "cannot create a file beside"},
        {convert("utf8", "utf16", {path("text.txt"), path("text.txt")}), 1, "",
         "is the input file"},
        {{"catalog", "dump", path("notacatalog")}, 1, "", "fewer than the 12 of a catalog header"},
        {{"catalog", "lookup", path("missing"), "s1m1"}, 1, "", "cannot open"},
        {{"trace", "check", path("missing")}, 1, "", "cannot read"},
    });
    EXPECT_EQ("abc\n", readFile("text.txt"));
    EXPECT_EQ("precious", readFile("kept.txt"));
    EXPECT_EQ("caf~", readFile("out.txt"));
}

TEST_F(KeelToolTest, CatalogRoundTrip) {
    writeFile("app.fr.txt",
              "# messages of the application\n"
              "203 17 w Le disque est presque plein\n"
              "203 16 e Impossible d'ouvrir le fichier '%1$S'\n"
              "0x12 7 - {w} d\\xc3\\xa9j\\xc3\\xa0 vu\\n\n");
    writeFile("bad.txt", "203 16 e one\n203 16 e twice\n");
    const std::string found = "{e} Impossible d'ouvrir le fichier '%1$S'\n";
    const std::string cat = path("again.cat");
    expectRuns({
        // Out of order is a warning.
        {{"catalog", "compile", path("app.fr.txt"), path("app.fr.cat")}, 0, "", "warning"},
        {{"catalog", "dump", path("app.fr.cat"), path("dumped.txt")}, 0, "", ""},
        {{"catalog", "compile", path("dumped.txt"), cat}, 0, "", ""},
        // The code in each of its forms, as the library finds it.
        {{"catalog", "lookup", cat, "s203m16"}, 0, found, ""},
        {{"catalog", "lookup", cat, "0xE0CB0010"}, 0, found, ""},
        {{"catalog", "lookup", cat, "3771400208"}, 0, found, ""},
        {{"catalog", "lookup", cat, "s18m7"}, 0, "{w} d\xc3\xa9j\xc3\xa0 vu\n\n", ""},
        {{"catalog", "lookup", cat, "s203m18"}, 1, "", "keel: '" + cat + "': no message s203m18\n"},
        // A source with an error makes no catalog, and names the line.
        {{"catalog", "compile", path("bad.txt"), path("bad.cat")}, 1, "", "line 2"},
    });
    EXPECT_EQ(readFile("app.fr.cat"), readFile("again.cat"));
    EXPECT_EQ(readFile("dumped.txt"), keel({"catalog", "dump", cat}).out);
    EXPECT_EQ("<missing>", readFile("bad.cat"));
}

// Encodings by name on each side, the marks and what is cut off by the end
// (each input comes on standard input); every pair of encodings, marks,
// broken sequences and piece borders are the converter's model test's. Bytes are
// written with octal escapes (at most three digits), so a letter may follow
// one directly. Then --check of the file: the first problem and its offset.
TEST_F(KeelToolTest, ConversionsAndChecks) {
    const ArgsT plain = {"--no-mark"};
    auto check = [this](const char* from, const char* to = nullptr) {
        return to ? convert(from, to, {"--check", path("in")})
                  : ArgsT{"text", "convert", "--check", "--from", from, path("in")};
    };
    expectRuns({
        {convert("utf8", "utf16le"), 0, "\377\376c\0a\0f\0\351\0"s, "", "caf\303\251"},
        {convert("utf8", "utf16be"), 0, "\376\377\0c\0a\0f\0\351"s, "", "caf\303\251"},
        {convert("utf8", "utf16"), 0, "\377\376c\0a\0f\0\351\0"s, "", "caf\303\251"},
        {convert("utf8", "utf16be", plain), 0, "\0c\0a\0f\0\351"s, "", "caf\303\251"},
        {convert("iso-8859-1", "utf8"), 0, "\357\273\277caf\303\251", "", "caf\351"},
        {convert("system-8", "utf8", plain), 0, "\357\273\277a", "", "\357\273\277a"},
        {convert("utf16", "utf8", plain), 0, "A\344\270\255", "", "\376\377\0AN-"s},
        {convert("utf16be", "utf8", plain), 0, "\357\277\276A", "", "\377\376\0A"s},
        // Cut off by the end: U+FFFD instead of nothing.
        {convert("utf8", "utf8", plain), 0, "ab\357\277\275", "", "ab\344\270"},
        {convert("utf16le", "utf8", plain), 0, "A\357\277\275", "", "A\0B"s},
        {convert("utf16le", "utf8", plain), 0, "A\357\277\275", "", "A\0=\330"s},
        {convert("wchar_t", "utf8", plain), 0, "A\357\277\275", "", "A\0\0\0B\0"s},
        {convert("wchar_t", "utf8", plain), 0, "A\357\277\275", "", "A\0\0\0\0\0\0\200"s},
        {convert("utf8", "utf16le", plain), 0, "a\0\0\0b\0"s, "", "a\0b"s},
        {check("utf8"), 0, "", "", "caf\303\251"},
        {check("utf8"), 1, "", "invalid utf8 sequence E4 at byte 2", "ab\344A"},
        {check("utf8"), 1, "", "invalid utf8 sequence 80 at byte 4", "\357\273\277a\200"},
        {check("utf8"), 1, "", "sequence E4 B8 cut off by the end of the input at byte 3",
         "abc\344\270"},
        {check("utf8"), 1, "", "invalid utf8 sequence FE at byte 1", "a\376"},
        {check("ascii"), 1, "", "invalid ascii sequence E9 at byte 3", "abc\351"},
        {check("iso-8859-1"), 0, "", "", "abc\351\377"},
        {check("utf16le"), 1, "", "invalid utf16le sequence 00 DC at byte 2", "a\0\0\334b\0"s},
        {check("utf16"), 1, "", "invalid utf16 sequence D8 00 at byte 4", "\376\377\0a\330\0\0b"s},
        {check("utf16be"), 1, "", "cut off by the end of the input at byte 2", "\0a\0"s},
        {check("wchar_t"), 1, "", "invalid wchar_t sequence 00 00 00 80 at byte 4",
         "a\0\0\0\0\0\0\200"s},
        {check("utf8", "iso-8859-1"), 0, "", "", "caf\303\251"},
        {check("utf8", "ascii"), 1, "", "U+00E9 has no form in ascii at byte 3", "caf\303\251"},
        {check("utf8", "utf16"), 1, "", "U+200000 has no form in utf16 at byte 1",
         "a\370\210\200\200\200"},
        {check("utf16le", "iso-8859-1"), 1, "", "U+4E2D has no form in iso-8859-1 at byte 2",
         "a\0-N"s},
    });
}

// 100 MB through the tool: the peak resident set size of the child stays
// under 16 MB, for both directions of a conversion that changes every size.
// Progress is shown when stderr is a terminal, and only then.
TEST_F(KeelToolTest, HundredMegabytesInConstantMemoryWithProgressOnATerminal) {
    const std::string line =
        "Gr\xc3\xbc\xc3\x9f"
        "e aus K\xc3\xb6ln, \xe4\xb8\xad\xe6\x96\x87 and plain text, \xF0\x9F\x98\x80.\n";
    const size_t total = 100u << 20;
    std::string block;  // written in blocks, never held whole
    while (block.size() < (1u << 20)) block += line;
    {
        std::ofstream big(path("big.txt"), std::ios::binary);
        for (size_t written = 0; written < total; written += block.size()) big << block;
        ASSERT_TRUE(big.good());
    }
    const ArgsT args = convert("utf8", "utf16le", {path("big.txt"), path("big16")});
    ProgramRunT there = keel(args);
    ASSERT_TRUE(there.exited(0)) << there.err;
    EXPECT_EQ("", there.err);
    ProgramRunT back =
        keel(convert("utf16le", "utf8", {"--no-mark", path("big16"), path("back.txt")}));
    ASSERT_TRUE(back.exited(0)) << back.err;
    printf("peak RSS of keel text convert on %zu MB: to utf16le %ld KiB, back %ld KiB\n",
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
        ProgramRunT small = keel(convert("utf8", "utf16le", {path("small.txt"), path("small16")}));
        ASSERT_TRUE(small.exited(0)) << small.err;
        printf("under the emulator one line takes %ld KiB\n", small.maxRssKb);
        limit += small.maxRssKb;
    }
    EXPECT_LT(there.maxRssKb, limit);
    EXPECT_LT(back.maxRssKb, limit);
#endif
    // Compared through stream buffers, never held whole.
    std::ifstream a(path("big.txt"), std::ios::binary), b(path("back.txt"), std::ios::binary);
    typedef std::istreambuf_iterator<char> ByteT;
    EXPECT_TRUE(std::equal(ByteT(a), ByteT(), ByteT(b), ByteT()));

    int master = -1;
    pid_t child = forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        int null = ::open("/dev/null", O_RDWR);  // the error stream alone on the terminal
        _exit(testkit::runProgram(testkit::builtProgram("bin/keel"), args, {null, null, 2}) != 0);
    }
    // The lines are few (one per percent), far below what the terminal holds.
    std::string shown;
    char chunk[4096];
    for (ssize_t got; (got = read(master, chunk, sizeof chunk)) > 0 || (got < 0 && errno == EINTR);)
        shown.append(chunk, std::max<ssize_t>(got, 0));
    EXPECT_TRUE(testkit::waitFor(child) == 0);
    ::close(master);
    EXPECT_NE(std::string::npos, shown.find("keel: 100% of 100 MB")) << shown;
}

TEST_F(KeelToolTest, TraceCheckTellsWhatTheControlFileSwitchesOn) {
    writeFile("control",
              "# tracing for the support case\ntimestamp = yes\nfilename = " + path("app%_u.trc") +
                  "\nError\n3,Net/Socket\n-Error/Occurrence\n*/Catalog\nError = 1\n"
                  "show_threads = maybe\nmax_detail = 5\n" +
                  std::string(300, 'x') + "\n");
    ProgramRunT run = keel({"trace", "check", path("control")});
    ASSERT_TRUE(run.exited(0)) << run.err;
    // The name expands as the consumer will expand it; nothing is created.
    for (const std::string& text : {
             "Trace file:   " + path("app.trc") + "\n",
             "Consumer:     the trace file, detail level 5 (max_detail)"s,
             " timestamp=1 "s,
             "line 4   on       Error (detail 1): traced, with 4 levels below it"s,
             "line 5   on       Net/Socket (detail 3): traced, with 2 levels below it"s,
             "line 6   off      Error/Occurrence"s,
             "line 7   pattern  Catalog"s,
             "line 8   'Error = 1': no option 'Error'"s,
             "line 9   'show_threads = maybe': the value is no number"s,
             "line 11  is longer than 255 bytes"s,
         }) {
        EXPECT_NE(std::string::npos, run.out.find(text)) << text << "\n" << run.out;
    }
    EXPECT_EQ("<missing>", readFile("app.trc"));
    // From standard input the same, but for the name of the file.
    std::string fromInput = keel({"trace", "check"}, path("control")).out;
    EXPECT_EQ(run.out.substr(run.out.find('\n')), fromInput.substr(fromInput.find('\n')));
    writeFile("empty", "# nothing\n");
    EXPECT_NE(std::string::npos,
              keel({"trace", "check", path("empty")}).out.find("none: nothing is traced"));
}

// What the tool sets a program of the SDK reads, and the other way round:
// one sequence of runs of either (the program's words start with "client"),
// and what fails (2 with the usage hint, 1 with the registry's code).
TEST_F(KeelToolTest, RegistryBesideAProgram) {
    const std::string ini = path("conf/app.ini");  // the directory is made by the first commit
    const std::string mount = "--mount=" + ini + "=HKLM\\Software\\App";
    const std::string usage = "Try 'keel reg", key = "HKLM\\Software\\App\\Window",
                      grusse = "Gr\u00FC\u00DFe";
    auto reg = [&](const char* action, ArgsT args) {
        args.insert(args.begin(), {"reg", action, mount});
        return args;
    };
    auto start = [&](const ArgsT& args) {
        if (args[0] != "client") return keel(args);
        // get or set a value of the key Window.
        ArgsT all = {args[1], ini, "HKLM", "Software\\App", "Software\\App\\Window"};
        all.insert(all.end(), args.begin() + 2, args.end());
        return testkit::runCaptured(testkit::builtProgram("tests/regclient_main"), all);
    };
    expectRuns(
        {
            {reg("set", {key + "\\Width", "640"}), 0, "", ""},
            {{"client", "get", "Width"}, 0, "640\n", ""},
            {{"client", "set", "Title", "Hello"}, 0, "", ""},
            {reg("get", {key + "\\Title"}), 0, "Hello\n", ""},
            // Text beyond ASCII, whole both ways.
            {reg("set", {key + "\\Title", grusse}), 0, "", ""},
            {{"client", "get", "Title"}, 0, grusse + "\n", ""},
            {reg("list", {key}), 0, "Width=640\nTitle=" + grusse + "\n", ""},
            {reg("set", {key + "\\Pos\\X", "3"}), 0, "", ""},
            {reg("list", {key}), 0, "Pos\\\nWidth=640\nTitle=" + grusse + "\n", ""},
        },
        start);
    // The file as a program leaves it: a mark, sections, no companions left.
    EXPECT_EQ(0u, readFile("conf/app.ini").find("\xEF\xBB\xBF"));
    EXPECT_NE(std::string::npos, readFile("conf/app.ini").find("[Window]"));
    EXPECT_EQ("<missing>", readFile("conf/app.ini.lck"));
    EXPECT_EQ("<missing>", readFile("conf/app.ini.tmp"));
    // Removal, and what fails.
    expectRuns(
        {
            {reg("delete", {key + "\\Width"}), 0, "", ""},
            {reg("get", {key + "\\Width"}), 1, "", "not found (0xE1370069)"},
            {{"client", "get", "Width"}, 1, "", ""},
            {reg("delete", {"--key", key}), 1, "", "not empty"},
            {reg("delete", {"--key", "--recursive", key}), 0, "", ""},
            {{"client", "get", "Title"}, 1, "", ""},
            {reg("list", {"HKLM\\Software\\App"}), 1, "", "mount point"},
            {reg("get", {"Nowhere\\X"}), 1, "", "0xE1370077"},
            // No --mount, a mount without a point, an unknown root.
            {{"reg", "get", "HKLM\\Software\\App\\X"}, 2, "", usage},
            {{"reg", "get", "--mount", ini, "HKLM\\Software\\App\\X"}, 2, "", usage},
            {{"reg", "get", "--mount", ini + "=HKXX\\A", "HKLM\\A\\X"}, 2, "", usage},
            {reg("set", {key + "\\X"}), 2, "", usage},
            {reg("get", {"--recursive", key + "\\X"}), 2, "", usage},
            {{"reg", "frob"}, 2, "", usage},
        },
        start);
}

// Four processes run "reg set" at the same time, five values each, under one
// key: every commit merges into what the file holds once its lock is taken,
// so all twenty values stay and no companion file is left.
TEST_F(KeelToolTest, FourRegSetsAtOnceLoseNothing) {
    const std::string mount = "--mount=" + path("conf/app.ini") + "=HKLM\\Software\\App";
    auto name = [](int w, int i) { return "w" + std::to_string(w) + "v" + std::to_string(i); };
    EXPECT_TRUE(testkit::runForked(4, [&](int w) {
        int failed = 0;
        for (int i = 0; i < 5; ++i) {
            failed += testkit::runProgram(
                          testkit::builtProgram("bin/keel"),
                          {"reg", "set", mount, "HKLM\\Software\\App\\Shared\\" + name(w, i),
                           name(w, i)}) != 0;
        }
        return failed;
    }));
    ProgramRunT run = keel({"reg", "list", mount, "HKLM\\Software\\App\\Shared"});
    ASSERT_TRUE(run.exited(0)) << run.err;
    for (int w = 0; w < 4; ++w)
        for (int i = 0; i < 5; ++i)
            EXPECT_NE(std::string::npos, run.out.find(name(w, i) + "=" + name(w, i) + "\n"))
                << name(w, i) << " lost:\n"
                << run.out;
    EXPECT_EQ("<missing>", readFile("conf/app.ini.lck"));
}

}  // namespace
}  // namespace keel
