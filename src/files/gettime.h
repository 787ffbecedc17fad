// Wall-clock time with microseconds, for trace line prefixes and time stamps.
#ifndef KEEL_FILES_GETTIME_H
#define KEEL_FILES_GETTIME_H

#include <sys/time.h>

namespace keel {

// gettimeofday into `now`; the time-zone record is not handed out. Answers
// the system call's result.
int getTimeOfDay(struct timeval* now);

}  // namespace keel

#endif
