// What goes through a named pipe.
#include "winhost/tests/PipeFixture.h"

namespace {

class PipeDataTest : public PipeFixture {
  protected:
    // A new pipe, in place of the one before.
    void Join(DWORD room = kRoom) {
        CloseHandle(m_client);
        CloseHandle(m_server);
        m_server = Create({.room = room});
        m_client = Open();
    }
    HANDLE m_server = INVALID_HANDLE_VALUE;
    HANDLE m_client = INVALID_HANDLE_VALUE;
};

TEST_F(PipeDataTest, MessagesGoBothWaysWhole) {
    Join();
    EXPECT_EQ(ERROR_SUCCESS, Write(m_server, "first"));
    EXPECT_EQ(ERROR_SUCCESS, Write(m_server, "second"));
    EXPECT_EQ(ERROR_SUCCESS, Write(m_client, "answer"));
    EXPECT_EQ((PipeRead{0, "first"}), Read(m_client));
    EXPECT_EQ((PipeRead{0, "second"}), Read(m_client));
    EXPECT_EQ((PipeRead{0, "answer"}), Read(m_server));
}

TEST_F(PipeDataTest, AMessageThatDoesNotFitIsReadInParts) {
    Join();
    Write(m_client, "0123456789");
    Write(m_client, "next");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "0123"}), Read(m_server, 4));
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "4567"}), Read(m_server, 4));
    EXPECT_EQ((PipeRead{0, "89"}), Read(m_server, 4));
    EXPECT_EQ((PipeRead{0, "next"}), Read(m_server, 4));
}

TEST_F(PipeDataTest, AMessageMayJustFitOrBeEmptyAndStaysWithoutRoomForIt) {
    Join();
    Write(m_client, std::string(512, 'x'));
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, ""}), Read(m_server, 0));
    EXPECT_EQ((PipeRead{0, std::string(512, 'x')}), Read(m_server, 512));
    EXPECT_EQ(ERROR_SUCCESS, Write(m_client, ""));
    Write(m_client, "text");
    EXPECT_EQ((PipeRead{0, ""}), Read(m_server));
    EXPECT_EQ((PipeRead{0, "text"}), Read(m_server));
}

TEST_F(PipeDataTest, AClientReadsWhenItHasAskedForMessages) {
    m_server = Create();
    m_client = OpenOnly();
    Write(m_server, "text");
    EXPECT_EQ((PipeRead{ERROR_NOT_SUPPORTED, ""}), Read(m_client));
    DWORD mode = 0;
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(SetNamedPipeHandleState(m_client, &mode, nullptr, nullptr)));
    mode = PIPE_READMODE_MESSAGE;
    EXPECT_TRUE(SetNamedPipeHandleState(m_client, &mode, nullptr, nullptr));
    EXPECT_EQ((PipeRead{0, "text"}), Read(m_client));
}

TEST_F(PipeDataTest, AReadBlocksUntilThereIsSomething) {
    Join();
    auto read = ReadLater(m_server);
    Write(m_client, "late");
    EXPECT_EQ((PipeRead{0, "late"}), read.get());
}

TEST_F(PipeDataTest, WithoutABufferAWriteBlocksUntilAllIsRead) {
    Join(0);
    auto written = WriteLater(m_server, "0123456789");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "01234567"}), Read(m_client, 8));
    EXPECT_EQ(std::future_status::timeout, written.wait_for(std::chrono::milliseconds(20)));
    EXPECT_EQ((PipeRead{0, "89"}), Read(m_client, 8));
    EXPECT_EQ(ERROR_SUCCESS, written.get());
}

TEST_F(PipeDataTest, AWriteBlocksWhileTheBufferIsFull) {
    Join(8);
    EXPECT_EQ(ERROR_SUCCESS, Write(m_client, "01234567"));
    auto written = WriteLater(m_client, "89");
    EXPECT_EQ(std::future_status::timeout, written.wait_for(std::chrono::milliseconds(20)));
    EXPECT_EQ((PipeRead{0, "01234567"}), Read(m_server));
    EXPECT_EQ(ERROR_SUCCESS, written.get());
}

TEST_F(PipeDataTest, AMessageMayHave64KiB) {
    Join(0);
    std::string message(65536, '\0');
    for (size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<char>(i * 31 >> 8);
    auto written = WriteLater(m_client, message);
    EXPECT_EQ((PipeRead{0, message}), Read(m_server, 100'000));
    EXPECT_EQ(ERROR_SUCCESS, written.get());
    EXPECT_EQ(ERROR_NOT_SUPPORTED, Write(m_client, message + "x"));
}

TEST_F(PipeDataTest, AWriteBlocksWhileManyMessagesAreUnread) {
    Join();
    auto written = std::async(std::launch::async, [&] {
        for (int i = 0; i < 65; ++i)
            Write(m_client, "x");
    });
    EXPECT_EQ(std::future_status::timeout, written.wait_for(std::chrono::milliseconds(20)));
    for (int i = 0; i < 65; ++i)
        EXPECT_EQ((PipeRead{0, "x"}), Read(m_server));
    written.get();
}

TEST_F(PipeDataTest, WhatAClosedClientSentCanStillBeRead) {
    Join();
    Connect(m_server);
    Write(m_client, "last words");
    CloseHandle(m_client);
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "last "}), Read(m_server, 5));
    EXPECT_EQ((PipeRead{0, "words"}), Read(m_server));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_server));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_server));
}

