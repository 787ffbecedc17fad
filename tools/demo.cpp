// A client of keel: uses only the public headers, libkeel.so and the
// toolkit archive.
//
// Makes strings in several ways, shares them, changes them with copy on
// write and reads them back; then formats, counts and sorts with the SDK.
#include <keel/keel.h>
#include <keel/toolkit.h>

#include <stdio.h>

#include <iostream>

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

    // The type-checked format front end, a string map and natural order.
    std::cout << keel::format("%S has %zu bytes and %d characters", copy, copy.view().size(), copy.length()) << "\n";
    keel::StringMapM<int> counts;
    keel::StringArrayC* words = keel::splitString(StringC("b a b c b a", "ascii"), StringC(" ", "ascii"), true,
                                                  false, keel::kNoEscape);
    for (uint32_t i = 0; i < words->size(); ++i) {
        auto hit = counts.lookup(*words->at(i));
        if (hit.found()) {
            ++hit.value();
        } else {
            counts.add(*words->at(i), 1);
        }
    }
    delete words;
    std::cout << keel::format("b counted %d times", counts.lookup(StringC("b", "ascii")).value()) << "\n";
    keel::StringArrayC files;
    for (const char* name : {"img10.png", "img9.png", "img1.png"}) files.append(StringC(name, "utf8"));
    files.sortWith([](void*, const StringC& a, const StringC& b) { return a.compareNatural(b, true); }, nullptr);
    std::cout << "natural order:";
    for (uint32_t i = 0; i < files.size(); ++i) std::cout << ' ' << *files.at(i);
    std::cout << "\n";

    const char* text = copy.textUtf8();
    int ok = text != nullptr && copy.length() == 11;
    copy.releaseUtf8(text);
    return ok ? 0 : 1;
}
