// Moved to the SDK: <keel/trim.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_TEXT_TRIM_FORWARD_H
#define KEEL_TEXT_TRIM_FORWARD_H
#include <keel/trim.h>
#endif
