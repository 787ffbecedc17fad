// FileListingC: a sink that gathers what a lister reports into an owning
// FileNameArrayC.
//
//     keel::FileListingC listing(files->createLister(&start, 1), true);
//     // listing.size() names; listing.getStatus() is 0, or the errno of the
//     // first directory that could not be opened (the listing stops there).
#ifndef KEEL_FILES_FILELIST_H
#define KEEL_FILES_FILELIST_H

#include "files/filenarr.h"
#include "files/fillistr.h"

namespace keel {

class FileListingC : public FileNameArrayC, public FileListSinkI {
public:
    // With `run`, walks the lister to its end at once; the lister is then
    // gone in every case (one that the walk left alive is deleted here).
    FileListingC(FileListerI* lister, bool run);
    ~FileListingC() override {}

    int32_t onFile(FileNameC* name) override;
    int32_t onDirectory(FileNameC* name) override;
    int32_t onError(const FileNameC* name, int error) override;

    uint32_t getStatus() const { return status; }

private:
    FileListerI* lister;
    bool ran;
    uint32_t status;
};

}  // namespace keel

#endif
