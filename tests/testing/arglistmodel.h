// Three argument-list handles driven beside plain models: each handle is a
// shared pointer to a vector of (code, value) entries, null for an empty
// list. Steps add values of every plain type, texts, strings and a nested
// list; copy and assign handles (copies share one body, with no copy on
// write); add through a temporary copy; and drop a handle's list. After each
// step every handle must hold its model's entries with their codes and
// values, share a body exactly where the models share one, and every body's
// reference count must be the number of handles on it (the nested list's
// count, one per entry that holds it). Shared by the random-sequence test and
// the fuzz target.
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
    int64_t number;    // the value of a numeric entry
    std::string text;  // of a "CharStar" or "String" entry
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
        uint32_t h = operation / 8 % kHandles, other = argument % kHandles;
        switch (operation % 8) {
        case 0:
        case 1:
        case 2:
            add(lists[h], model(h), argument);
            break;
        case 3:
            lists[h] = lists[other];
            models[h] = models[other];
            break;
        case 4: {
            // A copy shares the body; what it appends shows in the
            // original unless the original had no body yet.
            ArgListC copy(lists[h]);
            std::shared_ptr<BodyT> copyModel = models[h];
            if (!copyModel) copyModel = std::make_shared<BodyT>();
            add(copy, *copyModel, argument);
            break;
        }
        case 5:
            if (argument % 4 == 0) {
                lists[h] = ArgListC();
                models[h].reset();
            }
            break;
        default:
            break;
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
        // Adds `value` to the list and (code, number) to the model.
        auto both = [&list, &body](int32_t code, auto value, int64_t number) {
            list.add(value);
            body.push_back({code, number, ""});
        };
        switch (argument % 12) {
        case 0:
            both(ArgBool, v % 2 != 0, v % 2 != 0);
            break;
        case 1:
            both(ArgInt16, int16_t(v), int16_t(v));
            break;
        case 2:
            both(ArgInt32, int32_t(v), int32_t(v));
            break;
        case 3:
            both(ArgInt64, v * 1048576, v * 1048576);
            break;
        case 4:
            both(ArgUnsigned16, uint16_t(v), uint16_t(v));
            break;
        case 5:
            both(ArgUnsigned32, uint32_t(v), uint32_t(v));
            break;
        case 6:
            both(ArgReal, double(v), v);
            break;
        case 7:
            list.addUCS4(uint32_t(v) & 0x1FFFFF), body.push_back({ArgUCS4, v & 0x1FFFFF, ""});
            break;
        case 8: {
            // The list keeps its own copy of the text.
            std::string text = std::to_string(v);
            list.add(argument % 3 ? text.c_str() : nullptr);
            body.push_back({ArgCharStar, 0, argument % 3 ? text : ""});
            break;
        }
        case 9: {
            std::string text = "s" + std::to_string(v);
            list.add(StringC(text.c_str(), "ascii"));
            body.push_back({ArgString, 0, text});
            break;
        }
        case 10:
            list.addNull(), body.push_back({ArgNull, 0, ""});
            break;
        default:
            list.add(inner);
            body.push_back({ArgArgList, 0, ""});
            break;
        }
    }

    static bool sameEntry(const ArgEntry* entry, const EntryT& e) {
        if (!entry || entry->code() != e.code) return false;
        switch (e.code) {
        case ArgBool:
            return entry->read<uint8_t>() == e.number;
        case ArgInt16:
            return entry->read<int16_t>() == e.number;
        case ArgInt32:
            return entry->read<int32_t>() == e.number;
        case ArgInt64:
            return entry->read<int64_t>() == e.number;
        case ArgUnsigned16:
            return entry->read<uint16_t>() == e.number;
        case ArgUnsigned32:
            return entry->read<uint32_t>() == e.number;
        case ArgReal:
            return entry->read<double>() == static_cast<double>(e.number);
        case ArgUCS4:
            return entry->read<uint32_t>() == e.number;
        case ArgCharStar:
            return e.text == static_cast<const char*>(entry->pointer());
        case ArgString: {
            const char* text = entry->string().textUtf8();
            bool same = e.text == text;
            entry->string().releaseUtf8(text);
            return same;
        }
        case ArgArgList:
            return entry->argList().getImpl() != nullptr;
        default:
            return true;
        }
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
