// A model for the hash tables: random insertions, replacements, removals,
// lookups and iterations, each step checked against a plain list of what the
// table should hold (in insertion order) and against the table's own
// check(). The lists must hold their elements newest first and end in the
// table's mark, the list count must follow the load rule, and equal keys
// must be found newest first. Shared by the model test
// (tests/containers/strkeyed_test.cpp, through modelrun.h's seeded runs) and
// the fuzz target (fuzz/hash_fuzz.cpp, from its input).
//
//     keel::hashmodel::DriverC<keel::hashmodel::KeyedT<true>> driver(30);
//     std::string broken = driver.step(operation, argument);  // empty: agree
//
// The tables: the string-keyed table, case-sensitive and case-blind
// (KeyedT), and the typed string map (MapT). A case-blind table gets each
// key in a mixture of cases drawn from the argument.
#ifndef KEEL_TESTS_TESTING_HASHMODEL_H
#define KEEL_TESTS_TESTING_HASHMODEL_H

#include <stdint.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <keel/strkeyed.h>

namespace keel {
namespace hashmodel {

// Equal keys have equal norms: the key's text in lower case.
inline std::string norm(uint32_t key) {
    return (key % 7 == 0 ? "caf\xc3\xa9-" : "key-") + std::to_string(key);
}

// The key in a spelling whose upper-case letters (and U+00C9 for U+00E9)
// are where the bits of `spelling` are set.
inline StringC spelled(uint32_t key, uint32_t spelling) {
    std::string text = norm(key), out;
    for (size_t k = 0; k < text.size(); ++k, spelling = spelling >> 1 | spelling << 31) {
        char c = text[k];
        if (spelling & 1 && c == '\xa9') c = '\x89';  // the tail of U+00E9
        out += spelling & 1 && c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    }
    return StringC(out.data(), static_cast<uint32_t>(out.size()), "utf8");
}

struct SeqEntryT : StringKeyedHashElemC {
    SeqEntryT(const StringC& key, uint32_t seq) : StringKeyedHashElemC(key), seq(seq) {}
    uint32_t seq;
};

template <bool CaseBlind>
struct KeyedT {
    struct Table : StringKeyedHashC {
        Table() : StringKeyedHashC(CaseBlind) {}
    };
    static const bool caseBlind = CaseBlind;
    static HashElemI* make(const StringC& key, uint32_t seq) { return new SeqEntryT(key, seq); }
    static uint32_t seq(HashElemI* e) { return static_cast<SeqEntryT*>(e)->seq; }
};

// The typed map's add, put and remove are its table's insert, replace and
// detachKey with results around them (hashtbl_test checks what the results
// own); the model drives the table under them with the map's hash and key
// equality.
struct MapT {
    typedef StringMapM<uint32_t> Table;
    static const bool caseBlind = false;
    static HashElemI* make(const StringC& key, uint32_t seq) { return new Table::ElemT(key, seq); }
    static uint32_t seq(HashElemI* e) { return static_cast<Table::ElemT*>(e)->value; }
};

template <typename Traits>
class DriverC {
public:
    explicit DriverC(uint32_t keySpace) : table_(new typename Traits::Table), keySpace_(keySpace) {}

    std::string step(uint32_t operation, uint32_t argument) {
        std::string broken = operate(operation % 100, argument);
        if (broken.empty()) broken = verify(argument);
        return broken.empty() ? "" : "operation " + std::to_string(operation % 100) + ": " + broken;
    }

private:
    struct EntryT {
        std::string norm;
        uint32_t seq;
        HashElemI* element;
    };

    // The model entries of a key, newest first.
    std::vector<size_t> equalKeys(const std::string& norm) const {
        std::vector<size_t> found;
        for (size_t i = model_.size(); i-- > 0;)
            if (model_[i].norm == norm) found.push_back(i);
        return found;
    }
    void add(const std::string& norm, HashElemI* element) {
        model_.push_back(EntryT{norm, nextSeq_++, element});
        // The list count follows the load rule and never goes down.
        while (static_cast<double>(model_.size()) / lists_ > 0.9) ++lists_;
    }
    void forget(size_t i, bool destroy) {
        if (destroy) model_[i].element->destroy();
        model_.erase(model_.begin() + static_cast<ptrdiff_t>(i));
    }
    StringC keyOf(uint32_t index, uint32_t argument) const {
        return spelled(index, Traits::caseBlind ? argument * 2654435761u : 0);
    }

