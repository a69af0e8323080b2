// What the host asks of the firmware: one row for each request.
//
// A new request is one row here and its wrapper in MailBoxDriverInterface. The simulated firmware, the fuzz
// targets and the tests iterate the rows; mailbox/MailboxTables.h has them as an array.
#pragma once

#include <cstdint>

// ROW(name, control code, input, output). The codes are of device type 0x9C41; write requests carry
// FILE_WRITE_ACCESS, queries FILE_READ_ACCESS. Two requests may share a code, and differ by their size then.
#define MAILBOX_REQUESTS(ROW)                                                \
    ROW(WriteDASHPacket, 0x9C41A400, StreamBytes, StreamBytes)               \
    ROW(WriteZELStatus, 0x9C41A410, ZELStatusRecord, NoRecord)               \
    ROW(GetZELVersion, 0x9C416424, NoRecord, ManageabilityStatus)            \
    ROW(WriteNetworkStatusInfo, 0x9C41A428, NetworkStatusInfo, NoRecord)     \
    ROW(WriteOsInfo, 0x9C41A42C, OsInfo, NoRecord)                           \
    ROW(WriteIPCompleteInformation, 0x9C41A430, IPCompleteInfo, NoRecord)    \
    ROW(WriteCloseSocketcmd, 0x9C41A434, CloseSocketRecord, NoRecord)        \
    ROW(WriteNwInfo, 0x9C41A438, NwInfo, NoRecord)                           \
    ROW(WriteMultiNwInfo, 0x9C41A438, MultiNwInfo, NoRecord)                 \
    ROW(WriteKVMPacket, 0x9C41A43D, StreamBytes, NoRecord)                   \
    ROW(AllocateLogBuffer, 0x9C416448, NoRecord, LogBufferRecord)            \
    ROW(ReleaseLogBuffer, 0x9C41644C, NoRecord, LogBufferRecord)             \
    ROW(GetMPMStatus, 0x9C416458, NoRecord, MPMStatusRecord)                 \
    ROW(WriteShutdownLaptop, 0x9C41A460, ShutdownLaptopRecord, NoRecord)     \
    ROW(GetCloudCertInfo, 0x9C416468, NoRecord, CloudCertInfo)               \
    ROW(WriteUserConsent, 0x9C41A47C, UserConsentAnswer, NoRecord)           \
    ROW(GetDomainInfo, 0x9C416480, NoRecord, DomainInfo)                     \
    ROW(WriteWiFiSyncInfo, 0x9C41A484, WiFiSyncInfo, NoRecord)               \
    ROW(WriteADInfo, 0x9C41A488, ADInfo, NoRecord)                           \
    ROW(WriteWinRetCode, 0x9C41A48C, WinRetCodeRecord, NoRecord)             \
    ROW(WriteEncodedBuffer, 0x9C41A491, EncodedFrame, NoRecord)              \
    ROW(SendEncodedDrvFrameBuffer, 0x9C41A491, EncodedFrameChunk, NoRecord)  \
    ROW(WriteCapabilityConfig, 0x9C41A494, CapabilityConfigRecord, NoRecord) \
    ROW(WriteDisplayConfig, 0x9C41A498, DisplayConfigRecord, NoRecord)       \
    ROW(WriteCSRResponse, 0x9C41A49C, CsrResponse, NoRecord)                 \
    ROW(WritePwdUpdateStatus, 0x9C41A4A0, PwdUpdateStatus, NoRecord)

namespace MailboxCode {
#define CODE(name, code, input, output) inline constexpr uint32_t name = code;
MAILBOX_REQUESTS(CODE)
#undef CODE
}  // namespace MailboxCode

// Returns the function number of a control code, 12 bits, which identifies the request to the driver.
constexpr uint32_t FunctionOf(uint32_t code) {
    return (code >> 2) & 0xFFF;
}
