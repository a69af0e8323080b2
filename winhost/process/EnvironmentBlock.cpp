#include "winhost/process/EnvironmentBlock.h"

#include <userenv.h>
#include <winbase.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <utility>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/Token.h"

using winhost::Fail;

namespace winhost {
namespace {

std::wstring UpperCase(std::wstring text) {
    for (wchar_t& c : text)
        c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
    return text;
}

}  // namespace

std::vector<std::string> PcEnvironment() {
    const auto environment = Pc::Instance().Description().environment;
    std::vector<std::pair<std::wstring, std::string>> named;
    for (const auto& [name, value] : environment)
        named.emplace_back(UpperCase(testbed::FromUtf8(name)), name + "=" + value);
    std::sort(named.begin(), named.end());
    std::vector<std::string> variables;
    for (auto& [name, variable] : named)
        variables.push_back(std::move(variable));
    return variables;
}

}  // namespace winhost

namespace {

std::wstring MakeBlock() {
    std::wstring block;
    for (const std::string& variable : winhost::PcEnvironment()) {
        block += testbed::FromUtf8(variable);
        block += L'\0';
    }
    if (block.empty()) block += L'\0';
    return block += L'\0';
}

}  // namespace

// The PC has one environment, which a block that inherits the caller's holds once.
BOOL CreateEnvironmentBlock(LPVOID* environment, HANDLE handle, BOOL inherit) {
    WINHOST_GATE("CreateEnvironmentBlock", FALSE);
    if (!environment) return Fail(ERROR_INVALID_PARAMETER);
    if (handle) {
        const auto token = winhost::HandleTable::Instance().Find<winhost::Token>(handle);
        if (!token) return Fail(ERROR_INVALID_HANDLE);
        if (!token->Allows(TOKEN_QUERY | TOKEN_DUPLICATE)) return Fail(ERROR_ACCESS_DENIED);
    }
    winhost::Pc::Instance().Record(
        winhost::CallArgument{"CreateEnvironmentBlock", "bInherit", static_cast<uint32_t>(inherit)});
    const std::wstring block = MakeBlock();
    void* const memory = std::malloc(block.size() * sizeof(WCHAR));
    if (!memory) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    std::wmemcpy(static_cast<WCHAR*>(memory), block.data(), block.size());
    *environment = memory;
    return TRUE;
}

BOOL DestroyEnvironmentBlock(LPVOID environment) {
    WINHOST_GATE("DestroyEnvironmentBlock", FALSE);
    if (!environment) return Fail(ERROR_INVALID_PARAMETER);
    std::free(environment);
    return TRUE;
}
