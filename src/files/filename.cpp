#include <keel/filename.h>

#include <string.h>

#include <keel/stringar.h>
#include "text/case.h"
#include "text/utf8.h"
#include "text/utf8view.h"

namespace keel {

// The name works on the bytes of its text's internal form. The separator is
// the one byte 0x2F, which in extended UTF-8 is never part of a longer
// sequence, so cutting and joining at that byte is cutting and joining at
// the character "/". Every byte the string holds belongs to the text, NUL
// included: a NUL is an ordinary character of its component. (The string's
// own character walks stop at a NUL and its byte-wise operations do not; the
// name takes the byte-wise view throughout, so that the normal form holds for
// any input.)

namespace {

const uint8_t kSeparator = '/';
// Room for a result: on the stack for the usual lengths, on the heap beyond.
template <class T, uint32_t kLocal>
class ScratchM {
public:
    explicit ScratchM(size_t count) : heap_(nullptr), data_(local_) {
        if (count > kLocal) data_ = heap_ = new T[count];
    }
    ~ScratchM() { delete[] heap_; }
    ScratchM(const ScratchM&) = delete;
    ScratchM& operator=(const ScratchM&) = delete;
    T* data() { return data_; }

private:
    T local_[kLocal];
    T* heap_;
    T* data_;
};

typedef ScratchM<uint8_t, 512> ByteScratchC;

// A string of internal-form bytes as they are.
StringC fromBytes(const uint8_t* bytes, size_t count) {
    return StringC(bytes, static_cast<uint32_t>(count), "vutf8");
}

// A new representation of internal-form bytes, not yet referenced.
StringImplI* newText(const uint8_t* bytes, size_t count) {
    return getStringFactory()->fromBytes(bytes, static_cast<uint32_t>(count), "vutf8");
}

// Puts a new representation into `target` and drops the old one: one
// reference taken, one exchange, one reference dropped, where a temporary
// handle and an assignment would cost three times the atomic operations.
// Every view of the old text must have been given back.
void replaceText(StringC& target, StringImplI* fresh) {
    StringImplI* old = target.getImpl();
    target.adopt(fresh);
    if (old) old->release();
}

// The separator as a string made in "system-8". The factory keeps every
// one-byte ASCII string for the life of the process, so the pointer is asked
// for once and stays good.
StringImplI* separatorImpl() {
    static StringImplI* const separator = getStringFactory()->fromText("/", "system-8");
    return separator;
}

const uint8_t* findByte(const uint8_t* from, const uint8_t* end, uint8_t byte) {
    const void* hit = memchr(from, byte, static_cast<size_t>(end - from));
    return hit ? static_cast<const uint8_t*>(hit) : end;
}

const uint8_t* findLastByte(const uint8_t* begin, const uint8_t* end, uint8_t byte) {
    const void* hit = memrchr(begin, byte, static_cast<size_t>(end - begin));
    return hit ? static_cast<const uint8_t*>(hit) : nullptr;
}

// True when the bytes need no rewriting: no separator in front, none behind,
// no two in a row.
bool isNormal(const uint8_t* p, uint32_t n) {
    if (n == 0) return true;
    if (p[0] == kSeparator || p[n - 1] == kSeparator) return false;
    const uint8_t* end = p + n;
    for (const uint8_t* s = findByte(p, end, kSeparator); s != end;
         s = findByte(s + 1, end, kSeparator)) {
        if (s[1] == kSeparator) return false;
    }
    return true;
}

// The normal form of `n` raw bytes into `out`, which has room for `n`: the
// leading run of separators dropped (and reported through `rooted`), every
// inner run made one "/", the trailing run dropped. Answers the length.
size_t normaliseInto(const uint8_t* p, size_t n, uint8_t* out, bool* rooted) {
    const uint8_t* end = p + n;
    const uint8_t* q = p;
    while (q != end && *q == kSeparator) ++q;
    *rooted = q != p;
    uint8_t* o = out;
    while (q != end) {
        const uint8_t* s = findByte(q, end, kSeparator);
        memcpy(o, q, static_cast<size_t>(s - q));
        o += s - q;
        while (s != end && *s == kSeparator) ++s;
        if (s == end) break;  // the trailing run goes
        *o++ = kSeparator;
        q = s;
    }
    return static_cast<size_t>(o - out);
}

// The number of characters in `n` bytes, as the string's walks count them,
// counted no further than `limit`.
uint32_t countCharacters(const uint8_t* p, uint32_t n, uint32_t limit) {
    uint32_t count = 0;
    uint32_t at = 0;
    while (at < n && count < limit) {
        at += utf8SequenceLength(p + at);
        ++count;
    }
    return count;
}

bool isDot(const uint8_t* p, size_t n) { return n == 1 && p[0] == '.'; }
bool isDotDot(const uint8_t* p, size_t n) { return n == 2 && p[0] == '.' && p[1] == '.'; }

// --- The wildcard matcher ----------------------------------------------------

// The characters of internal-form bytes, decoded once. A NUL reads as the
// character 0; a broken sequence as U+FFFD, as the string's decoder reads it.
class CharsC {
public:
    CharsC(const uint8_t* p, uint32_t n) : scratch_(n) {
        uint32_t* out = scratch_.data();
        const uint8_t* end = p + n;
        uint32_t count = 0;
        while (p < end) out[count++] = utf8Next(p);
        count_ = static_cast<int32_t>(count);
    }
    const uint32_t* data() { return scratch_.data(); }
    int32_t count() const { return count_; }

private:
    ScratchM<uint32_t, 128> scratch_;
    int32_t count_;
};

struct MatchT {
    const uint32_t* name;
    int32_t nameCount;
    const uint32_t* pattern;
    int32_t patternCount;
    int32_t lastStar;  // index of the last "*", -1 for none
    bool caseSensitive;
};

bool sameChar(const MatchT& m, uint32_t patternChar, uint32_t nameChar) {
    if (patternChar == nameChar) return true;
    return !m.caseSensitive && toLowerChar(patternChar) == toLowerChar(nameChar);
}

// The matcher's walk from name position `a` and pattern position `b`, which
// is the match of the name from `a` against the pattern from `b`: one index
// over both until a "*" or the end of either.
//
// A "*" that is the pattern's last character matches. The last "*" with
// more pattern behind it fixes where that rest must begin in the name. Any
// other "*" tries every start of the rest from here to the name's last
// character, and `row` holds those answers already: row[k] is true when some
// start from k on matches the pattern behind that "*". At the end of either
// string, the "*" there are skipped and the two characters compared, a
// character past the end reading as 0.
bool walk(const MatchT& m, int32_t a, int32_t b, const uint8_t* row) {
    int32_t i = 0;
    while (a + i < m.nameCount && b + i < m.patternCount) {
        uint32_t p = m.pattern[b + i];
        if (p == '*') {
            int32_t star = b + i;
            if (star == m.patternCount - 1) return true;
            if (star == m.lastStar) {
                int32_t restLength = m.patternCount - star - 1;
                int32_t tail = m.nameCount - restLength;
                if (tail < a + i) return false;
                for (int32_t t = 0; t < restLength; ++t) {
                    uint32_t c = m.pattern[star + 1 + t];
                    if (c != '?' && !sameChar(m, c, m.name[tail + t])) return false;
                }
                return true;
            }
            return row[a + i] != 0;
        }
        if (p != '?' && !sameChar(m, p, m.name[a + i])) return false;
        ++i;
    }
    int32_t j = b + i;
    while (j < m.patternCount && m.pattern[j] == '*') ++j;
    uint32_t patternChar = j < m.patternCount ? m.pattern[j] : 0;
    uint32_t nameChar = a + i < m.nameCount ? m.name[a + i] : 0;
    return patternChar == nameChar;
}

// Taken literally, a "*" followed by more "*" tries each start by recursion,
// which is exponential in the number of stars and as deep as there are
// stars. The answers are the same when each such "*" gets its row of answers
// for every start once, computed from the last of them back to the first:
// time bounded by the product of the two lengths, no recursion.
bool matchChars(const MatchT& m) {
    if (m.lastStar < 0) return walk(m, 0, 0, nullptr);
    const size_t rowSize = static_cast<size_t>(m.nameCount) + 1;
    ScratchM<uint8_t, 256> rows(2 * rowSize);
    uint8_t* next = nullptr;       // the row of the next "*" to the right
    uint8_t* spare = rows.data();  // where the row being made goes
    uint8_t* other = rows.data() + rowSize;
    for (int32_t star = m.lastStar - 1; star >= 0; --star) {
        if (m.pattern[star] != '*') continue;
        uint8_t* row = spare;
        row[m.nameCount] = 0;
        for (int32_t k = m.nameCount - 1; k >= 0; --k) {
            row[k] = row[k + 1] || walk(m, k, star + 1, next);
        }
        spare = (row == rows.data()) ? other : rows.data();
        next = row;
    }
    return walk(m, 0, 0, next);
}

bool matchBytes(const uint8_t* name, uint32_t nameSize, const uint8_t* pattern,
                uint32_t patternSize, bool caseSensitive) {
    CharsC nameChars(name, nameSize);
    CharsC patternChars(pattern, patternSize);
    MatchT m;
    m.name = nameChars.data();
    m.nameCount = nameChars.count();
    m.pattern = patternChars.data();
    m.patternCount = patternChars.count();
    m.caseSensitive = caseSensitive;
    m.lastStar = -1;
    for (int32_t j = m.patternCount - 1; j >= 0; --j) {
        if (m.pattern[j] == '*') {
            m.lastStar = j;
            break;
        }
    }
    return matchChars(m);
}

}  // namespace

// --- Construction ------------------------------------------------------------

FileNameC::FileNameC() : driveFlag(false), rooted(false), shareFlag(false) {}

FileNameC::FileNameC(const FileNameC& other)
    : text(other.text),
      driveFlag(other.driveFlag),
      rooted(other.rooted),
      shareFlag(other.shareFlag) {}

FileNameC::FileNameC(const FileNameC* other) : driveFlag(false), rooted(false), shareFlag(false) {
    if (!other) {
        text = StringC("", "system-8");
        return;
    }
    *this = *other;
}

FileNameC::FileNameC(const StringC& string)
    : text(string), driveFlag(false), rooted(false), shareFlag(false) {
    normalise();
}

FileNameC::FileNameC(const StringArrayC& components)
    : driveFlag(false), rooted(false), shareFlag(false) {
    const uint32_t count = components.size();
    if (count == 0) return;
    size_t total = count - 1;
    for (uint32_t i = 0; i < count; ++i) total += components.at(i)->textUtf8Length();
    ByteScratchC joined(total);
    uint8_t* o = joined.data();
    for (uint32_t i = 0; i < count; ++i) {
        if (i != 0) *o++ = kSeparator;
        Utf8ViewC element(*components.at(i));
        memcpy(o, element.data(), element.size());
        o += element.size();
    }
    ByteScratchC normal(total);
    size_t length = normaliseInto(joined.data(), static_cast<size_t>(o - joined.data()),
                                  normal.data(), &rooted);
    replaceText(text, newText(normal.data(), length));
}

FileNameC::FileNameC(const FileNameC* directory, const StringC& name)
    : driveFlag(false), rooted(false), shareFlag(false) {
    if (!directory) return;
    join(directory->rooted, true, directory->text, name);
}

FileNameC::FileNameC(const StringC& directory, const StringC& name)
    : driveFlag(false), rooted(false), shareFlag(false) {
    join(false, false, directory, name);
}

FileNameC::~FileNameC() {}

FileNameC& FileNameC::operator=(const FileNameC& other) {
    text = other.text;
    driveFlag = other.driveFlag;
    rooted = other.rooted;
    shareFlag = other.shareFlag;
    return *this;
}

// Text that is in normal form already (the usual case) keeps its
// representation; anything else is rewritten once.
void FileNameC::normalise() {
    driveFlag = false;
    shareFlag = false;
    StringImplI* normal;
    {
        Utf8ViewC raw(text);
        if (isNormal(raw.data(), raw.size())) return;
        ByteScratchC room(raw.size());
        bool leading = false;
        size_t length = normaliseInto(raw.data(), raw.size(), room.data(), &leading);
        if (leading) rooted = true;
        normal = newText(room.data(), length);
    }
    // Only now, with the view of the old text given back, may it go.
    replaceText(text, normal);
}

// The directory text and the name are put together with one "/" between
// them, looking only at the raw ends, and the whole is parsed again:
//
// 1. A directory that is exactly "." stands for nothing, and one separator
//    in front of the name goes with it, so "." and "/b" give the relative b.
// 2. An empty directory leaves the name as it is, so an absolute name stays
//    absolute.
// 3. Otherwise a "/" is put between them only when the directory does not end
//    in one and the name does not begin with one.
// 4. Separators in front of the name's first other character are dropped; a
//    name made only of separators keeps them.
//
// So "a" and "/b" give "ab", while "a/" and "/b" give "a/b". Whether the
// result is rooted depends only on the start of the joined text: a rooted
// directory makes a rooted name, a rooted name behind a non-empty directory
// does not.
//
// The directory's text is `directory` with a "/" in front when
// `directoryRooted`: a name's own text and root flag are joined as they are,
// without making its toString() first (a walk joins every entry to its
// directory's name). `directoryNormal` says the text is a name's normal
// form, which spares the parse when the name adds no separator.
void FileNameC::join(bool directoryRooted, bool directoryNormal, const StringC& directory,
                     const StringC& name) {
    driveFlag = false;
    rooted = false;
    shareFlag = false;
    StringImplI* joined = nullptr;
    bool plain;
    {
        Utf8ViewC dir(directory);
        const uint8_t* d = dir.data();
        uint32_t dn = dir.size();
        const uint32_t root = directoryRooted ? 1 : 0;
        plain = dn == 0 && !directoryRooted;
        if (!plain) {
            Utf8ViewC rest(name);
            const uint8_t* m = rest.data();
            const uint32_t mn = rest.size();
            const bool nameSlash = mn > 0 && m[0] == kSeparator;
            uint32_t mStart = 0;
            bool slash = false;
            if (!directoryRooted && dn == 1 && d[0] == '.') {
                dn = 0;
                if (nameSlash) mStart = 1;
            } else {
                slash = dn != 0 && d[dn - 1] != kSeparator && !nameSlash;
            }
            uint32_t first = mStart;
            while (first < mn && m[first] == kSeparator) ++first;
            if (first < mn) mStart = first;

            // Put together and parsed in one go, without a string between.
            const size_t total = root + size_t(dn) + (slash ? 1 : 0) + (mn - mStart);
            ByteScratchC raw(total);
            uint8_t* o = raw.data();
            if (root) *o++ = kSeparator;
            memcpy(o, d, dn);
            o += dn;
            if (slash) *o++ = kSeparator;
            memcpy(o, m + mStart, mn - mStart);
            if (directoryNormal && mStart == 0 && mn != 0 && !memchr(m, kSeparator, mn)) {
                // A name's own text is normal and the name holds no "/":
                // the joined text is normal already, behind its root.
                rooted = root != 0;
                joined = newText(raw.data() + root, total - root);
            } else {
                ByteScratchC normal(total);
                size_t length = normaliseInto(raw.data(), total, normal.data(), &rooted);
                joined = newText(normal.data(), length);
            }
        }
    }
    if (plain) {
        text = name;
        normalise();
    } else {
        replaceText(text, joined);
    }
}

// --- Queries -----------------------------------------------------------------

StringC FileNameC::toString() const { return withRoot(text); }

StringC FileNameC::withRoot(const StringC& string) const {
    if (!rooted) return string;
    return StringC::fromNew(getStringFactory()->concat(separatorImpl(), string.getImpl()));
}

// With the same root on both sides the "/" in front cannot decide anything,
// and StringC::compare answers the same for the texts as for the full names.
int FileNameC::compare(const FileNameC& other) const {
    if (rooted == other.rooted) return text.compare(other.text);
    return toString().compare(other.toString());
}

bool FileNameC::isRoot() const { return rooted && text.isEmpty(); }

int32_t FileNameC::getComponentCount() const {
    Utf8ViewC bytes(text);
    if (bytes.size() == 0) return 0;
    const uint8_t* end = bytes.data() + bytes.size();
    int32_t count = 1;
    for (const uint8_t* s = findByte(bytes.data(), end, kSeparator); s != end;
         s = findByte(s + 1, end, kSeparator)) {
        ++count;
    }
    return count;
}

StringC FileNameC::getComponent(int32_t index) const {
    if (index < 0) return StringC();
    Utf8ViewC bytes(text);
    if (bytes.size() == 0) return StringC();
    const uint8_t* end = bytes.data() + bytes.size();
    const uint8_t* start = bytes.data();
    for (int32_t i = 0; i < index; ++i) {
        const uint8_t* s = findByte(start, end, kSeparator);
        if (s == end) return StringC();
        start = s + 1;
    }
    return fromBytes(start, static_cast<size_t>(findByte(start, end, kSeparator) - start));
}

StringArrayC* FileNameC::getComponents(int32_t start, int32_t count) const {
    int32_t n = getComponentCount();
    if (start >= n) start = n - 1;
    if (start < 0) start = 0;
    if (count == 0) return nullptr;
    int32_t available = n - start;
    if (count == -1 || count > available) count = available;
    StringArrayC* array = new StringArrayC;
    if (count <= 0) return array;
    Utf8ViewC bytes(text);
    const uint8_t* end = bytes.data() + bytes.size();
    const uint8_t* at = bytes.data();
    for (int32_t i = 0; i < start; ++i) at = findByte(at, end, kSeparator) + 1;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t* s = findByte(at, end, kSeparator);
        array->append(fromBytes(at, static_cast<size_t>(s - at)));
        at = s + 1;
    }
    return array;
}

