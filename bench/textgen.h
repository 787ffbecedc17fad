// Texts that the benchmarks make for themselves: the same kinds of text in
// every run, at whatever size a benchmark asks for.
#ifndef KEEL_BENCH_TEXTGEN_H
#define KEEL_BENCH_TEXTGEN_H

#include <stdint.h>

#include <string>
#include <vector>

namespace bench {

enum TextKind { Ascii = 0, Latin1Heavy = 1, Cjk = 2, Mixed = 3 };

inline const char* kindName(int kind) {
    static const char* const names[] = {"ascii", "latin1", "cjk", "mixed"};
    return names[kind];
}

inline void putUtf8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// Code points of a text of `kind` with about `bytes` bytes of UTF-8.
inline std::vector<uint32_t> makeCodePoints(int kind, size_t bytes) {
    std::vector<uint32_t> out;
    uint32_t seed = 12345;
    size_t size = 0;
    while (size < bytes) {
        seed = seed * 1103515245u + 12345u;
        uint32_t r = (seed >> 16) & 0x7FFF;
        uint32_t c;
        switch (kind) {
        case Ascii:
            c = r % 9 == 0 ? ' ' : 'a' + r % 26;
            break;
        case Latin1Heavy:
            c = r % 3 == 0 ? 0xC0 + r % 0x40 : (r % 7 == 0 ? ' ' : 'a' + r % 26);
            break;
        case Cjk:
            c = r % 10 == 0 ? 0x3001 : 0x4E00 + r % 0x5000;
            break;
        default:
            c = r % 4 == 0 ? 0x1F300 + r % 0x200
                           : (r % 4 == 1 ? 0x4E00 + r % 0x5000 : 'a' + r % 26);
            break;
        }
        out.push_back(c);
        size += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    }
    return out;
}

inline std::string makeUtf8(int kind, size_t bytes) {
    std::string out;
    for (uint32_t c : makeCodePoints(kind, bytes)) putUtf8(out, c);
    return out;
}

}  // namespace bench

#endif
