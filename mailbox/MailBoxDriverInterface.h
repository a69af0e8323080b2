// The host's side of the mailbox: finds and opens the device, and sends every request to the firmware.
//
// Every request returns a Win32 error code: 0; 6 while the device is not open; 1062 while the service has not
// reported itself as up; 487 for a null argument; otherwise the driver's error. Requests have no time-out: a
// request that the firmware does not answer blocks its thread until CloseMPMDevice or CancelRequestsFor. Any
// thread may call them.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <setupapi.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "base/Handles.h"
#include "mailbox/MailboxCodes.h"
#include "mailbox/MailboxRecords.h"
#include "mailbox/PendingRequests.h"

struct CapabilityConfigRecord;
struct CsrResponse;
struct DisplayConfigRecord;
struct EncodedFrameChunk;
struct MailboxRequest;
struct OsInfo;
struct PwdUpdateStatus;
struct UserConsentAnswer;
struct WiFiSyncInfo;
template <class Input, class Output>
struct TypedRequest;

// Data from a console to the firmware. Only the payload is sent; the record stays in memory.
struct DashPacket {
    uint64_t socket = 0;
    const void* payload = nullptr;
    uint32_t payloadSize = 0;
    void* reply = nullptr;
    uint32_t replySize = 0;  // in: room; out: bytes returned
};

struct KvmPacket {
    uint64_t socket = 0;
    const void* payload = nullptr;
    uint32_t payloadSize = 0;
    void* reply = nullptr;
    uint32_t replySize = 0;
};

class MailBoxDriverInterface {
  public:
    MailBoxDriverInterface() = default;
    ~MailBoxDriverInterface();
    MailBoxDriverInterface(const MailBoxDriverInterface&) = delete;
    MailBoxDriverInterface& operator=(const MailBoxDriverInterface&) = delete;

    // --- the device ---

    // Finds the device interface and opens it, or keeps a handle that is already open. Returns 487 while the
    // driver is absent, and 995 when CloseMPMDevice is called in the meantime. The driver may block the open.
    uint32_t OpenMPMDevice();
    // Returns a second handle for the read loop, or INVALID_HANDLE_VALUE on failure. The caller closes it.
    HANDLE GetNewHandleToMPMDevice();
    // Ends pending requests with 995. The last of them closes the device. Later requests return 6.
    void CloseMPMDevice();
    bool IsOpen() const { return Device() != nullptr; }
    // Ends with 995 the request in which this thread blocks, or the request in which the thread blocks that
    // it waits for. All other requests go on.
    void CancelRequestsFor(std::thread::id thread) { m_pendingRequests.CancelFor(thread); }
    // Registers, while the result exists, that the calling thread waits for `awaited`, which may be blocked
    // in a request.
    PendingRequests::Wait WaitingFor(std::thread::id awaited) { return {m_pendingRequests, awaited}; }

    // Sends one request; every other request is built on it. lpBytesReturned must not be null and receives
    // the size of the answer.
    uint32_t SendIOCtlToDriver(uint32_t dwIoControlCode, const void* lpInBuffer, uint32_t nInBufferSize,
                               DWORD* lpBytesReturned, void* lpOutBuffer, uint32_t nOutBufferSize);

    // --- records to the firmware ---

