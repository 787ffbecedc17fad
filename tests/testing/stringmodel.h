// A run of random operations on a StringC checked against a std::u32string
// that holds the same characters. Shared by the model test
// (tests/text/stringim_model_test.cpp), which draws its choices from the
// bytes of a seeded generator, and the fuzz target
// (fuzz/stringmodel_fuzz.cpp), which draws them from its input.
//
// The text is made of sequences of one to six bytes (values up to
// 0x7FFFFFFF, never 0), on strings whose count is known and on strings
// whose count is not, ASCII-only ones among them. The operations are indexed
// reads inside and past the end, length, substring, insert (at 0, inside, past
// the end), erase (inside, to the end, with counts far past the end), append
// of strings and characters, copies changed on write, and the eight searches
// with their start indexes. Every answer is compared with the model's.
//
// Left out on purpose: erase ranges that run past the end with a count
// smaller than the text, and negative counts other than -1. There the stored
// count goes down by the count asked for, not by the characters removed, and
// the string answers from that count as documented; a count far past the end
// leaves a negative count, which reads as unknown, and is in the run.
#ifndef KEEL_TESTS_TESTING_STRINGMODEL_H
#define KEEL_TESTS_TESTING_STRINGMODEL_H

#include <stddef.h>
#include <stdint.h>

#include <algorithm>
#include <sstream>
#include <string>

#include <keel/string.h>

#include "testing/scantest.h"
#include "text/utf8.h"

namespace keel {
namespace testkit {

// Where the run takes its choices from: the bytes of a fuzzer's input, or
// of a seeded generator, one or four at a time; 0 once they are used up.
class ByteChoicesC {
public:
    ByteChoicesC(const uint8_t* data, size_t size) : data_(data), size_(size), at_(0) {}
    uint32_t below(uint32_t bound) {
        uint32_t value = 0;
        for (int k = bound <= 256 ? 1 : 4; k > 0; --k)
            value = (value << 8) | (at_ < size_ ? data_[at_++] : 0);
        return value % bound;
    }
    bool exhausted() const { return at_ >= size_; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_;
};

// The model's text in internal form, written by the library's own writer
// (tests/text/utf8_test.cpp pins down its sequences).
inline std::string utf8Of(const std::u32string& text) {
    std::string out;
    for (char32_t c : text) {
        uint8_t bytes[8];
        uint8_t* end = bytes;
        utf8Put(end, c);
        out.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(end - bytes));
    }
    return out;
}

class StringModelRunC {
public:
    explicit StringModelRunC(ByteChoicesC& choices) : choices_(choices) {}

    // Runs until the choices are used up or an answer differs; answers an
    // empty text, or what differed and the operations that led there.
    std::string run() {
        start();
        for (int step = 0; !choices_.exhausted() && step < 400 && failure_.empty(); ++step) {
            typedef StringModelRunC R;
            static void (R::*const operations[16])() = {
                &R::readAt, &R::readAt, &R::readAt, &R::readRun,   &R::length, &R::substring,
                &R::insert, &R::erase,  &R::append, &R::appendOne, &R::copy,   &R::restart,
                &R::search, &R::search, &R::search, &R::search};
            (this->*operations[below(16)])();
        }
        checkText("at the end");
        return failure_.empty() ? std::string() : failure_ + "\nafter:" + log_.str();
    }

private:
    uint32_t below(uint32_t bound) { return choices_.below(bound); }
    uint32_t upTo(int32_t most) { return below(static_cast<uint32_t>(most) + 1); }

    // A character of one to six bytes; mostly short ones, and few kinds in
    // one text so that searches find something.
    char32_t character() {
        static const char32_t few[] = {'a',      0xE9,      0x4E2D,     0x1F600, ' ',
                                       0x10FFFF, 0x3FFFFFF, 0x7FFFFFFF, 'b'};
        static const char32_t ranges[][2] = {{0x80, 0x780},           {0x800, 0xF800},
                                             {0x10000, 0x1F0000},     {0x200000, 0x3E00000},
                                             {0x4000000, 0x7C000000}, {1, 0x7F}};
        uint32_t kind = below(8);
        if (kind < 6) return ranges[kind][0] + below(ranges[kind][1]);
        return few[below(sizeof few / sizeof few[0])];
    }

