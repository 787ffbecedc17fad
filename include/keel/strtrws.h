// Trimming trailing white space from plain 8-bit text in place, as lines
// read with fgets need before they are looked at.
//
//     #include <keel/strtrws.h>   // link keel::toolkit (-lkeel_toolkit -lkeel)
//
//     while (fgets(line, sizeof line, in)) use(keel::trimTextRight(line));   // "a b \r\n" -> "a b"
#ifndef KEEL_STRTRWS_H
#define KEEL_STRTRWS_H

namespace keel {

// Removes trailing tabs, line feeds, carriage returns and spaces from `text`
// in place and returns it. A null or empty text is returned as it is.
char* trimTextRight(char* text);

}  // namespace keel

#endif
