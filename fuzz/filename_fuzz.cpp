// Invariants of file names on fuzzer-made text: the normal form, the
// collapse of "." and "..", split and join, components, prefixes and the
// wildcard matcher, which on short texts must answer as its steps taken
// literally do; and the queries (directory, base name, suffix, extension,
// components, prefix, relative name) and the join, against their steps
// taken literally on plain strings.
//
// Input layout: byte 0 flags (bit 0: the bytes are taken as internal form
// as they are instead of being decoded from UTF-8; bit 1: the name is
// repeated up to 4,096 bytes and more; bit 2: match without case), then the
// name up to a 0xFF byte, then a second text behind it, used as a directory
// and as a wildcard pattern. NULs may stand anywhere.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <keel/keel.h>

#include <keel/stringar.h>
#include <keel/filename.h>

#include "text/case.h"

namespace {

using keel::FileNameC;
using keel::StringC;
using keel::toLowerChar;

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "invariant broken: %s\n", what);
        abort();
    }
}

std::string bytesOf(const StringC& s) {
    const char* t = s.textUtf8();
    std::string out = t ? std::string(t, s.textUtf8Length()) : std::string();
    s.releaseUtf8(t);
    return out;
}

// Same text, same root.
bool same(const FileNameC& a, const FileNameC& b) {
    return a.isRooted() == b.isRooted() && a.getText().compare(b.getText()) == 0 &&
           a.compare(b) == 0;
}

void checkNormalForm(const FileNameC& name) {
    std::string text = bytesOf(name.getText());
    check(text.empty() || (text.front() != '/' && text.back() != '/'),
          "separator at an end of the text");
    check(text.find("//") == std::string::npos, "two separators in a row");
    check(!name.getDriveFlag() && !name.getShareFlag(), "a flag that is always false was set");
    check(same(name, FileNameC(name.toString())), "parsing toString again gives another name");
    check(bytesOf(name.toString()) == (name.isRooted() ? "/" : "") + text,
          "toString is not the root and the text");
}

// Text made of components, "." only alone and ".." only in front.
void checkCollapsedText(const std::string& text) {
    if (text == "." || text == "/.") return;
    size_t at = text.empty() || text[0] != '/' ? 0 : 1;
    bool front = true;
    while (at < text.size()) {
        size_t end = text.find('/', at);
        if (end == std::string::npos) end = text.size();
        std::string component = text.substr(at, end - at);
        check(component != ".", "a '.' survived the collapse");
        if (component == "..") {
            check(front, "a '..' behind an ordinary component survived the collapse");
        } else {
            front = false;
        }
        at = end + 1;
    }
}

// The matcher's steps taken literally, recursion and all, on short strings.
bool literalMatch(const std::u32string& name, const std::u32string& pattern, bool caseSensitive) {
    auto at = [](const std::u32string& s, size_t i) -> char32_t { return i < s.size() ? s[i] : 0; };
    size_t i = 0;
    for (; i < name.size() && i < pattern.size(); ++i) {
        char32_t p = pattern[i];
        if (p == '*') {
            if (i + 1 == pattern.size()) return true;
            if (pattern.find('*', i + 1) == std::u32string::npos) {
                long tail = long(name.size()) + long(i) + 1 - long(pattern.size());
                if (tail < long(i)) return false;
                return literalMatch(name.substr(tail), pattern.substr(i + 1), caseSensitive);
            }
            for (long k = long(name.size()) - 1; k >= long(i); --k) {
                if (literalMatch(name.substr(k), pattern.substr(i + 1), caseSensitive)) return true;
            }
            return false;
        }
        if (p == '?' || p == name[i]) continue;
        if (caseSensitive || toLowerChar(p) != toLowerChar(name[i])) return false;
    }
    size_t j = i;
    while (at(pattern, j) == '*' && j < pattern.size()) ++j;
    return at(pattern, j) == at(name, i);
}

// Short ASCII texts, NULs included, as the literal steps see them.
bool shortAscii(const std::string& bytes, size_t most) {
    if (bytes.size() > most) return false;
    for (unsigned char c : bytes)
        if (c >= 0x80) return false;
    return true;
}

// The steps of the queries taken literally on a name's text and root, as
// plain strings: directory and base name, suffix, extension, components,
// prefix, relative name and the join of a directory text and a name.
struct PlainNameT {
    std::string text;
    bool rooted;
};

std::string withRoot(const PlainNameT& n, const std::string& s) {
    return (n.rooted ? "/" : "") + s;
}

std::vector<std::string> componentsOf(const std::string& text) {
    std::vector<std::string> parts;
    if (text.empty()) return parts;
    for (size_t at = 0;;) {
        size_t slash = text.find('/', at);
        parts.push_back(
            text.substr(at, slash == std::string::npos ? std::string::npos : slash - at));
        if (slash == std::string::npos) return parts;
        at = slash + 1;
    }
}

