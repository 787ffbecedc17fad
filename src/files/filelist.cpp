#include "files/filelist.h"

namespace keel {

FileListingC::FileListingC(FileListerI* lister, bool run)
    : FileNameArrayC(true), lister(lister), ran(false), status(0) {
    if (!run || !lister) return;
    ran = true;
    // runToSink answers 0 both when it reached the end (the lister deleted
    // itself) and when the walk emptied before a step (the lister lives on):
    // the alive flag tells them apart, so no lister is leaked.
    FileListerC* walker = dynamic_cast<FileListerC*>(lister);
    bool alive = true;
    if (walker) walker->setAliveFlag(&alive);
    uint32_t result = lister->runToSink(this);
    if (status == 0) status = result;
    if (walker && alive) {
        walker->setAliveFlag(nullptr);
        delete walker;
    }
    this->lister = nullptr;
}

int32_t FileListingC::onFile(FileNameC* name) {
    append(name);
    return 0;
}

int32_t FileListingC::onDirectory(FileNameC* name) {
    append(name);
    return 0;
}

int32_t FileListingC::onError(const FileNameC*, int error) {
    status = static_cast<uint32_t>(error);
    return 3;
}

}  // namespace keel
