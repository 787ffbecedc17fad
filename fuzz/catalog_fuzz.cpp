// The catalog reader over arbitrary files, beside the tool's reading of the
// same bytes in memory as the model: the input is written to a real file and
// opened with ErrCatalogC; every code of the first index records, and codes
// taken from the input, must give what the in-memory binary search gives
// (the same text, or nothing), whatever the header, the index or the offsets
// say. The dumper must refuse or accept without a crash, and what it accepts
// must compile to a file that dumps to the same source.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <keel/keel.h>

#include "catalogtool.h"
#include "errors/catalog.h"

namespace {

std::string scratchFile() {
    static std::string path;
    if (path.empty()) {
        char pattern[] = "/tmp/keel-catalog-fuzz-XXXXXX";
        if (!mkdtemp(pattern)) abort();
        path = std::string(pattern) + "/input.cat";
    }
    return path;
}

uint32_t big(const uint8_t* p, int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) value = (value << 8) | p[i];
    return value;
}

void check(keel::ErrCatalogC& catalog, const std::string& bytes, uint32_t code) {
    std::string expected;
    bool found =
        (code & 0x20000000u) && catalog.recordCount() != 0 &&
        keel::catalogtool::lookupCatalog(bytes, (code >> 16) & 0xFFF, code & 0xFFFF, expected);
    char* text = catalog.lookUp(code);
    if (found != (text != nullptr) ||
        (text && (strlen(text) != strnlen(expected.c_str(), expected.size()) ||
                  memcmp(text, expected.data(), strlen(text)) != 0))) {
        fprintf(stderr, "code 0x%08X: reader %s, model %s\n", code, text ? text : "(none)",
                found ? expected.c_str() : "(none)");
        abort();
    }
    delete[] text;
    catalog.fetch(nullptr, code, "{w} default", nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    std::string path = scratchFile();
    FILE* out = fopen(path.c_str(), "wb");
    if (!out) abort();
    fwrite(data, 1, size, out);
    fclose(out);

    keel::ErrCatalogC catalog(keel::StringC(path.c_str(), "utf8"));
    if (catalog.isOpen()) {
        uint64_t records = catalog.recordCount();
        for (uint64_t i = 0; i < records && i < 64 && 12 + 12 * (i + 1) <= size; ++i) {
            const uint8_t* record = data + 12 + 12 * i;
            uint32_t set = big(record, 2) & 0xFFF;
            check(catalog, bytes, 0xE0000000u | (set << 16) | (big(record + 4, 4) & 0xFFFF));
        }
        for (size_t i = 0; i + 4 <= size && i < 64; i += 4)
            check(catalog, bytes, big(data + i, 4) | 0x20000000u);
    }

    std::string source;
    std::vector<keel::catalogtool::DiagnosticT> diagnostics;
    if (keel::catalogtool::dumpCatalog(bytes, source, diagnostics)) {
        std::string binary, again;
        if (!keel::catalogtool::compileCatalog(source, binary, diagnostics)) {
            fprintf(stderr, "a dump does not compile\n");
            abort();
        }
        if (!keel::catalogtool::dumpCatalog(binary, again, diagnostics) || again != source) {
            fprintf(stderr, "dump, compile, dump differs\n");
            abort();
        }
    }
    // Arbitrary bytes as a source: refused or compiled, never a crash.
    keel::catalogtool::compileCatalog(bytes, source, diagnostics);
    return 0;
}
