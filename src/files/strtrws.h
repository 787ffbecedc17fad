// Moved to the SDK: <keel/strtrws.h>. Kept so that code written against the
// old path still builds; new code includes the public header.
#ifndef KEEL_FILES_STRTRWS_FORWARD_H
#define KEEL_FILES_STRTRWS_FORWARD_H
#include <keel/strtrws.h>
#endif
