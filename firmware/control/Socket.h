// The control socket of a running simulator: one request and one answer for each connection, each a line of
// JSON.
#pragma once

#include <json/json.h>

#include <functional>
#include <string>

#include "firmware/Descriptor.h"

namespace mpm::control {

inline constexpr size_t kMaxLine = 64u << 20;

// The serving end. Only the user who runs the simulator may connect.
class Server {
  public:
    using Handler = std::function<Json::Value(const Json::Value& request)>;
    // An empty path serves nothing. Throws std::runtime_error.
    explicit Server(const std::string& path);
    ~Server();

    // Answers requests until `signals`, a signalfd, is readable. A std::exception of the handler is answered
    // as
    // {"error": what}.
    void Serve(int signals, const Handler& handler);

  private:
    void ServeOne(const Handler& handler);

    std::string m_path;
    Descriptor m_listener;
};

// The asking end: sends the request and returns the answer. Throws std::runtime_error when nobody answers.
Json::Value Ask(const std::string& path, const Json::Value& request);

}  // namespace mpm::control
