// Opening and creating files by plain 8-bit path, with "-" standing for the
// process's standard input as command-line tools expect.
//
//     FILE* in = keel::openFileOrStandardInput(path, "rb");
#ifndef KEEL_FILES_FOPEN_H
#define KEEL_FILES_FOPEN_H

#include <stdio.h>
#include <sys/types.h>

namespace keel {

// Null for a null path; stdin for "-", whatever `mode` says; otherwise fopen.
FILE* openFileOrStandardInput(const char* path, const char* mode);

// creat(path, mode): a new descriptor open for writing, or -1.
int createFileText(const char* path, mode_t mode);

}  // namespace keel

#endif
