// The directory lister over trees the input builds: a recursive walk (pulled
// or through a listing, names absolute or relative) gives each entry made
// exactly once, depth first, and skipping a directory drops exactly what is
// below it. The file service's model test walks trees through its copies and
// sizes; this target is the lister's own random-tree check.
//
// Input layout: byte 0 picks the style (bit 0 listing, bit 1 relative names,
// bit 2 skip every directory whose name ends in '3'); each further pair of
// bytes adds one entry: the first picks its parent among the directories
// made so far, the low bit of the second says directory or file.
#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "files/filelist.h"
#include "files/fileserv.h"
#include "files/fillistr.h"

namespace {

using keel::FileNameC;
using keel::StringC;

std::string textOf(const StringC& string) {
    const char* text = string.textUtf8();
    std::string result(text, string.textUtf8Length());
    string.releaseUtf8(text);
    return result;
}

void removeTree(const std::string& path) {
    if (DIR* directory = opendir(path.c_str())) {
        while (struct dirent64* entry = readdir64(directory)) {
            std::string name = entry->d_name;
            if (name == "." || name == "..") continue;
            std::string child = path + "/" + name;
            struct stat64 record;
            if (lstat64(child.c_str(), &record) == 0 && S_ISDIR(record.st_mode)) {
                removeTree(child);
            } else {
                unlink(child.c_str());
            }
        }
        closedir(directory);
    }
    rmdir(path.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    char pattern[] = "/tmp/keel-lister-fuzz-XXXXXX";
    if (!mkdtemp(pattern)) return 0;
    std::string root = pattern;
    bool listing = (data[0] & 1) != 0;
    bool relative = (data[0] & 2) != 0;
    bool skipThrees = (data[0] & 4) != 0 && !listing;
    std::vector<std::string> dirs{""};
    std::set<std::string> expected;
    for (size_t i = 1; i + 1 < size && i < 400; i += 2) {
        std::string parent = dirs[data[i] % dirs.size()];
        std::string name = (parent.empty() ? "" : parent + "/") + "e" + std::to_string(i);
        bool isDirectory = (data[i + 1] & 1) != 0;
        std::string full = root + "/" + name;
        if (isDirectory) {
            if (mkdir(full.c_str(), 0755) != 0) abort();
            dirs.push_back(name);
        } else {
            FILE* file = fopen(full.c_str(), "w");
            if (!file) abort();
            fclose(file);
        }
        expected.insert(name);
    }
    if (skipThrees) {
        // What lies below a skipped directory never comes back.
        std::set<std::string> kept;
        for (const std::string& name : expected) {
            bool below = false;
            for (size_t slash = name.find('/'); slash != std::string::npos;
                 slash = name.find('/', slash + 1)) {
                if (name[slash - 1] == '3' &&
                    std::find(dirs.begin(), dirs.end(), name.substr(0, slash)) != dirs.end())
                    below = true;
            }
            if (!below) kept.insert(name);
        }
        expected.swap(kept);
    }
    FileNameC start(StringC(root.c_str(), "utf8"));
    uint32_t flags = 1 | (relative ? 4 : 0);
    keel::FileListerI* lister = keel::FlnFileServiceC::instance()->createLister(&start, flags);
    std::vector<std::string> seen;
    auto strip = [&](const std::string& text) {
        return text.compare(0, root.size() + 1, root + "/") == 0 ? text.substr(root.size() + 1)
                                                                 : text;
    };
    if (listing) {
        keel::FileListingC names(lister, true);
        if (names.getStatus() != 0) abort();
        for (uint32_t i = 0; i < names.size(); ++i)
            seen.push_back(strip(textOf(names.nameAt(i)->toString())));
    } else {
        FileNameC* entry;
        bool isDirectory;
        while (lister->nextName(&entry, &isDirectory) == 0) {
            if (!entry) abort();
            std::string text = strip(textOf(entry->toString()));
            delete entry;
            seen.push_back(text);
            // The kind, from the directory record or the status.
            if (isDirectory != (std::find(dirs.begin(), dirs.end(), text) != dirs.end())) abort();
            if (skipThrees && isDirectory && text.back() == '3') lister->skipDirectory();
        }
    }
    std::set<std::string> seenSet(seen.begin(), seen.end());
    if (seenSet.size() != seen.size() || seenSet != expected) abort();
    // Depth first: the directory of each entry is the entry before it or a
    // directory that entry lies in.
    for (size_t i = 1; i < seen.size(); ++i) {
        std::string above = seen[i].substr(0, seen[i].rfind('/') + 1);
        if ((seen[i - 1] + "/").compare(0, above.size(), above) != 0) abort();
    }
    removeTree(root);
    return 0;
}
