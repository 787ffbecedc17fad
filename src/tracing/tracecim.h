// The trace controller: the tree of control variables and the table of
// consumers, and the latch that guards both.
//
// Every path names one control variable; the first mention of a path makes
// it and every ancestor that is missing, topmost first, and tells every
// consumer (variableCreated). Variables are never removed while the
// controller lives, so the address of a variable's TraceValuesT, which trace
// points cache, stays valid.
//
// `active` (the mask a trace point reads) is computed when a setting changes
// and never when it is read. A consumer has a detail budget, its level; a
// variable with a setting of the consumer's own starts from the whole budget,
// each variable below it spends its own detail, and a variable is reached by
// inheritance while the budget stays at or above 0. Two properties of the
// computation are kept on purpose: one budget array serves a whole subtree
// (what one child's subtree spent, its next sibling finds spent), and a
// variable whose mask became 0 does not visit its children, which keep what
// they had until something recomputes them.
//
// The trace control latch is recursive: consumers run under it and may call
// back into the controller.
#ifndef KEEL_TRACING_TRACECIM_H
#define KEEL_TRACING_TRACECIM_H

#include <stdint.h>

#include <keel/trace.h>

#include <keel/blobarr.h>
#include <keel/hashtbl.h>
#include "files/osvers.h"
#include "frame/latch.h"

namespace keel {

const uint32_t kTraceTableFull = 0xE0150002u;
const uint32_t kTraceNoConsumer = 0xE0150003u;
const uint32_t kTraceNoChild = 0xE0150004u;
const uint32_t kTraceNoTime = 0xE0150005u;

// Paths longer than this are not traced: they name no variable, so every
// operation on them does nothing (trace points are off, lookups give null).
// A path's variables hold a copy of every ancestor's name, so the memory of
// one path grows with the square of its length; this bound keeps it finite.
const uint32_t kTraceMaxPath = 4095;

// The latch of the tree, the consumer table and dispatch (made at load).
LatchC& traceControlLatch();

// Skips a detail prefix: one digit, then one comma if there is one.
inline const char* skipTracePrefix(const char* path) {
    if (*path >= '0' && *path <= '9') {
        ++path;
        if (*path == ',') ++path;
    }
    return path;
}

// The detail digit of a path, or -1 without one.
inline int32_t tracePrefixDigit(const char* path) {
    return *path >= '0' && *path <= '9' ? *path - '0' : -1;
}

class TraceControlVarC : public HashElemI, public TraceValuesT {
public:
    TraceControlVarC(TraceControlVarC* parent, const char* name, uint32_t nameLength,
                     int16_t detail);
    ~TraceControlVarC() override;

    uintptr_t* nextLink() override { return &chain; }
    uint32_t* hashSlot() override { return &hash; }
    // The stored key is the name behind a neutral prefix "0,", so the table's
    // hash, which skips a prefix, hashes exactly the name, even one that
    // itself begins with a digit.
    const void* key() override { return keyText; }
    bool matchesKey(const void* key, HashTableC* table) override;

    void addChild(TraceControlVarC* child);
    uint32_t childCount() const { return children ? children->size() : 0; }
    TraceControlVarC* child(uint32_t index) const { return *children->at(index); }

    uintptr_t chain;
    uint32_t hash;
    TraceControlVarC* parent;
    const char* name;  // points into keyText, behind the "0,"
    PlainArrayM<TraceControlVarC*>* children;

private:
    char* keyText;
};

struct TraceConsumerEntryC {
    TraceConsumerI* consumer;  // null for a free slot
    int32_t level;             // 0 to 9
};

class TraceConsumerArrayC : public ArrayM<TraceConsumerEntryC> {
public:
    ~TraceConsumerArrayC() override;
};

class TraceControllerC : public TraceControllerI, private HashTableC, public TraceConsumerArrayC {
public:
    TraceControllerC();
    virtual ~TraceControllerC();

    uint32_t addConsumer(TraceConsumerI* consumer, uintptr_t reserved, int32_t level) override;
    uint32_t removeConsumer(TraceConsumerI* consumer) override;
    uint32_t setConsumerLevel(TraceConsumerI* consumer, int32_t level) override;
    uint32_t enablePath(TraceConsumerI* consumer, const char* path) override;
    uint32_t disablePath(TraceConsumerI* consumer, const char* path) override;
    uint32_t inheritPath(TraceConsumerI* consumer, const char* path) override;
    uint32_t getVariable(const char* path, TraceValuesT** result) override;
    uint32_t setVariable(const char* path, const TraceValuesT* values) override;
    uint32_t getChildCount(const char* path, uint32_t* result) override;
    uint32_t getChildName(const char* path, int32_t index, const char** result) override;
    uint32_t getTime(int64_t* ticks) override;
    uint32_t getTicksPerSecond(uint64_t* result) override;
    uint32_t getName(const char** result) override;
    uint32_t getProcessId(uint32_t* result) override;
    uint32_t getInfo(const char** result) override;

    // The variable of `path`, made with its missing ancestors; null for a
    // null or over-long path. Takes the latch.
    TraceControlVarC* findVariable(const char* path);
    // The variable of `path` if it exists; nothing is made. Takes the latch.
    TraceControlVarC* lookupVariable(const char* path);
    // Recomputes `active` of the variable and of the subtree it reaches.
    void computeActive(TraceControlVarC* variable);
    // Number of variables in the tree.
    uint32_t variableCount() const { return HashTableC::size; }
    // Calls `visit` for every variable in the order of the hash table, the
    // order in which setConsumerLevel recomputes them. Under the latch.
    void walkVariables(void (*visit)(void* context, TraceControlVarC* variable), void* context);

protected:
    uint32_t hashValue(const void* key) override;
    // Calls valueChanged on every consumer in the table.
    void notifyValueChanged(const char* path, int32_t indent);

    char* name;
    uint32_t processId;
    char* info;
    int32_t startSeconds;
    int32_t startMicroseconds;
    OsVersionC system;

private:
    int32_t consumerIndex(TraceConsumerI* consumer) const;
    uint32_t setPath(TraceConsumerI* consumer, const char* path, bool setting, bool on);
    void computeFrom(TraceControlVarC* variable, int32_t* levels);
};

}  // namespace keel

#endif
