#include "errors/catalog.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/types.h>
#include <unistd.h>

#include <keel/locale.h>

#include "errors/error.h"
#include "locale/locale.h"
#include <keel/replace.h>

namespace keel {

const char kCatalogMagic[8] = {'t', 'a', 'v', 'r', 'i', 'n', 'o', 'c'};

namespace {

uint32_t bigEndian32(const unsigned char* bytes) {
    return (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) | (uint32_t(bytes[2]) << 8) |
           bytes[3];
}

uint32_t bigEndian16(const unsigned char* bytes) { return (uint32_t(bytes[0]) << 8) | bytes[1]; }

// Reads exactly `size` bytes at `offset`. The descriptor is the catalog's
// own and no one observes its position, so pread does in one system call
// what a seek and a read do in two (and two threads looking up at once no
// longer move each other's position). The 64-bit form reads every offset a
// record can name on i386 as well, so both targets answer alike.
bool readAt(int handle, void* buffer, uint32_t size, uint64_t offset) {
    ssize_t got = pread64(handle, buffer, size, static_cast<off64_t>(offset));
    return got >= 0 && static_cast<uint32_t>(got) == size;
}

StringC textOf(const StringC& string, int32_t start, int32_t count) {
    return string.substring(start, count);
}

bool endsWithSeparator(const StringC& text, uint32_t* separator) {
    int32_t length = text.length();
    if (length <= 1) return false;
    uint32_t last = text.charAt(length - 1);
    if (last != '/' && last != '\\') return false;
    *separator = last;
    return true;
}

}  // namespace

ErrCatalogC::ErrCatalogC(const StringC& fileName) : fileName(fileName), handle(-1), count(0) {
    open();
}

ErrCatalogC::~ErrCatalogC() {
    if (handle >= 0) ::close(handle);
}

bool ErrCatalogC::tryOpen(const StringC& name) {
    const char* path = name.textSystem();
    // Read-only, as the catalog is only read. O_NONBLOCK keeps a name that
    // turns out to be a FIFO or a terminal from hanging the open and the
    // header read (they then fail the magic test); it changes nothing for a
    // regular file. O_CLOEXEC keeps the descriptor out of child programs.
    int fd = path ? ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    name.releaseSystem(path);
    handle = fd;
    return fd >= 0;
}

void ErrCatalogC::open() {
    StringC placeholder("%L", "ascii");
    int32_t at = fileName.find(placeholder);
    if (at < 0) {
        if (fileName.isEmpty()) return;
        tryOpen(fileName);
    } else {
        StringC prefix = textOf(fileName, 0, at);
        StringC suffix = textOf(fileName, at + 2, -1);
        LocaleRegionI* region = defaultLocale()->getRegion(2);
        StringC first = lowerCaseCopy(region->languageCode());
        StringC second = lowerCaseCopy(region->languageLongCode());
        StringC third = lowerCaseCopy(region->territoryCode());
        StringC dash("-", "ascii");
        const StringC tries[] = {
            prefix + first + dash + third + suffix,
            prefix + second + dash + third + suffix,
            prefix + first + suffix,
            prefix + second + suffix,
        };
        bool opened = false;
        for (const StringC& name : tries) {
            if ((opened = tryOpen(name))) break;
        }
        if (!opened) {
            // Last the name with no locale at all: "allcat.%L.cat" becomes
            // "allcat.cat", "dir/%L/x" becomes "dir/x".
            if (prefix.length() > 1 && prefix.charAt(prefix.length() - 1) == '.') {
                prefix = textOf(prefix, 0, prefix.length() - 1);
            }
            uint32_t separator = 0;
            if (endsWithSeparator(prefix, &separator) && suffix.charAt(0) == separator) {
                prefix = textOf(prefix, 0, prefix.length() - 1);
            }
            if (prefix.isEmpty() && (suffix.charAt(0) == '\\' || suffix.charAt(0) == '/')) {
                prefix = StringC(".", "ascii");
            }
            tryOpen(prefix + suffix);
        }
    }
    if (handle < 0) return;
    unsigned char header[kCatalogHeaderSize];
    if (readAt(handle, header, kCatalogHeaderSize, 0) &&
        memcmp(header, kCatalogMagic, sizeof kCatalogMagic) == 0) {
        count = bigEndian32(header + 8);
        return;
    }
    ::close(handle);
    handle = -1;
}

char* ErrCatalogC::lookUp(uint32_t code) {
    if (handle < 0 || !errorHasText(code) || count == 0) return nullptr;
    const uint32_t set = errorSet(code);
    const uint32_t number = errorNumber(code);
    // Signed 64-bit bounds: a count up to 2^32 - 1 neither overflows the
    // middle nor wraps `high` below 0 when the search runs off the front.
    int64_t low = 0;
    int64_t high = static_cast<int64_t>(count) - 1;
    unsigned char record[kCatalogRecordSize];
    while (low <= high) {
        int64_t middle = (low + high) / 2;
        uint64_t at = static_cast<uint64_t>(middle + 1) * kCatalogRecordSize;
        if (!readAt(handle, record, kCatalogRecordSize, at)) return nullptr;
        uint32_t recordSet = bigEndian16(record);
        uint32_t recordNumber = bigEndian32(record + 4);
        if (set < recordSet || (set == recordSet && number < recordNumber)) {
            high = middle - 1;
        } else if (set > recordSet || number > recordNumber) {
            low = middle + 1;
        } else {
            uint32_t length = bigEndian16(record + 2);
            char* text = new char[length + 1];
            if (!readAt(handle, text, length, bigEndian32(record + 8))) {
                delete[] text;
                return nullptr;
            }
            text[length] = 0;
            return text;
        }
    }
    return nullptr;
}

StringC ErrCatalogC::fetch(uint32_t* severity, uint32_t code, const char* defaultText,
                           const char* selector) {
    uint32_t ignored = 4;
    if (!severity) severity = &ignored;
    *severity = 4;
    char* found = handle >= 0 ? lookUp(code) : nullptr;
    if (!found) {
        if (!defaultText || *defaultText == 0) return StringC();
        // The parsing routine reads the text where it stands and copies what
        // it keeps, so the caller's default text serves as the copy.
        return parseMessageText(defaultText, severity, selector);
    }
    StringC text = parseMessageText(found, severity, selector);
    delete[] found;
    return text;
}

uint32_t ErrCatalogC::setQualifiers(StringC text) {
    qualifiers = text;
    return 0;
}

}  // namespace keel
