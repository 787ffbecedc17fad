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
//   static std::string norm(Elem* element);
//   static uint32_t seq(Elem* element);
#ifndef KEEL_TESTS_CONTAINERS_HASHMODEL_H
#define KEEL_TESTS_CONTAINERS_HASHMODEL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "containers/hashtbl.h"

namespace keel {
namespace testing_model {

template <typename Traits>
class HashModelRunner {
public:
    typedef typename Traits::Table Table;
    typedef typename Traits::Elem Elem;
    typedef typename Traits::Key Key;

    struct Entry {
        std::string norm;
        uint32_t seq;
        Elem* element;
    };

    HashModelRunner(uint32_t seed, uint32_t keySpace) : table(Traits::makeTable()), rng(seed), keySpace(keySpace) {}

    // Runs `steps` random operations; stops at the first failed expectation.
    void run(int steps) {
        for (int step = 0; step < steps; ++step) {
            SCOPED_TRACE(::testing::Message() << "step " << step);
            operate();
            verify();
            if (::testing::Test::HasFailure()) return;
        }
    }

    std::unique_ptr<Table> table;
    std::vector<Entry> model;  // in order of insertion
    std::mt19937 rng;
    uint32_t keySpace;
    uint32_t nextSeq = 1;
    uint32_t expectedLists = 1;
    uint32_t lastOperation = 0;

private:
    uint32_t pick(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng); }

    // The newest model entry with this norm, or -1.
    int newest(const std::string& norm) const {
        for (int i = static_cast<int>(model.size()) - 1; i >= 0; --i) {
            if (model[i].norm == norm) return i;
        }
        return -1;
    }
    int indexOf(HashElemI* element) const {
        for (size_t i = 0; i < model.size(); ++i) {
            if (static_cast<HashElemI*>(model[i].element) == element) return static_cast<int>(i);
        }
        return -1;
    }

    void insertNew(uint32_t keyIndex) {
        Elem* element = Traits::make(keyIndex, nextSeq, rng);
        model.push_back(Entry{Traits::norm(keyIndex), nextSeq, element});
        ++nextSeq;
        table->insert(element);
        noteGrowth();
    }
    // The list count follows the load rule and never goes down.
    void noteGrowth() {
        while (static_cast<double>(model.size()) / expectedLists > 0.9) ++expectedLists;
    }

    void operate() {
        uint32_t choice = pick(100);
        uint32_t keyIndex = pick(keySpace);
        lastOperation = choice;
        if (choice < 30) {
            insertNew(keyIndex);
        } else if (choice < 42) {
            // replace: the newest equal key goes, undestroyed.
            int expected = newest(Traits::norm(keyIndex));
            HashElemI* expectedElement = expected < 0 ? nullptr : model[expected].element;
            Elem* element = Traits::make(keyIndex, nextSeq, rng);
            HashElemI* displaced = table->replace(element);
            EXPECT_EQ(displaced, expectedElement);
            if (expected >= 0) {
                EXPECT_EQ(*displaced->nextLink(), 0u);
                model.erase(model.begin() + expected);
                displaced->destroy();
            }
            model.push_back(Entry{Traits::norm(keyIndex), nextSeq++, element});
            noteGrowth();
        } else if (choice < 52) {
            Key key = Traits::key(keyIndex, rng);
            int expected = newest(Traits::norm(keyIndex));
            EXPECT_EQ(table->erase(&key), expected >= 0);
            if (expected >= 0) model.erase(model.begin() + expected);
        } else if (choice < 62) {
            if (model.empty()) return;
            size_t i = pick(static_cast<uint32_t>(model.size()));
            Elem* element = model[i].element;
            uint32_t generation = table->generation;
            EXPECT_TRUE(table->detach(element));
            EXPECT_EQ(table->generation, generation + 1);
            EXPECT_FALSE(table->detach(element));
            model.erase(model.begin() + i);
            element->destroy();
        } else if (choice < 67) {
            Key key = Traits::key(keyIndex, rng);
            int expected = newest(Traits::norm(keyIndex));
            HashElemI* found = table->detachKey(&key);
            EXPECT_EQ(found, expected < 0 ? nullptr : model[expected].element);
            if (expected >= 0) {
                model.erase(model.begin() + expected);
                found->destroy();
            }
        } else if (choice < 73) {
            iterateAll();
        } else if (choice < 79) {
            iterateVisible();
        } else if (choice < 86) {
            sweepWithRemovals();
        } else if (choice < 88) {
            uint32_t lists = table->listCount();
            table->eraseAll();
            model.clear();
            EXPECT_EQ(table->listCount(), lists);
            EXPECT_EQ(table->empty_lists, lists);
        } else if (choice < 92) {
            foreignChange(keyIndex);
        } else {
            walkEqualKeys(keyIndex);
        }
    }

    void iterateAll() {
        HashIteratorC it(table.get(), true);
        std::multiset<uint32_t> seen;
        uint32_t status = 1;
        while (HashElemI* e = it.next(status)) seen.insert(Traits::seq(static_cast<Elem*>(e)));
        EXPECT_EQ(status, 0u);
        std::multiset<uint32_t> expected;
        for (auto& entry : model) expected.insert(entry.seq);
        EXPECT_EQ(seen, expected);
        // Past the end it stays at the end.
        EXPECT_EQ(it.next(status), nullptr);
        EXPECT_EQ(status, 0u);
    }

