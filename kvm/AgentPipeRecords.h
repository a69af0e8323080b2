// The messages on the pipe between the service and the KVM agent. Packed and little-endian, as in the pipe.
#pragma once

#include <cstdint>

inline constexpr char kAgentPipeName[] = "\\\\.\\pipe\\luxkvm";

inline constexpr uint32_t eNotifyDisplayConfig = 1;
inline constexpr uint32_t eNotifyStartKVMOperation = 2;

// From the agent to the service, once.
struct ZEL_ServiceToKVMApp_pipe {
    uint32_t message;  // eNotifyDisplayConfig
    uint32_t width;    // pixels
    uint32_t height;
    uint32_t vidPnSourceId;  // of the monitor
};
static_assert(sizeof(ZEL_ServiceToKVMApp_pipe) == 16);

// From the service to the agent, at most once.
struct ZEL_KVMAppStart_pipe {
    uint32_t message;  // eNotifyStartKVMOperation
};
static_assert(sizeof(ZEL_KVMAppStart_pipe) == 4);
