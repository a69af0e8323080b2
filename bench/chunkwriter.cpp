// The host's part of a frame and nothing else: each command 48 gets the next chunk of a frame that is there
// already, by one request to the device.
//
//   chunkwriter ADDRESS BYTES
//
// It sends frames of so many bytes to the firmware at this address, until it is killed.
#include <winsock2.h>
#include <windows.h>

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

// The records of one frame, which is sent again and again.
std::vector<std::vector<uint8_t>> MakeRecords(uint32_t frameSize) {
    constexpr auto kMaxData = static_cast<uint32_t>(EncodedFrameChunk::kMaxData);
    std::vector<std::vector<uint8_t>> records;
    for (uint32_t left = (frameSize - 1) / kMaxData + 1; left > 0; --left) {
        const uint32_t size = left > 1 ? kMaxData : (frameSize - 1) % kMaxData + 1;
        const EncodedFrameChunk head{left, size, frameSize};
        std::vector<uint8_t>& record = records.emplace_back(sizeof head + size, uint8_t{0x5A});
        std::memcpy(record.data(), &head, sizeof head);
    }
    return records;
}

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
    auto records = MakeRecords(static_cast<uint32_t>(atol(argv[2])));
    for (size_t next = 0;;) {
        const BOOL isRead = ReadFile(reader, message.data(), kMailboxBufferSize, nullptr, &read);
        const DWORD bytes = Await(reader, read, isRead, "ReadFile");
        if (bytes != kMailboxTrailerSize || message[0] != MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER) continue;
        std::vector<uint8_t>& record = records[next++ % records.size()];
        const BOOL isWritten =
            DeviceIoControl(writer, MailboxCode::WriteEncodedBuffer, record.data(),
                            static_cast<DWORD>(record.size()), nullptr, 0, nullptr, &write);
        Await(writer, write, isWritten, "DeviceIoControl");
    }
}
