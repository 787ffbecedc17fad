// The preference store and its file: load, save, the plain write and the
// merge of the differences held in memory into the file's current content.
//
// Invariants: load replaces the content as a whole or (when the file cannot
// be opened) leaves it untouched; merge and writePlain never change the
// records except for the `written` marks, which are clear again when they
// return; every save and load leaves the calling thread's error buffer as it
// found it. Output is gathered in one buffer and handed to the writer in
// blocks that end at a line end, so a multi-byte character is never cut and
// a file of many short lines costs few system calls. The bytes of names and
// values go out decoded as "system-8", exactly what rendering them through
// "%s" gives, and a "%" in them is never read as a conversion. Load and
// merge see exactly the lines the reader's readLine would hand out, whether
// they are cut from the whole decoded text, read one by one, or (plain
// text, which every encoding reads as itself) cut from the file's bytes;
// loadWritten gives what load gives, taking the lines from the caller's copy
// only where that copy is byte for byte what the file holds. What the store
// knows of its file's bytes (kept_, exactAt_, mergedAt_) only ever spares a
// decoding, a lookup or a parse whose answer those bytes fix: a file of any
// other bytes is read in full.
#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <keel/atomic.h>
#include <keel/errors.h>
#include <keel/fileserv.h>

#include "config/prefs.h"
#include "files/fileserv.h"
#include "files/streamreader.h"
#include "files/streamwriter.h"
#include "text/utf8view.h"
#include "text/wordbits.h"

namespace keel {

namespace {

bool isLineSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// [begin, end) without the blanks, tabs and line ends at either end.
template <typename CharT>
void trimRange(CharT*& begin, CharT*& end) {
    while (begin < end && isLineSpace(*begin)) ++begin;
    while (end > begin && isLineSpace(end[-1])) --end;
}

// [begin, end) as far as the first NUL: names are zero-terminated texts,
// so a NUL inside a line ends the name there, and the trimming comes after.
template <typename CharT>
void cutAtNul(CharT* begin, CharT*& end) {
    CharT* nul = static_cast<CharT*>(memchr(begin, 0, static_cast<size_t>(end - begin)));
    if (nul) end = nul;
}

FileNameC systemName(const char* path) { return FileNameC(StringC(path, "system-8")); }

// The error buffer as the caller left it, whatever the file layer reports
// meanwhile.
class KeepErrorsC {
public:
    KeepErrorsC() : errors_(getErrBuf()), mark_(errors_->getMark()) {}
    ~KeepErrorsC() { errors_->recover(mark_); }
    KeepErrorsC(const KeepErrorsC&) = delete;
    KeepErrorsC& operator=(const KeepErrorsC&) = delete;

private:
    ErrBufI* errors_;
    uint32_t mark_;
};

// Text out through a StreamWriterC, in blocks of whole lines. Lines kept
// as they stand in the source text (keep) that follow one another there
// go out as one run of the source's bytes, without a copy per line.
class LineOutputC {
public:
    // Every byte written is appended to `copy` too, when given.
    LineOutputC(StreamWriterC* writer, std::string* copy) : writer_(writer), copy_(copy) {}
    ~LineOutputC() { delete writer_; }
    LineOutputC(const LineOutputC&) = delete;
    LineOutputC& operator=(const LineOutputC&) = delete;

    // The source text whose lines keep may join into runs; it stays in
    // place until finish.
    void setSource(const char* begin, const char* end) {
        sourceBegin_ = reinterpret_cast<uintptr_t>(begin);
        sourceEnd_ = reinterpret_cast<uintptr_t>(end);
    }
    // A line as it stands, with "\n" behind it.
    void keep(const char* text, size_t size) {
        uintptr_t at = reinterpret_cast<uintptr_t>(text);
        if (at >= sourceBegin_ && at + size < sourceEnd_ && text[size] == '\n') {
            if (text != runEnd_) {
                endRun();
                runBegin_ = text;
            }
            runEnd_ = text + size + 1;
            return;
        }
        append(text, size);
        endLine();
    }
    // The bytes [begin, end) of the source, whole lines, as they stand.
    void copy(const char* begin, const char* end) {
        endRun();
        writePending();
        writeBytes(begin, static_cast<size_t>(end - begin));
    }
    void append(const char* bytes, size_t count) {
        endRun();
        pending_.append(bytes, count);
    }
    void append(const char* text) { append(text, strnlen(text, PrefsC::kTextLimit)); }
    void endLine() {
        endRun();
        pending_ += '\n';
        if (pending_.size() >= kBlock) writePending();
    }
    // "name=value", or the value alone for a free line.
    void key(const PrefKeyT* key) {
        if (key->name[0]) {
            append(key->name);
            pending_ += '=';
        }
        if (key->value) append(key->value);
        endLine();
    }
    void header(const char* name) {
        endRun();
        pending_ += "\n[";
        append(name);
        pending_ += "]\n";
        endLine();
    }
    // Writes what is left, flushes the data to the disk when asked, closes.
    // True when every write, the flush and the close worked.
    bool finish(bool flushData) {
        endRun();
        writePending();
        if (flushData && ok_ && writer_->flush() != 0) ok_ = false;
        if (writer_->close() != 0) ok_ = false;
        return ok_;
    }

private:
    static const size_t kBlock = 64 * 1024;

