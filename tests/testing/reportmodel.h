// Reports beside a plain model of where their text comes from: the module
// catalog, the process catalog of the default locale's language facet, the
// system texts and the default text, in that order. A driver switches the
// two catalogs between files with and without the codes, reports through
// the four forms with random codes and default texts, and compares what is
// stored (or answered) with the model's text, parsed and rendered the plain
// way (parseMessageText, StringC::format of a list). This checks that the
// shortcuts of a report (catalogs that cannot know a code are not asked,
// plain default texts rendered from their bytes, the entry taking the
// rendered string) answer what the plain road answers. Shared by the
// random-sequence test and the fuzz target.
//
//     keel::reportmodel::DriverC driver;
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_REPORTMODEL_H
#define KEEL_TESTS_TESTING_REPORTMODEL_H

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <keel/keel.h>

#include "errors/catalog.h"
#include "errors/errapi.h"
#include "errors/errimpl.h"
#include "errors/error.h"
#include "locale/locale.h"

namespace keel {
namespace reportmodel {

typedef std::map<std::pair<uint32_t, uint32_t>, std::string> TextsT;

// A catalog file's bytes: the magic, the count, the sorted index, the texts.
inline std::string catalogBytes(const TextsT& texts) {
    std::string out = "tavrinoc";
    auto put = [&out](uint32_t value, int bytes) {
        for (int i = bytes - 1; i >= 0; --i) out += static_cast<char>((value >> (8 * i)) & 0xFF);
    };
    put(static_cast<uint32_t>(texts.size()), 4);
    uint32_t offset = 12 + 12 * static_cast<uint32_t>(texts.size());
    for (const auto& entry : texts) {
        put(entry.first.first, 2);
        put(static_cast<uint32_t>(entry.second.size()), 2);
        put(entry.first.second, 4);
        put(offset, 4);
        offset += static_cast<uint32_t>(entry.second.size());
    }
    for (const auto& entry : texts) out += entry.second;
    return out;
}

// The files, written once per process into a directory of their own.
struct FilesT {
    std::string dir, module, process, noIndex, noMagic, missing;
    TextsT moduleTexts, processTexts;

    FilesT() {
        char pattern[] = "/tmp/keel-reportmodel-XXXXXX";
        dir = mkdtemp(pattern) ? pattern : "/tmp";
        moduleTexts = {{{203, 16}, "\x01\x01w\x01Module %d of %s"}, {{203, 17}, "{i}module plain"}};
        processTexts = {{{0, 2}, "{w}system two"},
                        {{203, 16}, "{f}Process %d"},
                        {{203, 18}, "Process only %s"},
                        {{203, 19}, "{#}silent"}};
        module = write("module.cat", catalogBytes(moduleTexts));
        process = write("process.cat", catalogBytes(processTexts));
        noIndex = write("empty.cat", catalogBytes(TextsT()));
        noMagic = write("bad.cat", "not a catalog at all");
        missing = dir + "/missing.cat";
    }
    ~FilesT() {
        for (const std::string* file : {&module, &process, &noIndex, &noMagic})
            unlink(file->c_str());
        rmdir(dir.c_str());
    }
    std::string write(const char* name, const std::string& bytes) {
        std::string path = dir + "/" + name;
        if (FILE* file = fopen(path.c_str(), "wb")) {
            fwrite(bytes.data(), 1, bytes.size(), file);
            fclose(file);
        }
        return path;
    }
};

inline const FilesT& files() {
    static FilesT theFiles;
    return theFiles;
}

inline std::string utf8Of(const StringC& text) {
    const char* bytes = text.textUtf8();
    std::string result = bytes ? bytes : "";
    text.releaseUtf8(bytes);
    return result;
}

// The list that the variadic forms make of a format, for the plain road.
inline ArgListC listOf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ArgListC list = ArgListC::fromFormat(StringC(format ? format : "", "system-8"), arguments);
    va_end(arguments);
    return list;
}

const uint32_t kCodes[] = {0xE0CB0010, 0xE0CB0011, 0xE0CB0012, 0xE0CB0013, 0xE0CB0019,
                           0xE0000002, 0xE0000003, 0x00CB0010, 0};
const char* const kDefaults[] = {
    "D%d of %s",         "{w}W%d %s", "\x01\x01i\x01I%d\x01R %s\x01S", "", nullptr, "plain 100%",
    "caf\xC3\xA9 %d %s", "{m"};

class DriverC {
public:
    DriverC() : saved_(moduleCatalogCell().exchange(new ErrCatalogC(StringC()))) {
        files();
        defaultLocale()->getLanguage(1)->openCatalog(StringC());
    }
    ~DriverC() {
        delete moduleCatalogCell().exchange(saved_);
        defaultLocale()->getLanguage(1)->openCatalog(StringC());
    }

