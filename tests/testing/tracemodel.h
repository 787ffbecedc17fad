// A plain model of the tree of control variables, and a driver that applies
// the same operations to it and to a real TraceControllerC and says where
// they part. Used by the model-based test and by the fuzz target.
//
// The model keeps variables in a std::map by name and computes masks by
// plain recursion over the rules: budgets from the top, one budget array per
// subtree walk, no visit below a variable whose mask became 0. It takes one
// thing from the controller: the order of its hash table, in which
// setConsumerLevel recomputes variables. An operation is two words: what to
// do with the two bytes above it that make a path, and an argument.
#ifndef KEEL_TESTS_TESTING_TRACEMODEL_H
#define KEEL_TESTS_TESTING_TRACEMODEL_H

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tracing/tracecim.h"

namespace keel {
namespace tracemodel {

// Logs what the controller tells it ("c<id> <path>", "w<id> <path>").
class LogConsumerC : public TraceConsumerI {
public:
    uint32_t write(const char* path, int32_t, const char*, ArgListC) override {
        log->push_back("w" + std::to_string(id) + " " + path);
        return fail ? 1 : 0;
    }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char* path) override {
        log->push_back("c" + std::to_string(id) + " " + path);
        return 0;
    }
    int id = 0;
    bool fail = false;
    std::vector<std::string>* log = nullptr;
};

struct ModelC {
    struct VarT {
        std::string parent;  // "" with hasParent false at the top
        bool hasParent = false;
        std::vector<std::string> children;
        int detail = 1;
        uint32_t enabled = 0, explicit_ = 0, active = 0;
    };
    std::map<std::string, VarT> vars;
    std::vector<std::pair<int, int>> slots;  // consumer (-1 free), level
    std::vector<std::string> log;

    static size_t prefix(const std::string& p) {
        return p.empty() || p[0] < '0' || p[0] > '9' ? 0 : p.size() > 1 && p[1] == ',' ? 2 : 1;
    }
    static std::string nameOf(const std::string& p) { return p.substr(prefix(p)); }
    int slotOf(int consumer) const {
        for (size_t i = 0; i < slots.size(); ++i)
            if (slots[i].first == consumer) return static_cast<int>(i);
        return -1;
    }
    static int clamped(int value) { return std::min(std::max(value, 0), 9); }
    size_t inUse() const { return slots.size() < 32 ? slots.size() : 32; }

    void mention(const std::string& path) {
        std::string name = nameOf(path);
        int digit = prefix(path) ? path[0] - '0' : -1;
        if (vars.count(name)) {
            if (digit >= 0) vars[name].detail = digit;
            return;
        }
        VarT v;
        size_t cut = path.rfind('/');
        if (cut != std::string::npos && cut >= prefix(path)) {
            if (!vars.count(nameOf(path.substr(0, cut)))) mention(path.substr(0, cut));
            v.parent = nameOf(path.substr(0, cut));
            v.hasParent = true;
            vars[v.parent].children.push_back(name);
        }
        v.detail = digit >= 0 ? digit : 1;
        vars[name] = v;
        compute(name);
        for (const auto& slot : slots)
            if (slot.first >= 0) log.push_back("c" + std::to_string(slot.first) + " " + path);
    }
    void compute(const std::string& name) {
        int levels[32] = {0};
        std::vector<std::string> line{name};
        while (vars[line.back()].hasParent) line.push_back(vars[line.back()].parent);
        for (size_t k = line.size(); k-- > 0;) {
            for (size_t i = 0; i < inUse(); ++i) {
                if (slots[i].first < 0) continue;
                if (vars[line[k]].explicit_ & (1u << i)) levels[i] = slots[i].second;
                if (k != 0) levels[i] -= vars[line[k]].detail;
            }
        }
        computeFrom(name, levels);
    }
    void computeFrom(const std::string& name, int* levels) {
        VarT& v = vars[name];
        v.active = v.enabled & v.explicit_;
        uint32_t reach = 0;
        for (size_t i = 0; i < inUse(); ++i) {
            if (slots[i].first < 0) continue;
            levels[i] = ((v.explicit_ & (1u << i)) ? slots[i].second : levels[i]) - v.detail;
            if (levels[i] >= 0) reach |= 1u << i;
        }
        if (v.hasParent) v.active |= reach & ~v.explicit_ & vars[v.parent].active;
        if (v.active == 0) return;
        std::vector<std::string> children(v.children);  // computing may add to the map
        for (const std::string& child : children) computeFrom(child, levels);
    }
    uint32_t setLevel(int consumer, int level, const std::vector<std::string>& tableOrder) {
        int slot = slotOf(consumer);
        if (slot < 0) return kTraceNoConsumer;
        slots[slot].second = clamped(level);
        for (const std::string& name : tableOrder)
            if (!vars[name].hasParent || (vars[name].explicit_ & (1u << slot))) compute(name);
        return 0;
    }
    uint32_t add(int consumer, int level, const std::vector<std::string>& tableOrder) {
        int slot = slotOf(-1);
        if (slot < 0) slots.push_back({consumer, 9});
        if (slot >= 0) {  // a reused slot starts with nothing on
            slots[slot] = {consumer, 9};
            for (auto& entry : vars) entry.second.enabled &= ~(1u << slot);
            for (auto& entry : vars) entry.second.active &= ~(1u << slot);
        }
        return setLevel(consumer, level, tableOrder);
    }
    uint32_t setPath(int consumer, const std::string& path, bool setting, bool on) {
        int slot = slotOf(consumer);
        if (slot < 0) return kTraceNoConsumer;
        mention(path);
        VarT& v = vars[nameOf(path)];
        v.explicit_ = setting ? v.explicit_ | (1u << slot) : v.explicit_ & ~(1u << slot);
        v.enabled = on ? v.enabled | (1u << slot) : v.enabled & ~(1u << slot);
        compute(nameOf(path));
        return 0;
    }
};

class DriverC {
public:
    DriverC() {
        for (int i = 0; i < 4; ++i) consumers[i].id = i, consumers[i].log = &realLog;
    }

