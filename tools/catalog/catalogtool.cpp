#include "catalogtool.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace keel {
namespace catalogtool {

namespace {

const char kMagic[8] = {'t', 'a', 'v', 'r', 'i', 'n', 'o', 'c'};
const uint64_t kHeaderSize = 12;
const uint64_t kRecordSize = 12;

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
    char buffer[512];
    va_list arguments;
    va_start(arguments, pattern);
    vsnprintf(buffer, sizeof buffer, pattern, arguments);
    va_end(arguments);
    return buffer;
}

void putBig32(std::string& out, uint32_t value) {
    out += static_cast<char>(value >> 24);
    out += static_cast<char>(value >> 16);
    out += static_cast<char>(value >> 8);
    out += static_cast<char>(value);
}

void putBig16(std::string& out, uint32_t value) {
    out += static_cast<char>(value >> 8);
    out += static_cast<char>(value);
}

uint32_t big32(const std::string& in, uint64_t at) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(in.data()) + at;
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | p[3];
}

uint32_t big16(const std::string& in, uint64_t at) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(in.data()) + at;
    return (uint32_t(p[0]) << 8) | p[1];
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Letters the message form reads as a severity: '#', m, i, w, e, f, and
// capitals (qualifiers).
bool isSeverityLetter(char c) {
    return c == '#' || c == 'm' || c == 'i' || c == 'w' || c == 'e' || c == 'f' ||
           (c >= 'A' && c <= 'Z');
}

// A decimal or 0x-hexadecimal number up to `limit`.
bool parseNumber(const std::string& field, uint64_t limit, uint32_t* value) {
    if (field.empty()) return false;
    size_t at = 0;
    int base = 10;
    if (field.size() > 2 && field[0] == '0' && (field[1] == 'x' || field[1] == 'X')) {
        at = 2;
        base = 16;
    }
    uint64_t result = 0;
    for (; at < field.size(); ++at) {
        char c = field[at];
        int digit;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else {
            return false;
        }
        result = result * base + digit;
        if (result > limit) return false;
    }
    *value = static_cast<uint32_t>(result);
    return true;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Decodes the escapes of a text field; false with a message on a bad one.
bool unescape(const std::string& field, std::string& out, std::string& problem) {
    for (size_t i = 0; i < field.size(); ++i) {
        char c = field[i];
        if (c != '\\') {
            out += c;
            continue;
        }
        if (++i == field.size()) {
            problem = "a backslash ends the line (write \\\\ for a backslash)";
            return false;
        }
        switch (field[i]) {
        case '\\':
            out += '\\';
            break;
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case 'x': {
            int high = i + 1 < field.size() ? hexValue(field[i + 1]) : -1;
            int low = i + 2 < field.size() ? hexValue(field[i + 2]) : -1;
            if (high < 0 || low < 0) {
                problem = "\\x must be followed by two hexadecimal digits";
                return false;
            }
            out += static_cast<char>(high * 16 + low);
            i += 2;
            break;
        }
        default:
            problem = format("unknown escape \\%c (known: \\\\ \\n \\r \\t \\xHH)", field[i]);
            return false;
        }
    }
    return true;
}

void escapeInto(std::string& out, const std::string& text) {
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        bool edge = i == 0 || i + 1 == text.size();
        if (c == '\\') {
            out += "\\\\";
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F || (c == ' ' && edge)) {
            // Blanks at either end would be lost to editors and to the
            // field separator: they are written as escapes.
            out += format("\\x%02X", c);
        } else {
            out += static_cast<char>(c);
        }
    }
}

struct EntryT {
    MessageT message;
    uint32_t line;
};

bool lessThan(const MessageT& a, const MessageT& b) {
    return a.set != b.set ? a.set < b.set : a.number < b.number;
}

}  // namespace

std::string describe(const DiagnosticT& diagnostic, const char* unit) {
    std::string text;
    if (diagnostic.line) text = format("%s %u: ", unit, diagnostic.line);
    text += diagnostic.error ? "error: " : "warning: ";
    return text + diagnostic.message;
}

