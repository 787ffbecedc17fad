// Intrusive chains and the list classes.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <vector>

#include "containers/list.h"
#include "containers/printcapture.h"

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

// The elements of a chain from its head word, in order.
std::vector<ListElemI*> walk(uintptr_t head) {
    std::vector<ListElemI*> out;
    while (head != 0 && !(head & 1)) {
        ListElemI* e = reinterpret_cast<ListElemI*>(head);
        out.push_back(e);
        head = *e->nextLink();
    }
    return out;
}

uintptr_t endOf(uintptr_t head) {
    while (head != 0 && !(head & 1)) head = *reinterpret_cast<ListElemI*>(head)->nextLink();
    return head;
}

using testing_print::captured;
using testing_print::pointerText;

TEST(ChainTest, InitAppendPrependAndOwner) {
    uintptr_t head;
    chainInit(&head, nullptr);
    EXPECT_EQ(head, mark(&head));
    EXPECT_EQ(chainOwnerOfHead(&head), &head);

    int ownerObject = 0;
    chainInit(&head, &ownerObject);
    EXPECT_EQ(chainOwnerOfHead(&head), &ownerObject);

    SingleNode a, b, c;
    EXPECT_EQ(chainAppend(&head, &a), &a.next);
    EXPECT_EQ(chainAppend(&head, &b), &b.next);
    EXPECT_EQ(chainPrepend(&head, &c), &c.next);
    EXPECT_EQ(walk(head), (std::vector<ListElemI*>{&c, &a, &b}));
    EXPECT_EQ(b.next, mark(&ownerObject));
    // The owner is found from any element, without a back pointer.
    EXPECT_EQ(chainOwner(&a), &ownerObject);
    EXPECT_EQ(chainOwner(&b), &ownerObject);
    EXPECT_EQ(chainOwnerOfHead(&head), &ownerObject);
}

TEST(ChainTest, InsertAfterNullAppends) {
    uintptr_t head;
    chainInit(&head, nullptr);
    SingleNode a, b, c, d;
    chainAppend(&head, &a);
    chainAppend(&head, &b);
    EXPECT_EQ(chainInsertAfter(&head, &c, nullptr), &c.next);
    EXPECT_EQ(walk(head), (std::vector<ListElemI*>{&a, &b, &c}));
    chainInsertAfter(&head, &d, &a);
    EXPECT_EQ(walk(head), (std::vector<ListElemI*>{&a, &d, &b, &c}));
    EXPECT_EQ(c.next, mark(&head));
}

TEST(ChainTest, UnlinkAnswers) {
    uintptr_t one, two;
    chainInit(&one, nullptr);
    chainInit(&two, nullptr);
    SingleNode a, b, c, loose;
    EXPECT_FALSE(chainUnlink(&one, &loose));  // chain word 0
    chainAppend(&one, &a);
    chainAppend(&one, &b);
    chainAppend(&two, &c);

    // An element of another list: false, and neither list changes.
    EXPECT_FALSE(chainUnlink(&one, &c));
    EXPECT_EQ(walk(one), (std::vector<ListElemI*>{&a, &b}));
    EXPECT_EQ(walk(two), (std::vector<ListElemI*>{&c}));
    EXPECT_EQ(c.next, mark(&two));

    // Unlinking the last element hands the end mark to its predecessor.
    EXPECT_TRUE(chainUnlink(&one, &b));
    EXPECT_EQ(b.next, 0u);
    EXPECT_EQ(a.next, mark(&one));
    EXPECT_FALSE(chainUnlink(&one, &b));

    // A second head on the same chain reaches the same elements.
    uintptr_t alias = one;
    EXPECT_TRUE(chainUnlink(&alias, &a));
    EXPECT_EQ(alias, mark(&one));

    // An empty list finds nothing, even for a linked element.
    uintptr_t empty;
    chainInit(&empty, nullptr);
    EXPECT_FALSE(chainUnlink(&empty, &c));
}

TEST(ChainTest, ClearUnlinksWithoutDestroying) {
    uintptr_t head;
    chainInit(&head, nullptr);
    SingleNode nodes[4];
    for (auto& n : nodes) chainAppend(&head, &n);
    chainClear(&head);
    EXPECT_EQ(head, mark(&head));
    for (auto& n : nodes) EXPECT_EQ(n.next, 0u);
}

