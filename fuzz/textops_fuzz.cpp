// Invariants of the text scanners on fuzzer-made text: trimming, splitting,
// replacing, and escaping with its inverse.
//
// Input layout: byte 0 a separator/special character, byte 1 flags, then
// the text as UTF-8 up to a 0xFF byte, then a second text (find/replace
// material) behind it.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <keel/keel.h>

#include <keel/stringar.h>
#include <keel/escape.h>
#include <keel/replace.h>
#include <keel/split.h>
#include "text/strtoken.h"

namespace {

void check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "invariant broken: %s\n", what);
        abort();
    }
}

bool contains(const keel::StringC& set, uint32_t c) { return set.find(c) >= 0; }

// Character walks stop at an embedded NUL while byte-wise operations do not,
// so the round-trip checks hold only for text without one.
bool hasNul(const keel::StringC& s) {
    const char* t = s.textUtf8();
    bool nul = t && strlen(t) != s.textUtf8Length();
    s.releaseUtf8(t);
    return nul;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > 2048) return 0;
    uint32_t sepChar = data[0] & 0x7F;
    if (sepChar == 0) sepChar = ',';
    uint8_t flags = data[1];
    const uint8_t* rest = data + 2;
    size_t restSize = size - 2;
    const uint8_t* cut = static_cast<const uint8_t*>(memchr(rest, 0xFF, restSize));
    size_t firstSize = cut ? size_t(cut - rest) : restSize;
    keel::StringC text(rest, static_cast<uint32_t>(firstSize), "utf8");
    keel::StringC other =
        cut ? keel::StringC(cut + 1, static_cast<uint32_t>(restSize - firstSize - 1), "utf8")
            : keel::StringC();
    keel::StringC sep(sepChar);

    // Trimming leaves no character of the set at either end, and what is left
    // stands in the text.
    keel::StringC trimmed = keel::trimString(text, keel::defaultTrimSet());
    if (!trimmed.isEmpty() && !hasNul(text)) {
        check(!contains(keel::defaultTrimSet(), trimmed.charAt(0)), "trim left a blank in front");
        check(!contains(keel::defaultTrimSet(), trimmed.charAt(trimmed.length() - 1)),
              "trim left a blank behind");
        check(text.find(trimmed) >= 0, "trimmed text is not part of the source");
    }

    // Splitting on one separator, keeping empty pieces and trimming nothing,
    // then joining with the same separator gives the text back.
    keel::StringArrayC* pieces = keel::splitString(text, sep, false, true, 0xFFFF);
    check(pieces != nullptr, "split gave no array");
    if (!text.isEmpty() && !hasNul(text)) {
        keel::StringC joined = keel::joinStrings(*pieces, sep);
        check(joined.compare(text) == 0, "join of split pieces differs from the text");
    }
    delete pieces;
    // The other forms must hold together too (no crash, no empty pieces without keepEmpty).
    pieces = keel::splitString(text, sep, (flags & 1) != 0, false, (flags & 2) ? 0x5C : 0xFFFF);
    for (uint32_t i = 0; i < pieces->size(); ++i)
        check(!pieces->at(i)->isEmpty(), "empty piece without keepEmpty");
    delete pieces;

    // Replacing: a text replaced by itself is unchanged; a missing text changes nothing.
    bool all = (flags & 4) != 0;
    bool ignoreCase = (flags & 8) != 0;
    if (!other.isEmpty() && !hasNul(other)) {
        keel::StringC same = keel::replaceString(text, other, other, all, -1, false);
        check(same.compare(text) == 0, "replacing a text by itself changed the source");
        keel::StringC replaced = keel::replaceString(text, other, sep, all, -1, ignoreCase);
        if (!ignoreCase && text.find(other) < 0)
            check(replaced.compare(text) == 0, "replacing a missing text changed the source");
    }
    keel::StringC from = other;
    keel::StringC translated = keel::translateChars(text, from, sep, all, -1);
    check(translated.length() == text.length() || hasNul(text), "translation changed the length");

    // Escaping then unescaping gives the source back.
    keel::StringC specials = other;
    specials.append(sep);
    keel::StringC escaped = keel::escapeString(text, specials, 0x5C);
    keel::StringC back = keel::unescapeString(escaped, 0x5C);
    if (!hasNul(text) && !hasNul(specials))
        check(back.compare(text) == 0, "unescape of escape differs from the source");
    return 0;
}
