#include "files/osvers.h"

#include <ctype.h>
#include <stdlib.h>
#include <sys/utsname.h>

namespace keel {

OsVersionC::OsVersionC()
    : family(0),
      kind(5),
      reserved0(0),
      major(0),
      minor(0),
      reserved1(0),
      reserved2(0),
      cachedFlagA(-1),
      cachedFlagB(-1) {
    struct utsname names;
    if (uname(&names) == 0) readRelease(names.release);
    family = 10;
}

OsVersionC::~OsVersionC() {}

void OsVersionC::readRelease(const char* release) {
    const char* p = release;
    if (!p || !*p) return;
    while (*p && !isdigit(static_cast<unsigned char>(*p))) ++p;
    if (!*p) return;
    char* end = nullptr;
    major = static_cast<int32_t>(strtol(p, &end, 10));
    p = end;
    if (!*p) return;
    if (!isdigit(static_cast<unsigned char>(*p))) {
        while (*p && !isdigit(static_cast<unsigned char>(*p))) ++p;
        if (!*p) return;
    }
    minor = static_cast<int32_t>(strtol(p, nullptr, 10));
}

// No lock: two first calls at once may each make an object, and one of them
// is then left alive unused. The cell is read and written atomically so that
// the race stays a harmless duplicate and never a torn pointer.
static OsVersionC* theOsVersion = nullptr;

OsVersionC* OsVersionC::instance() {
    OsVersionC* one = __atomic_load_n(&theOsVersion, __ATOMIC_ACQUIRE);
    if (!one) {
        one = new OsVersionC();
        __atomic_store_n(&theOsVersion, one, __ATOMIC_RELEASE);
    }
    return one;
}

namespace {

// The check-then-store of a flag. On a plain word, two threads asking at once
// race on it (a read beside a write of the same word): the answers are the
// same either way, but the race is undefined behaviour, so the flag is read
// and written through its atomic cell.
bool settleFlag(AtomicM<int32_t>& flag) {
    int32_t seen = flag.load();
    if (seen >= 0) return seen != 0;
    flag = 0;
    return false;
}

}  // namespace

bool OsVersionC::queryFlagA() { return settleFlag(cachedFlagA); }

bool OsVersionC::queryFlagB() { return settleFlag(cachedFlagB); }

bool OsVersionC::isFamily4From51() const {
    return family == 4 && (major > 5 || (major == 5 && minor >= 1));
}

bool OsVersionC::isFamily4Above5() const {
    return family == 4 && major > 5;
}

}  // namespace keel
