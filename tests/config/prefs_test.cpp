// The preference store: loading ini text, the records' states, the plain
// write, the merge into a file that changed meanwhile, the per-thread lists,
// and random operation sequences against a plain model.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "config/prefs.h"
#include "testing/modelrun.h"
#include "testing/prefsmodel.h"
#include "testing/tempdir.h"

namespace keel {
namespace {

const std::string kMark = "\xEF\xBB\xBF";

using namespace std::string_literals;
using prefsmodel::dump;
using prefsmodel::records;

class PrefsTest : public testkit::TempDirTest {};

TEST_F(PrefsTest, LoadsLinesAsTheRulesSay) {
    struct CaseT {
        const char* text;
        bool strict, continuation, result;
        const char* content;
    } cases[] = {
        {"\xEF\xBB\xBF;c\n[a]\nx = 1 \n\n;d\ny=2\n", false, false, true, "[a]x=1;y=2;"},
        {"k=1\n[a]\nx=1", false, false, true, "[a]x=1;"},
        {"k=1\n[a]\nx=1", true, false, false, ""},
        {"[a]\n=x\nb=\n", false, false, true, "[a]b=;"},
        {"[a]\nx=1\ny=2\n[b]\nz=3\n[A]\nX=4\n", false, false, true, "[a]x=4;y=2;[b]z=3;"},
        {"[ a ]junk\nk=1", false, false, true, "[a]k=1;"},
        {"[a]\n[b\nk=1", false, false, true, "[a]k=1;"},
        {"[a]\n[b\nk=1", true, false, false, ""},
        {"[a]\n[ ]\nk=1", false, false, true, "[a]"},
        {"[a]\nk=1\\\n 2\nm=3\\\\\n", false, true, true, "[a]k=12;m=3\\\\;"},
        {"[a]\nk=1\\\n 2\nm=3\\\\\n", false, false, true, "[a]k=1\\;m=3\\\\;"},
        {"[a]\nk=1\\", false, true, true, "[a]"},
        {"[a]\rk=1\r\nm=2", false, false, true, "[a]k=1;m=2;"},
    };
    for (const CaseT& c : cases) {
        SCOPED_TRACE(c.text);
        writeFile("a.ini", c.text);
        PrefsC prefs;
        prefs.setValue("old", "k", "v", false);
        EXPECT_EQ(c.result, prefs.load(path("a.ini").c_str(), c.strict, c.continuation));
        EXPECT_EQ(c.content, dump(prefs));
        EXPECT_EQ(c.result ? path("a.ini") : "", prefs.getFileName() ? prefs.getFileName() : "");
    }
    // A missing file leaves the store as it was and no error behind.
    PrefsC prefs;
    prefs.setValue("s", "k", "v", false);
    EXPECT_FALSE(prefs.load(path("none.ini").c_str(), false, false));
    EXPECT_FALSE(prefs.load("", false, false));
    EXPECT_EQ("[s]k=v;", dump(prefs));
    EXPECT_TRUE(testkit::errorCodes().empty());
}

TEST_F(PrefsTest, MergesChangesIntoTheCurrentFile) {
    struct CaseT {
        const char *loaded, *current;  // current: null for the same, "" for no file
        std::function<void(PrefsC&)> change;
        std::string expected;
    } cases[] = {
        {";top\n[s]\n;c1\n\n\nb = 1\na=2\n", nullptr,
         [](PrefsC& p) { p.setValue("s", "a", "3", true); }, ";top\n[s]\n;c1\n\nb = 1\na=3\n"},
        {"[s]\n;keep\nk=1\n[t]\nx=1\n", nullptr, [](PrefsC& p) { p.deleteSection("s", false); },
         ";keep\n[t]\nx=1\n"},
        {"[s]\nk=1\n", nullptr,
         [](PrefsC& p) { p.setValue("s", "n", "2", true), p.setValue("u", "z", "9", true); },
         "[s]\nk=1\nn=2\n\n[u]\n\nz=9\n"},
        {"[s]\nk=1\n", "[s]\nother=5\nk=1\n; new\n[t]\n",
         [](PrefsC& p) { p.setValue("s", "k", "50% %s", true); },
         "[s]\nother=5\nk=50% %s\n; new\n[t]\n"},
        {"[s]\nk=1\nk=2\n", nullptr, [](PrefsC&) {}, "[s]\nk=1\n"},
        {"[ s ]\nk=1\n", nullptr, [](PrefsC& p) { p.setValue("s", "k", "2", true); },
         "[ s ]\nk=1\n\n[s]\n\nk=2\n"},
        {"[s]\r\na=1\r\nb=2\r\n", nullptr, [](PrefsC& p) { p.deleteKey("s", "a"); }, "[s]\nb=2\n"},
        {"[s]\nk=1\n", "", [](PrefsC& p) { p.setValue("t", "x", "1", true); }, "\n[t]\n\nx=1\n"},
        {"[s]\na=1\nb=2\n", nullptr,
         [](PrefsC& p) { p.deleteSection("s", false), p.setValue("s", "c", "3", true); },
         "[s]\nc=3\n"},
        {"[s]\nk=1\n", nullptr, [](PrefsC& p) { p.addLine("s", "free text", true); },
         "[s]\nk=1\nfree text\n"},
        // A "[" line without "]" is no header: kept, and the section goes on.
        {"[s]\na=1\n[bad\nb=2\n", nullptr, [](PrefsC& p) { p.setValue("s", "a", "3", true); },
         "[s]\na=3\n[bad\nb=2\n"},
    };
    for (const CaseT& c : cases) {
        writeFile("a.ini", c.loaded);
        PrefsC prefs;
        ASSERT_TRUE(prefs.load(path("a.ini").c_str(), false, false));
        c.change(prefs);
        std::string before = dump(prefs);
        if (!c.current || *c.current)
            writeFile("a.ini", c.current ? c.current : c.loaded);
        else
            ::remove(path("a.ini").c_str());
        ASSERT_TRUE(prefs.save(path("b.ini").c_str(), true, path("a.ini").c_str())) << c.loaded;
        EXPECT_EQ(kMark + c.expected, readFile("b.ini")) << c.loaded;
        EXPECT_EQ(before, dump(prefs)) << "a merge leaves the memory alone";
    }
}

// A commit (a merge into a temporary file moved over the file, as the
// registry's) reads its file back from the bytes the merge wrote, keeping
// the records where the bytes are what the store holds: the store must come
// out as a load of the file gives it, deleted records and sections
// included, commit after commit and whatever the bytes are. Bytes that are
// not the file's are not taken.
TEST_F(PrefsTest, ReadingBackWhatWasWrittenGivesWhatALoadGives) {
    std::string many = "[Many]\n";
    for (int k = 0; k < 30; ++k) many += "m" + std::to_string(k) + "=" + std::to_string(k) + "\n";
    const std::vector<std::string> names = {"s", "t", "new", "many", "gone", "E"};
    int round = 0;
    for (const std::string& text :
         {"[s]\nk=1\n;c\n\n\tt = 2\n[T]\nx=\n"s, "[s]\r\nk=1\r\n[t]\rx=2\n"s,
          "[Gr\u00FC\u00DFe]\nk=\u00E9\n[s]\nk=1\n"s, "[s]\nk=1\n[bad\nfree\nj = \x01\n[S]\nm=2\n"s,
          ""s, "; c\n[s]\nk=1\nb = 2\n\n[gone]\nc=3\n" + many,
          "[S]\nk=1\nk=2\n[T]\nx=1\n[s]\nc=3\n"s, "[s]\nKey=1\n[t]\nx=1\n"s}) {
        SCOPED_TRACE(text);
        writeFile("a.ini", text);
        PrefsC prefs, loaded;
        ASSERT_TRUE(prefs.load(path("a.ini").c_str(), false, false));
        prefs.setValue("S", "KEY", " v ", true);
        prefs.setValue("new", "n", "1", true);
        prefs.setValue("many", "m99", "x", true);
        prefs.deleteKey("t", "x");
        prefs.deleteSection("gone", false);
        prefs.setValue("E", "e", "1", true);
        if (round++ % 2) writeFile("a.ini", text + "[other]\nz=1\n");  // another writer's
        std::string written;
        for (int commit = 0; commit < 3; ++commit) {
            // Then the last key of the last section deleted, then that section.
            prefs.setValue("s", "k", std::to_string(commit).c_str(), true);
            if (commit == 1) prefs.deleteKey("E", "e");
            if (commit == 2) prefs.deleteSection("E", false);
            ASSERT_TRUE(prefs.save(path("a.tmp").c_str(), true, path("a.ini").c_str(), &written));
            ASSERT_EQ(0, rename(path("a.tmp").c_str(), path("a.ini").c_str()));
            EXPECT_EQ(kMark + written, readFile("a.ini"));
            ASSERT_TRUE(loaded.load(path("a.ini").c_str(), false, false));
            ASSERT_TRUE(prefs.loadWritten(path("a.ini").c_str(), written));
            EXPECT_EQ(records(loaded, names), records(prefs, names));
        }
        for (const std::string& bytes : {written, written + "[x]\nk=1\n"}) {
            PrefsC other;
            other.setValue("old", "k", "v", true);
            ASSERT_TRUE(other.loadWritten(path("a.ini").c_str(), bytes));
            EXPECT_EQ(records(loaded, names), records(other, names));
            EXPECT_STREQ(path("a.ini").c_str(), other.getFileName());
        }
    }
    // A file that cannot be read leaves the store as it was.
    PrefsC prefs;
    prefs.setValue("s", "k", "v", false);
    EXPECT_FALSE(prefs.loadWritten(path("none.ini").c_str(), "[s]\nk=1\n"));
    EXPECT_EQ("[s]k=v;", dump(prefs));
    // A save that fails hands back no bytes.
    std::string written = "left over";
    EXPECT_FALSE(prefs.save(path("no/such/dir.ini").c_str(), true, nullptr, &written));
    EXPECT_EQ("", written);
}

TEST_F(PrefsTest, LookupsFallBackAndConvert) {
    PrefsC prefs;
    PrefsC* next = new PrefsC();
    next->setValue("s", "k", "from fallback", false);
    EXPECT_EQ(&prefs, prefs.setFallback(next));
    EXPECT_STREQ("from fallback", prefs.getString("S", "K", "d"));
    EXPECT_STREQ("d", prefs.getString("s", "", "d"));
    EXPECT_TRUE(prefs.setValue("s", "k", "  v\t", true));
    EXPECT_STREQ("v", prefs.getString("s", "k", "d"));
    EXPECT_TRUE(prefs.deleteKey("s", "k"));
    EXPECT_STREQ("from fallback", prefs.getString("s", "k", "d"));
    prefs.setValue("s", "j", nullptr, true);
    EXPECT_STREQ("", prefs.getString("s", "j", "d"));
    EXPECT_FALSE(prefs.setValue(nullptr, "k", "v", true) || prefs.setValue("s", "", "v", true) ||
                 prefs.addLine("", "v", true) || prefs.createSection("") ||
                 prefs.deleteKey("s", nullptr));

    // Each as getBool (else the default, true) and getInt (else 7) read it.
    std::string read;
    for (const char* value :
         {"TRUE", "False", "maybe", "0x10", "010", "9999999999", "-9999999999"}) {
        prefs.setValue("n", "v", value, true);
        read += std::to_string(prefs.getBool("n", "v", true)) + "," +
                std::to_string(prefs.getInt("n", "v", 7)) + " ";
    }
    EXPECT_EQ("1,0 0,0 1,0 1,16 1,8 1,2147483647 1,-2147483648 ", read);
    EXPECT_EQ(7, prefs.getInt("n", "none", 7));
}

TEST_F(PrefsTest, LongSectionsKeepTheirRulesPastTheIndex) {
    // Long enough that its keys are found through the store's index.
    std::string text = "[Long]\n";
    for (int i = 0; i < 100; ++i) {
        text += "Key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
        if (i == 50) text += "free line\n";
    }
    text += "KEY7=again\n[Other]\nkey7=x\n";
    writeFile("a.ini", text);
    PrefsC prefs;
    ASSERT_TRUE(prefs.load(path("a.ini").c_str(), false, false));
    EXPECT_STREQ("again", prefs.getString("LONG", "key7", "d"));
    EXPECT_STREQ("99", prefs.getString("long", "kEy99", "d"));
    EXPECT_STREQ("x", prefs.getString("other", "KEY7", "d"));
    EXPECT_TRUE(prefs.deleteKey("long", "key10"));
    EXPECT_STREQ("d", prefs.getString("long", "key10", "d"));
    prefs.setValue("Long", "KEY10", "back", true);
    prefs.addLine("long", "another free line", true);
    prefs.setValue("long", "new", "n", true);
    const char* const* names = prefs.getKeyNames("long");
    EXPECT_STREQ("Key10", names[10]);
    int count = 0;
    while (names[count]) ++count;
    EXPECT_EQ(102, count);
    ASSERT_TRUE(prefs.save(nullptr, true, nullptr));
    std::string merged = readFile("a.ini");
    EXPECT_NE(std::string::npos, merged.find("\nKey10=back\n"));
    EXPECT_NE(std::string::npos, merged.find("Key99=99\nanother free line\nnew=n\n[Other]"));
    EXPECT_EQ(std::string::npos, merged.find("KEY7=again"));
}

TEST_F(PrefsTest, SavesPlainlyAndFailsCleanly) {
    PrefsC prefs(path("p.ini").c_str());
    prefs.setValue("s", "k", "1", false);
    prefs.setValue("s", "gone", "1", false);
    prefs.deleteKey("s", "gone");
    prefs.setValue("t", "x", "%d", true);
    ASSERT_TRUE(prefs.save(nullptr, false, nullptr));
    EXPECT_EQ(kMark + "\n[s]\n\nk=1\n\n[t]\n\nx=%d\n", readFile("p.ini"));
    // A template that is the target itself: the file is replaced in one
    // step, not emptied before it is read.
    writeFile("p.ini", "; mine\n[s]\nk=1\n");
    ASSERT_TRUE(prefs.save(nullptr, true, path("p.ini").c_str()));
    EXPECT_EQ(kMark + "; mine\n[s]\nk=1\n\n[t]\n\nx=%d\n", readFile("p.ini"));

    writeFile("file", "");
    EXPECT_FALSE(prefs.save(path("file/x.ini").c_str(), false, nullptr));
    EXPECT_FALSE(prefs.save(path("file/x.ini").c_str(), true, nullptr));
    EXPECT_FALSE(prefs.save(path("file/x.ini").c_str(), true, path("p.ini").c_str()));
    EXPECT_TRUE(testkit::errorCodes().empty());
    PrefsC empty;
    EXPECT_FALSE(empty.save(nullptr, false, nullptr));
}

TEST_F(PrefsTest, ListsAreKeptPerThread) {
    PrefsC first, second;
    first.setValue("a", "k", "1", true);
    second.setValue("b", "k", "1", true);
    auto lister = [](PrefsC* prefs, const char* name, bool* same) {
        for (int i = 0; i < 2000; ++i) {
            const char* const* names = prefs->getSectionNames();
            const char* const* keys = prefs->getKeyNames(name);
            *same =
                *same && std::string(names[0]) == name && !names[1] && std::string(keys[0]) == "k";
        }
    };
    bool firstSame = true, secondSame = true;
    std::thread one(lister, &first, "a", &firstSame), two(lister, &second, "b", &secondSame);
    one.join();
    two.join();
    EXPECT_TRUE(firstSame);
    EXPECT_TRUE(secondSame);
}

TEST_F(PrefsTest, RandomOperationsAgreeWithTheModel) {
    EXPECT_EQ("", testkit::runSeeded<prefsmodel::DriverC>(10, 250, path("m.ini")));
}

}  // namespace
}  // namespace keel