    static std::string makePath(uint8_t shape, uint8_t parts) {
        static const char* const prefixes[] = {"", "0", "3,", "9"};
        static const char* const components[] = {"A", "B", "7", ""};
        std::string path = prefixes[(shape >> 2) & 3];
        for (int k = 0; k <= (shape & 3); ++k)
            path += std::string(k ? "/" : "") + components[(parts >> (2 * k)) & 3];
        return path;
    }

    // Applies one operation to both; answers "" or what differs. The low
    // byte of `operation` says what to do, the next two make the path.
    std::string step(uint32_t operation, uint32_t argument) {
        uint8_t op = (operation & 0xFF) % 9, shape = operation >> 8, parts = operation >> 16;
        std::string path = makePath(shape, parts), name = ModelC::nameOf(path);
        int c = argument % 4, level = static_cast<int>(argument % 15) - 2, slot = model.slotOf(c);
        TraceConsumerI* consumer = &consumers[c];
        uint32_t real = 0, expected = 0;
        if (op == 0 && slot < 0) {  // each consumer holds at most one slot
            real = controller.addConsumer(consumer, 0, level);
            expected = model.add(c, level, order());
        } else if (op == 1) {
            real = controller.removeConsumer(consumer);
            expected = slot < 0 ? kTraceNoConsumer : 0;
            if (slot >= 0) model.slots[slot].first = -1;
        } else if (op == 2) {
            real = controller.setConsumerLevel(consumer, level);
            expected = model.setLevel(c, level, order());
        } else if (op >= 3 && op <= 5) {  // enable, disable, inherit
            real = op == 3   ? controller.enablePath(consumer, path.c_str())
                   : op == 4 ? controller.disablePath(consumer, path.c_str())
                             : controller.inheritPath(consumer, path.c_str());
            expected = model.setPath(c, path, op != 5, op == 3);
        } else if (op == 6) {
            TraceValuesT* values = nullptr;
            controller.getVariable(path.c_str(), &values);
            model.mention(path);
            if (!values) return "no variable for " + path;
        } else if (op == 7) {
            const uint32_t enabled = argument & 15, explicit_ = (argument >> 2) & 15;
            const int16_t detail = static_cast<int16_t>(static_cast<int>(argument % 16) - 3);
            TraceValuesT in = {0, enabled, explicit_, detail, 0, 0, 0};
            controller.setVariable(path.c_str(), &in);
            model.mention(path);
            ModelC::VarT& v = model.vars[name];
            v.enabled = enabled;
            v.explicit_ = explicit_;
            v.detail = ModelC::clamped(detail);
            model.compute(name);
        } else if (op == 8) {
            // A line, dispatched as the tracer does; a failing consumer loses its slot.
            consumers[c].fail = (argument & 0x80) != 0;
            dispatch(path.c_str(), controller.findVariable(path.c_str()));
            model.mention(path);
            for (size_t i = 0; i < model.slots.size(); ++i) {
                int owner = model.slots[i].first;
                if (owner < 0 || !(model.vars[name].active & (1u << (i % 32)))) continue;
                model.log.push_back("w" + std::to_string(owner) + " " + path);
                if (consumers[owner].fail) model.slots[i].first = -1;
            }
            consumers[c].fail = false;
        }
        std::string after = "op " + std::to_string(op) + " " + path;
        return real != expected ? after + ": code differs" : compare(after);
    }

    std::string compare(const std::string& after) {
        if (controller.variableCount() != model.vars.size() || realLog != model.log)
            return after + ": tree or log";
        for (const auto& entry : model.vars) {
            // With a neutral prefix: the name may start with a digit.
            TraceControlVarC* real = controller.lookupVariable(("0," + entry.first).c_str());
            const ModelC::VarT& v = entry.second;
            std::vector<std::string> children;
            for (uint32_t i = 0; real && i < real->childCount(); ++i)
                children.push_back(real->child(i)->name);
            if (!real || real->active != v.active || real->enabled != v.enabled ||
                real->explicit_ != v.explicit_ || real->detail != v.detail ||
                children != v.children)
                return after + ": variable '" + entry.first + "' differs";
        }
        return "";
    }

    TraceControllerC controller;
    ModelC model;
    LogConsumerC consumers[4];
    std::vector<std::string> realLog;

private:
    std::vector<std::string> order() {
        std::vector<std::string> names;
        controller.walkVariables(
            [](void* n, TraceControlVarC* v) {
                static_cast<decltype(names)*>(n)->push_back(v->name);
            },
            &names);
        return names;
    }
    void dispatch(const char* path, TraceControlVarC* variable) {
        for (uint32_t i = 0; variable && i < controller.TraceConsumerArrayC::size(); ++i) {
            TraceConsumerI* consumer = controller.at(i)->consumer;
            if (!consumer || !(variable->active & (1u << (i % 32)))) continue;
            if (consumer->write(path, 0, "", ArgListC()) != 0) controller.removeConsumer(consumer);
        }
    }
};

}  // namespace tracemodel
}  // namespace keel

#endif
