// The system's texts.
#include <cstring>
#include <string>

#include <winbase.h>
#include <winnls.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"

using winhost::Fail;

namespace {

struct Message {
    DWORD number;
    const char* text;
};
constexpr Message kMessages[] = {
    {ERROR_SUCCESS, "The operation completed successfully."},
    {ERROR_INVALID_FUNCTION, "Incorrect function."},
    {ERROR_FILE_NOT_FOUND, "The system cannot find the file specified."},
    {ERROR_PATH_NOT_FOUND, "The system cannot find the path specified."},
    {ERROR_ACCESS_DENIED, "Access is denied."},
    {ERROR_INVALID_HANDLE, "The handle is invalid."},
    {ERROR_NOT_ENOUGH_MEMORY, "Not enough memory resources are available to process this command."},
    {ERROR_INVALID_DATA, "The data is invalid."},
    {ERROR_GEN_FAILURE, "A device attached to the system is not functioning."},
    {ERROR_NOT_SUPPORTED, "The request is not supported."},
    {ERROR_INVALID_PARAMETER, "The parameter is incorrect."},
    {ERROR_BUFFER_OVERFLOW, "The file name is too long."},
    {ERROR_CALL_NOT_IMPLEMENTED, "This function is not supported on this system."},
    {ERROR_INSUFFICIENT_BUFFER, "The data area passed to a system call is too small."},
    {ERROR_MORE_DATA, "More data is available."},
    {ERROR_SERVICE_NOT_ACTIVE, "The service has not been started."},
    {ERROR_NOT_FOUND, "Element not found."},
    {ERROR_PRIVILEGE_NOT_HELD, "A required privilege is not held by the client."},
    {ERROR_NO_SYSTEM_RESOURCES, "Insufficient system resources exist to complete the requested service."},
};

constexpr DWORD kAnswered = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
constexpr WORD kEnglish = MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US);

const char* TextOf(DWORD number) {
    for (const Message& message : kMessages)
        if (message.number == number) return message.text;
    return nullptr;
}

}  // namespace

DWORD FormatMessageA(DWORD flags, LPCVOID, DWORD number, DWORD language, LPSTR buffer, DWORD size, va_list*) {
    WINHOST_GATE("FormatMessageA", 0);
    if (!buffer) return Fail(ERROR_INVALID_PARAMETER, DWORD{0});
    if (flags != kAnswered) return Fail(ERROR_NOT_SUPPORTED, DWORD{0});
    if (language != 0) return Fail(ERROR_RESOURCE_LANG_NOT_FOUND, DWORD{0});
    const char* line = TextOf(number);
    if (!line) return Fail(ERROR_MR_MID_NOT_FOUND, DWORD{0});
    const std::string text = std::string(line) + "\r\n";
    if (size <= text.size()) return Fail(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return static_cast<DWORD>(text.size());
}

LANGID SetThreadUILanguage(LANGID language) {
    WINHOST_GATE_PASS("SetThreadUILanguage");
    thread_local LANGID current = kEnglish;
    if (language != 0) current = language;
    return current;
}