// Component by component from the prefix's last back to its first, the test
// comes to this on the normal form: this text begins with the prefix's, and
// a "/" or the end follows.
bool FileNameC::hasPrefix(const FileNameC& prefix) const {
    if (rooted != prefix.rooted) return false;
    Utf8ViewC mine(text);
    Utf8ViewC theirs(prefix.text);
    uint32_t n = theirs.size();
    if (n == 0) return true;
    if (n > mine.size() || memcmp(mine.data(), theirs.data(), n) != 0) return false;
    return n == mine.size() || mine.data()[n] == kSeparator;
}

StringC FileNameC::getDirectoryText() const {
    uint32_t cut;
    {
        Utf8ViewC bytes(text);
        const uint8_t* last = findLastByte(bytes.data(), bytes.data() + bytes.size(), kSeparator);
        cut = last ? static_cast<uint32_t>(last - bytes.data()) : 0;
        if (rooted) {
            ByteScratchC out(size_t(cut) + 1);
            out.data()[0] = kSeparator;
            memcpy(out.data() + 1, bytes.data(), cut);
            return fromBytes(out.data(), size_t(cut) + 1);
        }
        if (cut != 0) return fromBytes(bytes.data(), cut);
    }
    return StringC();
}

FileNameC FileNameC::getParent() const { return FileNameC(getDirectoryText()); }

