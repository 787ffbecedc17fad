// Message texts and the catalog switch: the three shapes of a text, the
// severity letters, the fall-through to default texts and system texts, and
// what a report stores of them (what the switch traces is the catalog
// tests').
#include <gtest/gtest.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "errors/errapi.h"
#include "errors/error.h"
#include "testing/scantest.h"

namespace keel {
namespace {

// Each text as errorText gives it, and as reportError stores it: the same
// text, its parts on lines of their own, and nothing at severity 0.
TEST(CatalogSwitchTest, DefaultTextsByShapeAndWhatAReportStores) {
    struct {
        uint32_t code;
        const char* text;
        const char* expected;
        uint32_t severity;
    } const cases[] = {
        {0xE0CB0005, "plain %d 100% %1$S", "plain %d 100% %1$S", 4},
        {0xE0CB0005, "{w} Disk almost full", "Disk almost full", 3},
        {0xE0CB0005, "{f}\tTabbed", "Tabbed", 5},
        {0xE0CB0005, "{w}  Two blanks", " Two blanks", 3},
        {0xE0CB0005, "{Xw} capital", "capital", 4},
        {0xE0CB0005, "{Xwi}", "", 2},
        {0xE0CB0005, "{m", "", 1},
        {0xE0CB0005, "{#} silent", "silent", 0},
        {0xE0CB0005, "\001\001e\001Cannot obtain length", "Cannot obtain length", 4},
        {0xE0CB0005, "\x01\x01w\x01P\x01R\x01S", "P\x01R\x01S", 3},
        {0xE0CB0005, "\x01\x01i\x01P\x01R", "P\x01R", 2},
        {0xE0CB0005, "\x01\x01w\x01P\x01R\x01S\x01sel\x01f\x01Chosen never", "P\x01R\x01S", 3},
        {0xE0CB0005, "\001\001i\001First\001\001\001\001m\001Second", "Second", 1},
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
    ErrBufI* errors = getErrBuf();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        uint32_t severity = 99;
        EXPECT_EQ(c.expected, str(errorText(&severity, c.code, c.text)));
        EXPECT_EQ(c.severity, severity);
        errors->takeText(nullptr);
        EXPECT_EQ(c.code, reportError(c.code, c.text));
        ASSERT_EQ(c.severity ? 1u : 0u, errors->getCount());
        if (!c.severity) continue;
        std::string lines = c.expected;
        std::replace(lines.begin(), lines.end(), '\x01', '\n');
        EXPECT_EQ(lines, str(errors->getEntry(0)->getText()));
        EXPECT_EQ(c.severity, errors->getEntry(0)->getSeverity());
    }
    errors->takeText(nullptr);
}

// The forms with arguments, and what their reports store (code, severity,
// text); a report of code 0 stores an empty text.
TEST(CatalogSwitchTest, RenderingAndTheVariadicForms) {
    ArgListC args;
    args.add(StringC("/no/such", "ascii"));
    const char* text = "\001\001e\001Cannot change to directory '%1$S'";
    EXPECT_EQ("Cannot change to directory '/no/such'", str(errorText(0xE0CB0011, text, args)));
    EXPECT_EQ("stays %1$S", str(errorText(0xE0CB0011, "stays %1$S")));
    uint32_t severity = 0;
    EXPECT_EQ("n=7 s=x", str(errorTextFormat(&severity, 0xE0CB0011, "n=%d s=%s", 7, "x")));
    EXPECT_EQ("", str(errorTextFormat(nullptr, 0xE0CB0011, nullptr)));
    ErrBufI* errors = getErrBuf();
    errors->takeText(nullptr);
    EXPECT_EQ(0xE0CB0011u, reportError(0xE0CB0011, text, args));
    EXPECT_EQ(0u, reportError(0, nullptr, ArgListC()));
    EXPECT_EQ(0xE3E80065u,
              reportErrorFormat(0xE3E80065, "Invalid date/time %04d/%02d/%02d", 2024, 2, 30));
    errno = EEXIST;
    EXPECT_EQ(0xE0000011u, reportSystemError());
    errno = 0;
    EXPECT_EQ(0u, reportSystemError());
    std::vector<std::string> stored;
    for (uint32_t i = 0; i < errors->getCount(); ++i) {
        ErrEntryI* entry = errors->getEntry(i);
        char head[32];
        snprintf(head, sizeof head, "%08X %u ", entry->getCode(), entry->getSeverity());
        stored.push_back(head + str(entry->getText()));
    }
    errors->takeText(nullptr);
    EXPECT_EQ(
        (std::vector<std::string>{"E0CB0011 4 Cannot change to directory '/no/such'", "00000000 4 ",
                                  "E3E80065 4 Invalid date/time 2024/02/30",
                                  "E0000011 4 " + std::string(strerror(EEXIST)), "00000000 4 "}),
        stored);
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
