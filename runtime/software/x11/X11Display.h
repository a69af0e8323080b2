// A connection to an X server, whose requests are answered without blocking the caller.
#pragma once

#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/shm.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>

#include <cstdlib>
#include <memory>

#include "lux/Types.h"
#include "runtime/software/Memory.h"

namespace luxrt {

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using UniqueReply = std::unique_ptr<T, FreeReply>;

// Memory that the X server writes to. It has no name, so nothing is left behind when a process dies.
class SharedBlock : public Block {
  public:
    // Returns null when the memory cannot be made.
    static std::unique_ptr<Block> Make(size_t size, const std::shared_ptr<xcb_connection_t>& server);
    ~SharedBlock() override;

    uint8_t* Bytes() override { return m_bytes; }
    size_t Size() const override { return m_size; }
    xcb_shm_seg_t Segment() const { return m_segment; }

  private:
    SharedBlock(uint8_t* bytes, size_t size, int file, const std::shared_ptr<xcb_connection_t>& server);

    uint8_t* m_bytes;
    size_t m_size;
    // A picture may live longer than the connection.
    std::weak_ptr<xcb_connection_t> m_server;
    xcb_shm_seg_t m_segment;
};

class X11Display {
  public:
    // Connects to the display that the environment variable DISPLAY names. Returns null when that fails or
    // when the server cannot be captured, and traces the reason.
    static std::unique_ptr<X11Display> Open();
    X11Display(const X11Display&) = delete;
    X11Display& operator=(const X11Display&) = delete;
    ~X11Display();

    xcb_connection_t* Connection() const { return m_connection.get(); }
    const std::shared_ptr<xcb_connection_t>& Shared() const { return m_connection; }
    xcb_window_t Root() const { return m_screen->root; }
    lux::LUXSize RootSize() const { return m_rootSize; }
    bool HasMonitors() const { return m_randr != nullptr; }
    bool Alive() const { return xcb_connection_has_error(m_connection.get()) == 0; }

    struct Events {
        // Something was painted since AwaitDamage. Always, when the server has no DAMAGE.
        bool painted;
        // The root or a monitor has another size or place.
        bool resized;
    };
    // Reads what the server has sent.
    Events ReadEvents();
    // Has the next painting reported.
    void AwaitDamage();

    enum class Answer { Pending, Arrived, Failed };
    // Waits for the reply to a request, for a few milliseconds at most. `reply` belongs to the caller.
    Answer Await(unsigned request, void** reply);

  private:
    explicit X11Display(xcb_connection_t* connection, int screen);
    bool Prepare();

    // Much longer than an answer takes, and shorter than a frame.
    static constexpr int kPatienceMs = 4;

    std::shared_ptr<xcb_connection_t> m_connection;
    xcb_screen_t* m_screen = nullptr;
    lux::LUXSize m_rootSize{};
    const xcb_query_extension_reply_t* m_randr = nullptr;
    const xcb_query_extension_reply_t* m_damageExtension = nullptr;
    xcb_damage_damage_t m_damage = 0;
};

}  // namespace luxrt