bool compileCatalog(const std::string& source, std::string& binary,
                    std::vector<DiagnosticT>& diagnostics) {
    std::vector<EntryT> entries;
    bool failed = false;
    bool sorted = true;
    auto report = [&](uint32_t line, bool error, const std::string& message) {
        diagnostics.push_back({line, error, message});
        if (error) failed = true;
    };
    uint32_t lineNumber = 0;
    size_t start = 0;
    while (start < source.size()) {
        size_t end = source.find('\n', start);
        if (end == std::string::npos) end = source.size();
        std::string line = source.substr(start, end - start);
        start = end + 1;
        ++lineNumber;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        size_t at = 0;
        while (at < line.size() && isBlank(line[at])) ++at;
        if (at == line.size() || line[at] == '#') continue;
        std::string fields[3];
        for (std::string& field : fields) {
            while (at < line.size() && isBlank(line[at])) ++at;
            size_t fieldStart = at;
            while (at < line.size() && !isBlank(line[at])) ++at;
            field = line.substr(fieldStart, at - fieldStart);
        }
        // Exactly one blank separates the severity from the text, so a text
        // may begin with blanks of its own.
        if (at < line.size()) ++at;
        std::string rawText = line.substr(at);
        EntryT entry;
        entry.line = lineNumber;
        if (!parseNumber(fields[0], 0xFFFF, &entry.message.set)) {
            report(lineNumber, true,
                   format("set '%s' is not a number from 0 to 65535", fields[0].c_str()));
            continue;
        }
        if (!parseNumber(fields[1], 0xFFFFFFFFu, &entry.message.number)) {
            report(lineNumber, true,
                   format("number '%s' is not a number from 0 to 4294967295", fields[1].c_str()));
            continue;
        }
        const std::string& severity = fields[2];
        if (severity.empty()) {
            report(lineNumber, true,
                   "severity missing (letters such as e or w, or - to store the text as written)");
            continue;
        }
        std::string text;
        if (severity != "-") {
            bool letters = true;
            for (char c : severity) letters = letters && isSeverityLetter(c);
            if (!letters) {
                report(lineNumber, true,
                       format("severity '%s' is not made of the letters # m i w e f (capitals "
                              "qualify), nor -",
                              severity.c_str()));
                continue;
            }
            text = "{" + severity + "} ";
        }
        std::string problem;
        if (!unescape(rawText, text, problem)) {
            report(lineNumber, true, problem);
            continue;
        }
        if (text.size() > 0xFFFF) {
            report(lineNumber, true,
                   format("text of %zu bytes; a catalog text holds at most 65535", text.size()));
            continue;
        }
        if (entry.message.set > 0xFFF || entry.message.number > 0xFFFF) {
            report(lineNumber, false,
                   format("s%um%u can never be looked up: a code carries sets up to 4095 and "
                          "numbers up to 65535",
                          entry.message.set, entry.message.number));
        }
        entry.message.text = text;
        if (!entries.empty() && !lessThan(entries.back().message, entry.message)) sorted = false;
        entries.push_back(entry);
    }
    if (!sorted) {
        std::stable_sort(entries.begin(), entries.end(), [](const EntryT& a, const EntryT& b) {
            return lessThan(a.message, b.message);
        });
    }
    for (size_t i = 1; i < entries.size(); ++i) {
        const EntryT& before = entries[i - 1];
        const EntryT& entry = entries[i];
        if (!lessThan(before.message, entry.message)) {
            report(entry.line, true,
                   format("s%um%u is a duplicate of line %u", entry.message.set,
                          entry.message.number, before.line));
        } else if (entry.line < before.line) {
            // In the source this entry stands before one that sorts below it.
            report(entry.line, false,
                   format("s%um%u is out of order (line %u has s%um%u, which sorts before it); "
                          "entries are sorted",
                          entry.message.set, entry.message.number, before.line, before.message.set,
                          before.message.number));
        }
    }
    uint64_t size = kHeaderSize + kRecordSize * entries.size();
    for (const EntryT& entry : entries) size += entry.message.text.size();
    if (size > 0xFFFFFFFFu) {
        report(0, true,
               "the catalog would exceed 4 GiB, beyond the reach of its 32-bit text offsets");
    }
    std::stable_sort(diagnostics.begin(), diagnostics.end(),
                     [](const DiagnosticT& a, const DiagnosticT& b) { return a.line < b.line; });
    if (failed) return false;
    std::string out;
    out.reserve(static_cast<size_t>(size));
    out.append(kMagic, sizeof kMagic);
    putBig32(out, static_cast<uint32_t>(entries.size()));
    uint64_t offset = kHeaderSize + kRecordSize * entries.size();
    for (const EntryT& entry : entries) {
        putBig16(out, entry.message.set);
        putBig16(out, static_cast<uint32_t>(entry.message.text.size()));
        putBig32(out, entry.message.number);
        putBig32(out, static_cast<uint32_t>(offset));
        offset += entry.message.text.size();
    }
    for (const EntryT& entry : entries) out += entry.message.text;
    binary.swap(out);
    return true;
}

