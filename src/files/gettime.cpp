#include "files/gettime.h"

namespace keel {

int getTimeOfDay(struct timeval* now) {
    struct timezone zone;
    return gettimeofday(now, &zone);
}

}  // namespace keel
