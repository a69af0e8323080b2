// The client of the cloud connection, through which a console reaches this host outside of the company's
// network. The library nubaapi.dll holds the connection; this class configures it from the firmware's data,
// runs it on a thread of its own, tries again, and ends it around changes of the network.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/Handles.h"
#include "cloud/LibraryThread.h"
#include "cloud/NubaLibrary.h"
#include "mailbox/MailboxRecords.h"

struct DeleteInitData {
    InitDataDelete_Fn function = nullptr;
    void operator()(InitData* data) const { function(data); }
};

// Any thread may call any method.
class NubaClient {
  public:
    NubaClient();
    // The thread must have ended.
    ~NubaClient() = default;
    NubaClient(const NubaClient&) = delete;
    NubaClient& operator=(const NubaClient&) = delete;

    // Starts the client unless it runs already, this host is in the company's network, or there is no data
    // for a connection. Does nothing once the service has reported that it is down.
    void startNUBA();
    // Ends the connection. Blocks for 3 seconds when the library does not end it, and for 3 more when its
    // deinit does not return.
    void stopNUBA();
    // Does the same without a word when no thread runs. At the end of the process.
    void EndThread();

    // --- the firmware's data (CloudProvisioning.cpp); waits for the firmware ---

    // Writes the files of the connection from the firmware's data. Returns true when they are there.
    bool GetCloudProvisioning();
    // Does the same, and reads the domains of the company's network.
    void SetupCloudServer();

    // --- where this host is (NetworkDomains.cpp) ---

    // Returns true when the client may connect: no active adapter has one of the company's domains.
    bool IsOutsideCorporateNetwork();

    bool IsRunning() const { return m_bRunning != 0; }
    bool HasCloudData() const { return m_bCloudDataRead != 0; }
    std::vector<std::string> Domains() const;

  private:
    bool IsServiceUp() const;
    bool ReadHost(std::string& host) const;
    bool Configure(const NubaFunctions& nuba, const std::string& host);
    void StartThread(const NubaFunctions& nuba);
    void NubaClientThread(const NubaFunctions& nuba, InitData* data, uint32_t run, TerminableCalls& calls);
    bool ConnectOnce(const NubaFunctions& nuba, InitData* data, uint32_t run, TerminableCalls& calls,
                     int& attempt);
    void EndConnection();
    void Deinit();
    void AwaitThread();
    bool WriteFiles(const CloudCertInfo& info);
    bool PrepareCertsFolder(const std::string& folder) const;

    std::atomic<uint8_t> m_bRunning{0};
    std::vector<std::string> m_domainList;                 // guarded by m_dataMutex
    std::unique_ptr<InitData, DeleteInitData> m_initData;  // guarded by m_lifeMutex
    CloudCertInfo m_cloudCertInfo{};                       // without the key; guarded by m_dataMutex
    std::unique_ptr<LibraryThread> m_pNubaThreadObj;       // guarded by m_lifeMutex
    std::atomic<uint8_t> m_bKeepRunning{0};
    UniqueHandle m_hNubaStopEvent;  // manual-reset, as the others
    UniqueHandle m_hNubaDoneEvent;
    std::atomic<uint8_t> m_bCloudDataRead{0};

    UniqueHandle m_deinitDoneEvent;
    // Grows with each start and with a thread that could not be ended, which then changes nothing any more.
    std::atomic<uint32_t> m_run{0};
    NubaLibrary m_library;           // guarded by m_lifeMutex
    std::mutex m_lifeMutex;          // held by a start and by a stop, whole
    mutable std::mutex m_dataMutex;  // held also while the files are written
};

// The DNS suffixes of the active adapters, each once.
std::vector<std::string> GetNetworkDomains();

// The files that the cloud library reads, and that the firmware's data is written to.
struct CloudPaths {
    std::string host;         // the file with the name of the cloud's host
    std::string certsFolder;  // only the system and administrators can read what is in it
    std::string certificate, key, authority;
};
CloudPaths PathsOfCloud();
