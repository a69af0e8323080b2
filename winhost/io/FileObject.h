// What is read and written by its handle, and the requests made of it. A new kind of device is a class
// derived from OverlappedFile that FileCalls.cpp opens; handles that block are of a class derived from
// SynchronousFile.
#pragma once

#include <memory>
#include <mutex>

#include <winbase.h>

#include "winhost/core/HandleTable.h"
#include "winhost/core/PolledDevice.h"
#include "winhost/io/CompletionPort.h"
#include "winhost/kernel/Event.h"

namespace winhost {

// The status that an OVERLAPPED holds for a Win32 error: it stands in the facility that is made for these. A
// number that no error has counts as ERROR_MR_MID_NOT_FOUND.
inline ULONG_PTR StatusOf(DWORD error) {
    constexpr DWORD kWin32Facility = 0xC0070000, kHighestError = 0xFFFF;
    if (error == ERROR_SUCCESS) return 0;
    return kWin32Facility | (error <= kHighestError ? error : DWORD{ERROR_MR_MID_NOT_FOUND});
}
inline DWORD ErrorOf(ULONG_PTR status) {
    return static_cast<DWORD>(status & 0xFFFF);
}

class OverlappedFile;

// One overlapped request, from its start until Complete has reported its end. Complete is the last touch of
// the caller's OVERLAPPED, and has to be called at most once.
class OverlappedRequest {
  public:
    OverlappedRequest() = default;
    OverlappedRequest(OverlappedRequest&&) = default;
    ~OverlappedRequest();
    // Marks the request as pending and resets its event. ERROR_INVALID_HANDLE for an hEvent that is no event,
    // ERROR_NOT_SUPPORTED for one of a pending request to another file.
    DWORD Begin(OverlappedFile& file, OVERLAPPED* overlapped);
    void Complete(DWORD error, DWORD bytes);
    // Wakes a thread that waits for this request and doesn't lead its file. False when there is none.
    bool Nudge();

    OVERLAPPED* Overlapped() const { return m_overlapped; }
    // That made it.
    const CallingThread* Thread() const { return m_thread; }

  private:
    OVERLAPPED* m_overlapped = nullptr;
    const CallingThread* m_thread = t_calls.thread;
    std::shared_ptr<Event> m_event;
    std::shared_ptr<CompletionPort> m_port;
    ULONG_PTR m_key = 0;
};

class FileObject : public Object {
  public:
    // Ends the pending requests made with this OVERLAPPED, or all for null, with ERROR_OPERATION_ABORTED.
    // False when there was none.
    virtual bool Cancel(const OVERLAPPED* overlapped) = 0;
};

class OverlappedFile : public FileObject, public PolledDevice {
  public:
    static OverlappedFile* Of(Object& object) { return object.AsOverlappedFile(); }
    OverlappedFile* AsOverlappedFile() final { return this; }
    // Each answers ERROR_IO_PENDING, and completes the request later; or ERROR_SUCCESS, and has completed it
    // with 0 bytes; or the error with which it was refused, and never completes it.
    virtual DWORD Read(OverlappedRequest request, void* buffer, DWORD size) = 0;
    virtual DWORD Control(OverlappedRequest request, DWORD code, const void* input, DWORD inputSize,
                          void* output, DWORD outputSize) = 0;

    // A file has one port at most.
    bool Associate(std::shared_ptr<CompletionPort> port, ULONG_PTR key);

  private:
    friend class OverlappedRequest;
    std::mutex m_portMutex;
    std::shared_ptr<CompletionPort> m_port;
    ULONG_PTR m_key = 0;
};

class SynchronousFile : public FileObject {
  public:
    // Each blocks until the request has ended, and answers its error. `bytes` were moved, also with
    // ERROR_MORE_DATA.
    virtual DWORD Read(void* buffer, DWORD size, DWORD& bytes) = 0;
    virtual DWORD Write(const void* data, DWORD size, DWORD& bytes) = 0;
};

}  // namespace winhost
