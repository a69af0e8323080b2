#include "identity/CsrEnrolment.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "base/FieldText.h"
#include "base/Handles.h"
#include "base/Log.h"
#include "identity/CertificateChain.h"
#include "identity/CsrFiles.h"
#include "state/ServiceState.h"

namespace {

constexpr DWORD kStopPoll = 500;  // milliseconds

// What the thread owns.
struct Enrolment {
    CsrRequest request{};
    CsrResponse response{};
};

// A field need not have a NUL.
template <size_t N>
std::string Name(const char (&field)[N]) {
    return std::string(TextInField(field));
}

std::string Quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string SubmitCommand(const CsrRequest& request) {
    return "certreq.exe -submit -config " + Quoted(Name(request.ADCSName) + '\\' + Name(request.RootCAName)) +
           " -attrib " + Quoted("CertificateTemplate:" + Name(request.ADCSTemplateName)) + ' ' +
           Quoted(GetCsrInputPath()) + ' ' + Quoted(GetCsrOutputPath());
}

// Returns false when the service stops before the program has ended.
bool AwaitEnd(HANDLE program) {
    while (WaitForSingleObject(program, kStopPoll) == WAIT_TIMEOUT)
        if (g_pServiceState->m_bServiceStopping) return false;
    return true;
}

// Returns false when the service stops meanwhile. A program that cannot be started leaves no certificate, and
// its exit code says no more than that.
bool RunToEnd(std::string command) {
    // The program runs as SYSTEM and writes to the folder, so no user must be able to write there.
    if (!g_pServiceState->m_bWorkingFolderSecure) return true;
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &information))
        return true;
    const UniqueHandle process(information.hProcess), thread(information.hThread);
    return AwaitEnd(process.Get());
}

bool SubmitCsr(const CsrRequest& request) {
    SaveCsrToFile(request);
    LogInfo("Sending request to CA server...");
    const std::string command = SubmitCommand(request);
    LogInfo("Certificate request command: %s", command);
    return RunToEnd(command);
}

void CsrWorker(ServiceState& service, const CsrRequest& request, CsrResponse& response) {
    LogInfo("retrive CSR From MPM");
    LogInfo("CSR Details ADCS Name=%s RootCAName=%s ADCSTemplateName=%s", Name(request.ADCSName),
            Name(request.RootCAName), Name(request.ADCSTemplateName));
    LogInfo("CSR Details Is Root CA Required=%d CSR Size=%d", uint32_t{request.IsRootCARequired},
            uint32_t{request.CSRSize});
    RemoveCsrFolder();
    if (SubmitCsr(request)) {
        // Whatever it finds, the answer has the files that exist.
        FindCertificateChain(Name(request.RootCAName));
        ReadCsrResponse(response);
        LogInfo("CSR Response %d %d", uint32_t{response.RootCertSize}, uint32_t{response.SignedCertSize});
        service.m_mailBoxDriverInterface.WriteCSRResponse(&response);
    } else {
        LogWarn("CsrWorker: the service stops, certreq.exe is left running and MPM gets no CSR response");
    }
    RemoveCsrFolder();
}

}  // namespace

void HandleCsrCommand(const void* payload, size_t size) {
    LogInfo("Size of CSR buffer %lld", size);
    const auto enrolment = std::make_shared<Enrolment>();
    std::memcpy(&enrolment->request, payload, std::min(size, sizeof enrolment->request));
    g_pServiceState->m_detachedThreads.Start(
        [enrolment] { CsrWorker(*g_pServiceState, enrolment->request, enrolment->response); });
}