    std::u32string text(uint32_t most, bool ascii) {
        std::u32string t;
        for (uint32_t i = 0, n = below(most + 1); i < n; ++i)
            t += ascii ? char32_t('a' + below(4)) : character();
        return t;
    }

    // A string of the model's text: counted or not, from internal form.
    static StringC made(const std::u32string& t, bool counted) {
        std::string bytes = utf8Of(t);
        StringC s(bytes.data(), static_cast<uint32_t>(bytes.size()), "vutf8");
        if (counted) s.length();
        return s;
    }

    // Mostly short texts, now and then one long enough for the block paths.
    void start() {
        bool ascii = below(3) == 0, counted = below(2) == 0;
        model_ = text(below(8) == 0 ? 120 : 12, ascii);
        string_ = made(model_, counted);
        log_ << "\n  made " << (ascii ? "ascii " : "") << (counted ? "counted " : "uncounted ")
             << model_.size() << " characters";
    }
    void restart() { below(4) == 0 ? start() : readAt(); }

    int32_t size() const { return static_cast<int32_t>(model_.size()); }

    // An index from -1 to a little past the end.
    int32_t anIndex() { return static_cast<int32_t>(upTo(size() + 3)) - 1; }

    void expect(const char* what, int64_t got, int64_t want) {
        if (got != want && failure_.empty())
            failure_ = what + (": got " + std::to_string(got)) + ", want " + std::to_string(want);
    }
    void expectText(const char* what, const StringC& s, const std::u32string& want) {
        if (str(s) != utf8Of(want) && failure_.empty()) failure_ = what;
    }
    void checkText(const char* when) {
        expectText((std::string("text differs ") + when).c_str(), string_, model_);
    }

    void length() { expect("length", string_.length(), size()); }
    int64_t modelAt(int32_t i) const { return i < size() ? static_cast<int64_t>(model_[i]) : 0; }

    void readAt() {
        int32_t i = std::max(anIndex(), 0);
        log_ << "\n  charAt " << i;
        expect("charAt", string_.charAt(i), modelAt(i));
    }

    // A walk backward or forward from some index, as loops do.
    void readRun() {
        int32_t from = anIndex() + 1, step = below(2) == 0 ? -1 : 1;
        log_ << "\n  charAt run from " << from << (step < 0 ? " back" : " forward");
        for (int32_t i = from; i >= 0 && i != from + 6 * step; i += step)
            expect("charAt in a run", string_.charAt(i), modelAt(i));
    }

    void substring() {
        int32_t start = std::max(anIndex(), 0);
        int32_t count = static_cast<int32_t>(upTo(size() + 2)) - 1;
        log_ << "\n  substring " << start << ", " << count;
        StringC part = string_.substring(start, count);
        std::u32string want = start >= size() ? U"" : model_.substr(start, count < 0 ? -1 : count);
        expectText("substring text differs", part, want);
        expect("substring length", part.length(), static_cast<int64_t>(want.size()));
        // The whole text is the same representation; any other part is a
        // new one of its own (a new empty one for a count of 0).
        if (start == 0 && count == -1) {
            expect("substring of the whole is the same", part.getImpl() == string_.getImpl(), 1);
        } else if (start < size()) {
            expect("a part is private", part.getImpl()->isShared(), 0);
        }
    }

    // At 0, past the end, or anywhere inside.
    void insert() {
        uint32_t where = below(3);
        int32_t at = where == 0   ? 0
                     : where == 1 ? size() + 1 + static_cast<int32_t>(below(3))
                                  : static_cast<int32_t>(upTo(size()));
        std::u32string piece = text(4, below(2) == 0);
        log_ << "\n  insert at " << at << " of " << piece.size();
        string_.insert(at, made(piece, below(2) == 0));
        model_.insert(std::min(at, size()), piece);
        checkText("after insert");
    }

    // To the end (-1, or counts far past it), or a count that stays inside.
    void erase() {
        int32_t start = static_cast<int32_t>(upTo(size()));
        uint32_t kind = below(4);
        int32_t count = kind == 0   ? -1
                        : kind == 1 ? INT32_MAX - static_cast<int32_t>(below(3))
                        : kind == 2 ? (1 << 30) + static_cast<int32_t>(below(1 << 20))
                                    : static_cast<int32_t>(upTo(size() - start));
        log_ << "\n  erase " << start << ", " << count;
        string_.erase(start, count);
        model_.erase(start, count == -1 || start + int64_t(count) >= size() ? -1 : count);
        checkText("after erase");
    }

