// What a print operation writes to a stream, for the tests of the print
// forms of lists and tables.
#ifndef KEEL_TESTS_TESTING_PRINTCAPTURE_H
#define KEEL_TESTS_TESTING_PRINTCAPTURE_H

#include <stdio.h>
#include <stdlib.h>

#include <string>

namespace keel {
namespace testing_print {

// Runs `write(stream)` on a memory stream and answers what it wrote.
template <typename F>
std::string captured(F write) {
    char* buffer = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&buffer, &length);
    write(stream);
    fclose(stream);
    std::string text(buffer, length);
    free(buffer);
    return text;
}

// A pointer as the C library's "%p" shows it.
inline std::string pointerText(const void* p) {
    char buffer[64];
    snprintf(buffer, sizeof buffer, "%p", p);
    return buffer;
}

}  // namespace testing_print
}  // namespace keel

#endif
