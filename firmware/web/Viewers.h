// Connections to the KVM port of the service: for the page's VNC client, whose WebSocket carries the same
// bytes, and one that only makes the firmware pull frames.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "firmware/web/Access.h"

struct lws;
struct lws_vhost;

namespace mpm::web {

class Viewers {
  public:
    static constexpr const char* kProtocol = "viewer";  // of the library, for the connections to the port

    // `held` is called when the connection of Hold begins and ends.
    explicit Viewers(std::function<void(bool)> held) : m_heldChanged(std::move(held)) {}
    void Serve(lws_vhost* host, LoopbackAddress port);
    bool Serves() const { return m_port.has_value(); }

    // A WebSocket has opened: connects it with the port. What these return goes back to the library.
    int Open(lws* socket);
    // Bytes of a WebSocket or of a connection to the port, its turn to write, and its end.
    int Receive(lws* end, std::string_view bytes);
    int Write(lws* end);
    void Close(lws* end);
    // Whether it is one of these.
    bool Takes(lws* end) const { return end == m_held || m_ends.contains(end); }

    // Opens or closes the connection whose bytes are dropped. Throws std::runtime_error with the reason.
    void Hold(bool hold);
    bool Holds() const { return m_held != nullptr; }

  private:
    // One end of a pair; the bytes that wait are those for it.
    struct End {
        lws* other = nullptr;
        bool isSocket = false;
        bool otherHasEnded = false, otherIsPaused = false;
        std::string waiting;
    };
    lws* Connect();

    const std::function<void(bool)> m_heldChanged;
    lws_vhost* m_host = nullptr;
    std::optional<LoopbackAddress> m_port;
    std::unordered_map<lws*, End> m_ends;
    lws* m_held = nullptr;
};

}  // namespace mpm::web
