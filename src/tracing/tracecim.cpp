#include "tracing/tracecim.h"

#include <string.h>
#include <sys/time.h>

#include <new>
#include <string>
#include <vector>

#include "files/gettime.h"
#include "frame/loadorder.h"
#include "frame/nodestroy.h"

namespace keel {

namespace {

// Raw storage: the latch is made by the load step, not by whatever order the
// static initialisers run in, and destroyed by the exit action it registers.
InPlaceM<LatchC> controlLatchStorage;

void destroyControlLatch(void*) { controlLatchStorage.destroy(); }

// Budgets only ever fall between two settings; holding them above this floor
// keeps a long walk over a wide tree from overflowing while their sign, which
// is all that counts, stays the same.
const int32_t kBudgetFloor = -0x40000000;

uint32_t consumerBit(uint32_t index) {
    // Slots from 32 on share the bit of their index modulo 32.
    return 1u << (index % 32);
}

void storeActive(TraceValuesT* values, uint32_t mask) { atomicStoreRelaxed(&values->active, mask); }

}  // namespace

void loadStepTracecim() {
    controlLatchStorage.make(LatchC::Recursive);
    registerExitAction(destroyControlLatch, nullptr);
}

LatchC& traceControlLatch() { return *controlLatchStorage; }

// --- control variables --------------------------------------------------

TraceControlVarC::TraceControlVarC(TraceControlVarC* parent, const char* text, uint32_t nameLength,
                                   int16_t level)
    : TraceValuesT(),
      chain(0),
      hash(0),
      parent(parent),
      name(nullptr),
      children(nullptr),
      keyText(nullptr) {
    detail = level;
    keyText = new char[nameLength + 3];
    keyText[0] = '0';
    keyText[1] = ',';
    memcpy(keyText + 2, text, nameLength);
    keyText[nameLength + 2] = 0;
    name = keyText + 2;
}

TraceControlVarC::~TraceControlVarC() {
    delete children;
    delete[] keyText;
}

bool TraceControlVarC::matchesKey(const void* key, HashTableC*) {
    return strcmp(skipTracePrefix(static_cast<const char*>(key)), name) == 0;
}

void TraceControlVarC::addChild(TraceControlVarC* child) {
    if (!children) children = new PlainArrayM<TraceControlVarC*>();
    children->append(child);
}

TraceConsumerArrayC::~TraceConsumerArrayC() { removeAll(); }

// --- the controller -----------------------------------------------------

TraceControllerC::TraceControllerC()
    : name(nullptr), processId(0), info(nullptr), startSeconds(0), startMicroseconds(0) {
    // Time counts from the creation of the tracer.
    int64_t ignored;
    getTime(&ignored);
}

TraceControllerC::~TraceControllerC() {
    {
        LatchGuardC guard(traceControlLatch());
        eraseAll();
    }
    removeAll();
    delete[] name;
    delete[] info;
}

uint32_t TraceControllerC::hashValue(const void* key) {
    return hashOfCString(skipTracePrefix(static_cast<const char*>(key)));
}

TraceControlVarC* TraceControllerC::lookupVariable(const char* path) {
    if (!path || strnlen(path, kTraceMaxPath + 1) > kTraceMaxPath) return nullptr;
    LatchGuardC guard(traceControlLatch());
    return static_cast<TraceControlVarC*>(find(path));
}

TraceControlVarC* TraceControllerC::findVariable(const char* path) {
    if (!path) return nullptr;
    size_t length = strnlen(path, kTraceMaxPath + 1);
    if (length > kTraceMaxPath) return nullptr;
    LatchGuardC guard(traceControlLatch());
    if (TraceControlVarC* found = static_cast<TraceControlVarC*>(find(path))) {
        // A prefix that differs changes the detail; `active` stays as it was
        // until a setting changes.
        int32_t digit = tracePrefixDigit(path);
        // The store is atomic: the error reports' remembered variables read
        // the detail without the latch.
        if (digit >= 0 && digit != found->detail) {
            atomicStoreRelaxed(&found->detail, static_cast<int16_t>(digit));
        }
        return found;
    }
    // Every ancestor is the path (with its prefix) cut at one of its '/'.
    // The creation runs from the deepest ancestor that exists downwards, one
    // level at a time, so that the topmost new variable is announced first.
    const char* nameStart = skipTracePrefix(path);
    size_t prefixLength = static_cast<size_t>(nameStart - path);
    std::vector<size_t> ends;
    for (size_t i = prefixLength; i < length; ++i) {
        if (path[i] == '/') ends.push_back(i);
    }
    ends.push_back(length);
    int32_t digit = tracePrefixDigit(path);
    int16_t detail = static_cast<int16_t>(digit >= 0 ? digit : 1);

    TraceControlVarC* parent = nullptr;
    size_t first = 0;
    for (size_t k = ends.size() - 1; k-- > 0;) {
        std::string ancestor(path, ends[k]);
        if ((parent = static_cast<TraceControlVarC*>(find(ancestor.c_str())))) {
            first = k + 1;
            break;
        }
    }
    for (size_t k = first; k < ends.size(); ++k) {
        std::string levelPath(path, ends[k]);
        // A consumer told of an ancestor may have made this one already.
        if (TraceControlVarC* made = static_cast<TraceControlVarC*>(find(levelPath.c_str()))) {
            parent = made;
            continue;
        }
        TraceControlVarC* variable = new TraceControlVarC(
            parent, nameStart, static_cast<uint32_t>(ends[k] - prefixLength), detail);
        insert(variable);
        if (parent) parent->addChild(variable);
        computeActive(variable);
        // Consumers may add consumers or settings from here: the table is
        // read by index on every turn.
        for (uint32_t i = 0; i < TraceConsumerArrayC::size(); ++i) {
            TraceConsumerI* consumer = at(i)->consumer;
            if (consumer) consumer->variableCreated(levelPath.c_str());
        }
        parent = variable;
    }
    return parent;
}

void TraceControllerC::computeActive(TraceControlVarC* variable) {
    int32_t levels[32] = {0};
    std::vector<TraceControlVarC*> line;
    for (TraceControlVarC* v = variable; v; v = v->parent) line.push_back(v);
    uint32_t inUse = TraceConsumerArrayC::size() < 32 ? TraceConsumerArrayC::size() : 32;
    for (size_t k = line.size(); k-- > 0;) {
        TraceControlVarC* v = line[k];
        for (uint32_t i = 0; i < inUse; ++i) {
            const TraceConsumerEntryC* entry = at(i);
            if (!entry->consumer) continue;
            if (v->explicit_ & (1u << i)) levels[i] = entry->level;
            if (k != 0 && levels[i] > kBudgetFloor) levels[i] -= v->detail;
        }
    }
    computeFrom(variable, levels);
}

void TraceControllerC::computeFrom(TraceControlVarC* start, int32_t* levels) {
    uint32_t inUse = TraceConsumerArrayC::size() < 32 ? TraceConsumerArrayC::size() : 32;
    // Depth first, each variable before its children, children in order;
    // an explicit stack keeps deep trees off the call stack.
    struct FrameT {
        TraceControlVarC* variable;
        uint32_t next;
    };
    std::vector<FrameT> stack;
    TraceControlVarC* v = start;
    while (v) {
        uint32_t explicitMask = v->explicit_;
        uint32_t active = v->enabled & explicitMask;
        uint32_t reach = 0;
        for (uint32_t i = 0; i < inUse; ++i) {
            const TraceConsumerEntryC* entry = at(i);
            if (!entry->consumer) continue;
            int32_t budget = (explicitMask & (1u << i)) ? entry->level : levels[i];
            if (budget > kBudgetFloor) budget -= v->detail;
            levels[i] = budget;
            if (budget >= 0) reach |= 1u << i;
        }
        if (v->parent) active |= reach & ~explicitMask & v->parent->active;
        storeActive(v, active);
        if (active != 0 && v->childCount() > 0) stack.push_back(FrameT{v, 0});
        v = nullptr;
        while (!stack.empty()) {
            FrameT& top = stack.back();
            if (top.next < top.variable->childCount()) {
                v = top.variable->child(top.next++);
                break;
            }
            stack.pop_back();
        }
    }
}

int32_t TraceControllerC::consumerIndex(TraceConsumerI* consumer) const {
    if (!consumer) return -1;
    for (uint32_t i = 0; i < TraceConsumerArrayC::size(); ++i) {
        if (at(i)->consumer == consumer) return static_cast<int32_t>(i);
    }
    return -1;
}

uint32_t TraceControllerC::addConsumer(TraceConsumerI* consumer, uintptr_t, int32_t level) {
    // A null consumer would take a slot that counts as free.
    if (!consumer) return kTraceNoConsumer;
    LatchGuardC guard(traceControlLatch());
    uint32_t index = 0;
    while (index < TraceConsumerArrayC::size() && at(index)->consumer) ++index;
    // The shift wraps at 32, so this never refuses; slots from 32 on alias
    // the bit of their index modulo 32.
    if (consumerBit(index) == 0) return kTraceTableFull;
    if (index < TraceConsumerArrayC::size()) {
        TraceConsumerEntryC* entry = at(index);
        entry->consumer = consumer;
        entry->level = 9;
        // A former consumer's explicit settings of this slot stay, as explicit offs.
        uint32_t keep = ~consumerBit(index);
        HashIteratorC walk(this);
        uint32_t status = 0;
        for (HashElemI* element = walk.next(status); element; element = walk.next(status)) {
            TraceControlVarC* variable = static_cast<TraceControlVarC*>(element);
            storeActive(variable, variable->active & keep);
            variable->enabled &= keep;
        }
    } else {
        append(TraceConsumerEntryC{consumer, 9});
    }
    setConsumerLevel(consumer, level);
    return 0;
}

uint32_t TraceControllerC::removeConsumer(TraceConsumerI* consumer) {
    LatchGuardC guard(traceControlLatch());
    int32_t index = consumerIndex(consumer);
    if (index < 0) return kTraceNoConsumer;
    // The masks stay and the table keeps its length: dispatch skips the slot.
    at(static_cast<uint32_t>(index))->consumer = nullptr;
    return 0;
}

uint32_t TraceControllerC::setConsumerLevel(TraceConsumerI* consumer, int32_t level) {
    LatchGuardC guard(traceControlLatch());
    int32_t index = consumerIndex(consumer);
    if (index < 0) return kTraceNoConsumer;
    at(static_cast<uint32_t>(index))->level = level < 0 ? 0 : level > 9 ? 9 : level;
    uint32_t bit = consumerBit(static_cast<uint32_t>(index));
    HashIteratorC walk(this);
    uint32_t status = 0;
    for (HashElemI* element = walk.next(status); element; element = walk.next(status)) {
        TraceControlVarC* variable = static_cast<TraceControlVarC*>(element);
        if (!variable->parent || (variable->explicit_ & bit)) computeActive(variable);
    }
    return status;
}

uint32_t TraceControllerC::setPath(TraceConsumerI* consumer, const char* path, bool setting,
                                   bool on) {
    LatchGuardC guard(traceControlLatch());
    int32_t index = consumerIndex(consumer);
    if (index < 0) return kTraceNoConsumer;
    TraceControlVarC* variable = findVariable(path);
    if (!variable) return 0;
    uint32_t bit = consumerBit(static_cast<uint32_t>(index));
    variable->explicit_ = setting ? variable->explicit_ | bit : variable->explicit_ & ~bit;
    variable->enabled = on ? variable->enabled | bit : variable->enabled & ~bit;
    computeActive(variable);
    return 0;
}

uint32_t TraceControllerC::enablePath(TraceConsumerI* consumer, const char* path) {
    return setPath(consumer, path, true, true);
}

uint32_t TraceControllerC::disablePath(TraceConsumerI* consumer, const char* path) {
    return setPath(consumer, path, true, false);
}

uint32_t TraceControllerC::inheritPath(TraceConsumerI* consumer, const char* path) {
    return setPath(consumer, path, false, false);
}

uint32_t TraceControllerC::getVariable(const char* path, TraceValuesT** result) {
    TraceControlVarC* variable = findVariable(path);
    if (result) *result = variable;
    return 0;
}

uint32_t TraceControllerC::setVariable(const char* path, const TraceValuesT* values) {
    if (!values) return 0;
    LatchGuardC guard(traceControlLatch());
    TraceControlVarC* variable = findVariable(path);
    if (!variable) return 0;
    variable->enabled = values->enabled;
    variable->explicit_ = values->explicit_;
    atomicStoreRelaxed(&variable->counter, values->counter);
    variable->total = values->total;
    atomicStoreRelaxed(&variable->detail,
                       static_cast<int16_t>(values->detail < 0   ? 0
                                            : values->detail > 9 ? 9
                                                                 : values->detail));
    computeActive(variable);
    return 0;
}

uint32_t TraceControllerC::getChildCount(const char* path, uint32_t* result) {
    if (!result) return 0;
    *result = 0;
    LatchGuardC guard(traceControlLatch());
    if (TraceControlVarC* variable = lookupVariable(path)) *result = variable->childCount();
    return 0;
}

uint32_t TraceControllerC::getChildName(const char* path, int32_t index, const char** result) {
    if (!result) return kTraceNoChild;
    LatchGuardC guard(traceControlLatch());
    TraceControlVarC* variable = lookupVariable(path);
    if (!variable || index < 0 || static_cast<uint32_t>(index) >= variable->childCount())
        return kTraceNoChild;
    *result = variable->child(static_cast<uint32_t>(index))->name;
    return 0;
}

uint32_t TraceControllerC::getTime(int64_t* ticks) {
    LatchGuardC guard(traceControlLatch());
    struct timeval now;
    if (getTimeOfDay(&now) != 0) return kTraceNoTime;
    if (startSeconds == 0 && startMicroseconds == 0) {
        startSeconds = static_cast<int32_t>(now.tv_sec);
        startMicroseconds = static_cast<int32_t>(now.tv_usec);
    }
    int64_t seconds = static_cast<int64_t>(now.tv_sec) - startSeconds;
    int64_t micros = static_cast<int64_t>(now.tv_usec) - startMicroseconds;
    if (micros < 0) {
        micros += 1000000;
        seconds -= 1;
    }
    if (ticks) *ticks = seconds * 1000000 + micros;
    return 0;
}

uint32_t TraceControllerC::getTicksPerSecond(uint64_t* result) {
    if (result) *result = 1000000;
    return 0;
}

uint32_t TraceControllerC::getName(const char** result) {
    if (result) *result = name;
    return 0;
}

uint32_t TraceControllerC::getProcessId(uint32_t* result) {
    if (result) *result = processId;
    return 0;
}

uint32_t TraceControllerC::getInfo(const char** result) {
    if (result) *result = info;
    return 0;
}

void TraceControllerC::walkVariables(void (*visit)(void* context, TraceControlVarC* variable),
                                     void* context) {
    LatchGuardC guard(traceControlLatch());
    HashIteratorC walk(this);
    uint32_t status = 0;
    for (HashElemI* element = walk.next(status); element; element = walk.next(status)) {
        visit(context, static_cast<TraceControlVarC*>(element));
    }
}

void TraceControllerC::notifyValueChanged(const char* path, int32_t indent) {
    // Under the latch: another thread's addConsumer may grow (and move) the
    // table at any time, and reading it unguarded could read freed storage.
    LatchGuardC guard(traceControlLatch());
    for (uint32_t i = 0; i < TraceConsumerArrayC::size(); ++i) {
        TraceConsumerI* consumer = at(i)->consumer;
        if (consumer) consumer->valueChanged(path, indent);
    }
}

}  // namespace keel
