// Conversions between the PC's code page and wide characters.
#include <algorithm>
#include <cwchar>

#include <winbase.h>
#include <winnls.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "testbed/Utf8.h"

using winhost::Fail;

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer, int size,
                        LPCSTR defaultChar, LPBOOL usedDefaultChar) {
    WINHOST_GATE("WideCharToMultiByte", 0);
    const bool known = codePage == CP_ACP || codePage == CP_THREAD_ACP || codePage == CP_UTF8;
    // As UTF-8 has every character, it takes no default one.
    if (!known || flags != 0 || !text || length == 0 || length < -1 || size < 0 || (size != 0 && !buffer) ||
        defaultChar || usedDefaultChar)
        return Fail(ERROR_INVALID_PARAMETER, 0);
    // A length of -1 takes in the NUL.
    const size_t count = length == -1 ? std::wcslen(text) + 1 : static_cast<size_t>(length);
    const std::string result = testbed::ToUtf8({text, count});
    if (size == 0) return static_cast<int>(result.size());
    if (result.size() > static_cast<size_t>(size)) return Fail(ERROR_INSUFFICIENT_BUFFER, 0);
    std::copy(result.begin(), result.end(), buffer);
    return static_cast<int>(result.size());
}
