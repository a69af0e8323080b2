#include "dash/NewRequest.h"

#include <cstdio>

#include "base/Log.h"
#include "service/ZELService.h"

namespace {

std::string Dotted(uint32_t address) {
    char text[16];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", address & 0xFF, address >> 8 & 0xFF, address >> 16 & 0xFF,
                  address >> 24);
    return text;
}

}  // namespace

uint32_t ForwardNewRequestToMPM(uint16_t localPort, uint32_t peerAddress, uint16_t peerPort,
                                uint16_t marker) {
    const char* kind = localPort == kKvmPort ? "KVM" : "HTTPS DASH";
    LogInfo("New %s request arrived at ZEL. Forwarding %s request to Mailbox driver", kind, kind);
    g_pZELService->m_ipv4InfoStore.SetPeer(localPort, peerAddress, peerPort, marker);
    LogInfo("Remote Address: 0x%x (%s), Remote Port: 0x%x", peerAddress, Dotted(peerAddress), peerPort);
    const IPCompleteInfo info = g_pZELService->m_ipv4InfoStore.TakeForSending();
    return g_pZELService->m_mailBoxDriverInterface.WriteIPCompleteInformation(&info);
}
