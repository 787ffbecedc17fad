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
// they are cut from the whole decoded text or read one by one; loadWritten
// gives what load gives, taking the lines from the caller's copy only where
// that copy is byte for byte what a load would read.
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <unordered_map>
#include <vector>

#include <keel/errors.h>
#include <keel/fileserv.h>

#include "config/prefs.h"
#include "files/fileserv.h"
#include "files/streamreader.h"
#include "files/streamwriter.h"
#include "text/utf8view.h"

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

// Text out through a StreamWriterC, in blocks of whole lines.
class LineOutputC {
public:
    // Every byte written is appended to `copy` too, when given.
    LineOutputC(StreamWriterC* writer, std::string* copy) : writer_(writer), copy_(copy) {}
    ~LineOutputC() { delete writer_; }
    LineOutputC(const LineOutputC&) = delete;
    LineOutputC& operator=(const LineOutputC&) = delete;

    void append(const char* bytes, size_t count) { pending_.append(bytes, count); }
    void append(const char* text) { pending_.append(text, strnlen(text, PrefsC::kTextLimit)); }
    void endLine() {
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
        pending_ += "\n[";
        append(name);
        pending_ += "]\n";
        endLine();
    }
    // Writes what is left, flushes the data to the disk when asked, closes.
    // True when every write, the flush and the close worked.
    bool finish(bool flushData) {
        writePending();
        if (flushData && ok_ && writer_->flush() != 0) ok_ = false;
        if (writer_->close() != 0) ok_ = false;
        return ok_;
    }

private:
    static const size_t kBlock = 64 * 1024;

    void writePending() {
        if (pending_.empty()) return;
        if (copy_) copy_->append(pending_);
        StringC text(pending_.data(), static_cast<uint32_t>(pending_.size()), "system-8");
        if (writer_->write(text) != 0) ok_ = false;
        pending_.clear();
    }

    StreamWriterC* writer_;
    std::string* copy_;
    std::string pending_;
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
        next_ = view_.chars();
        end_ = next_ + view_.size();
    }
    TextLinesC(const TextLinesC&) = delete;
    TextLinesC& operator=(const TextLinesC&) = delete;

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
        const char* back = before ? static_cast<const char*>(memchr(from, '\r', before)) : nullptr;
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
    const char* next_;
    const char* end_;
};

// The size of the file at `path`, or -1.
int64_t fileSize(const char* path) {
    struct stat64 record;
    return stat64(path, &record) == 0 ? static_cast<int64_t>(record.st_size) : -1;
}

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
// go out behind the section's last line.
void flushSection(PrefSectionT* section, LineOutputC& out) {
    if (section->keys) {
        for (PrefKeyT* key = section->keys->first; key; key = key->next) {
            if (key->written) continue;
            if (key->state == kPrefChanged) out.key(key);
            key->written = true;
        }
    }
    section->written = true;
}

