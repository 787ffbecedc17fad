// The preference store (work in progress: declarations only so far).
#include "config/prefs.h"

namespace keel {

PrefsC::PrefsC() : fileName(nullptr), sections(nullptr), fallback(nullptr), cursor(nullptr) {}
PrefsC::~PrefsC() {}

}  // namespace keel
