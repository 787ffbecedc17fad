// Intrusive chains and the list classes.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <string>
#include <type_traits>

#include <keel/list.h>
#include "testing/printcapture.h"

namespace keel {
namespace {

struct SingleNode : ListElemI {
    uintptr_t next = 0;
    uintptr_t* nextLink() override { return &next; }
    ListElemI** prevLink() override { return nullptr; }
};

struct DoubleNode : ListElemI {
    uintptr_t next = 0;
    ListElemI* prev = nullptr;
    uintptr_t* nextLink() override { return &next; }
    ListElemI** prevLink() override { return &prev; }
};

uintptr_t mark(const void* owner) { return reinterpret_cast<uintptr_t>(owner) | 1; }

// The nodes of a chain named by their letter ('a' is nodes[0]), and the word
// that ends it.
template <typename Node>
std::string namesOf(uintptr_t word, Node* nodes, uintptr_t* end = nullptr) {
    std::string names;
    for (; word != 0 && !(word & 1); word = *reinterpret_cast<ListElemI*>(word)->nextLink()) {
        names += static_cast<char>('a' + (static_cast<Node*>(reinterpret_cast<ListElemI*>(word)) - nodes));
    }
    if (end) *end = word;
    return names;
}

// A chain over a bare head word, with its nodes.
struct ChainT {
    explicit ChainT(const void* owner, const char* names = "") {
        chainInit(&head, owner);
        for (; *names; ++names) chainAppend(&head, &n[*names - 'a']);
    }
    std::string names(uintptr_t* end = nullptr) { return namesOf(head, n, end); }
    uintptr_t head;
    SingleNode n[4];
};

using testing_print::captured;
using testing_print::pointerText;

TEST(ChainTest, SpliceExchangesEndMarks) {
    int targetOwner = 0, sourceOwner = 0;
    ChainT target(&targetOwner, "ab"), source(&sourceOwner);
    chainAppend(&source.head, &target.n[2]);
    chainAppend(&source.head, &target.n[3]);
    uintptr_t end;
    chainSplice(&target.head, &source.head);
    EXPECT_EQ("abcd", target.names(&end));
    EXPECT_EQ(mark(&sourceOwner), end);
    EXPECT_EQ(mark(&targetOwner), source.head);
    EXPECT_EQ(&sourceOwner, chainOwner(&target.n[0]));
    // Splicing an empty source only swaps the marks.
    chainSplice(&target.head, &source.head);
    EXPECT_EQ("abcd", target.names(&end));
    EXPECT_EQ(mark(&targetOwner), end);
    EXPECT_EQ(mark(&sourceOwner), source.head);
    // Into an empty target: the target takes the whole chain.
    ChainT empty(nullptr);
    chainSplice(&empty.head, &target.head);
    EXPECT_EQ("abcd", namesOf(empty.head, target.n));
    EXPECT_EQ(mark(&empty.head), target.head);
}

// Setting the owner walks from an element (or the head) to the end and
// answers the old owner; a 0 word cut into the chain counts as the end.
TEST(ChainTest, SetOwnerFromAnElementAndOnABrokenChain) {
    int first = 0, second = 0;
    ChainT chain(&first, "ab");
    EXPECT_EQ(&first, chainSetOwner(&chain.head, &second, &chain.n[0]));
    EXPECT_EQ(&second, chainOwner(&chain.n[0]));
    chain.n[1].next = 0;
    EXPECT_EQ(nullptr, chainSetOwner(&chain.head, &first, nullptr));
    EXPECT_EQ(mark(&first), chain.n[1].next);
}

// The last element's word holds the end mark but shows as a null pointer;
// printList shows each element as its own print does.
TEST(ChainTest, PrintForms) {
    ChainT chain(nullptr, "ab"), empty(nullptr);
    SingleNode *a = &chain.n[0], *b = &chain.n[1];
    EXPECT_EQ("list@" + pointerText(&chain.head) + ": " + pointerText(a) + "(n " + pointerText(b) + ") " +
                  pointerText(b) + "(n " + pointerText(nullptr) + ")\n",
              captured([&](FILE* s) { printList(&chain.head, s); }));
    EXPECT_EQ("list@" + pointerText(&empty.head) + ":\n", captured([&](FILE* s) { printList(&empty.head, s); }));
    ListDoubleC list;
    DoubleNode x, y;
    list.append(&x);
    list.append(&y);
    EXPECT_EQ(pointerText(&y) + "(n " + pointerText(nullptr) + ", p " + pointerText(&x) + ")",
              captured([&](FILE* s) { y.print(s); }));
}

// One step on a list of nodes named 'a' to 'e': 'a' append, 'p' prepend,
// 'i' insertAfter and 'b' insertBefore the node `ref` (0: null), 'r' and 'R'
// remove answering true and false, 'x' clear. Then the list holds `order`.
struct StepT {
    char op, node, ref;
    const char* order;
    char tail;  // 0: a null tail, '?': not looked at
};

void insertBefore(ListSingleUncountedC&, SingleNode*, SingleNode*) { ADD_FAILURE() << "no insertBefore"; }
void insertBefore(ListDoubleC& list, DoubleNode* node, DoubleNode* ref) { list.insertBefore(node, ref); }

template <typename List, typename Node>
void apply(List& list, Node* nodes, const StepT& step) {
    Node* node = &nodes[step.node - 'a'];
    Node* ref = step.ref ? &nodes[step.ref - 'a'] : nullptr;
    switch (step.op) {
        case 'a': list.append(node); break;
        case 'p': list.prepend(node); break;
        case 'i': list.insertAfter(node, ref); break;
        case 'r': EXPECT_TRUE(list.remove(node)); break;
        case 'R': EXPECT_FALSE(list.remove(node)); break;
        case 'x': list.clear(); break;
        default: insertBefore(list, node, ref);
    }
    uintptr_t end;
    EXPECT_EQ(step.order, namesOf(list.head, nodes, &end));
    EXPECT_EQ(mark(list.getOwner()), end);
    EXPECT_EQ(strlen(step.order), list.size());
    if constexpr (std::is_base_of<ListSingleC, List>::value) {
        if (step.tail != '?') {
            EXPECT_EQ(step.tail ? &nodes[step.tail - 'a'] : nullptr, list.tail);
        }
    }
}

TEST(ListTest, OwnersAndTheUncountedWalk) {
    int owner = 0;
    ListSingleUncountedC u;
    ListSingleC s(&owner);
    EXPECT_EQ(&owner, s.getOwner());
    EXPECT_EQ(&u, u.setOwner(&owner, nullptr));
    EXPECT_EQ(&owner, u.getOwner());
    SingleNode n[3];
    const StepT steps[] = {{'a', 'a', 0, "a", 0},     {'p', 'b', 0, "ba", 0}, {'i', 'c', 'b', "bca", 0},
                           {'r', 'c', 0, "ba", 0},    {'R', 'c', 0, "ba", 0}, {'x', 'a', 0, "", 0}};
    for (const StepT& step : steps) {
        apply(u, n, step);
        if (step.op == 'i') {
            EXPECT_EQ(&n[2], u.elementAt(1));
            EXPECT_EQ(nullptr, u.elementAt(3));
        }
    }
    EXPECT_EQ(0u, n[0].next | n[1].next);
}

// remove leaves the tail alone: after removing the last element it still
// names it. append walks, so the stale tail does no harm there, and
// insertAfter the tail (stale or not) moves it.
TEST(ListTest, SingleKeepsCountAndTheStaleTail) {
    const StepT steps[] = {
        {'p', 'a', 0, "a", 'a'},   {'a', 'b', 0, "ab", 'b'},  {'r', 'b', 0, "a", 'b'},   {'R', 'b', 0, "a", 'b'},
        {'a', 'c', 0, "ac", 'c'},  {'i', 'd', 'a', "adc", 'c'}, {'x', 'a', 0, "", '?'},  {'i', 'a', 0, "a", 'a'},
        {'a', 'b', 0, "ab", 'b'},  {'r', 'b', 0, "a", 'b'},   {'a', 'b', 0, "ab", 'b'},  {'r', 'a', 0, "b", 'b'},
        {'i', 'c', 'b', "bc", 'c'},
    };
    ListSingleC list;
    SingleNode n[4];
    for (const StepT& step : steps) {
        SCOPED_TRACE(::testing::Message() << step.op << step.node << " -> " << step.order);
        apply(list, n, step);
    }
    EXPECT_EQ(&list, list.getOwner());
}

TEST(ListTest, DoubleEdges) {
    const StepT steps[] = {
        // One element: remove leaves the end mark in head and a null tail.
        {'a', 'a', 0, "a", 'a'}, {'r', 'a', 0, "", 0}, {'R', 'a', 0, "", 0},
        {'p', 'b', 0, "b", 'b'}, {'p', 'a', 0, "ab", 'b'}, {'a', 'd', 0, "abd", 'd'},
        {'i', 'c', 'b', "abcd", 'd'}, {'i', 'e', 'd', "abcde", 'e'},  // in the middle, behind the last
        {'r', 'a', 0, "bcde", 'e'}, {'r', 'e', 0, "bcd", 'd'}, {'r', 'c', 0, "bd", 'd'},
        {'b', 'a', 'b', "abd", 'd'}, {'b', 'c', 'd', "abcd", 'd'}, {'b', 'e', 0, "eabcd", 'd'},  // 0: prepend
        {'x', 'a', 0, "", 0}, {'i', 'a', 0, "a", 'a'}, {'i', 'b', 0, "ab", 'b'}, {'b', 'c', 'b', "acb", 'b'},
    };
    ListDoubleC list;
    DoubleNode n[5];
    for (const StepT& step : steps) {
        SCOPED_TRACE(::testing::Message() << step.op << step.node << " -> " << step.order);
        apply(list, n, step);
        // The links back, and what is out of the list is unlinked.
        for (size_t i = 0; step.order[i]; ++i) {
            EXPECT_EQ(i == 0 ? nullptr : &n[step.order[i - 1] - 'a'], list.previous(&n[step.order[i] - 'a'])) << i;
        }
        for (DoubleNode& node : n) {
            if (!strchr(step.order, static_cast<int>('a' + (&node - n)))) {
                EXPECT_EQ(0u, node.next);
                EXPECT_EQ(nullptr, node.prev);
            }
        }
    }
    EXPECT_EQ(&n[2], list.elementAt(1));
    // The first element of another list has no predecessor to relink.
    ListDoubleC other;
    DoubleNode foreign;
    other.append(&foreign);
    EXPECT_FALSE(list.remove(&foreign));
    EXPECT_EQ("acb", namesOf(list.head, n));
    EXPECT_EQ(mark(&other), foreign.next);
}

}  // namespace
}  // namespace keel