// The sections that no header of the file named, in store order.
void writeRemainingSections(PrefSectionT* sections, LineOutputC& out) {
    for (PrefSectionT* section = sections; section; section = section->next) {
        if (section->written) continue;
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
        : prefs_(prefs), continuation_(continuation), match_(match) {}

    // False for a bad line.
    bool take(const char* lineBegin, const char* lineEnd) {
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
            if (match_) {
                match_->section(section_);
            } else if (!prefs_.findSectionToChange(section_.c_str(), false)) {
                prefs_.ensureSection(section_.c_str(), true);
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
        return prefs_.setValue(section_.c_str(), keyBegin, valueBegin, false);
    }

private:
    PrefsC& prefs_;
    bool continuation_;
    WrittenMatchC* match_;
    bool continuing_ = false;
    std::string section_;
    std::string accumulated_;
};

namespace {

// Bytes that every encoding the reader may take for a file reads as
// themselves, one character each, with line feeds as the only line ends:
// tabs, the printable ASCII characters and line feeds.
bool isPlainText(const char* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        unsigned char c = static_cast<unsigned char>(bytes[i]);
        if ((c < 0x20 && c != '\t' && c != '\n') || c >= 0x7F) return false;
    }
    return true;
}

}  // namespace

bool PrefsC::load(const char* path, bool strict, bool continuation) {
    if (!path || !*path) return false;
    KeepErrorsC keep;
    StreamReaderC* reader = openReader(path);
    // A file that cannot be opened leaves the store as it was.
    if (!reader) return false;
    clear();
    LineLoaderC loader(*this, continuation);
    TextLinesC lines(reader, fileSize(path));
    const char* lineBegin;
    size_t lineSize;
    while (lines.next(lineBegin, lineSize)) {
        if (!loader.take(lineBegin, lineBegin + lineSize) && strict) {
            clear();
            closeReader(reader);
            return false;
        }
    }
    closeReader(reader);
    fileName = copyText(path);
    return true;
}

// The bytes of the mark that the writer puts in front of the text.
const size_t kUtf8MarkSize = 3;

bool PrefsC::loadWritten(const char* path, const std::string& written) {
    if (!path || !*path) return false;
    const char* bytes = written.data();
    size_t size = written.size();
    // Only plain text ending in a line feed reads back line by line as it
    // was written; anything else is read from the file.
    if (size == 0 || bytes[size - 1] != '\n' || !isPlainText(bytes, size)) {
        return load(path, false, false);
    }
    KeepErrorsC keep;
    // The file is opened as load opens it, so that it answers the same
    // where the file cannot be read. It holds the text behind the writer's
    // UTF-8 mark (which a load takes as the mark and skips), or the text
    // alone; a file of any other size is not what was written, and is read.
    StreamReaderC* reader = openReader(path);
    if (!reader) return false;
    struct stat64 record;
    bool same = stat64(path, &record) == 0 &&
                (static_cast<uint64_t>(record.st_size) == size + kUtf8MarkSize ||
                 static_cast<uint64_t>(record.st_size) == size);
    closeReader(reader);
    if (!same) return load(path, false, false);
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
    WrittenMatchC match(*this);
    LineLoaderC matcher(*this, false, &match);
    takeLines(matcher);
    if (match.matched()) {
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
        delete[] fileName;
        fileName = copyText(path);
        return true;
    }
    clear();
    LineLoaderC loader(*this, false);
    takeLines(loader);
    fileName = copyText(path);
    return true;
}

// --- Save ---

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

bool PrefsC::merge(const char* source, const char* target, bool flushData, std::string* written) {
    StreamWriterC* writer = openWriter(target);
    if (!writer) return false;
    LineOutputC out(writer, written);
    // A source that cannot be opened counts as an empty one.
    StreamReaderC* reader = openReader(source);
    clearWrittenMarks(sections);

    MergeNamesC names(sections);

    PrefSectionT* current = nullptr;
    uint32_t mode = kPrefChanged;
    bool lastNotBlank = true;
    std::string keyName;
    TextLinesC lines(reader, reader ? fileSize(source) : -1);
    const char* text;
    size_t size;
    while (lines.next(text, size)) {
        if (size == 0) {
            if (lastNotBlank) out.endLine();
            lastNotBlank = false;
            continue;
        }
        if (text[0] == ';') {
            out.append(text, size);
            out.endLine();
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
                out.append(text, size);
                out.endLine();
                lastNotBlank = true;
                continue;
            }
            if (current && !current->written) flushSection(current, out);
            const char* header = text + 1;
            size_t headerSize = static_cast<size_t>(close - header);
            PrefSectionT* found = names.find(header, headerSize);
            lastNotBlank = true;
            current = found;
            if (!found) {
                mode = kPrefChanged;
            } else {
                mode = found->state;
                if (mode == kPrefDeleted || found->written) continue;
            }
            out.append(text, size);
            out.endLine();
            continue;
        }
        if (mode == kPrefDeleted) continue;
        const char* equals =
            mode == kPrefAsRead ? static_cast<const char*>(memchr(text, '=', size)) : nullptr;
        if (!equals || equals == text) {
            // A text line.
            bool visible = hasText(text, size);
            if (visible || lastNotBlank) {
                out.append(text, size);
                out.endLine();
            }
            lastNotBlank = visible;
            continue;
        }
        const char* nameBegin = text;
        const char* nameEnd = equals;
        cutAtNul(nameBegin, nameEnd);
        trimRange(nameBegin, nameEnd);
        keyName.assign(nameBegin, nameEnd);
        PrefKeyT* key = current ? findKey(current->keys, keyName.c_str(), true, nullptr) : nullptr;
        if (!key) {
            // A line the store does not know is kept.
            out.append(text, size);
            out.endLine();
            lastNotBlank = true;
            continue;
        }
        if (key->written) continue;
        key->written = true;
        if (key->state == kPrefAsRead) {
            out.append(text, size);
            out.endLine();
            lastNotBlank = true;
        } else if (key->state == kPrefChanged) {
            out.key(key);
            lastNotBlank = true;
        }
    }
    closeReader(reader);
    if (current && !current->written) flushSection(current, out);
    writeRemainingSections(sections, out);
    bool done = out.finish(flushData);
    clearWrittenMarks(sections);
    return done;
}

}  // namespace keel
