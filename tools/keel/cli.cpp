// The shared pieces of the keel tool: word parsing, exit statuses, failure
// reports through the error buffer, and files read whole or replaced in one
// step. An OutputFileC owns at most one temporary file, which is either
// renamed over the target by commit() or removed.
#include "cli.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <keel/errors.h>
#include <keel/string.h>

namespace keel {
namespace cli {

bool CommandLineC::parse(int argc, char** argv, const OptionT* options, size_t optionCount) {
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const char* word = argv[i];
        if (optionsEnded || word[0] != '-' || word[1] == 0) {
            operands_.push_back(word);
            continue;
        }
        if (strcmp(word, "--") == 0) {
            optionsEnded = true;
            continue;
        }
        if (strcmp(word, "--help") == 0 || strcmp(word, "-h") == 0) {
            help_ = true;
            continue;
        }
        if (word[1] != '-') {
            error_ = std::string("unknown option '") + word + "'";
            return false;
        }
        std::string name(word + 2);
        std::string value;
        bool hasValue = false;
        size_t equals = name.find('=');
        if (equals != std::string::npos) {
            value = name.substr(equals + 1);
            name.resize(equals);
            hasValue = true;
        }
        const OptionT* option = nullptr;
        for (size_t k = 0; k < optionCount; ++k) {
            if (name == options[k].name) option = &options[k];
        }
        if (!option) {
            error_ = "unknown option '--" + name + "'";
            return false;
        }
        if (option->takesValue && !hasValue) {
            if (i + 1 >= argc) {
                error_ = "option '--" + name + "' needs a value";
                return false;
            }
            value = argv[++i];
        } else if (!option->takesValue && hasValue) {
            error_ = "option '--" + name + "' takes no value";
            return false;
        }
        given_.push_back({name, value});
    }
    return true;
}

bool CommandLineC::has(const char* name) const { return value(name) != nullptr; }

const char* CommandLineC::value(const char* name) const {
    // The last one given counts, as with most tools.
    const char* found = nullptr;
    for (const GivenT& given : given_) {
        if (given.name == name) found = given.value.c_str();
    }
    return found;
}

std::vector<std::string> CommandLineC::values(const char* name) const {
    std::vector<std::string> found;
    for (const GivenT& given : given_) {
        if (given.name == name) found.push_back(given.value);
    }
    return found;
}

const char* CommandLineC::operand(size_t index) const {
    return index < operands_.size() ? operands_[index] : nullptr;
}

int dispatchAction(const char* command, const char* help, int argc, char** argv,
                   const ActionT* actions, size_t actionCount) {
    std::string known;
    for (size_t i = 0; i < actionCount; ++i)
        known += (i ? ", " : "") + std::string(actions[i].name);
    if (argc < 2) return usageError(command, "which action? (" + known + ")");
    if (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) return printHelp(help);
    for (size_t i = 0; i < actionCount; ++i) {
        if (strcmp(argv[1], actions[i].name) == 0) return actions[i].run(argc - 1, argv + 1);
    }
    return usageError(command, std::string("no action '") + argv[1] + "' (known: " + known + ")");
}

int usageError(const char* command, const std::string& message) {
    fprintf(stderr, "keel %s: %s\nTry 'keel %s --help'.\n", command, message.c_str(), command);
    return kExitUsage;
}

int printHelp(const char* text) {
    fputs(text, stdout);
    return fflush(stdout) == 0 ? kExitOk : kExitFailed;
}

void reportFailure(uint32_t code, const std::string& text) {
    getErrBuf()->addError(code, 4, StringC(std::string_view(text)));
}

void reportSystemFailure(int error, const char* what, const std::string& path) {
    reportFailure(0xE0000000u | (static_cast<uint32_t>(error) & 0xFFFFu),
                  std::string(what) + " '" + path + "': " + strerror(error));
}

int printFailure() {
    uint32_t highest = 0;
    std::string text = getErrBuf()->takeText(&highest).toStdString();
    // One line: the entries (and the parts of each) joined, cause first.
    std::string line;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string piece = text.substr(start, end - start);
        if (!piece.empty() && piece.back() == '\r') piece.pop_back();
        if (!piece.empty()) line += (line.empty() ? "" : "; ") + piece;
        start = end + 1;
    }
    if (line.empty()) line = "failed";
    fprintf(stderr, "keel: %s\n", line.c_str());
    return kExitFailed;
}

