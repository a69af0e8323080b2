#include "winhost/pipe/PipeFolder.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <filesystem>

#include <namedpipeapi.h>
#include <winerror.h>

#include "testbed/Numbers.h"
#include "testbed/Sockets.h"
#include "winhost/files/FileErrors.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

constexpr std::string_view kPrefix = R"(\\.\pipe\)";
constexpr size_t kLongestName = 256;
constexpr const char* kPipes = "pipe";

// The case of its letters and the kind of its separators make no difference to a pipe. Empty for what can be
// no name: the folders "." and ".." would be others' on Windows.
std::string FileNameOf(std::string_view pipe) {
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string name;
    for (const char c : pipe) {
        const auto byte = static_cast<unsigned char>(c == '/' ? '\\' : c);
        if (std::isalnum(byte) || c == '-' || c == '_') {
            name += static_cast<char>(std::tolower(byte));
        } else {
            name += {'%', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
    const bool isDots = pipe.find_first_not_of(".\\/") == std::string_view::npos;
    return name.size() <= NAME_MAX && !isDots ? name : std::string();
}

std::string InstanceFile(uint32_t number) {
    return std::to_string(number);
}

std::string SocketFile(uint32_t number) {
    return std::to_string(number) + ".listens";
}

bool MayOpen(const PipeTerms& terms, const std::string& user) {
    return terms.opensToAll || user == terms.user || strcasecmp(user.c_str(), "SYSTEM") == 0;
}

// The server of an inbound pipe only reads, so that its client only writes.
DWORD CheckAccess(const PipeTerms& terms, DWORD access) {
    if (!terms.inbound) return access == (GENERIC_READ | GENERIC_WRITE) ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
    return access & GENERIC_READ ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

constexpr int kSocketType = SOCK_SEQPACKET | SOCK_NONBLOCK;

}  // namespace

bool IsPipeName(const std::string& name) {
    return strncasecmp(name.c_str(), kPrefix.data(), kPrefix.size()) == 0;
}

// Held by one thread of one process; a process that dies lets go of it.
class PipeFolder::Lock {
  public:
    explicit Lock(const PipeFolder& folder) : m_folder(folder.m_folder.Get()) {
        while (flock(m_folder, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~Lock() { flock(m_folder, LOCK_UN); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    const int m_folder;
};

DWORD PipeFolder::Open(const std::string& pipeName, bool make, PipeFolder& folder) {
    if (!IsPipeName(pipeName) || pipeName.size() > kLongestName) return ERROR_INVALID_NAME;
    const std::string name = FileNameOf(std::string_view(pipeName).substr(kPrefix.size()));
    if (name.empty()) return ERROR_INVALID_NAME;
    const std::filesystem::path path =
        std::filesystem::path(Pc::Instance().Description().root) / kPipes / name;
    std::error_code error;
    if (make) std::filesystem::create_directories(path, error);
    if (error) return FileErrorOf(error.value(), path.string());
    folder.m_folder = testbed::Descriptor(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.m_folder) return ERROR_SUCCESS;
    return errno == ENOENT ? static_cast<DWORD>(ERROR_FILE_NOT_FOUND) : FileErrorOf(errno, path.string());
}

DWORD PipeFolder::Add(const PipeTerms& terms, uint32_t& number, testbed::Descriptor& file,
                      testbed::Descriptor& listener) {
    const Lock lock(*this);
    const auto instances = Instances();
    if (!instances.empty() && instances.front().terms.maxInstances != terms.maxInstances)
        return ERROR_ACCESS_DENIED;
    if (terms.maxInstances != PIPE_UNLIMITED_INSTANCES && instances.size() >= terms.maxInstances)
        return ERROR_PIPE_BUSY;
    number = 0;
    const auto isTaken = [&](const Instance& instance) { return instance.number == number; };
    while (std::any_of(instances.begin(), instances.end(), isTaken))
        ++number;
    const std::string name = InstanceFile(number);
    file = testbed::Descriptor(
        openat(m_folder.Get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    const bool isLocked = file && flock(file.Get(), LOCK_EX | LOCK_NB) == 0 &&
                          write(file.Get(), &terms, sizeof terms) == sizeof terms;
    const DWORD error = isLocked ? Bind(number, listener) : FileErrorOf(errno, name);
    if (error != ERROR_SUCCESS && file) Sweep(number);
    return error;
}

void PipeFolder::Remove(uint32_t number) {
    const Lock lock(*this);
    Sweep(number);
}

DWORD PipeFolder::Listen(uint32_t number, testbed::Descriptor& listener) {
    const Lock lock(*this);
    return Bind(number, listener);
}

DWORD PipeFolder::Bind(uint32_t number, testbed::Descriptor& listener) {
    const std::string path = SocketPath(number);
    listener = testbed::ListenUnix(path, 1, kSocketType);
    return listener ? DWORD{ERROR_SUCCESS} : FileErrorOf(errno, path);
}

void PipeFolder::StopListening(uint32_t number) {
    const Lock lock(*this);
    unlinkat(m_folder.Get(), SocketFile(number).c_str(), 0);
}

DWORD PipeFolder::Claim(const std::string& user, DWORD access, PipeTerms& terms,
                        testbed::Descriptor& connection) {
    const Lock lock(*this);
    const auto instances = Instances();
    if (instances.empty()) return ERROR_FILE_NOT_FOUND;
    if (!MayOpen(instances.front().terms, user)) return ERROR_ACCESS_DENIED;
    if (const DWORD error = CheckAccess(instances.front().terms, access)) return error;
    for (const Instance& instance : instances) {
        if (!Listens(instance.number)) continue;
        connection = testbed::ConnectUnix(SocketPath(instance.number), kSocketType);
        if (!connection) continue;
        unlinkat(m_folder.Get(), SocketFile(instance.number).c_str(), 0);
        terms = instance.terms;
        return ERROR_SUCCESS;
    }
    return ERROR_PIPE_BUSY;
}

std::vector<PipeFolder::Instance> PipeFolder::Instances() {
    std::vector<Instance> instances;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(Path(), ignored)) {
        const auto number = testbed::ParseNumber<uint32_t>(entry.path().filename().string());
        if (!number) continue;
        Instance instance{*number, {}};
        if (ReadTerms(instance.number, instance.terms)) {
            instances.push_back(instance);
        } else {
            Sweep(instance.number);
        }
    }
    std::sort(instances.begin(), instances.end(),
              [](const Instance& a, const Instance& b) { return a.number < b.number; });
    return instances;
}

// False for one whose server is gone.
bool PipeFolder::ReadTerms(uint32_t number, PipeTerms& terms) {
    const testbed::Descriptor file(
        openat(m_folder.Get(), InstanceFile(number).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || flock(file.Get(), LOCK_SH | LOCK_NB) == 0) return false;
    return pread(file.Get(), &terms, sizeof terms, 0) == sizeof terms;
}

bool PipeFolder::Listens(uint32_t number) const {
    return faccessat(m_folder.Get(), SocketFile(number).c_str(), F_OK, 0) == 0;
}

void PipeFolder::Sweep(uint32_t number) {
    unlinkat(m_folder.Get(), SocketFile(number).c_str(), 0);
    unlinkat(m_folder.Get(), InstanceFile(number).c_str(), 0);
}

std::string PipeFolder::SocketPath(uint32_t number) const {
    return Path() + SocketFile(number);
}

std::string PipeFolder::Path() const {
    return "/proc/self/fd/" + std::to_string(m_folder.Get()) + "/";
}

}  // namespace winhost
