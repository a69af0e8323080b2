// A PC with a mailbox device, and the test as its firmware.
#pragma once

#include <optional>

#include "winhost/io/MailboxDevice.h"
#include "winhost/tests/LinkPeer.h"
#include "winhost/tests/PcFixture.h"

class MailboxFixture : public PcFixture {
  protected:
    // The rights of a request are in its code; these are some of the firmware's.
    static constexpr DWORD kWriteCode = 0x9C41A400;
    static constexpr DWORD kQueryCode = 0x9C416424;

    // What one request needs for as long as it pends.
    struct Request {
        explicit Request(size_t room = 64) : buffer(room, '#') { overlapped.hEvent = event; }
        ~Request() { CloseHandle(event); }
        // Waits for its end: 0 or the error, and the bytes that came.
        DWORD Await() {
            return WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0 ? Result() : WAIT_FAILED;
        }
        // Without a wait.
        DWORD Result() {
            return GetOverlappedResult(nullptr, &overlapped, &bytes, FALSE) ? ERROR_SUCCESS : GetLastError();
        }
        // The bytes that came with its success.
        std::string AwaitBytes() {
            EXPECT_EQ(Await(), ERROR_SUCCESS);
            return Received();
        }
        bool IsPending() const { return !HasOverlappedIoCompleted(&overlapped); }
        std::string Received() const { return buffer.substr(0, bytes); }

        const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
        OVERLAPPED overlapped{};
        std::string buffer;
        DWORD bytes = 0;
    };

    MailboxFixture() : m_peer(std::in_place, (m_root / "mpm").string()) {
        StartPc([this](auto& pc) { pc.mailbox = m_peer->Address(); });
    }

    ~MailboxFixture() override {
        Device().CompleteReadsAtOnce(false);
        Device().CompleteRequestsAtOnce(false);
    }

    HANDLE Open() {
        const HANDLE device = CreateFileA(winhost::MailboxDevice::kPath, GENERIC_READ | GENERIC_WRITE, 0,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
        return device != INVALID_HANDLE_VALUE ? Keep(device) : device;
    }

    static DWORD Result(BOOL succeeded) { return succeeded ? ERROR_SUCCESS : GetLastError(); }

    // The error of the call itself: ERROR_IO_PENDING when all is well.
    static DWORD Write(HANDLE device, Request& request, const std::string& input) {
        return Result(DeviceIoControl(device, kWriteCode, const_cast<char*>(input.data()),
                                      static_cast<DWORD>(input.size()), nullptr, 0, nullptr,
                                      &request.overlapped));
    }
    static DWORD Query(HANDLE device, Request& request) {
        return Result(DeviceIoControl(device, kQueryCode, nullptr, 0, request.buffer.data(),
                                      static_cast<DWORD>(request.buffer.size()), nullptr,
                                      &request.overlapped));
    }
    static DWORD Read(HANDLE device, Request& request) {
        return Result(ReadFile(device, request.buffer.data(), static_cast<DWORD>(request.buffer.size()),
                               nullptr, &request.overlapped));
    }

    winhost::MailboxDevice& Device() { return winhost::MailboxDevice::Instance(); }

    std::optional<LinkPeer> m_peer;
};

// With one handle open, and the firmware at its other end.
class MailboxRequestTest : public MailboxFixture {
  protected:
    // All goes on: the next request is answered with its own answer.
    void ExpectTheNextIsAnswered() {
        Request next;
        Query(m_device, next);
        m_firmware.Respond(m_firmware.Receive(), 0, "next");
        EXPECT_EQ(next.AwaitBytes(), "next");
    }
    // The frame that the firmware gets of the request.
    LinkPeer::Frame QueryAndReceive(Request& request) {
        EXPECT_EQ(Query(m_device, request), ERROR_IO_PENDING);
        return m_firmware.Receive();
    }

    const HANDLE m_device = Open();
    LinkPeer::Connection m_firmware = m_peer->Accept();
};
