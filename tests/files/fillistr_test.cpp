// Listers on real trees: the order and flags of a walk, sinks, filters and
// the listing, links, names with any byte, entries that vanish. Random trees
// against the table of what was made are fillistr_fuzz's; the file service's
// model test walks its trees through getSize and copy.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "files/filelist.h"
#include "files/fileserv.h"
#include "files/fillistr.h"
#include "testing/filetree.h"

namespace keel {
namespace {

class ListerTest : public testkit::FileTreeTest {
protected:
    // Pulls the walk to its end: each name (relative to the temp dir when
    // absolute) with "/" behind directories. The lister is gone afterwards.
    std::vector<std::string> pull(uint32_t flags, uint32_t* last = nullptr,
                                  const std::string& start = "") {
        return pullFrom(files->createLister(start.empty() ? fullName(dir) : at(start), flags),
                        last);
    }
    std::vector<std::string> pullFrom(FileListerI* lister, uint32_t* last = nullptr) {
        std::vector<std::string> seen;
        FileNameC* entry;
        bool isDirectory;
        uint32_t result;
        while ((result = lister->nextName(&entry, &isDirectory)) == 0) {
            std::string text = entry ? str(entry->toString()) : "<error>";
            if (text.compare(0, dir.size() + 1, dir + "/") == 0) text = text.substr(dir.size() + 1);
            seen.push_back(text + (entry && isDirectory ? "/" : ""));
            delete entry;
        }
        if (last) *last = result;
        return seen;
    }
};

std::multiset<std::string> bag(const std::vector<std::string>& names) {
    return std::multiset<std::string>(names.begin(), names.end());
}

// A sink that records what it is told and answers from a table (0 for a
// name that is not there).
class RecordingSink : public FileListSinkI {
public:
    std::vector<std::string> seen;
    std::map<std::string, int32_t> answers;
    int32_t answerFor(FileNameC* name, const char* kind) {
        std::string text = str(name->getBaseName(StringC()));
        seen.push_back(kind + text);
        delete name;
        return answers[text];
    }
    int32_t onFile(FileNameC* name) override { return answerFor(name, "f:"); }
    int32_t onDirectory(FileNameC* name) override { return answerFor(name, "d:"); }
    int32_t onError(const FileNameC*, int error) override {
        seen.push_back("e:" + std::to_string(error));
        return 3;
    }
};

TEST_F(ListerTest, FlagsOrderAndTheEnd) {
    makeTree({"d/", "d/f=12"});
    uint32_t last = 0;
    EXPECT_EQ((std::vector<std::string>{"d/"}), pull(0, &last));
    EXPECT_EQ(kListerEnd, last);
    EXPECT_EQ((std::vector<std::string>{"d/", "d/f"}), pull(1));
    // Relative names: the bare entry first, then a relative path.
    EXPECT_EQ((std::vector<std::string>{"d/", "d/f"}), pull(5));
    EXPECT_EQ((std::vector<std::string>{"d/"}), pull(4));
    // ".." is reported with flag 8 and never entered.
    EXPECT_EQ((std::multiset<std::string>{"d/f", "d/../"}), bag(pull(9, nullptr, "d")));
    // A missing start: 0 with no name, then errno 2 and the lister is gone.
    EXPECT_EQ((std::vector<std::string>{"<error>"}), pull(1, &last, "missing"));
    EXPECT_EQ(2u, last);
    makeTree({"empty/"});
    EXPECT_TRUE(pull(1, &last, "empty").empty());
    EXPECT_EQ(kListerEnd, last);
}

TEST_F(ListerTest, LinkToADirectoryIsEnteredOnlyWhenFollowingLinks) {
    makeTree({"outside/", "outside/secret=s", "tree/", "tree/link->" + path("outside")});
    EXPECT_EQ((std::vector<std::string>{"tree/link"}), pull(1, nullptr, "tree"));
    EXPECT_EQ((std::vector<std::string>{"tree/link/", "tree/link/secret"}),
              pull(3, nullptr, "tree"));
}

TEST_F(ListerTest, SinkAnswersSteerTheWalkAndParentIsNeverEntered) {
    makeTree({"a/", "a/skip/", "a/skip/hidden=x", "a/in/", "a/in/f=x"});
    RecordingSink sink;
    sink.answers["skip"] = 1;
    // Answer 0 to ".." on a recursive lister: still not entered (a's and
    // in's come back, skip is refused by the sink).
    FileListerI* lister = new FileListerC(at("a"), 9);
    EXPECT_EQ(0u, lister->runToSink(&sink));
    EXPECT_EQ((std::multiset<std::string>{"d:..", "d:..", "d:skip", "d:in", "f:f"}),
              bag(sink.seen));

    // Answer 3 at once: runToSink answers 0 and the lister is still there.
    RecordingSink stopper;
    stopper.answers = {{"skip", 3}, {"in", 3}};
    lister = new FileListerC(at("a"), 1);
    EXPECT_EQ(0u, lister->runToSink(&stopper));
    EXPECT_EQ(1u, stopper.seen.size());
    delete lister;

    // An unreadable start goes to onError; its answer 3 ends the walk.
    RecordingSink errors;
    lister = new FileListerC(at("missing"), 1);
    EXPECT_EQ(2u, lister->runToSink(&errors));
    EXPECT_EQ((std::vector<std::string>{"e:2"}), errors.seen);
}

TEST_F(ListerTest, FiltersDropFilesButKeepDirectories) {
    makeTree({"s/", "s/a.txt=x", "s/b.bin=x", "s/sub/", "s/sub/c.txt=x"});
    const FileNameC* start = at("s");
    EXPECT_EQ((std::multiset<std::string>{"s/a.txt", "s/sub/", "s/sub/c.txt"}),
              bag(pullFrom(new FileWildcardListerC(start, StringC("*.txt", "ascii"), 1))));

    FileFindListerC* find = new FileFindListerC(start, 1);
    StringArrayC suffixes;
    suffixes.append(StringC(".bin", "ascii"));
    EXPECT_EQ(1u, find->addSuffixes(nullptr));
    EXPECT_EQ(0u, find->addSuffixes(&suffixes));
    // Through a listing: a sink sees only accepted entries.
    FileListingC listing(find, true);
    EXPECT_EQ(0u, listing.getStatus());
    ASSERT_EQ(1u, listing.size());
    EXPECT_EQ(path("s/b.bin"), str(listing.nameAt(0)->toString()));

    FileListingC all(new FileListerC(start, 1), true);
    EXPECT_EQ(4u, all.size());
    // A walk that is empty before its first step leaves runToSink's lister
    // alive: the listing deletes it (a leak would show under ASan).
    FileListerC* refused = new FileListerC(start, 1);
    refused->skipDirectory();
    FileListingC none(refused, true);
    EXPECT_EQ(0u, none.size());
}

// Names as the disk may hold them: every byte but "/" and NUL. Names that
// are UTF-8 (every ASCII byte, control characters and a line end included)
// are walked, copied and removed like any other. Names that are not cannot be
// named again through a string (their text holds replacement characters):
// the walk still reports each, and copy and remove fail with a report and
// leave them where they are.
TEST_F(ListerTest, NamesWithAnyByte) {
    std::string ascii, high;
    for (int c = 1; c < 256; ++c)
        if (c != '/') (c < 128 ? ascii : high) += static_cast<char>(c);
    makeTree({"good/", "bad/"});
    for (const std::string& n : {ascii, std::string("a\nb"), std::string("\xC3\xA9\xE2\x82\xAC")})
        writeFile("good/" + n, n);
    EXPECT_EQ(3u, pull(1, nullptr, "good").size());
    ASSERT_EQ(0u, files->copy(at("good"), at("copied"), nullptr, nullptr));
    EXPECT_EQ(ascii, readFile("copied/" + ascii));
    EXPECT_TRUE(files->remove(at("copied"), true, true));
    EXPECT_NE(0, access(path("copied").c_str(), F_OK));

    for (const std::string& n : {high, std::string("\xFF\xFE"), std::string("\xC3(")})
        writeFile("bad/" + n, n);
    std::vector<std::string> seen = pull(1, nullptr, "bad");
    EXPECT_EQ(3u, seen.size());
    EXPECT_EQ(0, std::count(seen.begin(), seen.end(), "<error>"));
    EXPECT_NE(0u, files->copy(at("bad"), at("target"), nullptr, nullptr));
    EXPECT_FALSE(files->remove(at("bad"), true, true));
    EXPECT_NE(std::vector<uint32_t>{}, testkit::takeErrorCodes());
    EXPECT_EQ(high, readFile("bad/" + high));
}

// Entries removed while the walk reads their directory: whatever the
// directory handle still yields comes back without a status (and so as a
// file), a removed subdirectory is not entered, and the walk ends as usual.
TEST_F(ListerTest, EntriesVanishingDuringTheWalk) {
    makeTree({"v/", "v/sub/", "v/sub/inner=x"});
    std::set<std::string> made = {"sub"};
    for (int i = 0; i < 200; ++i) {
        writeFile("v/f" + std::to_string(i), "x");
        made.insert("f" + std::to_string(i));
    }
    FileListerI* lister = files->createLister(at("v"), 1);
    FileNameC* entry;
    FileInfoC* info;
    bool removed = false;
    int afterRemoval = 0, withoutStatus = 0;
    uint32_t result;
    while ((result = lister->next(&entry, &info)) == 0) {
        if (!entry) continue;
        std::string base = str(entry->getBaseName(StringC()));
        EXPECT_TRUE(made.count(base) || base == "inner") << base;
        if (removed) {
            ++afterRemoval;
            withoutStatus += info == nullptr;
            EXPECT_NE("inner", base);
        } else if (base[0] == 'f') {
            // The first file is back: take every other entry away under it.
            for (const std::string& n : made)
                if (n != base) ::remove(path("v/" + n).c_str());
            ::remove(path("v/sub/inner").c_str());
            ::remove(path("v/sub").c_str());
            removed = true;
        }
        delete entry;
        delete info;
    }
    EXPECT_EQ(kListerEnd, result);
    EXPECT_EQ(afterRemoval, withoutStatus);
}

}  // namespace
}  // namespace keel
