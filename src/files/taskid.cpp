#include "files/taskid.h"

#include <unistd.h>

namespace keel {

int32_t getProcessId() { return static_cast<int32_t>(getpid()); }

}  // namespace keel
