// TextReaderC: characters and lines on top of something that hands out text
// in pieces. A derived class supplies read and pushBack (and close); the
// character, line and whole-text reads are built on those two here.
//
//     keel::StringC line;
//     while (reader->readLine(line) == 0) use(line);   // 0xE0CB001A at the end
//
// Lines end at a line feed, a carriage return, or the two together; a last
// line without an end is a line, and no empty line follows a final end.
#ifndef KEEL_FILES_TEXTREADER_H
#define KEEL_FILES_TEXTREADER_H

#include <stdint.h>

#include <keel/string.h>

namespace keel {

// readLine's answer at the end of the text; never reported.
const uint32_t kEndOfText = 0xE0CB001Au;

class TextReaderC {
public:
    virtual ~TextReaderC() {}
    virtual uint32_t close() { return 0; }
    // One character, or -1 at the end.
    virtual int32_t readChar();
    // A new string of at most `count` characters (it may be fewer before the
    // end), owned by the caller; null only at the end.
    virtual StringC* read(uint32_t count) = 0;
    // Puts text back in front of what is still to be read.
    virtual void pushBack(const StringC& text) = 0;
    // The next line as a new string owned by the caller, or null at the end.
    virtual StringC* readLine();
    // The next line into `line`: 0, or kEndOfText at the end.
    virtual uint32_t readLine(StringC& line);
    // Everything still to be read.
    virtual StringC readAll();
};

}  // namespace keel

#endif
