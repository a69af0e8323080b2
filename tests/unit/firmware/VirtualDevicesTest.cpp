// The viewer's keys and mouse on a real X display; skipped where there is no X server to start.
#include "firmware/screen/VirtualDevices.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "firmware/Firmware.h"
#include "testbed/Descriptor.h"

extern char** environ;

namespace mpm::test {
namespace {

constexpr uint32_t kShift = 0xFFE1, kReturn = 0xFF0D, kLeft = 0xFF51;

class XServer {
  public:
    XServer() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        const testbed::Descriptor read(ends[0]);
        testbed::Descriptor write(ends[1]);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, write.Get(), 9);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        // A number of its own: servers that look for a free one can take each other's place.
        static int servers = 0;
        const std::string own = ":" + std::to_string(1000 + getpid() * 16 % 1000000 + servers++);
        const char* words[] = {"Xvfb", own.c_str(), "-displayfd", "9",          "-nolisten",
                               "tcp",  "-screen",   "0",          "640x480x24", nullptr};
        if (posix_spawnp(&m_process, "Xvfb", &actions, nullptr, const_cast<char**>(words), environ) != 0)
            m_process = 0;
        posix_spawn_file_actions_destroy(&actions);
        write.Close();
        // The server ends when the line that it writes is not read to its end.
        char letter = 0;
        for (pollfd wait{read.Get(), POLLIN, 0}; m_process && letter != '\n';)
            if (poll(&wait, 1, int(kPatience.count())) != 1 || ::read(read.Get(), &letter, 1) != 1) return;
        if (m_process) name = own;
    }
    ~XServer() { End(); }
    void End() {
        if (m_process == 0) return;
        kill(m_process, SIGTERM);
        waitpid(m_process, nullptr, 0);
        m_process = 0;
    }
    std::string name;  // empty when there is none

  private:
    pid_t m_process = 0;
};

// A window that covers the screen and has the keyboard.
class Window {
  public:
    explicit Window(const std::string& display)
        : m_connection(xcb_connect(display.c_str(), nullptr), xcb_disconnect) {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(Get())).data;
        const xcb_window_t window = xcb_generate_id(Get());
        const uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE |
                                XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                                XCB_EVENT_MASK_EXPOSURE;
        xcb_create_window(Get(), XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 640, 480, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &events);
        xcb_map_window(Get(), window);
        xcb_flush(Get());
        while (const auto event = Next())
            if ((event->response_type & 0x7F) == XCB_EXPOSE) break;
        xcb_set_input_focus(Get(), XCB_INPUT_FOCUS_NONE, window, XCB_CURRENT_TIME);
        std::free(xcb_get_input_focus_reply(Get(), xcb_get_input_focus(Get()), nullptr));
    }

    // What is typed: the keysym of each key that goes down, read as a program reads it.
    std::vector<uint32_t> Typed(size_t count) {
        std::vector<uint32_t> typed;
        while (typed.size() < count) {
            const auto event = Next();
            if (!event) break;
            if ((event->response_type & 0x7F) != XCB_KEY_PRESS) continue;
            const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event.get());
            typed.push_back(Symbol(key->detail, key->state & XCB_MOD_MASK_SHIFT));
        }
        return typed;
    }
    // "button 1 down at 10,20", of the next button.
    std::string Button() {
        while (const auto event = Next()) {
            const auto type = event->response_type & 0x7F;
            if (type != XCB_BUTTON_PRESS && type != XCB_BUTTON_RELEASE) continue;
            const auto* button = reinterpret_cast<const xcb_button_press_event_t*>(event.get());
            return "button " + std::to_string(button->detail) +
                   (type == XCB_BUTTON_PRESS ? " down at " : " up at ") + std::to_string(button->event_x) +
                   "," + std::to_string(button->event_y);
        }
        return {};
    }
    // The next key that goes up.
    uint32_t Released() {
        while (const auto event = Next())
            if ((event->response_type & 0x7F) == XCB_KEY_RELEASE)
                return Symbol(reinterpret_cast<const xcb_key_press_event_t*>(event.get())->detail, 0);
        return 0;
    }

  private:
    template <class Thing>
    using Owned = std::unique_ptr<Thing, void (*)(void*)>;

    xcb_connection_t* Get() { return m_connection.get(); }
    Owned<xcb_generic_event_t> Next() {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        for (;;) {
            if (auto* event = xcb_poll_for_event(Get())) return {event, std::free};
            pollfd wait{xcb_get_file_descriptor(Get()), POLLIN, 0};
            if (std::chrono::steady_clock::now() > end || xcb_connection_has_error(Get()))
                return {nullptr, std::free};
            poll(&wait, 1, 100);
        }
    }
    uint32_t Symbol(uint8_t key, int level) {
        const Owned<xcb_get_keyboard_mapping_reply_t> reply(
            xcb_get_keyboard_mapping_reply(Get(), xcb_get_keyboard_mapping(Get(), key, 1), nullptr),
            std::free);
        if (!reply) return 0;
        const xcb_keysym_t* symbols = xcb_get_keyboard_mapping_keysyms(reply.get());
        return level < reply->keysyms_per_keycode && symbols[level] ? symbols[level] : symbols[0];
    }

    std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> m_connection;
};