    void append() {
        std::u32string piece = text(6, below(3) == 0);
        log_ << "\n  append " << piece.size();
        string_.append(made(piece, below(2) == 0));
        model_ += piece;
        checkText("after append");
    }

    // A value of 0x80000000 or more has no encoded form: nothing is added.
    void appendOne() {
        bool none = below(16) == 0;
        uint32_t c = none ? 0x80000000u + below(0x7FFFFFFF) : static_cast<uint32_t>(character());
        log_ << "\n  append character " << c;
        string_.append(c);
        if (!none) model_ += char32_t(c);
        checkText("after append of a character");
    }

    // A copy shares the representation until one of the two changes.
    void copy() {
        StringC copy = string_;
        std::u32string before = model_;
        log_ << "\n  copy, then change";
        below(2) == 0 ? appendOne() : insert();
        expectText("a copy changed with the original", copy, before);
        expect("length of the copy", copy.length(), static_cast<int64_t>(before.size()));
        if (below(2) == 0) {
            string_ = copy;
            model_ = before;
        }
    }

    // The needle: a substring of the text, or a short random one.
    std::u32string needle() {
        if (model_.empty() || below(3) == 0) return text(3, false);
        return model_.substr(below(static_cast<uint32_t>(model_.size())), 1 + below(3));
    }

    // The model's answer of a character search: the first index from
    // `first` on, or the last in front of `limit`, whose character is in the
    // set (`wanted`) or not in it.
    int64_t modelScan(const std::u32string& set, bool wanted, bool last, int32_t first,
                      int32_t limit) const {
        for (int32_t k = 0, n = last ? limit : size() - first; k < n; ++k) {
            int32_t i = last ? limit - 1 - k : first + k;
            if ((set.find(model_[i]) != std::u32string::npos) == wanted) return i;
        }
        return -1;
    }

    // 0-1: a character forward and backward, 2-3: a string, 4-7: the set
    // searches (of, last of, not of, last not of).
    void search() {
        int op = static_cast<int>(below(8));
        std::u32string n = needle();
        int32_t at = static_cast<int32_t>(upTo(size() + 4)) - 2;
        StringC other = made(n, below(2) == 0);
        log_ << "\n  search " << op << " of " << n.size() << " from " << at;
        // Forward: from `at` + 1 (the start for anything below -1) on.
        // Backward: in front of `at` (the end for -1 and past the end; no
        // answer for anything below -1).
        int32_t first = at < -1 ? 0 : at + 1;
        int32_t limit = at < -1 ? 0 : at == -1 || at > size() ? size() : at;
        bool last = op % 2 == 1;
        uint32_t c = n.empty() ? 'a' : n[0];
        int32_t got;
        int64_t want = -1;
        if (op < 2) {
            got = last ? string_.findLast(c, at) : string_.find(c, at);
            want = modelScan(std::u32string(1, c), true, last, first, limit);
        } else if (op < 4) {
            got = last ? string_.findLast(other, at) : string_.find(other, at);
            // Backward, the match must end at or in front of `limit`.
            size_t hit = n.empty() || (last && static_cast<size_t>(limit) < n.size())
                             ? std::u32string::npos
                         : last ? model_.rfind(n, limit - n.size())
                                : model_.find(n, first);
            if (hit != std::u32string::npos) want = static_cast<int64_t>(hit);
        } else {
            bool wanted = op < 6;
            got = op == 4   ? string_.findFirstOf(other, at)
                  : op == 5 ? string_.findLastOf(other, at)
                  : op == 6 ? string_.findFirstNotOf(other, at)
                            : string_.findLastNotOf(other, at);
            if (!wanted || !n.empty()) want = modelScan(n, wanted, last, first, limit);
        }
        expect("search", got, want);
    }

    ByteChoicesC& choices_;
    StringC string_;
    std::u32string model_;
    std::ostringstream log_;
    std::string failure_;
};

}  // namespace testkit
}  // namespace keel

#endif
