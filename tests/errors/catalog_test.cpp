// Message catalogs and the catalog switch: the compiler and dumper round trip
// and their refusals, the reader's edge cases on real files, "%L" expansion,
// what the switch traces, random catalogs against a plain map, the three
// shapes of a text and the severity letters, the fall-through to default and
// system texts, and the forms that no model asks (what a report stores of a
// text, and its rendering, are the report model's in
// tests/testing/reportmodel.h).
#include <gtest/gtest.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <keel/keel.h>

#include "catalogtool.h"
#include "errors/catalog.h"
#include "errors/errapi.h"
#include "errors/error.h"
#include "locale/locale.h"
#include "testing/catalogfiles.h"
#include "testing/tracelines.h"

namespace keel {
namespace {

using catalogtool::DiagnosticT;
using testkit::CatalogDirC;
using testkit::TempDirC;

// What the compiler or the dumper says of `input`: "refused" when it
// refuses, then its diagnostics, one a line. Its output goes to `output`.
typedef bool ToolT(const std::string&, std::string&, std::vector<DiagnosticT>&);
std::string said(ToolT* tool, const std::string& input, const char* unit,
                 std::string* output = nullptr) {
    std::string out, text;
    std::vector<DiagnosticT> diagnostics;
    if (!tool(input, out, diagnostics)) text = "refused\n";
    for (const DiagnosticT& d : diagnostics) text += catalogtool::describe(d, unit) + "\n";
    if (output) *output = out;
    return text;
}

std::string compiled(const std::string& source) {
    std::string binary;
    EXPECT_EQ("", said(catalogtool::compileCatalog, source, "line", &binary)) << source;
    return binary;
}

std::string big32(uint32_t v) {
    return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
}

// A record: set, length, number, offset.
std::string record(uint16_t set, uint16_t length, uint32_t number, uint32_t offset) {
    return std::string{char(set >> 8), char(set)} + std::string{char(length >> 8), char(length)} +
           big32(number) + big32(offset);
}

// The canonical source of every shape a stored text can take.
const char kCanonical[] =
    "0 2 w Fichier absent\n"
    "203 16 e Impossible d'ouvrir le fichier '%1$S' \xc3\xa9t\xc3\xa9\n"
    "203 17 -\n"
    "203 18 - plain text, severity 4\n"
    "203 19 - \\x01\\x01w\\x01Probl\xc3\xa8me\\x01Raison\\x01Solution\n"
    "203 20 Xf \\x20two blanks\\x20\n"
    "203 21 e\n"
    "203 22 - {w}no blank after the brace\n"
    "203 23 - tab\\there, back\\\\slash, line\\nend, cr\\r, nul\\x00, del\\x7F\n"
    "4095 65535 # last code that can be looked up\n";

TEST(CatalogToolTest, RoundTripIsByteIdentical) {
    std::string binary = compiled(kCanonical), source;
    EXPECT_EQ("", said(catalogtool::dumpCatalog, binary, "record", &source));
    EXPECT_EQ(kCanonical, source);
    EXPECT_EQ(binary, compiled(source));
    // The stored bytes are the exact format: header, sorted index, texts.
    ASSERT_EQ(std::string("tavrinoc") + big32(10), binary.substr(0, 12));
    EXPECT_EQ(record(0, 18, 2, 12 + 12 * 10), binary.substr(12, 12));
    EXPECT_EQ("{w} Fichier absent", binary.substr(12 + 12 * 10, 18));
    // A source in another order, with comments and CR LF, gives the same file.
    std::string lines(kCanonical), again;
    EXPECT_EQ(
        "line 4: warning: s4095m65535 is out of order (line 13 has s203m23, which sorts "
        "before it); entries are sorted\n",
        said(catalogtool::compileCatalog,
             "# translated\r\n\n   \t\n4095 65535 # last code that can be looked up\r\n" +
                 lines.substr(0, lines.rfind("4095")),
             "line", &again));
    EXPECT_EQ(binary, again);
}

// Refusals and warnings of the compiler (by line) and of the dumper (by
// record) on sources and corrupt files, one row per check (the header too
// short is the keel tool test's; that the library reads what it can of any
// bytes is catalog_fuzz's).
TEST(CatalogToolTest, RefusalsNameTheirLineOrRecord) {
    const std::string longText = "1 1 - " + std::string(65535, 'a');
    const std::string good = compiled("1 1 e one\n1 2 e two\n2 1 e three\n");
    auto patched = [&good](size_t at, const std::string& bytes) {
        return std::string(good).replace(at, bytes.size(), bytes);
    };
    // Compiled (else dumped), input, the start of what the tool says.
    const std::tuple<bool, std::string, const char*> cases[] = {
        {true, "1 1 e a\n1 1 w b\n", "refused\nline 2: error: s1m1 is a duplicate of line 1"},
        {true, "x 1 e a\n", "refused\nline 1: error: set 'x' is not a number from 0 to 65535"},
        {true, "1 0x100000000 e a\n",
         "refused\nline 1: error: number '0x100000000' is not a number from 0 to 4294967295"},
        {true, "# c\n1 1\n", "refused\nline 2: error: severity missing"},
        {true, "1 1 ex a\n", "refused\nline 1: error: severity 'ex' is not made of the letters"},
        {true, "1 1 e a\\q\n", "refused\nline 1: error: unknown escape \\q"},
        {true, "1 1 e a\\x4\n",
         "refused\nline 1: error: \\x must be followed by two hexadecimal digits"},
        {true, "1 1 e a\\\n", "refused\nline 1: error: a backslash ends the line"},
        {true, "4096 1 e a\n", "line 1: warning: s4096m1 can never be looked up"},
        {true, longText + "a\n", "refused\nline 1: error: "},
        {true, longText + "\n", ""},
        {false, "tavrinoX" + big32(0), "refused\nerror: not a keel message catalog"},
        {false, good.substr(0, 40),
         "refused\nerror: the header announces 3 messages, but the file of 40 bytes holds index "
         "records for only 2"},
        {false, patched(8, big32(4)), "refused\nrecord 4: error: "},
        {false, patched(12 + 12 + 8, big32(1000)),
         "refused\nrecord 2: error: s1m2: text at offset 1000, 7 bytes long, runs past the end "
         "of the file"},
        {false, patched(12 + 24, record(1, 5, 1, 48)),
         "refused\nrecord 3: error: s1m1 does not sort above the record before it (s1m2)"},
        {false, patched(12 + 8, big32(12 + 36 + 8)),
         "warning: the texts are not laid out one after the other"},
        {false, "tavrinoc" + big32(0), ""},
    };
    for (const auto& [compile, input, expected] : cases) {
        std::string all = compile ? said(catalogtool::compileCatalog, input, "line")
                                  : said(catalogtool::dumpCatalog, input, "record");
        EXPECT_EQ(0u, all.find(expected)) << expected << " gave:\n" << all;
    }
}

struct CatalogFilesTest : ::testing::Test {
    CatalogDirC dir;
};

// The reader's edge cases, each on a file of its own. Misses between codes
// are the random model test's; offsets past the end, cut files and absurd
// counts are catalog_fuzz's, which compares every answer with the tool's
// reading of the same bytes. A catalog without a file is the process
// catalog behind every default text of the catalog switch's table.
TEST_F(CatalogFilesTest, ReaderEdgeCases) {
    const std::string good = compiled("1 1 w first\n1 7 - {i} middle\n1 9 -\n7 3 - last\n");
    // Name, bytes, code, default text, text, severity, open.
    const std::tuple<const char*, std::string, uint32_t, const char*, const char*, uint32_t, bool>
        cases[] = {
            {"zero", "tavrinoc" + big32(0), 0xE0010001, "", "", 4, true},
            {"short", "tavrinoc\0\0\0", 0xE0010001, "", "", 4, false},
            {"magic", "Tavrinoc" + big32(4) + good.substr(12), 0xE0010001, "", "", 4, false},
            {"first", good, 0xE0010001, "", "first", 3, true},
            {"bit29", good, 0xC0010001, "", "", 4, true},
            {"bit29d", good, 0xC0010001, "{w} default", "default", 3, true},
            {"default", good, 0xE0010002, "\001\001i\001d\303\251faut", "d\303\251faut", 2, true},
        };
    for (const auto& [name, bytes, code, defaultText, expected, severity, open] : cases) {
        SCOPED_TRACE(name);
        ErrCatalogC catalog(StringC(dir.write(name, bytes).c_str(), "utf8"));
        uint32_t fetched = 99;
        EXPECT_EQ(expected, str(catalog.fetch(&fetched, code, defaultText, nullptr)));
        EXPECT_EQ(std::make_pair(severity, open), std::make_pair(fetched, catalog.isOpen()));
    }
}

// "%L" is filled with the region's names (empty here), tried in turn, and
// last the name without a locale; a name without "%L" is opened as it stands.
// Every file but the expected one is too short to be a catalog, so only the
// expected one can answer.
TEST_F(CatalogFilesTest, LocaleExpansionOfTheName) {
    const std::string catalog = compiled("5 5 - found\n");
    // Template, the files in the scratch directory, the one opened.
    const std::tuple<const char*, std::vector<const char*>, const char*> cases[] = {
        {"allcat.%L.cat", {"allcat.cat"}, "allcat.cat"},
        {"allcat.%L.cat", {"allcat.cat", "allcat.-.cat"}, "allcat.-.cat"},
        {"sub/%L/x.cat", {"sub/x.cat"}, "sub/x.cat"},
        {"%Lx.cat", {"x.cat"}, "x.cat"},
        {"plain.cat", {"plain.cat", "plain"}, "plain.cat"},
        {"absent.%L.cat", {}, nullptr},
    };
    char original[4096];
    ASSERT_NE(nullptr, getcwd(original, sizeof original));
    for (const auto& [templateName, files, expected] : cases) {
        SCOPED_TRACE(templateName);
        TempDirC scratch;
        ASSERT_EQ(0, mkdir(scratch.file("sub").c_str(), 0777));
        for (const char* file : files)
            scratch.write(file, expected && strcmp(file, expected) == 0 ? catalog : "x");
        // A template that starts with the place: relative to the working directory.
        bool relative = templateName[0] == '%';
        ASSERT_EQ(0, chdir(relative ? scratch.path().c_str() : original));
        std::string name = relative ? std::string(templateName) : scratch.file(templateName);
        ErrCatalogC opened(StringC(name.c_str(), "utf8"));
        EXPECT_EQ(expected != nullptr, opened.isOpen());
        EXPECT_EQ(expected ? "found" : "", str(opened.fetch(nullptr, 0xE0050005, "", nullptr)));
        ASSERT_EQ(0, chdir(original));  // out of the scratch directory before it goes
    }
}

// What the switch traces: the texts it finds in a catalog (a system text
// too, as the process catalog's), not a default text, and the catalog
// changes; a process catalog that cannot be used leaves an empty one and
// still answers 0. Which catalog answers first is the report model's
// (tests/testing/reportmodel.h).
TEST_F(CatalogFilesTest, FetchesAndCatalogChangesAreTraced) {
    std::string process =
        dir.compile("process.cat", "0 2 - {w} fichier absent\n203 16 e Impossible d'ouvrir\n");
    auto text = [](uint32_t code, const char* defaultText) {
        uint32_t severity = 0;
        std::string t = str(errorText(&severity, code, defaultText));
        return t + " " + std::to_string(severity);
    };
    ErrCatalogI* before = moduleCatalogCell().exchange(new ErrCatalogC(StringC()));
    {
        testing_errors::TraceLinesC fetch("Error/Catalog/Fetch"), open("0Error/Catalog/Open");
        setModuleCatalogEmpty();
        EXPECT_EQ(0u, setProcessCatalog(dir.file("missing.cat").c_str()));
        EXPECT_EQ("default 4", text(0xE0CB0010, "default"));
        EXPECT_EQ(0u, setProcessCatalog(process.c_str()));
        EXPECT_EQ("Impossible d'ouvrir 4", text(0xE0CB0010, "default"));
        EXPECT_EQ("fichier absent 3", text(0xE0000002, nullptr));
        EXPECT_EQ(strerror(3) + std::string(" 4"), text(0xE0000003, nullptr));
        EXPECT_EQ("default 4", text(0xE0CB0099, "default"));
        const std::string from = "Error/Catalog/Fetch Message s", to = "0Error/Catalog/Open ";
        EXPECT_EQ(
            (std::vector<std::string>{from + "203m16 from process catalog: Impossible d'ouvrir",
                                      from + "0m2 from process catalog: fichier absent",
                                      from + "0m3 from process catalog: " + strerror(3)}),
            fetch.lines);
        EXPECT_EQ((std::vector<std::string>{
                      to + "Replaced previous catalog with empty one",
                      to + "Setting process message catalog to " + dir.file("missing.cat"),
                      to + "Setting process message catalog to " + process}),
                  open.lines);
    }
    EXPECT_EQ(0u, setProcessCatalog(nullptr));
    delete moduleCatalogCell().exchange(before);
}

// Random catalogs against a plain map: every code asked gives the map's
// answer, found or not, through the file on disk (the same reader behind the
// language facet is the report model's process catalog).
TEST_F(CatalogFilesTest, RandomCatalogsAgainstAModel) {
    std::mt19937 random(17);
    for (int round = 0; round < 40; ++round) {
        std::map<uint32_t, std::string> model;  // by code
        std::string source;
        for (int i = random() % (round < 5 ? 3 : 300); i > 0; --i) {
            uint32_t set = random() % 4, number = random() % 50;
            std::string text = "t" + std::to_string(random() % 100000);
            if (model.emplace(0xE0000000u | set << 16 | number, text).second)
                source += std::to_string(set) + " " + std::to_string(number) + " - " + text + "\n";
        }
        std::string path = dir.compile("random" + std::to_string(round), source);
        ErrCatalogC catalog(StringC(path.c_str(), "utf8"));
        ASSERT_EQ(model.size(), catalog.recordCount());
        for (int probe = 0; probe < 200; ++probe) {
            uint32_t set = random() % 5, code = 0xE0000000u | set << 16 | random() % 52;
            std::string expected = model.count(code) ? model[code] : "";
            EXPECT_EQ(expected, str(catalog.fetch(nullptr, code, "", nullptr)));
        }
    }
}

// Each text as errorText gives it, with its severity.
TEST(CatalogSwitchTest, DefaultTextsByShape) {
    // Code, default text, the text given, its severity.
    const std::tuple<uint32_t, const char*, const char*, uint32_t> cases[] = {
        {0xE0CB0005, "plain %d 100% %1$S", "plain %d 100% %1$S", 4},
        {0xE0CB0005, "{w} Disk almost full", "Disk almost full", 3},
        {0xE0CB0005, "{f}\tTabbed", "Tabbed", 5},
        {0xE0CB0005, "{w}  Two blanks", " Two blanks", 3},
        {0xE0CB0005, "{Xw} capital", "capital", 4},
        {0xE0CB0005, "{Xwi}", "", 2},
        {0xE0CB0005, "{m", "", 1},
        {0xE0CB0005, "{#} silent", "silent", 0},
        {0xE0CB0005, "\001\001e\001Cannot obtain length", "Cannot obtain length", 4},
        {0xE0CB0005, "\x01\x01w\x01P\x01R\x01S", "P\x01R\x01S", 3},
        {0xE0CB0005, "\x01\x01i\x01P\x01R", "P\x01R", 2},
        {0xE0CB0005, "\x01\x01w\x01P\x01R\x01S\x01sel\x01f\x01Chosen never", "P\x01R\x01S", 3},
        {0xE0CB0005, "\001\001i\001First\001\001\001\001m\001Second", "Second", 1},
        {0xE0CB0005, "\x01sel\x01w\x01Only selected", "", 4},
        {0xE0CB0005, "\x01", "", 4},
        {0xE0CB0005, nullptr, "", 4},
        {0xE0000002, nullptr, strerror(2), 4},
        {0xE0000002, "ignored", strerror(2), 4},
        {0xE0000000, nullptr, strerror(0), 4},
        {0x00000002, "no bit 29", "no bit 29", 4},
        {0xE0150003, nullptr, "", 4},
        {0, nullptr, "", 4},
    };
    for (const auto& [code, text, expected, severity] : cases) {
        uint32_t given = 99;
        EXPECT_EQ(std::make_pair(std::string(expected), severity),
                  std::make_pair(str(errorText(&given, code, text)), given))
            << (text ? text : "(null)");
    }
}

// The forms without a severity, null texts, code 0, and system errors by
// errno: the answers, and what their reports store (code, severity, text).
TEST(CatalogSwitchTest, FormsWithoutSeverityAndSystemErrors) {
    ArgListC args;
    args.add(StringC("/no/such", "ascii"));
    EXPECT_EQ("at '/no/such'", str(errorText(0xE0CB0011, "{e}at '%1$S'", args)));
    EXPECT_EQ("stays %1$S", str(errorText(0xE0CB0011, "stays %1$S")));
    EXPECT_EQ("", str(errorTextFormat(nullptr, 0xE0CB0011, nullptr)));
    ErrBufI* errors = getErrBuf();
    errors->takeText(nullptr);
    EXPECT_EQ(0u, reportError(0, nullptr, ArgListC()));
    errno = EEXIST;
    EXPECT_EQ(0xE0000011u, reportSystemError());
    errno = 0;
    EXPECT_EQ(0u, reportSystemError());
    std::vector<std::string> stored;
    for (uint32_t i = 0; i < errors->getCount(); ++i) {
        ErrEntryI* entry = errors->getEntry(i);
        char head[32];
        snprintf(head, sizeof head, "%08X %u ", entry->getCode(), entry->getSeverity());
        stored.push_back(head + str(entry->getText()));
    }
    errors->takeText(nullptr);
    EXPECT_EQ((std::vector<std::string>{
                  "00000000 4 ", "E0000011 4 " + std::string(strerror(EEXIST)), "00000000 4 "}),
              stored);
    EXPECT_EQ(0xE000FFFFu, systemErrorCode(0x1FFFF));
    EXPECT_EQ(nullptr, severityName(6));
    EXPECT_EQ(0u, getCatalogSwitch()->setQualifiers(StringC()));
    EXPECT_EQ(getCatalogSwitch(), getCatalogSwitch());
}

}  // namespace
}  // namespace keel
