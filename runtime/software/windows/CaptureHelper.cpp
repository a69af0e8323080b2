#include "runtime/software/windows/CaptureHelper.h"

#include <bcrypt.h>
#include <sddl.h>

#include <array>

#include "runtime/software/Trace.h"
#include "runtime/software/windows/HelperNames.h"

namespace luxrt {

using namespace lux;

namespace {

// The folder of this library, where the program lies beside it.
std::wstring ProgramPath() {
    HMODULE library = nullptr;
    std::array<wchar_t, 2048> path{};
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCWSTR>(&ProgramPath), &library)) {
        return {};
    }
    const DWORD length = GetModuleFileNameW(library, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0 || length >= path.size()) {
        return {};
    }
    const std::wstring file(path.data(), length);
    return file.substr(0, file.find_last_of(L"\\/") + 1) + kHelperProgram;
}

// A name that no other program can guess and take before.
std::wstring RandomName() {
    std::array<UCHAR, 16> bytes{};
    if (BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()),
                        BCRYPT_USE_SYSTEM_PREFERRED_RNG) != 0) {
        return {};
    }
    std::wstring name = L"luxrt-";
    for (const UCHAR byte : bytes) {
        name += L"0123456789abcdef"[byte >> 4];
        name += L"0123456789abcdef"[byte & 15];
    }
    return name;
}

// The objects belong to this process's user; the program's user may use them.
std::wstring AccessList(const std::wstring& user) {
    return L"D:P(A;;GA;;;SY)(A;;GA;;;OW)(A;;GRGWGX;;;" + user + L")";
}

}  // namespace

// An object of another session is found only in the global folder, where not every process can create one.
DWORD CaptureHelper::Prepare(size_t capacity) {
    const std::wstring user = m_program.User();
    const std::wstring name = RandomName();
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (user.empty() || name.empty() ||
        !ConvertStringSecurityDescriptorToSecurityDescriptorW(AccessList(user).c_str(), SDDL_REVISION_1,
                                                              &descriptor, nullptr)) {
        return user.empty() || name.empty() ? ERROR_INVALID_DATA : GetLastError();
    }
    const UniqueLocal<void> owner(descriptor);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
    const uint64_t bytes = SharedBytes(capacity);
    for (const wchar_t* folder : {L"Global\\", L"Local\\"}) {
        m_name = folder + name;
        m_memory.reset(CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE,
                                          static_cast<DWORD>(bytes >> 32), static_cast<DWORD>(bytes),
                                          m_name.c_str()));
        if (m_memory) {
            break;
        }
    }
    if (!m_memory || GetLastError() == ERROR_ALREADY_EXISTS) {
        return GetLastError();
    }
    m_view.reset(MapViewOfFile(m_memory.get(), FILE_MAP_WRITE, 0, 0, 0));
    m_requested.reset(CreateEventW(&attributes, FALSE, FALSE, (m_name + kRequestedSuffix).c_str()));
    m_answered.reset(CreateEventW(&attributes, FALSE, FALSE, (m_name + kAnsweredSuffix).c_str()));
    if (!m_view || !m_requested || !m_answered) {
        return GetLastError();
    }
    m_picture.emplace(m_view.get(), capacity);
    return ERROR_SUCCESS;
}

std::unique_ptr<CaptureHelper> CaptureHelper::Start(int64_t monitor, size_t capacity, DWORD session,
                                                    Rights rights) {
    std::unique_ptr<CaptureHelper> helper(new CaptureHelper(session, rights));
    if (const DWORD error = helper->Prepare(capacity); error != ERROR_SUCCESS) {
        TraceLine(LUX_TRACE_ERROR, "The memory for the capture program cannot be made (error %lu)", error);
        return nullptr;
    }
    const DWORD error =
        helper->m_program.Start(ProgramPath(), helper->m_name + L" " + std::to_wstring(monitor));
    if (error != ERROR_SUCCESS) {
        TraceLine(LUX_TRACE_WARNING, "The capture program cannot be started (error %lu)", error);
        return nullptr;
    }
    TraceLine(LUX_TRACE_INFO, "The capture program %lu was started for session %lu",
              GetProcessId(helper->m_program.Process()), session);
    return helper;
}

// The program holds nothing that it would have to put back. The job ends it too when this process dies.
CaptureHelper::~CaptureHelper() {
    if (m_program.Process()) {
        TerminateProcess(m_program.Process(), 0);
    }
}

bool CaptureHelper::Running() const {
    return WaitForSingleObject(m_program.Process(), 0) == WAIT_TIMEOUT;
}

void CaptureHelper::Request() {
    m_picture->Request();
    SetEvent(m_requested.get());
}

bool CaptureHelper::AwaitAnswer() {
    if (!m_picture->Answered()) {
        WaitForSingleObject(m_answered.get(), kPatienceMs);
    }
    return m_picture->Answered();
}

}  // namespace luxrt
