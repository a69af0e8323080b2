// The calls on files and devices.
#include <atomic>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/files/DiskFile.h"
#include "winhost/io/FileObject.h"
#include "winhost/io/MailboxDevice.h"
#include "winhost/io/MailboxHandle.h"
#include "winhost/pc/Pc.h"
#include "winhost/pipe/PipeClient.h"

using winhost::Clock;
using winhost::Event;
using winhost::Fail;
using winhost::FileObject;
using winhost::HandleTable;
using winhost::OverlappedFile;
using winhost::OverlappedRequest;
using winhost::SynchronousFile;

namespace {

DWORD Open(const std::string& name, DWORD access, DWORD flags, std::shared_ptr<FileObject>& file) {
    const bool overlapped = flags & FILE_FLAG_OVERLAPPED;
    if (winhost::IsPipeName(name))
        return flags & ~DWORD{FILE_ATTRIBUTE_NORMAL} ? static_cast<DWORD>(ERROR_NOT_SUPPORTED)
                                                     : winhost::OpenPipe(name, access, file);
    return overlapped ? winhost::OpenMailbox(name, access, file) : static_cast<DWORD>(ERROR_NOT_SUPPORTED);
}

// What the call answers: TRUE when the request has ended already, and else FALSE with the reason.
BOOL Answer(DWORD result, LPDWORD bytes) {
    if (bytes) *bytes = 0;
    if (result == ERROR_SUCCESS) return TRUE;
    return Fail(result);
}

// For a handle of a kind that doesn't know the request.
BOOL RefuseRequest(HANDLE handle, LPDWORD bytes) {
    const bool isFile = HandleTable::Instance().Find<FileObject>(handle) != nullptr;
    return Answer(isFile ? ERROR_INVALID_FUNCTION : ERROR_INVALID_HANDLE, bytes);
}

// Begins the request and makes it by `issue(request)`.
template <class Issue>
BOOL MakeRequest(OverlappedFile& file, LPDWORD bytes, LPOVERLAPPED overlapped, Issue issue) {
    OverlappedRequest request;
    if (!overlapped) return Answer(ERROR_INVALID_PARAMETER, bytes);
    if (const DWORD error = request.Begin(file, overlapped)) return Answer(error, bytes);
    return Answer(issue(std::move(request)), bytes);
}

// Makes a request that has ended when the call returns, by `issue(moved)`.
template <class Issue>
BOOL MakeRequestNow(const void* buffer, DWORD size, LPDWORD bytes, LPOVERLAPPED overlapped, Issue issue) {
    if (overlapped) return Answer(ERROR_NOT_SUPPORTED, bytes);
    if (size != 0 && !buffer) return Answer(ERROR_NOACCESS, bytes);
    DWORD moved = 0;
    const DWORD error = issue(moved);
    const BOOL answer = Answer(error, nullptr);
    if (bytes) *bytes = moved;
    return answer;
}

}  // namespace

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD shareMode, LPSECURITY_ATTRIBUTES attributes,
                   DWORD disposition, DWORD flags, HANDLE) {
    WINHOST_GATE("CreateFileA", INVALID_HANDLE_VALUE);
    std::shared_ptr<FileObject> file;
    DWORD error = ERROR_NOT_SUPPORTED;
    bool existed = false;
    if (winhost::IsOnDrive(name)) {
        error = winhost::OpenDiskFile(name, access, attributes, disposition, flags, file, existed);
    } else if (disposition == OPEN_EXISTING) {
        // Whether one more handle may be opened is the device's own decision.
        winhost::Pc::Instance().Record(winhost::CallArgument{"CreateFileA", "dwShareMode", shareMode});
        error = Open(name, access, flags, file);
    }
    HANDLE handle = nullptr;
    if (error == ERROR_SUCCESS && !(handle = HandleTable::Instance().Add(file))) {
        file->OnClose();
        error = ERROR_NO_SYSTEM_RESOURCES;
    }
    const bool isReported = error == ERROR_SUCCESS && existed && disposition == OPEN_ALWAYS;
    SetLastError(isReported ? static_cast<DWORD>(ERROR_ALREADY_EXISTS) : error);
    return error == ERROR_SUCCESS ? handle : INVALID_HANDLE_VALUE;
}

