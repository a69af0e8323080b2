// A bare client of the mailbox device, led by lines of standard input: shows what the driver itself does.
//
//     find                            the device's path, by its interface class
//     open NAME / close NAME          a handle of this name
//     read NAME COUNT                 that many reads, on a completion port
//     next MS                         the next completed read
//     request NAME CODE INPUT ROOM    a request; INPUT is bytes in hex, "-" for none, or "*N" for N bytes
//     wait NUMBER MS                  the end of a request
//     cancel NAME                     cancels all that pends on the handle
#include "tests/windows/programs/LineServer.h"

#include <setupapi.h>

#include <array>
#include <cstdint>
#include <memory>

#include "base/Handles.h"
#include "mailbox/MailboxCodes.h"

namespace {

constexpr GUID kMailboxInterface = {
    0x70A9067B, 0x708F, 0x443C, {0x84, 0xBA, 0xBC, 0x39, 0x1F, 0xDB, 0xF7, 0x2B}};

struct Call {
    OVERLAPPED overlapped{};
    UniqueHandle event;
    HANDLE device = nullptr;
    std::vector<uint8_t> input, output;
};

std::string g_path;
std::map<std::string, UniqueFileHandle> g_handles;
UniqueHandle g_port;
std::vector<std::unique_ptr<Call>> g_reads, g_requests;

std::string Hex(const uint8_t* bytes, size_t count) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count; ++i)
        (text += kDigits[bytes[i] >> 4]) += kDigits[bytes[i] & 15];
    return text;
}

std::vector<uint8_t> Bytes(const std::string& text) {
    if (text == "-") return {};
    if (text[0] == '*') return std::vector<uint8_t>(std::stoul(text.substr(1)), 0x5A);
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

Answer Find(const Words&) {
    g_path.clear();
    UniqueDeviceInfoList list(
        SetupDiGetClassDevsA(&kMailboxInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
    SP_DEVICE_INTERFACE_DATA data{};
    data.cbSize = sizeof data;
    if (!SetupDiEnumDeviceInterfaces(list.Get(), nullptr, &kMailboxInterface, 0, &data))
        return Answer().Number("error", GetLastError());
    DWORD size = 0;
    SetupDiGetDeviceInterfaceDetailA(list.Get(), &data, nullptr, 0, &size, nullptr);
    std::vector<uint8_t> block(size);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(block.data());
    detail->cbSize = sizeof *detail;
    if (!SetupDiGetDeviceInterfaceDetailA(list.Get(), &data, detail, size, nullptr, nullptr))
        return Answer().Number("error", GetLastError());
    g_path = detail->DevicePath;
    return Answer().Number("error", 0).Text("path", g_path);
}

Answer Open(const Words& words) {
    UniqueFileHandle& handle = g_handles[words.at(0)];
    handle.Reset(CreateFileA(g_path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                             FILE_FLAG_OVERLAPPED, nullptr));
    return Answer().Number("error", handle ? ERROR_SUCCESS : GetLastError());
}

Answer Close(const Words& words) {
    g_handles.erase(words.at(0));
    return Answer().Number("error", 0);
}

Answer Read(const Words& words) {
    const HANDLE handle = g_handles.at(words.at(0)).Get();
    if (!g_port) g_port.Reset(CreateIoCompletionPort(handle, nullptr, 1, 0));
    unsigned pending = 0;
    DWORD error = ERROR_SUCCESS;
    for (unsigned long count = std::stoul(words.at(1)); count > 0; --count) {
        g_reads.push_back(std::make_unique<Call>());
        Call& call = *g_reads.back();
        call.output.resize(kMailboxBufferSize);
        error = ReadFile(handle, call.output.data(), kMailboxBufferSize, nullptr, &call.overlapped)
                    ? ERROR_SUCCESS
                    : GetLastError();
        if (error == ERROR_IO_PENDING) ++pending;
    }
    return Answer().Number("pending", pending).Number("error", error);
}

Answer Next(const Words& words) {
    DWORD bytes = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* overlapped = nullptr;
    const BOOL good =
        GetQueuedCompletionStatus(g_port.Get(), &bytes, &key, &overlapped, std::stoul(words.at(0)));
    const DWORD error = good ? ERROR_SUCCESS : GetLastError();
    if (!overlapped) return Answer().Number("error", error).Truth("nothing", true);
    size_t slot = 0;
    while (&g_reads.at(slot)->overlapped != overlapped)
        ++slot;
    const uint8_t* data = g_reads[slot]->output.data();
    return Answer()
        .Number("error", error)
        .Number("slot", static_cast<long long>(slot))
        .Number("bytes", bytes)
        .Text("head", Hex(data, bytes < 32 ? bytes : 32))
        .Text("tail", bytes < 2 ? "" : Hex(data + bytes - 2, 2));
}

Answer Request(const Words& words) {
    g_requests.push_back(std::make_unique<Call>());
    Call& call = *g_requests.back();
    call.device = g_handles.at(words.at(0)).Get();
    call.input = Bytes(words.at(2));
    call.output.resize(std::stoul(words.at(3)));
    call.event.Reset(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    call.overlapped.hEvent = call.event.Get();
    DWORD returned = 0;
    const BOOL good = DeviceIoControl(call.device, std::stoul(words.at(1), nullptr, 16), call.input.data(),
                                      static_cast<DWORD>(call.input.size()), call.output.data(),
                                      static_cast<DWORD>(call.output.size()), &returned, &call.overlapped);
    return Answer()
        .Number("number", static_cast<long long>(g_requests.size() - 1))
        .Number("error", good ? ERROR_SUCCESS : GetLastError());
}

Answer Wait(const Words& words) {
    Call& call = *g_requests.at(std::stoul(words.at(0)));
    if (WaitForSingleObject(call.event.Get(), std::stoul(words.at(1))) != WAIT_OBJECT_0)
        return Answer().Truth("pending", true);
    DWORD bytes = 0;
    const BOOL good = GetOverlappedResult(call.device, &call.overlapped, &bytes, FALSE);
    const DWORD error = good ? ERROR_SUCCESS : GetLastError();
    return Answer()
        .Number("error", error)
        .Number("bytes", bytes)
        .Text("data", Hex(call.output.data(), bytes < call.output.size() ? bytes : call.output.size()));
}

Answer Cancel(const Words& words) {
    const BOOL good = CancelIoEx(g_handles.at(words.at(0)).Get(), nullptr);
    return Answer().Number("error", good ? ERROR_SUCCESS : GetLastError());
}

}  // namespace

int main() {
    return ServeLines({{"find", Find},
                       {"open", Open},
                       {"close", Close},
                       {"read", Read},
                       {"next", Next},
                       {"request", Request},
                       {"wait", Wait},
                       {"cancel", Cancel}});
}