    // The run goes out behind what is pending.
    void endRun() {
        if (runBegin_ == runEnd_) return;
        writePending();
        writeBytes(runBegin_, static_cast<size_t>(runEnd_ - runBegin_));
        runBegin_ = runEnd_ = nullptr;
    }
    void writePending() {
        writeBytes(pending_.data(), pending_.size());
        pending_.clear();
    }
    void writeBytes(const char* bytes, size_t count) {
        if (count == 0) return;
        if (copy_) copy_->append(bytes, count);
        StringC text(bytes, static_cast<uint32_t>(count), "system-8");
        if (writer_->write(text) != 0) ok_ = false;
    }

    StreamWriterC* writer_;
    std::string* copy_;
    std::string pending_;
    uintptr_t sourceBegin_ = 0;
    uintptr_t sourceEnd_ = 0;
    const char* runBegin_ = nullptr;
    const char* runEnd_ = nullptr;
    bool ok_ = true;
};

StreamWriterC* openWriter(const char* path) {
    FileNameC name = systemName(path);
    return StreamWriterC::open(&name, false, nullptr, true, 1, false);
}

StreamReaderC* openReader(const char* path) {
    FileNameC name = systemName(path);
    return StreamReaderC::open(&name, true, nullptr, 1, false);
}

void closeReader(StreamReaderC* reader) {
    if (!reader) return;
    reader->close();
    delete reader;
}

// The lines of a reader's text as readLine gives them (cut at a line feed,
// a carriage return, or both together). A file of up to kWholeLimit bytes
// is decoded into one buffer and cut there, without a new string per line;
// a larger one is read line by line, so that memory stays bounded by a
// line. No reader: no lines.
class TextLinesC {
public:
    static const int64_t kWholeLimit = 16 * 1024 * 1024;

    // `fileSize`: the size of the reader's file, or -1 when unknown.
    TextLinesC(StreamReaderC* reader, int64_t fileSize)
        : reader_(fileSize >= 0 && fileSize <= kWholeLimit ? nullptr : reader),
          all_(reader_ ? StringC() : readWhole(reader)),
          view_(all_) {
        begin_ = next_ = view_.chars();
        end_ = next_ + view_.size();
    }
    // The lines of text at hand, which need no decoding; plain text has no
    // carriage return to look for.
    TextLinesC(const char* text, size_t size, bool plain)
        : reader_(nullptr), view_(all_), plain_(plain) {
        begin_ = next_ = text;
        end_ = text + size;
    }
    TextLinesC(const TextLinesC&) = delete;
    TextLinesC& operator=(const TextLinesC&) = delete;

    // The whole text where the lines are cut from one buffer.
    bool contiguous(const char*& begin, const char*& end) const {
        begin = begin_;
        end = end_;
        return !reader_;
    }

    bool next(const char*& text, size_t& size) {
        if (reader_) {
            if (reader_->readLine(line_) != 0) return false;
            Utf8ViewC view(line_);
            copy_.assign(view.chars(), view.size());
            text = copy_.data();
            size = copy_.size();
            return true;
        }
        if (next_ >= end_) return false;
        const char* from = next_;
        size_t left = static_cast<size_t>(end_ - from);
        const char* feed = static_cast<const char*>(memchr(from, '\n', left));
        size_t before = feed ? static_cast<size_t>(feed - from) : left;
        const char* back =
            before && !plain_ ? static_cast<const char*>(memchr(from, '\r', before)) : nullptr;
        const char* stop = back ? back : feed;
        text = from;
        if (!stop) {
            size = left;
            next_ = end_;
            return true;
        }
        size = static_cast<size_t>(stop - from);
        next_ = stop + 1;
        if (*stop == '\r' && next_ < end_ && *next_ == '\n') ++next_;
        return true;
    }

private:
    static StringC readWhole(StreamReaderC* reader) {
        return reader ? reader->readAll() : StringC();
    }

    StreamReaderC* reader_;  // when read line by line
    StringC line_;
    std::string copy_;
    StringC all_;
    Utf8ViewC view_;
    bool plain_ = false;
    const char* begin_;
    const char* next_;
    const char* end_;
};

// The mark that the writer puts in front of the text, which the reader
// takes as the mark of UTF-8 and skips.
const char kUtf8Mark[] = "\xEF\xBB\xBF";
const size_t kUtf8MarkSize = 3;

// Bytes that every encoding the reader may take for a file reads as
// themselves, one character each, with line feeds as the only line ends:
// tabs, the printable ASCII characters and line feeds. Eight bytes at a
// time; a word with a byte below 0x20 or from 0x7F on (tabs and line feeds
// among them) is looked at byte by byte.
bool isPlainText(const char* bytes, size_t count) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        uint64_t x = load64(p + i);
        uint64_t below = (x - kLowBits * 0x20) & ~x & kHighBits;
        uint64_t above = (x | (x + kLowBits)) & kHighBits;
        if (!(below | above)) continue;
        for (size_t j = i; j < i + 8; ++j) {
            unsigned char c = p[j];
            if ((c < 0x20 && c != '\t' && c != '\n') || c >= 0x7F) return false;
        }
    }
    for (; i < count; ++i) {
        unsigned char c = p[i];
        if ((c < 0x20 && c != '\t' && c != '\n') || c >= 0x7F) return false;
    }
    return true;
}

bool shortcutsOff = false;

