// A string representation for tests that need to see exactly how many
// references a container takes and drops. It holds a std::string, compares
// by it, and counts references atomically; the test owns the object, and
// release never deletes it. Wrap it with StringC::fromNew.
#ifndef KEEL_TESTS_TEXT_COUNTEDIMPL_H
#define KEEL_TESTS_TEXT_COUNTEDIMPL_H

#include <keel/string.h>

#include <string>
#include <utility>

namespace keel {

class CountedImplC : public StringImplI {
public:
    explicit CountedImplC(std::string text = std::string()) : text_(std::move(text)) {}
    int32_t addRef() override { return __atomic_add_fetch(&refs, 1, __ATOMIC_ACQ_REL); }
    int32_t release() override { return __atomic_sub_fetch(&refs, 1, __ATOMIC_ACQ_REL); }
    bool isShared() override { return refs > 1; }
    StringImplFactoryI* getFactory() override { return nullptr; }
    int32_t length() override { return static_cast<int32_t>(text_.size()); }
    bool isEmpty() override { return text_.empty(); }
    int compare(StringImplI* other) override {
        ++compares;
        const std::string& theirs = static_cast<CountedImplC*>(other)->text_;
        return text_ < theirs ? -1 : (theirs < text_ ? 1 : 0);
    }
    int compareNatural(StringImplI* other, bool) override { return compare(other); }
    int compareNoCase(StringImplI* other) override { return compare(other); }
    int32_t findChar(uint32_t, int32_t) override { return -1; }
    int32_t findLastChar(uint32_t, int32_t) override { return -1; }
    int32_t findString(StringImplI*, int32_t) override { return -1; }
    int32_t findLastString(StringImplI*, int32_t) override { return -1; }
    int32_t findFirstOf(StringImplI*, int32_t) override { return -1; }
    int32_t findLastOf(StringImplI*, int32_t) override { return -1; }
    int32_t findFirstNotOf(StringImplI*, int32_t) override { return -1; }
    int32_t findLastNotOf(StringImplI*, int32_t) override { return -1; }
    uint32_t charAt(int32_t) override { return 0; }
    uint32_t textLength(const char*) override { return 0; }
    bool text(void**, const char*) override { return false; }
    void releaseText(void*, const char*) override {}
    bool copyText(void*, uint32_t*, const char*) override { return false; }
    StringImplI* substring(int32_t, int32_t) override { return nullptr; }
    void erase(int32_t, int32_t) override {}
    void append(StringImplI*) override {}
    void appendChar(uint32_t) override {}
    void insert(int32_t, StringImplI*) override {}
    void toLower() override {}
    void toUpper() override {}
    void reset() override {}
    void reserve(uint32_t) override {}

    const std::string& text() const { return text_; }
    int32_t refs = 0;
    int compares = 0;

private:
    std::string text_;
};

}  // namespace keel

#endif
