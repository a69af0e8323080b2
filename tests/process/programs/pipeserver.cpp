// The server's end of a named pipe, led from outside: what the service would do with it, one call at a time.
//
//     create NAME         a message pipe without buffers that every user may open
//     connect             waits for a client
//     write TEXT          with its NUL; "\n" stands for a line feed
//     read                one message, as hexadecimal digits
//     close               disconnects and closes
#include "tests/windows/programs/LineServer.h"

#include <array>

#include "base/Handles.h"

namespace {

UniqueFileHandle g_pipe;

Answer Outcome(BOOL ok) {
    return Answer().Number("error", ok ? ERROR_SUCCESS : GetLastError());
}

Answer Create(const Words& words) {
    SECURITY_DESCRIPTOR everyone;
    InitializeSecurityDescriptor(&everyone, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&everyone, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &everyone, FALSE};
    const std::string name = "\\\\.\\pipe\\" + words.at(0);
    g_pipe.Reset(CreateNamedPipeA(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE,
                                  PIPE_UNLIMITED_INSTANCES, 0, 0, 0, &attributes));
    return Outcome(static_cast<bool>(g_pipe));
}

Answer Connect(const Words&) {
    const BOOL ok = ConnectNamedPipe(g_pipe.Get(), nullptr);
    return Outcome(ok || GetLastError() == ERROR_PIPE_CONNECTED);
}

Answer Write(const Words& words) {
    std::string text = words.at(0);
    for (size_t at; (at = text.find("\\n")) != std::string::npos;)
        text.replace(at, 2, "\n");
    DWORD written = 0;
    return Outcome(
        WriteFile(g_pipe.Get(), text.c_str(), static_cast<DWORD>(text.size() + 1), &written, nullptr));
}

Answer Read(const Words&) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::array<char, 511> buffer;
    DWORD size = 0;
    const BOOL ok = ReadFile(g_pipe.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &size, nullptr);
    Answer answer = Outcome(ok);
    std::string digits;
    for (DWORD i = 0; i < size; ++i) {
        const auto byte = static_cast<unsigned char>(buffer[i]);
        digits += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return answer.Text("data", digits);
}

Answer Close(const Words&) {
    const BOOL ok = DisconnectNamedPipe(g_pipe.Get());
    Answer answer = Outcome(ok);
    g_pipe.Reset();
    return answer;
}

}  // namespace

int main() {
    return ServeLines(
        {{"create", Create}, {"connect", Connect}, {"write", Write}, {"read", Read}, {"close", Close}});
}