    std::string operate(uint32_t choice, uint32_t argument) {
        typename Traits::Table& table = *table_;
        uint32_t index = argument % keySpace_;
        StringC key = keyOf(index, argument);
        std::string keyNorm = norm(index);
        std::vector<size_t> equal = equalKeys(keyNorm);
        HashElemI* newest = equal.empty() ? nullptr : model_[equal[0]].element;
        if (choice < 30) {
            HashElemI* element = Traits::make(key, nextSeq_);
            table.insert(element);
            add(keyNorm, element);
        } else if (choice < 42) {  // the newest of the key goes, unlinked but not destroyed
            HashElemI* element = Traits::make(key, nextSeq_);
            if (table.replace(element) != newest) return "replace displaced the wrong element";
            if (newest) {
                if (*newest->nextLink() != 0) return "replace left the displaced element linked";
                forget(equal[0], true);
            }
            add(keyNorm, element);
        } else if (choice < 52) {
            if (table.erase(&key) != (newest != nullptr)) return "erase";
            if (newest) forget(equal[0], false);
        } else if (choice < 62) {
            if (model_.empty()) return "";
            size_t i = argument / keySpace_ % model_.size();
            uint32_t generation = table.currentGeneration();
            if (!table.detach(model_[i].element) || table.currentGeneration() != generation + 1)
                return "detach";
            if (table.detach(model_[i].element)) return "detach of a detached element";
            forget(i, true);
        } else if (choice < 67) {
            if (table.detachKey(&key) != newest) return "detachKey";
            if (newest) forget(equal[0], true);
        } else if (choice < 79) {
            return iterate(choice < 73);
        } else if (choice < 86) {
            return sweep(argument);
        } else if (choice < 90) {  // neither changes the list count
            uint32_t lists = table.listCount();
            if (choice < 88) {
                table.eraseAll();
            } else {
                table.detachAll();  // unlinked, not destroyed
                for (const EntryT& entry : model_) {
                    if (*entry.element->nextLink() != 0) return "detachAll left a link";
                    entry.element->destroy();
                }
            }
            model_.clear();
            if (table.listCount() != lists || table.emptyLists() != lists) return "emptied lists";
        } else {  // find and findNext give the equal keys newest first
            std::vector<HashElemI*> want, got;
            for (size_t i : equal) want.push_back(model_[i].element);
            for (HashElemI* e = table.find(&key); e; e = table.findNext(e, &key)) got.push_back(e);
            if (want != got) return "find and findNext";
            if (!want.empty() &&
                table.findNext(nullptr, &key) != (want.size() > 1 ? want[1] : nullptr))
                return "findNext from the start";
        }
        return "";
    }

    // Without allElements only the newest of equal keys shows.
    std::string iterate(bool all) {
        HashIteratorC it(table_.get(), all);
        std::multiset<uint32_t> seen, expected;
        uint32_t status = 1;
        while (HashElemI* e = it.next(status)) seen.insert(Traits::seq(e));
        if (it.next(status) != nullptr || status != 0) return "iterator past the end";
        std::map<std::string, uint32_t> newestByKey;
        for (const EntryT& entry : model_) newestByKey[entry.norm] = entry.seq;
        for (const EntryT& entry : model_)
            if (all || newestByKey[entry.norm] == entry.seq) expected.insert(entry.seq);
        return expected == seen ? "" : "iteration";
    }

    // Walks with current(), removing about a third of the elements (or all).
    std::string sweep(uint32_t argument) {
        HashIteratorC it(table_.get(), true);
        uint32_t status = 1, pick = argument;
        bool removeAll = argument % 4 == 0;
        while (HashElemI* e = it.current(status)) {
            auto found = std::find_if(model_.begin(), model_.end(),
                                      [e](const EntryT& m) { return m.element == e; });
            if (status != 0 || found == model_.end())
                return "sweep met an element not in the model";
            pick = pick * 1103515245u + 12345u;
            if (removeAll || (pick >> 16) % 3 == 0) {
                if (it.removeCurrent(status) != e || status != 0 || *e->nextLink() != 0)
                    return "removeCurrent";
                forget(static_cast<size_t>(found - model_.begin()), true);
            } else {
                it.next(status);
            }
        }
        if (status != 0 || (removeAll && table_->size != 0)) return "sweep";
        return "";
    }

    std::string verify(uint32_t argument) {
        typename Traits::Table& table = *table_;
        if (table.size != model_.size()) return "size";
        if (table.listCount() != lists_) return "list count";
        if (!table.check()) return "the table's own check";
        // Each list holds its elements newest first (insertion puts them at
        // the head and splitting keeps their order) and ends in the table's mark.
        std::map<HashElemI*, uint32_t> seqOf;
        for (const EntryT& entry : model_) seqOf[entry.element] = entry.seq;
        const uintptr_t end = reinterpret_cast<uintptr_t>(static_cast<HashTableC*>(&table)) | 1;
        size_t total = 0;
        for (uint32_t i = 0; i < table.listCount(); ++i) {
            uintptr_t word = *table.listHead(i);
            for (uint32_t previous = UINT32_MAX; !(word & 1); ++total) {
                HashElemI* e = static_cast<HashElemI*>(reinterpret_cast<ListElemI*>(word));
                auto found = seqOf.find(e);
                if (found == seqOf.end()) return "a list holds an element not in the model";
                if (found->second >= previous) return "a list is not newest first";
                previous = found->second;
                word = *e->nextLink();
            }
            if (word != end) return "a list does not end in the table's mark";
        }
        if (total != model_.size()) return "the lists hold another count";
        // A lookup gives the newest equal key, and an element finds its table
        // through its chain.
        uint32_t index = (argument >> 8) % keySpace_;
        StringC key = keyOf(index, argument >> 8);
        std::vector<size_t> equal = equalKeys(norm(index));
        if (table.find(&key) != (equal.empty() ? nullptr : model_[equal[0]].element)) return "find";
        void* owner = static_cast<HashTableC*>(&table);
        if (!model_.empty() && chainOwner(model_[argument % model_.size()].element) != owner)
            return "chainOwner";
        return "";
    }

    std::unique_ptr<typename Traits::Table> table_;
    std::vector<EntryT> model_;  // in order of insertion
    uint32_t keySpace_, nextSeq_ = 1, lists_ = 1;
};

}  // namespace hashmodel
}  // namespace keel

#endif
