// The start, the thread and the end of the cloud client.
#include "cloud/NubaClient.h"

#include <exception>
#include <fstream>
#include <system_error>

#include "base/FilesystemPath.h"
#include "base/Log.h"
#include "cloud/NubaCallbacks.h"
#include "mailbox/FirmwareLevels.h"
#include "state/ServiceState.h"

namespace {

constexpr int kMaxAttempts = 36;
constexpr DWORD kRetryMilliseconds = 5000;
constexpr DWORD kEndMilliseconds = 3000;
constexpr size_t kMaxHostName = 256;
constexpr const char* kThreadName = "operator ()";

// The library may throw.
void DeinitGuarded(const NubaFunctions& nuba, InitData* data, TerminableCalls& calls) {
    try {
        const TerminableCalls::Call call(calls);
        nuba.nuba_server_deinit(data);
    } catch (const std::exception& exception) {
        LogError("nuba_server_deinit %s", exception.what());
    } catch (...) {
        LogError("Unknown error in nuba_server_deinit");
    }
}

void LogPort(uint32_t port) {
    const auto byte = [port](int index) { return static_cast<uint8_t>(port >> (8 * index)); };
    LogInfo("NUBA port UInt8 Array{0, 1}: %d, %d", byte(0), byte(1));
    LogInfo("NUBA port UInt8 Array{2, 3}: %d, %d", byte(2), byte(3));
}

}  // namespace

NubaClient::NubaClient()
    : m_hNubaStopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
      m_hNubaDoneEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
      m_deinitDoneEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

CloudPaths PathsOfCloud() {
    const std::string folder = g_pServiceState->GetWorkingFolder();
    const std::string certs = folder + "\\certs";
    return {folder + "\\cloud.txt", certs, certs + "\\cert.pem", certs + "\\key.pem", certs + "\\ca.pem"};
}

// The farewell to the firmware closes the gate before it ends the connection, so that no later start can
// follow: each start looks at the gate while it holds the lock that the end needs.
bool NubaClient::IsServiceUp() const {
    return g_pServiceState->m_mailBoxDriverInterface.m_bServiceUp && !g_pServiceState->m_bServiceStopping;
}

void NubaClient::startNUBA() {
    const std::lock_guard lock(m_lifeMutex);
    if (m_bRunning) {
        LogInfo("NUBA is already running from ZEL");
        return;
    }
    if (!IsServiceUp()) {
        LogInfo("NUBA is not started, the service is down");
        return;
    }
    LogInfo("Start NUBA from ZEL");
    if (g_pServiceState->m_vorkVersion >= FirmwareLevel::CloudDomainMatch && !IsOutsideCorporateNetwork()) {
        m_bRunning.exchange(0);
        return;
    }
    std::string host;
    if (!ReadHost(host)) return;
    if (host.empty()) {
        LogWarn("Detect cloud server is empty");
        return;
    }
    if (!m_bCloudDataRead) {
        LogWarn("NUBA Data is not yet read from MPM");
        return;
    }
    LogInfo("Attempting connection with: %s", host);
    const NubaFunctions* const nuba = m_library.Load();
    if (!nuba) return;
    // A thread that has ended by itself, or runs although the firmware's data has stopped being complete.
    EndConnection();
    if (Configure(*nuba, host)) StartThread(*nuba);
}

// The last line is the host. A line end behind the only line leaves it empty.
bool NubaClient::ReadHost(std::string& host) const {
    std::ifstream file(FilesystemPath(PathsOfCloud().host));
    if (!file.is_open()) {
        LogError("Unable to open cloud.txt file");
        return false;
    }
    do {
        host.clear();
        std::getline(file, host);
        LogInfo("Detect cloud server: %s", host);
    } while (file.good());
    return true;
}

bool NubaClient::Configure(const NubaFunctions& nuba, const std::string& host) {
    char localHost[kMaxHostName] = "";
    gethostname(localHost, static_cast<int>(sizeof localHost));
    m_initData = {nuba.InitData_new(), {nuba.InitData_delete}};
    if (!m_initData) {
        LogError("InitData_new failed");
        return false;
    }
    uint32_t port = 0;
    {
        const std::lock_guard lock(m_dataMutex);
        port = m_cloudCertInfo.Port;
    }
    LogPort(port);
    if (port == 0) {
        LogInfo("NUBA Data is not yet read from MPM");
        return false;
    }
    m_bRunning.exchange(1);
    LogInfo("NUBA port %d", port);
    const CloudPaths paths = PathsOfCloud();
    InitData* const data = m_initData.get();
    PrepareFilter(nuba, g_pServiceState->dashPort);
    const uint8_t endpoint =
        nuba.InitData_set_endpoint(data, localHost, host.c_str(), std::to_string(port).c_str());
    const uint8_t certificates = nuba.InitData_set_cert_file(data, paths.certificate.c_str(),
                                                             paths.key.c_str(), paths.authority.c_str());
    const uint8_t filter = nuba.InitData_set_filter(data, &FilterOfNuba, nullptr);
    LogDebug("Return code setEndPoint: %d, setcert: %d, setFilter: %d", endpoint, certificates, filter);
    nuba.nuba_setlogger(&LogOfNuba);
    return true;
}

