// File queries and whole-file copies by plain 8-bit path, below the file
// service: existence, regular size, free space, removal, and a block-wise
// copy and move that keep the source's permission bits.
//
//     int64_t size;
//     if (keel::regularFileSize(path, &size)) { ... }
//     int code = keel::moveFileData(from, to);   // 0 done, 1 I/O, 2 memory, 3 space
//
// None of these records anything in the error buffer; each answers by its
// result alone.
#ifndef KEEL_FILES_COPYFILE_H
#define KEEL_FILES_COPYFILE_H

#include <stdint.h>
#include <stdio.h>

namespace keel {

// Results of copyFileData and moveFileData.
enum : int {
    kCopyDone = 0,
    kCopyFileFailed = 1,
    kCopyNoMemory = 2,
    kCopyNoSpace = 3,
};

// True when remove(path) succeeded.
bool removePath(const char* path);

// True and the size when stat works and the file is regular; otherwise false
// and 0 stored.
bool regularFileSize(const char* path, int64_t* size);

// True when access(path, F_OK) succeeds.
bool pathExists(const char* path);

// 0 and the free bytes of the file system holding `path`, or 1 and 0 stored.
// A privileged caller (effective user 0) is given the blocks reserved for
// it, others only the ones available to everybody. Never above INT64_MAX.
int freeDiskSpace(const char* path, int64_t* bytes);

// The byte count of `blocks` blocks of `blockSize` bytes, INT64_MAX where the
// product would not fit.
int64_t freeBytesOf(uint64_t blocks, uint64_t blockSize);

// Copies the content of `source` into `destination` (created or emptied) in
// blocks of 1,024 bytes and gives it the source's permission bits. Answers
// kCopyDone, kCopyFileFailed, kCopyNoMemory or kCopyNoSpace.
int copyFileData(const char* source, const char* destination);

// rename, and where that fails copyFileData followed by removing the source.
// Answers 0 after a rename, otherwise the code of the copy.
int moveFileData(const char* source, const char* destination);

// Test hook: the function that closes the destination of copyFileData in
// place of fclose (it must close the stream whatever it answers). Null, the
// default, is fclose. A failure at close (a full disk or an I/O error seen
// only when the last block is flushed) is otherwise hard to bring about.
typedef int (*CopyCloseFn)(FILE* stream);
void setCopyCloseFunction(CopyCloseFn close);

}  // namespace keel

#endif
