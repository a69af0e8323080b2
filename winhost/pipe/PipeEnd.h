// What the server's and the client's handles have in common: one request at a time, which any thread can end.
#pragma once

#include <memory>
#include <mutex>

#include "winhost/io/FileObject.h"
#include "winhost/pipe/PipeConnection.h"
#include "winhost/pipe/PipeFolder.h"

namespace winhost {

class PipeEnd : public SynchronousFile {
  public:
    DWORD Read(void* buffer, DWORD size, DWORD& bytes) override;
    DWORD Write(const void* data, DWORD size, DWORD& bytes) override;
    // FlushFileBuffers: waits until the peer has read all.
    DWORD Flush();
    // PIPE_READMODE_*.
    virtual DWORD SetReadMode(DWORD mode) = 0;
    bool Cancel(const OVERLAPPED* overlapped) override;
    // Ends the request that is under way as Cancel does. When it returns, the pipe is free of this end.
    void OnClose() override;

  protected:
    bool IsUsable() const { return m_interrupt.IsMade(); }

    // Runs `request()` as the one request of this handle, and returns its error.
    template <class Request>
    DWORD Perform(Request request);

    // Called within a request: sees to it that there is a connection.
    virtual DWORD NeedConnection() = 0;
    // What the handle is for. A client that has not set its read mode reads nothing here.
    enum class Reading { Messages, Bytes, NotYet, Denied };
    virtual Reading Reads() const = 0;
    virtual bool Writes() const = 0;
    virtual void Release() { m_connection.reset(); }

    // Of the request under way, below.
    std::unique_ptr<PipeConnection> m_connection;
    Interrupt m_interrupt;

  private:
    std::mutex m_requests;  // held by the request under way
    std::mutex m_mutex;     // guards the two below
    bool m_underWay = false;
    bool m_closed = false;
};

template <class Request>
DWORD PipeEnd::Perform(Request request) {
    std::lock_guard one(m_requests);
    {
        std::lock_guard lock(m_mutex);
        if (m_closed) return ERROR_INVALID_HANDLE;
        m_underWay = true;
    }
    const DWORD error = request();
    std::lock_guard lock(m_mutex);
    m_underWay = false;
    if (!m_closed) m_interrupt.Clear();
    return error;
}

}  // namespace winhost
