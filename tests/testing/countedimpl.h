// A string representation for tests that need to see exactly how many
// references a container takes and drops, and how often it compares. It is
// an ordinary representation whose count is kept apart: the test owns the
// object, and release never deletes it. Wrap it with StringC::fromNew.
#ifndef KEEL_TESTS_TESTING_COUNTEDIMPL_H
#define KEEL_TESTS_TESTING_COUNTEDIMPL_H

#include <string>

#include "text/stringim.h"

namespace keel {

class CountedImplC : public StringImplC {
public:
    explicit CountedImplC(const std::string& text = std::string())
        : StringImplC(text.data(), static_cast<uint32_t>(text.size()), "vutf8") {}
    int32_t addRef() override { return __atomic_add_fetch(&refs, 1, __ATOMIC_ACQ_REL); }
    int32_t release() override { return __atomic_sub_fetch(&refs, 1, __ATOMIC_ACQ_REL); }
    bool isShared() override { return __atomic_load_n(&refs, __ATOMIC_ACQUIRE) > 1; }
    int compare(StringImplI* other) override {
        ++compares;
        return StringImplC::compare(other);
    }

    using StringImplC::text;
    std::string text() const { return bytes() ? std::string(reinterpret_cast<const char*>(bytes()), byteCount()) : ""; }
    int32_t refs = 0;
    int compares = 0;
};

}  // namespace keel

#endif