std::string stripped(std::string text, const std::string& suffix) {
    if (!suffix.empty() && suffix.size() <= text.size() &&
        text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0)
        text.erase(text.size() - suffix.size());
    return text;
}

std::string behindLast(const std::string& text, char c) {
    size_t at = text.rfind(c);
    return at == std::string::npos ? text : text.substr(at + 1);
}

// join, before the normal form is made of its result.
std::string joinedText(std::string directory, std::string name) {
    if (directory.empty()) return name;
    if (directory == ".") {
        directory.clear();
        if (!name.empty() && name[0] == '/') name.erase(0, 1);
    } else if (directory.back() != '/' && (name.empty() || name[0] != '/')) {
        directory += '/';
    }
    size_t first = name.find_first_not_of('/');
    if (first != std::string::npos && first > 0) name.erase(0, first);
    return directory + name;
}

void checkAgainstPlainSteps(const FileNameC& name, const FileNameC& otherName,
                            const std::string& other, bool decoded) {
    PlainNameT n{bytesOf(name.getText()), name.isRooted()};
    PlainNameT o{bytesOf(otherName.getText()), otherName.isRooted()};
    std::string full = withRoot(n, n.text);
    size_t slash = n.text.rfind('/');
    check(bytesOf(name.getDirectoryText()) ==
              withRoot(n, slash == std::string::npos ? "" : n.text.substr(0, slash)),
          "getDirectoryText differs from its steps");
    StringC suffix(other.data(), static_cast<uint32_t>(other.size()), "utf8");
    if (decoded) {
        check(
            bytesOf(name.getBaseName(suffix)) == behindLast(stripped(n.text, bytesOf(suffix)), '/'),
            "getBaseName differs from its steps");
        StringC text = name.toString();
        FileNameC::stripSuffix(text, suffix);
        check(bytesOf(text) == stripped(full, bytesOf(suffix)),
              "stripSuffix differs from its steps");
    }
    check(bytesOf(name.getExtension('.')) ==
              (full.find('.') == std::string::npos ? "" : behindLast(full, '.')),
          "getExtension differs from its steps");

    std::vector<std::string> parts = componentsOf(n.text), prefix = componentsOf(o.text);
    int32_t count = static_cast<int32_t>(parts.size());
    for (int32_t i = -1; i <= count; ++i)
        check(bytesOf(name.getComponent(i)) == (i < 0 || i >= count ? "" : parts[i]),
              "getComponent");
    int32_t start = static_cast<int32_t>(o.text.size() % 7) - 2,
            asked = static_cast<int32_t>(other.size() % 6) - 1;
    std::unique_ptr<keel::StringArrayC> some(name.getComponents(start, asked));
    check((asked == 0) == !some, "getComponents gave null or not");
    if (some) {
        int32_t from = start >= count ? count - 1 : start;
        if (from < 0) from = 0;
        int32_t length = asked == -1 || asked > count - from ? count - from : asked;
        check(static_cast<int32_t>(some->size()) == length, "getComponents gave another count");
        for (int32_t i = 0; i < length; ++i)
            check(bytesOf(*some->at(i)) == parts[from + i], "getComponents differs from its steps");
    }

    bool isPrefix = prefix.size() <= parts.size() && n.rooted == o.rooted &&
                    std::equal(prefix.begin(), prefix.end(), parts.begin());
    check(name.hasPrefix(otherName) == isPrefix, "hasPrefix differs from its steps");
    std::unique_ptr<FileNameC> relative(name.relativeTo(otherName));
    std::string expected = full;
    if (n.rooted == o.rooted && n.text == o.text) {
        expected = ".";
    } else if (n.rooted == o.rooted && n.text.size() > o.text.size() &&
               n.text[o.text.size()] == '/' && n.text.compare(0, o.text.size(), o.text) == 0) {
        expected = n.text.substr(o.text.size() + 1);
    }
    check(bytesOf(relative->toString()) == expected, "relativeTo differs from its steps");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 8192) return 0;
    const uint8_t flags = data[0];
    const char* encoding = (flags & 1) ? "vutf8" : "utf8";
    const uint8_t* rest = data + 1;
    const size_t restSize = size - 1;
    const uint8_t* cut = static_cast<const uint8_t*>(memchr(rest, 0xFF, restSize));
    const size_t nameSize = cut ? size_t(cut - rest) : restSize;
    std::string nameBytes(reinterpret_cast<const char*>(rest), nameSize);
    if ((flags & 2) && !nameBytes.empty()) {
        while (nameBytes.size() < 4100) nameBytes += nameBytes;
    }
    std::string otherBytes =
        cut ? std::string(reinterpret_cast<const char*>(cut + 1), restSize - nameSize - 1) : "";
    // The matcher's work grows with the product of the lengths.
    if (nameBytes.size() > 4096 && otherBytes.size() > 64) otherBytes.resize(64);
    StringC raw(nameBytes.data(), static_cast<uint32_t>(nameBytes.size()), encoding);
    StringC other(otherBytes.data(), static_cast<uint32_t>(otherBytes.size()), encoding);

    FileNameC name(raw);
    checkNormalForm(name);

    // The collapse settles after one step, except that a name collapsed to
    // "." or "/." collapses once more, to the empty name or the root.
    FileNameC once = name.getCollapsed();
    FileNameC twice = once.getCollapsed();
    checkNormalForm(once);
    checkCollapsedText(bytesOf(name.getCollapsedText()));
    check(same(twice, twice.getCollapsed()), "collapse is not idempotent");
    std::string onceText = bytesOf(name.getCollapsedText());
    if (onceText != "." && onceText != "/.")
        check(same(once, twice), "collapse changed a collapsed name");

    // Split and join: directory and base name give the name back, except
    // that a directory that is exactly "." stands for nothing in a join.
    StringC directory = name.getDirectoryText();
    StringC base = name.getBaseName(StringC());
    FileNameC joined(directory, base);
    if (bytesOf(directory) == ".") {
        check(same(joined, FileNameC(base)), "join with '.' kept the dot");
    } else {
        check(same(joined, name), "join of split differs from the name");
        FileNameC parent = name.getParent();
        check(same(FileNameC(&parent, base), name), "join below the parent differs from the name");
    }
    check(name.hasBaseName() == !base.isEmpty(), "hasBaseName disagrees with getBaseName");
    check(name.hasPrefix(name.getParent()), "a name does not begin with its parent");
    check(name.hasPrefix(name) && name.compare(name) == 0, "a name is not its own prefix");

    // Components put back together make the text.
    int32_t count = name.getComponentCount();
    std::unique_ptr<keel::StringArrayC> parts(name.getComponents(0, -1));
    check(parts && static_cast<int32_t>(parts->size()) == count,
          "component count and array disagree");
    check(FileNameC(*parts).getText().compare(name.getText()) == 0,
          "components do not make the text");
    if (count > 0)
        check(name.getComponent(count - 1).compare(base) == 0,
              "last component is not the base name");

    // The extension is a tail of the full text.
    std::string full = bytesOf(name.toString());
    std::string extension = bytesOf(name.getExtension('.'));
    check(full.size() >= extension.size() &&
              full.compare(full.size() - extension.size(), std::string::npos, extension) == 0,
          "extension is not a tail of the name");

    std::unique_ptr<FileNameC> relative(name.relativeTo(name.getParent()));
    checkNormalForm(*relative);

    // Any directory text joined with any name gives a name in normal form.
    checkNormalForm(FileNameC(other, raw));
    checkNormalForm(FileNameC(raw, other));

    // The queries, and the join of two texts before the normal form is made
    // of it, against their steps taken literally.
    FileNameC otherName(other);
    checkAgainstPlainSteps(name, otherName, otherBytes, !(flags & 1));
    if (!(flags & 1)) {
        std::string a = bytesOf(raw), b = bytesOf(other), c = bytesOf(otherName.toString());
        auto made = [](const std::string& text) {
            return FileNameC(StringC(text.data(), static_cast<uint32_t>(text.size()), "utf8"));
        };
        check(same(FileNameC(other, raw), made(joinedText(b, a))), "join differs from its steps");
        check(same(FileNameC(raw, other), made(joinedText(a, b))), "join differs from its steps");
        check(same(FileNameC(&otherName, raw), made(joinedText(c, a))),
              "join below a name differs from its steps");
    }

    // Matching: "*" takes everything, a text without metacharacters matches
    // itself, and ignoring case never loses a match.
    check(FileNameC::wildcardMatch(raw, StringC("*", "ascii"), true), "'*' does not match");
    if (nameBytes.find_first_of("*?") == std::string::npos) {
        check(FileNameC::wildcardMatch(raw, raw, true), "a plain text does not match itself");
    }
    bool exact = FileNameC::wildcardMatch(raw, other, true);
    bool folded = FileNameC::wildcardMatch(raw, other, false);
    check(!exact || folded, "a match was lost by ignoring case");
    // On short ASCII texts the matcher answers as its steps taken literally,
    // recursion and all, do.
    if (shortAscii(nameBytes, 10) && shortAscii(otherBytes, 9)) {
        std::u32string n(nameBytes.begin(), nameBytes.end()),
            p(otherBytes.begin(), otherBytes.end());
        check(exact == literalMatch(n, p, true), "the matcher differs from its literal steps");
        check(folded == literalMatch(n, p, false),
              "the matcher differs from its literal steps without case");
    }
    if (flags & 4) name.matchesBaseName(other);
    return 0;
}
