#include "files/fileserv.h"
#include "files/filelist.h"
#include "files/fillistr.h"

#include <dirent.h>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>
#include <utime.h>

#include <new>
#include <string>

#include <keel/arglist.h>
#include <keel/errors.h>

#include "errors/errapi.h"
#include "files/copyfile.h"
#include "files/filestream.h"
#include "frame/loadorder.h"
#include "text/utf8view.h"

namespace keel {

namespace {

// The current service. Null at load (step 1); set once by the first
// instance() call unless setInstance put another service there before.
FileServiceI* currentService = nullptr;

const char kIsHiddenText[] =
    "\x01\x01"
    "e\x01"
    "Cannot get hidden state of file '%1$S'";
const char kSetHiddenText[] =
    "\x01\x01"
    "e\x01"
    "Cannot set hidden state of file '%1$S'";
const char kIsSystemText[] =
    "\x01\x01"
    "e\x01"
    "Cannot get system state of file '%1$S'";
const char kChangeDirectoryText[] =
    "\x01\x01"
    "e\x01"
    "Cannot change to directory '%1$S'";

const char kTemplateText[] =
    "\x01\x01"
    "e\x01"
    "createSecureTempFile failed to create the name template for temp file. '%1$S'";
const char kMissingDirectoryText[] =
    "\x01\x01"
    "e\x01"
    "createSecureTempFile the input directory does not exist. '%1$S'";
const char kNewTempText[] =
    "\x01\x01"
    "e\x01"
    "createSecureTempFile failed to create the new temp file name. '%1$S'";

// printf-style text in "system-8", for the arguments of the reports above.
StringC formatSystem(const char* format, ...) __attribute__((format(printf, 1, 2)));
StringC formatSystem(const char* format, ...) {
    char text[4200];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return StringC(text, "system-8");
}

const char kCreateDirectoryText[] =
    "\x01\x01"
    "e\x01"
    "Cannot create directory '%1$S'";
const char kOpenSourceText[] =
    "\x01\x01"
    "e\x01"
    "Failed to open the source file when copying file '%1$S' to '%2$S'";
const char kOpenDestinationText[] =
    "\x01\x01"
    "e\x01"
    "Failed to open the destination file when copying file '%1$S' to '%2$S'";
const char kReadSourceText[] =
    "\x01\x01"
    "e\x01"
    "Failed to read the source file when copying file '%1$S' to '%2$S'";
const char kWriteDestinationText[] =
    "\x01\x01"
    "e\x01"
    "Failed to write to the destination file when copying file '%1$S' to '%2$S'";

uint32_t reportTwoNames(uint32_t code, const char* text, const FileNameC* first,
                        const FileNameC* second) {
    ArgListC args;
    args.add(first ? first->toString() : StringC());
    args.add(second ? second->toString() : StringC());
    return reportError(code, text, args);
}

uint32_t reportWithName(uint32_t code, const char* text, const FileNameC* name) {
    ArgListC args;
    args.add(name ? name->toString() : StringC());
    return reportError(code, text, args);
}

// stat or lstat of the collapsed "system-8" text, retried on EINTR; false
// for an empty collapsed text.
bool statCollapsed(const FileNameC* name, bool link, struct stat64* record) {
    if (!name) return false;
    for (;;) {
        NativeNameC native(*name, true, false);
        if (native.isEmpty()) return false;
        const char* text = native.get();
        if (!text) return false;
        int result = link ? lstat64(text, record) : stat64(text, record);
        if (result == 0) return true;
        if (errno != EINTR) return false;
    }
}

}  // namespace

void loadStepFileserv() { atomicStoreRelease(&currentService, nullptr); }

NativeNameC::NativeNameC(const FileNameC& name, bool collapsed, bool utf8)
    : string(collapsed ? name.getCollapsedText() : name.toString()), utf8(utf8) {
    text = utf8 ? string.textUtf8() : string.textSystem();
    length = utf8 ? string.textUtf8Length() : string.textSystemLength();
}

NativeNameC::~NativeNameC() {
    if (utf8) {
        string.releaseUtf8(text);
    } else {
        string.releaseSystem(text);
    }
}

const char* NativeNameC::get() const {
    if (!text || strlen(text) != length) {
        errno = EINVAL;
        return nullptr;
    }
    return text;
}

FlnFileServiceC::FlnFileServiceC() : copyTotalBytes(0), copyTotalFiles(0), removeAtExitList(true) {
    srand(static_cast<unsigned>(time(nullptr)));
}

FlnFileServiceC::~FlnFileServiceC() {
    for (uint32_t i = 0; i < removeAtExitList.size(); ++i)
        remove(removeAtExitList.nameAt(i), false, true);
}

FileServiceI* FlnFileServiceC::instance() {
    FileServiceI* service = atomicLoadAcquire(&currentService);
    if (service) return service;
    static FlnFileServiceC theService;
    FileServiceI* expected = nullptr;
    FileServiceI* mine = &theService;
    if (atomicCompareExchange(&currentService, expected, mine)) return mine;
    // Somebody set a service first; that one stays in force.
    return expected;
}

FileServiceI* FlnFileServiceC::setInstance(FileServiceI* service) {
    return atomicExchange(&currentService, service);
}

FileNameArrayC* FlnFileServiceC::getRoots() {
    FileNameArrayC* roots = new FileNameArrayC(true);
    roots->append(new FileNameC(StringC("/", "ascii")));
    return roots;
}

FileNameC* FlnFileServiceC::getCurrentDirectory() {
    char* text = getcwd(nullptr, 0);
    if (!text) return nullptr;
    FileNameC* name = new FileNameC(StringC(text, "utf8"));
    free(text);
    return name;
}

namespace {

// canRead and canWrite: a file is opened with `openFlags` (what the caller
// would do next, so a lock or a mode that refuses the open answers false),
// anything else is asked of access with `accessMode`.
bool canOpen(bool file, const FileNameC* name, int openFlags, int accessMode) {
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    if (!text) return false;
    if (!file) return access(text, accessMode) == 0;
    int fd = open(text, openFlags | O_LARGEFILE);
    if (fd < 0) return false;
    close(fd);
    return true;
}

}  // namespace

bool FlnFileServiceC::canRead(const FileNameC* name) {
    return name && canOpen(isFile(name), name, O_RDONLY, R_OK);
}

bool FlnFileServiceC::canWrite(const FileNameC* name) {
    return name && canOpen(isFile(name), name, O_WRONLY, W_OK);
}

bool FlnFileServiceC::isReadOnly(const FileNameC* name) {
    if (!name) return false;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    struct stat64 record;
    return text && stat64(text, &record) == 0 && (record.st_mode & 0x80) == 0;
}

bool FlnFileServiceC::exists(const FileNameC* name) {
    if (!name) return false;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    return text && access(text, F_OK) == 0;
}

bool FlnFileServiceC::isDirectory(const FileNameC* name) {
    struct stat64 record;
    return statCollapsed(name, false, &record) && S_ISDIR(record.st_mode);
}

bool FlnFileServiceC::isSymbolicLink(const FileNameC* name) {
    struct stat64 record;
    return statCollapsed(name, true, &record) && S_ISLNK(record.st_mode);
}

bool FlnFileServiceC::isDirectoryEmpty(const FileNameC* name) {
    if (!name || name->getCollapsedText().isEmpty()) return true;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    DIR* directory = text ? opendir(text) : nullptr;
    if (!directory) return true;
    // "." and ".." come first on the file systems of this platform; a third
    // entry of any kind means the directory holds something.
    int seen = 0;
    bool empty = true;
    while (readdir64(directory)) {
        if (++seen == 3) {
            empty = false;
            break;
        }
    }
    closedir(directory);
    return empty;
}

FileNameC* FlnFileServiceC::readSymbolicLink(const FileNameC* name) {
    if (!name) return nullptr;
    char target[4097];
    for (;;) {
        NativeNameC native(*name, false, false);
        const char* text = native.get();
        if (!text) return nullptr;
        ssize_t length = readlink(text, target, 4096);
        if (length < 0) {
            if (errno == EINTR) continue;
            return nullptr;
        }
        if (length > 4096) return nullptr;
        target[length] = 0;
        return new FileNameC(StringC(target, "system-8"));
    }
}

bool FlnFileServiceC::isFile(const FileNameC* name) {
    if (!name) return false;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    struct stat64 record;
    return text && stat64(text, &record) == 0 && S_ISREG(record.st_mode);
}

bool FlnFileServiceC::isHidden(const FileNameC* name) {
    reportWithName(0xE0CB0012u, kIsHiddenText, name);
    return false;
}

int64_t FlnFileServiceC::getSize(const FileNameC* name, int32_t* fileCount) {
    if (isDirectory(name)) {
        // The walk of a recursive lister: every entry below that is no
        // directory (links are not entered) and is a regular file by stat.
        int64_t total = 0;
        int32_t files = 0;
        FileListerI* lister = createLister(name, 1);
        FileNameC* entry;
        bool entryIsDirectory;
        while (lister->nextName(&entry, &entryIsDirectory) == 0) {
            if (!entry) continue;
            if (!entryIsDirectory) {
                NativeNameC native(*entry, false, true);
                const char* text = native.get();
                int64_t size = 0;
                if (text && regularFileSize(text, &size)) {
                    total += size;
                    ++files;
                }
            }
            delete entry;
        }
        if (fileCount) *fileCount = files;
        return total;
    }
    if (fileCount) *fileCount = -1;
    if (!name) return -1;
    NativeNameC native(*name, true, true);
    const char* text = native.get();
    int64_t size = 0;
    if (!text || !regularFileSize(text, &size)) return -1;
    return size;
}

int32_t FlnFileServiceC::getModifiedTime(const FileNameC* name) {
    if (!name) return 0;
    NativeNameC native(*name, true, true);
    const char* text = native.get();
    struct stat64 record;
    if (!text || stat64(text, &record) != 0) return 0;
    return static_cast<int32_t>(record.st_mtime);
}

uint32_t FlnFileServiceC::setModifiedTime(const FileNameC* name, int32_t time) {
    if (!name || time < 0) return 0xE0CB000Cu;
    NativeNameC native(*name, true, true);
    const char* text = native.get();
    if (!text) return systemErrorCode(errno);
    struct stat64 record;
    // The access time is kept as stat found it; a failing stat leaves it 0,
    // and utime then tells whether the file is there.
    memset(&record, 0, sizeof record);
    stat64(text, &record);
    struct utimbuf times;
    times.actime = record.st_atime;
    times.modtime = time;
    if (utime(text, &times) != 0) return systemErrorCode(errno);
    return 0;
}

bool FlnFileServiceC::setReadOnly(const FileNameC* name, bool readOnly) {
    if (!name) return false;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    if (!text) return false;
    struct stat64 record;
    int fd = openVerified(text, &record);
    if (fd < 0) return false;
    mode_t mode = record.st_mode & 07777;
    if (readOnly) {
        mode &= ~static_cast<mode_t>(0x80);
    } else if (mode & 0x100) {
        mode |= 0x80;
    }
    bool changed = fchmod(fd, mode) == 0;
    close(fd);
    return changed;
}

uint32_t FlnFileServiceC::copyAttributes(const FileNameC* source, const FileNameC* destination) {
    if (!source || !destination) return systemErrorCode(EINVAL);
    struct stat64 sourceRecord;
    {
        NativeNameC native(*source, false, false);
        const char* text = native.get();
        int fd = text ? openVerified(text, &sourceRecord) : -1;
        if (fd < 0) return systemErrorCode(errno);
        close(fd);
    }
    NativeNameC native(*destination, false, false);
    const char* text = native.get();
    struct stat64 destinationRecord;
    int fd = text ? openVerified(text, &destinationRecord) : -1;
    if (fd < 0) return systemErrorCode(errno);
    if (fchmod(fd, sourceRecord.st_mode & 07777) != 0) {
        uint32_t code = systemErrorCode(errno);
        close(fd);
        return code;
    }
    if (fchown(fd, sourceRecord.st_uid, sourceRecord.st_gid) != 0) {
        uint32_t code = systemErrorCode(errno);
        close(fd);
        return code;
    }
    close(fd);
    return 0;
}

int64_t FlnFileServiceC::getFreeSpace(const FileNameC* name) {
    if (!name) return 0;
    FileNameC current(*name);
    StringC collapsed = current.getCollapsedText();
    while (!isDirectory(&current)) {
        if (current.isRoot()) break;
        if (collapsed.isEmpty()) {
            collapsed = StringC(".", "ascii");
            break;
        }
        current = FileNameC(current.getDirectoryText());
        collapsed = current.getCollapsedText();
    }
    Utf8ViewC text(collapsed);
    int64_t bytes = 0;
    bool known = strlen(text.chars()) == text.size() && freeDiskSpace(text.chars(), &bytes) == 0;
    return known ? bytes : -1;
}

// Temporary files and unique names. A name comes from rand(), which the
// service seeded at start; collisions are tried again and leave no report.
FileNameC* FlnFileServiceC::createTempName(const StringC& prefix) {
    StringC directory = getTempDirectory();
    if (!directory.isEmpty()) {
        FileNameC directoryName(directory);
        FileNameC* found = createUniqueName(&directoryName, prefix, StringC(), false);
        if (found) return found;
    }
    ArgListC args;
    args.add("Error creating temporary file using random file name");
    reportError(0xE0CB001Eu, kTemplateText, args);
    return nullptr;
}

StringC FlnFileServiceC::getTempDirectory() {
    static const char* const variables[] = {"TMPDIR", "TMP", "TEMP"};
    for (const char* variable : variables) {
        const char* value = getenv(variable);
        if (value) return StringC(value, "system-8");
    }
    return StringC("/tmp", "ascii");
}

uint32_t FlnFileServiceC::createSecureTempFile(StringC& outPath, int32_t* outDescriptor,
                                               const FileNameC* directory, const StringC& prefix) {
    int32_t ignored;
    if (!outDescriptor) outDescriptor = &ignored;
    *outDescriptor = -1;
    char buffer[4096];
    memset(buffer, 0, sizeof buffer);
    uint32_t code = 0;
    StringC dirText = directory ? directory->toString() : StringC();
    bool usable = false;
    if (!dirText.isEmpty()) {
        FileNameC given(dirText);
        usable = isDirectory(&given);
    }
    if (!usable) {
        // A directory the caller got wrong is replaced by the temporary one.
        dirText = getTempDirectory();
        if (dirText.isEmpty()) {
            ArgListC args;
            args.add(formatSystem("getenv failed with error %d", errno));
            code = reportError(0xE0CB001Eu, kTemplateText, args);
        } else {
            FileNameC fallback(dirText);
            usable = isDirectory(&fallback);
            if (!usable) {
                const char* text = dirText.textSystem();
                ArgListC args;
                args.add(formatSystem("Invalid temp dir: %s", text));
                dirText.releaseSystem(text);
                code = reportError(0xE0CB001Fu, kMissingDirectoryText, args);
            }
        }
    }
    if (usable) {
        const char* dirBytes = dirText.textSystem();
        const char* prefixBytes = prefix.textSystem();
        std::string pathTemplate = std::string(dirBytes) + "/" + prefixBytes + "XXXXXX";
        dirText.releaseSystem(dirBytes);
        prefix.releaseSystem(prefixBytes);
        if (pathTemplate.size() > 4095) {
            ArgListC args;
            args.add("The path constructed was too long");
            code = reportError(0xE0CB001Eu, kTemplateText, args);
        } else {
            int written = snprintf(buffer, sizeof buffer, "%s", pathTemplate.c_str());
            if (written > 4095) {
                ArgListC args;
                args.add(formatSystem("snprintf failed returning %d", written));
                code = reportError(0xE0CB001Eu, kTemplateText, args);
            } else {
                // mkstemp creates and opens in one step with O_EXCL, so a
                // name planted meanwhile (a symbolic link too) is never used.
                *outDescriptor = mkstemp(buffer);
                if (*outDescriptor == -1) {
                    ArgListC args;
                    args.add(formatSystem("mkstemp failed with errno %d", errno));
                    code = reportError(0xE0CB001Du, kNewTempText, args);
                }
            }
        }
    }
    if (*outDescriptor == -1 && code == 0) {
        ArgListC args;
        args.add("Unknown error creating temporary file");
        code = reportError(0xE0CB001Eu, kTemplateText, args);
    }
    outPath = StringC(buffer, "system-8");
    return code;
}

FileNameC* FlnFileServiceC::createUniqueName(const FileNameC* directory, const StringC& prefix,
                                             const StringC& suffix, bool create) {
    ErrBufI* errors = getErrBuf();
    uint32_t mark = errors->getMark();
    for (uint32_t attempt = 0; attempt < 0x7FFFFFFFu; ++attempt) {
        std::string number = std::to_string(rand());
        StringC text(StringC(prefix, StringC(number.c_str(), "ascii")), suffix);
        FileNameC* name = new FileNameC(directory, text);
        if (!create) {
            if (!exists(name)) return name;
            delete name;
            continue;
        }
        uint32_t count = errors->getCount();
        // Create new (O_CREAT | O_EXCL): a name somebody holds, a planted
        // symbolic link included, fails with EEXIST and the next is tried.
        IOStreamC* stream = openStream(name, 2, 2, 0, false);
        if (stream) {
            delete stream;
            return name;
        }
        delete name;
        if (errors->getCount() <= count) return nullptr;
        ErrEntryI* first = errors->getEntry(count);
        if (!first || first->getCode() != 0xE0000011u) return nullptr;
        errors->recover(mark);
    }
    return nullptr;
}

bool FlnFileServiceC::remove(const FileNameC* name, bool force, bool recursive) {
    if (!name) return false;
    bool gone;
    {
        NativeNameC native(*name, false, true);
        const char* text = native.get();
        if (!text) return false;
        // A symbolic link is taken away as a link, never followed: emptying
        // its target would reach outside what the caller named.
        if (!isSymbolicLink(name) && isDirectory(name)) {
            gone = rmdir(text) == 0;
            if (!gone && recursive) gone = removeChildren(name, force);
        } else {
            gone = ::remove(text) == 0 || errno == ENOENT;
        }
    }
    if (gone) return true;
    if (!force) return false;
    int error = errno;
    if (!setReadOnly(name, false)) {
        errno = error;
        return false;
    }
    return remove(name, false, recursive);
}

bool FlnFileServiceC::removeChildren(const FileNameC* directory, bool force) {
    FileListingC listing(instance()->createLister(directory, 0), true);
    bool all = true;
    int error = 0;
    for (uint32_t i = 0; i < listing.size(); ++i) {
        if (!remove(listing.nameAt(i), force, true)) {
            all = false;
            error = errno;
        }
    }
    NativeNameC native(*directory, false, true);
    const char* text = native.get();
    bool removed = text && rmdir(text) == 0;
    if (!removed) return false;
    if (!all) errno = error;
    return all;
}

void FlnFileServiceC::removeAtExit(const FileNameC* name) {
    if (name) removeAtExitList.append(new FileNameC(*name));
}

uint32_t FlnFileServiceC::removeFile(const FileNameC* name) {
    if (remove(name, false, true)) return 0;
    return reportSystemError();
}

bool FlnFileServiceC::createDirectory(const FileNameC* name, bool withParents) {
    if (!name || name->isRoot()) return false;
    if (name->getShareFlag() && name->getParent().isRoot()) return false;
    if (name->getCollapsedText().isEmpty()) return true;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    if (!text) return false;
    if (mkdir(text, 0777) == 0) return true;
    if (errno == EEXIST) return isDirectory(name);
    if (errno == ENOENT && withParents) {
        FileNameC parent = name->getParent();
        // A parent that names the same text (a name whose collapse is empty
        // above it) cannot help; stop instead of asking the same again.
        if (parent.compare(*name) == 0) return false;
        if (createDirectory(&parent, true)) return mkdir(text, 0777) == 0;
    }
    return false;
}

uint32_t FlnFileServiceC::move(const FileNameC* source, const FileNameC* destination) {
    if (!source || !destination) return systemErrorCode(EINVAL);
    int error;
    {
        NativeNameC from(*source, false, true);
        NativeNameC to(*destination, false, true);
        const char* fromText = from.get();
        const char* toText = to.get();
        if (!fromText || !toText) return systemErrorCode(EINVAL);
        errno = 0;
        if (rename(fromText, toText) == 0) return 0;
        error = errno;
    }
    if (error == 0) return 0;
    if (error != EXDEV || !isFile(source)) return systemErrorCode(error);
    // Across devices: copy, then remove. The copy must reach the disk
    // before the source goes; a destination that cannot be flushed or
    // closed is a failed write and the source stays.
    uint32_t closeCode = 0;
    uint32_t code = copyFile(source, destination, nullptr, nullptr, true, &closeCode);
    if (code != 0) return closeCode != 0 ? closeCode : code;
    copyAttributes(source, destination);
    setModifiedTime(destination, getModifiedTime(source));
    NativeNameC from(*source, false, true);
    const char* fromText = from.get();
    if (!fromText || ::remove(fromText) != 0) return systemErrorCode(errno);
    return 0;
}

uint32_t FlnFileServiceC::moveAlias(const FileNameC* source, const FileNameC* destination) {
    return move(source, destination);
}

uint32_t FlnFileServiceC::copyFile(const FileNameC* source, const FileNameC* destination,
                                   CopyProgressFn progress, void* context, bool syncDestination,
                                   uint32_t* closeCode) {
    FileServiceI* service = instance();
    IOStreamC* input = service->openStream(source, 3, 1, 1, false);
    if (!input) return reportTwoNames(0xE0CB0016u, kOpenSourceText, source, destination);
    int64_t fileSize = input->getLength();
    IOStreamC* output = service->openStream(destination, 1, 2, 1, false);
    if (!output) {
        delete input;
        return reportTwoNames(0xE0CB0017u, kOpenDestinationText, source, destination);
    }
    int64_t totalBytes = copyTotalBytes != 0 ? copyTotalBytes : fileSize;
    int32_t totalFiles = copyTotalFiles != 0 ? static_cast<int32_t>(copyTotalFiles) : 1;
    char buffer[4096];
    int64_t done = 0;
    uint32_t code = 0;
    for (;;) {
        int32_t got = input->read(buffer, sizeof buffer);
        if (got < 0) {
            code = reportTwoNames(0xE0CB0018u, kReadSourceText, source, destination);
            break;
        }
        if (got == 0) break;
        if (output->write(buffer, got) != 0) {
            code = reportTwoNames(0xE0CB0019u, kWriteDestinationText, source, destination);
            break;
        }
        done += got;
        // A stopped copy is no error; the partial destination stays.
        if (progress &&
            !progress(source, destination, totalBytes, totalFiles, fileSize, done, context))
            break;
    }
    // A destination that fails to close (or to reach the disk, when asked)
    // lost data that the writes above accepted: that is a failed write.
    uint32_t ending = 0;
    if (code == 0 && syncDestination) ending = output->flush();
    uint32_t closed = output->close();
    if (ending == 0) ending = closed;
    if (code == 0 && ending != 0) {
        if (closeCode) *closeCode = ending;
        code = reportTwoNames(0xE0CB0019u, kWriteDestinationText, source, destination);
    }
    delete output;
    delete input;
    return code;
}

uint32_t FlnFileServiceC::copyDirectoryNode(const FileNameC* source, const FileNameC* destination) {
    if (createDirectory(destination, false)) {
        copyAttributes(source, destination);
        return 0;
    }
    return reportWithName(0xE0CB0002u, kCreateDirectoryText, destination);
}

bool FlnFileServiceC::linksToAncestor(const FileNameC* source) {
    struct stat64 link;
    struct stat64 target;
    if (!statCollapsed(source, true, &link) || !S_ISLNK(link.st_mode)) return false;
    if (!statCollapsed(source, false, &target)) return false;
    FileNameC current = source->getParent();
    for (;;) {
        struct stat64 record;
        if (statCollapsed(&current, false, &record) && record.st_dev == target.st_dev &&
            record.st_ino == target.st_ino)
            return true;
        FileNameC parent = current.getParent();
        if (parent.compare(current) == 0 || current.isRoot()) return false;
        current = parent;
    }
}

uint32_t FlnFileServiceC::copy(const FileNameC* source, const FileNameC* destination,
                               CopyProgressFn progress, void* context) {
    if (!source || !destination)
        return reportTwoNames(0xE0CB0016u, kOpenSourceText, source, destination);
    if (!isDirectory(source)) {
        ErrBufI* errors = getErrBuf();
        uint32_t mark = errors->getMark();
        if (copyFile(source, destination, progress, context, false, nullptr) == 0) return 0;
        setReadOnly(destination, false);
        errors->recover(mark);
        return copyFile(source, destination, progress, context, false, nullptr);
    }
    uint32_t code = copyDirectoryNode(source, destination);
    if (code != 0) return code;
    // A link to a directory on its own path would be copied into itself
    // without end: the directory is made, not entered.
    if (linksToAncestor(source)) return 0;
    int32_t files = 0;
    copyTotalBytes = getSize(source, &files);
    copyTotalFiles = static_cast<uint32_t>(files);
    FileListerI* lister = createLister(source, 5);
    FileNameC* entry;
    bool entryIsDirectory;
    for (;;) {
        if (lister->nextName(&entry, &entryIsDirectory) != 0) {
            copyTotalBytes = 0;
            copyTotalFiles = 0;
            return 0;
        }
        if (!entry) continue;
        StringC relative = entry->getCollapsedText();
        FileNameC from(source, relative);
        FileNameC to(destination, relative);
        code =
            entryIsDirectory ? copyDirectoryNode(&from, &to) : copy(&from, &to, progress, context);
        delete entry;
        if (code != 0) {
            lister->finish();
            return code;
        }
    }
}

FileListerI* FlnFileServiceC::createLister(const FileNameC* name, uint32_t flags) {
    return new FileListerC(name, flags);
}

bool FlnFileServiceC::isSystem(const FileNameC* name) {
    reportWithName(0xE0CB0014u, kIsSystemText, name);
    return false;
}

uint32_t FlnFileServiceC::setHidden(const FileNameC* name) {
    return reportWithName(0xE0CB0013u, kSetHiddenText, name);
}

uint32_t FlnFileServiceC::reservedFileCheck(const FileNameC* name) {
    isFile(name);
    return 0;
}

IOStreamC* FlnFileServiceC::openStream(const FileNameC* name, uint32_t creationMode,
                                       uint32_t accessMode, uint32_t shareMode, bool wait) {
    return FileStreamC::open(name, creationMode, accessMode, shareMode, wait);
}

uint32_t FlnFileServiceC::setCurrentDirectory(const FileNameC* name) {
    if (name) {
        NativeNameC native(*name, false, true);
        const char* text = native.get();
        if (text && chdir(text) == 0) return 0;
    } else {
        errno = EINVAL;
    }
    reportSystemError();
    return reportWithName(0xE0CB0011u, kChangeDirectoryText, name);
}

FileInfoC* FlnFileServiceC::getFileInfo(const FileNameC* name, bool followLinks) {
    if (!name) return nullptr;
    NativeNameC native(*name, false, true);
    const char* text = native.get();
    struct stat64 record;
    if (!text || (followLinks ? stat64(text, &record) : lstat64(text, &record)) != 0)
        return nullptr;
    FileInfoC* info = new FileInfoC();
    fillFileInfo(info, record);
    return info;
}

int32_t FlnFileServiceC::openVerified(const char* path, struct stat64* record) {
    if (!path || !record) {
        errno = EINVAL;
        return -1;
    }
    struct stat64 seen;
    if (lstat64(path, &seen) != 0) return -1;
    int fd = open(path, O_RDONLY | O_LARGEFILE);
    if (fd < 0) return -1;
    if (fstat64(fd, record) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    if (seen.st_mode != record->st_mode || seen.st_ino != record->st_ino ||
        seen.st_dev != record->st_dev || seen.st_size != record->st_size) {
        // Closed here rather than left open, and errno says why: nothing
        // failed, the name was a link or the file changed under it.
        close(fd);
        errno = S_ISLNK(seen.st_mode) ? ELOOP : EAGAIN;
        return -1;
    }
    if (!isSameFile(path, record)) {
        close(fd);
        errno = S_ISLNK(seen.st_mode) ? ELOOP : EAGAIN;
        return -1;
    }
    return fd;
}

bool FlnFileServiceC::isSameFile(const char* path, const struct stat64* record) {
    struct stat64 seen;
    if (!path || !record || lstat64(path, &seen) != 0) return false;
    return seen.st_dev == record->st_dev && seen.st_ino == record->st_ino;
}

}  // namespace keel
