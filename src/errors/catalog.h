// ErrCatalogC: one binary message catalog file.
//
// The file, every number big-endian:
//
//   offset 0   the eight ASCII bytes "tavrinoc" (no terminator)
//   offset 8   u32 count of index records
//   offset 12  the index, record i at 12 x (i + 1), sorted by set, then number:
//                u16 set, u16 length of the text in bytes, u32 number,
//                u32 absolute offset of the text
//   anywhere   the texts, without terminators, in the message form of
//              errors/error.h, "utf8"
//
// Opening reads the header only; every lookup is a binary search over the
// index on disk, with nothing cached, so memory stays the same whatever the
// size of the catalog. Every failure is silent: a catalog that cannot be
// opened, has no magic or a corrupt index simply does not hold the message
// (or, for a corrupt index, holds a wrong text). The text length is 16 bits,
// so no record can make the reader allocate more than 65,536 bytes.
#ifndef KEEL_ERRORS_CATALOG_H
#define KEEL_ERRORS_CATALOG_H

#include <stdint.h>

#include <keel/errors.h>
#include <keel/string.h>

namespace keel {

// The magic at the start of every catalog file, and the sizes of the header
// and of an index record.
extern const char kCatalogMagic[8];
const uint32_t kCatalogHeaderSize = 12;
const uint32_t kCatalogRecordSize = 12;

class ErrCatalogC : public ErrCatalogI {
public:
    // Opens `fileName` ("%L" expanded through the default locale's region);
    // an empty name opens nothing and makes an empty catalog. Never fails
    // visibly.
    explicit ErrCatalogC(const StringC& fileName);
    // Closes the file.
    ~ErrCatalogC() override;
    ErrCatalogC(const ErrCatalogC&) = delete;
    ErrCatalogC& operator=(const ErrCatalogC&) = delete;

    StringC fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                  const char* selector) override;
    // Stored; fetch never uses it.
    uint32_t setQualifiers(StringC text) override;

    // The raw text of `code`, NUL-terminated, allocated with new[] for the
    // caller to delete[]; null when the catalog lacks it, the code has no
    // bit 29, or a read fails.
    char* lookUp(uint32_t code);

    bool isOpen() const { return handle >= 0; }
    uint32_t recordCount() const { return count; }

    StringC fileName;
    StringC qualifiers;
    int32_t handle;
    uint32_t count;

private:
    void open();
    bool tryOpen(const StringC& name);
};

}  // namespace keel

#endif
