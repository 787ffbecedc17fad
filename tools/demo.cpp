// A client of keel: uses only the public headers, libkeel.so and the
// toolkit archive.
//
// Makes strings in several ways, shares them, changes them with copy on
// write and reads them back; then formats, counts and sorts with the SDK.
// Then it enables a trace path for a consumer of its own, reports an error in
// another thread and shows the trace line the report produced and the text
// the thread's error buffer kept. Last it sets a compiled French catalog on
// the locale's language facet and reports through it: the catalog's text
// takes the place of the default text, and the tracer's own trace file,
// turned on by a control file, receives the line of that report. Last, the
// road of one configuration change: one process sets values through the
// registry over an ini file that does not exist yet, and another process
// reads them from the file the commit made.
#include <keel/keel.h>
#include <keel/toolkit.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <string>
#include <thread>

using keel::StringC;

static void show(const char* label, const StringC& string) {
    const char* text = string.textUtf8();
    printf("%-28s \"%s\"  (%d characters, %u bytes%s)\n", label, text ? text : "", string.length(),
           string.textUtf8Length(), string.getImpl()->isShared() ? ", shared" : "");
    string.releaseUtf8(text);
}

// Receives trace lines and prints them.
class PrintingConsumer : public keel::TraceConsumerI {
public:
    uint32_t write(const char* path, int32_t indent, const char* format,
                   keel::ArgListC args) override {
        StringC line = StringC::format(StringC(format, "system-8"), args);
        const char* text = line.textUtf8();
        printf("trace  %*s[%s] %s\n", indent * 2, "", path, text);
        lastLine = text;
        line.releaseUtf8(text);
        return 0;
    }
    uint32_t valueChanged(const char*, int32_t) override { return 0; }
    uint32_t variableCreated(const char*) override { return 0; }
    std::string lastLine;
};

static bool traceAnError() {
    PrintingConsumer consumer;
    keel::TraceControllerI* controller = getTraceController();
    controller->addConsumer(&consumer, 0, 9);
    // Every error stored in any thread's buffer is traced below this path.
    controller->enablePath(&consumer, "Error/Occurrence");

    std::string kept;
    std::thread worker([&kept] {
        StringC file("report.txt", "utf8");
        keel::ErrBufI* errors = getErrBuf();
        errors->addError(0xE0CB0010, 4,
                         keel::formatString("Failed to open file '%S' (attempt %d)", &file, 3));
        uint32_t severity = 0;
        StringC text = errors->takeText(&severity);
        const char* utf8 = text.textUtf8();
        kept = utf8;
        text.releaseUtf8(utf8);
        printf("buffer of the worker thread: \"%s\" (severity %u)\n", kept.c_str(), severity);
    });
    worker.join();

    // A trace point of our own on a path nobody enabled costs two loads.
    static keel::TracePointT quiet = {nullptr, "Demo/Quiet"};
    keel::traceLine(quiet, "never shown %d", 1);

    controller->removeConsumer(&consumer);
    printf("the report produced: \"%s\"\n", consumer.lastLine.c_str());
    return consumer.lastLine == "Error Occurrence (s203m16): " + kept;
}

// A report as a program makes one: the text of the code from the locale's
// catalog, or the program's own default text when the catalog lacks it,
// rendered with the arguments and stored in the thread's buffer.
static StringC report(uint32_t code, const char* defaultText, keel::ArgListC args) {
    StringC name;
    keel::ErrCatalogI* catalog = getLocale(name)->getLanguage(1)->getCatalog();
    uint32_t severity = 4;
    StringC text = catalog->fetch(&severity, code, "", nullptr);
    if (text.isEmpty()) text = StringC(defaultText, "utf8");
    StringC rendered = StringC::format(text, args);
    getErrBuf()->addError(code, severity, rendered);
    return rendered;
}

