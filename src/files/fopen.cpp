#include "files/fopen.h"

#include <fcntl.h>
#include <string.h>

namespace keel {

FILE* openFileOrStandardInput(const char* path, const char* mode) {
    if (!path) return nullptr;
    if (strcmp(path, "-") == 0) return stdin;
    return fopen(path, mode);
}

int createFileText(const char* path, mode_t mode) { return creat(path, mode); }

}  // namespace keel
