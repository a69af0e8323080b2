#include "reporting/StatusFile.h"

#include <winsock2.h>
#include <windows.h>
#include <json/json.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "base/FieldText.h"
#include "base/FileGuard.h"
#include "base/FilesystemPath.h"
#include "base/Log.h"
#include "base/Version.h"
#include "reporting/IPv4InfoStore.h"
#include "reporting/NetworkStateStore.h"
#include "state/ServiceState.h"

namespace {

constexpr uint32_t kProvisioningCompleted = 2;
constexpr uint32_t kVersionTwo = 20;

std::string VorkVersionText(uint32_t version) {
    if (version < kVersionTwo) return "VOR-K 1.0";
    return "VOR-K " + std::to_string(version).insert(1, ".");
}

std::string NetworkText(const std::string& adapterType) {
    return adapterType == "Wired LAN" || adapterType == "Wireless LAN" ? adapterType : "Unknown";
}

void AddFirmware(Json::Value& values) {
    const ServiceState& service = *g_pServiceState;
    const ManageabilityStatus status = service.GetManageabilityStatus();
    const std::string version(TextInField(status.MPMVersion));
    const bool isKnown = !version.empty();
    values["KVMStatus"] = isKnown ? service.KVMStatus.load() : "NO";
    values["MPMVersion"] = isKnown ? version : "Unavailable";
    values["ProvisionStatus"] =
        status.ProvisionStatus == kProvisioningCompleted ? "Completed" : "Not Completed";
    values["ServiceState"] = service.m_bMPMVersionValid ? "ON" : "OFF";
    values["VORKversion"] = isKnown ? VorkVersionText(status.uVORKVersion) : "Unavailable";
}

void AddNetwork(Json::Value& values, const IPv4InfoStore& store, const NetworkStateStore& interfaces) {
    // The interfaces are read before the addresses, because their lock comes first in the lock order.
    const bool hasInterfaces = interfaces.GetCount() != 0;
    const uint32_t address = store.GetCurrentIPv4();
    values["AddressOrigin"] = store.AddressOriginText(address);
    values["DHCPServer"] = hasInterfaces ? store.DHCPServerText(address) : "0";
    values["IPv4Adresss"] = store.IPv4AddressText();
    values["IPv4DnsServer"] = store.DnsServerText();
    values["IPv4Gateway"] = store.GatewayText();
    values["Network"] = NetworkText(store.AdapterTypeText(address));
    values["SubnetMask"] = store.SubnetText();
}

}  // namespace

void StatusFile::UpdateStatusFile() {
    std::lock_guard lock(m_mutex);
    if (m_bDeleted) return;
    const std::string path = g_pServiceState->GetStatusFilePath();
    std::ofstream file = OpenForWriting(path, g_pServiceState->m_bWorkingFolderSecure);
    if (!file.is_open()) {
        LogError("Failed to create %s file.", path);
        return;
    }
    Json::Value values(Json::objectValue);
    AddFirmware(values);
    AddNetwork(values, m_addresses, m_interfaces);
    values["ProvisionedPort"] = std::to_string(g_pServiceState->dashPort);
    values["TarvixProductVersion"] = kServiceVersion;
    const std::string text = values.toStyledString();
    LogDebug("JSON: %s", text);
    file << text << '\n';
    file.flush();
    LogDebug("Updated ZEL data written to file.");
}

void StatusFile::DeleteStatusFile() {
    std::lock_guard lock(m_mutex);
    m_bDeleted = true;
    const std::string path = g_pServiceState->GetStatusFilePath();
    if (!g_pServiceState->m_bWorkingFolderSecure || !std::filesystem::exists(FilesystemPath(path))) {
        LogInfo("zel_json_data file does not exist");
    } else if (DeleteFileA(path.c_str())) {
        LogInfo("zel_json_data file deleted successfully");
    } else {
        LogWarn("zel_json_data file deletion failed");
    }
}
