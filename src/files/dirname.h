// Moved to the SDK: <keel/dirname.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_FILES_DIRNAME_FORWARD_H
#define KEEL_FILES_DIRNAME_FORWARD_H
#include <keel/dirname.h>
#endif
