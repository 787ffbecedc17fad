// Whole files by path, for tests and fuzz targets alike (no GoogleTest here).
//
//     std::string content = keel::testkit::readFileAt("/tmp/dir/f");  // "<missing>" when unreadable
#ifndef KEEL_TESTS_TESTING_FILETEXT_H
#define KEEL_TESTS_TESTING_FILETEXT_H

#include <stdio.h>

#include <string>

namespace keel {
namespace testkit {

inline std::string readFileAt(const std::string& path) {
    std::string content;
    FILE* file = fopen(path.c_str(), "rb");
    if (!file) return "<missing>";
    char chunk[4096];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0) content.append(chunk, got);
    fclose(file);
    return content;
}

}  // namespace testkit
}  // namespace keel

#endif
