// One monitor of an X server.
#pragma once

#include <memory>
#include <optional>

#include "runtime/software/ScreenSource.h"
#include "runtime/software/x11/X11Display.h"

namespace luxrt {

class X11Screen : public ScreenSource {
  public:
    // `monitor` counts as RANDR does. When there is no such monitor, it is the whole root window.
    X11Screen(std::unique_ptr<X11Display> display, int64_t monitor);

    bool Changed() override;
    lux::Ref<Surface> Take() override;
    bool Alive() override;

  private:
    struct Area {
        int16_t x;
        int16_t y;
        lux::LUXSize size;
        bool operator==(const Area&) const = default;
    };
    struct Picture {
        unsigned request;
        std::shared_ptr<Block> block;
        Area area;
    };
    bool ReadArea();
    Area FindMonitor(const xcb_randr_get_monitors_reply_t* monitors) const;
    bool Request();
    lux::Ref<Surface> Finish();

    // A picture fails when the screen has just become smaller; one more failure than that has another reason.
    static constexpr int kMostFailures = 5;

    std::unique_ptr<X11Display> m_display;
    int64_t m_monitor;
    std::shared_ptr<BlockPool> m_pool;
    bool m_changed = true;
    bool m_resized = true;
    int m_failures = 0;
    Area m_area{};
    // What the server has not answered yet.
    std::optional<unsigned> m_monitorsRequest;
    std::optional<Picture> m_picture;
};

}  // namespace luxrt
