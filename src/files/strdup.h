// Moved to the SDK: <keel/strdup.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_FILES_STRDUP_FORWARD_H
#define KEEL_FILES_STRDUP_FORWARD_H
#include <keel/strdup.h>
#endif
