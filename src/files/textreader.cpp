#include "files/textreader.h"

namespace keel {

int32_t TextReaderC::readChar() {
    StringC* text = read(1);
    if (!text) return -1;
    int32_t character = text->isEmpty() ? -1 : static_cast<int32_t>(text->charAt(0));
    delete text;
    return character;
}

StringC* TextReaderC::readLine() {
    StringC line;
    if (readLine(line) != 0) return nullptr;
    return new StringC(line);
}

// Blocks of 128 characters: the block read may run past the line, and what
// follows the line end goes back with pushBack.
uint32_t TextReaderC::readLine(StringC& line) {
    line = StringC();
    for (;;) {
        StringC* block = read(128);
        if (!block) return line.isEmpty() ? kEndOfText : 0;
        int32_t length = block->length();
        int32_t end = -1;
        uint32_t ender = 0;
        for (int32_t i = 0; i < length; ++i) {
            uint32_t c = block->charAt(i);
            if (c == 13 || c == 10) {
                end = i;
                ender = c;
                break;
            }
        }
        if (end < 0) {
            line.append(*block);
            delete block;
            continue;
        }
        line.append(block->substring(0, end));
        int32_t next = end + 1;
        if (ender == 13 && next == length) {
            // A CR LF may be cut by the end of the block: look one further.
            if (StringC* more = read(1)) {
                delete block;
                block = more;
                length = block->length();
                next = 0;
            }
        }
        if (ender == 13 && next < length && block->charAt(next) == 10) ++next;
        if (next < length) pushBack(block->substring(next));
        delete block;
        return 0;
    }
}

StringC TextReaderC::readAll() {
    StringC all;
    while (StringC* part = read(0x7FFFFFFFu)) {
        all.append(*part);
        delete part;
    }
    return all;
}

}  // namespace keel
