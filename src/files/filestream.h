// FileStreamC: the byte stream over a file descriptor, handed out by
// FileServiceI::openStream. No buffer of its own: each read and write is a
// system call, and flush is fsync.
//
//     keel::IOStreamC* out = keel::FileStreamC::open(&name, 1, 2, 0, false);   // create, write, exclusive
//     if (!out) ...   // the system error and 0xE0CB0010 are in the error buffer
//     out->write("abc", 3);
//     delete out;     // closes, and so drops the lock
//
// Share mode 0 takes an fcntl write lock on the whole file and 1 a read lock
// (other processes see both, and a refused lock gives 0xE000000B); 2 and 3
// take none. After locking, open checks that the name still names the file
// it locked, and a truncation that the creation mode asks for happens only
// once the lock is held. Offsets and lengths are 64 bits on every platform.
#ifndef KEEL_FILES_FILESTREAM_H
#define KEEL_FILES_FILESTREAM_H

#include <stdint.h>

#include <keel/filename.h>
#include "files/iostream.h"

namespace keel {

class FileStreamC : public IOStreamC {
public:
    enum : uint32_t {
        // Creation modes.
        Append = 0,
        CreateOrTruncate = 1,
        CreateNew = 2,
        OpenExisting = 3,
        OpenOrCreate = 4,
        TruncateExisting = 5,
        // Access modes (also the bits of accessMode).
        Read = 1,
        Write = 2,
        ReadWrite = 3,
        // Share modes.
        Exclusive = 0,
        Shared = 1,
        NoLock = 2,
    };

    // Only stores the three values; open is what makes streams.
    FileStreamC(int32_t handle, uint32_t creationMode, uint32_t accessMode)
        : handle(handle), creationMode(creationMode), accessMode(accessMode) {}
    // Closes the descriptor, ignoring the result.
    ~FileStreamC() override;

    // A new stream, or null after reporting (the system error first, then
    // 0xE0CB0010 with the name). `wait` waits for a lock held elsewhere.
    static FileStreamC* open(const FileNameC* name, uint32_t creationMode, uint32_t accessMode,
                             uint32_t shareMode, bool wait);

    uint32_t close() override;
    int32_t read(void* buffer, uint32_t length) override;
    int64_t getLength() override;
    bool canRead() override { return handle >= 0 && (accessMode & 1) != 0; }
    bool canSeek() override { return handle >= 0; }
    bool canWrite() override { return handle >= 0 && (accessMode & 2) != 0; }
    int64_t seek(int64_t offset, int32_t whence) override;
    uint32_t setLength(int64_t length) override;
    uint32_t flush() override;
    uint32_t write(const void* buffer, int32_t length) override;

    int32_t getHandle() const { return handle; }

private:
    int32_t handle;
    // As given to open; kept (it is part of the stream's recorded state) and
    // read by nothing, which the attribute tells the compiler.
    [[maybe_unused]] uint32_t creationMode;
    uint32_t accessMode;
};

}  // namespace keel

#endif
