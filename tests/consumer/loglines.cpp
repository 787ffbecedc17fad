// Formatted log lines with keel::format: the arguments are checked by type,
// so a wrong letter shows a wrong text instead of reading a wrong type.
#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <iostream>
#include <string>
#include <vector>

#include <keel/keel.h>

namespace {

keel::StringC logLine(const timespec& when, const char* level, const keel::StringC& component,
                      const std::string& message, size_t items, double seconds) {
    return keel::format("%.23t %-5s [%S] %s (%zu items, %d s)", when, level, component, message, items, seconds);
}

}  // namespace

int main() {
    setenv("TZ", "UTC", 1);
    tzset();
    timespec when = {1700000000, 123456789};
    keel::StringC component(std::string_view("l\xc3\xa4ser"));
    std::vector<std::string> lines = {
        logLine(when, "INFO", component, "started", 0, 0.5).toStdString(),
        logLine(when, "WARN", component, "slow disk", std::vector<int>(3).size(), 12.9).toStdString(),
        keel::format("%s of %lu bytes, %x", "copy", uint64_t(6000000000ULL), 255u).toStdString(),
        // A letter that does not fit its argument: %s of a number is empty
        // text, %d of a string 0. Nothing crashes.
        keel::format("[%s] [%d]", 42, "text").toStdString(),
    };
    const std::vector<std::string> expected = {
        "2023/11/14 22:13:20.123 INFO  [l\xc3\xa4ser] started (0 items, 0 s)",
        "2023/11/14 22:13:20.123 WARN  [l\xc3\xa4ser] slow disk (3 items, 12 s)",
        "copy of 6000000000 bytes, ff",
        "[] [0]",
    };
    int failures = 0;
    for (size_t i = 0; i < lines.size(); ++i) {
        std::cout << lines[i] << "\n";
        if (lines[i] != expected[i]) {
            std::cerr << "expected: " << expected[i] << "\n";
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
