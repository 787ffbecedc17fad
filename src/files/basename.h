// Moved to the SDK: <keel/basename.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_FILES_BASENAME_FORWARD_H
#define KEEL_FILES_BASENAME_FORWARD_H
#include <keel/basename.h>
#endif
