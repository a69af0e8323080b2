// The capture of a real desktop: an X server without a monitor, which the test starts and paints.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <thread>

#include "lux/Names.h"
#include "runtime/software/Capture.h"
#include "runtime/software/TestPicture.h"
#include "runtime/software/x11/X11Display.h"
#include "tests/unit/runtime/RuntimeFixture.h"

using namespace lux;

namespace {

constexpr LUXSize kDesktop{640, 480};

// Returns false when the program is missing.
class XServer {
  public:
    bool Start() {
        std::array<int, 2> number{};
        if (pipe(number.data()) != 0) {
            return false;
        }
        m_process = fork();
        if (m_process == 0) {
            const std::string descriptor = std::to_string(number[1]);
            close(number[0]);
            execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", "640x480x24",
                   "-nolisten", "tcp", "-noreset", nullptr);
            _exit(127);
        }
        close(number[1]);
        std::string name = ":";
        for (char digit = 0; read(number[0], &digit, 1) == 1 && digit != '\n';) {
            name += digit;
        }
        close(number[0]);
        return name.size() > 1 && setenv("DISPLAY", name.c_str(), 1) == 0;
    }
    void Stop(int signal = SIGTERM) {
        if (m_process > 0) {
            kill(m_process, SIGCONT);
            kill(m_process, signal);
            waitpid(m_process, nullptr, 0);
            m_process = -1;
        }
    }
    void Halt() const { kill(m_process, SIGSTOP); }
    void Resume() const { kill(m_process, SIGCONT); }
    ~XServer() { Stop(); }

  private:
    pid_t m_process = -1;
};

class RuntimeX11 : public testing::Test {
  protected:
    void SetUp() override {
        unsetenv("LUXRT_SCREEN");
        if (!server.Start()) {
            GTEST_SKIP() << "Xvfb is not installed or does not start (package xvfb)";
        }
        connection.reset(xcb_connect(nullptr, nullptr), xcb_disconnect);
        ASSERT_EQ(xcb_connection_has_error(connection.get()), 0);
        screen = xcb_setup_roots_iterator(xcb_get_setup(connection.get())).data;
        context = xcb_generate_id(connection.get());
        xcb_create_gc(connection.get(), context, screen->root, 0, nullptr);
        Fill({0, 0, 640, 480}, 0x203040);
    }
    void Start() { ASSERT_EQ(capture->Init(LUX_SURFACE_UNKNOWN, 0, 0), LUX_OK); }
    void Fill(xcb_rectangle_t area, uint32_t colour) {
        xcb_change_gc(connection.get(), context, XCB_GC_FOREGROUND, &colour);
        xcb_poly_fill_rectangle(connection.get(), screen->root, context, 1, &area);
        Sync();
    }
    void Sync() {
        free(xcb_get_input_focus_reply(connection.get(), xcb_get_input_focus(connection.get()), nullptr));
    }
    // Polls as the service does. Null after that time.
    Ref<LUXData> Await(std::chrono::milliseconds limit, const std::function<bool(LUXData&)>& wanted) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < end) {
            auto data = luxtest::Query(*capture.Get());
            if (data && wanted(*data.Get())) {
                return data;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return {};
    }
    Ref<LUXData> Next() {
        return Await(std::chrono::seconds(10), [](LUXData&) { return true; });
    }
    static uint32_t Pixel(LUXData& data, int32_t x, int32_t y) {
        const uint8_t* const pixel = luxtest::PixelsOf(data) + (y * luxtest::SizeOf(data).width + x) * 4;
        return static_cast<uint32_t>(pixel[2] << 16 | pixel[1] << 8 | pixel[0]);
    }

    XServer server;
    std::shared_ptr<xcb_connection_t> connection;
    xcb_screen_t* screen = nullptr;
    xcb_gcontext_t context = 0;
    Ref<luxrt::Capture> capture = Ref<luxrt::Capture>::Adopt(new luxrt::Capture());
};

}  // namespace

TEST_F(RuntimeX11, ThePictureIsWhatWasPainted) {
    Fill({10, 20, 30, 40}, 0xff8001);
    Start();
    const auto data = Next();
    ASSERT_TRUE(data);
    ASSERT_EQ(luxtest::SizeOf(*data.Get()), kDesktop);
    for (int32_t y = 0; y < kDesktop.height; ++y) {
        for (int32_t x = 0; x < kDesktop.width; ++x) {
            const bool inside = x >= 10 && x < 40 && y >= 20 && y < 60;
            ASSERT_EQ(Pixel(*data.Get(), x, y), inside ? 0xff8001u : 0x203040u) << x << "," << y;
        }
    }
}

TEST_F(RuntimeX11, EachChangeComesAndAnUnchangedPictureIsRepeated) {
    Start();
    auto data = Next();
    ASSERT_TRUE(data);
    for (uint32_t colour = 1; colour < 20; ++colour) {
        Fill({5, 5, 1, 1}, colour);
        data = Await(std::chrono::seconds(10), [&](LUXData& shown) { return Pixel(shown, 5, 5) == colour; });
        ASSERT_TRUE(data) << colour;
    }
    // The same surface again: nothing was captured anew.
    const auto again = Next();
    EXPECT_EQ(again.Get(), data.Get());
}

TEST_F(RuntimeX11, WindowsAreInThePicture) {
    const xcb_window_t window = xcb_generate_id(connection.get());
    const std::array<uint32_t, 2> values{0x00ff00, 1};
    xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window, screen->root, 100, 100, 50, 50, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    Start();
    auto data = Next();
    ASSERT_TRUE(data);
    EXPECT_EQ(Pixel(*data.Get(), 120, 120), 0x203040u);
    xcb_map_window(connection.get(), window);
    Sync();
    data = Await(std::chrono::seconds(10), [](LUXData& shown) { return Pixel(shown, 120, 120) == 0x00ff00; });
    EXPECT_TRUE(data);
}

