#include "text/format.h"

namespace keel {

// Placeholder until the renderer lands: copies the format text unchanged.
void renderFormat(CharSinkFn sink, void* context, StringImplI* format, const ArgListC&) {
    for (int32_t i = 0;; ++i) {
        uint32_t c = format->charAt(i);
        if (c == 0) break;
        sink(context, c);
    }
}

}  // namespace keel
