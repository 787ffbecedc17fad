// A reference model for hash tables: random sequences of insertions,
// replacements, removals and iterations, each step checked against a plain
// list of what the table should hold and against the table's own check().
//
// A Traits class says how to make elements and keys:
//   typedef ... Table;  typedef ... Elem;  typedef ... Key;
//   static Table* makeTable();
//   static Elem* make(uint32_t keyIndex, uint32_t seq, std::mt19937& rng);
//   static Key key(uint32_t keyIndex, std::mt19937& rng);   // any spelling
//   static std::string norm(uint32_t keyIndex);             // equal keys, equal norm
//   static uint32_t seq(Elem* element);
#ifndef KEEL_TESTS_TESTING_HASHMODEL_H
#define KEEL_TESTS_TESTING_HASHMODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <keel/hashtbl.h>

namespace keel {
namespace testing_model {

template <typename Traits>
class HashModelRunner {
public:
    typedef typename Traits::Elem Elem;

    HashModelRunner(uint32_t seed, uint32_t keySpace) : table(Traits::makeTable()), rng(seed), keySpace(keySpace) {}

    // Runs `steps` random operations, each checked against the model (empty
    // list counts included, by check()); stops at the first failed expectation.
    void run(int steps) {
        for (int step = 0; step < steps && !::testing::Test::HasFailure(); ++step) {
            uint32_t choice = pick(100);
            SCOPED_TRACE(::testing::Message() << "step " << step << ", operation " << choice);
            operate(choice, pick(keySpace));
            verify();
        }
    }

private:
    struct Entry {
        std::string norm;
        uint32_t seq;
        Elem* element;
    };

    std::unique_ptr<typename Traits::Table> table;
    std::vector<Entry> model;  // in order of insertion
    std::mt19937 rng;
    uint32_t keySpace, nextSeq = 1, expectedLists = 1;

    uint32_t pick(size_t n) { return std::uniform_int_distribution<uint32_t>(0, static_cast<uint32_t>(n) - 1)(rng); }

    // The model entries with this key, newest first.
    std::vector<int> equalKeys(const std::string& norm) const {
        std::vector<int> found;
        for (int i = static_cast<int>(model.size()) - 1; i >= 0; --i) {
            if (model[i].norm == norm) found.push_back(i);
        }
        return found;
    }
    int indexOf(HashElemI* element) const {
        auto found = std::find_if(model.begin(), model.end(), [&](const Entry& e) { return e.element == element; });
        return found == model.end() ? -1 : static_cast<int>(found - model.begin());
    }
    void add(uint32_t keyIndex, Elem* element) {
        model.push_back(Entry{Traits::norm(keyIndex), nextSeq++, element});
        // The list count follows the load rule and never goes down.
        while (static_cast<double>(model.size()) / expectedLists > 0.9) ++expectedLists;
    }
    void forget(int i, bool destroy) {
        if (destroy) model[i].element->destroy();
        model.erase(model.begin() + i);
    }

    void operate(uint32_t choice, uint32_t keyIndex) {
        typename Traits::Key key = Traits::key(keyIndex, rng);
        std::vector<int> equal = equalKeys(Traits::norm(keyIndex));
        int newest = equal.empty() ? -1 : equal[0];
        HashElemI* expected = equal.empty() ? nullptr : model[newest].element;
        if (choice < 30) {
            Elem* element = Traits::make(keyIndex, nextSeq, rng);
            table->insert(element);
            add(keyIndex, element);
        } else if (choice < 42) {  // the newest equal key goes, unlinked but not destroyed
            Elem* element = Traits::make(keyIndex, nextSeq, rng);
            EXPECT_EQ(expected, table->replace(element));
            if (expected) {
                EXPECT_EQ(0u, *expected->nextLink());
                forget(newest, true);
            }
            add(keyIndex, element);
        } else if (choice < 52) {
            EXPECT_EQ(expected != nullptr, table->erase(&key));
            if (expected) forget(newest, false);
        } else if (choice < 62) {
            if (model.empty()) return;
            int i = static_cast<int>(pick(model.size()));
            uint32_t generation = table->currentGeneration();
            EXPECT_TRUE(table->detach(model[i].element));
            EXPECT_EQ(generation + 1, table->currentGeneration());
            EXPECT_FALSE(table->detach(model[i].element));
            forget(i, true);
        } else if (choice < 67) {
            EXPECT_EQ(expected, table->detachKey(&key));
            if (expected) forget(newest, true);
        } else if (choice < 79) {
            iterate(choice < 73);
        } else if (choice < 86) {
            sweepWithRemovals();
        } else if (choice < 90) {  // neither changes the list count
            uint32_t lists = table->listCount();
            if (choice < 88) {
                table->eraseAll();
            } else {
                table->detachAll();  // unlinked, not destroyed
                for (const Entry& entry : model) {
                    EXPECT_EQ(0u, *entry.element->nextLink());
                    entry.element->destroy();
                }
            }
            model.clear();
            EXPECT_EQ(lists, table->listCount());
            EXPECT_EQ(lists, table->emptyLists());
        } else {  // find and findNext give the equal keys newest first
            std::vector<HashElemI*> want, got;
            for (int i : equal) want.push_back(model[i].element);
            for (HashElemI* e = table->find(&key); e; e = table->findNext(e, &key)) got.push_back(e);
            EXPECT_EQ(want, got);
            if (!want.empty()) {
                EXPECT_EQ(want.size() > 1 ? want[1] : nullptr, table->findNext(nullptr, &key));
            }
        }
    }

