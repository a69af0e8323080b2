#include "runtime/software/Capture.h"

#include <array>
#include <chrono>
#include <utility>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

bool IsClockOrNone(const LUXVariant& value) {
    return !value.interfaceValue || Ref<LUXInterface>::Share(value.interfaceValue).As<LUXCurrentTime>();
}

const std::array<PropertyRule, 3> kRules{{
    {lux::Capture::FrameRate, ToVariant(LUXRate{30, 1}), IsFrameRate},
    {lux::Capture::DisplayCaptureType, ToVariant(int64_t{1}), nullptr},
    {lux::Capture::CurrentTimeInterface, {LUX_VARIANT_INTERFACE, {}}, IsClockOrNone},
}};

}  // namespace

Capture::Capture(OpenSource open) : Component(kCaptureProperties, kRules), m_open(std::move(open)) {}

LUX_RESULT Capture::Init(LUXSurfaceFormat format, int32_t width, int32_t height) {
    return Guarded([&] {
        if (m_pacing) {
            return LUX_WRONG_STATE;
        }
        if (format != LUX_SURFACE_UNKNOWN || width != 0 || height != 0) {
            return LUX_INVALID_ARGUMENT;
        }
        m_clock =
            Ref<LUXInterface>::Share(Interface(lux::Capture::CurrentTimeInterface)).As<LUXCurrentTime>();
        Open(Now());
        Restart();
        return LUX_OK;
    });
}

LUX_RESULT Capture::Terminate() {
    m_pacing.reset();
    m_last.Reset();
    m_desktop.reset();
    m_testPicture.reset();
    m_clock.Reset();
    return LUX_OK;
}

LUX_RESULT Capture::Flush() {
    if (!m_pacing) {
        return LUX_WRONG_STATE;
    }
    Restart();
    return LUX_OK;
}

LUX_RESULT Capture::SubmitInput(LUXData*) {
    return LUX_NOT_SUPPORTED;
}

LUX_RESULT Capture::QueryOutput(LUXData** data) {
    return Guarded([&] {
        if (!data) {
            return LUX_INVALID_POINTER;
        }
        *data = nullptr;
        if (!m_pacing) {
            return LUX_WRONG_STATE;
        }
        const int64_t now = Now();
        if (!m_pacing->Due(now)) {
            return LUX_OK;
        }
        Ref<Surface> picture = TakePicture(now);
        if (!picture && m_last && m_pacing->RepeatDue(now)) {
            picture = m_last;
        }
        if (picture) {
            m_pacing->Delivered(now);
            m_last = picture;
            *data = picture.Detach();
        }
        return LUX_OK;
    });
}

int64_t Capture::Now() const {
    if (m_clock) {
        return m_clock->Get();
    }
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::duration<int64_t, std::ratio<1, kSecond>>>(time).count();
}

void Capture::Open(int64_t now) {
    m_opened = now;
    m_delivered = false;
    m_desktop = m_open(Integer(lux::Capture::MonitorIndex));
}

Ref<Surface> Capture::TakePicture(int64_t now) {
    if (Ref<Surface> picture = TakeDesktop(now)) {
        m_delivered = true;
        if (m_testPicture) {
            m_testPicture.reset();
            TraceLine(LUX_TRACE_INFO, "The capture shows the desktop");
        }
        return picture;
    }
    if (m_desktop && (m_delivered || (!m_testPicture && now < m_opened + kFirstPicture))) {
        return {};
    }
    if (!m_testPicture) {
        TraceLine(LUX_TRACE_WARNING, "There is no desktop; the capture shows the test picture");
        m_testPicture = std::make_unique<TestPicture>();
    }
    return m_testPicture->Take();
}

Ref<Surface> Capture::TakeDesktop(int64_t now) {
    if (m_desktop && !m_desktop->Alive()) {
        m_desktop.reset();
    }
    if (!m_desktop && now >= m_opened + kReopenAfter) {
        Open(now);
    }
    return m_desktop && m_desktop->Changed() ? m_desktop->Take() : Ref<Surface>();
}

void Capture::Restart() {
    m_last.Reset();
    m_pacing.emplace(Rate(lux::Capture::FrameRate), Boolean(lux::Capture::DuplicateOutput));
}

}  // namespace luxrt
