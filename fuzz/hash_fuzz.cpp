// The string map driven by fuzzer-chosen operations beside a plain model:
// every key keeps a stack of values, newest on top, as equal keys coexist in
// the table with the newest found first. After each operation the table must
// agree with the model and pass its own check().
//
// Input: a sequence of byte pairs, operation and key.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <map>
#include <vector>

#include <keel/keel.h>

#include <keel/strkeyed.h>

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "invariant broken: %s\n", what);
        abort();
    }
}

keel::StringC keyText(uint8_t k) {
    char text[16];
    // Some keys differ only in case or are long, so that chains get shared.
    int n = snprintf(text, sizeof text, k & 0x40 ? "Key%u" : "key%u", unsigned(k & 0x3F));
    return keel::StringC(text, static_cast<uint32_t>(n), "ascii");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    keel::StringMapM<int32_t> map;
    std::map<uint8_t, std::vector<int32_t>> model;
    uint32_t total = 0;
    int32_t seq = 0;
    for (size_t i = 0; i + 1 < size; i += 2) {
        uint8_t op = data[i] % 8;
        uint8_t k = data[i + 1] & 0x7F;
        keel::StringC key = keyText(k);
        std::vector<int32_t>& values = model[k];
        switch (op) {
        case 0:
        case 1:
            map.add(key, ++seq);
            values.push_back(seq);
            ++total;
            break;
        case 2: {
            auto old = map.put(key, ++seq);
            check(old.found() == !values.empty(), "put displaced the wrong element");
            if (old.found()) {
                check(old.value() == values.back(), "put displaced another value");
                values.pop_back();
                --total;
            }
            values.push_back(seq);
            ++total;
            break;
        }
        case 3: {
            auto gone = map.remove(key);
            check(gone.found() == !values.empty(), "remove found the wrong element");
            if (gone.found()) {
                check(gone.value() == values.back(), "remove took another value");
                values.pop_back();
                --total;
            }
            break;
        }
        case 4: {
            bool erased = map.erase(&key);
            check(erased == !values.empty(), "erase answered wrongly");
            if (erased) {
                values.pop_back();
                --total;
            }
            break;
        }
        case 5: {
            auto found = map.lookup(key);
            check(found.found() == !values.empty(), "lookup answered wrongly");
            if (found.found()) check(found.value() == values.back(), "lookup found an older value");
            break;
        }
        case 6: {
            keel::HashIteratorC it(&map, true);
            uint32_t status = 0, seen = 0;
            while (it.next(status)) ++seen;
            check(status == 0, "iterator reported a change of its own");
            check(seen == total, "iteration missed or repeated elements");
            break;
        }
        default:
            if (k == 0x7F) {
                map.eraseAll();
                model.clear();
                total = 0;
            }
            break;
        }
        check(map.size == total, "size differs from the model");
        check(map.check(), "the table's own check failed");
    }
    return 0;
}
