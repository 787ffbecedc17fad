#include "errors/error.h"

#include <string.h>

#include <new>
#include <typeinfo>

#include <keel/arglist.h>
#include <keel/config.h>
#include <keel/trace.h>

#include "errors/catalog.h"
#include "frame/loadorder.h"
#include "frame/nodestroy.h"
#include "locale/locale.h"
#include "text/wordbits.h"
#include "tracing/tracer.h"

namespace keel {

namespace {

const char* const severityNames[] = {"None", "Monitor", "Information", "Warning", "Error", "Fatal"};

// The two cells, made by the load step: static storage starts as null
// pointers, and there is no static initialiser of their own. They are never
// destroyed.
InPlaceM<AtomicM<ErrCatalogI*>> moduleCatalogStorage;
InPlaceM<AtomicM<ErrCatalogI*>> processCatalogStorage;

TracePointT fetchPoint = {nullptr, "Error/Catalog/Fetch"};
TracePointT openPoint = {nullptr, "0Error/Catalog/Open"};

// The process catalog: the catalog face of the default locale's language
// facet. The facet looks the code up in its catalog file and hands what it
// lacks to the system catalog.
ErrCatalogI* languageCatalog() {
    LocaleLanguageI* language = defaultLanguage();
    return language ? language->getCatalog() : nullptr;
}

// False when the module catalog is sure to answer the empty text for `code`
// (asked with the empty default, as the switch asks): the library's own
// catalog class with no index to look in. Another class is asked.
bool moduleMayKnow(ErrCatalogI* module, uint32_t code) {
    if (typeid(*module) != typeid(ErrCatalogC)) return true;
    ErrCatalogC* file = static_cast<ErrCatalogC*>(module);
    return file->isOpen() && file->recordCount() != 0 && errorHasText(code);
}

void traceFetched(const char* format, uint32_t code, const StringC& text) {
    ArgListC list;
    list.add(static_cast<int32_t>(errorSet(code)))
        .add(static_cast<int32_t>(errorNumber(code)))
        .add(text);
    tracerInstance()->trace(fetchPoint.path, &fetchPoint.handle, format, list);
}

uint32_t letterSeverity(char letter) {
    switch (letter) {
    case '#':
        return 0;
    case 'm':
        return 1;
    case 'i':
        return 2;
    case 'w':
        return 3;
    case 'e':
        return 4;
    case 'f':
        return 5;
    default:
        return 6;
    }
}

}  // namespace

void loadStepError() {
    processCatalogStorage.make(nullptr);
    moduleCatalogStorage.make(nullptr);
}

AtomicM<ErrCatalogI*>& moduleCatalogCell() { return *moduleCatalogStorage; }

AtomicM<ErrCatalogI*>& processCatalogCell() { return *processCatalogStorage; }

const char* severityName(uint32_t severity) {
    return severity <= 5 ? severityNames[severity] : nullptr;
}

const char* scanSeverityLetters(const char* letters, uint32_t* severity) {
    bool afterCapital = false;
    const char* p = letters;
    for (; *p != 0 && *p != 1 && *p != '}'; ++p) {
        char c = *p;
        if (c >= 'A' && c <= 'Z') {
            // No qualifier is ever set, so the letter behind a capital is off.
            afterCapital = true;
            continue;
        }
        uint32_t value = letterSeverity(c);
        if (value <= 5 && !afterCapital) *severity = value;
        afterCapital = false;
    }
    return p;
}

const char* messageTextPart(const char* text, uint32_t* severity, const char* selector,
                            size_t* length) {
    *severity = 4;
    if (*text == '{') {
        const char* rest = scanSeverityLetters(text + 1, severity);
        if (*rest == '}') {
            ++rest;
            if (*rest == ' ' || *rest == '\t') ++rest;
        }
        *length = strlen(rest);
        return rest;
    }
    if (*text != 1) {
        *length = strlen(text);
        return text;
    }
    // The text is read where it stands: each field is a start and an end, so
    // nothing has to be cut with a NUL. Field 3 runs to the end of field 5,
    // keeping the separators towards the reason and the solution.
    const char* fallback = nullptr;
    size_t fallbackLength = 0;
    for (const char* group = text; group && *group == 1;) {
        const char* fields[5];
        const char* p = group + 1;
        fields[0] = p;
        for (int k = 1; k < 5; ++k) {
            const char* separator = strchr(p, 1);
            p = separator ? separator + 1 : p + strlen(p);
            fields[k] = p;
        }
        // The 0x01 that ends field 5 starts the next group's selector.
        const char* next = strchr(fields[4], 1);
        const char* end = next ? next : fields[4] + strlen(fields[4]);
        size_t partLength = static_cast<size_t>(end - fields[2]);
        if (*fields[0] == 1 || *fields[0] == 0) {
            scanSeverityLetters(fields[1], severity);
            fallback = fields[2];
            fallbackLength = partLength;
        } else if (selector && fields[0] == selector) {
            scanSeverityLetters(fields[1], severity);
            *length = partLength;
            return fields[2];
        }
        group = next;
    }
    *length = fallbackLength;
    return fallback;
}

StringC parseMessageText(const char* text, uint32_t* severity, const char* selector) {
    size_t length = 0;
    const char* part = messageTextPart(text, severity, selector, &length);
    if (!part) return StringC();
    return StringC(part, static_cast<uint32_t>(length), "utf8");
}

StringC ErrCatSwitchC::fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                             const char* selector) {
    uint32_t ignored = 4;
    if (!severity) severity = &ignored;
    StringC text;
    if (fetchFromCatalogs(severity, code, selector, &text)) return text;
    return defaultMessage(severity, defaultText, selector);
}

