// Directory listers: a depth-first walk of one directory or a tree that
// holds one open directory handle per level, never the tree.
//
//     #include <keel/filelister.h>
//
//     keel::FileListerI* lister = keel::FlnFileServiceC::instance()->createLister(&start, 1);
//     keel::FileNameC* name; keel::FileInfoC* info;
//     while (lister->next(&name, &info) == 0) {   // non-zero: the lister is gone
//         if (name) ...; delete name; delete info;
//     }
//
// A lister deletes itself when one of its pull operations (stepToSink,
// nextName, next, finish) answers non-zero: do not touch it afterwards.
// runToSink answers 0 with the lister alive when the walk emptied; its
// owner then deletes it (isAlive tells which case it was).
//
// Flags: 1 recursive, 2 follow symbolic links (stat instead of lstat, so a
// link to a directory is entered), 4 names relative to the start, 8 report
// "..". ".." is reported but never entered, by a pull or through a sink.
#ifndef KEEL_FILELISTER_H
#define KEEL_FILELISTER_H

#include <stdint.h>

#include <keel/fileserv.h>

namespace keel {

// The end of a walk: no text, never reported.
const uint32_t kListerEnd = 0xE0CB0001u;

class FileListSinkI {
public:
    virtual ~FileListSinkI() {}
    // Answers: 0 go on (a directory is entered when the lister is
    // recursive), 1 go on without entering it, 2 leave the directory being
    // read, 3 end the walk. The name belongs to the sink.
    virtual int32_t onFile(FileNameC* name) = 0;
    virtual int32_t onDirectory(FileNameC* name) = 0;
    // A directory that cannot be opened; the name stays the lister's.
    virtual int32_t onError(const FileNameC* name, int error) = 0;
};

class FileListerI {
public:
    virtual ~FileListerI() {}
    virtual uint32_t stepToSink(FileListSinkI* sink) = 0;
    virtual uint32_t runToSink(FileListSinkI* sink) = 0;
    // *name may be null with an answer of 0 (a directory failed to open).
    virtual uint32_t nextName(FileNameC** name, bool* isDirectory) = 0;
    virtual uint32_t next(FileNameC** name, FileInfoC** info) = 0;
    // Deletes the lister; answers kListerEnd.
    virtual uint32_t finish() = 0;
    // Refuses the directory just returned, else leaves the current one.
    virtual uint32_t skipDirectory() = 0;
    virtual FileListerI* clearStatus() = 0;
    virtual uint32_t step(FileNameC** name, FileInfoC** info, FileListSinkI* sink) = 0;
    virtual bool accepts(const FileNameC* name, bool isDirectory) = 0;
};

}  // namespace keel

#endif