TEST(ChainTest, SpliceExchangesEndMarks) {
    uintptr_t target, source;
    int targetOwner = 0, sourceOwner = 0;
    chainInit(&target, &targetOwner);
    chainInit(&source, &sourceOwner);
    SingleNode a, b, c, d;
    chainAppend(&target, &a);
    chainAppend(&target, &b);
    chainAppend(&source, &c);
    chainAppend(&source, &d);

    chainSplice(&target, &source);
    EXPECT_EQ(walk(target), (std::vector<ListElemI*>{&a, &b, &c, &d}));
    EXPECT_EQ(endOf(target), mark(&sourceOwner));
    EXPECT_EQ(source, mark(&targetOwner));
    EXPECT_EQ(chainOwner(&a), &sourceOwner);

    // Splicing an empty source only swaps the marks.
    chainSplice(&target, &source);
    EXPECT_EQ(walk(target).size(), 4u);
    EXPECT_EQ(endOf(target), mark(&targetOwner));
    EXPECT_EQ(source, mark(&sourceOwner));

    // Into an empty target: the target takes the whole chain.
    uintptr_t empty;
    chainInit(&empty, nullptr);
    chainSplice(&empty, &target);
    EXPECT_EQ(walk(empty), (std::vector<ListElemI*>{&a, &b, &c, &d}));
    EXPECT_EQ(target, mark(&empty));
}

TEST(ChainTest, SetOwnerFromHeadFromElementAndOnABrokenChain) {
    uintptr_t head;
    int first = 0, second = 0, third = 0;
    chainInit(&head, &first);
    EXPECT_EQ(chainSetOwner(&head, &second, nullptr), &first);
    EXPECT_EQ(head, mark(&second));

    SingleNode a, b;
    chainAppend(&head, &a);
    chainAppend(&head, &b);
    EXPECT_EQ(chainSetOwner(&head, &third, &a), &second);
    EXPECT_EQ(chainOwner(&a), &third);

    // A chain cut short by a 0 word: the 0 counts as the end.
    b.next = 0;
    EXPECT_EQ(chainSetOwner(&head, &first, nullptr), nullptr);
    EXPECT_EQ(b.next, mark(&first));
}

TEST(ChainTest, PrintForms) {
    uintptr_t head;
    chainInit(&head, nullptr);
    SingleNode a, b;
    chainAppend(&head, &a);
    chainAppend(&head, &b);
    // The last element's word holds the end mark but shows as a null pointer.
    EXPECT_EQ(captured([&](FILE* s) { b.print(s); }),
              pointerText(&b) + "(n " + pointerText(nullptr) + ")");
    EXPECT_EQ(captured([&](FILE* s) { a.print(s); }),
              pointerText(&a) + "(n " + pointerText(&b) + ")");

    ListDoubleC list;
    DoubleNode x, y;
    list.append(&x);
    list.append(&y);
    EXPECT_EQ(captured([&](FILE* s) { y.print(s); }),
              pointerText(&y) + "(n " + pointerText(nullptr) + ", p " + pointerText(&x) + ")");

    EXPECT_EQ(captured([&](FILE* s) { printList(&head, s); }),
              "list@" + pointerText(&head) + ": " + pointerText(&a) + "(n " + pointerText(&b) + ") " +
                  pointerText(&b) + "(n " + pointerText(nullptr) + ")\n");
    uintptr_t empty;
    chainInit(&empty, nullptr);
    EXPECT_EQ(captured([&](FILE* s) { printList(&empty, s); }), "list@" + pointerText(&empty) + ":\n");
}

TEST(ListTest, EmptyListsAndOwners) {
    int owner = 0;
    ListSingleUncountedC u;
    ListSingleC s(&owner);
    ListDoubleC d;
    for (ListI* list : std::vector<ListI*>{&u, &s, &d}) {
        SingleNode n;
        EXPECT_EQ(list->size(), 0u);
        EXPECT_FALSE(list->contains(&n));
    }
    EXPECT_EQ(u.elementAt(0), nullptr);
    EXPECT_EQ(u.getOwner(), &u);
    EXPECT_EQ(s.getOwner(), &owner);
    EXPECT_EQ(d.getOwner(), &d);
    EXPECT_EQ(s.tail, nullptr);
    EXPECT_EQ(s.count, 0u);
    EXPECT_EQ(u.setOwner(&owner, nullptr), &u);
    EXPECT_EQ(u.getOwner(), &owner);
}

TEST(ListTest, UncountedWalks) {
    ListSingleUncountedC list;
    SingleNode a, b, c;
    list.append(&a);
    list.prepend(&b);
    list.insertAfter(&c, &b);
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list.elementAt(0), &b);
    EXPECT_EQ(list.elementAt(1), &c);
    EXPECT_EQ(list.elementAt(2), &a);
    EXPECT_EQ(list.elementAt(3), nullptr);
    EXPECT_TRUE(list.contains(&c));
    EXPECT_TRUE(list.remove(&c));
    EXPECT_FALSE(list.contains(&c));
    EXPECT_FALSE(list.remove(&c));
    list.clear();
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(a.next, 0u);
    EXPECT_EQ(b.next, 0u);
}

