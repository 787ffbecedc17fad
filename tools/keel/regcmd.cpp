// `keel reg`: reads and changes the configuration registry the way a
// program does, through getConfiguration(1)->getRegistry(). The registry
// names no file of its own, so the ini files that a program mounts are named
// with --mount FILE=POINT; a change goes through the registry's commit (the
// ".lck" lock, a merge into the file's current content, a move over it), so
// it is safe while programs run and keeps other writers' changes.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include <keel/config.h>
#include <keel/string.h>

#include "cli.h"
#include "commands.h"

namespace keel {
namespace cli {

namespace {

const char kRegHelp[] =
    "usage: keel reg get    --mount FILE=POINT... PATH\n"
    "       keel reg set    --mount FILE=POINT... PATH VALUE\n"
    "       keel reg delete --mount FILE=POINT... [--key [--recursive]] PATH\n"
    "       keel reg list   --mount FILE=POINT... PATH\n"
    "\n"
    "The registry is a tree of keys over ini files: a program mounts each of its ini\n"
    "files at a point of the tree, each [section] of the file is a key below that\n"
    "point and each name=value line a value. --mount does the same for this\n"
    "command: FILE is the ini file, POINT a root key and path, for example\n"
    "    --mount /etc/app.ini='HKLM\\Software\\App'\n"
    "(roots: HKLM or HKEY_LOCAL_MACHINE, HKCU or HKEY_CURRENT_USER).\n"
    "\n"
    "get     prints the value at PATH (root\\key\\...\\name)\n"
    "set     sets the value at PATH to VALUE, making its key when needed\n"
    "delete  removes the value at PATH; with --key the key at PATH, which must be\n"
    "        empty unless --recursive is given\n"
    "list    prints the child keys ('Name\\') and the values ('name=value') of the key\n"
    "        at PATH\n"
    "\n"
    "A change is written at once under the file's lock (FILE.lck, up to 20 tries a\n"
    "second apart) and merged into what the file holds by then, so programs that use\n"
    "the file meanwhile keep their own changes.\n"
    "\n"
    "Exit status: 0 success, 1 failure (one line on stderr), 2 usage error.\n";

// The registry's codes, for people.
std::string codeText(uint32_t code) {
    const char* text = "failed";
    switch (code) {
    case 0xE1370065u:
        text = "the change could not be written to its file";
        break;
    case 0xE1370066u:
        text = "no more entries";
        break;
    case 0xE1370067u:
        text = "the buffer is too small";
        break;
    case 0xE1370069u:
        text = "not found";
        break;
    case 0xE137006Au:
        text = "the key is not empty (--recursive removes it with everything below it)";
        break;
    case 0xE137006Bu:
        text = "not an open key";
        break;
    case 0xE137006Eu:
        text = "an argument is missing";
        break;
    case 0xE1370072u:
        text = "the value is too long";
        break;
    case 0xE1370074u:
        text = "the file is already mounted";
        break;
    case 0xE1370077u:
        text = "not a registry path (it starts with a root key such as HKLM)";
        break;
    default:
        break;
    }
    char number[16];
    snprintf(number, sizeof number, "0x%08X", code);
    return std::string(text) + " (" + number + ")";
}

int failed(uint32_t code, const std::string& subject) {
    reportFailure(code, "'" + subject + "': " + codeText(code));
    return printFailure();
}

StringC text(const std::string& bytes) { return StringC(bytes.c_str(), "system-8"); }

// Root, key and value name of a value's path. The registry's parsePath
// leaves the key's last backslash on it ("A\B\" of "HKLM\A\B\V"); a
// program names the key without it, and so does the tool.
uint32_t splitValuePath(ConfRegistryI* registry, const std::string& path, uint32_t* root,
                        StringC* subKey, StringC* name) {
    uint32_t code = registry->parsePath(text(path), root, subKey, name);
    int32_t length = subKey->length();
    if (code == 0 && length > 0 && subKey->charAt(length - 1) == '\\')
        *subKey = subKey->substring(0, length - 1);
    return code;
}

// One call of a reg action: its words, the registry with the files
// mounted, and PATH split into root, key and (for a value) name.
struct RequestT {
    CommandLineC line;
    ConfRegistryI* registry = nullptr;
    std::string path;
    uint32_t root = 0;
    StringC subKey;
    StringC name;
};

// Parses the action's words, mounts the files and splits PATH (the path of
// a key for list and delete --key, of a value otherwise). False with
// `status` set when the command is done (help, a usage error, a failure).
bool prepare(int argc, char** argv, const char* action, size_t operands, RequestT& request,
             int* status) {
    CommandLineC& line = request.line;
    ConfRegistryI** registry = &request.registry;
    static const OptionT options[] = {{"mount", true}, {"key", false}, {"recursive", false}};
    std::string command = std::string("reg ") + action;
    if (!line.parse(argc, argv, options, sizeof options / sizeof options[0])) {
        *status = usageError(command.c_str(), line.error());
        return false;
    }
    if (line.helpWanted()) {
        *status = printHelp(kRegHelp);
        return false;
    }
    if (line.operandCount() != operands) {
        *status =
            usageError(command.c_str(), line.operandCount() < operands ? "an operand is missing"
                                                                       : "too many operands");
        return false;
    }
    if ((line.has("key") || line.has("recursive")) && strcmp(action, "delete") != 0) {
        *status = usageError(command.c_str(), "--key and --recursive belong to delete");
        return false;
    }
    if (line.has("recursive") && !line.has("key")) {
        *status = usageError(command.c_str(), "--recursive needs --key");
        return false;
    }
    std::vector<std::string> mounts = line.values("mount");
    if (mounts.empty()) {
        *status = usageError(command.c_str(),
                             "no --mount FILE=POINT: the registry holds nothing without a file");
        return false;
    }
    ConfigurationI* configuration = getConfiguration(1);
    *registry = configuration ? configuration->getRegistry() : nullptr;
    if (!*registry) {
        reportFailure(0xE1370065u, "the configuration service is not available");
        *status = printFailure();
        return false;
    }
    for (const std::string& mount : mounts) {
        // FILE=ROOT\sub\path: the file name may hold '=', a registry path rarely does.
        size_t equals = mount.rfind('=');
        if (equals == std::string::npos || equals == 0 || equals + 1 == mount.size()) {
            *status = usageError(command.c_str(), "'--mount " + mount + "' is not FILE=POINT");
            return false;
        }
        std::string file = mount.substr(0, equals);
        std::string point = mount.substr(equals + 1);
        size_t backslash = point.find('\\');
        std::string root = point.substr(0, backslash);
        std::string below = backslash == std::string::npos ? "" : point.substr(backslash + 1);
        if ((*registry)->rootKeyFromName(text(root)) == 0) {
            *status =
                usageError(command.c_str(), "'" + root + "' is no root key (HKLM, HKCU, ...)");
            return false;
        }
        uint32_t code = (*registry)->mountFile(text(file), text(root), text(below));
        if (code != 0) {
            *status = failed(code, file);
            return false;
        }
    }
    request.path = line.operand(0);
    uint32_t code = 0;
    if (strcmp(action, "list") == 0 || line.has("key")) {
        code = request.registry->parsePath(text(request.path), &request.root, &request.subKey,
                                           nullptr);
    } else {
        code = splitValuePath(request.registry, request.path, &request.root, &request.subKey,
                              &request.name);
    }
    if (code != 0) {
        *status = failed(code, request.path);
        return false;
    }
    return true;
}

int getAction(int argc, char** argv) {
    RequestT request;
    int status = kExitOk;
    if (!prepare(argc, argv, "get", 1, request, &status)) return status;
    StringC value;
    uint32_t code = request.registry->getString(request.root, request.subKey, request.name, &value);
    return code == 0 ? printOutput(value.toStdString() + "\n") : failed(code, request.path);
}

int setAction(int argc, char** argv) {
    RequestT request;
    int status = kExitOk;
    if (!prepare(argc, argv, "set", 2, request, &status)) return status;
    // setValue with the byte count: setString bounds the text by its length
    // in characters, which cuts a value with non-ASCII text short.
    StringC value = text(request.line.operand(1));
    const char* bytes = value.textSystem();
    uint32_t code = request.registry->setValue(request.root, request.subKey, request.name, 1, bytes,
                                               value.textSystemLength() + 1);
    value.releaseSystem(bytes);
    return code == 0 ? kExitOk : failed(code, request.path);
}

int deleteAction(int argc, char** argv) {
    RequestT request;
    int status = kExitOk;
    if (!prepare(argc, argv, "delete", 1, request, &status)) return status;
    uint32_t code = request.line.has("key")
                        ? request.registry->deleteKey(request.root, request.subKey,
                                                      request.line.has("recursive"))
                        : request.registry->deleteValue(request.root, request.subKey, request.name);
    return code == 0 ? kExitOk : failed(code, request.path);
}

int listAction(int argc, char** argv) {
    RequestT request;
    int status = kExitOk;
    if (!prepare(argc, argv, "list", 1, request, &status)) return status;
    ConfRegistryI* registry = request.registry;
    const std::string& path = request.path;
    uint32_t key = 0;
    uint32_t code = registry->openKey(request.root, request.subKey, &key);
    if (code != 0) return failed(code, path);
    std::string out;
    StringC name;
    for (uint32_t i = 0;; ++i) {
        code = registry->enumKey(key, i, &name);
        if (code == 0xE1370066u) break;
        if (code != 0) {
            registry->closeKey(key);
            if (code != 0xE1370069u || i != 0) return failed(code, path);
            // The key of a mount point (or above one) has no file to list.
            reportFailure(code,
                          "'" + path + "': " + codeText(code) +
                              "; the key of a mount point lists nothing, name a key below it");
            return printFailure();
        }
        out += name.toStdString() + "\\\n";
    }
    uint32_t type = 0;
    for (uint32_t i = 0;; ++i) {
        // The size first (the answer 0xE1370067 says so), then the text.
        uint32_t size = 0;
        code = registry->enumValue(key, i, &name, &type, nullptr, &size);
        if (code == 0xE1370066u) break;
        std::vector<char> data(size + 1, '\0');
        if (code == 0xE1370067u)
            code = registry->enumValue(key, i, &name, &type, data.data(), &size);
        if (code != 0) {
            registry->closeKey(key);
            return failed(code, path + "\\" + name.toStdString());
        }
        out += name.toStdString() + "=" + std::string(data.data()) + "\n";
    }
    registry->closeKey(key);
    return printOutput(out);
}

}  // namespace

int runReg(int argc, char** argv) {
    static const ActionT actions[] = {
        {"get", getAction}, {"set", setAction}, {"delete", deleteAction}, {"list", listAction}};
    return dispatchAction("reg", kRegHelp, argc, argv, actions, 4);
}

}  // namespace cli
}  // namespace keel
