// ErrSystemCatalogC: the texts of the operating system's own errors, set 0,
// from strerror. It stands behind the process catalog.
#ifndef KEEL_ERRORS_SYSTEMCAT_H
#define KEEL_ERRORS_SYSTEMCAT_H

#include <keel/errors.h>

namespace keel {

class ErrSystemCatalogC : public ErrCatalogI {
public:
    ~ErrSystemCatalogC() override {}
    // strerror of the low 16 bits for a code with bit 29 set and set 0 (in
    // "system-8"), the empty text for every other code; severity 4.
    StringC fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                  const char* selector) override;
    uint32_t setQualifiers(StringC qualifiers) override;
};

// The one system catalog, never destroyed.
ErrSystemCatalogC* systemCatalog();

}  // namespace keel

#endif