// The collapse keeps a result built from components, each with the "/" that
// followed it in the text, if any:
//
// - "." is dropped;
// - ".." takes the last component of the result away, unless the result has
//   fewer than two characters or that component is ".." itself; then it is
//   kept like any other component;
// - at the end, a result of three characters or more loses a trailing "/";
//   a shorter one keeps it ("a/.", "a/b/.." give "a/"), and an empty result
//   that lost components becomes ".".
//
// Both asymmetries are wanted: the file service hands this text to the
// system, and a rooted name whose components all cancel out collapses to
// "/." rather than to "/". Nothing looks at the disk, so ".." in front of the
// first component stays, rooted or not.
StringC FileNameC::getCollapsedText() const {
    Utf8ViewC bytes(text);
    const uint32_t n = bytes.size();
    if (n == 0) return withRoot(StringC());
    const uint8_t* p = bytes.data();
    const uint8_t* end = p + n;
    // One byte in front for the root, one more for a lone ".".
    ByteScratchC room(size_t(n) + 2);
    uint8_t* result = room.data() + 1;
    uint32_t r = 0;
    bool removed = false;
    const uint8_t* at = p;
    for (;;) {
        const uint8_t* s = findByte(at, end, kSeparator);
        const size_t length = static_cast<size_t>(s - at);
        const bool slash = s != end;
        bool keep = true;
        if (isDot(at, length)) {
            keep = false;
        } else if (isDotDot(at, length) && r > 1) {
            uint32_t lastEnd = result[r - 1] == kSeparator ? r - 1 : r;
            uint32_t lastStart = lastEnd;
            while (lastStart > 0 && result[lastStart - 1] != kSeparator) --lastStart;
            if (!isDotDot(result + lastStart, lastEnd - lastStart)) {
                r = lastStart;
                removed = true;
                keep = false;
            }
        }
        if (keep) {
            memcpy(result + r, at, length);
            r += static_cast<uint32_t>(length);
            if (slash) result[r++] = kSeparator;
        }
        if (!slash) break;
        at = s + 1;
    }
    if (countCharacters(result, r, 3) < 3) {
        if (r == 0 && removed) result[r++] = '.';
    } else if (result[r - 1] == kSeparator) {
        --r;
    }
    // The result is the text itself when nothing was dropped: share it.
    if (r == n && !rooted) return text;
    if (rooted) {
        result[-1] = kSeparator;
        return fromBytes(result - 1, size_t(r) + 1);
    }
    return fromBytes(result, r);
}