bool readCatalog(const std::string& binary, std::vector<MessageT>& messages,
                 std::vector<DiagnosticT>& diagnostics) {
    const uint64_t size = binary.size();
    if (size < kHeaderSize) {
        diagnostics.push_back(
            {0, true,
             format("the file has %llu bytes, fewer than the 12 of a catalog header",
                    static_cast<unsigned long long>(size))});
        return false;
    }
    if (memcmp(binary.data(), kMagic, sizeof kMagic) != 0) {
        diagnostics.push_back(
            {0, true, "not a keel message catalog: the file does not begin with \"tavrinoc\""});
        return false;
    }
    const uint64_t count = big32(binary, 8);
    if (kHeaderSize + kRecordSize * count > size) {
        diagnostics.push_back(
            {0, true,
             format("the header announces %llu messages, but the file of %llu bytes holds index "
                    "records for only %llu "
                    "(truncated?)",
                    static_cast<unsigned long long>(count), static_cast<unsigned long long>(size),
                    static_cast<unsigned long long>((size - kHeaderSize) / kRecordSize))});
        return false;
    }
    std::vector<MessageT> found;
    found.reserve(static_cast<size_t>(count));
    uint64_t expected = kHeaderSize + kRecordSize * count;
    bool canonical = true;
    for (uint64_t i = 0; i < count; ++i) {
        uint64_t at = kHeaderSize + kRecordSize * i;
        MessageT message;
        message.set = big16(binary, at);
        uint32_t length = big16(binary, at + 2);
        message.number = big32(binary, at + 4);
        uint64_t offset = big32(binary, at + 8);
        uint32_t record = static_cast<uint32_t>(i + 1);
        if (offset + length > size) {
            diagnostics.push_back(
                {record, true,
                 format("s%um%u: text at offset %llu, %u bytes long, runs past the end of the file "
                        "(%llu bytes)",
                        message.set, message.number, static_cast<unsigned long long>(offset),
                        length, static_cast<unsigned long long>(size))});
            return false;
        }
        if (!found.empty() && !lessThan(found.back(), message)) {
            diagnostics.push_back(
                {record, true,
                 format("s%um%u does not sort above the record before it (s%um%u): the index must "
                        "be sorted and "
                        "unique, or lookups miss messages",
                        message.set, message.number, found.back().set, found.back().number)});
            return false;
        }
        if (offset != expected) canonical = false;
        expected = offset + length;
        message.text = binary.substr(static_cast<size_t>(offset), length);
        found.push_back(message);
    }
    if (!canonical || expected != size) {
        diagnostics.push_back(
            {0, false,
             "the texts are not laid out one after the other behind the index: compiling the dump "
             "gives an equivalent file, not the same bytes"});
    }
    messages.swap(found);
    return true;
}

bool dumpCatalog(const std::string& binary, std::string& source,
                 std::vector<DiagnosticT>& diagnostics) {
    std::vector<MessageT> messages;
    if (!readCatalog(binary, messages, diagnostics)) return false;
    std::string out;
    for (const MessageT& message : messages) {
        out += format("%u %u ", message.set, message.number);
        const std::string& text = message.text;
        // "{letters} text" comes back as its letters and the text; anything
        // else is written as stored, after '-'.
        size_t close = text.size() > 1 && text[0] == '{' ? text.find('}') : std::string::npos;
        bool lettered = close != std::string::npos && close > 1 && close + 1 < text.size() &&
                        text[close + 1] == ' ';
        for (size_t i = 1; lettered && i < close; ++i) lettered = isSeverityLetter(text[i]);
        if (lettered) {
            out += text.substr(1, close - 1);
            std::string rest = text.substr(close + 2);
            if (!rest.empty()) out += ' ';
            escapeInto(out, rest);
        } else {
            out += '-';
            if (!text.empty()) out += ' ';
            escapeInto(out, text);
        }
        out += '\n';
    }
    source.swap(out);
    return true;
}

bool lookupCatalog(const std::string& binary, uint32_t set, uint32_t number, std::string& text) {
    if (binary.size() < kHeaderSize || memcmp(binary.data(), kMagic, sizeof kMagic) != 0)
        return false;
    int64_t low = 0;
    int64_t high = static_cast<int64_t>(big32(binary, 8)) - 1;
    while (low <= high) {
        int64_t middle = (low + high) / 2;
        uint64_t at = kHeaderSize + kRecordSize * static_cast<uint64_t>(middle);
        if (at + kRecordSize > binary.size()) return false;
        uint32_t recordSet = big16(binary, at);
        uint32_t recordNumber = big32(binary, at + 4);
        if (set < recordSet || (set == recordSet && number < recordNumber)) {
            high = middle - 1;
        } else if (set > recordSet || number > recordNumber) {
            low = middle + 1;
        } else {
            uint64_t offset = big32(binary, at + 8);
            uint32_t length = big16(binary, at + 2);
            // Reading no bytes succeeds wherever the offset points, as it
            // does for the library.
            if (length == 0) {
                text.clear();
                return true;
            }
            if (offset + length > binary.size()) return false;
            text = binary.substr(static_cast<size_t>(offset), length);
            return true;
        }
    }
    return false;
}

}  // namespace catalogtool
}  // namespace keel
