#include "winhost/control/ControlServer.h"

#include <memory>
#include <mutex>

#include "testbed/ControlSocket.h"
#include "winhost/control/Commands.h"

namespace winhost {
namespace {

constexpr size_t kLongestLine = 1 << 20;

struct AtExit {
    ~AtExit() { ServeControlSocket(""); }
};

}  // namespace

void ServeControlSocket(const std::string& path) {
    static auto& serving = *new std::mutex;
    static auto& server = *new std::unique_ptr<testbed::ControlSocket>;
    std::lock_guard lock(serving);
    server.reset();
    if (path.empty()) return;
    static const AtExit atExit;
    server = std::make_unique<testbed::ControlSocket>(path, kLongestLine, Answer);
}

}  // namespace winhost
