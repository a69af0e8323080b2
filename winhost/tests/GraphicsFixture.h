// A PC whose graphics adapters a test describes; it sees to it that nothing of them is left.
#pragma once

#include "winhost/tests/PcFixture.h"
#include "winhost/wmi/ComObject.h"

class GraphicsFixture : public PcFixture {
  protected:
    ~GraphicsFixture() override { EXPECT_EQ(m_liveBefore, winhost::LiveComObjects()); }

    void Describe(std::vector<winhost::GraphicsAdapter> adapters) {
        StartPc([&](auto& pc) { pc.graphicsAdapters = adapters; });
    }

  private:
    const size_t m_liveBefore = winhost::LiveComObjects();
};
