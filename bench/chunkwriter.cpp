// The host's part of a frame and nothing else: each command 48 gets the next chunk of a frame that is there
// already, by one request to the device.
//
//   chunkwriter ADDRESS BYTES      frames of so many bytes to the firmware at this address, until it is
//   killed
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "mailbox/DisplayRecords.h"
#include "mailbox/MailboxBuffer.h"
#include "mailbox/MailboxCodes.h"
#include "winhost/io/MailboxDevice.h"
#include "winhost/pc/Pc.h"

namespace {

HANDLE OpenMailbox() {
    const HANDLE device = CreateFileA(winhost::MailboxDevice::kPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
    if (device == INVALID_HANDLE_VALUE) {
        fprintf(stderr, "chunkwriter: no mailbox\n");
        exit(1);
    }
    return device;
}

// Waits for the end of a call that pends, and returns the bytes that came.
DWORD Await(HANDLE device, OVERLAPPED& overlapped, BOOL completed, const char* call) {
    DWORD bytes = 0;
    if ((!completed && GetLastError() != ERROR_IO_PENDING) ||
        !GetOverlappedResult(device, &overlapped, &bytes, TRUE)) {
        fprintf(stderr, "chunkwriter: %s fails with %u\n", call, GetLastError());
        exit(1);
    }
    return bytes;
}

// The chunks of one frame after the other.
class Chunks {
  public:
    explicit Chunks(uint32_t frameSize)
        : m_frameSize(frameSize), m_record(sizeof(EncodedFrameChunk) + EncodedFrameChunk::kMaxData) {}

    // Returns the size of the record.
    DWORD Next() {
        constexpr auto kMaxData = static_cast<uint32_t>(EncodedFrameChunk::kMaxData);
        if (m_left == 0) m_left = (m_frameSize - 1) / kMaxData + 1;
        const uint32_t size = m_left > 1 ? kMaxData : (m_frameSize - 1) % kMaxData + 1;
        const EncodedFrameChunk head{m_left--, size, m_frameSize};
        std::memcpy(m_record.data(), &head, sizeof head);
        return static_cast<DWORD>(sizeof head + size);
    }
    void* Record() { return m_record.data(); }

  private:
    const uint32_t m_frameSize;
    uint32_t m_left = 0;
    std::vector<uint8_t> m_record;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "chunkwriter: ADDRESS BYTES\n");
        return 2;
    }
    winhost::PcDescription pc;
    pc.mailbox = argv[1];
    winhost::Pc::Instance().Reset(pc);
    const HANDLE reader = OpenMailbox(), writer = OpenMailbox();
    OVERLAPPED read{}, write{};
    read.hEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    write.hEvent = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    std::vector<uint8_t> message(kMailboxBufferSize);
    Chunks chunks(static_cast<uint32_t>(atol(argv[2])));
    for (;;) {
        const BOOL isRead = ReadFile(reader, message.data(), kMailboxBufferSize, nullptr, &read);
        const DWORD bytes = Await(reader, read, isRead, "ReadFile");
        if (bytes != kMailboxTrailerSize || message[0] != MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER) continue;
        const DWORD size = chunks.Next();
        const BOOL isWritten = DeviceIoControl(writer, MailboxCode::WriteEncodedBuffer, chunks.Record(), size,
                                               nullptr, 0, nullptr, &write);
        Await(writer, write, isWritten, "DeviceIoControl");
    }
}
