// The preference store over arbitrary files and operation sequences.
//
// Byte 0 chooses what the rest is:
//   even: the bytes of an ini file. It loads without a crash in every mode
//         (strict or not, with or without continuation lines); written
//         plainly, it reads back to the same content; and a file that a
//         merge wrote, merged again with nothing changed, comes back byte
//         for byte, as does a change merged with and without the shortcuts
//         of the bytes the store knows.
//   odd:  pairs of bytes (operation, argument) for the driver of
//         tests/testing/prefsmodel.h: changes, commits, another writer and
//         reloads against the plain model of store and file.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "../tests/testing/prefsmodel.h"

namespace {

const std::string& scratchDirectory() {
    static std::string directory = [] {
        char pattern[] = "/tmp/keel-prefs-fuzz-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        return std::string(pattern);
    }();
    return directory;
}

void writeBytes(const std::string& path, const uint8_t* data, size_t size) {
    FILE* file = fopen(path.c_str(), "wb");
    if (!file) abort();
    if (size && fwrite(data, 1, size, file) != size) abort();
    fclose(file);
}

void fail(const char* what) {
    fprintf(stderr, "%s\n", what);
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const std::string dir = scratchDirectory();
    if (data[0] % 2 == 1) {
        keel::prefsmodel::DriverC driver(dir + "/m.ini");
        for (size_t i = 1; i + 2 <= size && i < 2 * 200; i += 2) {
            std::string broken = driver.step(data[i], data[i + 1] | (data[i] << 8));
            if (!broken.empty()) fail(("model and store differ: " + broken).c_str());
        }
        return 0;
    }
    const std::string source = dir + "/f0.ini", first = dir + "/f1.ini", second = dir + "/f2.ini";
    writeBytes(source, data + 1, size - 1);
    for (int mode = 0; mode < 4; ++mode) {
        keel::PrefsC prefs;
        if (!prefs.load(source.c_str(), mode & 1, mode & 2) && !(mode & 1))
            fail("non-strict load failed");
        prefs.getSectionNames();
    }
    // Written plainly, the content reads back the same. A file that a merge
    // wrote holds nothing that a merge drops (no repeated section or key, no
    // run of empty lines, no broken header), so merging it with nothing
    // changed gives its bytes back.
    keel::PrefsC prefs;
    if (!prefs.load(source.c_str(), false, false)) fail("load");
    std::string content = keel::prefsmodel::dump(prefs);
    if (!prefs.save(first.c_str(), false, nullptr)) fail("plain write");
    if (!prefs.load(first.c_str(), false, false)) fail("load of the plain write");
    if (keel::prefsmodel::dump(prefs) != content) fail("a plain write did not read back");
    if (!prefs.save(second.c_str(), true, first.c_str())) fail("merge");
    if (!prefs.load(second.c_str(), false, false)) fail("load of the merge");
    if (!prefs.save(first.c_str(), true, second.c_str())) fail("second merge");
    if (keel::testkit::readFileAt(first) != keel::testkit::readFileAt(second))
        fail("a merge of unchanged data changed it");
    // A change merged and read back twice (the second merge from what the
    // first wrote) comes to the same bytes and store whether the merge and
    // the read-back may trust the bytes they know or decode and look up all.
    std::string results[2];
    for (int on = 0; on < 2; ++on) {
        keel::PrefsC::setShortcutsForTesting(on);
        keel::PrefsC store;
        store.load(source.c_str(), false, false);
        for (int round = 0; round < 2; ++round) {
            const char* const* names = store.getSectionNames();
            const char* const* keys = *names ? store.getKeyNames(names[0]) : nullptr;
            if (keys && *keys) store.setValue(names[0], keys[round && keys[1] ? 1 : 0], "z", true);
            const std::string& target = round ? second : first;
            std::string written;
            if (!store.save(target.c_str(), true, (round ? first : source).c_str(), &written) ||
                !store.loadWritten(target.c_str(), written))
                fail("merge and read-back");
            results[on] += keel::testkit::readFileAt(target) + keel::prefsmodel::dump(store, true);
        }
    }
    keel::PrefsC::setShortcutsForTesting(true);
    if (results[0] != results[1]) fail("the bytes known to the store changed a merge");
    return 0;
}