    // Operation by `operation % 8`: 0 sets the module catalog (the file or
    // none), 1 the process catalog (the file, an empty index, no magic, a
    // missing file, no name); the rest report, by one of four forms, a code
    // and a default text that `argument` picks, with the number `argument`
    // and a text.
    std::string step(uint32_t operation, uint32_t argument) {
        switch (operation % 8) {
        case 0:
            moduleOpen_ = argument % 2 == 0;
            delete moduleCatalogCell().exchange(
                new ErrCatalogC(moduleOpen_ ? StringC(files().module.c_str(), "utf8") : StringC()));
            return "";
        case 1: {
            const std::string* names[] = {&files().process, &files().noIndex, &files().noMagic,
                                          &files().missing, nullptr};
            const std::string* name = names[argument % 5];
            processOpen_ = name == &files().process;
            defaultLocale()->getLanguage(1)->openCatalog(name ? StringC(name->c_str(), "utf8")
                                                              : StringC());
            return "";
        }
        default:
            return report(operation >> 3, argument);
        }
    }

private:
    ErrCatalogI* saved_;
    bool moduleOpen_ = false;
    bool processOpen_ = false;

    // The text before rendering and its severity, the plain way.
    StringC fetched(uint32_t code, const char* defaultText, uint32_t* severity) const {
        *severity = 4;
        std::pair<uint32_t, uint32_t> key(errorSet(code), errorNumber(code));
        if (errorHasText(code)) {
            if (moduleOpen_ && files().moduleTexts.count(key))
                return parseMessageText(files().moduleTexts.at(key).c_str(), severity, nullptr);
            if (processOpen_ && files().processTexts.count(key))
                return parseMessageText(files().processTexts.at(key).c_str(), severity, nullptr);
            if (errorSet(code) == 0)
                return StringC(strerror(static_cast<int>(errorNumber(code))), "system-8");
        }
        if (!defaultText || !*defaultText) return StringC();
        if (*defaultText != 1 && *defaultText != '{') return StringC(defaultText, "system-8");
        return parseMessageText(defaultText, severity, nullptr);
    }

    std::string report(uint32_t choice, uint32_t argument) {
        uint32_t code = kCodes[argument % 9];
        const char* format = kDefaults[(argument >> 4) % 8];
        int32_t number = static_cast<int32_t>(argument >> 8);
        const char* text = (argument >> 7) % 2 ? "name" : "n\xC3\xA4me";
        uint32_t expectedSeverity = 4;
        StringC expected =
            StringC::format(fetched(code, format, &expectedSeverity), listOf(format, number, text));
        std::string label = "code " + std::to_string(code) + " form " + std::to_string(choice % 4) +
                            " default " + std::to_string((argument >> 4) % 8);

        ErrBufI* buffer = getErrBuf();
        uint32_t mark = buffer->getMark();
        uint32_t severity = 99;
        StringC answered;
        switch (choice % 4) {
        case 0:
            if (reportErrorFormat(code, format, number, text) != code) return "answer of " + label;
            break;
        case 1:
            if (reportError(code, format, listOf(format, number, text)) != code)
                return "answer of " + label;
            break;
        case 2:
            answered = errorTextFormat(&severity, code, format, number, text);
            break;
        default:
            answered = errorText(&severity, code, format, listOf(format, number, text));
            break;
        }
        if (choice % 4 >= 2) {
            if (utf8Of(answered) != utf8Of(expected))
                return "text \"" + utf8Of(answered) + "\" of " + label;
            if (severity != expectedSeverity) return "severity of " + label;
            return buffer->getCount() == 0 ? "" : "entry left by " + label;
        }
        // The entry is what an entry made from the plain text holds.
        uint32_t count = buffer->getCount();
        if (expectedSeverity == 0) return count == 0 ? "" : "silenced " + label + " stored";
        if (count != 1) return std::to_string(count) + " entries after " + label;
        ErrEntryI* entry = buffer->getEntry(0);
        ErrEntryC plain(code, expected, expectedSeverity, mark);
        std::string broken;
        if (entry->getCode() != code || entry->getSeverity() != expectedSeverity ||
            entry->getSequence() != mark)
            broken = "code, severity or sequence of " + label;
        else if (utf8Of(entry->getProblem()) != utf8Of(plain.problem) ||
                 utf8Of(entry->getReason()) != utf8Of(plain.reason) ||
                 utf8Of(entry->getSolution()) != utf8Of(plain.solution))
            broken = "text \"" + utf8Of(entry->getText()) + "\" of " + label;
        buffer->recover(mark);
        return broken;
    }
};

}  // namespace reportmodel
}  // namespace keel

#endif
