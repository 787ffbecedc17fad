// keel_soak: many writer processes committing changes of one ini file at
// once through the registry, with the lock and commit protocol as it is
// (pauses of a second while another writer holds the lock).
//
//     keel_soak [WRITERS [CHANGES]]      (default 8 writers x 100 changes)
//
// Each writer is a process of its own (fork) that sets CHANGES keys of its
// own, spread over two sections that also hold a comment and a line the
// store does not understand. At the end one more process reads the file
// back: the program prints the time, the count of changes that are not in
// the file, and whether the comment and the unknown line are still there.
// Exit status 0 when nothing was lost.
#include <keel/keel.h>

#include <stdio.h>
#include <stdlib.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

using keel::StringC;

namespace {

const uint32_t kLocalMachine = keel::ConfRegistryI::kLocalMachine;

StringC text(const std::string& value) { return StringC(value.c_str(), "utf8"); }

std::string keyName(int writer, int change) {
    return "w" + std::to_string(writer) + "_" + std::to_string(change);
}
std::string sectionOf(int change) { return change % 2 ? "Soak\\odd" : "Soak\\even"; }

keel::ConfRegistryI* mountedRegistry(const std::string& file) {
    keel::ConfRegistryI* registry = getConfiguration(1)->getRegistry();
    registry->mountFile(text(file), text("HKLM"), text("Software"));
    return registry;
}

double now() {
    timeval time;
    gettimeofday(&time, nullptr);
    return time.tv_sec + time.tv_usec / 1e6;
}

}  // namespace

int main(int argc, char** argv) {
    int writers = argc > 1 ? atoi(argv[1]) : 8;
    int changes = argc > 2 ? atoi(argv[2]) : 100;
    char dir[] = "/tmp/keel-soak-XXXXXX";
    if (!mkdtemp(dir)) return 2;
    std::string file = std::string(dir) + "/soak.ini";
    if (FILE* out = fopen(file.c_str(), "w")) {
        fputs(
            "; soak test\n[Soak\\odd]\nline the store does not understand\n[Soak\\even]\nkeep=1\n",
            out);
        fclose(out);
    }
    double start = now();
    std::vector<pid_t> children;
    for (int w = 0; w < writers; ++w) {
        pid_t child = fork();
        if (child == 0) {
            keel::ConfRegistryI* registry = mountedRegistry(file);
            for (int i = 0; i < changes; ++i) {
                registry->setString(kLocalMachine, text("Software\\" + sectionOf(i)),
                                    text(keyName(w, i)), text(std::to_string(i)));
            }
            // A last commit carries whatever a timed-out one left in memory.
            registry->setAutoCommit(true);
            _exit(0);
        }
        if (child > 0) children.push_back(child);
    }
    for (pid_t child : children) waitpid(child, nullptr, 0);
    double seconds = now() - start;

    keel::ConfRegistryI* registry = mountedRegistry(file);
    int lost = 0;
    for (int w = 0; w < writers; ++w) {
        for (int i = 0; i < changes; ++i) {
            StringC value;
            uint32_t code = registry->getString(kLocalMachine, text("Software\\" + sectionOf(i)),
                                                text(keyName(w, i)), &value);
            if (code != 0 || std::string(value.view()) != std::to_string(i)) ++lost;
        }
    }
    std::string content;
    if (FILE* in = fopen(file.c_str(), "r")) {
        char buffer[4096];
        size_t got;
        while ((got = fread(buffer, 1, sizeof buffer, in)) > 0) content.append(buffer, got);
        fclose(in);
    }
    bool kept = content.find("; soak test\n") != std::string::npos &&
                content.find("line the store does not understand\n") != std::string::npos;
    printf("%d writers x %d changes: %.1f s, %d lost, comment and unknown line %s\n", writers,
           changes, seconds, lost, kept ? "kept" : "LOST");
    std::string command = std::string("rm -rf '") + dir + "'";
    if (system(command.c_str()) != 0) fprintf(stderr, "could not remove %s\n", dir);
    return lost == 0 && kept ? 0 : 1;
}
