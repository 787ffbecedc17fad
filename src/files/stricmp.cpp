#include <keel/stricmp.h>

#include <ctype.h>

namespace keel {

int compareTextNoCase(const char* first, const char* second) {
    const unsigned char* a = reinterpret_cast<const unsigned char*>(first);
    const unsigned char* b = reinterpret_cast<const unsigned char*>(second);
    for (;; ++a, ++b) {
        int ca = *a;
        int cb = *b;
        if (ca == 0 || cb == 0) return ca - cb;
        if (ca == cb) continue;
        // Only upper-case letters are folded; two bytes that differ and are
        // neither of them upper case differ as they are.
        bool upperA = isupper(ca) != 0;
        bool upperB = isupper(cb) != 0;
        if (!upperA && !upperB) return ca - cb;
        if (upperA) ca = tolower(ca);
        if (upperB) cb = tolower(cb);
        if (ca != cb) return ca - cb;
    }
}

}  // namespace keel
