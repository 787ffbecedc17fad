// Moved to the SDK: <keel/replace.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_TEXT_REPLACE_FORWARD_H
#define KEEL_TEXT_REPLACE_FORWARD_H
#include <keel/replace.h>
#endif
