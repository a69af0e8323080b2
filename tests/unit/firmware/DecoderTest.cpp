// Frames become pictures and files.
#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "firmware/screen/DecoderThread.h"
#include "tests/unit/firmware/Av1Pictures.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

std::vector<uint8_t> PixelsOf(const Picture& picture) {
    std::vector<uint8_t> pixels(size_t(picture.Width()) * size_t(picture.Height()) * 4);
    picture.ConvertTo(pixels.data(), size_t(picture.Width()) * 4, {0, 0, picture.Width(), picture.Height()});
    return pixels;
}

std::string FaultOf(Av1Decoder& decoder, const std::vector<uint8_t>& frame) {
    try {
        decoder.Decode(frame);
        return "none";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::string FileOf(const std::string& name) {
    return testing::TempDir() + std::to_string(getpid()) + name;
}

std::vector<uint8_t> FileBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

uint32_t NumberAt(const std::vector<uint8_t>& bytes, size_t at, size_t size) {
    uint32_t number = 0;
    std::memcpy(&number, bytes.data() + at, size);
    return number;
}

TEST(Av1DecoderTest, ShowsWhatWasPainted) {
    Av1Encoder encoder(320, 200);
    Av1Decoder decoder;
    for (int frame = 0; frame < 5; ++frame) {
        const Painting painting = Painting::Of(320, 200, frame * 40);
        const auto picture = decoder.Decode(encoder.Encode(painting));
        ASSERT_EQ(picture->Width(), 320);
        ASSERT_EQ(picture->Height(), 200);
        EXPECT_GT(painting.Psnr(PixelsOf(*picture)), 35) << frame;
    }
}

TEST(Av1DecoderTest, ShowsPicturesOfOddSizes) {
    Av1Decoder decoder;
    for (const auto& [width, height] : {std::pair(33, 17), std::pair(1, 1), std::pair(127, 63)}) {
        const Painting painting = Painting::Of(width, height);
        const auto picture = decoder.Decode(EncodeOne(painting));
        EXPECT_EQ(picture->Width(), width);
        EXPECT_EQ(PixelsOf(*picture).size(), painting.pixels.size());
    }
}

TEST(Av1DecoderTest, KnowsWhereTwoPicturesDiffer) {
    Av1Encoder encoder(256, 128);
    Av1Decoder decoder;
    const auto first = decoder.Decode(encoder.Encode(Painting::Of(256, 128, 0)));
    const auto second = decoder.Decode(encoder.Encode(Painting::Of(256, 128, 192)));
    EXPECT_TRUE(second->IsLike(*first));
    EXPECT_FALSE(second->IsSameIn({192, 0, 64, 64}, *first));
    EXPECT_TRUE(second->IsSameIn({192, 0, 64, 64}, *second));
    const auto smaller = Av1Decoder().Decode(EncodeOne(Painting::Of(128, 128)));
    EXPECT_FALSE(second->IsLike(*smaller));
}

TEST(Av1DecoderTest, RefusesWhatIsNoAv1AndGoesOn) {
    Av1Decoder decoder;
    const std::vector<uint8_t> good = EncodeOne(Painting::Of(64, 64));
    std::vector<uint8_t> cut(good.begin(), good.begin() + ptrdiff_t(good.size() / 2));
    for (const auto& bad :
         {std::vector<uint8_t>(1000, 0xFF), std::vector<uint8_t>(3), std::vector<uint8_t>{1}, cut})
        EXPECT_NE(FaultOf(decoder, bad), "none") << bad.size();
    EXPECT_EQ(FaultOf(decoder, {}), "it is empty");
    EXPECT_EQ(FaultOf(decoder, good), "none");
}

TEST(Av1DecoderTest, RefusesAFrameWithoutAPicture) {
    Av1Decoder decoder;
    // A temporal delimiter, and nothing behind it.
    EXPECT_EQ(FaultOf(decoder, {0x12, 0x00}), "it has no picture");
}

TEST(Av1DecoderTest, ForgetsAllFramesAtAReset) {
    Av1Encoder encoder(64, 64);
    Av1Decoder decoder;
    decoder.Decode(encoder.Encode(Painting::Of(64, 64)));
    decoder.Reset();
    EXPECT_NE(FaultOf(decoder, encoder.Encode(Painting::Of(64, 64, 8))), "none");
}

TEST(PictureTest, IsSavedAsAPpmFile) {
    const Painting painting = Painting::Of(64, 48, 8);
    const auto picture = Av1Decoder().Decode(EncodeOne(painting));
    const std::string path = FileOf("picture.ppm");
    picture->SaveAs(path);
    const std::vector<uint8_t> file = FileBytes(path);
    const std::string head = "P6\n64 48\n255\n";
    ASSERT_EQ(file.size(), head.size() + 64 * 48 * 3);
    EXPECT_EQ(std::string(file.begin(), file.begin() + ptrdiff_t(head.size())), head);
    std::vector<uint8_t> pixels;
    for (size_t at = head.size(); at < file.size(); at += 3)
        pixels.insert(pixels.end(), {file[at + 2], file[at + 1], file[at], 255});
    EXPECT_GT(painting.Psnr(pixels), 35);
    std::filesystem::remove(path);
    EXPECT_THROW(picture->SaveAs("/nowhere/picture.ppm"), std::runtime_error);
}

TEST(IvfFileTest, HasTheFramesWithTheirTimes) {
    const std::string path = FileOf("frames.ivf");
    IvfFile ivf(path, 1920, 1080);
    ivf.Add(Bytes("first"), std::chrono::milliseconds(0));
    ivf.Add(Bytes("second"), std::chrono::milliseconds(33));
    const std::vector<uint8_t> file = FileBytes(path);  // complete while it is still open
    ASSERT_EQ(file.size(), 32u + 12 + 5 + 12 + 6);
    EXPECT_EQ(std::string(file.begin(), file.begin() + 4), "DKIF");
    EXPECT_EQ(NumberAt(file, 4, 2), 0u);
    EXPECT_EQ(NumberAt(file, 6, 2), 32u);
    EXPECT_EQ(std::string(file.begin() + 8, file.begin() + 12), "AV01");
    EXPECT_EQ(NumberAt(file, 12, 2), 1920u);
    EXPECT_EQ(NumberAt(file, 14, 2), 1080u);
    EXPECT_EQ(NumberAt(file, 16, 4), 1000u);
    EXPECT_EQ(NumberAt(file, 20, 4), 1u);
    EXPECT_EQ(NumberAt(file, 24, 4), 2u);
    EXPECT_EQ(NumberAt(file, 32, 4), 5u);
    EXPECT_EQ(NumberAt(file, 36, 4), 0u);
    EXPECT_EQ(std::string(file.begin() + 44, file.begin() + 49), "first");
    EXPECT_EQ(NumberAt(file, 49, 4), 6u);
    EXPECT_EQ(NumberAt(file, 53, 4), 33u);
    EXPECT_EQ(std::string(file.begin() + 61, file.end()), "second");
    std::filesystem::remove(path);
}

TEST(IvfFileTest, NamesAFileThatCannotBeWritten) {
    try {
        IvfFile("/nowhere/frames.ivf", 1, 1);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "cannot write /nowhere/frames.ivf: No such file or directory");
    }
}

class DecoderThreadTest : public testing::Test {
  protected:
    // Waits until so many frames have been worked on.
    void Await(int count) {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, kPatience, [&] { return m_done >= count; }));
    }
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_done = 0;
    DecoderThread m_thread{[this] {
        std::lock_guard lock(m_mutex);
        ++m_done;
        m_changed.notify_all();
    }};
};

