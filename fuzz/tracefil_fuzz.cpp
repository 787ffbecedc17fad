// The trace control file reader over arbitrary files, beside a plain model of
// its lines: the options the keys set, and the setting each path line leaves
// on a private controller. Lines are cut as a 256-byte fgets buffer cuts
// them; nothing in a file may stop the reading or crash it.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include <map>
#include <string>

#include <keel/keel.h>

#include "tracing/tracecim.h"
#include "tracing/tracefil.h"

namespace {

struct ModelT {
    int timeOfDay = 0, timestamp = 0, timeDeltas = 0, counters = 0, timers = 0, showClass = 0,
        process = 0, threads = 0, flush = 1, indent = 16, detail = 9;
    std::string filename = "/tmp/%p%t.trc";
    // The last setting of each path line, by name without the detail
    // prefix, with the path as the line gave it (for the lookup).
    std::map<std::string, std::pair<bool, std::string>> paths;
    size_t patterns = 0;

    void option(const std::string& key, const std::string& value) {
        if (strcasecmp(key.c_str(), "filename") == 0) {
            filename = value;
            return;
        }
        char c = value.empty() ? 0 : value[0];
        int v;
        if (c >= '0' && c <= '9') {
            v = static_cast<int>(strtol(value.c_str(), nullptr, 10));
        } else if (strchr("FfNn", c) && c) {
            v = 0;
        } else if (strchr("TtYy", c) && c) {
            v = 1;
        } else {
            return;
        }
        uint8_t low = static_cast<uint8_t>(v);
        const char* k = key.c_str();
        if (!strcasecmp(k, "timeofday")) {
            timeOfDay = v == 1;
            if (v == 1) timestamp = 1;
        } else if (!strcasecmp(k, "timestamp"))
            timestamp = low;
        else if (!strcasecmp(k, "timedeltas"))
            timeDeltas = low;
        else if (!strcasecmp(k, "trace_timers"))
            timers = low;
        else if (!strcasecmp(k, "trace_counters"))
            counters = low;
        else if (!strcasecmp(k, "flush_freq"))
            flush = v;
        else if (!strcasecmp(k, "max_indent"))
            indent = v;
        else if (!strcasecmp(k, "max_detail"))
            detail = v;
        else if (!strcasecmp(k, "show_process"))
            process = low;
        else if (!strcasecmp(k, "show_threads"))
            threads = low;
        else if (!strcasecmp(k, "show_class"))
            showClass = v == 1;
    }

    static bool space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    void line(std::string text) {
        text = text.substr(0, text.find('\0'));
        text = text.substr(0, text.find('#'));
        while (!text.empty() && space(text.back())) text.pop_back();
        size_t start = 0;
        while (start < text.size() && space(text[start])) ++start;
        text = text.substr(start);
        if (text.empty()) return;
        size_t equals = text.find('=');
        if (text[0] == '-' || (text[0] == '+' && text[1] != '*')) {
            std::string path = text.substr(1);
            if (valid(path)) paths[name(path)] = {text[0] == '+', path};
        } else if (text[0] == '+' || (text[0] == '*' && equals == std::string::npos)) {
            ++patterns;
        } else if (equals != std::string::npos) {
            std::string key = text.substr(0, equals);
            while (!key.empty() && space(key.back())) key.pop_back();
            size_t v = equals + 1;
            while (v < text.size() && space(text[v])) ++v;
            option(key, text.substr(v));
        } else if (valid(text)) {
            paths[name(text)] = {true, text};
        }
    }
    // The settings are kept by name without the detail prefix.
    static std::string name(const std::string& path) { return keel::skipTracePrefix(path.c_str()); }
    static bool valid(const std::string& path) { return path.size() <= keel::kTraceMaxPath; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 8192) return 0;
    char name[] = "/tmp/keel-tracefil-fuzz-XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) abort();
    if (write(fd, data, size) != static_cast<ssize_t>(size)) abort();
    close(fd);
    ModelT model;
    std::string text(reinterpret_cast<const char*>(data), size);
    for (size_t at = 0; at < size;) {
        size_t end = text.find('\n', at);
        size_t length = (end == std::string::npos ? size : end + 1) - at;
        if (length > 255) length = 255;
        model.line(text.substr(at, length));
        at += length;
    }
    keel::TraceControllerC* controller = new keel::TraceControllerC();
    keel::TraceConsumerFileC* consumer = new keel::TraceConsumerFileC(controller);
    controller->addConsumer(consumer, 0, 9);
    if (consumer->readControlFile(name) != 0) abort();
    unlink(name);
    keel::TraceFileOptionsT o = consumer->options();
    bool same = o.timeOfDay == model.timeOfDay && o.timestamp == model.timestamp &&
                o.timeDeltas == model.timeDeltas && o.traceCounters == model.counters &&
                o.traceTimers == model.timers && o.showClass == model.showClass &&
                o.showProcess == model.process && o.showThreads == model.threads &&
                o.flushFrequency == model.flush && o.maxIndent == model.indent &&
                o.maxDetail == model.detail && model.filename == o.filename &&
                o.patternCount == model.patterns;
    if (!same) {
        fprintf(stderr, "options differ from the model\n");
        abort();
    }
    for (const auto& entry : model.paths) {
        keel::TraceValuesT* values = nullptr;
        controller->getVariable(entry.second.second.c_str(), &values);
        // A path the controller names no variable for (empty components
        // and the like) has no setting to compare.
        if (!values || entry.first.empty()) continue;
        if (!(values->explicit_ & 1u) || ((values->enabled & 1u) != 0) != entry.second.first) {
            fprintf(stderr, "path %s differs from the model\n", entry.first.c_str());
            abort();
        }
    }
    controller->removeConsumer(consumer);
    delete consumer;
    delete controller;
    return 0;
}
