// A plain model of the tree of control variables, and a driver that applies
// the same operations to it and to a real TraceControllerC and says where
// they part. Used by the model-based test and by the fuzz target.
//
// The model keeps variables in a std::map by name and computes masks by
// plain recursion over the rules: budgets from the top, one budget array per
// subtree walk, children left alone under a variable whose mask became 0.
// The one thing it takes from the real controller is the order of its hash
// table, in which setConsumerLevel recomputes variables.
//
// An operation is four bytes: what to do, two bytes that make a path, and
// one argument.
#ifndef KEEL_TESTS_TRACING_TRACEMODEL_H
#define KEEL_TESTS_TRACING_TRACEMODEL_H

#include <stdint.h>
#include <stdio.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tracing/tracecim.h"

namespace keel {
namespace tracemodel {

// Records what the controller tells it into a log shared by all consumers.
class LogConsumerC : public TraceConsumerI {
public:
    LogConsumerC() : id(0), fail(false), log(nullptr) {}
    uint32_t write(const char* path, int32_t, const char*, ArgListC) override {
        log->push_back("w" + std::to_string(id) + " " + path);
        return fail ? 1 : 0;
    }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char* path) override {
        log->push_back("c" + std::to_string(id) + " " + path);
        return 0;
    }
    int id;
    bool fail;
    std::vector<std::string>* log;
};

class ModelC {
public:
    struct VarT {
        std::string parent;
        bool hasParent = false;
        std::vector<std::string> children;
        int detail = 1;
        uint32_t enabled = 0, explicit_ = 0, active = 0;
    };
    struct SlotT {
        int consumer;  // -1 when free
        int level;
    };

    static size_t prefixLength(const std::string& path) {
        if (path.empty() || path[0] < '0' || path[0] > '9') return 0;
        return path.size() > 1 && path[1] == ',' ? 2 : 1;
    }
    static int digit(const std::string& path) { return prefixLength(path) ? path[0] - '0' : -1; }
    static std::string nameOf(const std::string& path) { return path.substr(prefixLength(path)); }

    int slotOf(int consumer) const {
        for (size_t i = 0; i < slots.size(); ++i) {
            if (slots[i].consumer == consumer) return static_cast<int>(i);
        }
        return -1;
    }

    void mention(const std::string& path) {
        std::string name = nameOf(path);
        auto found = vars.find(name);
        if (found != vars.end()) {
            if (digit(path) >= 0) found->second.detail = digit(path);
            return;
        }
        VarT variable;
        size_t cut = path.rfind('/');
        if (cut != std::string::npos && cut >= prefixLength(path)) {
            std::string parentPath = path.substr(0, cut);
            if (!vars.count(nameOf(parentPath))) mention(parentPath);
            variable.parent = nameOf(parentPath);
            variable.hasParent = true;
            vars[variable.parent].children.push_back(name);
        }
        variable.detail = digit(path) >= 0 ? digit(path) : 1;
        vars[name] = variable;
        compute(name);
        for (const SlotT& slot : slots) {
            if (slot.consumer >= 0) log.push_back("c" + std::to_string(slot.consumer) + " " + path);
        }
    }

    void compute(const std::string& name) {
        int levels[32] = {0};
        std::vector<std::string> line;
        for (std::string at = name;;) {
            line.push_back(at);
            if (!vars[at].hasParent) break;
            at = vars[at].parent;
        }
        size_t inUse = slots.size() < 32 ? slots.size() : 32;
        for (size_t k = line.size(); k-- > 0;) {
            const VarT& v = vars[line[k]];
            for (size_t i = 0; i < inUse; ++i) {
                if (slots[i].consumer < 0) continue;
                if (v.explicit_ & (1u << i)) levels[i] = slots[i].level;
                if (k != 0) levels[i] -= v.detail;
            }
        }
        computeFrom(name, levels);
    }

