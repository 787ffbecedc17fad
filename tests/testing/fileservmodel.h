// The file service over a small tree in a fresh directory, driven beside a
// plain model of that tree (relative path to "directory" or a file's bytes):
// files written through streams, directories made with and without parents,
// copies of files and trees, moves with the answers rename gives, removal
// with and without recursion.
// After each step the disk must hold the model exactly, and every name of
// the tree must answer exists, isFile, isDirectory, isDirectoryEmpty and
// getSize as the model says; an operation that fails must leave the tree as
// it was and report (or, for move and remove, stay silent) as documented.
// Shared by the random-sequence test and the fuzz target.
//
//     keel::fileservmodel::DriverC driver("/tmp");  // works in a new directory below /tmp
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_FILESERVMODEL_H
#define KEEL_TESTS_TESTING_FILESERVMODEL_H

#include <stdint.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "files/fileserv.h"
#include "files/iostream.h"
#include "testing/filetext.h"

namespace keel {
namespace fileservmodel {

typedef std::map<std::string, std::string> TreeT;  // path -> bytes, or kDirectory
const char* const kDirectory = "<directory>";

class DriverC {
public:
    // Works in a fresh directory made below `parent`, removed afterwards.
    explicit DriverC(const std::string& parent) {
        std::string pattern = parent + "/modelXXXXXX";
        if (mkdtemp(&pattern[0])) root = pattern;
        // Names over "a", "b" and "c" up to three deep: small enough that
        // operations often meet what earlier ones made.
        for (const char* a : {"a", "b", "c"})
            for (const char* b : {"", "/a", "/b", "/c"})
                for (const char* c : {"", "/a", "/b"})
                    if (*b || !*c) names.push_back(std::string(a) + b + c);
    }

    ~DriverC() {
        std::error_code ignored;
        if (!root.empty()) std::filesystem::remove_all(root, ignored);
    }

