// The whole public interface of keel in one include.
//
// A program links libkeel.so and reaches everything through the exported
// entry points declared in these headers; every other class a program sees
// is an abstract interface or a handle whose code is inline here.
#ifndef KEEL_KEEL_H
#define KEEL_KEEL_H

#include <keel/atomic.h>
#include <keel/refcount.h>
#include <keel/string.h>
#include <keel/arglist.h>
#include <keel/format.h>
#include <keel/trace.h>
#include <keel/errors.h>
#include <keel/fileserv.h>
#include <keel/locale.h>
#include <keel/config.h>

#endif
