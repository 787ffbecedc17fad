// Rendering into a byte buffer (renderFormatToBytes, the trace file's path)
// gives the bytes of the string that StringC::format makes of the same
// format and list, whatever the buffer's size and however often it fills.
#include <gtest/gtest.h>

#include <string>

#include <keel/keel.h>

#include "testing/scantest.h"
#include "text/format.h"

namespace keel {
namespace {

void collect(void* context, const uint8_t* bytes, uint32_t count) {
    static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(bytes), count);
}

std::string renderedToBytes(const char* format, const ArgListC& args, uint32_t capacity) {
    std::string result;
    std::string buffer(capacity, '\0');
    FormatBytesT out = {reinterpret_cast<uint8_t*>(&buffer[0]), capacity, 0, collect, &result};
    StringC decoded(format, "utf8");
    const char* text = decoded.textUtf8();
    renderFormatToBytes(out, reinterpret_cast<const uint8_t*>(text), args);
    decoded.releaseUtf8(text);
    // The promised room behind the last character.
    EXPECT_LE(out.used + 2, capacity);
    result.append(reinterpret_cast<const char*>(out.buffer), out.used);
    return result;
}

TEST(FormatBytesTest, SameBytesAsTheFormattedString) {
    ArgListC args;
    StringC wide("\xE6\x97\xA5\xE6\x9C\xAC-\xC3\xA9t\xC3\xA9", "utf8");
    args.add(int32_t(-42)).add("plain text that is longer than a small buffer").add(wide);
    args.addUCS4(0x1F600).add(uint32_t(255)).add(int64_t(1) << 40);
    const char* const formats[] = {
        "",
        "no conversions at all, but a run of plain text longer than sixteen bytes",
        "%d|%s|%S|%C|%x|%lld",
        "%08d|%-60s|%20S|%5C|%#X|%3$.4S",
        "\xC3\xA9t\xC3\xA9 %2$s \xE6\x97\xA5 %1$+d %%",
        "%1$*5$d|%9$s|%q|%",
        "%t and %.3t",
    };
    for (const char* format : formats) {
        std::string expected = str(StringC::format(StringC(format, "utf8"), args));
        for (uint32_t capacity : {16u, 17u, 64u, 512u}) {
            EXPECT_EQ(expected, renderedToBytes(format, args, capacity))
                << format << " in " << capacity;
        }
    }
}

}  // namespace
}  // namespace keel
