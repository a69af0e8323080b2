#include "winhost/pc/Pc.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>

#include "winhost/control/ControlServer.h"
#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/pc/DescriptionJson.h"
#include "winhost/pc/Marks.h"
#include "winhost/power/Privileges.h"
#include "winhost/process/ProcessWatcher.h"
#include "winhost/service/Scm.h"

namespace winhost {
namespace {

constexpr int kBrokenDescription = 2;
constexpr const char* kUnixScheme = "unix:";

bool onlyJoins = false;

[[noreturn]] void Refuse(const std::string& reason) {
    std::fprintf(stderr, "winhost: %s\n", reason.c_str());
    std::fflush(stderr);
    _exit(kBrokenDescription);
}

// The process is about to change its current folder.
void MakeAbsolute(std::string& path) {
    if (!path.empty()) path = std::filesystem::absolute(path).string();
}

// A file of this machine that the description names: an absolute path, or one relative to the current folder.
void MakeFileAbsolute(std::string& file) {
    if (!HasDrive(file)) MakeAbsolute(file);
}

void MakePathsAbsolute(PcDescription& description) {
    MakeAbsolute(description.root);
    MakeAbsolute(description.controlSocket);
    for (std::string& certificate : description.rootCertificates)
        if (!certificate.starts_with("-----BEGIN")) MakeFileAbsolute(certificate);
    if (description.mailbox.starts_with(kUnixScheme)) {
        std::string path = description.mailbox.substr(std::char_traits<char>::length(kUnixScheme));
        MakeAbsolute(path);
        description.mailbox = kUnixScheme + path;
    }
}

// An empty root stands for the current folder.
void RequirePc(std::string root) {
    if (root.empty()) root = std::filesystem::current_path().string();
    if (!std::filesystem::is_directory(std::filesystem::path(root) / "C:"))
        throw std::runtime_error("no PC is in " + root + "; WINHOST_ROOT names the root of the one to join");
}

void EnterRoot(const std::string& root) {
    if (root.empty()) return;
    std::filesystem::create_directories(std::filesystem::path(root) / "C:");
    std::filesystem::current_path(root);
}

}  // namespace

bool HasDrive(const std::string& path) {
    return path.size() >= 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':';
}

// Never destroyed: detached threads call on it until the process is gone.
Pc& Pc::Instance() {
    static Pc& pc = [&]() -> Pc& {
        Pc& made = *new Pc;
        try {
            ServeControlSocket(made.m_description.controlSocket);
        } catch (const std::exception& error) {
            Refuse(error.what());
        }
        return made;
    }();
    return pc;
}

void Pc::OnlyJoin() {
    onlyJoins = true;
}

Pc::Pc() {
    const Marks& marks = OwnMarks();
    m_descriptionFile = marks.descriptionFile;
    try {
        if (!m_descriptionFile.empty()) m_description = ReadDescriptionFile(m_descriptionFile);
        MakeAbsolute(m_descriptionFile);
        if (!marks.root.empty()) Join(marks, m_description);
        MakePathsAbsolute(m_description);
        if (onlyJoins || !marks.root.empty()) RequirePc(m_description.root);
        EnterRoot(m_description.root);
        Clock::Instance().SetRate(m_description.clockRate);
    } catch (const std::exception& error) {
        Refuse(error.what());
    }
}

void Pc::Reset(PcDescription description) {
    MakePathsAbsolute(description);
    EnterRoot(description.root);
    const std::string controlSocket = description.controlSocket;
    const uint32_t rate = description.clockRate;
    {
        std::lock_guard lock(m_mutex);
        m_description = std::move(description);
        ++m_starts;
        ++m_revision;
    }
    m_journal.Clear();
    DisableAllPrivileges();
    Scm::Instance().Reset();
    Gate::Instance().Reset();
    Clock::Instance().SetManual(false);
    Clock::Instance().SetWallOffset({});
    Clock::Instance().SetRate(rate);
    ProcessWatcher::OnDescriptionChanged();
    ServeControlSocket(controlSocket);
}

PcDescription Pc::Description() const {
    std::lock_guard lock(m_mutex);
    return m_description;
}

void Pc::Change(const std::function<void(PcDescription&)>& change) {
    {
        std::lock_guard lock(m_mutex);
        const bool wlanServiceRan = m_description.wlanService;
        change(m_description);
        ++m_revision;
        if (wlanServiceRan && !m_description.wlanService) ++m_wlanServiceStops;
    }
    ProcessWatcher::OnDescriptionChanged();
}

std::string Pc::HostPath(const std::string& windowsPath) const {
    std::string path = windowsPath;
    for (char& c : path)
        if (c == '\\') c = '/';
    if (!HasDrive(path)) return path;
    path[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(path[0])));
    std::lock_guard lock(m_mutex);
    return m_description.root.empty() ? path : m_description.root + "/" + path;
}

}  // namespace winhost
