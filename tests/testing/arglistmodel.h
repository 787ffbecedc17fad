// Three argument-list handles driven beside plain models: each handle is a
// shared pointer to a vector of (code, value bytes) entries, null for an
// empty list. Steps add values of every type of fixed layout through its
// overload, texts, strings and a nested list; copy and assign handles
// (copies share one body, with no copy on write); add through a temporary
// copy; and drop a handle's list. After each step every handle must hold its
// model's entries with their codes, values and type names, share a body
// exactly where the models share one, and every body's reference count must
// be the number of handles on it (the nested list's count, one per entry
// that holds it). Shared by the random-sequence test and the fuzz target.
//
//     keel::arglistmodel::DriverC driver;
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_ARGLISTMODEL_H
#define KEEL_TESTS_TESTING_ARGLISTMODEL_H

#include <stdint.h>
#include <string.h>

#include <memory>
#include <string>
#include <vector>

#include <keel/arglist.h>

namespace keel {
namespace arglistmodel {

struct EntryT {
    int32_t code;
    std::string bytes;  // the value's bytes, or the text of a "CharStar" or "String" entry
};
typedef std::vector<EntryT> BodyT;

class DriverC {
public:
    enum { kHandles = 3 };
    ArgListC lists[kHandles];
    std::shared_ptr<BodyT> models[kHandles];
    ArgListC inner;  // the list nested entries hold

    DriverC() { inner.add(int32_t(7)); }

    std::string step(uint32_t operation, uint32_t argument) {
        uint32_t h = operation / 8 % kHandles, other = argument % kHandles, op = operation % 8;
        if (op < 3) add(lists[h], model(h), argument);
        if (op == 3) {
            lists[h] = lists[other];
            models[h] = models[other];
        }
        if (op == 4) {
            // A copy shares the body; what it appends shows in the
            // original unless the original had no body yet.
            ArgListC copy(lists[h]);
            std::shared_ptr<BodyT> copyModel = models[h];
            if (!copyModel) copyModel = std::make_shared<BodyT>();
            add(copy, *copyModel, argument);
        }
        if (op == 5 && argument % 4 == 0) {
            lists[h] = ArgListC();
            models[h].reset();
        }
        return check();
    }

private:
    BodyT& model(uint32_t h) {
        if (!models[h]) models[h] = std::make_shared<BodyT>();
        return *models[h];
    }

    void add(ArgListC& list, BodyT& body, uint32_t argument) {
        int64_t v = static_cast<int32_t>(argument * 2654435761u);
        // Puts `code` and the bytes of `value` into the model.
        auto record = [&body](int32_t code, auto value) {
            body.push_back(
                {code, std::string(reinterpret_cast<const char*>(&value), sizeof value)});
        };
        // Adds `value` to the list through its overload, and to the model.
        auto both = [&](int32_t code, auto value) {
            list.add(value);
            record(code, value);
        };
        // The list keeps its own copy of a text; a null text is the empty one.
        std::string text = std::to_string(v);
        uint32_t kind = argument % 17;
        if (kind == 0) return both(ArgBool, v % 2 != 0);
        if (kind == 1) return both(ArgInt16, int16_t(v));
        if (kind == 2) return both(ArgInt32, int32_t(v));
        if (kind == 3) return both(ArgInt64, v * 1048576);
        if (kind == 4) return both(ArgUnsigned16, uint16_t(v));
        if (kind == 5) return both(ArgUnsigned32, uint32_t(v));
        if (kind == 6) return both(ArgUnsigned64, uint64_t(v) << 24);
        if (kind == 7) return both(ArgReal, double(v) / 8);
        if (kind == 8) return both(ArgObjRef, reinterpret_cast<const void*>(uintptr_t(v)));
        if (kind == 9)
            return both(ArgGuid, ArgGuidT{uint32_t(v), uint16_t(v), 7, {1, uint8_t(v), 3}});
        if (kind == 10) return both(ArgTimeVal, ArgTimeValT{int32_t(v), int32_t(v % 1000000)});
        if (kind == 11) {
            list.addUCS4(uint32_t(v) & 0x1FFFFF);
            return record(ArgUCS4, uint32_t(v) & 0x1FFFFF);
        }
        if (kind == 12) {
            list.addDateTime(v * 977);
            return record(ArgDateTime, v * 977);
        }
        if (kind == 13) {
            if (argument % 5 == 4) {
                // As code outside the list may make one: the text in an array
                // of its own, which the list frees with the entry.
                char* own = strcpy(new char[text.size() + 1], text.c_str());
                ArgEntry* entry = ArgEntry::allocate(ArgCharStar, sizeof own);
                memcpy(entry->value(), &own, sizeof own);
                list.append(entry);
                return body.push_back({ArgCharStar, text});
            }
            list.add(argument % 3 ? text.c_str() : nullptr);
            return body.push_back({ArgCharStar, argument % 3 ? text : ""});
        }
        if (kind == 14) {
            list.add(StringC(("s" + text).c_str(), "ascii"));
            return body.push_back({ArgString, "s" + text});
        }
        if (kind == 15) {
            list.addNull();
            return body.push_back({ArgNull, ""});
        }
        list.add(inner);
        body.push_back({ArgArgList, ""});
    }

    static bool sameEntry(const ArgEntry* entry, const EntryT& e) {
        if (!entry || entry->code() != e.code) return false;
        if (strcmp(entry->typeName(), ArgListC::typeName(e.code)) != 0) return false;
        if (e.code == ArgCharStar) return e.bytes == static_cast<const char*>(entry->pointer());
        if (e.code == ArgString) return e.bytes == entry->string().toStdString();
        if (e.code == ArgArgList) return entry->argList().getImpl() != nullptr;
        return memcmp(entry->value(), e.bytes.data(), e.bytes.size()) == 0;
    }

    std::string check() const {
        int32_t nested = 0;
        for (uint32_t h = 0; h < kHandles; ++h) {
            const ArgListC& list = lists[h];
            const BodyT* body = models[h].get();
            int32_t count = body ? static_cast<int32_t>(body->size()) : 0;
            if (list.count() != count) return "count of handle " + std::to_string(h);
            if ((list.getImpl() == nullptr) != (body == nullptr))
                return "body of handle " + std::to_string(h);
            if (list.get(-1) || list.get(count)) return "get outside the list";
            for (int32_t i = 0; i < count; ++i) {
                if (!sameEntry(list.get(i), (*body)[i])) return "entry " + std::to_string(i);
            }
            if (body && list.getImpl()->refCount() != static_cast<int32_t>(models[h].use_count()))
                return "reference count";
            for (uint32_t k = 0; k < kHandles; ++k) {
                if (body && (list.getImpl() == lists[k].getImpl()) != (body == models[k].get()))
                    return "shared bodies";
            }
        }
        // Every body reachable from a handle, counted once, holds its nested entries.
        for (uint32_t h = 0; h < kHandles; ++h) {
            bool seen = false;
            for (uint32_t k = 0; k < h; ++k) seen = seen || models[k] == models[h];
            if (!models[h] || seen) continue;
            for (const EntryT& e : *models[h]) nested += e.code == ArgArgList;
        }
        return inner.getImpl()->refCount() == 1 + nested ? "" : "references to the nested list";
    }
};

}  // namespace arglistmodel
}  // namespace keel

#endif
