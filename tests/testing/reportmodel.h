// The thread's error buffer and the reports that fill it, beside plain
// models: the entries, marks, recovery, removal by index, takeText and
// reportAll on a list of entries; where a report's text comes from (the
// module catalog, the process catalog of the default locale's language
// facet, the system texts and the default text, in that order, parsed and
// rendered the plain way: parseMessageText, StringC::format of a list); and
// the trace variables that each thread remembers for the lines of its
// entries (errorTraceVariable), beside the plain lookup they stand for, a
// path made by hand and asked of the tracer with a fresh handle. The driver
// switches the two catalogs between files with and without the codes,
// reports through the four forms with random codes and default texts,
// changes the details and settings of the trace variables, and after each
// operation on the buffer compares every entry with the model's. Shared by
// the random-sequence test and the fuzz target.
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

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "catalogtool.h"
#include "errors/catalog.h"
#include "errors/errapi.h"
#include "errors/errimpl.h"
#include "errors/error.h"
#include "locale/locale.h"
#include "testing/scantest.h"
#include "tracing/tracer.h"

namespace keel {
namespace reportmodel {

// The catalogs, compiled with the catalog tool's core and written once per
// process into a directory of their own; the model reads their texts with
// the tool's lookup (which catalog_fuzz holds the library's reader to).
struct FilesT {
    std::string dir, module, process, noIndex, noMagic, missing, moduleBytes, processBytes;

