// The C interface of nubaapi.dll, the library that holds the cloud connection. docs/cloud-library.md is its
// contract.
#pragma once

#include <cstdint>

extern "C" {

struct InitData;  // the configuration of one connection
struct Endpoint;  // a target that the cloud wants to reach; valid during the call of the filter only

using NubaLogger_Fn = void (*)(int8_t level, const char* text);
// Returns true when the cloud may reach the endpoint.
using NubaFilter_Fn = bool (*)(void* context, const Endpoint* endpoint);

using InitDataNew_Fn = InitData* (*)();
using InitDataDelete_Fn = void (*)(InitData* data);
// The port is decimal text.
using InitDataSetEndpoint_Fn = uint8_t (*)(InitData* data, const char* localHost, const char* cloudHost,
                                           const char* port);
// The paths of three PEM files.
using InitDataSetCertFile_Fn = uint8_t (*)(InitData* data, const char* certificate, const char* key,
                                           const char* authority);
using InitDataSetFilter_Fn = uint8_t (*)(InitData* data, NubaFilter_Fn filter, void* context);
using NubaSetLogger_Fn = void (*)(NubaLogger_Fn logger);
// Runs one connection and returns when it has ended or failed.
using NubaServerInit_Fn = void (*)(InitData* data);
// Asks a running connection to end. May be called by several threads, and may throw.
using NubaServerDeinit_Fn = void (*)(InitData* data);
using EndpointText_Fn = const char* (*)(const Endpoint* endpoint);
}

// ROW(name, type)
#define NUBA_FUNCTIONS(ROW)                             \
    ROW(InitData_new, InitDataNew_Fn)                   \
    ROW(InitData_delete, InitDataDelete_Fn)             \
    ROW(InitData_set_endpoint, InitDataSetEndpoint_Fn)  \
    ROW(InitData_set_cert_file, InitDataSetCertFile_Fn) \
    ROW(InitData_set_filter, InitDataSetFilter_Fn)      \
    ROW(nuba_setlogger, NubaSetLogger_Fn)               \
    ROW(nuba_server_init, NubaServerInit_Fn)            \
    ROW(nuba_server_deinit, NubaServerDeinit_Fn)        \
    ROW(Endpoint_get_host, EndpointText_Fn)             \
    ROW(Endpoint_get_port, EndpointText_Fn)