FileNameC FileNameC::getCollapsed() const { return FileNameC(getCollapsedText()); }

StringC FileNameC::getBaseName(const StringC& suffix) const {
    Utf8ViewC bytes(text);
    Utf8ViewC cut(suffix);
    uint32_t end = bytes.size();
    if (cut.size() != 0 && cut.size() <= end &&
        memcmp(bytes.data() + end - cut.size(), cut.data(), cut.size()) == 0) {
        end -= cut.size();
    }
    const uint8_t* last = findLastByte(bytes.data(), bytes.data() + end, kSeparator);
    uint32_t start = last ? static_cast<uint32_t>(last + 1 - bytes.data()) : 0;
    if (start == 0 && end == bytes.size()) return text;
    return fromBytes(bytes.data() + start, end - start);
}

// In the normal form there is no "/" at the end of the text, so the base
// name is empty exactly when the text is.
bool FileNameC::hasBaseName() const { return !text.isEmpty(); }

bool FileNameC::matchesBaseName(const StringC& pattern) const {
    Utf8ViewC bytes(text);
    const uint8_t* end = bytes.data() + bytes.size();
    const uint8_t* last = findLastByte(bytes.data(), end, kSeparator);
    const uint8_t* base = last ? last + 1 : bytes.data();
    Utf8ViewC wanted(pattern);
    return matchBytes(base, static_cast<uint32_t>(end - base), wanted.data(), wanted.size(), true);
}

