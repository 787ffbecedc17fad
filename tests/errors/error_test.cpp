// Message texts and the catalog switch: the three shapes of a text, the
// severity letters, the fall-through to default texts and system texts, and
// the forms that no model asks (what a report stores of a text, and its
// rendering, are the report model's in tests/testing/reportmodel.h; what the
// switch traces is the catalog tests').
#include <gtest/gtest.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include <keel/keel.h>

#include "errors/errapi.h"
#include "errors/error.h"
#include "testing/scantest.h"

namespace keel {
namespace {

// Each text as errorText gives it, with its severity.
TEST(CatalogSwitchTest, DefaultTextsByShape) {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        uint32_t severity = 99;
        EXPECT_EQ(c.expected, str(errorText(&severity, c.code, c.text)));
        EXPECT_EQ(c.severity, severity);
    }
}

// The forms without a severity, null texts, code 0, and system errors by
// errno: the answers, and what their reports store (code, severity, text).
TEST(CatalogSwitchTest, FormsWithoutSeverityAndSystemErrors) {
    ArgListC args;
    args.add(StringC("/no/such", "ascii"));
    EXPECT_EQ("at '/no/such'", str(errorText(0xE0CB0011, "{e}at '%1$S'", args)));
    EXPECT_EQ("stays %1$S", str(errorText(0xE0CB0011, "stays %1$S")));
    EXPECT_EQ("", str(errorTextFormat(nullptr, 0xE0CB0011, nullptr)));
    ErrBufI* errors = getErrBuf();
    errors->takeText(nullptr);
    EXPECT_EQ(0u, reportError(0, nullptr, ArgListC()));
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
    EXPECT_EQ((std::vector<std::string>{
                  "00000000 4 ", "E0000011 4 " + std::string(strerror(EEXIST)), "00000000 4 "}),
              stored);
    EXPECT_EQ(0xE000FFFFu, systemErrorCode(0x1FFFF));
    EXPECT_EQ(nullptr, severityName(6));
    EXPECT_EQ(0u, getCatalogSwitch()->setQualifiers(StringC()));
    EXPECT_EQ(getCatalogSwitch(), getCatalogSwitch());
}

}  // namespace
}  // namespace keel
