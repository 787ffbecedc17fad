// A plain model of one thread's error buffer, and a driver that applies the
// same operation to a real ErrBufImplC and to the model and says where they
// first differ. Shared by the random-sequence test and the fuzz target.
//
//     keel::errbufmodel::DriverC driver;
//     std::string broken = driver.step(operation, argument);  // empty: agree
#ifndef KEEL_TESTS_TESTING_ERRBUFMODEL_H
#define KEEL_TESTS_TESTING_ERRBUFMODEL_H

#include <stdint.h>

#include <algorithm>
#include <string>
#include <vector>

#include <keel/keel.h>

#include "errors/errimpl.h"
#include "testing/scantest.h"

namespace keel {
namespace errbufmodel {

struct EntryT {
    uint32_t code, severity, sequence;
    std::string text;
    bool operator==(const EntryT& other) const {
        return code == other.code && severity == other.severity && sequence == other.sequence &&
               text == other.text;
    }
};

class DriverC {
public:
    ErrBufImplC buffer;
    std::vector<EntryT> model;
    std::vector<uint32_t> marks = {1};
    uint32_t next = 1;
    uint32_t steps = 0;

    // Operation by `operation % 7` (add twice as often as the others),
    // `argument` picks the code, severity, mark or index.
    std::string step(uint32_t operation, uint32_t argument) {
        uint32_t op = operation % 7, count = static_cast<uint32_t>(model.size());
        switch (op) {
        case 0:
        case 1: {
            EntryT entry{0xE0CB0000 | (argument % 50), 1 + argument % 5, next++,
                         "t" + std::to_string(steps)};
            buffer.addError(entry.code, entry.severity, StringC(entry.text.c_str(), "utf8"));
            model.push_back(entry);
            break;
        }
        case 2:
            if (buffer.getMark() != next) return "getMark";
            marks.push_back(next);
            break;
        case 3: {
            uint32_t mark = marks[argument % marks.size()];
            buffer.recover(mark);
            auto recovered = [mark](const EntryT& e) { return e.sequence >= mark; };
            model.erase(std::remove_if(model.begin(), model.end(), recovered), model.end());
            break;
        }
        case 4:
            if (buffer.removeEntry(argument % (count + 2)) != 0) return "removeEntry answer";
            if (argument % (count + 2) < count) model.erase(model.begin() + argument % (count + 2));
            break;
        case 5:
            if (argument % 4 == 0) {
                buffer.reportAll();
            } else {
                std::string expected;
                uint32_t highest = 0, severity = 99;
                for (const EntryT& e : model) {
                    expected += (expected.empty() ? "" : "\n") + e.text;  // texts are never empty
                    highest = std::max(highest, e.severity);
                }
                if (str(buffer.takeText(&severity)) != expected) return "takeText text";
                if (severity != highest) return "takeText severity";
            }
            model.clear();
            break;
        default:
            break;
        }
        ++steps;
        return agrees() ? ""
                        : "operation " + std::to_string(op) + " at step " + std::to_string(steps);
    }

    // The buffer's entries, up to the first index that has none, and its
    // count are the model's.
    bool agrees() {
        std::vector<EntryT> real;
        for (uint32_t i = 0; ErrEntryI* entry = buffer.getEntry(i); ++i)
            real.push_back({entry->getCode(), entry->getSeverity(), entry->getSequence(),
                            str(entry->getText())});
        return real == model && buffer.getCount() == model.size();
    }
};

}  // namespace errbufmodel
}  // namespace keel

#endif
