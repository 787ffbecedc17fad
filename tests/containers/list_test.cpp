// Intrusive chains and the list classes.
#include <gtest/gtest.h>

#include <stdio.h>
#include <string.h>

#include <string>

#include <keel/list.h>
#include "testing/listmodel.h"
#include "testing/modelrun.h"
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

// Random sequences on the three lists against plain models; the stale tail
// of the single list, insertBefore a node outside the list and the removal of
// nodes outside it are among the steps.
TEST(ListTest, RandomOperationsAgainstAModel) {
    EXPECT_EQ("", testkit::runSeeded<listmodel::DriverC>(20, 300));
}

TEST(ListTest, OwnersAndAForeignElement) {
    int owner = 0;
    ListSingleUncountedC u;
    EXPECT_EQ(&u, u.setOwner(&owner, nullptr));
    EXPECT_EQ(&owner, u.getOwner());
    // The first element of another list has no predecessor to relink.
    ListDoubleC list, other;
    DoubleNode mine, foreign;
    list.append(&mine);
    other.append(&foreign);
    EXPECT_FALSE(list.remove(&foreign));
    EXPECT_EQ(1u, list.size());
    EXPECT_EQ(mark(&other), foreign.next);
}

}  // namespace
}  // namespace keel
