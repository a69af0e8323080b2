// Stand-in for the system's netapi32.dll, for a PC whose directory a test describes by files in the folder of
// this DLL:
//
//     directory.answer   the result of the next calls, and the last error that they leave: "86 1326"
//     directory.calls    gets the four arguments of each call, with a tab between them
#include <winsock2.h>
#include <windows.h>
#include <lm.h>

#include <sstream>

#include "tests/windows/support/FilesBeside.h"

namespace {

std::string Utf8(LPCWSTR wide) {
    std::string text(
        static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr)), 0);
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), static_cast<int>(text.size()), nullptr, nullptr);
    text.resize(text.size() - 1);  // without its NUL
    return text;
}

}  // namespace

NET_API_STATUS NET_API_FUNCTION NetUserChangePassword(LPCWSTR domain, LPCWSTR user, LPCWSTR oldPassword,
                                                      LPCWSTR newPassword) {
    AppendLineBeside("directory.calls",
                     Utf8(domain) + "\t" + Utf8(user) + "\t" + Utf8(oldPassword) + "\t" + Utf8(newPassword));
    std::istringstream answer(ReadBeside("directory.answer").value_or(""));
    DWORD result = NERR_Success, lastError = ERROR_SUCCESS;
    answer >> result >> lastError;
    SetLastError(lastError);
    return result;
}
