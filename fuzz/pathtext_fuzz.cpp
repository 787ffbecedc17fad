// The plain 8-bit path and text helpers against models written from their
// documented steps: directoryOf into a buffer of any size and in place,
// baseNameOf, baseNameInto with a suffix, into a buffer or into the path,
// copyTextBounded (the bytes behind the terminator untouched),
// compareTextNoCase and trimTextRight. The models take ASCII text, which
// "system-8" reads byte for byte; other bytes only have to do no harm.
//
// Input layout: byte 0 is the buffer size, then the path up to a 0xFF byte,
// then a second text (suffix, other side of a comparison). A NUL ends a text.
#include <ctype.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include <keel/basename.h>
#include <keel/dirname.h>
#include <keel/stricmp.h>
#include <keel/strlcpy.h>
#include <keel/strtrws.h>

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "the helper differs from its model: %s\n", what);
        abort();
    }
}

bool ascii(const std::string& text) {
    for (unsigned char c : text)
        if (c >= 0x80) return false;
    return true;
}

// directoryOf on a writable copy of `path`, as the steps say: trailing "/"
// skipped (never the first character) behind a temporary terminator, then
// the part up to and with the last "/", or "." where there is none.
// Answers the output's text or "<null>"; `after` receives the path's text
// afterwards (with the in-place form, the answer itself).
std::string directoryModel(const std::string& path, size_t size, bool inPlace, std::string* after) {
    std::string buffer = path + '\0';
    size_t end = path.size();
    while (end > 1 && path[end - 1] == '/') --end;
    char saved = buffer[end];
    buffer[end] = '\0';
    size_t slash = end == 0 ? std::string::npos : path.rfind('/', end - 1);
    std::string answer;
    if (slash != std::string::npos) {
        answer = path.substr(0, slash + 1);
        if (inPlace) buffer[slash + 1] = '\0';
        if (!inPlace && answer.size() >= size) answer = "<null>";
    } else if (size > 1) {
        answer = ".";
        if (inPlace) buffer.replace(0, 2, ".\0", 2);
    } else {
        answer = "<null>";
        if (inPlace) buffer[0] = '\0';
    }
    buffer[end] = saved;
    *after = buffer.c_str();
    return answer;
}

void checkDirectory(const std::string& path, size_t size) {
    std::string after, expected = directoryModel(path, size, false, &after);
    std::string buffer = path + '\0';
    char output[300];
    memset(output, 'Z', sizeof output);
    char* result = keel::directoryOf(&buffer[0], output, size);
    check(expected == (result ? std::string(result) : "<null>"), "directoryOf answer");
    check(result ? result == output : size == 0 || output[0] == '\0', "directoryOf output");
    check(buffer.c_str() == path, "directoryOf left the path changed");
    expected = directoryModel(path, path.size() + 1, true, &after);
    result = keel::directoryOfInPlace(&buffer[0]);
    check(expected == "<null>" ? !result : result == buffer.data(), "directoryOfInPlace answer");
    check(after == buffer.c_str(), "directoryOfInPlace path");
}

void checkBaseName(const std::string& path, const std::string& suffix, bool withSuffix,
                   size_t size) {
    std::string text = path;
    while (!text.empty() && text.back() == '/') text.pop_back();
    size_t at = text.find(suffix);
    if (withSuffix && at != std::string::npos && at > 0 && text.size() >= suffix.size() &&
        text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0)
        text.erase(text.size() - suffix.size());
    std::string base = text.substr(text.rfind('/') == std::string::npos ? 0 : text.rfind('/') + 1);
    std::string buffer = path + '\0';
    const char* behind = keel::baseNameOf(buffer.c_str());
    check(
        behind == buffer.c_str() + (path.rfind('/') == std::string::npos ? 0 : path.rfind('/') + 1),
        "baseNameOf");
    char output[300];
    memset(output, 'Z', sizeof output);
    const char* suffixText = withSuffix ? suffix.c_str() : nullptr;
    char* result = keel::baseNameInto(&buffer[0], output, size, suffixText);
    if (path.empty()) {
        check(!result, "baseNameInto of an empty path");
        return;
    }
    check(result == output && buffer.c_str() == path, "baseNameInto into a buffer");
    if (size > 0) check(std::string(output) == base.substr(0, size - 1), "baseNameInto text");
    result = keel::baseNameInto(&buffer[0], nullptr, 0, suffixText);
    check(result == buffer.data() &&
              buffer == base + std::string(path.size() + 1 - base.size(), '\0'),
          "baseNameInto into the path");
}

int compareModel(const std::string& first, const std::string& second) {
    for (size_t i = 0;; ++i) {
        int a = static_cast<unsigned char>(first.c_str()[i]);
        int b = static_cast<unsigned char>(second.c_str()[i]);
        if (a == 0 || b == 0) return a - b;
        if (a == b) continue;
        if (!isupper(a) && !isupper(b)) return a - b;
        if (tolower(a) != tolower(b)) return tolower(a) - tolower(b);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 257) return 0;
    size_t bufferSize = data[0] % 64;
    std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
    size_t cut = rest.find('\xFF');
    std::string path = rest.substr(0, cut);
    std::string other = cut == std::string::npos ? "" : rest.substr(cut + 1);
    path = path.c_str();
    other = other.c_str();

    char copy[80];
    memset(copy, 'Z', sizeof copy);
    check(keel::copyTextBounded(copy, path.c_str(), bufferSize) == path.size(),
          "copyTextBounded answer");
    std::string expected = bufferSize == 0 ? "" : path.substr(0, bufferSize - 1) + '\0';
    expected += std::string(sizeof copy - expected.size(), 'Z');
    check(std::string(copy, sizeof copy) == expected, "copyTextBounded bytes");
    check(keel::compareTextNoCase(path.c_str(), other.c_str()) == compareModel(path, other),
          "compareTextNoCase");
    std::string trimmed = path;
    while (!trimmed.empty() && strchr(" \t\r\n", trimmed.back())) trimmed.pop_back();
    std::string buffer = path + '\0';
    check(keel::trimTextRight(&buffer[0]) == buffer.data() && trimmed == buffer.c_str(),
          "trimTextRight");

    checkDirectory(path, bufferSize);
    if (ascii(path) && ascii(other)) {
        checkBaseName(path, other, data[0] & 64, bufferSize);
    } else {
        std::string scratch = path + '\0';
        char output[64];
        keel::baseNameInto(&scratch[0], output, sizeof output, other.c_str());
        keel::baseNameInto(&scratch[0], nullptr, 0, other.c_str());
    }
    return 0;
}