    std::string step(uint32_t operation, uint32_t argument) {
        if (root.empty()) return "mkdtemp";
        const std::string& p = names[argument % names.size()];
        const std::string& q = names[(argument / 39 + operation / 5) % names.size()];
        FileNameC pn = name(p), qn = name(q);
        bool reports = false;  // whether the step must leave errors behind
        switch (operation % 5) {
        case 0: {  // a file written through a stream
            bool can = isDirectory(parentOf(p)) && !isDirectory(p);
            std::unique_ptr<IOStreamC> stream(files->openStream(&pn, 1, 2, 0, false));
            if (can != (stream != nullptr)) return "openStream " + p;
            std::string bytes(argument % 5000, static_cast<char>('A' + ++counter % 26));
            if (stream && stream->write(bytes.data(), static_cast<int32_t>(bytes.size())) != 0)
                return "write " + p;
            if (can) tree[p] = bytes;
            reports = !can;
            break;
        }
        case 1: {
            bool withParents = operation & 8, answer = isDirectory(p);
            if (!tree.count(p)) {
                std::string first = nearest(p);
                answer = withParents ? isDirectory(first) : isDirectory(parentOf(p));
                for (std::string up = p; answer && up != first; up = parentOf(up))
                    tree[up] = kDirectory;
            }
            if (files->createDirectory(&pn, withParents) != answer) return "createDirectory " + p;
            break;
        }
        case 2: {  // copy; a tree only to a new name outside itself
            if (p == q || below(p, q) || below(q, p) || (isDirectory(p) && tree.count(q))) break;
            bool can = tree.count(p) && isDirectory(parentOf(q)) && !isDirectory(q);
            if ((files->copy(&pn, &qn, nullptr, nullptr) == 0) != can) return "copy " + p + " " + q;
            if (can) {
                TreeT copied = subtree(p, q);
                tree.insert(copied.begin(), copied.end());
                tree[q] = tree[p];
            }
            reports = !can;
            break;
        }
        case 3: {  // move: rename's answers, never a report
            bool can =
                tree.count(p) && isDirectory(parentOf(q)) && !below(p, q) &&
                (!tree.count(q) || p == q ||
                 (isDirectory(p) ? isDirectory(q) && subtree(q, q).empty() : !isDirectory(q)));
            if ((files->move(&pn, &qn) == 0) != can) return "move " + p + " " + q;
            if (can && p != q) {
                TreeT moved = subtree(p, q);
                moved[q] = tree[p];
                erase(q);
                erase(p);
                tree.insert(moved.begin(), moved.end());
            }
            break;
        }
        default: {  // remove: what is missing is gone, unless a file stands above it
            bool byCode = operation & 32, recursive = byCode || operation & 8;
            bool stays = (isDirectory(p) && !recursive && !subtree(p, p).empty()) ||
                         (!tree.count(p) && !isDirectory(nearest(p)));
            bool gone = byCode ? files->removeFile(&pn) == 0
                               : files->remove(&pn, operation & 16, recursive);
            if (gone == stays) return "remove " + p;
            if (gone) erase(p);
            reports = byCode && stays;
            break;
        }
        }
        if ((getErrBuf()->getCount() > 0) != reports)
            return "reports after operation " + std::to_string(operation % 5);
        uint32_t highest;
        getErrBuf()->takeText(&highest);
        return compare();
    }

private:
    FileNameC name(const std::string& relative) const {
        return FileNameC(StringC((root + "/" + relative).c_str(), "utf8"));
    }
    static std::string parentOf(const std::string& p) {
        size_t slash = p.rfind('/');
        return slash == std::string::npos ? "" : p.substr(0, slash);
    }
    static bool below(const std::string& top, const std::string& p) {
        return p.size() > top.size() && p.compare(0, top.size(), top) == 0 && p[top.size()] == '/';
    }
    // `p` or the nearest name above it that exists.
    std::string nearest(std::string p) const {
        while (!p.empty() && !tree.count(p)) p = parentOf(p);
        return p;
    }
    bool isDirectory(const std::string& p) const {
        auto found = tree.find(p);
        return p.empty() || (found != tree.end() && found->second == kDirectory);
    }
    // What lies below `from`, with `from` replaced by `to` in each path.
    TreeT subtree(const std::string& from, const std::string& to) const {
        TreeT result;
        for (const auto& entry : tree)
            if (below(from, entry.first))
                result[to + entry.first.substr(from.size())] = entry.second;
        return result;
    }
    void erase(const std::string& p) {
        for (auto it = tree.begin(); it != tree.end();)
            it = it->first == p || below(p, it->first) ? tree.erase(it) : std::next(it);
    }
    std::string compare() const {
        TreeT seen;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
            std::string p = entry.path().string();
            seen[p.substr(root.size() + 1)] =
                entry.is_directory() ? kDirectory : testkit::readFileAt(p);
        }
        if (seen != tree) return "the tree on disk";
        for (const std::string& p : names) {
            FileNameC n = name(p);
            bool there = tree.count(p), directory = isDirectory(p);
            TreeT inside = subtree(p, p);
            int64_t bytes = directory ? 0 : there ? static_cast<int64_t>(tree.at(p).size()) : -1;
            int32_t count = directory ? 0 : -1, askedCount = 7;
            for (const auto& entry : inside)
                if (entry.second != kDirectory) bytes += entry.second.size(), ++count;
            if (files->exists(&n) != there || files->isDirectory(&n) != directory ||
                files->isFile(&n) != (there && !directory) ||
                files->isDirectoryEmpty(&n) != inside.empty() ||
                files->getSize(&n, &askedCount) != bytes || askedCount != count)
                return "queries of " + p;
        }
        return "";
    }

    std::string root;
    std::vector<std::string> names;
    TreeT tree;
    FileServiceI* files = FlnFileServiceC::instance();
    uint8_t counter = 0;
};

}  // namespace fileservmodel
}  // namespace keel

#endif
