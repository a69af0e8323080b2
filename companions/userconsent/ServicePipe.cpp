#include "companions/userconsent/ServicePipe.h"

#include <array>

namespace {

constexpr const char* kName = "\\\\.\\pipe\\userconsentfeature";
constexpr DWORD kPause = 100;  // milliseconds between two attempts
constexpr size_t kLongestMessage = 512;

HANDLE Open() {
    return CreateFileA(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

}  // namespace

bool HasHungUp(DWORD error) {
    return error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED;
}

DWORD ServicePipe::Connect(Patience patience) {
    const auto start = std::chrono::steady_clock::now();
    for (m_pipe.Reset(Open()); !m_pipe; m_pipe.Reset(Open())) {
        const DWORD error = GetLastError();
        // The client retries while no pipe exists, while another client is connected to it, and while the
        // service has disconnected the pipe but not yet closed it.
        if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PIPE_BUSY && !HasHungUp(error)) return error;
        if (patience && std::chrono::steady_clock::now() - start >= *patience) return WAIT_TIMEOUT;
        Sleep(kPause);
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (SetNamedPipeHandleState(m_pipe.Get(), &mode, nullptr, nullptr)) return ERROR_SUCCESS;
    const DWORD error = GetLastError();
    return HasHungUp(error) ? ERROR_SUCCESS : error;  // the next read reports the error
}

DWORD ServicePipe::Read(std::string& message) {
    std::array<char, kLongestMessage> buffer;
    DWORD size = 0;
    if (!ReadFile(m_pipe.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &size, nullptr))
        return GetLastError();
    message.assign(buffer.data(), size);
    return ERROR_SUCCESS;
}

DWORD ServicePipe::Write(const std::string& message) {
    DWORD written = 0;
    const BOOL ok =
        WriteFile(m_pipe.Get(), message.data(), static_cast<DWORD>(message.size()), &written, nullptr);
    return ok ? ERROR_SUCCESS : GetLastError();
}

void ServicePipe::AwaitEnd() {
    std::string ignored;
    while (Read(ignored) == ERROR_SUCCESS) {
    }
}
