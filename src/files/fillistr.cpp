#include "files/fillistr.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include "files/fileserv.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// An entry's name as a string; empty for a name that cannot be made.
StringC entryName(const struct dirent64* entry) {
    size_t limit = entry->d_reclen > offsetof(struct dirent64, d_name)
                       ? entry->d_reclen - offsetof(struct dirent64, d_name)
                       : 0;
    size_t length = strnlen(entry->d_name, limit);
    return StringC(entry->d_name, static_cast<uint32_t>(length), "utf8");
}

}  // namespace

DIRStackC::~DIRStackC() { popAll(); }

void DIRStackC::destroyElement(void* element) {
    ElementS* item = static_cast<ElementS*>(element);
    delete item->name;
    if (item->handle) closedir(reinterpret_cast<DIR*>(item->handle));
}

void DIRStackC::push(FileNameC* name, struct __dirstream* handle) {
    ElementS* item = static_cast<ElementS*>(insertAt(size()));
    item->name = name;
    item->handle = handle;
}

FileListerC::FileListerC(const FileNameC* name, uint32_t flags)
    : recursive((flags & 1) != 0),
      followLinks((flags & 2) != 0),
      relativeNames((flags & 4) != 0),
      includeParent((flags & 8) != 0),
      lastSinkResult(0),
      base(nullptr),
      pending(nullptr),
      status(0),
      aliveFlag(nullptr) {
    FileNameC empty;
    const FileNameC* start = name ? name : &empty;
    if (relativeNames) {
        base = new FileNameC(start);
        pending = new FileNameC(StringC(".", "ascii"));
    } else {
        pending = new FileNameC(start);
    }
}

FileListerC::~FileListerC() {
    delete pending;
    delete base;
    stack.popAll();
}

void FileListerC::destroy() {
    if (aliveFlag) *aliveFlag = false;
    delete this;
}

uint32_t FileListerC::step(FileNameC** name, FileInfoC** info, FileListSinkI* sink) {
    return walk(name, info, sink, true);
}

// step, for callers that look at no more of the status than whether the
// entry is a directory (nextName and the sinks, which drop the info): then
// an entry whose directory record gives a kind that is no directory, and
// that the status would not turn into one (a link followed), is taken as
// that kind without asking for its status. Whether that status could be
// read does not matter there: without it the entry counts as no directory
// either. Only with the library's own service: one a program put in place
// is asked for every entry, as step does.
uint32_t FileListerC::walk(FileNameC** name, FileInfoC** info, FileListSinkI* sink, bool wantInfo) {
    *name = nullptr;
    *info = nullptr;
    if (status != 0) return status;
    if (pending) {
        FileNameC* opened = relativeNames ? new FileNameC(base, pending->toString()) : pending;
        DIR* handle;
        {
            NativeNameC native(*opened, false, true);
            const char* text = native.get();
            handle = text ? opendir(text) : nullptr;
        }
        int error = errno;
        if (opened != pending) delete opened;
        if (!handle) {
            status = static_cast<uint32_t>(error);
            if (!sink) {
                delete pending;
                pending = nullptr;
                return 0;
            }
            int32_t answer = sink->onError(pending, error);
            delete pending;
            pending = nullptr;
            if (answer == 3) return status;
            if (answer >= 0 && answer <= 2) status = 0;
            return 0;
        }
        stack.push(pending, reinterpret_cast<struct __dirstream*>(handle));
        pending = nullptr;
    }
    for (;;) {
        DIRStackC::ElementS* top = stack.top();
        if (!top) {
            status = kListerEnd;
            return status;
        }
        // Read with readdir64: a 32-bit program's plain readdir fails with
        // EOVERFLOW on file systems with 64-bit inode numbers. A lister
        // belongs to one thread, so its handle's buffer is its own.
        errno = 0;
        struct dirent64* entry = readdir64(reinterpret_cast<DIR*>(top->handle));
        if (!entry) {
            stack.pop();
            continue;
        }
        StringC text = entryName(entry);
        if (text.isEmpty()) continue;
        bool isDot = entry->d_name[0] == '.' && entry->d_name[1] == 0;
        bool isParent = entry->d_name[0] == '.' && entry->d_name[1] == '.' && entry->d_name[2] == 0;
        if (isDot || (isParent && !includeParent)) continue;

        *name = new FileNameC(top->name, text);
        FileNameC* full = relativeNames ? new FileNameC(base, (*name)->toString()) : *name;
        bool known = !wantInfo && entry->d_type != DT_UNKNOWN && entry->d_type != DT_DIR &&
                     !(followLinks && entry->d_type == DT_LNK) &&
                     FlnFileServiceC::isLibraryService(FlnFileServiceC::instance());
        *info = known ? nullptr : infoOf(top, entry->d_name, text, full);
        bool isDirectory = *info && (*info)->type == FileInfoC::Directory;
        bool accepted = accepts(full, isDirectory);
        if (!accepted && !isDirectory) {
            if (relativeNames) delete full;
            delete *name;
            delete *info;
            *name = nullptr;
            *info = nullptr;
            continue;
        }
        if (sink && accepted) {
            FileNameC* given = *name;
            *name = nullptr;
            dispatch(sink, given, *info ? 0 : -1, isDirectory, isParent);
        } else if (recursive && isDirectory && !isParent) {
            pending = new FileNameC(*name);
        }
        if (relativeNames) delete full;
        return 0;
    }
}

