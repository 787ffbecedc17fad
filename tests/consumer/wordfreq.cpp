// Word frequencies of a UTF-16 text with a byte-order mark, counted in
// keel's string map, as a client of the installed SDK writes it: it checks
// its own listing and exits 1 when it differs.
#include <algorithm>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <keel/keel.h>
#include <keel/toolkit.h>

int main() {
    // "Der Bär, der BÄR und der Hund." in UTF-16LE with its mark, which the
    // "utf16" decoder reads and drops.
    std::string bytes;
    for (char16_t unit : std::u16string(u"\ufeffDer B\u00e4r, der B\u00c4R und der Hund."))
        bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    keel::StringC text(bytes.data(), static_cast<uint32_t>(bytes.size()), "utf16");
    keel::StringMapM<int> counts;
    keel::StringArrayC* words =
        keel::splitString(text.toLower(), keel::StringC(" .,"), true, false, keel::kNoEscape);
    for (uint32_t i = 0; i < words->size(); ++i) {
        auto hit = counts.lookup(*words->at(i));
        if (hit.found()) {
            ++hit.value();
        } else {
            counts.add(*words->at(i), 1);
        }
    }
    delete words;
    std::vector<std::pair<keel::StringC, int>> result;
    keel::HashIteratorM<keel::StringC, int, keel::StringMapHashOf<keel::StringC>,
                        keel::equal<keel::StringC>>
        walk(&counts);
    uint32_t status = 0;
    while (auto* element = walk.next(status))
        result.emplace_back(element->storedKey, element->value);
    // Most frequent first, then by the words' order.
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    std::string listing;
    for (const auto& entry : result)
        listing += keel::format("%-6S %d\n", entry.first, entry.second).toStdString();
    std::cout << listing;
    const std::string expected = "der    3\nb\xc3\xa4r    2\nhund   1\nund    1\n";
    if (listing == expected) return 0;
    std::cerr << "expected:\n" << expected;
    return 1;
}
