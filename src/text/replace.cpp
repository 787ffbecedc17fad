#include <keel/replace.h>

namespace keel {

bool equalsNoCase(const StringC& first, const StringC& second) {
    return first.length() == second.length() && first.compareNoCase(second) == 0;
}

void lowerCase(StringC& string) {
    string.makeUnique();
    string.getImpl()->toLower();
}

void upperCase(StringC& string) {
    string.makeUnique();
    string.getImpl()->toUpper();
}

StringC lowerCaseCopy(const StringC& string) {
    StringC copy = string;
    lowerCase(copy);
    return copy;
}

StringC upperCaseCopy(const StringC& string) {
    StringC copy = string;
    upperCase(copy);
    return copy;
}

StringC replaceString(const StringC& source, const StringC& find, const StringC& replacement,
                      bool all, int32_t startIndex, bool ignoreCase) {
    // Each search resumes behind the text just put in, so everything it can
    // still see is source text that lies behind the previous match: searching
    // the source once from left to right finds the same places as searching
    // the changed text again after every replacement, without rebuilding it
    // (or its upper-case form) each time.
    StringC searched = ignoreCase ? upperCaseCopy(source) : source;
    StringC pattern = ignoreCase ? upperCaseCopy(find) : find;
    int32_t found = searched.find(pattern, startIndex);
    if (found < 0) return source;

    int32_t findLength = find.length();
    StringC result;
    int32_t copied = 0;
    do {
        if (found > copied) result.append(source.substring(copied, found - copied));
        result.append(replacement);
        copied = found + findLength;
        if (!all) break;
        found = searched.find(pattern, copied - 1);
    } while (found >= 0);
    if (copied < source.length()) result.append(source.substring(copied));
    return result;
}

StringC translateChars(const StringC& source, StringC& from, const StringC& to, bool all,
                       int32_t startIndex) {
    int32_t toLength = to.length();
    // Cutting is all a length difference can do: a shorter `from` stays.
    if (from.length() > toLength) from.erase(toLength);

    StringC result = source;
    int32_t after = startIndex;
    for (;;) {
        int32_t index = result.findFirstOf(from, after);
        if (index < 0) break;
        int32_t place = from.find(result.charAt(index));
        result.erase(index, 1);
        result.insert(index, StringC(to.charAt(place)));
        if (!all) break;
        // The next search starts behind the character just put in, so a
        // mapping into `from` is not taken up again (and cannot loop).
        after = index;
    }
    return result;
}

}  // namespace keel
