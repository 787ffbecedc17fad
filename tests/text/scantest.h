// Small helpers shared by the scanner tests: strings from UTF-8 literals and
// the internal text of a string back as a std::string for comparisons.
#ifndef KEEL_TESTS_TEXT_SCANTEST_H
#define KEEL_TESTS_TEXT_SCANTEST_H

#include <string>

#include <keel/string.h>

namespace keel {
namespace scantest {

inline StringC u8(const char* text) { return StringC(text, "utf8"); }

// All bytes of the string's internal text, NULs included.
inline std::string str(const StringC& s) {
    const char* text = s.textUtf8();
    std::string copy(text ? text : "", s.textUtf8Length());
    s.releaseUtf8(text);
    return copy;
}

}  // namespace scantest
}  // namespace keel

#endif