BOOL DeviceIoControl(HANDLE device, DWORD controlCode, LPVOID input, DWORD inputSize, LPVOID output,
                     DWORD outputSize, LPDWORD bytesReturned, LPOVERLAPPED overlapped) {
    WINHOST_GATE("DeviceIoControl", FALSE);
    const auto file = HandleTable::Instance().Find<OverlappedFile>(device);
    if (!file) return RefuseRequest(device, bytesReturned);
    return MakeRequest(*file, bytesReturned, overlapped, [&](OverlappedRequest request) {
        return file->Control(std::move(request), controlCode, input, inputSize, output, outputSize);
    });
}

BOOL ReadFile(HANDLE handle, LPVOID buffer, DWORD size, LPDWORD bytesRead, LPOVERLAPPED overlapped) {
    WINHOST_GATE("ReadFile", FALSE);
    HandleTable& table = HandleTable::Instance();
    if (const auto file = table.Find<OverlappedFile>(handle))
        return MakeRequest(*file, bytesRead, overlapped, [&](OverlappedRequest request) {
            return file->Read(std::move(request), buffer, size);
        });
    const auto file = table.Find<SynchronousFile>(handle);
    if (!file) return RefuseRequest(handle, bytesRead);
    return MakeRequestNow(buffer, size, bytesRead, overlapped,
                          [&](DWORD& moved) { return file->Read(buffer, size, moved); });
}

BOOL WriteFile(HANDLE handle, LPCVOID data, DWORD size, LPDWORD bytesWritten, LPOVERLAPPED overlapped) {
    WINHOST_GATE("WriteFile", FALSE);
    const auto file = HandleTable::Instance().Find<SynchronousFile>(handle);
    if (!file) return RefuseRequest(handle, bytesWritten);
    return MakeRequestNow(data, size, bytesWritten, overlapped,
                          [&](DWORD& moved) { return file->Write(data, size, moved); });
}

// In the SDK a macro, which reads the same field. No thread completes the request while none waits for it, so
// this one does what can be done.
BOOL HasOverlappedIoCompleted(const OVERLAPPED* overlapped) {
    const std::atomic_ref status(const_cast<OVERLAPPED*>(overlapped)->Internal);
    if (status.load(std::memory_order_acquire) == STATUS_PENDING) winhost::MailboxDevice::Instance().Work();
    return status.load(std::memory_order_acquire) != STATUS_PENDING;
}

// The file is not looked at: the OVERLAPPED holds the result.
BOOL GetOverlappedResult(HANDLE, LPOVERLAPPED overlapped, LPDWORD bytesMoved, BOOL wait) {
    WINHOST_GATE("GetOverlappedResult", FALSE);
    const std::atomic_ref status(overlapped->Internal);
    if (!wait) HasOverlappedIoCompleted(overlapped);
    while (status.load(std::memory_order_acquire) == STATUS_PENDING) {
        if (!wait) return Answer(ERROR_IO_INCOMPLETE, nullptr);
        const auto event = HandleTable::Instance().Find<Event>(overlapped->hEvent);
        if (!event) return Answer(ERROR_INVALID_HANDLE, nullptr);
        event->Wait(Clock::kNever);
        if (winhost::IsThreadEnding()) return Answer(ERROR_OPERATION_ABORTED, nullptr);
    }
    *bytesMoved = static_cast<DWORD>(overlapped->InternalHigh);
    const DWORD error = winhost::ErrorOf(status.load(std::memory_order_relaxed));
    if (error == ERROR_SUCCESS) return TRUE;
    return Fail(error);
}

BOOL CancelIoEx(HANDLE handle, LPOVERLAPPED overlapped) {
    WINHOST_GATE("CancelIoEx", FALSE);
    const auto file = HandleTable::Instance().Find<FileObject>(handle);
    if (!file) return Answer(ERROR_INVALID_HANDLE, nullptr);
    return Answer(file->Cancel(overlapped) ? ERROR_SUCCESS : ERROR_NOT_FOUND, nullptr);
}
