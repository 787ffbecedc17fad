// Word frequencies of a text file whose encoding is not known beforehand,
// counted in keel's string map. With no argument it checks itself on a
// UTF-16 file with a byte-order mark that it writes first.
//
//     wordfreq [file]
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <keel/keel.h>
#include <keel/toolkit.h>

namespace {

// The encoding by the byte-order mark: "utf16" reads FF FE and FE FF itself;
// a UTF-8 mark is skipped here, since the "utf8" decoder keeps it as U+FEFF.
keel::StringC decode(const std::string& bytes) {
    if (bytes.size() >= 2 && ((bytes[0] == '\xFF' && bytes[1] == '\xFE') || (bytes[0] == '\xFE' && bytes[1] == '\xFF'))) {
        return keel::StringC(bytes.data(), static_cast<uint32_t>(bytes.size()), "utf16");
    }
    size_t skip = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
    return keel::StringC(std::string_view(bytes).substr(skip));
}

std::vector<std::pair<keel::StringC, int>> countWords(const keel::StringC& text) {
    keel::StringMapM<int> counts;
    keel::StringArrayC* words = keel::splitString(text.toLower(), keel::StringC(" \t\r\n.,;:!?\"()"), true, false,
                                                  keel::kNoEscape);
    for (uint32_t i = 0; i < words->size(); ++i) {
        const keel::StringC& word = *words->at(i);
        auto hit = counts.lookup(word);
        if (hit.found()) {
            ++hit.value();
        } else {
            counts.add(word, 1);
        }
    }
    delete words;
    std::vector<std::pair<keel::StringC, int>> result;
    keel::HashIteratorM<keel::StringC, int, keel::StringMapHashOf<keel::StringC>, keel::equal<keel::StringC>> walk(&counts);
    uint32_t status = 0;
    while (auto* element = walk.next(status)) result.emplace_back(element->storedKey, element->value);
    // Most frequent first, then by the words' order.
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    std::string path;
    if (argc > 1) {
        path = argv[1];
    } else {
        path = "wordfreq-sample.txt";
        // "Der Bär, der BÄR und der Hund." in UTF-16LE with its mark.
        std::u16string sample = u"\ufeffDer B\u00e4r, der B\u00c4R und der Hund.";
        std::ofstream out(path, std::ios::binary);
        for (char16_t unit : sample) out.put(static_cast<char>(unit & 0xFF)).put(static_cast<char>(unit >> 8));
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::cerr << "cannot read " << path << "\n";
        return 2;
    }
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    keel::StringC text = decode(bytes);
    std::string listing;
    for (const auto& entry : countWords(text)) {
        listing += keel::format("%-6S %d\n", entry.first, entry.second).toStdString();
    }
    std::cout << listing;
    if (argc > 1) return 0;
    const std::string expected = "der    3\nb\xc3\xa4r    2\nhund   1\nund    1\n";
    if (listing != expected) {
        std::cerr << "expected:\n" << expected;
        return 1;
    }
    return 0;
}
