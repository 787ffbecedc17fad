// Moved to the SDK: <keel/blobarr.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_CONTAINERS_BLOBARR_FORWARD_H
#define KEEL_CONTAINERS_BLOBARR_FORWARD_H
#include <keel/blobarr.h>
#endif