// The size of the mark in front of `bytes` where the rest is plain text,
// else SIZE_MAX: such a file reads as its own bytes behind the mark.
size_t plainMark(const char* bytes, size_t size) {
    if (atomicLoadRelaxed(&shortcutsOff)) return SIZE_MAX;
    size_t mark =
        size >= kUtf8MarkSize && memcmp(bytes, kUtf8Mark, kUtf8MarkSize) == 0 ? kUtf8MarkSize : 0;
    return isPlainText(bytes + mark, size - mark) ? mark : SIZE_MAX;
}

// compareNames folds a byte with tolower where isupper says so. Where the
// locale does that for the ASCII letters A to Z alone, onto a to z, two
// ASCII names compare equal exactly when they are equal without regard to
// ASCII case, which is also how the merge finds the sections of ASCII
// headers.
bool asciiFoldsPlainly() {
    for (int c = 0; c < 0x80; ++c) {
        bool upper = c >= 'A' && c <= 'Z';
        if ((isupper(c) != 0) != upper) return false;
        if (upper && tolower(c) != c + 32) return false;
    }
    return true;
}

// `name` (NUL-terminated) has exactly the `size` bytes at `bytes`.
bool sameBytes(const char* name, const char* bytes, size_t size) {
    return strnlen(name, size + 1) == size && memcmp(name, bytes, size) == 0;
}

// A file opened as the reader opens it (share mode 1, no waiting) and, when
// it holds at most TextLinesC::kWholeLimit bytes, read whole as bytes. Plain
// text needs no decoding; anything else is read by a StreamReaderC over the
// same stream from its start.
class RawFileC {
public:
    explicit RawFileC(const char* path) : path_(path) {
        FileNameC name = systemName(path);
        stream_ = FlnFileServiceC::instance()->openStream(&name, 3, 1, 1, false);
        if (!stream_) return;
        int64_t length = stream_->getLength();
        if (length < 0 || length > TextLinesC::kWholeLimit) return;
        // One byte more than the size, so that the read that finds the end
        // is the second; a file that grew meanwhile is read on.
        size_t room = static_cast<size_t>(length) + 1;
        bytes_.reset(new char[room]);
        for (;;) {
            if (size_ == room) {
                if (size_ > static_cast<size_t>(TextLinesC::kWholeLimit)) return;
                room *= 2;
                std::unique_ptr<char[]> larger(new char[room]);
                memcpy(larger.get(), bytes_.get(), size_);
                bytes_.swap(larger);
            }
            // A failing read counts as the end, as it does for the reader.
            int32_t got = stream_->read(bytes_.get() + size_, static_cast<uint32_t>(room - size_));
            if (got <= 0) break;
            size_ += static_cast<size_t>(got);
        }
        whole_ = true;
    }
    ~RawFileC() {
        if (reader_) {
            closeReader(reader_);
        } else if (stream_) {
            stream_->close();
            delete stream_;
        }
    }
    RawFileC(const RawFileC&) = delete;
    RawFileC& operator=(const RawFileC&) = delete;

    bool opened() const { return stream_ != nullptr; }
    // All bytes of the file are in bytes().
    bool whole() const { return whole_; }
    const char* data() const { return bytes_.get(); }
    size_t size() const { return size_; }
    // The bytes hold exactly `size` bytes at `other`.
    bool holds(const char* other, size_t size) const {
        return whole_ && size_ == size && memcmp(bytes_.get(), other, size) == 0;
    }
    std::unique_ptr<char[]>& bytes() { return bytes_; }
    // A reader over the file from its start, or null when the file was not
    // opened or cannot be read again.
    StreamReaderC* reader() {
        if (reader_ || !stream_) return reader_;
        if (stream_->seek(0, 0) == 0) {
            reader_ = new StreamReaderC(stream_, true, nullptr, true);
        } else {
            stream_->close();
            delete stream_;
            stream_ = nullptr;
            reader_ = openReader(path_);
        }
        return reader_;
    }

private:
    const char* path_;
    IOStreamC* stream_ = nullptr;
    StreamReaderC* reader_ = nullptr;
    std::unique_ptr<char[]> bytes_;
    size_t size_ = 0;
    bool whole_ = false;
};

bool isAscii(const char* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (static_cast<unsigned char>(bytes[i]) >= 0x80) return false;
    }
    return true;
}

bool equalAsciiNoCase(const char* a, const char* b, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]);
        unsigned char y = static_cast<unsigned char>(b[i]);
        if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y + 32);
        if (x != y) return false;
    }
    return true;
}

// A section's name as the merge compares it with the headers of the file:
// equal character counts and compareNoCase. Names and headers in ASCII
// (nearly all) are compared on their bytes, which answers the same.
struct MergeSectionT {
    PrefSectionT* section;
    size_t size;
    bool ascii;
};

bool headerMatches(const char* header, size_t size, bool headerAscii, const MergeSectionT& entry) {
    if (headerAscii && entry.ascii) {
        return size == entry.size && equalAsciiNoCase(header, entry.section->name, size);
    }
    StringC name(entry.section->name, "system-8");
    StringC text(header, static_cast<uint32_t>(size), "utf8");
    return name.length() == text.length() && name.compareNoCase(text) == 0;
}

// The sections of the store by the headers that name them: the first entry
// in store order that headerMatches takes. ASCII names are found through a
// table by their lower-case bytes; the few others are tried in order, and
// one of them wins over the table's entry when it comes first.
class MergeNamesC {
public:
    explicit MergeNamesC(PrefSectionT* sections) {
        for (PrefSectionT* section = sections; section; section = section->next) {
            size_t size = strnlen(section->name, PrefsC::kTextLimit);
            bool ascii = isAscii(section->name, size);
            size_t position = entries_.size();
            entries_.push_back(MergeSectionT{section, size, ascii});
            if (ascii) {
                byName_.emplace(lowered(section->name, size), position);
            } else {
                others_.push_back(position);
            }
        }
    }