TEST(ListTest, SingleKeepsCountAndTheStaleTail) {
    ListSingleC list;
    SingleNode a, b, c, d;
    list.prepend(&a);  // prepend into an empty list sets the tail
    EXPECT_EQ(list.tail, &a);
    list.append(&b);
    EXPECT_EQ(list.tail, &b);
    EXPECT_EQ(list.count, 2u);

    // remove does not touch the tail: it still names b afterwards.
    EXPECT_TRUE(list.remove(&b));
    EXPECT_EQ(list.count, 1u);
    EXPECT_EQ(list.tail, &b);
    EXPECT_FALSE(list.remove(&b));
    EXPECT_EQ(list.count, 1u);

    // append walks, so the stale tail does no harm there.
    list.append(&c);
    EXPECT_EQ(walk(list.head), (std::vector<ListElemI*>{&a, &c}));
    EXPECT_EQ(list.tail, &c);

    // insertAfter the tail moves it; after another element it stays.
    list.insertAfter(&d, &a);
    EXPECT_EQ(list.tail, &c);
    EXPECT_EQ(walk(list.head), (std::vector<ListElemI*>{&a, &d, &c}));
    EXPECT_EQ(list.size(), 3u);
    list.clear();
    EXPECT_EQ(list.size(), 0u);
    EXPECT_EQ(list.getOwner(), &list);

    // insertAfter with null is the virtual append.
    list.insertAfter(&a, nullptr);
    EXPECT_EQ(list.tail, &a);
    EXPECT_EQ(list.count, 1u);
}

TEST(ListTest, SingleInsertAfterAStaleTailMovesTheTail) {
    ListSingleC list;
    SingleNode a, b, c;
    list.append(&a);
    list.append(&b);
    list.remove(&b);          // tail still &b
    b.next = 0;
    list.append(&b);          // b is back at the end, tail &b
    list.remove(&a);
    EXPECT_EQ(list.tail, &b);
    list.insertAfter(&c, &b);
    EXPECT_EQ(list.tail, &c);
    EXPECT_EQ(walk(list.head), (std::vector<ListElemI*>{&b, &c}));
}

// Checks every link of a double list both ways.
void expectDouble(ListDoubleC& list, const std::vector<DoubleNode*>& order) {
    std::vector<ListElemI*> expected(order.begin(), order.end());
    EXPECT_EQ(walk(list.head), expected);
    EXPECT_EQ(list.count, order.size());
    EXPECT_EQ(list.tail, order.empty() ? nullptr : order.back());
    for (size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(list.previous(order[i]), i == 0 ? nullptr : order[i - 1]) << i;
    }
    if (order.empty()) {
        EXPECT_EQ(list.head, mark(&list));
    } else {
        EXPECT_EQ(order.back()->next, mark(&list));
    }
}

TEST(ListTest, DoubleEdges) {
    ListDoubleC list;
    DoubleNode a, b, c, d, e;

    // One element: remove leaves the end mark in head and a null tail.
    list.append(&a);
    expectDouble(list, {&a});
    EXPECT_TRUE(list.remove(&a));
    expectDouble(list, {});
    EXPECT_EQ(a.next, 0u);
    EXPECT_EQ(a.prev, nullptr);
    EXPECT_FALSE(list.remove(&a));

    list.prepend(&b);  // into the empty list: tail too
    expectDouble(list, {&b});
    list.prepend(&a);
    expectDouble(list, {&a, &b});
    list.append(&d);
    expectDouble(list, {&a, &b, &d});
    list.insertAfter(&c, &b);  // middle
    expectDouble(list, {&a, &b, &c, &d});
    list.insertAfter(&e, &d);  // behind the last
    expectDouble(list, {&a, &b, &c, &d, &e});

    EXPECT_TRUE(list.remove(&a));  // first
    expectDouble(list, {&b, &c, &d, &e});
    EXPECT_TRUE(list.remove(&e));  // last
    expectDouble(list, {&b, &c, &d});
    EXPECT_TRUE(list.remove(&c));  // middle
    expectDouble(list, {&b, &d});

    list.insertBefore(&a, &b);  // in front of the first
    expectDouble(list, {&a, &b, &d});
    list.insertBefore(&c, &d);  // in front of the last
    expectDouble(list, {&a, &b, &c, &d});
    list.insertBefore(&e, nullptr);  // the virtual prepend
    expectDouble(list, {&e, &a, &b, &c, &d});
}

TEST(ListTest, DoubleInsertAfterNullAppendsAndClearEmpties) {
    ListDoubleC list;
    DoubleNode a, b, c;
    list.insertAfter(&a, nullptr);
    list.insertAfter(&b, nullptr);
    list.insertBefore(&c, &b);
    expectDouble(list, {&a, &c, &b});
    EXPECT_EQ(list.elementAt(1), &c);
    list.clear();
    expectDouble(list, {});
    EXPECT_EQ(c.next, 0u);
    EXPECT_EQ(c.prev, nullptr);
}

TEST(ListTest, DoubleRefusesAForeignFirstElement) {
    ListDoubleC one, two;
    DoubleNode a, b;
    one.append(&a);
    two.append(&b);
    // b is the first of another list: it has no predecessor to relink.
    EXPECT_FALSE(one.remove(&b));
    expectDouble(one, {&a});
    expectDouble(two, {&b});
}

}  // namespace
}  // namespace keel
