#include "files/iostream.h"

#include "errors/errapi.h"

namespace keel {

uint32_t OutputStreamC::writeFrom(InputStreamC* input, int32_t count) {
    if (!input) return 0;
    unsigned char chunk[1024];
    int64_t done = 0;
    for (;;) {
        uint32_t want = sizeof chunk;
        if (count > 0) {
            int64_t remaining = count - done;
            if (remaining <= 0) return 0;
            if (remaining < want) want = static_cast<uint32_t>(remaining);
        }
        int32_t got = input->read(chunk, want);
        if (got < 1) return 0;
        if (write(chunk, got) != 0)
            return reportError(0xE0CB0015u,
                               "\x01\x01"
                               "e\x01"
                               "Failed to write to a stream");
        done += got;
    }
}

OutputStreamC* OutputStreamC::writeAll(InputStreamC* input) {
    writeFrom(input, 0);
    return this;
}

}  // namespace keel