void NubaClient::StartThread(const NubaFunctions& nuba) {
    m_bKeepRunning.exchange(1);
    ResetEvent(m_hNubaStopEvent.Get());
    ResetEvent(m_hNubaDoneEvent.Get());
    try {
        m_pNubaThreadObj =
            LibraryThread::Start(m_hNubaDoneEvent.Get(),
                                 [this, &nuba, data = m_initData.get(), run = ++m_run](
                                     TerminableCalls& calls) { NubaClientThread(nuba, data, run, calls); });
    } catch (const std::system_error& error) {
        LogError("NUBA thread cannot be started: %s", error.what());
    }
    if (!m_pNubaThreadObj) m_bRunning.exchange(0);
}

// Its owner sets m_hNubaDoneEvent when it has returned.
void NubaClient::NubaClientThread(const NubaFunctions& nuba, InitData* data, uint32_t run,
                                  TerminableCalls& calls) {
    for (int attempt = 1; attempt <= kMaxAttempts;)
        if (!ConnectOnce(nuba, data, run, calls, attempt)) break;
    if (run != m_run) return;
    m_bKeepRunning.exchange(0);
    m_bRunning.exchange(0);
}

// Returns false when the thread has to end.
bool NubaClient::ConnectOnce(const NubaFunctions& nuba, InitData* data, uint32_t run, TerminableCalls& calls,
                             int& attempt) {
    LogDebug(" %s: NUBA--nuba_server_init() ", kThreadName);
    {
        const TerminableCalls::Call call(calls);
        nuba.nuba_server_init(data);
    }
    if (!m_bKeepRunning || run != m_run) return false;
    switch (WaitForSingleObject(m_hNubaStopEvent.Get(), kRetryMilliseconds)) {
        case WAIT_OBJECT_0:
            LogDebug(" %s: NUBA--nuba_server_deinit() ", kThreadName);
            DeinitGuarded(nuba, data, calls);
            LogInfo("NUBA Thread exiting");
            return false;
        case WAIT_FAILED:
            LogInfo("WaitForSingleObject failed");
            return false;
        case WAIT_TIMEOUT:
            LogInfo("Retrying connection to NUBA retrial attempt: %d", attempt);
            break;
        default:
            break;
    }
    ++attempt;
    return true;
}

void NubaClient::stopNUBA() {
    const std::lock_guard lock(m_lifeMutex);
    if (!m_bRunning) {
        LogInfo("Not connected over NUBA skipping stopNUBA");
        return;
    }
    if (!m_pNubaThreadObj) {
        LogInfo("NUBA thread is NULL in stop");
        return;
    }
    LogInfo("Attempting to deinit NUBA");
    EndConnection();
    m_bRunning.exchange(0);
    LogInfo("stop NUBA");
}

void NubaClient::EndThread() {
    const std::lock_guard lock(m_lifeMutex);
    EndConnection();
    m_bRunning.exchange(0);
}

// The caller holds m_lifeMutex. Frees the configuration when no thread uses it any more.
void NubaClient::EndConnection() {
    if (m_pNubaThreadObj) {
        m_bKeepRunning.exchange(0);
        SetEvent(m_hNubaStopEvent.Get());
        if (!m_pNubaThreadObj->HasReturned()) Deinit();
        AwaitThread();
        m_pNubaThreadObj.reset();
    }
    m_initData.reset();
}

// On a thread of its own, because the library may not return: the stop of the service waits for this.
void NubaClient::Deinit() {
    const NubaFunctions* const nuba = m_library.Loaded();
    ResetEvent(m_deinitDoneEvent.Get());
    std::unique_ptr<LibraryThread> thread;
    try {
        thread = LibraryThread::Start(
            m_deinitDoneEvent.Get(),
            [nuba, data = m_initData.get()](TerminableCalls& calls) { DeinitGuarded(*nuba, data, calls); });
    } catch (const std::system_error& error) {
        LogError("NUBA thread cannot be started: %s", error.what());
    }
    if (!thread) return;
    if (thread->AwaitEnd(kEndMilliseconds)) {
        thread->Join();
        return;
    }
    LogWarn("nuba_server_deinit does not return, its thread is terminated");
    // What the thread may still use is not freed.
    if (!thread->Terminate()) static_cast<void>(m_initData.release());
}

void NubaClient::AwaitThread() {
    LogInfo("Waiting for NUBA thread");
    if (!m_pNubaThreadObj->AwaitEnd(kEndMilliseconds)) {
        LogInfo("Terminating NUBA thread");
        if (!m_pNubaThreadObj->Terminate()) {
            LogWarn("NUBA thread does not end and is left");
            ++m_run;
            static_cast<void>(m_initData.release());
        }
        m_bKeepRunning.exchange(0);
        return;
    }
    try {
        if (m_pNubaThreadObj->IsJoinable())
            m_pNubaThreadObj->Join();
        else
            LogError("NUBA thread not joinable");
    } catch (const std::exception& exception) {
        LogInfo("Error while stopping nuba thread: %s", exception.what());
    }
    LogInfo("NUBA Thread stopped gracefully");
}
