// Intrusive chains and the list classes.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>
#include <utility>

#include <keel/list.h>
#include "testing/listmodel.h"
#include "testing/modelrun.h"
#include "testing/printcapture.h"

namespace keel {
namespace {

using namespace std::string_literals;

using listmodel::NodeT;
using testing_print::captured;
using testing_print::pointerText;

uintptr_t mark(const void* owner) { return reinterpret_cast<uintptr_t>(owner) | 1; }

// A chain over a bare head word, with its nodes named by their letter ('a'
// is n[0]).
struct ChainT {
    explicit ChainT(const void* owner, const char* names = "") {
        chainInit(&head, owner);
        for (; *names; ++names) chainAppend(&head, &n[*names - 'a']);
    }
    // The names of the chain from `word` on, and the word that ends it.
    std::pair<std::string, uintptr_t> walk(uintptr_t word) const {
        std::string names;
        for (; word != 0 && !(word & 1); word = *chainElement(word)->nextLink())
            names += static_cast<char>('a' + (static_cast<NodeT*>(chainElement(word)) - n));
        return {names, word};
    }
    uintptr_t head;
    NodeT n[4];
};

TEST(ChainTest, SpliceExchangesEndMarks) {
    int targetOwner = 0, sourceOwner = 0;
    ChainT target(&targetOwner, "ab"), source(&sourceOwner);
    chainAppend(&source.head, &target.n[2]);
    chainAppend(&source.head, &target.n[3]);
    chainSplice(&target.head, &source.head);
    EXPECT_EQ(std::make_pair("abcd"s, mark(&sourceOwner)), target.walk(target.head));
    EXPECT_EQ(mark(&targetOwner), source.head);
    EXPECT_EQ(&sourceOwner, chainOwner(&target.n[0]));
    // Splicing an empty source only swaps the marks.
    chainSplice(&target.head, &source.head);
    EXPECT_EQ(std::make_pair("abcd"s, mark(&targetOwner)), target.walk(target.head));
    EXPECT_EQ(mark(&sourceOwner), source.head);
    // Into an empty target: the target takes the whole chain.
    ChainT empty(nullptr);
    chainSplice(&empty.head, &target.head);
    EXPECT_EQ(std::make_pair("abcd"s, mark(&targetOwner)), target.walk(empty.head));
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
    // A list answers its old owner: the list itself when it had none.
    ListSingleUncountedC u;
    EXPECT_EQ(&u, u.setOwner(&second, nullptr));
    EXPECT_EQ(&second, u.getOwner());
}

// The last element's word holds the end mark but shows as a null pointer;
// printList shows each element as its own print does. A list does not
// remove the first element of another list: it has no predecessor to relink.
TEST(ChainTest, PrintFormsAndAForeignElement) {
    ChainT chain(nullptr, "ab"), empty(nullptr);
    NodeT *a = &chain.n[0], *b = &chain.n[1];
    EXPECT_EQ("list@" + pointerText(&chain.head) + ": " + pointerText(a) + "(n " + pointerText(b) +
                  ") " + pointerText(b) + "(n " + pointerText(nullptr) + ")\n",
              captured([&](FILE* s) { printList(&chain.head, s); }));
    EXPECT_EQ("list@" + pointerText(&empty.head) + ":\n",
              captured([&](FILE* s) { printList(&empty.head, s); }));
    ListDoubleC list;
    NodeT x, y;
    x.hasBack = y.hasBack = true;
    list.append(&x);
    list.append(&y);
    EXPECT_EQ(pointerText(&y) + "(n " + pointerText(nullptr) + ", p " + pointerText(&x) + ")",
              captured([&](FILE* s) { y.print(s); }));
    ListDoubleC other;
    NodeT foreign;
    foreign.hasBack = true;
    other.append(&foreign);
    EXPECT_FALSE(list.remove(&foreign));
    EXPECT_EQ(std::make_pair(2u, mark(&other)), std::make_pair(list.size(), foreign.next));
}

// Random sequences on the three lists against plain models; the stale tail
// of the single list, insertBefore a node outside the list and the removal of
// nodes outside it are among the steps.
TEST(ListTest, RandomOperationsAgainstAModel) {
    EXPECT_EQ("", testkit::runSeeded<listmodel::DriverC>(20, 300));
}

}  // namespace
}  // namespace keel
