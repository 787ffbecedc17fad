// File names in natural order, in keel's string array sorted by
// compareNatural: digits 1-9 start numbers that compare by value.
#include <iostream>
#include <string>
#include <vector>

#include <keel/keel.h>
#include <keel/toolkit.h>

namespace {

int natural(void*, const keel::StringC& first, const keel::StringC& second) {
    return first.compareNatural(second, true);
}

}  // namespace

int main() {
    keel::StringArrayC names;
    for (const char* name : {"img12.png", "img10.png", "IMG2.png", "img1.png", "notes.txt", "img9.png"}) {
        names.append(keel::StringC(name, "utf8"));
    }
    names.sortWith(natural, nullptr);
    std::string sorted;
    for (uint32_t i = 0; i < names.size(); ++i) {
        sorted += names.at(i)->toStdString() + "\n";
    }
    std::cout << sorted;
    const std::string expected = "img1.png\nIMG2.png\nimg9.png\nimg10.png\nimg12.png\nnotes.txt\n";
    if (sorted != expected) {
        std::cerr << "expected:\n" << expected;
        return 1;
    }
    return 0;
}
