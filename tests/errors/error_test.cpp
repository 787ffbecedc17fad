// Message texts and the catalog switch: the three shapes of a text, the
// severity letters, the fall-through to default texts and system texts (what
// the switch traces is the catalog tests').
#include <gtest/gtest.h>
#include <string.h>

#include <keel/keel.h>

#include "errors/errapi.h"
#include "errors/error.h"
#include "testing/scantest.h"

namespace keel {
namespace {

TEST(CatalogSwitchTest, DefaultTextsByShape) {
    struct {
        uint32_t code;
        const char* text;
        const char* expected;
        uint32_t severity;
    } const cases[] = {
        {0xE0CB0005, "plain %d 100%", "plain %d 100%", 4},
        {0xE0CB0005, "{w} Disk almost full", "Disk almost full", 3},
        {0xE0CB0005, "{f}\tTabbed", "Tabbed", 5},
        {0xE0CB0005, "{w}  Two blanks", " Two blanks", 3},
        {0xE0CB0005, "{Xw} capital", "capital", 4},
        {0xE0CB0005, "{Xwi}", "", 2},
        {0xE0CB0005, "{m", "", 1},
        {0xE0CB0005, "\x01\x01" "e\x01" "Cannot obtain length", "Cannot obtain length", 4},
        {0xE0CB0005, "\x01\x01w\x01P\x01R\x01S", "P\x01R\x01S", 3},
        {0xE0CB0005, "\x01\x01i\x01P\x01R", "P\x01R", 2},
        {0xE0CB0005, "\x01\x01w\x01P\x01R\x01S\x01sel\x01f\x01Chosen never", "P\x01R\x01S", 3},
        {0xE0CB0005, "\x01\x01i\x01" "First\x01\x01\x01\x01m\x01Second", "Second", 1},
        {0xE0CB0005, "\x01sel\x01w\x01Only selected", "", 4},
        {0xE0CB0005, "\x01", "", 4},
        {0xE0CB0005, nullptr, "", 4},
        {0xE0000002, nullptr, strerror(2), 4},
        {0xE0000002, "ignored", strerror(2), 4},
        {0xE0000000, nullptr, strerror(0), 4},
        {0x00000002, "no bit 29", "no bit 29", 4},
        {0xE0150003, nullptr, "", 4},
        {0, nullptr, "", 4},
    };
    for (const auto& c : cases) {
        uint32_t severity = 99;
        StringC text = errorText(&severity, c.code, c.text);
        EXPECT_EQ(c.expected, str(text)) << (c.text ? c.text : "(null)");
        EXPECT_EQ(c.severity, severity) << (c.text ? c.text : "(null)");
    }
}

TEST(CatalogSwitchTest, RenderingAndTheVariadicForms) {
    StringC name("dir", "ascii");
    ArgListC args;
    args.add(name);
    uint32_t severity = 0;
    EXPECT_EQ("Cannot change to directory 'dir'",
              str(errorText(&severity, 0xE0CB0011, "\x01\x01" "e\x01" "Cannot change to directory '%1$S'", args)));
    EXPECT_EQ("stays %1$S", str(errorText(0xE0CB0011, "stays %1$S")));
    EXPECT_EQ("n=7 s=x", str(errorTextFormat(&severity, 0xE0CB0011, "n=%d s=%s", 7, "x")));
    EXPECT_EQ("", str(errorTextFormat(nullptr, 0xE0CB0011, nullptr)));
    EXPECT_EQ(0xE0000011u, systemErrorCode(17));
    EXPECT_EQ(0u, systemErrorCode(0));
    EXPECT_EQ(0xE000FFFFu, systemErrorCode(0x1FFFF));
    EXPECT_EQ(nullptr, severityName(6));
    EXPECT_STREQ("Fatal", severityName(5));
    EXPECT_EQ(0u, getCatalogSwitch()->setQualifiers(StringC()));
    EXPECT_EQ(getCatalogSwitch(), getCatalogSwitch());
}

}  // namespace
}  // namespace keel
