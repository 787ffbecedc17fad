// Moved to the SDK: <keel/number.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_TEXT_NUMBER_FORWARD_H
#define KEEL_TEXT_NUMBER_FORWARD_H
#include <keel/number.h>
#endif