TEST_F(PipeDataTest, SoWithAServerThatClosedAlsoWhenItHadNotReadAllItself) {
    for (const bool leavesUnread : {false, true}) {
        SCOPED_TRACE(leavesUnread);
        Join();
        if (leavesUnread) Write(m_client, "never read");
        Write(m_server, "last words");
        CloseHandle(m_server);
        EXPECT_EQ((PipeRead{0, "last words"}), Read(m_client));
        EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_client));
    }
}

TEST_F(PipeDataTest, TheOtherEndsCloseEndsAReadAndAWriteThatBlock) {
    Join();
    auto read = ReadLater(m_server);
    CloseHandle(m_client);
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), read.get());
    Join(0);
    auto written = WriteLater(m_server, "text");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "t"}), Read(m_client, 1));
    CloseHandle(m_client);
    EXPECT_EQ(ERROR_BROKEN_PIPE, written.get());
}

TEST_F(PipeDataTest, ADisconnectEndsAReadAndAWriteThatBlock) {
    Join();
    Connect(m_server);
    auto read = ReadLater(m_client);
    EXPECT_TRUE(DisconnectNamedPipe(m_server));
    EXPECT_EQ((PipeRead{ERROR_PIPE_NOT_CONNECTED, ""}), read.get());
    Join(0);
    auto written = WriteLater(m_client, "text");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "t"}), Read(m_server, 1));
    EXPECT_TRUE(DisconnectNamedPipe(m_server));
    EXPECT_EQ(ERROR_PIPE_NOT_CONNECTED, written.get());
}

TEST_F(PipeDataTest, NothingCanBeWrittenToAClosedEnd) {
    for (const bool closesServer : {false, true}) {
        Join();
        CloseHandle(closesServer ? m_server : m_client);
        EXPECT_EQ(ERROR_NO_DATA, Write(closesServer ? m_client : m_server, "text")) << closesServer;
    }
}

TEST_F(PipeDataTest, ADisconnectTakesWhatWasNotRead) {
    Join();
    Write(m_server, "never read");
    EXPECT_TRUE(DisconnectNamedPipe(m_server));
    EXPECT_EQ((PipeRead{ERROR_PIPE_NOT_CONNECTED, ""}), Read(m_client));
    EXPECT_EQ(ERROR_PIPE_NOT_CONNECTED, Write(m_client, "text"));
    EXPECT_EQ((PipeRead{ERROR_PIPE_NOT_CONNECTED, ""}), Read(m_server));
    EXPECT_EQ(ERROR_PIPE_NOT_CONNECTED, Write(m_server, "text"));
}

TEST_F(PipeDataTest, AReadAndAWriteThatBlockCanBeCancelled) {
    Join();
    auto read = ReadLater(m_server);
    CancelWhenBlocked(m_server);
    EXPECT_EQ((PipeRead{ERROR_OPERATION_ABORTED, ""}), read.get());
    Write(m_client, "text");
    EXPECT_EQ((PipeRead{0, "text"}), Read(m_server));
    Join(0);
    auto written = WriteLater(m_client, "text");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "t"}), Read(m_server, 1));
    CancelWhenBlocked(m_client);
    EXPECT_EQ(ERROR_OPERATION_ABORTED, written.get());
}

TEST_F(PipeDataTest, ClosingTheHandleEndsAReadThatBlocks) {
    for (int round = 0; round < 50; ++round) {
        const HANDLE server = CreateOnly({.room = 0, .maxInstances = 1});
        const HANDLE client = Open();
        auto read = ReadLater(client);
        EXPECT_TRUE(CloseHandle(client));
        const long error = read.get().error;
        EXPECT_TRUE(error == ERROR_OPERATION_ABORTED || error == ERROR_INVALID_HANDLE) << error;
        CloseHandle(server);
    }
}

TEST_F(PipeDataTest, RequestsOnOneHandleFollowEachOther) {
    Join();
    auto read = ReadLater(m_server);
    auto other = ReadLater(m_server);
    Write(m_client, "a");
    Write(m_client, "b");
    EXPECT_EQ(2u, read.get().data.size() + other.get().data.size());
}

TEST_F(PipeDataTest, RequestsThatPipesDoNotKnowAreRefused) {
    Join();
    DWORD bytes = 0;
    char buffer[4];
    OVERLAPPED overlapped{};
    EXPECT_EQ(ERROR_INVALID_FUNCTION,
              ErrorOf(DeviceIoControl(m_client, 0x9C41A47C, nullptr, 0, nullptr, 0, &bytes, &overlapped)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(ReadFile(m_client, buffer, sizeof buffer, &bytes, &overlapped)));
    EXPECT_EQ(ERROR_NOACCESS, ErrorOf(WriteFile(m_client, nullptr, 4, &bytes, nullptr)));
}

TEST_F(PipeDataTest, ManyMessagesKeepTheirOrderAndTheirEnds) {
    Join(64);
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i)
            Write(m_client, std::string(i % 100, static_cast<char>('a' + i % 26)));
    });
    for (int i = 0; i < 2000; ++i) {
        const PipeRead expected{ERROR_SUCCESS, std::string(i % 100, static_cast<char>('a' + i % 26))};
        ASSERT_EQ(expected, Read(m_server));
    }
    writer.join();
}

}  // namespace
