#include "files/basename.h"

#include <string.h>

namespace keel {

const char* baseNameOf(const char* path) {
    if (!path) return nullptr;
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

}  // namespace keel