    // Without allElements only the newest of equal keys shows.
    void iterateVisible() {
        HashIteratorC it(table.get(), false);
        std::set<uint32_t> seen;
        uint32_t status = 1;
        while (HashElemI* e = it.next(status)) seen.insert(Traits::seq(static_cast<Elem*>(e)));
        EXPECT_EQ(status, 0u);
        std::map<std::string, uint32_t> newestByKey;
        for (auto& entry : model) newestByKey[entry.norm] = entry.seq;
        std::set<uint32_t> expected;
        for (auto& pair : newestByKey) expected.insert(pair.second);
        EXPECT_EQ(seen, expected);
    }

    // Walks with current(), removing about a third of the elements on the way.
    void sweepWithRemovals() {
        HashIteratorC it(table.get(), true);
        std::multiset<uint32_t> seen;
        uint32_t status = 1;
        bool removeAll = pick(4) == 0;
        for (;;) {
            HashElemI* e = it.current(status);
            EXPECT_EQ(status, 0u);
            if (!e) break;
            if (removeAll || pick(3) == 0) {
                HashElemI* removed = it.removeCurrent(status);
                EXPECT_EQ(status, 0u);
                EXPECT_EQ(removed, e);
                int i = indexOf(removed);
                EXPECT_GE(i, 0);
                if (i < 0) return;
                seen.insert(model[i].seq);
                model.erase(model.begin() + i);
                EXPECT_EQ(*removed->nextLink(), 0u);
                removed->destroy();
            } else {
                int i = indexOf(e);
                EXPECT_GE(i, 0);
                if (i < 0) return;
                seen.insert(model[i].seq);
                it.next(status);
                EXPECT_EQ(status, 0u);
            }
        }
        if (removeAll) {
            EXPECT_EQ(table->size, 0u);
        }
    }

    // Another party changes the table: the iterator says so until reset.
    void foreignChange(uint32_t keyIndex) {
        HashIteratorC it(table.get(), true);
        uint32_t status = 0;
        it.next(status);
        insertNew(keyIndex);
        EXPECT_EQ(it.next(status), nullptr);
        EXPECT_EQ(status, kHashTableChanged);
        EXPECT_EQ(it.current(status), nullptr);
        EXPECT_EQ(status, kHashTableChanged);
        EXPECT_EQ(it.removeCurrent(status), nullptr);
        EXPECT_EQ(status, kHashTableChanged);
        it.reset();
        EXPECT_NE(it.next(status), nullptr);
        EXPECT_EQ(status, 0u);
    }

    // find and findNext give the equal keys newest first.
    void walkEqualKeys(uint32_t keyIndex) {
        Key key = Traits::key(keyIndex, rng);
        std::string norm = Traits::norm(keyIndex);
        std::vector<HashElemI*> expected;
        for (int i = static_cast<int>(model.size()) - 1; i >= 0; --i) {
            if (model[i].norm == norm) expected.push_back(model[i].element);
        }
        std::vector<HashElemI*> got;
        for (HashElemI* e = table->find(&key); e; e = table->findNext(e, &key)) got.push_back(e);
        EXPECT_EQ(got, expected);
        if (!expected.empty()) {
            EXPECT_EQ(table->findNext(nullptr, &key), expected.size() > 1 ? expected[1] : nullptr);
        }
    }

    void verify() {
        SCOPED_TRACE(::testing::Message() << "operation " << lastOperation);
        EXPECT_EQ(table->size, model.size());
        EXPECT_EQ(table->listCount(), expectedLists);
        EXPECT_TRUE(table->check());

        // Each list holds its elements newest first: insertion puts them at
        // the head and splitting keeps their order.
        std::map<HashElemI*, uint32_t> seqOf;
        for (auto& entry : model) seqOf[entry.element] = entry.seq;
        size_t total = 0;
        uint32_t empty = 0;
        for (uint32_t i = 0; i < table->listCount(); ++i) {
            uintptr_t word = *table->listHead(i);
            if (word & 1) {
                ++empty;
                EXPECT_EQ(word, reinterpret_cast<uintptr_t>(table.get()) | 1);
            }
            uint32_t previous = UINT32_MAX;
            while (!(word & 1)) {
                HashElemI* e = static_cast<HashElemI*>(reinterpret_cast<ListElemI*>(word));
                auto found = seqOf.find(e);
                EXPECT_NE(found, seqOf.end());
                if (found == seqOf.end()) return;
                EXPECT_LT(found->second, previous) << "list " << i;
                previous = found->second;
                ++total;
                word = *e->nextLink();
            }
            EXPECT_EQ(word, reinterpret_cast<uintptr_t>(table.get()) | 1);
        }
        EXPECT_EQ(total, model.size());
        EXPECT_EQ(table->empty_lists, empty);

        // Lookups of a few keys give the newest equal key.
        for (int probe = 0; probe < 4; ++probe) {
            uint32_t keyIndex = pick(keySpace);
            Key key = Traits::key(keyIndex, rng);
            int expected = newest(Traits::norm(keyIndex));
            EXPECT_EQ(table->find(&key), expected < 0 ? nullptr : model[expected].element);
        }
        // Every element finds its table through its chain.
        if (!model.empty()) {
            EXPECT_EQ(chainOwner(model[pick(static_cast<uint32_t>(model.size()))].element), table.get());
        }
    }
};

}  // namespace testing_model
}  // namespace keel

#endif