    // Without allElements only the newest of equal keys shows.
    void iterate(bool all) {
        HashIteratorC it(table.get(), all);
        std::multiset<uint32_t> seen, expected;
        uint32_t status = 1;
        while (HashElemI* e = it.next(status)) seen.insert(Traits::seq(static_cast<Elem*>(e)));
        EXPECT_EQ(nullptr, it.next(status));  // past the end it stays at the end
        EXPECT_EQ(0u, status);
        std::map<std::string, uint32_t> newestByKey;
        for (const Entry& entry : model) newestByKey[entry.norm] = entry.seq;
        for (const Entry& entry : model) {
            if (all || newestByKey[entry.norm] == entry.seq) expected.insert(entry.seq);
        }
        EXPECT_EQ(expected, seen);
    }

    // Walks with current(), removing about a third of the elements (or all).
    void sweepWithRemovals() {
        HashIteratorC it(table.get(), true);
        uint32_t status = 1;
        bool removeAll = pick(4) == 0;
        while (HashElemI* e = it.current(status)) {
            EXPECT_EQ(0u, status);
            int i = indexOf(e);
            ASSERT_GE(i, 0);
            if (removeAll || pick(3) == 0) {
                EXPECT_EQ(e, it.removeCurrent(status));
                EXPECT_EQ(0u, status);
                EXPECT_EQ(0u, *e->nextLink());
                forget(i, true);
            } else {
                it.next(status);
            }
        }
        EXPECT_EQ(0u, status);
        EXPECT_TRUE(!removeAll || table->size == 0);
    }

    void verify() {
        EXPECT_EQ(model.size(), table->size);
        EXPECT_EQ(expectedLists, table->listCount());
        EXPECT_TRUE(table->check());
        // Each list holds its elements newest first (insertion puts them at
        // the head and splitting keeps their order) and ends in the table's mark.
        std::map<HashElemI*, uint32_t> seqOf;
        for (const Entry& entry : model) seqOf[entry.element] = entry.seq;
        const uintptr_t end = reinterpret_cast<uintptr_t>(static_cast<HashTableC*>(table.get())) | 1;
        size_t total = 0;
        for (uint32_t i = 0; i < table->listCount(); ++i) {
            uintptr_t word = *table->listHead(i);
            for (uint32_t previous = UINT32_MAX; !(word & 1); ++total) {
                HashElemI* e = static_cast<HashElemI*>(reinterpret_cast<ListElemI*>(word));
                auto found = seqOf.find(e);
                ASSERT_NE(seqOf.end(), found) << "list " << i;
                EXPECT_LT(found->second, previous) << "list " << i;
                previous = found->second;
                word = *e->nextLink();
            }
            EXPECT_EQ(end, word);
        }
        EXPECT_EQ(model.size(), total);
        // A lookup gives the newest equal key, and an element finds its table
        // through its chain.
        uint32_t keyIndex = pick(keySpace);
        typename Traits::Key key = Traits::key(keyIndex, rng);
        std::vector<int> equal = equalKeys(Traits::norm(keyIndex));
        EXPECT_EQ(equal.empty() ? nullptr : model[equal[0]].element, table->find(&key));
        if (!model.empty()) {
            EXPECT_EQ(table.get(), chainOwner(model[pick(model.size())].element));
        }
    }
};

}  // namespace testing_model
}  // namespace keel

#endif