class VirtualDevicesTest : public testing::Test {
  protected:
    void SetUp() override {
        if (m_server.name.empty()) GTEST_SKIP() << "Xvfb is not installed here";
        m_window.emplace(m_server.name);
        m_devices.emplace(m_server.name);
    }
    void Type(uint32_t keysym) {
        m_devices->Key(true, keysym);
        m_devices->Key(false, keysym);
    }

    XServer m_server;
    std::optional<Window> m_window;
    std::optional<VirtualDevices> m_devices;
};

TEST_F(VirtualDevicesTest, TypeTextWithAndWithoutTheShiftKey) {
    const std::string text = "Hello, World! (x = 42) #@~";
    std::vector<uint32_t> expected;
    for (const char c : text) {
        Type(uint32_t(c));
        const uint32_t symbol = m_window->Typed(1).front();
        // The shift key goes down first where the character needs it.
        expected.push_back(symbol == kShift ? m_window->Typed(1).front() : symbol);
    }
    EXPECT_EQ(expected, std::vector<uint32_t>(text.begin(), text.end()));
}

TEST_F(VirtualDevicesTest, TypeCharactersThatTheKeyboardDoesNotHave) {
    for (const uint32_t keysym : {0xE9u, 0x20ACu + 0x1000000, 0x1000416u, 0xE9u}) {
        Type(keysym);
        EXPECT_EQ(m_window->Typed(1), std::vector<uint32_t>{keysym});
    }
}

TEST_F(VirtualDevicesTest, LeaveTheShiftKeyToTheViewerForOtherKeys) {
    m_devices->Key(true, kShift);
    m_devices->Key(true, kLeft);
    EXPECT_EQ(m_window->Typed(2), (std::vector<uint32_t>{kShift, kLeft}));
    m_devices->Key(false, kLeft);
    EXPECT_EQ(m_window->Released(), kLeft);  // and the shift key was not let go before
}

TEST_F(VirtualDevicesTest, ReleaseTheShiftKeyForACharacterThatNeedsNone) {
    m_devices->Key(true, kShift);
    m_devices->Key(true, 'a');
    EXPECT_EQ(m_window->Typed(3), (std::vector<uint32_t>{kShift, 'a', kShift}));
}

TEST_F(VirtualDevicesTest, TakeARepeatedKeyAsHeld) {
    m_devices->Key(true, 'a');
    m_devices->Key(true, 'a');
    Type(kReturn);
    EXPECT_EQ(m_window->Typed(2), (std::vector<uint32_t>{'a', kReturn}));
}

TEST_F(VirtualDevicesTest, MoveTheMouseAndPressItsButtons) {
    m_devices->Pointer(0, 100, 50, 640, 480);
    m_devices->Pointer(1, 110, 60, 640, 480);
    m_devices->Pointer(5, 110, 60, 640, 480);
    m_devices->Pointer(0, 120, 70, 640, 480);
    EXPECT_EQ(m_window->Button(), "button 1 down at 110,60");
    EXPECT_EQ(m_window->Button(), "button 3 down at 110,60");
    EXPECT_EQ(m_window->Button(), "button 1 up at 120,70");
    EXPECT_EQ(m_window->Button(), "button 3 up at 120,70");
}

TEST_F(VirtualDevicesTest, ScaleTheMouseFromASmallerPicture) {
    m_devices->Pointer(1, 160, 120, 320, 240);
    EXPECT_EQ(m_window->Button(), "button 1 down at 320,240");
}

TEST_F(VirtualDevicesTest, ReleaseWhatIsHeldAtTheirEnd) {
    m_devices->Key(true, 'q');
    m_devices->Pointer(2, 5, 5, 640, 480);
    EXPECT_EQ(m_window->Button(), "button 2 down at 5,5");
    m_devices.reset();
    EXPECT_EQ(m_window->Released(), uint32_t('q'));
    EXPECT_EQ(m_window->Button(), "button 2 up at 5,5");
}

TEST_F(VirtualDevicesTest, FailWhenTheDisplayGoes) {
    m_server.End();
    EXPECT_THROW(
        {
            for (int i = 0; i < 100; ++i)
                m_devices->Pointer(0, i, i, 640, 480);
        },
        std::runtime_error);
}

TEST(NoDisplay, IsNamed) {
    for (const auto& [name, why] : {std::pair("", "Screen.Display names no display"),
                                    std::pair(":65000", "display :65000 cannot be opened")}) {
        try {
            VirtualDevices devices(name);
            FAIL();
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), why);
        }
    }
}

}  // namespace
}  // namespace mpm::test