// Turns on the tracer's own file consumer through a control file, as an
// operator would, so that every stored error is also a line of a trace file.
static std::string traceErrorsToFile() {
    char dir[] = "/tmp/keel-demo-XXXXXX";
    if (!mkdtemp(dir)) return "";
    std::string control = std::string(dir) + "/trace.ctl";
    std::string traceFile = std::string(dir) + "/demo.trc";
    FILE* file = fopen(control.c_str(), "w");
    if (!file) return "";
    fprintf(file,
            "# stored errors, with the process and the "
            "path\nError/Occurrence\nshow_process=1\nshow_class=1\n"
            "filename=%s\n",
            traceFile.c_str());
    fclose(file);
    keel::tracerI()->init("keel_demo", control.c_str(), nullptr);
    return traceFile;
}

// Prints the trace file and takes it away with its directory.
static bool showTraceFile(const std::string& traceFile, const char* expected) {
    std::string lines;
    if (FILE* file = fopen(traceFile.c_str(), "r")) {
        char buffer[512];
        while (fgets(buffer, sizeof buffer, file)) lines += buffer;
        fclose(file);
    }
    printf("the trace file %s holds:\n%s", traceFile.c_str(), lines.c_str());
    keel::TraceDefaultConsumerI* own = keel::tracerI()->getDefaultConsumer();
    getTraceController()->inheritPath(own, "Error/Occurrence");
    own->setFilename("/tmp/%p%t.trc");
    std::string dir = traceFile.substr(0, traceFile.rfind('/'));
    unlink(traceFile.c_str());
    unlink((dir + "/trace.ctl").c_str());
    rmdir(dir.c_str());
    return lines.find(expected) != std::string::npos;
}

static bool reportInFrench() {
#ifdef KEEL_DEMO_CATALOG
    const char* catalogPath = KEEL_DEMO_CATALOG;
#else
    const char* catalogPath = "demo.fr.cat";
#endif
    const char* defaultText = "Failed to open file '%1$S' (attempt %2$d)";
    keel::ArgListC args;
    args.add(StringC("rapport.txt", "utf8")).add(int32_t(3));
    StringC before = report(0xE0CB0010, defaultText, args);
    StringC name;
    getLocale(name)->getLanguage(1)->openCatalog(StringC(catalogPath, "utf8"));
    std::string traceFile = traceErrorsToFile();
    StringC after = report(0xE0CB0010, defaultText, args);
    show("default text", before);
    show("from the French catalog", after);
    bool traced = showTraceFile(traceFile, "Impossible d'ouvrir");
    uint32_t severity = 0;
    StringC kept = getErrBuf()->takeText(&severity);
    const char* text = after.textUtf8();
    bool translated = strncmp(text, "Impossible d'ouvrir", 19) == 0;
    after.releaseUtf8(text);
    return translated && traced && severity == 4 && !kept.isEmpty();
}

// The registry of this process, with `file` mounted at HKCU\Software\Demo.
static keel::ConfRegistryI* demoRegistry(const std::string& file) {
    keel::ConfRegistryI* registry = getConfiguration(1)->getRegistry();
    registry->mountFile(StringC(file.c_str(), "utf8"), StringC("HKCU", "utf8"),
                        StringC("Software\\Demo", "utf8"));
    return registry;
}