TEST_F(RuntimeX11, ADesktopThatChangesItsSizeChangesThatOfTheSurfaces) {
    Start();
    ASSERT_TRUE(Next());
    xcb_connection_t* const x = connection.get();
    // The screen has any size once no monitor has to fit into it.
    const std::unique_ptr<xcb_randr_get_screen_resources_reply_t, luxrt::FreeReply> resources(
        xcb_randr_get_screen_resources_reply(x, xcb_randr_get_screen_resources(x, screen->root), nullptr));
    ASSERT_TRUE(resources);
    const std::span crtcs(xcb_randr_get_screen_resources_crtcs(resources.get()), resources->num_crtcs);
    for (const xcb_randr_crtc_t crtc : crtcs) {
        const auto request =
            xcb_randr_set_crtc_config(x, crtc, XCB_CURRENT_TIME, resources->config_timestamp, 0, 0, XCB_NONE,
                                      XCB_RANDR_ROTATION_ROTATE_0, 0, nullptr);
        free(xcb_randr_set_crtc_config_reply(x, request, nullptr));
    }
    const auto resize = [&](LUXSize size) {
        xcb_randr_set_screen_size(x, screen->root, static_cast<uint16_t>(size.width),
                                  static_cast<uint16_t>(size.height), 100, 100);
        Sync();
    };
    for (const LUXSize size : {LUXSize{320, 240}, LUXSize{640, 480}}) {
        resize(size);
        EXPECT_TRUE(Await(std::chrono::seconds(10), [&](LUXData& shown) {
            return luxtest::SizeOf(shown) == size;
        })) << size.width;
    }
}

TEST_F(RuntimeX11, AServerThatHangsNeitherBlocksNorEndsThePicture) {
    Start();
    ASSERT_TRUE(Next());
    Fill({5, 5, 1, 1}, 0x777777);
    server.Halt();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    int repeated = 0;
    auto longest = std::chrono::steady_clock::duration::zero();
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1200);
    while (std::chrono::steady_clock::now() < end) {
        const auto start = std::chrono::steady_clock::now();
        repeated += luxtest::Query(*capture.Get()) ? 1 : 0;
        longest = std::max(longest, std::chrono::steady_clock::now() - start);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GE(repeated, 1);
    // The test's own wait for a processor included.
    EXPECT_LT(longest, std::chrono::milliseconds(250));
    server.Resume();
    EXPECT_TRUE(
        Await(std::chrono::seconds(10), [](LUXData& shown) { return Pixel(shown, 5, 5) == 0x777777; }));
}

TEST_F(RuntimeX11, AServerThatDiesIsReplacedByTheTestPictureAndByTheNextServer) {
    Start();
    ASSERT_TRUE(Next());
    server.Stop(SIGKILL);
    EXPECT_TRUE(Await(std::chrono::seconds(10),
                      [](LUXData& shown) { return luxtest::SizeOf(shown) == luxrt::TestPicture::kSize; }));
    XServer next;
    ASSERT_TRUE(next.Start());
    EXPECT_TRUE(
        Await(std::chrono::seconds(10), [](LUXData& shown) { return luxtest::SizeOf(shown) == kDesktop; }));
    capture->Terminate();
}

TEST_F(RuntimeX11, APictureOutlivesItsServer) {
    Start();
    const auto data = Next();
    ASSERT_TRUE(data);
    capture->Terminate();
    server.Stop();
    EXPECT_EQ(Pixel(*data.Get(), 639, 479), 0x203040u);
}

TEST_F(RuntimeX11, SessionsLeaveNoFilesAndNoMemoryBehind) {
    const auto descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    Start();
    ASSERT_TRUE(Next());
    capture->Terminate();
    const auto before = descriptors();
    for (int session = 0; session < 5; ++session) {
        Start();
        ASSERT_TRUE(Next());
        capture->Terminate();
    }
    EXPECT_EQ(descriptors(), before);
}

TEST_F(RuntimeX11, AMonitorThatDoesNotExistIsTheWholeDesktop) {
    ASSERT_EQ(luxtest::Set(*capture.Get(), Capture::MonitorIndex, int64_t{7}), LUX_OK);
    Start();
    const auto data = Next();
    ASSERT_TRUE(data);
    EXPECT_EQ(luxtest::SizeOf(*data.Get()), kDesktop);
}

TEST(RuntimeScreen, WithoutADisplayThereIsNoDesktop) {
    unsetenv("LUXRT_SCREEN");
    setenv("DISPLAY", ":7654", 1);
    EXPECT_EQ(luxrt::OpenScreen(0), nullptr);
    setenv("DISPLAY", "no display", 1);
    EXPECT_EQ(luxrt::OpenScreen(0), nullptr);
}

TEST(RuntimeScreen, TheEnvironmentCanAskForTheTestPicture) {
    setenv("DISPLAY", ":7654", 1);
    const auto size = [](const char* wanted) {
        setenv("LUXRT_SCREEN", wanted, 1);
        const auto source = luxrt::OpenScreen(0);
        return source ? luxtest::SizeOf(*source->Take().Get()) : LUXSize{};
    };
    EXPECT_EQ(size("test"), (LUXSize{1920, 1080}));
    EXPECT_EQ(size("test:320x200"), (LUXSize{320, 200}));
    EXPECT_EQ(size("test:0x200"), LUXSize{});
    EXPECT_EQ(size("test:99999x99999"), LUXSize{});
    EXPECT_EQ(size("other"), LUXSize{});
}
