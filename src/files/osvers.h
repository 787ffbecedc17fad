// What is known of the running operating system: a family code and the
// first two numbers of the kernel release, read once from uname.
//
//     const keel::OsVersionC* os = keel::OsVersionC::instance();
//     int32_t major = os->major;
//
// The file service and the trace controller each keep one by value. The
// family is always 10 here, so the two tests for family 4 answer false; they
// stay for code written for more than one platform.
#ifndef KEEL_FILES_OSVERS_H
#define KEEL_FILES_OSVERS_H

#include <stdint.h>

#include <keel/atomic.h>

namespace keel {

class OsVersionC {
public:
    OsVersionC();
    ~OsVersionC();

    // The one process-wide object, made on the heap at the first call and
    // never freed. Two first calls at once are not guarded against: each may
    // make one, and the loser's object is left (both read the same facts).
    static OsVersionC* instance();

    // The cached flags answer whether they are set; the first question of
    // one still unset (negative) settles it as 0.
    bool queryFlagA();
    bool queryFlagB();

    // Family 4 with version 5.1 or above; family 4 with a major above 5.
    bool isFamily4From51() const;
    bool isFamily4Above5() const;

    int32_t family;
    int32_t kind;
    int32_t reserved0;
    int32_t major;
    int32_t minor;
    int32_t reserved1;
    int32_t reserved2;
    // Atomic cells: the one object is shared by every thread, and two first
    // questions at once both store 0 into the same flag.
    AtomicM<int32_t> cachedFlagA;
    AtomicM<int32_t> cachedFlagB;

    // The version numbers of a release text such as "5.15.0-91": the first
    // number into `major`, the next one into `minor`. Missing numbers stay 0.
    void readRelease(const char* release);
};

}  // namespace keel

#endif
