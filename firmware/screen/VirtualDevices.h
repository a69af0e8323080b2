// A keyboard and a mouse on an X display, moved through its XTEST extension. The extension's C library for
// the protocol itself is used because a display that goes away ends no process there.
#pragma once

#include <xcb/xcb.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "firmware/screen/ViewerInput.h"

namespace mpm {

class VirtualDevices : public ViewerInput {
  public:
    // Throws std::runtime_error when the display cannot be had.
    explicit VirtualDevices(const std::string& display);
    ~VirtualDevices() override;

    void Key(bool down, uint32_t keysym) override;
    void Pointer(uint8_t buttons, int x, int y, int width, int height) override;

  private:
    struct Place {
        uint8_t key = 0;      // 0: nowhere
        bool shift = false;   // needs the shift key
        bool either = false;  // means the same with and without it
    };
    void ReadKeys();
    Place PlaceOf(uint32_t keysym) const;
    // Gives the keysym a key that has none, in turn.
    Place Assign(uint32_t keysym);
    uint32_t SymbolAt(size_t key, size_t level) const { return m_symbols[key * m_levels + level]; }
    void Press(uint8_t key, const Place& place);
    void Fake(uint8_t type, uint8_t detail, int x = 0, int y = 0);
    void Flush();
    void FollowChanges();

    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> m_connection;
    xcb_screen_t* m_screen = nullptr;
    uint8_t m_firstKey = 0;
    size_t m_levels = 0;
    std::vector<uint32_t> m_symbols;     // of all keys, level by level
    std::vector<uint8_t> m_spare;        // keys that had no symbol at first
    size_t m_assigned = 0;               // how often one of these was given a symbol
    std::map<uint32_t, uint8_t> m_down;  // keys by the keysym that pressed them
    uint8_t m_buttons = 0;
};

}  // namespace mpm
