// The functions of the scripted cloud library.
#include <stdexcept>

#include "tests/support/scriptednuba/Script.h"

struct InitData {};

namespace {

scriptednuba::Script& TheScript() {
    static scriptednuba::Script script;
    return script;
}

// A use of what has been deleted is recorded too.
void Record(const std::string& call, const InitData* data = nullptr) {
    scriptednuba::Script& script = TheScript();
    const std::lock_guard lock(script.mutex);
    const bool isStale = data && !script.objects.contains(data);
    script.calls.push_back(isStale ? "STALE " + call : call);
}

void Run(const std::function<void()> scriptednuba::Script::*step) {
    std::function<void()> run;
    {
        const std::lock_guard lock(TheScript().mutex);
        run = TheScript().*step;
    }
    if (run) run();
}

}  // namespace

extern "C" {

scriptednuba::Script* ScriptOfNuba() {
    return &TheScript();
}

InitData* InitData_new() {
    Record("InitData_new");
    const std::lock_guard lock(TheScript().mutex);
    if (TheScript().returnsNull) return nullptr;
    auto* const data = new InitData;
    TheScript().objects.insert(data);
    return data;
}

void InitData_delete(InitData* data) {
    Record("InitData_delete", data);
    const std::lock_guard lock(TheScript().mutex);
    if (TheScript().objects.erase(data)) delete data;
}

uint8_t InitData_set_endpoint(InitData* data, const char* localHost, const char* cloudHost,
                              const char* port) {
    Record(std::string("InitData_set_endpoint ") + localHost + " " + cloudHost + " " + port, data);
    return 1;
}

uint8_t InitData_set_cert_file(InitData* data, const char* certificate, const char* key,
                               const char* authority) {
    Record(std::string("InitData_set_cert_file ") + certificate + " " + key + " " + authority, data);
    return 1;
}

uint8_t InitData_set_filter(InitData* data, NubaFilter_Fn filter, void* context) {
    Record(context ? "InitData_set_filter with a context" : "InitData_set_filter", data);
    const std::lock_guard lock(TheScript().mutex);
    TheScript().filter = filter;
    return 1;
}

void nuba_setlogger(NubaLogger_Fn logger) {
    Record("nuba_setlogger");
    const std::lock_guard lock(TheScript().mutex);
    TheScript().logger = logger;
}

void nuba_server_init(InitData* data) {
    Record("nuba_server_init", data);
    Run(&scriptednuba::Script::whileConnected);
}

void nuba_server_deinit(InitData* data) {
    Record("nuba_server_deinit", data);
    Run(&scriptednuba::Script::onDeinit);
}

const char* Endpoint_get_host(const Endpoint* endpoint) {
    return endpoint->host;
}

const char* Endpoint_get_port(const Endpoint* endpoint) {
    return endpoint->port;
}
}
