// A hostile firmware behind the PC's mailbox device: whatever it sends, each request ends, and no answer is
// longer than its room.
#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <vector>

#include "base/Handles.h"
#include "fuzz/Input.h"
#include "fuzz/support/Wire.h"
#include "winhost/io/MailboxDevice.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr int kMostSteps = 16;

struct Request {
    explicit Request(size_t size) : room(size), buffer(std::make_unique<uint8_t[]>(size)) {
        overlapped.hEvent = event.Get();
    }
    const size_t room;
    // Of just this size, so that a byte too far is seen.
    std::unique_ptr<uint8_t[]> buffer;
    UniqueHandle event{CreateEventA(nullptr, TRUE, FALSE, nullptr)};
    OVERLAPPED overlapped{};
    bool pends = false;
};

class Mailbox {
  public:
    Mailbox() {
        winhost::PcDescription pc;
        pc.mailbox = "unix:" + m_path;
        winhost::Pc::Instance().Reset(pc);
    }

    // Both ends of one opening.
    std::pair<UniqueFileHandle, testbed::Descriptor> Open() {
        UniqueFileHandle device(CreateFileA(winhost::MailboxDevice::kPath, GENERIC_READ | GENERIC_WRITE, 0,
                                            nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
        fuzz::Require(bool(device), "the mailbox can be opened again");
        return {std::move(device), fuzz::Accept(m_listener)};
    }

  private:
    const std::string m_path = fuzz::SocketFolder() + "/device";
    const testbed::Descriptor m_listener = fuzz::ListenAt(m_path);
};

class Scenario {
  public:
    Scenario(Mailbox& mailbox, fuzz::Input input) : m_input(input) {
        std::tie(m_device, m_firmware) = mailbox.Open();
    }

    void Run() {
        for (int step = 0; step < kMostSteps && !m_input.AtEnd(); ++step)
            Step(m_input.Byte());
        fuzz::SendBytes(m_firmware, m_input.Rest());
        m_firmware = {};
        // A message that nothing reads holds back what comes behind it, also the end.
        if (m_listens) CancelIoEx(m_device.Get(), nullptr);
        for (const auto& request : m_requests)
            Await(*request);
        m_device.Reset();
        const winhost::MailboxDevice& device = winhost::MailboxDevice::Instance();
        fuzz::Require(
            device.OpenHandles() == 0 && device.PendingReads() == 0 && device.PendingRequests() == 0,
            "nothing is left of a handle");
    }

  private:
    void Step(uint8_t verb) {
        switch (verb % 8) {
            case 0:
            case 1:
                return Read(m_input.Word());
            case 2:
            case 3:
                return Ask(m_input.Word());
            case 4:
                CancelIoEx(m_device.Get(), nullptr);
                return;
            case 5:
                return fuzz::SendBytes(m_firmware, m_input.Block());
            default:
                return Send();
        }
    }

    void Read(size_t room) {
        Request& request = Add(room);
        m_listens = true;
        request.pends = !ReadFile(m_device.Get(), request.buffer.get(), static_cast<DWORD>(room), nullptr,
                                  &request.overlapped) &&
                        GetLastError() == ERROR_IO_PENDING;
    }

    void Ask(size_t room) {
        Request& request = Add(room);
        request.pends = !DeviceIoControl(m_device.Get(), 0x9C416424, nullptr, 0, request.buffer.get(),
                                         static_cast<DWORD>(room), nullptr, &request.overlapped) &&
                        GetLastError() == ERROR_IO_PENDING;
    }

    void Send() {
        mpmlink::Header header{};
        header.kind = static_cast<mpmlink::Kind>(m_input.Byte());
        header.id = m_input.Byte();
        header.value = m_input.Byte();
        fuzz::SendBytes(m_firmware, fuzz::FrameOf(header, m_input.LongBlock()));
    }

    Request& Add(size_t room) { return *m_requests.emplace_back(std::make_unique<Request>(room)); }

    void Await(Request& request) {
        if (!request.pends) return;
        DWORD bytes = 0;
        GetOverlappedResult(m_device.Get(), &request.overlapped, &bytes, TRUE);
        fuzz::Require(bytes <= request.room, "no answer is longer than its room");
    }

    fuzz::Input m_input;
    UniqueFileHandle m_device;
    testbed::Descriptor m_firmware;
    std::vector<std::unique_ptr<Request>> m_requests;
    bool m_listens = false;
};

}  // namespace

FUZZ_TARGET(device) {
    static Mailbox& mailbox = *new Mailbox;
    Scenario(mailbox, fuzz::Input(input)).Run();
}
