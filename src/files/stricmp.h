// Moved to the SDK: <keel/stricmp.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_FILES_STRICMP_FORWARD_H
#define KEEL_FILES_STRICMP_FORWARD_H
#include <keel/stricmp.h>
#endif
