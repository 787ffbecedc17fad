// Moved to the SDK: <keel/split.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_TEXT_SPLIT_FORWARD_H
#define KEEL_TEXT_SPLIT_FORWARD_H
#include <keel/split.h>
#endif