// The character is looked for by its encoded bytes. In extended UTF-8 a
// sequence can only be found where a character begins, since a first byte is
// never a continuation byte.
StringC FileNameC::getExtension(uint32_t character) const {
    uint8_t encoded[8];
    uint8_t* e = encoded;
    utf8Put(e, character);
    const size_t width = static_cast<size_t>(e - encoded);
    if (width == 0) return StringC();
    Utf8ViewC bytes(text);
    const uint8_t* p = bytes.data();
    const uint32_t n = bytes.size();
    for (uint32_t at = n; at >= width; --at) {
        const uint8_t* candidate = p + at - width;
        if (*candidate == encoded[0] && memcmp(candidate, encoded, width) == 0) {
            return fromBytes(p + at, n - at);
        }
    }
    // The "/" of the root stands in front of the whole text.
    if (rooted && character == kSeparator) return text;
    return StringC();
}

FileNameC* FileNameC::relativeTo(const FileNameC& base) const {
    if (rooted != base.rooted) return new FileNameC(*this);
    Utf8ViewC mine(text);
    Utf8ViewC theirs(base.text);
    const uint32_t n = theirs.size();
    if (mine.size() == n && memcmp(mine.data(), theirs.data(), n) == 0) {
        return new FileNameC(StringC(".", "system-8"));
    }
    if (mine.size() > n && mine.data()[n] == kSeparator &&
        memcmp(mine.data(), theirs.data(), n) == 0) {
        return new FileNameC(fromBytes(mine.data() + n + 1, mine.size() - n - 1));
    }
    return new FileNameC(*this);
}