// The entry's status, as the process-wide service's getFileInfo gives it
// for the full name. With the library's own service, and when the entry's
// text gives back the very bytes on disk (a name that is not UTF-8 does not:
// its text holds replacement characters, and the full name then names no
// file), the entry is looked at relative to the open directory: the kernel
// resolves one name instead of the whole path again, with the same answer.
FileInfoC* FileListerC::infoOf(DIRStackC::ElementS* top, const char* entryName, const StringC& text,
                               const FileNameC* full) {
    FileServiceI* service = FlnFileServiceC::instance();
    Utf8ViewC bytes(text);
    if (!FlnFileServiceC::isLibraryService(service) || strlen(entryName) != bytes.size() ||
        memcmp(entryName, bytes.data(), bytes.size()) != 0)
        return service->getFileInfo(full, followLinks);
    struct stat64 record;
    if (fstatat64(dirfd(reinterpret_cast<DIR*>(top->handle)), entryName, &record,
                  followLinks ? 0 : AT_SYMLINK_NOFOLLOW) != 0)
        return nullptr;
    FileInfoC* info = new FileInfoC();
    fillFileInfo(info, record);
    return info;
}

void FileListerC::dispatch(FileListSinkI* sink, FileNameC* name, int state, bool isDirectory,
                           bool isParent) {
    int32_t answer = (state == 0 && isDirectory) ? sink->onDirectory(new FileNameC(name))
                                                 : sink->onFile(new FileNameC(name));
    lastSinkResult = answer;
    switch (answer) {
    case 0:
        // ".." is never entered, whatever the sink answers: the walk would
        // climb out of the tree and never end.
        if (state == 0 && recursive && isDirectory && !isParent) {
            delete pending;
            pending = name;
            return;
        }
        delete name;
        return;
    case 2:
        delete name;
        if (stack.size()) stack.pop();
        return;
    case 3:
        stack.popAll();
        delete name;
        return;
    default:
        delete name;
        return;
    }
}

uint32_t FileListerC::stepToSink(FileListSinkI* sink) {
    FileNameC* name;
    FileInfoC* info;
    uint32_t result = walk(&name, &info, sink, false);
    delete info;
    delete name;
    if (result != 0) destroy();
    return result;
}

uint32_t FileListerC::runToSink(FileListSinkI* sink) {
    for (;;) {
        if (!pending && stack.size() == 0) return 0;
        uint32_t result = stepToSink(sink);
        if (result == kListerEnd) return 0;
        if (result != 0) return result;
    }
}

uint32_t FileListerC::nextName(FileNameC** name, bool* isDirectory) {
    FileInfoC* info;
    uint32_t result = walk(name, &info, nullptr, false);
    if (result != 0) {
        destroy();
    } else if (isDirectory) {
        *isDirectory = info && info->type == FileInfoC::Directory;
    }
    delete info;
    return result;
}

uint32_t FileListerC::next(FileNameC** name, FileInfoC** info) {
    uint32_t result = step(name, info, nullptr);
    if (result != 0) destroy();
    return result;
}

uint32_t FileListerC::finish() {
    destroy();
    return kListerEnd;
}

uint32_t FileListerC::skipDirectory() {
    if (pending) {
        delete pending;
        pending = nullptr;
    } else if (stack.size()) {
        stack.pop();
    }
    return 0;
}

FileListerI* FileListerC::clearStatus() {
    status = 0;
    return this;
}

bool FileListerC::accepts(const FileNameC*, bool) { return true; }

uint32_t FileFindListerC::addSuffixes(const StringArrayC* list) {
    if (!list) return 1;
    for (uint32_t i = 0; i < list->size(); ++i) suffixes.append(*list->at(i));
    return 0;
}

bool FileFindListerC::accepts(const FileNameC* name, bool isDirectory) {
    if (isDirectory || !name) return false;
    StringC text = name->toString();
    for (uint32_t i = 0; i < suffixes.size(); ++i) {
        const StringC& suffix = *suffixes.at(i);
        if (suffix.isEmpty()) return true;
        int32_t at = text.findLast(suffix);
        if (at >= 0 && at + suffix.length() == text.length()) return true;
    }
    return false;
}

bool FileWildcardListerC::accepts(const FileNameC* name, bool isDirectory) {
    if (isDirectory || !name) return false;
    return name->matchesBaseName(pattern);
}

}  // namespace keel
