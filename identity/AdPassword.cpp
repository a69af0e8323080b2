#include "identity/AdPassword.h"

#include <winsock2.h>
#include <windows.h>
#include <lm.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "base/FieldText.h"
#include "base/Log.h"
#include "base/WideText.h"
#include "reporting/HostNames.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kAccountSuffix = "_vork_service";

// A password of the record in wide characters, with its NUL.
struct WidePassword {
    wchar_t text[sizeof ADPasswordUpdate::OldPassword + 1];
};

void WidenPassword(const char (&field)[sizeof ADPasswordUpdate::OldPassword], WidePassword& wide) {
    const std::string_view text = TextInField(field);
    std::transform(text.begin(), text.end(), wide.text, WidenByte);
    wide.text[text.size()] = L'\0';
}

// As the C runtime does it in the C locale: only ASCII letters change.
std::string UpperCase(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

// Returns the code of the directory, 0 for success.
DWORD ChangePassword(const std::string& host, const std::string& domain, const ADPasswordUpdate& update) {
    const std::string account = host + kAccountSuffix;
    LogInfo("Service account name: %s Domainname: %s", account, domain);
    Wiped<WidePassword> oldPassword, newPassword;
    WidenPassword(update.OldPassword, oldPassword.value);
    WidenPassword(update.NewPassword, newPassword.value);
    const DWORD result =
        NetUserChangePassword(WidenBytes(UpperCase(domain)).c_str(), WidenBytes(account).c_str(),
                              oldPassword.value.text, newPassword.value.text);
    if (result == NERR_Success) {
        LogInfo("AD Password change successful");
    } else {
        // The line has the thread's last error, which need not be the result; the firmware gets the result.
        LogError("AD Password change failed with error %d", GetLastError());
    }
    return result;
}

}  // namespace

void HandleAdPasswordCommand(const void* payload, size_t size) {
    const auto context = std::make_shared<AdPasswordContext>();
    std::memcpy(&context->update.value, payload, std::min(size, sizeof context->update.value));
    context->mailbox = &g_pServiceState->m_mailBoxDriverInterface;
    g_pServiceState->m_detachedThreads.Start([context] { AdPasswordWorker(*context); });
}

void AdPasswordWorker(AdPasswordContext& context) {
    std::string host, domain;
    if (GetHostAndDnsDomain(host, domain)) {
        context.status = ChangePassword(host, domain, context.update.value);
    } else {
        // The firmware reads a success here although nothing has changed. This is required behaviour.
        LogError("Failed to get hostname and domainname");
        context.status = NERR_Success;
    }
    const PwdUpdateStatus status{context.status};
    context.mailbox->WritePwdUpdateStatus(&status);
}