StringC ErrCatSwitchC::defaultMessage(uint32_t* severity, const char* defaultText,
                                      const char* selector) {
    if (!defaultText || *defaultText == 0) return StringC();
    if (*defaultText != 1 && *defaultText != '{') {
        *severity = 4;
        return StringC(defaultText, "system-8");
    }
    return parseMessageText(defaultText, severity, selector);
}

bool ErrCatSwitchC::fetchFromCatalogs(uint32_t* severity, uint32_t code, const char* selector,
                                      StringC* text) {
    *severity = 4;
    // Each catalog's answer is held in a string of its own and moved into
    // `text` only when it is the message: most reports find none, and every
    // store into the caller's handle is an exchange.
    // Catalogs that cannot know the code are not asked: what they would
    // answer is the empty text, and asking has no other effect.
    ErrCatalogI* module = moduleCatalogCell().load();
    if (module && moduleMayKnow(module, code)) {
        StringC found = module->fetch(severity, code, "", selector);
        if (!found.isEmpty()) {
            traceFetched("Message s%dm%d from module catalog: %S", code, found);
            *text = static_cast<StringC&&>(found);
            return true;
        }
    }
    LocaleLanguageC* facet = defaultLanguage();
    if (!facet || !facet->mayKnow(code)) return false;
    ErrCatalogI* language = facet->getCatalog();
    if (!language) return false;
    StringC found = language->fetch(severity, code, "", selector);
    if (found.isEmpty()) return false;
    // Here the point is tested before the list is made.
    if (traceActive(fetchPoint))
        traceFetched("Message s%dm%d from process catalog: %S", code, found);
    *text = static_cast<StringC&&>(found);
    return true;
}

const char* ErrCatSwitchC::fetchOrPlainDefault(uint32_t* severity, uint32_t code,
                                               const char* defaultText, StringC* text,
                                               size_t* length) {
    uint32_t ignored = 4;
    if (!severity) severity = &ignored;
    if (fetchFromCatalogs(severity, code, nullptr, text)) return nullptr;
    if (!defaultText || *defaultText == 0) {
        *text = StringC();
        return nullptr;
    }
    const char* part = messageTextPart(defaultText, severity, nullptr, length);
    if (part) {
        // ASCII up to the text's own NUL: its bytes are the internal form
        // that decoding (as "system-8" or as "utf8") would give.
        if (part[*length] == 0 && allAscii(reinterpret_cast<const uint8_t*>(part), *length))
            return part;
    }
    *text = defaultMessage(severity, defaultText, nullptr);
    return nullptr;
}

uint32_t ErrCatSwitchC::setQualifiers(StringC qualifiers) {
    if (ErrCatalogI* module = moduleCatalogCell().load()) module->setQualifiers(qualifiers);
    if (ErrCatalogI* language = languageCatalog()) language->setQualifiers(qualifiers);
    return 0;
}

void setModuleCatalogEmpty() {
    ErrCatalogI* old = moduleCatalogCell().exchange(new ErrCatalogC(StringC()));
    if (old) {
        tracerInstance()->trace(openPoint.path, &openPoint.handle,
                                "Replaced previous catalog with empty one", ArgListC());
        delete old;
    }
}

uint32_t setProcessCatalog(const char* fileName) {
    ArgListC list;
    list.add(fileName);
    tracerInstance()->trace(openPoint.path, &openPoint.handle,
                            "Setting process message catalog to %s", list);
    return defaultLocale()->getLanguage(1)->openCatalog(StringC(fileName, "system-8"));
}

ErrCatalogI* openModuleCatalog() {
    // The library's directory comes from the registry; without it (no file
    // mounted, no value) the name is looked for in the current directory.
    StringC directory;
    ConfigurationI* configuration = getConfiguration(1);
    ConfRegistryI* registry = configuration ? configuration->getRegistry() : nullptr;
    StringC installDir;
    StringC key("SOFTWARE\\Veltrane Corp\\Veltrane", "ascii");
    if (registry && registry->getString(ConfRegistryI::kLocalMachine, key,
                                        StringC("InstallDir", "ascii"), &installDir) == 0) {
        directory = installDir;
        directory.append(StringC("/lib/", "ascii"));
    }
    directory.append(StringC("allcat.%L.cat", "ascii"));
    // Through "system-8" and back, as a name of the system.
    const char* system = directory.textSystem();
    StringC name(system ? system : "", "system-8");
    if (system) directory.releaseSystem(system);
    // The catalog is made whether or not a file is found.
    return moduleCatalogCell().exchange(new ErrCatalogC(name));
}

namespace {

// Catalogs that a later opening replaced. Two threads that open at once both
// make one (and so does a message fetched during an opening); the later
// exchange wins, and the catalog it replaced may still be in use by a fetch
// on another thread, so it cannot be destroyed. It is kept here instead, for
// the life of the process: the list only grows while the cell is still being
// filled for the first time, so it holds at most one entry per thread that
// raced there. A push is one exchange of the head; nothing walks the list.
struct RetiredCatalogC {
    ErrCatalogI* catalog;
    RetiredCatalogC* next;
};
void retireCatalog(ErrCatalogI* catalog) {
    static NoDestroyM<AtomicM<RetiredCatalogC*>> retired;
    RetiredCatalogC* entry = new RetiredCatalogC{catalog, nullptr};
    entry->next = retired.get()->exchange(entry);
}

}  // namespace

ErrCatalogI* getCatalogSwitch() {
    static NoDestroyM<ErrCatSwitchC> theSwitch;
    // No guard against re-entry: nothing on the way records a message, and
    // a message fetched meanwhile would only open a catalog of its own.
    if (!moduleCatalogCell().load()) {
        if (ErrCatalogI* replaced = openModuleCatalog()) retireCatalog(replaced);
    }
    return theSwitch.get();
}

}  // namespace keel
