// keel_demo_failure: the road of one failure, with real files.
//
// A program of the installation opens a missing file through the library's
// file service. The system's error and the file service's own come back
// with texts of the library's module catalog, which the catalog switch
// finds through the registry: the value "InstallDir" of HKEY_LOCAL_MACHINE
// "SOFTWARE\Veltrane Corp\Veltrane", "/lib/" and "allcat.%L.cat". Every
// stored error also becomes a line of a trace file, turned on by a control
// file. The file service is not among the six entry points, so this
// program is built on the library's own archive, as its tests are.
//
//     keel_demo_failure MODULE_CATALOG     (the compiled allcat.fr.txt)
#include <keel/keel.h>

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "files/fileserv.h"

using keel::StringC;

namespace {

StringC text(const std::string& value) { return StringC(value.c_str(), "utf8"); }

std::string readAll(const std::string& path) {
    std::string content;
    if (FILE* in = fopen(path.c_str(), "rb")) {
        char buffer[4096];
        size_t got;
        while ((got = fread(buffer, 1, sizeof buffer, in)) > 0) content.append(buffer, got);
        fclose(in);
    }
    return content;
}

bool writeAll(const std::string& path, const std::string& content) {
    FILE* out = fopen(path.c_str(), "wb");
    if (!out) return false;
    bool written = fwrite(content.data(), 1, content.size(), out) == content.size();
    return fclose(out) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) {
#ifdef KEEL_MODULE_CATALOG
    std::string compiled = argc > 1 ? argv[1] : KEEL_MODULE_CATALOG;
#else
    if (argc < 2) return 2;
    std::string compiled = argv[1];
#endif
    char made[] = "/tmp/keel-road-XXXXXX";
    if (!mkdtemp(made)) return 2;
    std::string dir = made;

    // The installation: lib/allcat.cat below the install directory, and the
    // ini file that names that directory, mounted below HKEY_LOCAL_MACHINE.
    mkdir((dir + "/lib").c_str(), 0777);
    std::string catalog = readAll(compiled);
    bool ok = !catalog.empty() && writeAll(dir + "/lib/allcat.cat", catalog);
    ok =
        ok && writeAll(dir + "/install.ini", "[Veltrane Corp\\Veltrane]\nInstallDir=" + dir + "\n");
    keel::ConfRegistryI* registry = getConfiguration(1)->getRegistry();
    ok = ok && registry->mountFile(text(dir + "/install.ini"), text("HKEY_LOCAL_MACHINE"),
                                   text("SOFTWARE")) == 0;
    printf("1. registry: HKLM\\SOFTWARE mounted from %s/install.ini\n", dir.c_str());

    // The trace file: every stored error, and every text found in a catalog.
    std::string traceFile = dir + "/road.trc";
    ok = ok &&
         writeAll(
             dir + "/trace.ctl",
             "Error/Occurrence\nError/Catalog/Fetch\nshow_process=1\nfilename=" + traceFile + "\n");
    keel::tracerI()->init("keel_demo_failure", (dir + "/trace.ctl").c_str(), nullptr);
    printf("2. trace control file %s/trace.ctl turns on Error/Occurrence and Error/Catalog/Fetch\n",
           dir.c_str());

    // The failure itself.
    keel::FileNameC missing(text(dir + "/missing.txt"));
    keel::IOStreamC* stream =
        keel::FlnFileServiceC::instance()->openStream(&missing, 3, 1, 1, false);
    printf("3. openStream(%s/missing.txt) answered %s\n", dir.c_str(),
           stream ? "a stream" : "null");
    keel::ErrBufI* errors = getErrBuf();
    printf("4. the thread's error buffer, from cause to summary:\n");
    for (uint32_t i = 0; i < errors->getCount(); ++i) {
        keel::ErrEntryI* entry = errors->getEntry(i);
        printf("     0x%08X  %s\n", entry->getCode(), std::string(entry->getText().view()).c_str());
    }
    ok = ok && !stream && errors->getCount() == 2 &&
         std::string(errors->getEntry(0)->getText().view()) ==
             "Aucun fichier ou dossier de ce nom" &&
         std::string(errors->getEntry(1)->getText().view()).find("Impossible d'ouvrir") == 0;
    uint32_t severity = 0;
    errors->takeText(&severity);

    // The trace file is written under the trace control latch, line by line.
    getTraceController()->inheritPath(keel::tracerI()->getDefaultConsumer(), "Error/Occurrence");
    std::string lines = readAll(traceFile);
    printf("5. the trace file %s holds:\n%s", traceFile.c_str(), lines.c_str());
    ok = ok && lines.find("from module catalog") != std::string::npos &&
         lines.find("Impossible d'ouvrir") != std::string::npos;
    printf("%s\n",
           ok ? "the road of one failure ran as told" : "FAILED: the road did not run as told");

    std::string command = "rm -rf '" + dir + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", dir.c_str());
    return ok ? 0 : 1;
}
