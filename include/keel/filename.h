// FileNameC: a path as a value. Every file operation of the library takes and
// returns one; the text is parsed once, on construction, into a normal form
// (rooted or not, components joined by single "/", no "/" at either end), and
// every question after that is answered from that form without touching the
// disk: components, parent, base name, suffix, wildcard match, and the
// lexical collapse of "." and "..". Nothing here reads the file system or
// reports an error; native text is made only at the system call, from
// toString() or getCollapsedText().
//
//     #include <keel/filename.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     keel::FileNameC name(keel::StringC("//usr/./lib//x.so/", "utf8"));
//     name.toString();           // "/usr/./lib/x.so"   ("." stays as written)
//     name.getCollapsedText();   // "/usr/lib/x.so"
//     name.getBaseName(keel::StringC(".so", "ascii"));   // "x"
//     name.getExtension('.');    // "so"
//     keel::FileNameC log(&dir, keel::StringC("run.log", "utf8"));  // dir + name
//     if (name.matchesBaseName(pattern)) ...   // "*" and "?", case-sensitive
//
// There is one separator, "/". A backslash, a colon or a drive letter is an
// ordinary character. Positions and lengths count characters as StringC
// counts them. A NUL inside the text is an ordinary character of its
// component: the name keeps every byte the string holds, and refusing such a
// name is up to whoever turns it into native text.
//
// A name is copied by value; a copy shares its text the way StringC copies do.
#ifndef KEEL_FILENAME_H
#define KEEL_FILENAME_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

class StringArrayC;

class FileNameC {
public:
    // The empty name: empty text, not rooted.
    FileNameC();
    FileNameC(const FileNameC& other);
    // A copy of *other; null gives the empty name.
    explicit FileNameC(const FileNameC* other);
    // The text parsed into the normal form.
    explicit FileNameC(const StringC& text);
    // The elements joined by "/" and parsed; a first element that is empty
    // makes the name rooted, an empty array gives the empty name.
    explicit FileNameC(const StringArrayC& components);
    // `name` below `directory` (see join in filename.cpp). A null directory
    // gives the empty name and the name is ignored.
    FileNameC(const FileNameC* directory, const StringC& name);
    FileNameC(const StringC& directory, const StringC& name);
    virtual ~FileNameC();

    FileNameC& operator=(const FileNameC& other);

    // "/" for a rooted name, then the text: "/" for the root, empty for the
    // empty name.
    StringC toString() const;
    // `string` with "/" in front when this name is rooted.
    StringC withRoot(const StringC& string) const;
    // StringC::compare of the two toString() texts: 0 when equal,
    // case-sensitive.
    int compare(const FileNameC& other) const;
    bool isRoot() const;
    // 0 for the empty name and the root; otherwise the "/" in the text plus one.
    int32_t getComponentCount() const;
    // The component at `index`; empty when the index is out of range.
    StringC getComponent(int32_t index) const;
    // A new array (owned by the caller) of `count` components from `start`
    // (-1 for all the rest). A start past the end means the last component,
    // a negative one the first; a count of 0 gives null.
    StringArrayC* getComponents(int32_t start, int32_t count) const;
    // True when the components of `prefix` lead this name's and both are
    // rooted or neither is.
    bool hasPrefix(const FileNameC& prefix) const;
    // The text up to its last "/" (empty without one), through withRoot.
    StringC getDirectoryText() const;
    FileNameC getParent() const;
    // "." and ".." taken out lexically, without looking at the disk; see
    // filename.cpp for the exact rules, "/." and "a/" among them.
    StringC getCollapsedText() const;
    FileNameC getCollapsed() const;
    // The last component of the text once `suffix` is cut from the end of the
    // whole text (so "a/b" with the suffix "b" gives the empty text).
    StringC getBaseName(const StringC& suffix) const;
    bool hasBaseName() const;
    // wildcardMatch of the base name against `pattern`, case-sensitive.
    bool matchesBaseName(const StringC& pattern) const;
    // What follows the last `character` of toString(), directory included;
    // empty when it does not occur.
    StringC getExtension(uint32_t character) const;
    // This name relative to `base`, as a new name owned by the caller: the
    // rest behind base's components, "." for the same name, else a copy.
    FileNameC* relativeTo(const FileNameC& base) const;
    // The name of toString() without `oldSuffix` (when it ends in it) and with
    // `newSuffix` behind.
    FileNameC replaceSuffix(const StringC& newSuffix, const StringC& oldSuffix) const;

    // Cuts `suffix` from the end of `text` when it is not empty, not longer
    // than the text, and the text ends in it; otherwise `text` stays.
    static void stripSuffix(StringC& text, const StringC& suffix);
    // Matches `name` against `pattern`: "*" any run of characters ("/"
    // included, also none), "?" exactly one, anything else itself; no escape.
    // Without `caseSensitive` characters also match by their simple
    // lower-case mapping.
    static bool wildcardMatch(const StringC& name, const StringC& pattern, bool caseSensitive);

    // The fields, for the file service and for tests.
    const StringC& getText() const { return text; }
    bool isRooted() const { return rooted; }
    bool getDriveFlag() const { return driveFlag; }
    bool getShareFlag() const { return shareFlag; }

private:
    // Sets `rooted` and rewrites `text` into the normal form.
    void normalise();
    // Sets this name from a directory text (rooted or not, in normal form
    // or not) and a name text. The name is only read, so the constructors
    // need no private copy of it.
    void join(bool directoryRooted, bool directoryNormal, const StringC& directory,
              const StringC& name);

    // The components joined by single "/", without the root.
    StringC text;
    // Always false here; copied with the name and read by nothing.
    bool driveFlag;
    // The name begins at the root of the file system.
    bool rooted;
    // Always false here; copied with the name, read by createDirectory.
    bool shareFlag;
};

}  // namespace keel

#endif
