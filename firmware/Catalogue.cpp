#include "firmware/Catalogue.h"

#include <strings.h>

#include <charconv>
#include <cstdio>

#include "firmware/NetworkFields.h"
#include "mailbox/ConsentRecords.h"
#include "mailbox/DisplayRecords.h"
#include "mailbox/IdentityRecords.h"
#include "mailbox/IndicationRecord.h"
#include "mailbox/MailboxCodes.h"
#include "mailbox/MailboxRecords.h"
#include "mailbox/OsInfoRecord.h"
#include "mailbox/WiFiSyncRecord.h"

namespace mpm {

namespace {

constexpr Field kTextFields[] = {{"text", 0, kRest, Field::Kind::Text}};
constexpr Field kZELStatusFields[] = {MPM_FIELD(ZELStatusRecord, state)};
constexpr Field kCloseSocketFields[] = {MPM_FIELD(CloseSocketRecord, port)};
constexpr Field kShutdownLaptopFields[] = {MPM_FIELD(ShutdownLaptopRecord, code),
                                           MPM_FIELD(ShutdownLaptopRecord, zero)};
constexpr Field kWinRetCodeFields[] = {MPM_FIELD(WinRetCodeRecord, first),
                                       MPM_FIELD(WinRetCodeRecord, second),
                                       MPM_FIELD(WinRetCodeRecord, zero)};
constexpr Field kOsInfoFields[] = {
    MPM_FIELD_AS(OsInfo, OSName, WideText),  MPM_FIELD_AS(OsInfo, OtherTypeDescription, WideText),
    MPM_FIELD_AS(OsInfo, Version, WideText), MPM_FIELD_AS(OsInfo, HostName, Text),
    MPM_FIELD_AS(OsInfo, DomainName, Text),  MPM_FIELD(OsInfo, OSType),
    MPM_FIELD(OsInfo, OSReservedWord),       MPM_FIELD_AS(OsInfo, ZELVersion, Text),
};
constexpr Field kWiFiSyncFields[] = {
    MPM_FIELD(WiFiSyncInfo, size_of_this_structure),
    MPM_FIELD(WiFiSyncInfo, is_valid),
    MPM_FIELD_AS(WiFiSyncInfo, ssid, Text),
    MPM_FIELD(WiFiSyncInfo, channel),
    MPM_FIELD(WiFiSyncInfo, wpaauth),
    MPM_FIELD_AS(WiFiSyncInfo, key_material, Secret),
    MPM_FIELD(WiFiSyncInfo, pairwise),
    MPM_FIELD(WiFiSyncInfo, groupwise),
    MPM_FIELD(WiFiSyncInfo, group_mgmt),
    MPM_FIELD(WiFiSyncInfo, band),
    MPM_FIELD(WiFiSyncInfo, pmf),
    MPM_FIELD(WiFiSyncInfo, wpa_ptk_rekey),
};
constexpr Field kConsentAnswerFields[] = {MPM_FIELD(UserConsentAnswer, Type),
                                          MPM_FIELD(UserConsentAnswer, Consent),
                                          MPM_FIELD(UserConsentAnswer, reserved)};
constexpr Field kConsentQuestionFields[] = {MPM_FIELD(UserConsentQuestion, Type),
                                            MPM_FIELD(UserConsentQuestion, Timeout)};
constexpr Field kCapabilityFields[] = {MPM_FIELD(CapabilityConfigRecord, encode)};
constexpr Field kDisplayConfigFields[] = {MPM_FIELD(DisplayConfigRecord, width),
                                          MPM_FIELD(DisplayConfigRecord, height)};
constexpr Field kFrameChunkFields[] = {MPM_FIELD(EncodedFrameChunk, RequiredChunk),
                                       MPM_FIELD(EncodedFrameChunk, ChunkSize),
                                       MPM_FIELD(EncodedFrameChunk, FrameSize)};
constexpr Field kKvmPeerFields[] = {MPM_FIELD_AS(KvmPeer, address, Address), MPM_FIELD(KvmPeer, port)};
constexpr Field kSafebootFields[] = {MPM_FIELD(SafebootState, state)};
constexpr Field kCsrRequestFields[] = {
    MPM_FIELD_AS(CsrRequest, ADCSName, Text),
    MPM_FIELD_AS(CsrRequest, RootCAName, Text),
    MPM_FIELD_AS(CsrRequest, ADCSTemplateName, Text),
    MPM_FIELD(CsrRequest, CSRSize),
    MPM_FIELD_AS(CsrRequest, CSR, Data),
    MPM_FIELD(CsrRequest, IsRootCARequired),
};
constexpr Field kCsrResponseFields[] = {
    MPM_FIELD(CsrResponse, SignedCertSize),
    MPM_FIELD_AS(CsrResponse, SignedCert, Data),
    MPM_FIELD(CsrResponse, RootCertSize),
    MPM_FIELD_AS(CsrResponse, RootCert, Data),
};
constexpr Field kPasswordFields[] = {MPM_FIELD_AS(ADPasswordUpdate, OldPassword, Secret),
                                     MPM_FIELD_AS(ADPasswordUpdate, NewPassword, Secret)};
constexpr Field kPasswordStatusFields[] = {MPM_FIELD(PwdUpdateStatus, status)};
constexpr Field kIndicationFields[] = {
    MPM_FIELD_AS(IndicationDestination, Host, Text),
    MPM_FIELD_AS(IndicationDestination, Uri, Text),
    MPM_FIELD(IndicationDestination, Port),
    MPM_FIELD(IndicationDestination, Secure),
};

constexpr size_t kAny = kMailboxBufferSize;  // the most that a socket's block holds

#define MPM_WRITE(name, Record, fields) \
    { #name, MailboxCode::name, sizeof(Record), sizeof(Record), 0, fields }
#define MPM_QUERY(name, output)                    \
    {                                              \
#name, MailboxCode::name, 0, 0, output, {} \
    }

constexpr Operation kOperations[] = {
    {"WriteDASHPacket", MailboxCode::WriteDASHPacket, 0, kAny, 0, {}},
    MPM_WRITE(WriteZELStatus, ZELStatusRecord, kZELStatusFields),
    MPM_QUERY(GetZELVersion, sizeof(ManageabilityStatus)),
    MPM_WRITE(WriteNetworkStatusInfo, NetworkStatusInfo, kNetworkStatusInfoFields),
    MPM_WRITE(WriteOsInfo, OsInfo, kOsInfoFields),
    MPM_WRITE(WriteIPCompleteInformation, IPCompleteInfo, kIPCompleteInfoFields),
    MPM_WRITE(WriteCloseSocketcmd, CloseSocketRecord, kCloseSocketFields),
    MPM_WRITE(WriteNwInfo, NwInfo, kNwInfoFields),
    MPM_WRITE(WriteMultiNwInfo, MultiNwInfo, kMultiNwInfoFields),
    {"WriteKVMPacket", MailboxCode::WriteKVMPacket, 0, kAny, 0, {}},
    MPM_QUERY(AllocateLogBuffer, 8),
    MPM_QUERY(ReleaseLogBuffer, 8),
    MPM_QUERY(GetMPMStatus, 1),
    MPM_WRITE(WriteShutdownLaptop, ShutdownLaptopRecord, kShutdownLaptopFields),
    MPM_QUERY(GetCloudCertInfo, sizeof(CloudCertInfo)),
    MPM_WRITE(WriteUserConsent, UserConsentAnswer, kConsentAnswerFields),
    MPM_QUERY(GetDomainInfo, sizeof(DomainInfo)),
    MPM_WRITE(WriteWiFiSyncInfo, WiFiSyncInfo, kWiFiSyncFields),
    MPM_WRITE(WriteADInfo, ADInfo, kADInfoFields),
    MPM_WRITE(WriteWinRetCode, WinRetCodeRecord, kWinRetCodeFields),
    // A chunk without data is told from a bare head by nothing: both are the head alone.
    {"WriteEncodedBuffer", MailboxCode::WriteEncodedBuffer, sizeof(EncodedFrameChunk) + 1,
     sizeof(EncodedFrameChunk) + EncodedFrameChunk::kMaxData, 0, kFrameChunkFields},
    MPM_WRITE(SendEncodedDrvFrameBuffer, EncodedFrameChunk, kFrameChunkFields),
    MPM_WRITE(WriteCapabilityConfig, CapabilityConfigRecord, kCapabilityFields),
    MPM_WRITE(WriteDisplayConfig, DisplayConfigRecord, kDisplayConfigFields),
    MPM_WRITE(WriteCSRResponse, CsrResponse, kCsrResponseFields),
    MPM_WRITE(WritePwdUpdateStatus, PwdUpdateStatus, kPasswordStatusFields),
};

#define MPM_COMMAND(name, fields) \
    { #name, name, fields }
#define MPM_BARE(name)  \
    {                   \
#name, name, {} \
    }

constexpr Command kCommands[] = {
    MPM_BARE(MPM_ZEL_CMD_DASH_DATA),
    MPM_BARE(MPM_ZEL_CMD_KVM_DATA),
    MPM_COMMAND(MPM_ZEL_CMD_SOFTWARE_UPGRADE, kTextFields),
    MPM_COMMAND(MPM_ZEL_CMD_INDICATION_SUBSCRIBE, kIndicationFields),
    MPM_COMMAND(MPM_ZEL_CMD_INDICATION_EVENT, kTextFields),
    MPM_BARE(MPM_ZEL_CMD_HOST_SLEEP_LIGHT),
    MPM_BARE(MPM_ZEL_CMD_HOST_CYCLE_SOFT),
    MPM_BARE(MPM_ZEL_CMD_HOST_OFF_HARD),
    MPM_BARE(MPM_ZEL_CMD_HOST_HIBERNATE),
    MPM_BARE(MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE),
    MPM_BARE(MPM_ZEL_CMD_REBOOT_NONDASH),
    MPM_BARE(MPM_ZEL_CMD_VNC_SOC_CLOSE),
    MPM_BARE(MPM_ZEL_CMD_S0i3_RESUME),
    MPM_BARE(MPM_ZEL_CMD_KVM_ENABLE_STATUS),
    MPM_COMMAND(MPM_ZEL_CMD_KVM_IP_PORT_INFO, kKvmPeerFields),
    MPM_COMMAND(MPM_ZEL_CMD_GET_KVM_CONSENT, kConsentQuestionFields),
    MPM_BARE(MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET),
    MPM_BARE(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER),
    MPM_BARE(MPM_ZEL_CMD_GET_DISPAY_CONFIG),
    MPM_COMMAND(MPM_ZEL_CMD_CSR, kCsrRequestFields),
    MPM_COMMAND(MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD, kPasswordFields),
    MPM_COMMAND(MPM_ZEL_SAFEBOOT, kSafebootFields),
};

bool SameName(const char* a, const std::string& b) {
    return strcasecmp(a, b.c_str()) == 0;
}

}  // namespace

std::span<const Operation> Operations() {
    return kOperations;
}

const Operation* FindOperation(uint32_t code, size_t inputSize) {
    for (const Operation& operation : kOperations)
        if (operation.code == code && inputSize >= operation.minInput && inputSize <= operation.maxInput)
            return &operation;
    return nullptr;
}

const Operation* FindOperation(const std::string& name) {
    for (const Operation& operation : kOperations)
        if (SameName(operation.name, name)) return &operation;
    return nullptr;
}

const Operation* FirstOperation(uint32_t code) {
    for (const Operation& operation : kOperations)
        if (operation.code == code) return &operation;
    return nullptr;
}

std::span<const Command> Commands() {
    return kCommands;
}

std::string CommandName(uint8_t number) {
    for (const Command& command : kCommands)
        if (command.number == number) return command.name;
    return std::to_string(number);
}

std::optional<uint8_t> ParseCommand(const std::string& text) {
    for (const Command& command : kCommands)
        for (const char* prefix : {"", "MPM_ZEL_CMD_", "MPM_ZEL_"})
            if (SameName(command.name, prefix + text)) return command.number;
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const char* begin = text.data() + (hex ? 2 : 0);
    const char* end = text.data() + text.size();
    uint8_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, hex ? 16 : 10);
    if (error != std::errc() || stop != end || begin == end) return std::nullopt;
    return number;
}

std::string CodeText(uint32_t code) {
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", code);
    return text;
}

}  // namespace mpm
