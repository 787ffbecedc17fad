// Moved to the SDK: <keel/strset.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_CONTAINERS_STRSET_FORWARD_H
#define KEEL_CONTAINERS_STRSET_FORWARD_H
#include <keel/strset.h>
#endif
