#include "errors/errimpl.h"

#include <pthread.h>
#include <string.h>

#include <keel/arglist.h>

#include "errors/error.h"
#include "frame/loadorder.h"
#include "text/stringim.h"
#include "text/utf8view.h"
#include "tracing/tracer.h"

namespace keel {

namespace {

pthread_key_t errorKey;

// The key's destructor: a thread that ends releases the buffer it leaves.
void releaseLeftBuffer(void* buffer) {
    if (buffer) static_cast<ErrBufImplC*>(buffer)->release();
}

void deleteErrorKey(void*) { pthread_key_delete(errorKey); }

StringC ascii(const char* text) { return StringC(text, "ascii"); }

// Copies at most `limit` bytes of `text` to `out`; answers the end.
char* appendText(char* out, const char* text, int limit) {
    while (limit-- > 0 && *text) *out++ = *text++;
    return out;
}

// Writes `value` in decimal (at most 10 digits); answers the end.
char* appendDecimal(char* out, uint32_t value) {
    char digits[10];
    int count = 0;
    do {
        digits[count++] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    while (count > 0) *out++ = digits[--count];
    return out;
}

}  // namespace

void loadStepErrimpl() {
    pthread_key_create(&errorKey, releaseLeftBuffer);
    pthread_setspecific(errorKey, nullptr);
    registerExitAction(deleteErrorKey, nullptr);
}

ErrBufI* threadErrBuf() {
    void* buffer = pthread_getspecific(errorKey);
    if (buffer) return static_cast<ErrBufImplC*>(buffer);
    ErrBufImplC* fresh = new ErrBufImplC();
    pthread_setspecific(errorKey, fresh);
    return fresh;
}

void releaseErrBuf() {
    void* buffer = pthread_getspecific(errorKey);
    if (!buffer) return;
    static_cast<ErrBufImplC*>(buffer)->release();
    pthread_setspecific(errorKey, nullptr);
}

// --- entries ------------------------------------------------------------

namespace {

// U+0001 is the byte 0x01 in a text's "utf8" form and is no part of any
// other character's bytes: a text without that byte is all problem.
bool hasSeparator(StringImplI* text) {
    Utf8ViewC bytes(text);
    return memchr(bytes.data(), 1, bytes.size()) != nullptr;
}

}  // namespace

ErrEntryC::ErrEntryC(uint32_t code, const StringC& text, uint32_t severity, uint32_t sequence)
    : code(code), severity(severity), sequence(sequence) {
    if (!hasSeparator(text.getImpl())) {
        problem = text;
        return;
    }
    int32_t first = text.find(1u);
    if (first < 0) {
        problem = text;
        return;
    }
    problem = text.substring(0, first);
    int32_t second = text.find(1u, first);
    if (second < 0) {
        reason = text.substring(first + 1);
        return;
    }
    reason = text.substring(first + 1, second - first - 1);
    int32_t third = text.find(1u, second);
    solution =
        third < 0 ? text.substring(second + 1) : text.substring(second + 1, third - second - 1);
}

ErrEntryC::ErrEntryC(uint32_t code, StringImplI* problemText, uint32_t severity, uint32_t sequence)
    : code(code),
      problem(StringImplC::handleOfNew(problemText)),
      reason(noText()),
      solution(noText()),
      severity(severity),
      sequence(sequence) {}

StringC ErrEntryC::getText() {
    StringC text = problem;
    if (!reason.isEmpty()) text = StringC(text, 10u).append(reason);
    if (!solution.isEmpty()) text = StringC(text, 10u).append(solution);
    return text;
}

void ErrEntryArrayC::destroyElement(void* object) { delete static_cast<ErrEntryC*>(object); }

// --- the buffer ---------------------------------------------------------

ErrBufImplC::ErrBufImplC() : nextSequence(1), references(1) {}

ErrBufImplC::~ErrBufImplC() { removeAllEntries(); }

void ErrBufImplC::removeAllEntries() {
    while (size() != 0) removeAt(size() - 1);
}

void ErrBufImplC::addError(uint32_t code, uint32_t severity, const StringC& text) {
    // A private copy: the caller's string may change after this.
    StringC copy(text, StringC());
    addPrivate(code, severity, copy);
}

void ErrBufImplC::addReported(uint32_t code, uint32_t severity, StringC&& text) {
    // A report's text is a string that the report made and that nobody else
    // holds: it is a private copy already, and copying it again would give
    // the same characters in another representation. One that is shared
    // (or a kind that always answers shared) is copied as addError does.
    if (text.getImpl()->isShared()) return addError(code, severity, text);
    addPrivate(code, severity, text);
}

void ErrBufImplC::addRendered(uint32_t code, uint32_t severity, StringImplI* fresh) {
    if (hasSeparator(fresh)) {
        StringC text = StringC::fromNew(fresh);
        return addPrivate(code, severity, text);
    }
    // All problem: the entry's problem is the new string itself (its first
    // handle), and the trace line shows it, which is that same text.
    ErrEntryC* entry = new ErrEntryC(code, fresh, severity, takeSequence());
    append(entry);
    traceError("Occurrence", code, severity, entry->problem);
}

void ErrBufImplC::addPrivate(uint32_t code, uint32_t severity, const StringC& copy) {
    append(new ErrEntryC(code, copy, severity, takeSequence()));
    traceError("Occurrence", code, severity, copy);
}

void ErrBufImplC::reportAll() {
    for (uint32_t i = 0; i < size(); ++i) {
        ErrEntryC* entry = entryAt(i);
        StringC text = entry->getText();
        traceError("Report", entry->code, entry->severity, text);
    }
    removeAllEntries();
}

void ErrBufImplC::recover(uint32_t mark) {
    for (uint32_t i = size(); i-- > 0;) {
        ErrEntryC* entry = entryAt(i);
        if (entry->sequence < mark) continue;
        StringC text = entry->getText();
        traceError("Recovery", entry->code, entry->severity, text);
        removeAt(i);
    }
}

StringC ErrBufImplC::takeText(uint32_t* highestSeverity) {
    StringC result;
    uint32_t highest = 0;
    for (uint32_t i = 0; i < size(); ++i) {
        ErrEntryC* entry = entryAt(i);
        StringC text = entry->getText();
        traceError("Report", entry->code, entry->severity, text);
        if (i != 0) result.append(10u);
        result.append(entry->getText());
        if (entry->severity > highest) highest = entry->severity;
    }
    if (highestSeverity) *highestSeverity = highest;
    removeAllEntries();
    return result;
}

uint32_t ErrBufImplC::addRef() {
    atomicAddAcqRel(&references, 1);
    return 0;
}

uint32_t ErrBufImplC::release() {
    if (atomicAddAcqRel(&references, -1) == 0) delete this;
    return 0;
}

uint32_t ErrBufImplC::removeEntry(uint32_t index) {
    removeAt(index);
    return 0;
}

// --- tracing of entries -------------------------------------------------

namespace {

// The trace path of an entry, "0,Error/<role>/<severity>/<set>/<number>", put
// together by hand: a printf of it costs more than the lookup it serves.
// `path` has room for 96 bytes.
void errorTracePath(char* path, const char* role, const char* name, uint32_t code) {
    char* end = appendText(path, "0,Error/", 8);
    end = appendText(end, role, 16);
    *end++ = '/';
    end = appendText(end, name, 16);
    *end++ = '/';
    end = appendDecimal(end, errorSet(code));
    *end++ = '/';
    *appendDecimal(end, errorNumber(code)) = 0;
}

// The severity's name; one outside the table (which only a direct addError
// can store) is named by its number, written into `number`.
const char* errorSeverityName(uint32_t severity, char* number) {
    const char* name = severityName(severity);
    if (name) return name;
    *appendDecimal(number, severity) = 0;
    return number;
}

// Each thread remembers the control variables of the entry paths it traced
// last, by role, severity and code, so that a report asks the tree (a latch,
// a hash and a string comparison) only for a path it has not seen lately.
// A path's variable lives as long as the tracer, which is never destroyed,
// so a remembered one stays valid. The table is direct-mapped with a fixed
// number of slots: a program that reports many codes replaces slots instead
// of growing it, so it costs the same few KiB in every thread whatever it
// reports, and it has nothing to free when the thread ends.
struct TraceCellT {
    const char* role;  // the role text as the caller passed it; null: empty slot
    uint32_t severity;
    uint32_t code;
    TraceControlVarC* variable;
};
const uint32_t kTraceCells = 64;

uint32_t traceCellIndex(const char* role, uint32_t severity, uint32_t code) {
    uint32_t mixed = code * 0x9E3779B1u ^ severity * 0x85EBCA77u ^
                     static_cast<uint32_t>(reinterpret_cast<uintptr_t>(role)) * 0xC2B2AE3Du;
    return (mixed >> 16) % kTraceCells;
}

}  // namespace

TraceControlVarC* errorTraceVariable(const char* role, uint32_t code, uint32_t severity) {
    static thread_local TraceCellT cells[kTraceCells];
    TraceCellT& cell = cells[traceCellIndex(role, severity, code)];
    // The lookup below sets the variable's detail back to 0 (the path's
    // prefix) when something changed it; a remembered variable whose detail
    // is not 0 goes through the lookup again, so that this happens as before.
    if (cell.role == role && cell.severity == severity && cell.code == code &&
        atomicLoadRelaxed(&cell.variable->detail) == 0) {
        return cell.variable;
    }
    char number[16];
    char path[96];
    errorTracePath(path, role, errorSeverityName(severity, number), code);
    TraceValuesT* handle = nullptr;
    tracerInstance()->isEnabled(path, &handle);
    TraceControlVarC* variable = static_cast<TraceControlVarC*>(handle);
    if (variable) cell = TraceCellT{role, severity, code, variable};
    return variable;
}

void traceError(const char* role, uint32_t code, uint32_t severity, const StringC& text) {
    // The path's variable, made with its ancestors at the first mention as a
    // lookup with a fresh handle makes it; a path that is off ends here.
    TraceControlVarC* variable = errorTraceVariable(role, code, severity);
    if (!variable || atomicLoadRelaxed(&variable->active) == 0) return;
    TracerC* tracer = tracerInstance();
    char number[16];
    const char* name = errorSeverityName(severity, number);
    char path[96];
    errorTracePath(path, role, name, code);
    TraceValuesT* handle = variable;
    StringC shown = text;
    int32_t first = text.find(1u);
    if (first >= 0) {
        StringC sentence;
        StringC problem = text.substring(0, first);
        if (!problem.isEmpty()) sentence = ascii("Problem: ") + problem;
        int32_t second = text.find(1u, first);
        if (second >= 0) {
            if (!sentence.isEmpty()) sentence.append(ascii(", "));
            StringC reason = text.substring(first + 1, second - first - 1);
            StringC rest = text.substring(second + 1);
            if (!reason.isEmpty()) {
                sentence.append(ascii("Reason: ")).append(reason);
                if (!rest.isEmpty()) sentence.append(ascii(", Solution: ")).append(rest);
            } else {
                sentence.append(ascii("Solution: ")).append(rest);
            }
        }
        shown = sentence;
    }
    ArgListC list;
    list.add(name).add(role).add(static_cast<int32_t>(errorSet(code)));
    list.add(static_cast<int32_t>(errorNumber(code))).add(shown);
    tracer->trace(path, &handle, "%s %s (s%dm%d): %S", list);
}

}  // namespace keel
