// The three list classes driven side by side, each beside a std::vector of
// node numbers: append, prepend, insertAfter (a node or null), insertBefore
// (double list only; a node of the list, one outside it, or null), remove of
// any node (inside or outside the list) and clear. After each step every list
// must hold exactly its model's nodes in order, end in its owner's mark, and
// answer size, contains, elementAt and first as the model does; the double
// list's backward links and tail, and the single list's tail (which remove
// leaves behind, stale, on purpose) must be the model's; nodes outside a list
// are unlinked. Shared by the random-sequence test and the fuzz target.
//
//     keel::listmodel::DriverC driver;
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_LISTMODEL_H
#define KEEL_TESTS_TESTING_LISTMODEL_H

#include <stdint.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

#include <keel/list.h>

namespace keel {
namespace listmodel {

struct NodeT : ListElemI {
    uintptr_t next = 0;
    ListElemI* prev = nullptr;
    bool hasBack = false;
    uintptr_t* nextLink() override { return &next; }
    ListElemI** prevLink() override { return hasBack ? &prev : nullptr; }
};

enum { kNodes = 6 };

// One list and its model. `tail` is the node the single list's tail must
// name (-1: null); the uncounted list has none.
template <typename List>
struct LaneT {
    List list;
    NodeT nodes[kNodes];
    std::vector<int> model;
    int tail = -1;

    explicit LaneT(const void* owner, bool back) : list(owner) {
        for (NodeT& node : nodes) node.hasBack = back;
    }
    bool holds(int node) const {
        return std::find(model.begin(), model.end(), node) != model.end();
    }
    int indexOf(const ListElemI* element) const {
        return element ? static_cast<int>(static_cast<const NodeT*>(element) - nodes) : -1;
    }
};

class DriverC {
public:
    int owner = 0;
    LaneT<ListSingleUncountedC> uncounted{nullptr, false};
    LaneT<ListSingleC> single{&owner, false};
    LaneT<ListDoubleC> dbl{nullptr, true};

    std::string step(uint32_t operation, uint32_t argument) {
        uint32_t op = operation % 8;
        std::string broken = apply(uncounted, op, argument);
        if (broken.empty()) broken = apply(single, op, argument);
        if (broken.empty()) broken = apply(dbl, op, argument);
        return broken.empty() ? "" : "operation " + std::to_string(op) + ": " + broken;
    }

private:
    // A node that is not in the list, or -1 when every node is.
    template <typename Lane>
    static int freeNode(const Lane& lane, uint32_t argument) {
        for (uint32_t k = argument; k < argument + kNodes; ++k)
            if (!lane.holds(static_cast<int>(k % kNodes))) return static_cast<int>(k % kNodes);
        return -1;
    }

    template <typename List>
    std::string apply(LaneT<List>& lane, uint32_t op, uint32_t argument) {
        constexpr bool isDouble = std::is_same<List, ListDoubleC>::value;
        int node = freeNode(lane, argument);
        std::vector<int>& model = lane.model;
        if (op < 4 && node < 0) return check(lane);  // every node is in the list
        if (op == 0) {
            lane.list.append(&lane.nodes[node]);
            model.push_back(node);
            lane.tail = node;
        } else if (op == 1) {
            if (model.empty()) lane.tail = node;
            lane.list.prepend(&lane.nodes[node]);
            model.insert(model.begin(), node);
        } else if (op == 2) {  // after a node of the list, or null (which appends)
            int after =
                model.empty() || argument % 5 == 0 ? -1 : model[argument / 5 % model.size()];
            lane.list.insertAfter(&lane.nodes[node], after < 0 ? nullptr : &lane.nodes[after]);
            auto at = after < 0 ? model.end() : std::find(model.begin(), model.end(), after) + 1;
            model.insert(at, node);
            if (after < 0 || after == lane.tail) lane.tail = node;
        } else if (op == 3) {  // before a node of the list, one outside it (no change), or null
            if constexpr (isDouble) {
                int before = static_cast<int>(argument / kNodes % (kNodes + 1)) - 1;
                lane.list.insertBefore(&lane.nodes[node],
                                       before < 0 ? nullptr : &lane.nodes[before]);
                auto at =
                    before < 0 ? model.begin() : std::find(model.begin(), model.end(), before);
                if (before < 0 || at != model.end()) model.insert(at, node);
            }
        } else if (op < 6) {
            int target = static_cast<int>(argument % kNodes);
            bool inside = lane.holds(target);
            if (lane.list.remove(&lane.nodes[target]) != inside) return "remove answered wrong";
            if (inside) model.erase(std::find(model.begin(), model.end(), target));
        } else if (op == 6 && argument % 4 == 0) {
            lane.list.clear();
            model.clear();
        }
        // The double list's tail is its last node, whatever the step.
        if (isDouble) lane.tail = model.empty() ? -1 : model.back();
        return check(lane);
    }

    template <typename List>
    static std::string check(LaneT<List>& lane) {
        const std::vector<int>& model = lane.model;
        uintptr_t word = lane.list.head;
        for (size_t i = 0; i < model.size(); ++i, word = *chainElement(word)->nextLink()) {
            if (word == 0 || chainIsEnd(word) || lane.indexOf(chainElement(word)) != model[i])
                return "order";
            if (lane.indexOf(lane.list.elementAt(static_cast<uint32_t>(i))) != model[i])
                return "elementAt";
            if constexpr (std::is_same<List, ListDoubleC>::value) {
                int before = i == 0 ? -1 : model[i - 1];
                if (lane.indexOf(lane.list.previous(&lane.nodes[model[i]])) != before)
                    return "previous";
            }
        }
        if (word != chainEndMark(lane.list.getOwner())) return "end mark";
        if (lane.list.size() != model.size()) return "size";
        if (lane.list.elementAt(static_cast<uint32_t>(model.size())))
            return "elementAt past the end";
        if (lane.indexOf(lane.list.first()) != (model.empty() ? -1 : model.front())) return "first";
        for (int k = 0; k < kNodes; ++k) {
            NodeT& node = lane.nodes[k];
            bool inside = lane.holds(k);
            if (lane.list.contains(&node) != inside) return "contains";
            if (!inside && (node.next != 0 || node.prev != nullptr))
                return "a node outside is linked";
        }
        if constexpr (std::is_base_of<ListSingleC, List>::value) {
            if (lane.indexOf(lane.list.tail) != lane.tail) return "tail";
        }
        return "";
    }
};

}  // namespace listmodel
}  // namespace keel

#endif
