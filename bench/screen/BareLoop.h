// The calls of the media runtime with which the service makes a frame, with the same properties and without
// the service.
#pragma once

#include <cstddef>
#include <string>

#include "lux/Ref.h"

class BareLoop {
  public:
    // Processor time of the whole process in nanoseconds.
    struct Times {
        long long capture = 0, conversion = 0, encoder = 0;
    };

    // Throws std::runtime_error when the library or a component cannot be used.
    BareLoop(const std::string& library, lux::LUXSize size);

    // Makes one frame and returns the bytes of its packet.
    size_t Frame();
    const Times& Spent() const { return m_spent; }

  private:
    lux::Ref<lux::LUXComponent> Create(const wchar_t* id);

    lux::LUXFactory* m_factory = nullptr;
    lux::Ref<lux::LUXContext> m_context;
    lux::Ref<lux::LUXComponent> m_capture, m_converter, m_encoder;
    Times m_spent;
};