    void computeFrom(const std::string& name, int* levels) {
        VarT& v = vars[name];
        v.active = v.enabled & v.explicit_;
        uint32_t reach = 0;
        size_t inUse = slots.size() < 32 ? slots.size() : 32;
        for (size_t i = 0; i < inUse; ++i) {
            if (slots[i].consumer < 0) continue;
            levels[i] = ((v.explicit_ & (1u << i)) ? slots[i].level : levels[i]) - v.detail;
            if (levels[i] >= 0) reach |= 1u << i;
        }
        if (v.hasParent) v.active |= reach & ~v.explicit_ & vars[v.parent].active;
        if (v.active == 0) return;
        std::vector<std::string> children = v.children;
        for (const std::string& child : children) computeFrom(child, levels);
    }

    uint32_t setLevel(int consumer, int level, const std::vector<std::string>& tableOrder) {
        int slot = slotOf(consumer);
        if (slot < 0) return kTraceNoConsumer;
        slots[slot].level = level < 0 ? 0 : level > 9 ? 9 : level;
        for (const std::string& name : tableOrder) {
            if (!vars[name].hasParent || (vars[name].explicit_ & (1u << slot))) compute(name);
        }
        return 0;
    }

    uint32_t add(int consumer, int level, const std::vector<std::string>& tableOrder) {
        int slot = slotOf(-1);
        if (slot >= 0) {
            slots[slot] = SlotT{consumer, 9};
            for (auto& entry : vars) {
                entry.second.enabled &= ~(1u << slot);
                entry.second.active &= ~(1u << slot);
            }
        } else {
            slots.push_back(SlotT{consumer, 9});
        }
        return setLevel(consumer, level, tableOrder);
    }

    uint32_t setPath(int consumer, const std::string& path, bool setting, bool on) {
        int slot = slotOf(consumer);
        if (slot < 0) return kTraceNoConsumer;
        mention(path);
        VarT& v = vars[nameOf(path)];
        uint32_t bit = 1u << slot;
        v.explicit_ = setting ? v.explicit_ | bit : v.explicit_ & ~bit;
        v.enabled = on ? v.enabled | bit : v.enabled & ~bit;
        compute(nameOf(path));
        return 0;
    }

    std::map<std::string, VarT> vars;
    std::vector<SlotT> slots;
    std::vector<std::string> log;
};

class DriverC {
public:
    enum { consumerCount = 4 };

    DriverC() {
        for (int i = 0; i < consumerCount; ++i) {
            consumers[i].id = i;
            consumers[i].log = &realLog;
        }
    }

    static std::string makePath(uint8_t shape, uint8_t parts) {
        static const char* const prefixes[] = {"", "0", "3,", "9"};
        static const char* const components[] = {"A", "B", "7", ""};
        std::string path = prefixes[(shape >> 2) & 3];
        int depth = 1 + (shape & 3);
        for (int k = 0; k < depth; ++k) {
            if (k) path += '/';
            path += components[(parts >> (2 * k)) & 3];
        }
        return path;
    }

