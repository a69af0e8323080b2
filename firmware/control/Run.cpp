#include "firmware/control/Run.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>

#include "firmware/Firmware.h"
#include "firmware/Report.h"
#include "firmware/control/Verbs.h"
#include "firmware/enrol/Enrolment.h"
#include "testbed/ControlSocket.h"
#include "testbed/Descriptor.h"

namespace mpm::control {

namespace {

// Room for the bytes of the longest message in hexadecimal digits, and for all requests at once.
constexpr size_t kLongestLine = 64u << 20;

Settings SettingsOf(const RunOptions& options) {
    Settings settings;
    settings.Dash = Peer::Identify;
    if (!options.settingsFile.empty()) settings.MergeFile(options.settingsFile);
    if (!options.dash.empty()) settings.Set("Dash", options.dash);
    if (!options.kvm.empty()) settings.Set("Kvm", options.kvm);
    for (const std::string& pair : options.set) {
        const size_t equals = pair.find('=');
        if (equals == std::string::npos)
            throw std::invalid_argument("--set needs KEY=VALUE, not \"" + pair + "\"");
        settings.Set(pair.substr(0, equals), pair.substr(equals + 1));
    }
    return settings;
}

testbed::Descriptor OpenRecord(const std::string& path) {
    if (path.empty()) return {};
    testbed::Descriptor file(path == "-"
                                 ? dup(STDOUT_FILENO)
                                 : open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!file) throw std::runtime_error("cannot write record file " + path + ": " + std::strerror(errno));
    return file;
}

void WriteLine(int descriptor, std::string line) {
    line += '\n';
    for (size_t written = 0; written < line.size();) {
        const ssize_t count = write(descriptor, line.data() + written, line.size() - written);
        if (count <= 0) return;
        written += size_t(count);
    }
}

// Appears whole or not at all, for those who wait for it.
void WriteFile(const std::string& path, const std::string& text, mode_t mode = 0666) {
    const std::string part = path + ".part";
    std::filesystem::remove(part);
    const testbed::Descriptor file(open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (!file || write(file.Get(), text.data(), text.size()) != ssize_t(text.size()))
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    std::filesystem::rename(part, path);
}

// Signals that end the program arrive here instead, in this thread and all that it starts.
testbed::Descriptor CatchSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0) throw std::runtime_error("cannot block signals");
    testbed::Descriptor caught(signalfd(-1, &signals, SFD_CLOEXEC));
    if (!caught) throw std::runtime_error("cannot catch signals");
    return caught;
}

// What the host's answer to a request for a certificate is worth; empty for any other event.
std::string VerdictOn(const Event& event, Enrolments& enrolments) {
    const bool isAnswer = event.kind == Event::Kind::Request && event.code == MailboxCode::WriteCSRResponse &&
                          event.text.empty();
    if (!isAnswer || event.data.size() != sizeof(CsrResponse)) return {};
    CsrResponse response;
    std::memcpy(&response, event.data.data(), sizeof response);
    return enrolments.Examine(response)["verdict"].asString();
}

void AwaitSignal(const testbed::Descriptor& signals) {
    pollfd wait{signals.Get(), POLLIN, 0};
    while (poll(&wait, 1, -1) <= 0) {
    }
}

}  // namespace

int Run(const RunOptions& options) {
    const bool hasPage = !options.web.address.empty();
    if (hasPage) options.web.Check();
    const testbed::Descriptor signals = CatchSignals();
    signal(SIGPIPE, SIG_IGN);
    const testbed::Descriptor record = OpenRecord(options.recordFile);
    const bool print = !options.quiet && options.recordFile != "-";
    Enrolments enrolments;
    Firmware firmware(SettingsOf(options));
    const auto inbox = hasPage ? std::make_shared<web::Inbox>() : nullptr;
    const auto show = [&firmware, &record, print, inbox](const Event& event) {
        if (!print && !record && !inbox) return;
        const bool hasKey = event.code == MailboxCode::WriteWiFiSyncInfo;
        const Secrets secrets = hasKey ? SecretsOf(firmware.CurrentSettings(), event.name) : Secrets::Masked;
        if (inbox) inbox->Push(event, secrets);
        if (!print && !record) return;
        const Json::Value json = JsonOf(event, secrets);
        if (record) WriteLine(record.Get(), Compact(json));
        if (print) WriteLine(STDOUT_FILENO, LineOf(json));
    };
    firmware.Observe([&enrolments, show](const Event& event) {
        show(event);
        if (const std::string verdict = VerdictOn(event, enrolments); !verdict.empty())
            show({Event::Kind::Note, "certificate", 0, {}, verdict, event.time});
    });
    std::mutex oneAtATime;
    const auto handle = [&](const Json::Value& request) {
        std::lock_guard lock(oneAtATime);
        return Handle(firmware, enrolments, request);
    };
    std::optional<testbed::ControlSocket> control;
    if (!options.controlSocket.empty()) control.emplace(options.controlSocket, kLongestLine, handle);
    firmware.Listen(options.listen);
    std::optional<web::WebServer> page;
    if (hasPage) page.emplace(options.web, firmware, handle, inbox);
    // Not before, because the file may belong to a firmware that runs already.
    if (!options.certificateFile.empty()) WriteFile(options.certificateFile, firmware.Certificate());
    if (print) WriteLine(STDOUT_FILENO, "mpmsim listens on " + firmware.Address());
    if (!options.readyFile.empty()) WriteFile(options.readyFile, firmware.Address() + "\n");
    if (page && print) WriteLine(STDOUT_FILENO, "the page is " + page->Url());
    // The URL contains the token, which gives full control of the PC.
    if (page && !options.web.readyFile.empty()) WriteFile(options.web.readyFile, page->Url() + "\n", 0600);
    AwaitSignal(signals);
    return 0;
}

}  // namespace mpm::control
