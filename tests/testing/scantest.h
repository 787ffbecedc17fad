// Helpers shared by the tests of every subsystem, in namespace keel for them: strings from
// UTF-8 literals or raw bytes, and a string's internal text back as a
// std::string, NULs included.
#ifndef KEEL_TESTS_TESTING_SCANTEST_H
#define KEEL_TESTS_TESTING_SCANTEST_H

#include <string>

#include <keel/string.h>

namespace keel {
namespace scantest {

inline StringC u8(const char* text) { return StringC(text, "utf8"); }
// NULs inside the text are characters of it.
inline StringC u8(const std::string& text) {
    return StringC(text.data(), static_cast<uint32_t>(text.size()), "utf8");
}

// The bytes as they are, broken sequences included.
inline StringC raw(const std::string& bytes) {
    return StringC(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");
}

inline std::string str(const StringC& s) {
    const char* text = s.textUtf8();
    std::string copy(text ? text : "", s.textUtf8Length());
    s.releaseUtf8(text);
    return copy;
}

}  // namespace scantest

using scantest::raw;
using scantest::str;
using scantest::u8;

}  // namespace keel

#endif
