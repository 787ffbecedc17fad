// Byte streams: InputStreamC and OutputStreamC are the two abstract halves,
// IOStreamC joins them (input first), and FileStreamC (filestream.h) is the
// one concrete stream, over a file descriptor.
//
//     keel::IOStreamC* stream = keel::FlnFileServiceC::instance()->openStream(&name, 3, 1, 1, false);
//     char buffer[1024];
//     int32_t got = stream->read(buffer, sizeof buffer);   // 0 at the end, -1 on failure
//     delete stream;                                        // closes it
//
// Operations that answer a count or a position give -1 for a failure, whose
// code then stands in the error buffer; operations that answer a code give
// it directly. A stream has no lock: one thread at a time.
#ifndef KEEL_FILES_IOSTREAM_H
#define KEEL_FILES_IOSTREAM_H

#include <stdint.h>

namespace keel {

class InputStreamC {
public:
    virtual ~InputStreamC() {}
    virtual uint32_t close() { return 0; }
    // Up to `length` bytes; 0 at the end, -1 on failure.
    virtual int32_t read(void* buffer, uint32_t length) = 0;
    // -1 on failure.
    virtual int64_t getLength() = 0;
    virtual bool canRead() = 0;
    virtual bool canSeek() = 0;
    virtual bool canWrite() = 0;
    // seek(0, 1).
    virtual int64_t getPosition() { return seek(0, 1); }
    // Whence 1 from the current position, 2 from the end, anything else from
    // the start. The new position, or -1.
    virtual int64_t seek(int64_t offset, int32_t whence) = 0;
};

class OutputStreamC {
public:
    virtual ~OutputStreamC() {}
    virtual uint32_t close() { return 0; }
    // All `length` bytes, or the code of the failure; a length below 1
    // writes nothing.
    virtual uint32_t write(const void* buffer, int32_t length) = 0;
    // Copies `count` bytes of `input` (all that is left for a count of 0 or
    // below) in chunks of 1,024 bytes. The end of the input, or a read that
    // fails (the input has reported it), ends the copy with 0; a failing
    // write reports 0xE0CB0015 and answers it.
    virtual uint32_t writeFrom(InputStreamC* input, int32_t count);
    // writeFrom(input, 0), its code ignored.
    virtual OutputStreamC* writeAll(InputStreamC* input);
    virtual uint32_t flush() = 0;
    virtual uint32_t setLength(int64_t length) = 0;
};

class IOStreamC : public InputStreamC, public OutputStreamC {
public:
    // Both halves' close reach the one implementation of a derived class.
    uint32_t close() override { return 0; }
};

}  // namespace keel

#endif
