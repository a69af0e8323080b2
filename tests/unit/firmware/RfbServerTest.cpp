// The screen as a viewer sees it, and the viewer's keys and mouse, over a pair of sockets.
#include "firmware/screen/RfbServer.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <condition_variable>

#include "firmware/screen/Av1Decoder.h"
#include "tests/unit/firmware/Av1Pictures.h"
#include "tests/unit/firmware/RfbClient.h"

namespace mpm::test {
namespace {

struct Inputs {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> events;

    void Add(const std::string& event) {
        std::lock_guard lock(mutex);
        events.push_back(event);
        changed.notify_all();
    }
    std::vector<std::string> Await(size_t count) {
        std::unique_lock lock(mutex);
        changed.wait_for(lock, kPatience, [&] { return events.size() >= count; });
        return events;
    }
};

class RecordedInput : public ViewerInput {
  public:
    explicit RecordedInput(Inputs& inputs) : m_inputs(inputs) {}
    ~RecordedInput() override { m_inputs.Add("released"); }
    void Key(bool down, uint32_t keysym) override {
        m_inputs.Add((down ? "down " : "up ") + std::to_string(keysym));
    }
    void Pointer(uint8_t buttons, int x, int y, int width, int height) override {
        m_inputs.Add("pointer " + std::to_string(buttons) + " " + std::to_string(x) + "," +
                     std::to_string(y) + " of " + std::to_string(width) + "x" + std::to_string(height));
    }

