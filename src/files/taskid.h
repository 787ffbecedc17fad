// The calling process's id, for trace file names and trace line prefixes.
#ifndef KEEL_FILES_TASKID_H
#define KEEL_FILES_TASKID_H

#include <stdint.h>

namespace keel {

// getpid of the calling process.
int32_t getProcessId();

}  // namespace keel

#endif