    // Applies one operation to both; answers "" or what differs.
    std::string step(uint8_t op, uint8_t shape, uint8_t parts, uint8_t argument) {
        std::string path = makePath(shape, parts);
        int consumer = argument % consumerCount;
        int level = static_cast<int>(argument % 15) - 2;
        uint32_t realCode = 0, modelCode = 0;
        std::string what;
        switch (op % 9) {
        case 0:
            if (model.slotOf(consumer) >= 0) return "";  // each consumer in at most one slot
            what = "add";
            realCode = controller.addConsumer(&consumers[consumer], 0, level);
            modelCode = model.add(consumer, level, tableOrder());
            break;
        case 1:
            what = "remove";
            realCode = controller.removeConsumer(&consumers[consumer]);
            modelCode = model.slotOf(consumer) < 0 ? kTraceNoConsumer : 0;
            if (modelCode == 0) model.slots[model.slotOf(consumer)].consumer = -1;
            break;
        case 2:
            what = "level";
            realCode = controller.setConsumerLevel(&consumers[consumer], level);
            modelCode = model.setLevel(consumer, level, tableOrder());
            break;
        case 3:
        case 4:
        case 5: {
            static const char* const names[] = {"enable", "disable", "inherit"};
            what = names[op % 9 - 3];
            TraceConsumerI* target = &consumers[consumer];
            realCode = op % 9 == 3 ? controller.enablePath(target, path.c_str())
                       : op % 9 == 4 ? controller.disablePath(target, path.c_str())
                                     : controller.inheritPath(target, path.c_str());
            modelCode = model.setPath(consumer, path, op % 9 != 5, op % 9 == 3);
            break;
        }
        case 6: {
            what = "mention";
            TraceValuesT* values = nullptr;
            realCode = controller.getVariable(path.c_str(), &values);
            model.mention(path);
            if (!values) return "getVariable gave null for " + path;
            break;
        }
        case 7: {
            what = "set";
            TraceValuesT values = TraceValuesT();
            values.enabled = argument & 15;
            values.explicit_ = (argument >> 2) & 15;
            values.detail = static_cast<int16_t>(static_cast<int>(argument % 16) - 3);
            realCode = controller.setVariable(path.c_str(), &values);
            model.mention(path);
            ModelC::VarT& v = model.vars[ModelC::nameOf(path)];
            v.enabled = values.enabled;
            v.explicit_ = values.explicit_;
            v.detail = values.detail < 0 ? 0 : values.detail > 9 ? 9 : values.detail;
            model.compute(ModelC::nameOf(path));
            break;
        }
        default: {
            // A line through a dispatch like the tracer's: consumers in the
            // mask get it, and one that fails loses its slot.
            what = "line";
            consumers[consumer].fail = (argument & 0x80) != 0;
            TraceControlVarC* variable = controller.findVariable(path.c_str());
            model.mention(path);
            dispatch(path.c_str(), variable);
            uint32_t mask = model.vars[ModelC::nameOf(path)].active;
            for (size_t i = 0; i < model.slots.size(); ++i) {
                int c = model.slots[i].consumer;
                if (c < 0 || !(mask & (1u << (i % 32)))) continue;
                model.log.push_back("w" + std::to_string(c) + " " + path);
                if (consumers[c].fail) model.slots[i].consumer = -1;
            }
            consumers[consumer].fail = false;
            break;
        }
        }
        if (realCode != modelCode) return what + " " + path + ": code differs";
        return compare(what + " " + path);
    }

    std::string compare(const std::string& after) {
        if (controller.variableCount() != model.vars.size()) return after + ": variable count differs";
        if (realLog != model.log) return after + ": consumer calls differ";
        for (const auto& entry : model.vars) {
            std::string key = "0," + entry.first;
            TraceControlVarC* real = controller.lookupVariable(key.c_str());
            const ModelC::VarT& v = entry.second;
            if (!real) return after + ": missing " + entry.first;
            if (real->active != v.active || real->enabled != v.enabled || real->explicit_ != v.explicit_ ||
                real->detail != v.detail) {
                char text[160];
                snprintf(text, sizeof text, ": '%s' real %x/%x/%x/%d model %x/%x/%x/%d", entry.first.c_str(),
                         real->active, real->enabled, real->explicit_, real->detail, v.active, v.enabled,
                         v.explicit_, v.detail);
                return after + text;
            }
            uint32_t children = 0;
            controller.getChildCount(key.c_str(), &children);
            if (children != v.children.size()) return after + ": child count of " + entry.first;
            for (uint32_t i = 0; i < children; ++i) {
                const char* name = nullptr;
                controller.getChildName(key.c_str(), static_cast<int32_t>(i), &name);
                if (!name || v.children[i] != name) return after + ": child order of " + entry.first;
            }
        }
        return "";
    }

    TraceControllerC controller;
    ModelC model;
    LogConsumerC consumers[consumerCount];
    std::vector<std::string> realLog;

private:
    std::vector<std::string> tableOrder() {
        std::vector<std::string> order;
        controller.walkVariables(
            [](void* context, TraceControlVarC* variable) {
                static_cast<std::vector<std::string>*>(context)->push_back(variable->name);
            },
            &order);
        return order;
    }

    void dispatch(const char* path, TraceControlVarC* variable) {
        uint32_t mask = variable ? variable->active : 0;
        for (uint32_t i = 0; i < controller.TraceConsumerArrayC::size(); ++i) {
            TraceConsumerI* consumer = controller.at(i)->consumer;
            if (!consumer || !(mask & (1u << (i % 32)))) continue;
            if (consumer->write(path, 0, "", ArgListC()) != 0) controller.removeConsumer(consumer);
        }
    }
};

}  // namespace tracemodel
}  // namespace keel

#endif