    uint32_t WriteDASHPacket(DashPacket* pDashPacket);
    uint32_t WriteZELStatus(uint32_t state);
    uint32_t WriteNetworkStatusInfo(const NetworkStatusInfo* info);
    uint32_t WriteOsInfo(const OsInfo* info);
    uint32_t WriteIPCompleteInformation(const IPCompleteInfo* info);
    uint32_t WriteCloseSocketcmd(uint16_t port);
    // For firmware below level 20. The driver distinguishes it from WriteMultiNwInfo by its size alone.
    uint32_t WriteNwInfo(const NwInfo* info);
    uint32_t WriteMultiNwInfo(const MultiNwInfo* info);
    uint32_t WriteKVMPacket(const KvmPacket* pKvmPacket);
    uint32_t WriteShutdownLaptop();
    uint32_t WriteUserConsent(const UserConsentAnswer* answer);
    uint32_t WriteWiFiSyncInfo(const WiFiSyncInfo* info);
    uint32_t WriteADInfo(const ADInfo* info);
    uint32_t WriteWinRetCode(uint32_t first, uint32_t second);
    // Sends an EncodedFrameChunk and the bytes behind it; sendSize counts both.
    uint32_t WriteEncodedBuffer(const void* pSendBuffer, uint32_t sendSize);
    // Shares the code of WriteEncodedBuffer; stays available without a caller.
    uint32_t SendEncodedDrvFrameBuffer(const EncodedFrameChunk* chunk);
    uint32_t WriteCapabilityConfig(const CapabilityConfigRecord* config);
    uint32_t WriteDisplayConfig(const DisplayConfigRecord* config);
    uint32_t WriteCSRResponse(const CsrResponse* response);
    uint32_t WritePwdUpdateStatus(const PwdUpdateStatus* status);

    // --- queries; the record is left as it was when the query fails ---

    uint32_t GetZELVersion(ManageabilityStatus* pMPMVersion);
    // 2 means that the firmware waits for the platform update. Every failure returns 487.
    uint32_t GetMPMStatus(uint8_t* pMPMstatus);
    uint32_t GetCloudCertInfo(CloudCertInfo* cloudCerts);
    // Succeeds even when Size exceeds the record's limit; the caller checks it.
    uint32_t GetDomainInfo(DomainInfo* domainDetails);

    // --- the firmware's log records (FirmwareLogBuffer.cpp); nothing calls these three yet ---

    // Asks the driver to map the ring of records, and stores its address in m_pLogBuffer. Returns 997 on
    // success, otherwise the error. Passes the closed gate.
    uint32_t AllocateLogBuffer();
    // Asks the driver to take the ring away again. Returns what AllocateLogBuffer returns. No reader may run.
    uint32_t DeAllocateLogBuffer();
    // Copies each new record to the log until the service stops, or at once returns when there is no ring.
    // Its own thread, which it keeps busy. A stop may wait for it for two seconds.
    void ReadLogBuffer(const std::atomic<uint8_t>& serviceStopping);
    void* m_pLogBuffer = nullptr;  // a FirmwareLogRing, which the driver owns

    // The gate: 1 after the service has reported itself as up. While it is 0, only WriteZELStatus and
    // GetMPMStatus are sent.
    std::atomic<uint8_t> m_bServiceUp{0};

  private:
    using SharedDevice = std::shared_ptr<const UniqueFileHandle>;
    using InterfaceDetail = std::shared_ptr<const SP_DEVICE_INTERFACE_DETAIL_DATA_A>;

    SharedDevice Device() const;
    // Returns the previous device.
    SharedDevice SetDevice(SharedDevice device);
    uint32_t InstallDevice(UniqueFileHandle device, uint64_t closes);
    uint32_t Write(const MailboxRequest& request, const void* bytes, uint32_t size);
    uint32_t RequestLogBuffer(const char* name, uint32_t code);
    template <class Record>
    uint32_t Write(const TypedRequest<Record, NoRecord>& request, const Record* record);
    template <class Record>
    uint32_t Query(const TypedRequest<NoRecord, Record>& request, Record* record);

    // Guards the detail data and the count: a thread may still search for the device while the service stops.
    // Not held during an open, which blocks for as long as the driver loads.
    std::mutex m_deviceMutex;
    // Kept after the open and after the close, because the second handle needs the path again.
    InterfaceDetail m_pDeviceInterfaceDetailData;
    uint64_t m_closes = 0;  // an open that returns after a close must not install its handle
    mutable std::mutex m_handleMutex;
    // Null while the device is not open. Each request keeps the device open until the request has ended,
    // because the number of a closed handle may be reused at once.
    SharedDevice m_hDevice;
    PendingRequests m_pendingRequests;
};