  private:
    Inputs& m_inputs;
};

class RfbServerTest : public testing::Test {
  protected:
    RfbServerTest() {
        int pair[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
        m_socket = testbed::Descriptor(pair[0]);
        m_servers = testbed::Descriptor(pair[1]);
    }

    void Start(RfbServer::MakeInput makeInput) {
        m_server.emplace(std::move(m_servers), std::move(makeInput), [this] { m_news.Add("news"); });
    }
    void Start() {
        Start([this] { return std::make_unique<RecordedInput>(m_inputs); });
    }

    void Show(const Painting& painting) { m_server->Show(m_decoder.Decode(EncodeOne(painting))); }

    std::vector<uint8_t> Receive(std::chrono::milliseconds patience = kPatience) {
        pollfd wait{m_socket.Get(), POLLIN, 0};
        if (poll(&wait, 1, int(patience.count())) <= 0) return {};
        std::vector<uint8_t> block(65536);
        block.resize(size_t(std::max<ssize_t>(recv(m_socket.Get(), block.data(), block.size(), 0), 0)));
        return block;
    }
    bool IsClosed() {
        while (!Receive().empty()) {
        }
        char byte;
        return recv(m_socket.Get(), &byte, 1, MSG_DONTWAIT) == 0;
    }

    Inputs m_inputs, m_news;
    std::optional<RfbServer> m_server;
    // Closed before the server ends, as a bridge is: the server may be writing.
    testbed::Descriptor m_socket, m_servers;
    Av1Decoder m_decoder;
    RfbClient m_viewer{[this](std::span<const uint8_t> bytes) {
                           EXPECT_EQ(send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                                     ssize_t(bytes.size()));
                       },
                       [this] { return Receive(); }};
};

TEST_F(RfbServerTest, ShowsThePicture) {
    Start();
    const Painting painting = Painting::Of(320, 200);
    Show(painting);
    ASSERT_TRUE(m_viewer.Connect());
    EXPECT_EQ(m_viewer.width, 320);
    EXPECT_EQ(m_viewer.height, 200);
    EXPECT_EQ(m_viewer.name, "mpmsim");
    m_viewer.Request(false);
    ASSERT_TRUE(m_viewer.TakeUpdate());
    EXPECT_GT(painting.Psnr(m_viewer.pixels), 35);
    EXPECT_GE(m_server->Count().updates, 1u);
}

TEST_F(RfbServerTest, SpeaksWhenThereIsAPicture) {
    Start();
    EXPECT_TRUE(Receive(std::chrono::milliseconds(200)).empty());
    Show(Painting::Of(64, 64));
    EXPECT_TRUE(m_viewer.Connect());
}

TEST_F(RfbServerTest, SendsOnlyWhatHasChanged) {
    Start();
    Av1Encoder encoder(640, 256);
    Painting painting{640, 256, std::vector<uint8_t>(640 * 256 * 4, 128)};
    for (int i = 0; i < 3; ++i)
        m_server->Show(m_decoder.Decode(encoder.Encode(painting)));
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.Request(false);
    ASSERT_TRUE(m_viewer.TakeUpdate());
    m_viewer.Request(true);
    for (size_t y = 100; y < 120; ++y)
        for (size_t x = 300; x < 340; ++x)
            painting.pixels[(y * 640 + x) * 4] = 255;
    m_server->Show(m_decoder.Decode(encoder.Encode(painting)));
    ASSERT_TRUE(m_viewer.TakeUpdate());
    EXPECT_GT(painting.Psnr(m_viewer.pixels), 35);
    EXPECT_LE(m_viewer.changedPixels, 4u * 64 * 64);
}

TEST_F(RfbServerTest, DoesNotAnswerAnIncrementalRequestWhileNothingChanges) {
    Start();
    const auto picture = m_decoder.Decode(EncodeOne(Painting::Of(128, 128)));
    m_server->Show(picture);
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.Request(false);
    ASSERT_TRUE(m_viewer.TakeUpdate());
    m_viewer.Request(true);
    m_server->Show(picture);
    EXPECT_TRUE(Receive(std::chrono::milliseconds(200)).empty());
}

TEST_F(RfbServerTest, ServesAViewerOfAnotherPixelFormat) {
    Start();
    const Painting painting = Painting::Of(160, 100);
    Show(painting);
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.TakeSixteenBits();
    m_viewer.Request(false);
    ASSERT_TRUE(m_viewer.TakeUpdate());
    EXPECT_GT(painting.Psnr(m_viewer.pixels), 30);
}

TEST_F(RfbServerTest, PassesKeysAndMouseOn) {
    Start();
    Show(Painting::Of(640, 480));
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.Key(true, 'a');
    m_viewer.Key(false, 'a');
    m_viewer.Pointer(1, 600, 400);
    const std::vector<std::string> expected = {"down 97", "up 97", "pointer 1 600,400 of 640x480"};
    EXPECT_EQ(m_inputs.Await(3), expected);
    EXPECT_EQ(m_server->Count().keys, 2u);
    EXPECT_EQ(m_server->Count().pointerEvents, 1u);
    EXPECT_EQ(m_server->Count().dropped, 0u);
    m_socket.Close();
    EXPECT_EQ(m_inputs.Await(4).back(), "released");
}

TEST_F(RfbServerTest, CountsAndDropsKeysWithoutADisplayInOneLine) {
    Start([]() -> std::unique_ptr<ViewerInput> { throw std::runtime_error("no display"); });
    Show(Painting::Of(64, 64));
    ASSERT_TRUE(m_viewer.Connect());
    for (int i = 0; i < 50; ++i)
        m_viewer.Key(i % 2 == 0, 'a');
    m_viewer.Pointer(0, 1, 1);
    m_viewer.Request(false);
    ASSERT_TRUE(m_viewer.TakeUpdate());
    EXPECT_EQ(m_server->Count().keys, 50u);
    EXPECT_EQ(m_server->Count().dropped, 51u);
    EXPECT_EQ(m_server->CollectNotes(),
              std::vector<std::string>{"no display; the viewer's keys and mouse are dropped"});
}

TEST_F(RfbServerTest, EndsWithItsViewerInMidFrame) {
    Start();
    Show(Painting::Of(1280, 720));
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.Request(false);
    ASSERT_FALSE(Receive().empty());  // the beginning of the frame
    m_socket.Close();
    m_news.Await(1);
    EXPECT_TRUE(m_server->Finished());
}

TEST_F(RfbServerTest, EndsWhenItIsStoppedWhileTheViewerDoesNotRead) {
    Start();
    Show(Painting::Of(1280, 720));
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.Request(false);
    ASSERT_FALSE(Receive().empty());
    const auto start = std::chrono::steady_clock::now();
    m_server->Stop();
    m_socket.Close();
    m_news.Await(1);
    EXPECT_TRUE(m_server->Finished());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
}

TEST_F(RfbServerTest, EndsWhenItIsStoppedBeforeThereIsAPicture) {
    Start();
    m_server->Stop();
    m_news.Await(1);
    EXPECT_TRUE(m_server->Finished());
    EXPECT_TRUE(IsClosed());
}

TEST_F(RfbServerTest, ClosesTheConnectionOfWhatIsNoViewer) {
    Start();
    Show(Painting::Of(64, 64));
    const std::string words = "this is no version\n";
    EXPECT_EQ(send(m_socket.Get(), words.data(), words.size(), 0), ssize_t(words.size()));
    EXPECT_TRUE(IsClosed());
    m_news.Await(1);
    EXPECT_TRUE(m_server->Finished());
}

TEST_F(RfbServerTest, GoesOnWhenThePictureChangesItsSize) {
    Start();
    Show(Painting::Of(320, 200));
    ASSERT_TRUE(m_viewer.Connect());
    m_viewer.Write({2, 0, 0, 2, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0x21});  // raw, and a new size
    m_viewer.Request(false);
    ASSERT_TRUE(m_viewer.TakeUpdate());
    m_viewer.Request(true);
    Show(Painting::Of(160, 100));
    // An update whose one rectangle is the new size.
    const std::vector<uint8_t> update = Receive();
    const std::vector<uint8_t> size = {0, 160, 0, 100, 0xFF, 0xFF, 0xFF, 0x21};
    ASSERT_GE(update.size(), 16u);
    EXPECT_EQ(std::vector<uint8_t>(update.begin() + 8, update.begin() + 16), size);
}

}  // namespace
}  // namespace mpm::test
