#include <keel/strtrws.h>

#include <string.h>

namespace keel {

char* trimTextRight(char* text) {
    if (!text || !*text) return text;
    size_t length = strlen(text);
    while (length > 0) {
        char c = text[length - 1];
        if (c != '\t' && c != '\n' && c != '\r' && c != ' ') break;
        --length;
    }
    text[length] = '\0';
    return text;
}

}  // namespace keel
