// The control socket of a program: a Unix socket on which each line of JSON is a request, answered by a line
// of JSON. A client may send several in turn. Only the user who runs the program can connect.
#pragma once

#include <json/value.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "testbed/Descriptor.h"

namespace testbed {

class ControlSocket {
  public:
    // The answer to a request. Called on a thread for each client, so several at a time. What it throws is
    // answered as {"error": what}, and so is a line that is no object.
    using Handler = std::function<Json::Value(const Json::Value& request)>;

    // Listens at the path; its file appears when clients can connect. A line that is longer than
    // `longestLine` bytes ends its connection. Throws std::runtime_error, also when another process listens
    // at the path.
    ControlSocket(const std::string& path, size_t longestLine, Handler handler);
    // Accepts no more clients, sends the answers that are still owed, for which it waits a few seconds at
    // most, and ends the connections.
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

  private:
    struct Clients;
    void AcceptClients();

    const std::string m_path;
    Descriptor m_listener;
    // Shared with the clients' threads, of which one may outlive this object.
    const std::shared_ptr<Clients> m_clients;
    std::thread m_acceptor;
};

// The answer to one line.
Json::Value AnswerLine(const std::string& line, const ControlSocket::Handler& handler);

// One request to the control socket at the path, and its answer. Throws std::runtime_error when there is
// none.
Json::Value AskControlSocket(const std::string& path, const Json::Value& request);

}  // namespace testbed
