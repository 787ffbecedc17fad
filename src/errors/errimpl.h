// The per-thread error buffer and its entries.
//
// Each thread gets its own ErrBufImplC at its first getErrBuf, kept under a
// thread key made at load; when the thread ends, the key's destructor
// releases it. A buffer has no lock: only its thread uses it. Every entry
// added is traced under "0,Error/Occurrence/<severity>/<set>/<number>";
// reportAll, takeText and recover trace theirs under the roles "Report" and
// "Recovery".
#ifndef KEEL_ERRORS_ERRIMPL_H
#define KEEL_ERRORS_ERRIMPL_H

#include <stdint.h>

#include <keel/errors.h>

#include <keel/objarray.h>

#include "errors/error.h"

namespace keel {

class ErrEntryC : public ErrEntryI {
public:
    // Cuts `text` at U+0001 into problem, reason and solution; what follows
    // a third separator is dropped.
    ErrEntryC(uint32_t code, const StringC& text, uint32_t severity, uint32_t sequence);
    // An entry whose text has no U+0001, all problem: a new representation
    // (count 0) that no handle holds yet, which the entry's problem takes.
    ErrEntryC(uint32_t code, StringImplI* problemText, uint32_t severity, uint32_t sequence);
    ~ErrEntryC() override {}

    uint32_t getCode() override { return code; }
    StringC getText() override;
    uint32_t getSeverity() override { return severity; }
    uint32_t getSequence() override { return sequence; }
    ErrEntryI* setSeverity(uint32_t value) override {
        severity = value;
        return this;
    }
    StringC getProblem() override { return problem; }
    StringC getReason() override { return reason; }
    StringC getSolution() override { return solution; }

    uint32_t code;
    StringC problem;
    StringC reason;
    StringC solution;
    uint32_t severity;
    uint32_t sequence;
};

// Owns its entries: removing one deletes it.
class ErrEntryArrayC : public ObjArrayC {
public:
    void destroyElement(void* object) override;
};

class ErrBufImplC : public ErrBufI, private ErrEntryArrayC {
public:
    ErrBufImplC();
    ~ErrBufImplC() override;

    void addError(uint32_t code, uint32_t severity, const StringC& text) override;
    uint32_t getCount() override { return size(); }
    ErrEntryI* getEntry(uint32_t index) override { return entryAt(index); }
    void reportAll() override;
    uint32_t getMark() override { return atomicLoadRelaxed(&nextSequence); }
    void recover(uint32_t mark) override;
    StringC takeText(uint32_t* highestSeverity) override;
    uint32_t addRef() override;
    uint32_t release() override;
    uint32_t removeEntry(uint32_t index) override;

    // addError for the text of a report (reportError and its forms), which
    // the report made and hands over: the private copy is skipped when no
    // one else holds that string. `text` is left empty or unchanged.
    void addReported(uint32_t code, uint32_t severity, StringC&& text);
    // The same for a text that the report has just rendered, a new
    // representation (count 0) that no handle holds: the buffer takes it
    // over, and a text that is all problem becomes the entry's problem.
    void addRendered(uint32_t code, uint32_t severity, StringImplI* fresh);

private:
    // The rest of addError, with the private copy made.
    void addPrivate(uint32_t code, uint32_t severity, const StringC& copy);
    // The number of the next entry. Only the thread that owns the buffer
    // (or the one it was handed to) adds entries, so the count is read and
    // written in two steps: no other thread writes it meanwhile, and a
    // reader on another thread sees the old number or the new one.
    uint32_t takeSequence() {
        uint32_t sequence = atomicLoadRelaxed(&nextSequence);
        atomicStoreRelaxed(&nextSequence, sequence + 1);
        return sequence;
    }
    ErrEntryC* entryAt(uint32_t index) const { return static_cast<ErrEntryC*>(objectAt(index)); }
    void removeAllEntries();

    uint32_t nextSequence;  // atomic: the number the next entry gets, from 1
    int32_t references;     // atomic: 1 at the start
};

// The calling thread's buffer, made at its first call.
ErrBufI* threadErrBuf();
// Releases the calling thread's buffer, if it has one, and clears its slot.
void releaseErrBuf();

// Traces an entry under "0,Error/<role>/<severity>/<set>/<number>" if that
// path is on, as "<severity> <role> (s<set>m<number>): <text>". A text with
// U+0001 in it is first reworded into "Problem: ..., Reason: ...,
// Solution: ..." (in a string of its own; `text` stays as it is).
void traceError(const char* role, uint32_t code, uint32_t severity, const StringC& text);

class TraceControlVarC;
// The control variable of that path, as a lookup with a fresh handle finds
// (or makes) it; answered from a small table of the calling thread when the
// same role (the same pointer), severity and code were asked lately.
TraceControlVarC* errorTraceVariable(const char* role, uint32_t code, uint32_t severity);

}  // namespace keel

#endif
