// The calls on files and devices.
#include <atomic>

#include "winhost/core/Gate.h"
#include "winhost/io/FileObject.h"
#include "winhost/io/MailboxHandle.h"
#include "winhost/io/NtStatus.h"

using winhost::Clock;
using winhost::Event;
using winhost::FileObject;
using winhost::HandleTable;
using winhost::OverlappedRequest;

namespace {

// Asks those who may know the name in turn; each leaves what is not its own at ERROR_FILE_NOT_FOUND.
DWORD Open(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file) {
    constexpr decltype(&winhost::OpenMailbox) kOpeners[] = {winhost::OpenMailbox};
    DWORD error = ERROR_FILE_NOT_FOUND;
    for (const auto opener : kOpeners)
        if ((error = opener(name, access, file)) != ERROR_FILE_NOT_FOUND) break;
    return error;
}

// What the call answers: TRUE when the request has ended already, and else FALSE with the reason.
BOOL Answer(DWORD result, LPDWORD bytes) {
    if (bytes) *bytes = 0;
    if (result == ERROR_SUCCESS) return TRUE;
    SetLastError(result);
    return FALSE;
}

// Finds the file, begins the request and makes it by `issue(file, request)`.
template <class Issue>
BOOL MakeRequest(HANDLE handle, LPDWORD bytes, LPOVERLAPPED overlapped, Issue issue) {
    const auto file = HandleTable::Instance().Find<FileObject>(handle);
    OverlappedRequest request;
    if (!file) return Answer(ERROR_INVALID_HANDLE, bytes);
    if (!overlapped) return Answer(ERROR_INVALID_PARAMETER, bytes);
    if (!request.Begin(*file, overlapped)) return Answer(ERROR_INVALID_HANDLE, bytes);
    return Answer(issue(*file, std::move(request)), bytes);
}

}  // namespace

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE) {
    WINHOST_GATE("CreateFileA", INVALID_HANDLE_VALUE);
    std::shared_ptr<FileObject> file;
    DWORD error = ERROR_NOT_SUPPORTED;
    if (disposition == OPEN_EXISTING && (flags & FILE_FLAG_OVERLAPPED)) error = Open(name, access, file);
    HANDLE handle = nullptr;
    if (error == ERROR_SUCCESS && !(handle = HandleTable::Instance().Add(file))) {
        file->OnClose();
        error = ERROR_NO_SYSTEM_RESOURCES;
    }
    SetLastError(error);
    return error == ERROR_SUCCESS ? handle : INVALID_HANDLE_VALUE;
}

BOOL DeviceIoControl(HANDLE device, DWORD controlCode, LPVOID input, DWORD inputSize, LPVOID output,
                     DWORD outputSize, LPDWORD bytesReturned, LPOVERLAPPED overlapped) {
    WINHOST_GATE("DeviceIoControl", FALSE);
    return MakeRequest(device, bytesReturned, overlapped, [&](FileObject& file, OverlappedRequest request) {
        return file.Control(std::move(request), controlCode, input, inputSize, output, outputSize);
    });
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD bytesRead, LPOVERLAPPED overlapped) {
    WINHOST_GATE("ReadFile", FALSE);
    return MakeRequest(handle, bytesRead, overlapped, [&](FileObject& file, OverlappedRequest request) {
        return file.Read(std::move(request), buffer, size);
    });
}

// The file is not looked at: what it would tell stands in the OVERLAPPED.
BOOL GetOverlappedResult(HANDLE, LPOVERLAPPED overlapped, LPDWORD bytesMoved, BOOL wait) {
    WINHOST_GATE("GetOverlappedResult", FALSE);
    const std::atomic_ref status(overlapped->Internal);
    while (status.load(std::memory_order_acquire) == STATUS_PENDING) {
        if (!wait) return Answer(ERROR_IO_INCOMPLETE, nullptr);
        const auto event = HandleTable::Instance().Find<Event>(overlapped->hEvent);
        if (!event) return Answer(ERROR_INVALID_HANDLE, nullptr);
        event->Wait(Clock::kNever);
    }
    *bytesMoved = static_cast<DWORD>(overlapped->InternalHigh);
    const DWORD error = winhost::ErrorOf(status.load(std::memory_order_relaxed));
    if (error == ERROR_SUCCESS) return TRUE;
    SetLastError(error);
    return FALSE;
}

BOOL CancelIoEx(HANDLE handle, LPOVERLAPPED overlapped) {
    WINHOST_GATE("CancelIoEx", FALSE);
    const auto file = HandleTable::Instance().Find<FileObject>(handle);
    if (!file) return Answer(ERROR_INVALID_HANDLE, nullptr);
    return Answer(file->Cancel(overlapped) ? ERROR_SUCCESS : ERROR_NOT_FOUND, nullptr);
}
