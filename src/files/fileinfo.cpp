#include <sys/stat.h>

#include <keel/fileserv.h>

#include "files/fileserv.h"

namespace keel {

void fillFileInfo(FileInfoC* info, const struct stat64& record) {
    mode_t mode = record.st_mode;
    if (S_ISREG(mode)) {
        info->type = FileInfoC::RegularFile;
    } else if (S_ISDIR(mode)) {
        info->type = FileInfoC::Directory;
    } else if (S_ISCHR(mode)) {
        info->type = FileInfoC::CharacterDevice;
    } else if (S_ISBLK(mode)) {
        info->type = FileInfoC::BlockDevice;
    } else if (S_ISFIFO(mode)) {
        info->type = FileInfoC::NamedPipe;
    } else if (S_ISLNK(mode)) {
        info->type = FileInfoC::SymbolicLink;
    } else if (S_ISSOCK(mode)) {
        info->type = FileInfoC::Socket;
    } else {
        info->type = FileInfoC::Other;
    }
    // The nine permission bits one by one, owner read 0x100 to other
    // execute 0x1; their values are those of the mode on this platform.
    static const mode_t bits[] = {S_IRUSR, S_IWUSR, S_IXUSR, S_IRGRP, S_IWGRP,
                                  S_IXGRP, S_IROTH, S_IWOTH, S_IXOTH};
    uint32_t permissions = 0;
    for (int i = 0; i < 9; ++i) {
        if (mode & bits[i]) permissions |= 0x100u >> i;
    }
    info->permissions = permissions;
    info->size = static_cast<int64_t>(record.st_size);
    info->changeTime = static_cast<int32_t>(record.st_ctime);
    info->modifiedTime = static_cast<int32_t>(record.st_mtime);
    info->accessTime = static_cast<int32_t>(record.st_atime);
    info->device = static_cast<uint64_t>(record.st_dev);
    info->userId = static_cast<uint32_t>(record.st_uid);
    info->groupId = static_cast<uint32_t>(record.st_gid);
}

}  // namespace keel
