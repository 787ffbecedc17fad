#include "files/filestream.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <keel/arglist.h>

#include "errors/errapi.h"
#include "files/fileserv.h"

namespace keel {

namespace {

const char kOpenFailedText[] =
    "\x01\x01"
    "e\x01"
    "Failed to open file '%1$S'";
const char kAppendText[] =
    "\x01\x01"
    "e\x01"
    "Attempted to open '%1$S' for appending without write access";

uint32_t reportOpenFailed(uint32_t code, const char* text, const FileNameC* name) {
    ArgListC args;
    args.add(name ? name->toString() : StringC());
    return reportError(code, text, args);
}

void closeRetrying(int fd) {
    while (::close(fd) != 0 && errno == EINTR) {}
}

// The system error, then 0xE0CB0010, then the descriptor closed.
FileStreamC* failOpen(const FileNameC* name, int fd) {
    reportSystemError();
    reportOpenFailed(0xE0CB0010u, kOpenFailedText, name);
    if (fd >= 0) closeRetrying(fd);
    return nullptr;
}

// The access flag: widened where the lock needs it (a write lock needs a
// descriptor that writes, a read lock one that reads) or where the
// truncation of an unlocked open needs write access.
int accessFlag(uint32_t accessMode, uint32_t shareMode, uint32_t creationMode) {
    if (accessMode == FileStreamC::ReadWrite) return O_RDWR;
    if (accessMode == FileStreamC::Write) return shareMode == 1 ? O_RDWR : O_WRONLY;
    // Read, and any value outside 1 to 3.
    if (shareMode == 0) return O_RDWR;
    if (shareMode == 1) return O_RDONLY;
    return (creationMode == FileStreamC::CreateOrTruncate ||
            creationMode == FileStreamC::TruncateExisting)
               ? O_RDWR
               : O_RDONLY;
}

}  // namespace

FileStreamC::~FileStreamC() {
    if (handle >= 0) closeRetrying(handle);
}

FileStreamC* FileStreamC::open(const FileNameC* name, uint32_t creationMode, uint32_t accessMode,
                               uint32_t shareMode, bool wait) {
    if (creationMode == Append && (accessMode & 2) == 0) {
        reportOpenFailed(0xE0CB0009u, kAppendText, name);
        return nullptr;
    }
    bool locking = shareMode == 0 || shareMode == 1;
    int flags = accessFlag(accessMode, shareMode, creationMode);
    bool truncateLater = false;
    switch (creationMode) {
    case Append:
        flags |= O_CREAT | O_APPEND;
        break;
    case CreateOrTruncate:
        flags |= O_CREAT;
        if (locking) {
            truncateLater = true;
        } else {
            flags |= O_TRUNC;
        }
        break;
    case CreateNew:
        flags |= O_CREAT | O_EXCL;
        break;
    case OpenExisting:
        break;
    case OpenOrCreate:
        flags |= O_CREAT;
        break;
    case TruncateExisting:
        if (locking) {
            truncateLater = true;
        } else {
            flags |= O_TRUNC;
        }
        break;
    default:
        reportError(0xE0000009u, nullptr);
        reportOpenFailed(0xE0CB0010u, kOpenFailedText, name);
        return nullptr;
    }
    flags |= O_LARGEFILE | O_CLOEXEC;

    if (!name) {
        errno = EINVAL;
        return failOpen(name, -1);
    }
    int fd;
    for (;;) {
        NativeNameC native(*name, false, true);
        const char* text = native.get();
        if (!text) return failOpen(name, -1);
        fd = ::open(text, flags, 0666);
        if (fd >= 0 || errno != EINTR) break;
    }
    if (fd < 0) return failOpen(name, -1);

    if (locking) {
        struct flock lock;
        lock.l_type = shareMode == 0 ? F_WRLCK : F_RDLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = 0;
        lock.l_len = 0;
        int result;
        do {
            result = fcntl(fd, wait ? F_SETLKW : F_SETLK, &lock);
        } while (result != 0 && errno == EINTR);
        if (result != 0) {
            // Some systems say EACCES for a lock held elsewhere; one code
            // for that case whatever the system says.
            if (errno == EACCES) errno = EAGAIN;
            return failOpen(name, fd);
        }
        struct stat64 opened;
        struct stat64 named;
        if (fstat64(fd, &opened) != 0) return failOpen(name, fd);
        {
            NativeNameC native(*name, false, false);
            const char* text = native.get();
            if (!text || stat64(text, &named) != 0) return failOpen(name, fd);
        }
        if (opened.st_dev != named.st_dev || opened.st_ino != named.st_ino) {
            // The file was replaced between the open and the lock.
            reportError(systemErrorCode(EAGAIN), nullptr);
            reportOpenFailed(0xE0CB0010u, kOpenFailedText, name);
            closeRetrying(fd);
            return nullptr;
        }
    }
    if (truncateLater && (flags & O_ACCMODE) != O_RDONLY) {
        int result;
        do {
            result = ftruncate64(fd, 0);
        } while (result != 0 && errno == EINTR);
        if (result != 0) return failOpen(name, fd);
    }
    FileStreamC* stream = new FileStreamC(fd, creationMode, accessMode);
    if (creationMode == Append && stream->seek(0, 2) < 0) {
        delete stream;
        return nullptr;
    }
    return stream;
}

uint32_t FileStreamC::close() {
    if (handle < 0) return 0;
    int fd = handle;
    handle = -1;
    int result;
    do {
        result = ::close(fd);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : reportSystemError();
}

int32_t FileStreamC::read(void* buffer, uint32_t length) {
    if (!canRead()) {
        reportError(0xE0CB0006u,
                    "\x01\x01"
                    "e\x01"
                    "Attempted to read from a stream that does not support reading");
        return -1;
    }
    // The answer is a signed 32-bit count, so one call reads at most that.
    if (length > 0x7FFFFFFFu) length = 0x7FFFFFFFu;
    ssize_t got = ::read(handle, buffer, length);
    if (got < 0) {
        reportSystemError();
        return -1;
    }
    return static_cast<int32_t>(got);
}

int64_t FileStreamC::getLength() {
    if (handle < 0) {
        reportError(0xE0CB0005u,
                    "\x01\x01"
                    "e\x01"
                    "Cannot obtain length of stream");
        return -1;
    }
    struct stat64 record;
    if (fstat64(handle, &record) != 0) {
        reportSystemError();
        return -1;
    }
    return static_cast<int64_t>(record.st_size);
}

int64_t FileStreamC::seek(int64_t offset, int32_t whence) {
    if (!canSeek()) {
        reportError(0xE0CB0007u,
                    "\x01\x01"
                    "e\x01"
                    "Attempted to set current position in a stream that does not support seeking");
        return -1;
    }
    int from = whence == 1 ? SEEK_CUR : whence == 2 ? SEEK_END : SEEK_SET;
    errno = 0;
    off64_t position = lseek64(handle, static_cast<off64_t>(offset), from);
    if (position < 0) {
        if (errno == 0) return static_cast<int64_t>(position);
        reportSystemError();
        return -1;
    }
    return static_cast<int64_t>(position);
}

uint32_t FileStreamC::setLength(int64_t length) {
    if (!canWrite() || !canSeek())
        return reportError(0xE0CB000Bu,
                           "\x01\x01"
                           "e\x01"
                           "Attempted to set length on non-resizable stream");
    if (ftruncate64(handle, static_cast<off64_t>(length)) != 0) return reportSystemError();
    return 0;
}

uint32_t FileStreamC::flush() {
    if (!canWrite()) return 0;
    if (fsync(handle) != 0) return reportSystemError();
    return 0;
}

uint32_t FileStreamC::write(const void* buffer, int32_t length) {
    if (!canWrite())
        return reportError(0xE0CB0008u,
                           "\x01\x01"
                           "e\x01"
                           "Attempted to write to a stream that does not support writing");
    if (length < 1) return 0;
    const char* bytes = static_cast<const char*>(buffer);
    while (length > 0) {
        ssize_t written = ::write(handle, bytes, static_cast<size_t>(length));
        if (written < 0) return reportSystemError();
        // A write that takes nothing would repeat forever; the disk is full.
        if (written == 0) {
            errno = ENOSPC;
            return reportSystemError();
        }
        bytes += written;
        length -= static_cast<int32_t>(written);
    }
    return 0;
}

}  // namespace keel
