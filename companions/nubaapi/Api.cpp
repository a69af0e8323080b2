// The functions that the library exports.
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "companions/nubaapi/Configuration.h"
#include "companions/nubaapi/Connection.h"

namespace {

std::atomic<NubaLogger_Fn> s_logger{nullptr};

std::string TextOf(const char* text) {
    return text ? text : "";
}

// The service gives Windows paths. The current folder of a simulated PC has the drives in it, and Windows
// takes either separator.
std::string PathOf(const char* path) {
    std::string turned = TextOf(path);
    std::replace(turned.begin(), turned.end(), '\\', '/');
    return turned;
}

}  // namespace

void InitData::End() {
    m_hasEnded = true;
    m_end.Set();
}

StandInSettings StandInSettings::FromEnvironment() {
    StandInSettings settings;
    if (const char* const silence = std::getenv("NUBA_SILENCE"))
        settings.silence = static_cast<uint32_t>(std::max(1, std::atoi(silence)));
    std::istringstream ports(TextOf(std::getenv("NUBA_PORTS")));
    for (std::string pair; std::getline(ports, pair, ',');)
        if (const size_t equals = pair.find('='); equals != std::string::npos)
            settings.ports[static_cast<uint16_t>(std::atoi(pair.c_str()))] =
                static_cast<uint16_t>(std::atoi(pair.c_str() + equals + 1));
    return settings;
}

void LogLine(int8_t level, const std::string& text) {
    if (const NubaLogger_Fn logger = s_logger) logger(level, (text + "\n").c_str());
}

extern "C" {

InitData* InitData_new() {
    try {
        return new InitData;
    } catch (const std::exception& error) {
        LogLine(kLogError, error.what());
        return nullptr;
    }
}

void InitData_delete(InitData* data) {
    delete data;
}

uint8_t InitData_set_endpoint(InitData* data, const char* localHost, const char* cloudHost,
                              const char* port) {
    data->localHost = TextOf(localHost);
    data->cloudHost = TextOf(cloudHost);
    data->port = TextOf(port);
    return 1;
}

uint8_t InitData_set_cert_file(InitData* data, const char* certificate, const char* key,
                               const char* authority) {
    data->files = {PathOf(certificate), PathOf(key), PathOf(authority)};
    return 1;
}

uint8_t InitData_set_filter(InitData* data, NubaFilter_Fn filter, void* context) {
    data->filter = filter;
    data->context = context;
    return 1;
}

void nuba_setlogger(NubaLogger_Fn logger) {
    s_logger = logger;
}

void nuba_server_init(InitData* data) {
    try {
        Connection(*data, StandInSettings::FromEnvironment()).Run();
    } catch (const std::exception& error) {
        LogLine(kLogError, error.what());
    }
}

void nuba_server_deinit(InitData* data) {
    data->End();
}

const char* Endpoint_get_host(const Endpoint* endpoint) {
    return endpoint->host.c_str();
}

const char* Endpoint_get_port(const Endpoint* endpoint) {
    return endpoint->port.c_str();
}
}