    PrefSectionT* find(const char* header, size_t size) {
        bool headerAscii = isAscii(header, size);
        size_t limit = entries_.size();
        if (headerAscii) {
            auto hit = byName_.find(lowered(header, size));
            if (hit != byName_.end()) limit = hit->second;
            for (size_t position : others_) {
                if (position > limit) break;
                if (headerMatches(header, size, true, entries_[position]))
                    return entries_[position].section;
            }
            return limit < entries_.size() ? entries_[limit].section : nullptr;
        }
        for (const MergeSectionT& entry : entries_) {
            if (headerMatches(header, size, false, entry)) return entry.section;
        }
        return nullptr;
    }

private:
    std::string& lowered(const char* bytes, size_t size) {
        folded_.assign(bytes, size);
        for (char& c : folded_) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        }
        return folded_;
    }

    std::vector<MergeSectionT> entries_;
    std::unordered_map<std::string, size_t> byName_;  // the first position of each folded name
    std::vector<size_t> others_;                      // positions of the names beyond ASCII
    std::string folded_;
};

void clearWrittenMarks(PrefSectionT* sections) {
    for (PrefSectionT* section = sections; section; section = section->next) {
        section->written = false;
        if (!section->keys) continue;
        for (PrefKeyT* key = section->keys->first; key; key = key->next) key->written = false;
    }
}

// The keys of a section that the file did not hold: those changed in memory
// go out behind the section's last line. `allMet` becomes false when there
// is any.
void flushSection(PrefSectionT* section, LineOutputC& out, bool& allMet) {
    if (section->keys) {
        for (PrefKeyT* key = section->keys->first; key; key = key->next) {
            if (key->written) continue;
            allMet = false;
            if (key->state == kPrefChanged) out.key(key);
            key->written = true;
        }
    }
    section->written = true;
}

// The sections that no header of the file named, in store order. `allMet`
// becomes false when there is any.
void writeRemainingSections(PrefSectionT* sections, LineOutputC& out, bool& allMet) {
    for (PrefSectionT* section = sections; section; section = section->next) {
        if (section->written) continue;
        allMet = false;
        section->written = true;
        PrefKeyT* key = section->keys ? section->keys->first : nullptr;
        if (section->state == kPrefChanged) {
            out.header(section->name);
            for (; key; key = key->next) {
                if (key->state != kPrefDeleted) out.key(key);
                key->written = true;
            }
        } else if (section->state == kPrefAsRead) {
            // Gone from the file: only what changed since comes back.
            bool headerDone = false;
            for (; key; key = key->next) {
                if (key->state != kPrefChanged) continue;
                if (!headerDone) out.header(section->name);
                headerDone = true;
                out.key(key);
            }
        } else {
            for (; key; key = key->next) key->written = true;
        }
    }
}

bool hasText(const char* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (bytes[i] != ' ' && bytes[i] != '\t') return true;
    }
    return false;
}

