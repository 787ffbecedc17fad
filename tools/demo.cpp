// A client of keel: uses only <keel/keel.h> and libkeel.so.
//
// Makes strings in several ways, shares them, changes them with copy on
// write and reads them back.
#include <keel/keel.h>

#include <stdio.h>

using keel::StringC;

static void show(const char* label, const StringC& string) {
    const char* text = string.textUtf8();
    printf("%-28s \"%s\"  (%d characters, %u bytes%s)\n", label, text ? text : "", string.length(),
           string.textUtf8Length(), string.getImpl()->isShared() ? ", shared" : "");
    string.releaseUtf8(text);
}

int main() {
    StringC empty;
    StringC greeting("Hello", "utf8");
    StringC letter(static_cast<uint32_t>('!'));
    StringC accented(static_cast<uint32_t>(0xE9));
    const wchar_t wide[] = L"wide text";
    StringC fromWide(wide);
    StringC joined(greeting, StringC(", world", "utf8"));

    show("empty", empty);
    show("from utf8 text", greeting);
    show("one ASCII character", letter);
    show("one character U+00E9", accented);
    show("from wchar_t text", fromWide);
    show("concatenation", joined);

    // Copies share one representation until one of them changes.
    StringC copy = joined;
    show("copy (before change)", copy);
    copy.append(letter);
    copy.append(static_cast<uint32_t>(0x263A));
    show("copy (after append)", copy);
    show("original (unchanged)", joined);

    copy.erase(0, 7);
    show("copy after erase(0, 7)", copy);
    copy.insert(0, StringC("Hi, ", "utf8"));
    show("copy after insert", copy);
    show("substring(4, 5)", copy.substring(4, 5));

    printf("characters of the copy:");
    for (int32_t i = 0; i < copy.length(); ++i) printf(" U+%04X", copy.charAt(i));
    printf("\n");

    const char* text = copy.textUtf8();
    int ok = text != nullptr && copy.length() == 11;
    copy.releaseUtf8(text);
    return ok ? 0 : 1;
}