static bool changeConfiguration() {
    char dir[] = "/tmp/keel-config-XXXXXX";
    if (!mkdtemp(dir)) return false;
    // Neither the file nor its directory exists: the first commit makes both.
    std::string file = std::string(dir) + "/etc/demo.ini";
    const uint32_t user = keel::ConfRegistryI::kCurrentUser;
    const StringC window("Software\\Demo\\Window", "utf8");
    pid_t writer = fork();
    if (writer == 0) {
        // setString: createKey, the value marked changed in memory, then the
        // commit under the ".lck" lock, merged into ".tmp", moved over the
        // file and read back.
        keel::ConfRegistryI* registry = demoRegistry(file);
        uint32_t code = registry->setString(user, window, StringC("Title", "utf8"),
                                            StringC("keel démo", "utf8"));
        code |= registry->setInteger(user, window, StringC("Width", "utf8"), 640);
        _exit(code == 0 ? 0 : 1);
    }
    int status = 1;
    if (writer < 0 || waitpid(writer, &status, 0) != writer) return false;
    printf("process %d committed %s:\n", static_cast<int>(writer), file.c_str());
    if (FILE* in = fopen(file.c_str(), "r")) {
        char line[256];
        while (fgets(line, sizeof line, in)) printf("    %s", line);
        fclose(in);
    }
    keel::ConfRegistryI* registry = demoRegistry(file);
    StringC title;
    uint32_t width = 0;
    bool read = registry->getString(user, window, StringC("Title", "utf8"), &title) == 0 &&
                registry->getInteger(user, window, StringC("Width", "utf8"), &width) == 0;
    std::cout << "process " << getpid() << " reads Title \"" << title << "\" and Width " << width
              << "\n";
    std::string command = std::string("rm -rf '") + dir + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", dir);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 && read && width == 640 &&
           title.view() == "keel démo";
}

int main() {
    StringC empty;
    StringC greeting("Hello", "utf8");
    StringC letter(static_cast<uint32_t>('!'));
    StringC accented(static_cast<uint32_t>(0xE9));
    const wchar_t wide[] = L"wide text";
    StringC fromWide(wide);
    StringC joined(greeting, StringC(", world", "utf8"));

    show("empty", empty);
    show("from utf8 text", greeting);
    show("one ASCII character", letter);
    show("one character U+00E9", accented);
    show("from wchar_t text", fromWide);
    show("concatenation", joined);

    // Copies share one representation until one of them changes.
    StringC copy = joined;
    show("copy (before change)", copy);
    copy.append(letter);
    copy.append(static_cast<uint32_t>(0x263A));
    show("copy (after append)", copy);
    show("original (unchanged)", joined);

    copy.erase(0, 7);
    show("copy after erase(0, 7)", copy);
    copy.insert(0, StringC("Hi, ", "utf8"));
    show("copy after insert", copy);
    show("substring(4, 5)", copy.substring(4, 5));

    printf("characters of the copy:");
    for (int32_t i = 0; i < copy.length(); ++i) printf(" U+%04X", copy.charAt(i));
    printf("\n");

    // The type-checked format front end, a string map and natural order.
    std::cout << keel::format("%S has %zu bytes and %d characters", copy, copy.view().size(),
                              copy.length())
              << "\n";
    keel::StringMapM<int> counts;
    keel::StringArrayC* words = keel::splitString(
        StringC("b a b c b a", "ascii"), StringC(" ", "ascii"), true, false, keel::kNoEscape);
    for (uint32_t i = 0; i < words->size(); ++i) {
        auto hit = counts.lookup(*words->at(i));
        if (hit.found()) {
            ++hit.value();
        } else {
            counts.add(*words->at(i), 1);
        }
    }
    delete words;
    std::cout << keel::format("b counted %d times", counts.lookup(StringC("b", "ascii")).value())
              << "\n";
    keel::StringArrayC files;
    for (const char* name : {"img10.png", "img9.png", "img1.png"})
        files.append(StringC(name, "utf8"));
    files.sortWith(
        [](void*, const StringC& a, const StringC& b) { return a.compareNatural(b, true); },
        nullptr);
    std::cout << "natural order:";
    for (uint32_t i = 0; i < files.size(); ++i) std::cout << ' ' << *files.at(i);
    std::cout << "\n";

    const char* text = copy.textUtf8();
    int ok = text != nullptr && copy.length() == 11;
    copy.releaseUtf8(text);
    if (!traceAnError()) ok = 0;
    if (!reportInFrench()) ok = 0;
    if (!changeConfiguration()) ok = 0;
    return ok ? 0 : 1;
}