// The same file by device and inode (both names must exist).
bool sameFile(const char* first, const char* second) {
    struct stat64 a;
    struct stat64 b;
    if (stat64(first, &a) != 0 || stat64(second, &b) != 0) return false;
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

// --- Load ---

// The lines of a file as load takes them in, one at a time: comments and
// empty lines skipped, headers opening sections, "key=value" lines set in
// state 0, and with `continuation` a line ending in an odd number of
// backslashes joined with the next.
// Compares what a load of lines into an empty store would make with the
// store as it stands: the lines match when they would make exactly its
// sections and keys, all of them, in order, with the same bytes, each alone
// among the names that compare equal to it now (so that no line would find
// an earlier record instead of making the next). Deleted
// records and free lines never match, since a load makes neither.
class PrefsC::WrittenMatchC {
public:
    explicit WrittenMatchC(PrefsC& prefs) : prefs_(prefs) {}

    // Where the load finds or makes the section `name`.
    void section(const std::string& name) {
        PrefSectionT* next = current_ ? current_->next : prefs_.sections;
        if (key_ || !next || next->state == kPrefDeleted || name != next->name ||
            !prefs_.aloneByName(nullptr, next)) {
            failed_ = true;
            return;
        }
        current_ = next;
        key_ = next->keys ? next->keys->first : nullptr;
    }
    // Where the load sets `name` to `value` in the section `section`.
    void key(const std::string& section, const char* name, const char* value) {
        if (!current_ || section != current_->name || !key_ || key_->state == kPrefDeleted ||
            !key_->name[0] || strcmp(name, key_->name) != 0 || !key_->value ||
            strcmp(value, key_->value) != 0 || !prefs_.aloneByName(current_->keys, key_)) {
            failed_ = true;
            return;
        }
        key_ = key_->next;
    }
    // Every line matched and every record was met.
    bool matched() const {
        return !failed_ && !key_ && (current_ ? !current_->next : !prefs_.sections);
    }

private:
    PrefsC& prefs_;
    PrefSectionT* current_ = nullptr;
    PrefKeyT* key_ = nullptr;  // the next key of current_ to meet
    bool failed_ = false;
};

class PrefsC::LineLoaderC {
public:
    // With `match`, the lines are compared with the store instead of being
    // loaded into it: `match` is told where the load would change it.
    LineLoaderC(PrefsC& prefs, bool continuation, WrittenMatchC* match = nullptr)
        : prefs_(prefs), continuation_(continuation), match_(match), exact_(!continuation) {}

    // Every line taken so far that makes or finds a record is spelled as
    // the merge writes it ("[name]", "name=value", nothing around) and,
    // when loading, made a record of its own. Comments, empty and bad
    // lines make no record and do not count.
    bool exact() const { return exact_; }
    // No line taken so far is one that a merge drops when the store holds
    // what the lines made: an empty or blank line behind another. With
    // exact(), a merge with nothing changed gives lines ending in a line
    // feed back byte for byte.
    bool keepsAll() const { return keepsAll_; }

    // False for a bad line.
    bool take(const char* lineBegin, const char* lineEnd) {
        size_t rawSize = static_cast<size_t>(lineEnd - lineBegin);
        const char* visible = lineBegin;
        while (visible < lineEnd && (*visible == ' ' || *visible == '\t')) ++visible;
        if (visible == lineEnd && !lastNotBlank_) keepsAll_ = false;
        lastNotBlank_ = visible != lineEnd;
        trimRange(lineBegin, lineEnd);
        if (continuing_) {
            accumulated_.append(lineBegin, lineEnd);
        } else {
            accumulated_.assign(lineBegin, lineEnd);
        }
        if (accumulated_.empty()) return true;
        if (continuation_) {
            size_t slashes = 0;
            while (slashes < accumulated_.size() &&
                   accumulated_[accumulated_.size() - 1 - slashes] == '\\')
                ++slashes;
            if (slashes % 2 == 1) {
                accumulated_.pop_back();
                continuing_ = true;
                return true;
            }
            continuing_ = false;
        }
        char* text = &accumulated_[0];
        char* end = text + accumulated_.size();
        if (text[0] == ';') return true;
        if (text[0] == '[') {
            char* close = static_cast<char*>(memchr(text, ']', accumulated_.size()));
            if (!close) return false;
            const char* nameBegin = text + 1;
            const char* nameEnd = close;
            cutAtNul(nameBegin, nameEnd);
            trimRange(nameBegin, nameEnd);
            section_.assign(nameBegin, nameEnd);
            if (section_.empty()) return false;
            if (rawSize != accumulated_.size() || close != end - 1 || nameBegin != text + 1 ||
                nameEnd != close)
                exact_ = false;
            if (match_) {
                match_->section(section_);
            } else if (!prefs_.findSectionToChange(section_.c_str(), false)) {
                prefs_.ensureSection(section_.c_str(), true);
            } else {
                exact_ = false;  // a section continued
            }
            return true;
        }
        char* equals = static_cast<char*>(memchr(text, '=', accumulated_.size()));
        if (!equals || equals == text) return false;
        char* keyBegin = text;
        char* keyEnd = equals;
        cutAtNul(keyBegin, keyEnd);
        trimRange(keyBegin, keyEnd);
        char* valueBegin = equals + 1;
        char* valueEnd = end;
        trimRange(valueBegin, valueEnd);
        if (rawSize != accumulated_.size() || keyBegin != text || keyEnd != equals ||
            valueBegin != equals + 1 || valueEnd != end)
            exact_ = false;
        // Both ends lie inside the line's buffer: the key ends at or before
        // "=", the value at the line's end at the latest, where the string
        // keeps its NUL.
        *keyEnd = '\0';
        *valueEnd = '\0';
        if (match_) {
            // The setValue below, which a load without a section fails.
            if (section_.empty() || !*keyBegin) return false;
            match_->key(section_, keyBegin, valueBegin);
            return true;
        }
        uint64_t made = prefs_.recordsMade_;
        if (!prefs_.setValue(section_.c_str(), keyBegin, valueBegin, false)) return false;
        if (prefs_.recordsMade_ != made + 1) exact_ = false;  // a key set again
        return true;
    }

private:
    PrefsC& prefs_;
    bool continuation_;
    WrittenMatchC* match_;
    bool exact_;
    bool keepsAll_ = true;
    bool lastNotBlank_ = true;
    bool continuing_ = false;
    std::string section_;
    std::string accumulated_;
};

bool PrefsC::load(const char* path, bool strict, bool continuation) {
    if (!path || !*path) return false;
    KeepErrorsC keep;
    RawFileC file(path);
    // A file that cannot be opened leaves the store as it was.
    if (!file.opened()) return false;
    clear();
    size_t mark = file.whole() ? plainMark(file.data(), file.size()) : SIZE_MAX;
    std::unique_ptr<TextLinesC> lines;
    if (mark != SIZE_MAX) {
        lines.reset(new TextLinesC(file.data() + mark, file.size() - mark, true));
    } else {
        int64_t size = file.whole() ? static_cast<int64_t>(file.size()) : -1;
        lines.reset(new TextLinesC(file.reader(), size));
    }
    LineLoaderC loader(*this, continuation);
    const char* lineBegin;
    size_t lineSize;
    while (lines->next(lineBegin, lineSize)) {
        if (!loader.take(lineBegin, lineBegin + lineSize) && strict) {
            clear();
            return false;
        }
    }
    fileName = copyText(path);
    if (mark != SIZE_MAX) {
        bool fixed = file.size() == mark || file.data()[file.size() - 1] == '\n';
        keepBytes(file.bytes(), file.size(), mark, loader.exact(),
                  loader.exact() && loader.keepsAll() && fixed);
    }
    return true;
}

void PrefsC::keepBytes(std::unique_ptr<char[]>& bytes, size_t size, size_t mark, bool exact,
                       bool merged) {
    kept_.swap(bytes);
    keptSize_ = size;
    keptMark_ = mark;
    keptValid_ = true;
    keptMerged_ = merged;
    valueChanges_.clear();
    otherChanges_ = false;
    exactAt_ = exact && asciiFoldsPlainly() ? recordsMade_ : ~0ull;
}

void PrefsC::setShortcutsForTesting(bool on) { atomicStoreRelaxed(&shortcutsOff, !on); }

bool PrefsC::exactNow() const {
    return !atomicLoadRelaxed(&shortcutsOff) && keptValid_ && exactAt_ == recordsMade_ &&
           asciiFoldsPlainly();
}

bool PrefsC::loadWritten(const char* path, const std::string& written) {
    if (!path || !*path) return false;
    const char* bytes = written.data();
    size_t size = written.size();
    // Only plain text ending in a line feed reads back line by line as it
    // was written; anything else is read from the file.
    if (size == 0 || bytes[size - 1] != '\n') return load(path, false, false);
    size_t mark = SIZE_MAX;
    std::unique_ptr<char[]> found;
    size_t foundSize = 0;
    {
        KeepErrorsC keep;
        // The file is opened as load opens it, so that it answers the same
        // where the file cannot be read, and its bytes are compared with
        // what was written: the text behind the writer's UTF-8 mark (which
        // a load takes as the mark and skips), or the text alone.
        RawFileC file(path);
        if (!file.opened()) return false;
        if (file.whole() && file.size() == size + kUtf8MarkSize &&
            memcmp(file.data(), kUtf8Mark, kUtf8MarkSize) == 0 &&
            memcmp(file.data() + kUtf8MarkSize, bytes, size) == 0) {
            mark = kUtf8MarkSize;
        } else if (file.holds(bytes, size)) {
            mark = 0;
        }
        foundSize = file.size();
        found.swap(file.bytes());
    }
    if (mark == SIZE_MAX) return load(path, false, false);
    // The last merge wrote these bytes from a file that held exactly the
    // kept ones, and met every record once, in order, on lines spelled as
    // it writes them, none deleted, no record made since: the file makes
    // exactly the records, with the states of a load.
    bool known = mergedAt_ == changes_ && mergedTo_ == &written && mergedData_ == bytes &&
                 mergedSize_ == size && !atomicLoadRelaxed(&shortcutsOff);
    bool plain = known || isPlainText(bytes, size);
    if (!plain) return load(path, false, false);
    KeepErrorsC keep;
    auto takeLines = [bytes, size](LineLoaderC& loader) {
        const char* end = bytes + size;
        for (const char* line = bytes; line < end;) {
            const char* feed =
                static_cast<const char*>(memchr(line, '\n', static_cast<size_t>(end - line)));
            loader.take(line, feed);
            line = feed + 1;
        }
    };
    // Most often the lines make exactly what the store holds (its changes
    // were all merged and no other writer added anything): then the records
    // stay and only their states become those of a load, instead of 10,000
    // records freed and made again for a file of 10,000 keys.
    bool exact = true;
    bool merged = known;
    if (!known) {
        WrittenMatchC match(*this);
        LineLoaderC matcher(*this, false, &match);
        takeLines(matcher);
        known = match.matched();
        exact = matcher.exact();
        merged = exact && matcher.keepsAll();
    }
    mergedAt_ = ~0ull;
    if (known && !otherChanges_) {
        // Since the states were last those of a load, only these changed.
        for (const ValueChangeT& change : valueChanges_) change.key->state = kPrefAsRead;
    } else if (known) {
        for (PrefSectionT* section = sections; section; section = section->next) {
            section->state = kPrefAsRead;
            section->loaded = true;
            section->written = false;
            for (PrefKeyT* key = section->keys ? section->keys->first : nullptr; key;
                 key = key->next) {
                key->state = kPrefAsRead;
                key->written = false;
            }
        }
    }
    if (known) {
        delete[] fileName;
        fileName = copyText(path);
        keepBytes(found, foundSize, mark, exact, merged);
        return true;
    }
    clear();
    LineLoaderC loader(*this, false);
    takeLines(loader);
    fileName = copyText(path);
    keepBytes(found, foundSize, mark, loader.exact(), loader.exact() && loader.keepsAll());
    return true;
}

// --- Save ---

void PrefsC::noteMerged(const std::string* written, bool readBack) {
    mergedAt_ = readBack && written ? changes_ : ~0ull;
    mergedTo_ = written;
    mergedData_ = written ? written->data() : nullptr;
    mergedSize_ = written ? written->size() : 0;
}

bool PrefsC::save(const char* path, bool preserve, const char* templatePath, std::string* written) {
    if (written) written->clear();
    const char* target = path ? path : fileName;
    if (!target) return false;
    KeepErrorsC keep;
    bool done;
    if (!preserve) {
        done = writePlain(target, written);
    } else if (templatePath && !sameFile(templatePath, target)) {
        done = merge(templatePath, target, false, written);
    } else {
        // A template that is the target itself would be emptied by the open
        // of the target before it is read: such a save replaces the file in
        // one step instead.
        done = rewriteInPlace(target, written);
    }
    if (!done && written) written->clear();
    return done;
}

bool PrefsC::writePlain(const char* path, std::string* written) {
    mergedAt_ = ~0ull;
    StreamWriterC* writer = openWriter(path);
    if (!writer) return false;
    LineOutputC out(writer, written);
    for (PrefSectionT* section = sections; section; section = section->next) {
        if (section->state == kPrefDeleted) continue;
        out.header(section->name);
        if (!section->keys) continue;
        for (PrefKeyT* key = section->keys->first; key; key = key->next) {
            if (key->state != kPrefDeleted) out.key(key);
        }
    }
    return out.finish(false);
}

bool PrefsC::rewriteInPlace(const char* path, std::string* written) {
    FileServiceI* files = FlnFileServiceC::instance();
    FileNameC target = systemName(path);
    FileNameC directory = target.getParent();
    FileNameC* unique = files->createUniqueName(&directory, StringC("pref", "ascii"),
                                                StringC(".ini", "ascii"), false);
    if (!unique) return false;
    StringC uniqueText = unique->toString();
    const char* uniquePath = uniqueText.textSystem();
    // The data reaches the disk before the new file replaces the old one,
    // so that a power cut cannot leave an empty file under the old name.
    bool done = merge(path, uniquePath, true, written);
    if (done) {
        // The replacement keeps the mode and owner of the file it replaces.
        files->copyAttributes(&target, unique);
        done = files->move(unique, &target) == 0;
        if (!done) files->removeFile(unique);
    } else if (files->exists(unique)) {
        files->removeFile(unique);
    }
    uniqueText.releaseSystem(uniquePath);
    delete unique;
    return done;
}

// --- Merge ---

// A merge of kept bytes that a merge wrote (keptMerged_), read back with
// every record on a line of its own spelled as the merge writes it
// (exactNow), where since then only values changed, each to state 1 on a
// key that has its line: the merge would keep every line as it stands but
// those keys', which it writes anew. So the output is the kept text with
// those lines replaced. A key's line is found as the only line "[name]" of
// its section, then the first line behind it, before the next header, that
// begins with its name and "=".
class PrefsC::SpliceC {
public:
    SpliceC(PrefsC& prefs, const char* text, size_t size)
        : prefs_(prefs), text_(text), end_(text + size) {}

    // False, with nothing written, where a line is not found or a value
    // would not read back as it stands.
    bool write(LineOutputC& out) {
        std::vector<EditT> edits;
        for (const ValueChangeT& change : prefs_.valueChanges_) {
            const PrefKeyT* key = change.key;
            const char* section = sectionName(change.chain);
            const char* line;
            const char* feed;
            if (key->state != kPrefChanged || !key->value ||
                !isPlainText(key->value, strnlen(key->value, kTextLimit)) || !section ||
                !findLine(section, key->name, line, feed))
                return false;
            edits.push_back(EditT{line, feed, key});
        }
        std::sort(edits.begin(), edits.end(),
                  [](const EditT& a, const EditT& b) { return a.line < b.line; });
        const char* at = text_;
        for (const EditT& edit : edits) {
            if (edit.line < at) continue;  // a key changed twice
            out.copy(at, edit.line);
            out.key(edit.key);
            at = edit.feed + 1;
        }
        out.copy(at, end_);
        return true;
    }

private:
    struct EditT {
        const char* line;
        const char* feed;  // its line feed
        const PrefKeyT* key;
    };

    const char* sectionName(const PrefKeyChainT* chain) const {
        for (const PrefSectionT* section = prefs_.sections; section; section = section->next) {
            if (section->keys == chain) return section->name;
        }
        return nullptr;
    }

    bool findLine(const char* section, const char* name, const char*& line, const char*& feed) {
        header_.assign("[").append(section).append("]\n");
        // Headers are few among the lines: each "[" is looked at.
        const char* body;
        for (body = text_;; ++body) {
            body = static_cast<const char*>(memchr(body, '[', static_cast<size_t>(end_ - body)));
            if (!body) return false;
            if ((body == text_ || body[-1] == '\n') &&
                static_cast<size_t>(end_ - body) >= header_.size() &&
                memcmp(body, header_.data(), header_.size()) == 0)
                break;
        }
        body += header_.size();
        size_t nameSize = strlen(name);
        for (line = body; line < end_; line = feed + 1) {
            feed = static_cast<const char*>(memchr(line, '\n', static_cast<size_t>(end_ - line)));
            if (!feed) return false;
            size_t lineSize = static_cast<size_t>(feed - line);
            if (lineSize && line[0] == '[' && memchr(line, ']', lineSize)) return false;
            if (lineSize > nameSize && line[nameSize] == '=' && memcmp(line, name, nameSize) == 0)
                return true;
        }
        return false;
    }

    PrefsC& prefs_;
    const char* text_;
    const char* end_;
    std::string header_;
};

bool PrefsC::merge(const char* source, const char* target, bool flushData, std::string* written) {
    StreamWriterC* writer = openWriter(target);
    if (!writer) return false;
    LineOutputC out(writer, written);
    // A source that cannot be opened counts as an empty one.
    RawFileC file(source);
    bool opened = file.opened();
    clearWrittenMarks(sections);

    // A file of plain text is cut into lines as it stands. Where it holds
    // exactly the kept bytes, it is already known to be plain, and where
    // those made exactly the records (exactNow), each line that finds a
    // record finds the next one in order: that record is taken where the
    // line spells its name, and looked up only where it does not.
    // `readBack`: every record was met so, none is deleted, and every line
    // written reads back as written; the read-back then keeps the records.
    bool same =
        !atomicLoadRelaxed(&shortcutsOff) && keptValid_ && file.holds(kept_.get(), keptSize_);
    size_t mark = same ? keptMark_ : file.whole() ? plainMark(file.data(), file.size()) : SIZE_MAX;
    bool predict = exactNow();
    bool readBack = predict && same;
    // The output is about the size of the file: one block, not a doubling
    // series of copies.
    if (written && file.whole()) written->reserve(file.size() + 4096);
    if (readBack && keptMerged_ && !otherChanges_) {
        SpliceC splice(*this, file.data() + mark, file.size() - mark);
        if (splice.write(out)) {
            bool done = out.finish(flushData);
            noteMerged(written, done);
            return done;
        }
    }
    std::unique_ptr<TextLinesC> lines;
    if (mark != SIZE_MAX) {
        lines.reset(new TextLinesC(file.data() + mark, file.size() - mark, true));
    } else {
        StreamReaderC* reader = file.reader();
        // A file that was opened but cannot be read again is no empty one.
        if (opened && !reader) return false;
        int64_t size = file.whole() ? static_cast<int64_t>(file.size()) : -1;
        lines.reset(new TextLinesC(reader, size));
    }
    const char* sourceBegin;
    const char* sourceEnd;
    if (lines->contiguous(sourceBegin, sourceEnd)) out.setSource(sourceBegin, sourceEnd);
    std::unique_ptr<MergeNamesC> names;

    PrefSectionT* current = nullptr;
    PrefSectionT* lastFound = nullptr;  // the last section a header found
    PrefKeyT* lastKey = nullptr;        // the last key found in `current`
    uint32_t mode = kPrefChanged;
    bool lastNotBlank = true;
    std::string keyName;
    const char* text;
    size_t size;
    while (lines->next(text, size)) {
        if (size == 0) {
            if (lastNotBlank) out.keep(text, 0);
            lastNotBlank = false;
            continue;
        }
        if (text[0] == ';') {
            out.keep(text, size);
            lastNotBlank = true;
            continue;
        }
        if (text[0] == '[') {
            const char* close = static_cast<const char*>(memchr(text, ']', size));
            if (!close) {
                // Not a header: load skips it and stays in the section above,
                // so the merge neither ends that section here (its keys below
                // would be taken for repeats and dropped) nor loses the line.
                if (mode == kPrefDeleted) continue;
                out.keep(text, size);
                lastNotBlank = true;
                continue;
            }
            if (current && !current->written) flushSection(current, out, readBack);
            const char* header = text + 1;
            size_t headerSize = static_cast<size_t>(close - header);
            PrefSectionT* expected = lastFound ? lastFound->next : sections;
            PrefSectionT* found;
            if (predict && expected && sameBytes(expected->name, header, headerSize)) {
                found = expected;
            } else {
                if (!names) names.reset(new MergeNamesC(sections));
                found = names->find(header, headerSize);
            }
            if (!found || found != expected || found->state != kPrefAsRead) readBack = false;
            if (found) lastFound = found;
            lastKey = nullptr;
            lastNotBlank = true;
            current = found;
            if (!found) {
                mode = kPrefChanged;
            } else {
                mode = found->state;
                if (mode == kPrefDeleted || found->written) continue;
            }
            out.keep(text, size);
            continue;
        }
        if (mode == kPrefDeleted) continue;
        const char* equals =
            mode == kPrefAsRead ? static_cast<const char*>(memchr(text, '=', size)) : nullptr;
        if (!equals || equals == text) {
            // A text line.
            bool visible = hasText(text, size);
            if (visible || lastNotBlank) {
                out.keep(text, size);
            }
            lastNotBlank = visible;
            continue;
        }
        const char* nameBegin = text;
        const char* nameEnd = equals;
        // Plain text holds no NUL to cut the name at.
        if (mark == SIZE_MAX) cutAtNul(nameBegin, nameEnd);
        trimRange(nameBegin, nameEnd);
        size_t nameSize = static_cast<size_t>(nameEnd - nameBegin);
        PrefKeyT* expected = lastKey         ? lastKey->next
                             : current->keys ? current->keys->first
                                             : nullptr;
        PrefKeyT* key;
        if (predict && expected && nameSize && sameBytes(expected->name, nameBegin, nameSize)) {
            key = expected;
        } else {
            keyName.assign(nameBegin, nameEnd);
            key = findKey(current->keys, keyName.c_str(), true, nullptr);
        }
        if (!key || key != expected) readBack = false;
        if (key) lastKey = key;
        if (!key) {
            // A line the store does not know is kept.
            out.keep(text, size);
            lastNotBlank = true;
            continue;
        }
        if (key->written) continue;
        key->written = true;
        if (key->state == kPrefAsRead) {
            out.keep(text, size);
            lastNotBlank = true;
        } else if (key->state == kPrefChanged) {
            out.key(key);
            lastNotBlank = true;
            // The name came from a plain line; the value reads back as it
            // stands where it is plain too (its ends are trimmed already).
            if (!key->value || !isPlainText(key->value, strnlen(key->value, kTextLimit)))
                readBack = false;
        } else {
            readBack = false;
        }
    }
    if (current && !current->written) flushSection(current, out, readBack);
    writeRemainingSections(sections, out, readBack);
    bool done = out.finish(flushData);
    clearWrittenMarks(sections);
    noteMerged(written, done && readBack);
    return done;
}

}  // namespace keel