bool readWholeFile(const std::string& path, std::string& content) {
    int fd = path == "-" ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        reportSystemFailure(errno, "cannot open", path);
        return false;
    }
    content.clear();
    char chunk[65536];
    bool ok = true;
    for (;;) {
        ssize_t got = ::read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            reportSystemFailure(errno, "cannot read", path);
            ok = false;
            break;
        }
        if (got == 0) break;
        content.append(chunk, static_cast<size_t>(got));
    }
    if (fd != 0) ::close(fd);
    return ok;
}

bool writeAll(int fd, const void* bytes, size_t count) {
    const char* p = static_cast<const char*>(bytes);
    while (count > 0) {
        ssize_t done = ::write(fd, p, count);
        if (done < 0 && errno == EINTR) continue;
        if (done < 0) return false;
        p += done;
        count -= static_cast<size_t>(done);
    }
    return true;
}

int printOutput(const std::string& text) {
    if (writeAll(1, text.data(), text.size())) return kExitOk;
    reportSystemFailure(errno, "cannot write", "-");
    return printFailure();
}

OutputFileC::~OutputFileC() { abandon(); }

bool OutputFileC::open(const std::string& path) {
    path_ = path;
    if (path == "-") {
        fd_ = 1;
        return true;
    }
    struct stat info;
    bool inPlace = lstat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
    if (inPlace) {
        fd_ = ::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
        if (fd_ < 0) {
            reportSystemFailure(errno, "cannot open", path);
            return false;
        }
        ownsDescriptor_ = true;
        return true;
    }
    temporary_ = path + ".XXXXXX";
    fd_ = mkstemp(&temporary_[0]);
    if (fd_ < 0) {
        reportSystemFailure(errno, "cannot create a file beside", path);
        temporary_.clear();
        return false;
    }
    ownsDescriptor_ = true;
    // mkstemp makes 0600; the new file gets what a plain creation would
    // give (0666 less the umask), an existing one keeps its permissions.
    mode_t mode = 0;
    if (stat(path.c_str(), &info) == 0) {
        mode = info.st_mode & 07777;
    } else {
        mode_t mask = umask(0);
        umask(mask);
        mode = 0666 & ~mask;
    }
    fchmod(fd_, mode);
    return true;
}

bool OutputFileC::write(const void* bytes, size_t count) {
    if (writeAll(fd_, bytes, count)) return true;
    reportSystemFailure(errno, "cannot write", path_);
    return false;
}

bool OutputFileC::commit() {
    if (fd_ < 0) return false;
    bool ok = true;
    if (!temporary_.empty()) {
        // The data reaches the disk before the name points at it.
        if (fdatasync(fd_) != 0) {
            reportSystemFailure(errno, "cannot write", path_);
            ok = false;
        }
    }
    if (ownsDescriptor_ && ::close(fd_) != 0 && ok) {
        reportSystemFailure(errno, "cannot write", path_);
        ok = false;
    }
    if (!ownsDescriptor_ && fd_ == 1 && fflush(stdout) != 0 && ok) {
        reportSystemFailure(errno, "cannot write", path_);
        ok = false;
    }
    fd_ = -1;
    ownsDescriptor_ = false;
    if (!temporary_.empty()) {
        if (ok && rename(temporary_.c_str(), path_.c_str()) != 0) {
            reportSystemFailure(errno, "cannot replace", path_);
            ok = false;
        }
        if (!ok) unlink(temporary_.c_str());
        temporary_.clear();
    }
    return ok;
}

void OutputFileC::abandon() {
    if (ownsDescriptor_ && fd_ >= 0) ::close(fd_);
    fd_ = -1;
    ownsDescriptor_ = false;
    if (!temporary_.empty()) unlink(temporary_.c_str());
    temporary_.clear();
}

}  // namespace cli
}  // namespace keel
