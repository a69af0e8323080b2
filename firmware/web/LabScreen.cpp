// The PC's screen, keyboard and mouse in a page.
#include <algorithm>

#include "firmware/screen/VirtualDevices.h"
#include "firmware/web/Lab.h"

namespace mpm::web {

namespace {

// Pictures have many bytes, and take turns with everything else.
constexpr std::chrono::milliseconds kPicturePeriod{40};
constexpr uint64_t kMostPixels = 16384;  // across and down

}  // namespace

void Lab::WatchScreen(PageId id, const PageMessage& message) {
    const std::string how = TextOf(message.members, "screen");
    if (how != "av1" && how != "picture" && how != "off")
        throw std::invalid_argument("\"screen\" has to be av1, picture or off");
    Page& page = m_pages.at(id);
    page.watch = how == "av1" ? Watch::Av1 : how == "picture" ? Watch::Picture : Watch::Off;
    page.frame = page.picture = 0;
    CountWatchers();
    Answer(id, AnswerText(message.id, Json::objectValue));
}

void Lab::CountWatchers() {
    m_watched = std::any_of(m_pages.begin(), m_pages.end(),
                            [](const auto& each) { return each.second.watch != Watch::Off; });
    m_tap->SetWatched(m_watched);
}

// Where no key frame is kept, a page has pictures until the next one comes.
Outgoing Lab::FrameFor(Page& page) {
    if (page.watch == Watch::Off) return {};
    if (page.watch == Watch::Av1) {
        if (auto frame = m_tap->Next(page.frame)) return {true, std::move(frame)};
        if (!m_tap->NeedsKey(page.frame)) return {};
    }
    return PictureFor(page);
}

Outgoing Lab::PictureFor(Page& page) {
    if (Clock::now() - page.pictureTime < kPicturePeriod) return {};
    const ScreenTap::Shown shown = m_tap->Newest();
    if (!shown.picture || shown.serial == page.picture) return {};
    if (shown.serial != m_pictureSerial) {
        m_pictureMessage = std::make_shared<const std::string>(PictureMessage(shown));
        m_pictureSerial = shown.serial;
    }
    page.picture = shown.serial;
    page.pictureTime = Clock::now();
    return {true, m_pictureMessage};
}

void Lab::Hold(PageId page, const PageMessage& message) {
    const bool hold = FlagOf(message.members, "session");
    if (!m_options.hold) throw std::invalid_argument("there is no KVM port to connect to");
    m_options.hold(hold);
    Answer(page, AnswerText(message.id, Json::objectValue));
}

void Lab::Input(PageId page, const PageMessage& message) {
    std::function<void(ViewerInput&)> act;
    const Json::Value& members = message.members;
    if (message.verb == "key") {
        act = [down = FlagOf(members, "down"), keysym = uint32_t(NumberOf(members, "keysym", UINT32_MAX))](
                  ViewerInput& input) { input.Key(down, keysym); };
    } else {
        const auto number = [&](const char* name) { return int(NumberOf(members, name, kMostPixels)); };
        act = [buttons = uint8_t(NumberOf(members, "buttons", UINT8_MAX)), x = number("x"), y = number("y"),
               width = number("width"), height = number("height")](ViewerInput& input) {
            input.Pointer(buttons, x, y, width, height);
        };
    }
    m_pages.at(page).usedInput = true;
    RunOn(m_inputWorker, page, message.id, [this, act] {
        const std::string display = m_firmware.CurrentSettings().Screen.Display;
        try {
            if (!m_input || display != m_display) m_input = std::make_unique<VirtualDevices>(display);
            m_display = display;
            act(*m_input);
        } catch (const std::exception&) {
            m_input = nullptr;
            throw;
        }
        return Json::Value(Json::objectValue);
    });
}

// A page that has gone holds no key any more.
void Lab::ReleaseInput() {
    m_inputWorker.Post([this] { m_input = nullptr; });
}

}  // namespace mpm::web