FileNameC FileNameC::replaceSuffix(const StringC& newSuffix, const StringC& oldSuffix) const {
    StringC full = toString();
    stripSuffix(full, oldSuffix);
    full.append(newSuffix);
    return FileNameC(full);
}

// --- Static ------------------------------------------------------------------

// On the bytes: a text that ends in the suffix's bytes ends in its characters,
// since the suffix begins where a character begins.
void FileNameC::stripSuffix(StringC& string, const StringC& suffix) {
    StringImplI* shorter;
    {
        Utf8ViewC bytes(string);
        Utf8ViewC cut(suffix);
        if (cut.size() == 0 || cut.size() > bytes.size()) return;
        uint32_t keep = bytes.size() - cut.size();
        if (memcmp(bytes.data() + keep, cut.data(), cut.size()) != 0) return;
        shorter = newText(bytes.data(), keep);
    }
    // The views are given back before the old text may go.
    replaceText(string, shorter);
}

bool FileNameC::wildcardMatch(const StringC& name, const StringC& pattern, bool caseSensitive) {
    Utf8ViewC nameBytes(name);
    Utf8ViewC patternBytes(pattern);
    return matchBytes(nameBytes.data(), nameBytes.size(), patternBytes.data(), patternBytes.size(),
                      caseSensitive);
}

}  // namespace keel
