// "LUXDisplayCapture": delivers the screen when it is asked.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "runtime/software/Component.h"
#include "runtime/software/Pacing.h"
#include "runtime/software/ScreenSource.h"
#include "runtime/software/TestPicture.h"

namespace luxrt {

// The first picture comes at once, then each change, at most at the frame rate; an unchanged picture is
// repeated after 490 ms. Without a desktop it is the test picture, until there is one.
class Capture : public Component {
  public:
    using OpenSource = std::function<std::unique_ptr<ScreenSource>(int64_t monitor)>;
    explicit Capture(OpenSource open = OpenScreen);

    lux::LUX_RESULT Init(lux::LUXSurfaceFormat format, int32_t width, int32_t height) override;
    lux::LUX_RESULT Terminate() override;
    // The next picture comes as the first one does.
    lux::LUX_RESULT Flush() override;
    lux::LUX_RESULT SubmitInput(lux::LUXData* data) override;
    lux::LUX_RESULT QueryOutput(lux::LUXData** data) override;

  private:
    // How often a desktop is looked for, and how long one may take for its first picture.
    static constexpr int64_t kReopenAfter = kSecond;
    static constexpr int64_t kFirstPicture = 10 * kSecond;

    int64_t Now() const;
    void Open(int64_t now);
    lux::Ref<Surface> TakePicture(int64_t now);
    lux::Ref<Surface> TakeDesktop(int64_t now);
    void Restart();

    OpenSource m_open;
    lux::Ref<lux::LUXCurrentTime> m_clock;
    std::unique_ptr<ScreenSource> m_desktop;
    // Whether the desktop has delivered a picture.
    bool m_delivered = false;
    int64_t m_opened = 0;
    // Set while there is nothing else to show.
    std::unique_ptr<TestPicture> m_testPicture;
    std::optional<Pacing> m_pacing;
    // The picture that is repeated.
    lux::Ref<Surface> m_last;
};

}  // namespace luxrt
