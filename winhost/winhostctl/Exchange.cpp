#include "winhost/winhostctl/Exchange.h"

#include <json/reader.h>
#include <json/writer.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace winhostctl {
namespace {

class Connection {
  public:
    explicit Connection(const std::string& path)
        : m_descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof(address.sun_path))
            throw std::runtime_error(path + ": too long for a socket's path");
        std::strcpy(address.sun_path, path.c_str());
        if (m_descriptor < 0 ||
            connect(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            const std::string reason = std::strerror(errno);
            if (m_descriptor >= 0) close(m_descriptor);
            throw std::runtime_error(path + ": " + reason);
        }
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() { close(m_descriptor); }

    void Send(const std::string& line) {
        for (size_t done = 0; done < line.size();) {
            const ssize_t sent = send(m_descriptor, line.data() + done, line.size() - done, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR) continue;
            if (sent < 0) throw std::runtime_error(std::string("cannot send: ") + std::strerror(errno));
            done += static_cast<size_t>(sent);
        }
    }

    std::string ReceiveLine() {
        std::string text;
        char block[4096];
        while (text.find('\n') == std::string::npos) {
            const ssize_t received = recv(m_descriptor, block, sizeof(block), 0);
            if (received < 0 && errno == EINTR) continue;
            if (received <= 0) throw std::runtime_error("the process ended before it answered");
            text.append(block, static_cast<size_t>(received));
        }
        return text;
    }

  private:
    int m_descriptor;
};

}  // namespace

Json::Value Exchange(const std::string& path, const Json::Value& request) {
    Connection connection(path);
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    connection.Send(Json::writeString(compact, request) + "\n");
    const std::string line = connection.ReceiveLine();
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value answer;
    if (!reader->parse(line.data(), line.data() + line.size(), &answer, nullptr) || !answer.isObject()) {
        throw std::runtime_error("the answer is not understood: " + line);
    }
    return answer;
}

}  // namespace winhostctl