    FilesT() {
        char pattern[] = "/tmp/keel-reportmodel-XXXXXX";
        dir = mkdtemp(pattern) ? pattern : "/tmp";
        moduleBytes = compiled("203 16 - \\x01\\x01w\\x01Module %d of %s\n203 17 i module plain\n");
        processBytes = compiled(
            "0 2 w system two\n203 16 f Process %d\n203 18 - Process only %s\n203 19 # silent\n");
        module = write("module.cat", moduleBytes);
        process = write("process.cat", processBytes);
        noIndex = write("empty.cat", compiled(""));
        noMagic = write("bad.cat", "not a catalog at all");
        missing = dir + "/missing.cat";
    }
    ~FilesT() {
        for (const std::string* file : {&module, &process, &noIndex, &noMagic})
            unlink(file->c_str());
        rmdir(dir.c_str());
    }
    static std::string compiled(const char* source) {
        std::string binary;
        std::vector<catalogtool::DiagnosticT> diagnostics;
        catalogtool::compileCatalog(source, binary, diagnostics);
        return binary;
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
const char* const kDefaults[] = {"D%d of %s",
                                 "{w}W%d %s",
                                 "\x01\x01i\x01I%d\x01R %s\x01S",
                                 "",
                                 nullptr,
                                 "plain 100%",
                                 "caf\xC3\xA9 %d %s",
                                 "{m",
                                 "{#}%d",
                                 "{e} %2$s %1$d",
                                 "\x01sel\x01w\x01no general group %d",
                                 "\x01\x01i\x01two %d\x01\x01\x01sel\x01w\x01other %s"};
const uint32_t kDefaultCount = sizeof kDefaults / sizeof *kDefaults;

// Three role texts; the table of remembered variables is keyed by the
// pointer, so a fourth pointer with the text of the first is asked too.
const char kOccurrence[] = "Occurrence";
const char kOccurrenceAgain[] = "Occurrence";
const char* const kRoles[] = {kOccurrence, "Report", "Recovery", kOccurrenceAgain};

// An entry as the buffer holds it: its parts, and the text they join to.
struct EntryT {
    uint32_t code, severity, sequence;
    std::string parts, text;
    bool operator==(const EntryT& other) const {
        return code == other.code && severity == other.severity && sequence == other.sequence &&
               parts == other.parts && text == other.text;
    }
};

inline EntryT entryOf(ErrEntryI* entry) {
    return {
        entry->getCode(), entry->getSeverity(), entry->getSequence(),
        str(entry->getProblem()) + "|" + str(entry->getReason()) + "|" + str(entry->getSolution()),
        str(entry->getText())};
}

class DriverC : public TraceConsumerI {
public:
    DriverC() : saved_(moduleCatalogCell().exchange(new ErrCatalogC(StringC()))) {
        files();
        defaultLocale()->getLanguage(1)->openCatalog(StringC());
        getTraceController()->addConsumer(this, 0, 9);
        buffer_->takeText(nullptr);
        marks_ = {next_ = buffer_->getMark()};
    }
    ~DriverC() {
        // The details go back to 0, so that the tracer's settings do not
        // hide the lines of tests that run later in the process.
        for (const std::string& path : detailed_) {
            TraceValuesT* values = nullptr;
            getTraceController()->getVariable(path.c_str(), &values);
            TraceValuesT plain = *values;
            plain.detail = 0;
            getTraceController()->setVariable(path.c_str(), &plain);
        }
        buffer_->takeText(nullptr);
        getTraceController()->removeConsumer(this);
        delete moduleCatalogCell().exchange(saved_);
        defaultLocale()->getLanguage(1)->openCatalog(StringC());
    }

    uint32_t write(const char*, int32_t, const char*, ArgListC) override { return 0; }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char*) override { return 0; }

    // Operation by `operation % 16`: 0 sets the module catalog (the file or
    // none), 1 the process catalog (the file, an empty index, no magic, a
    // missing file, no name); 2 changes the detail of the variable of a
    // report's trace line, 3 this consumer's setting of it or of an
    // ancestor, 4 asks for the remembered variable; 5 to 9 are the buffer's
    // own operations (a mark, recovery to one, removal by index in and out
    // of range, takeText or reportAll, addError); the rest report, by one of
    // four forms, a code and a default text that `argument` picks, with the
    // number `argument` and a text. For the trace lines `argument` picks the
    // role, the severity (0 to 7) and one of 200 codes, more than the table
    // has slots, so that slots are taken over; half of the operations take
    // the argument of the one before, so that a changed variable is asked
    // again while it is remembered.
    std::string step(uint32_t operation, uint32_t argument) {
        if ((operation >> 7) % 2) argument = last_;
        last_ = argument;
        uint32_t count = static_cast<uint32_t>(model_.size());
        std::string broken;
        label_ = "operation " + std::to_string(operation % 16);
        switch (operation % 16) {
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
        case 2: {
            TraceValuesT* values = nullptr;
            getTraceController()->getVariable(tracePath(argument).c_str(), &values);
            TraceValuesT changed = *values;
            changed.detail = static_cast<int16_t>((operation >> 6) % 10);
            getTraceController()->setVariable(tracePath(argument).c_str(), &changed);
            detailed_.insert(tracePath(argument));
            return "";
        }
        case 3: {
            // The setting goes on an ancestor now and then, so that masks
            // change under remembered variables.
            typedef uint32_t (TraceControllerI::*SetterT)(TraceConsumerI*, const char*);
            static const SetterT setters[] = {&TraceControllerI::enablePath,
                                              &TraceControllerI::disablePath,
                                              &TraceControllerI::inheritPath};
            std::string target = (operation >> 4) % 2 ? tracePath(argument)
                                                      : "0,Error/" + std::string(role(argument));
            (getTraceController()->*setters[(operation >> 5) % 3])(this, target.c_str());
            return "";
        }
        case 4:
            return remembered(argument);
        case 5:
            if (buffer_->getMark() != next_) broken = "getMark";
            marks_.push_back(next_);
            break;
        case 6: {
            uint32_t mark = marks_[argument % marks_.size()];
            buffer_->recover(mark);
            auto recovered = [mark](const EntryT& e) { return e.sequence >= mark; };
            model_.erase(std::remove_if(model_.begin(), model_.end(), recovered), model_.end());
            break;
        }
        case 7:
            if (buffer_->removeEntry(argument % (count + 2)) != 0) broken = "removeEntry answer";
            if (argument % (count + 2) < count)
                model_.erase(model_.begin() + argument % (count + 2));
            break;
        case 8:
            broken = taken(argument % 4 == 0);
            break;
        case 9: {
            uint32_t code = 0xE0CB0000 | (argument % 50), severity = 1 + argument % 5;
            StringC text(("t" + std::to_string(next_)).c_str(), "utf8");
            buffer_->addError(code, severity, text);
            add(code, text, severity);
            break;
        }
        default:
            broken = report((operation >> 4) % 4, argument);
            break;
        }
        return broken.empty() ? agrees() : broken;
    }

private:
    ErrCatalogI* saved_;
    bool moduleOpen_ = false;
    bool processOpen_ = false;
    uint32_t last_ = 0;
    ErrBufI* buffer_ = getErrBuf();
    std::vector<EntryT> model_;
    std::vector<uint32_t> marks_;
    std::set<std::string> detailed_;
    uint32_t next_ = 0;
    std::string label_;

    static const char* role(uint32_t argument) { return kRoles[argument % 4]; }
    static uint32_t severityOf(uint32_t argument) { return (argument >> 2) % 8; }
    static uint32_t codeOf(uint32_t argument) { return 0xE0CB0000u + (argument >> 5) % 200; }
    static std::string tracePath(uint32_t argument) {
        static const char* const names[] = {"None",    "Monitor", "Information",
                                            "Warning", "Error",   "Fatal"};
        uint32_t severity = severityOf(argument), code = codeOf(argument);
        std::string name = severity <= 5 ? names[severity] : std::to_string(severity);
        return "0,Error/" + std::string(role(argument)) + "/" + name + "/" +
               std::to_string((code >> 16) & 0xFFF) + "/" + std::to_string(code & 0xFFFF);
    }

    // The remembered variable is the one that the plain lookup gives, with
    // its mask and the detail 0 that the lookup sets.
    std::string remembered(uint32_t argument) {
        std::string path = tracePath(argument);
        TraceControlVarC* remembered =
            errorTraceVariable(role(argument), codeOf(argument), severityOf(argument));
        // Asked afterwards: the plain lookup sets the detail to 0 itself.
        int16_t detail = remembered ? remembered->detail : -1;
        TraceValuesT* fresh = nullptr;
        uint32_t active = tracerInstance()->isEnabled(path.c_str(), &fresh);
        if (fresh != remembered) return "another variable for " + path;
        if (detail != 0) return "detail " + std::to_string(detail) + " left on " + path;
        return remembered->active == active ? "" : "another mask for " + path;
    }

    // The model's entry: what an entry made from the plain text holds.
    void add(uint32_t code, const StringC& text, uint32_t severity) {
        ErrEntryC plain(code, text, severity, next_++);
        model_.push_back(entryOf(&plain));
    }

    // The buffer's entries, up to the first index that has none, and its
    // count are the model's.
    std::string agrees() {
        std::vector<EntryT> real;
        for (uint32_t i = 0; ErrEntryI* entry = buffer_->getEntry(i); ++i)
            real.push_back(entryOf(entry));
        if (real == model_ && buffer_->getCount() == model_.size()) return "";
        return "entries after " + label_;
    }

    // takeText joins the texts with a line feed between each two and
    // answers the highest severity; both empty the buffer.
    std::string taken(bool all) {
        std::string expected;
        uint32_t highest = 0, severity = 99;
        for (size_t i = 0; i < model_.size(); ++i) {
            expected += (i ? "\n" : "") + model_[i].text;
            highest = std::max(highest, model_[i].severity);
        }
        model_.clear();
        if (all) {
            buffer_->reportAll();
            return "";
        }
        if (str(buffer_->takeText(&severity)) != expected) return "takeText text";
        return severity == highest ? "" : "takeText severity";
    }

    // The text before rendering and its severity, the plain way.
    StringC fetched(uint32_t code, const char* defaultText, uint32_t* severity) const {
        *severity = 4;
        std::string stored;
        auto in = [code, &stored](const std::string& catalog) {
            return catalogtool::lookupCatalog(catalog, errorSet(code), errorNumber(code), stored);
        };
        if (errorHasText(code)) {
            if ((moduleOpen_ && in(files().moduleBytes)) ||
                (processOpen_ && in(files().processBytes)))
                return parseMessageText(stored.c_str(), severity, nullptr);
            if (errorSet(code) == 0)
                return StringC(strerror(static_cast<int>(errorNumber(code))), "system-8");
        }
        if (!defaultText || !*defaultText) return StringC();
        if (*defaultText != 1 && *defaultText != '{') return StringC(defaultText, "system-8");
        return parseMessageText(defaultText, severity, nullptr);
    }

    // A report stores the plain road's text (nothing at severity 0); the
    // forms that answer a text leave no entry.
    std::string report(uint32_t form, uint32_t argument) {
        uint32_t code = kCodes[argument % 9];
        const char* format = kDefaults[(argument >> 4) % kDefaultCount];
        int32_t number = static_cast<int32_t>(argument >> 8);
        const char* text = (argument >> 7) % 2 ? "name" : "n\xC3\xA4me";
        uint32_t expectedSeverity = 4, severity = 99;
        StringC expected =
            StringC::format(fetched(code, format, &expectedSeverity), listOf(format, number, text));
        label_ = "code " + std::to_string(code) + " form " + std::to_string(form) + " default " +
                 std::to_string((argument >> 4) % kDefaultCount);
        StringC answered;
        if (form == 0 && reportErrorFormat(code, format, number, text) != code)
            return "answer of " + label_;
        if (form == 1 && reportError(code, format, listOf(format, number, text)) != code)
            return "answer of " + label_;
        if (form == 2) answered = errorTextFormat(&severity, code, format, number, text);
        if (form == 3) answered = errorText(&severity, code, format, listOf(format, number, text));
        if (form < 2) {
            if (expectedSeverity != 0) add(code, expected, expectedSeverity);
            return "";
        }
        if (str(answered) != str(expected)) return "text \"" + str(answered) + "\" of " + label_;
        return severity == expectedSeverity ? "" : "severity of " + label_;
    }
};

}  // namespace reportmodel
}  // namespace keel

#endif
