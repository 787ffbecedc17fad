// The catalog compiler and dumper: plain text source to keel's binary
// message catalog and back. The functions work on bytes in memory, so the
// keel tool's catalog command, the tests and any other front end share
// them; they use the standard library only.
//
// Source: one message a line, fields separated by blanks or tabs:
//
//     # comment (a line whose first non-blank character is '#'); blank lines
//     203 16 e Impossible d'ouvrir le fichier '%1$S'
//     0x12 7 - {w} already in brace form, stored as written
//
//   set       0 to 65535, decimal or 0x hexadecimal (codes carry 0 to 4095)
//   number    0 to 4294967295 (codes carry 0 to 65535)
//   severity  severity letters ('#', 'm', 'i', 'w', 'e', 'f', capitals as
//             qualifiers): the text is stored as "{letters} text"; or '-':
//             stored exactly as written
//   text      the rest of the line, with the escapes \\ \n \r \t \xHH (any
//             byte, 0x01 for the group form among them)
//
// Duplicates are errors; entries out of order are reported and sorted. The
// binary is laid out canonically: header, sorted index, texts in index order.
// dump gives the canonical source, so compile(dump(file)) is byte-identical
// to every file that compile made.
#ifndef KEEL_TOOLS_CATALOGTOOL_H
#define KEEL_TOOLS_CATALOGTOOL_H

#include <stdint.h>

#include <string>
#include <vector>

namespace keel {
namespace catalogtool {

struct DiagnosticT {
    uint32_t line;  // source line (compile) or index record (dump, from 1); 0 for the whole file
    bool error;     // false: a warning, the output is still made
    std::string message;
};

struct MessageT {
    uint32_t set;
    uint32_t number;
    std::string text;  // the bytes stored in the catalog
};

// Source to binary. False (and `binary` untouched) when a diagnostic is an
// error.
bool compileCatalog(const std::string& source, std::string& binary,
                    std::vector<DiagnosticT>& diagnostics);

// The messages of a binary catalog, checked: magic, count against the size,
// every text inside the file, order and uniqueness. False on the first
// fault that makes the file unreadable; a layout that compile would not
// make is a warning.
bool readCatalog(const std::string& binary, std::vector<MessageT>& messages,
                 std::vector<DiagnosticT>& diagnostics);

// Binary to canonical source.
bool dumpCatalog(const std::string& binary, std::string& source,
                 std::vector<DiagnosticT>& diagnostics);

// The stored text of set and number, as the library's binary search finds it.
bool lookupCatalog(const std::string& binary, uint32_t set, uint32_t number, std::string& text);

// "line 12: error: ..." / "record 3: warning: ..." for people.
std::string describe(const DiagnosticT& diagnostic, const char* unit);

}  // namespace catalogtool
}  // namespace keel

#endif