TEST_F(DecoderThreadTest, DecodesTheFramesOfASession) {
    m_thread.Begin("", 64, 64);
    EXPECT_EQ(m_thread.Newest(), nullptr);
    Av1Encoder encoder(64, 64);
    for (int i = 0; i < 3; ++i)
        m_thread.Push(encoder.Encode(Painting::Of(64, 64, i)));
    Await(3);
    ASSERT_NE(m_thread.Newest(), nullptr);
    EXPECT_GT(Painting::Of(64, 64, 2).Psnr(PixelsOf(*m_thread.Newest())), 35);
    EXPECT_EQ(m_thread.Waiting(), 0u);
    EXPECT_EQ(m_thread.ToJson()["count"], 3);
    EXPECT_TRUE(m_thread.ToJson()["milliseconds"].isMember("p95"));
    EXPECT_TRUE(m_thread.CollectNotes().empty());
}

TEST_F(DecoderThreadTest, NamesTheFirstOfTheFramesThatFail) {
    m_thread.Begin("", 64, 64);
    m_thread.Push(std::vector<uint8_t>(100, 0xFF));
    m_thread.Push(std::vector<uint8_t>(200, 0xFF));
    m_thread.Push(EncodeOne(Painting::Of(64, 64)));
    Await(3);
    const auto notes = m_thread.CollectNotes();
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0].find("frame 1 of 100 bytes: it is no AV1 that can be decoded"), 0u) << notes[0];
    EXPECT_EQ(notes[1], "frame 3 can be decoded again");
    EXPECT_EQ(m_thread.ToJson()["failed"], 2);
    EXPECT_EQ(m_thread.ToJson()["count"], 1);
}

TEST_F(DecoderThreadTest, ForgetsTheSessionBefore) {
    m_thread.Begin("", 64, 64);
    m_thread.Push(EncodeOne(Painting::Of(64, 64)));
    Await(1);
    m_thread.Begin("", 96, 32);
    EXPECT_EQ(m_thread.Newest(), nullptr);
    m_thread.Push(EncodeOne(Painting::Of(96, 32)));
    Await(2);
    EXPECT_EQ(m_thread.Newest()->Width(), 96);
    EXPECT_EQ(m_thread.ToJson()["count"], 1);
}

TEST_F(DecoderThreadTest, SavesTheFramesOfEachSessionAnew) {
    const std::string path = FileOf("session.ivf");
    Av1Encoder encoder(64, 64);
    const std::vector<uint8_t> frame = encoder.Encode(Painting::Of(64, 64));
    m_thread.Begin(path, 64, 64);
    m_thread.Push(frame);
    m_thread.Push(encoder.Encode(Painting::Of(64, 64, 4)));
    Await(2);
    EXPECT_EQ(NumberAt(FileBytes(path), 24, 4), 2u);
    m_thread.Begin(path, 64, 64);
    m_thread.Push(frame);
    Await(3);
    EXPECT_EQ(FileBytes(path).size(), 32 + 12 + frame.size());
    EXPECT_EQ(m_thread.ToJson()["saved"], 1);
    std::filesystem::remove(path);
}

TEST_F(DecoderThreadTest, DecodesOnWhenTheFileCannotBeWritten) {
    m_thread.Begin("/nowhere/session.ivf", 64, 64);
    m_thread.Push(EncodeOne(Painting::Of(64, 64)));
    Await(1);
    EXPECT_EQ(m_thread.CollectNotes(),
              std::vector<std::string>{"cannot write /nowhere/session.ivf: No such file or directory"});
    EXPECT_EQ(m_thread.ToJson()["count"], 1);
}

}  // namespace
}  // namespace mpm::test
