// What goes through a named pipe.
#include <thread>

#include "winhost/tests/PipeFixture.h"

namespace {

class PipeDataTest : public PipeFixture {
  protected:
    void Join(DWORD room = kRoom) {
        m_server = Create({.room = room});
        m_client = Open();
    }
    HANDLE m_server = INVALID_HANDLE_VALUE;
    HANDLE m_client = INVALID_HANDLE_VALUE;
};

TEST_F(PipeDataTest, MessagesGoBothWaysWhole) {
    Join();
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(m_server, "first"));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(m_server, "second"));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(m_client, "answer"));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "first"}), Read(m_client));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "second"}), Read(m_client));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "answer"}), Read(m_server));
}

TEST_F(PipeDataTest, AMessageThatDoesNotFitIsReadInParts) {
    Join();
    Write(m_client, "0123456789");
    Write(m_client, "next");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "0123"}), Read(m_server, 4));
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "4567"}), Read(m_server, 4));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "89"}), Read(m_server, 4));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "next"}), Read(m_server, 4));
}

TEST_F(PipeDataTest, AMessageThatJustFitsIsRead) {
    Join();
    Write(m_client, std::string(512, 'x'));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, std::string(512, 'x')}), Read(m_server, 512));
}

TEST_F(PipeDataTest, AReadWithoutRoomLeavesTheMessage) {
    Join();
    Write(m_client, "text");
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, ""}), Read(m_server, 0));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "text"}), Read(m_server));
}

TEST_F(PipeDataTest, AMessageMayBeEmpty) {
    Join();
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(m_client, ""));
    Write(m_client, "text");
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, ""}), Read(m_server));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "text"}), Read(m_server));
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
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "text"}), Read(m_client));
}

TEST_F(PipeDataTest, AReadBlocksUntilThereIsSomething) {
    Join();
    auto read = std::async(std::launch::async, [&] { return Read(m_server); });
    Write(m_client, "late");
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "late"}), read.get());
}

TEST_F(PipeDataTest, WithoutABufferAWriteBlocksUntilAllIsRead) {
    Join(0);
    auto written = std::async(std::launch::async, [&] { return Write(m_server, "0123456789"); });
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "01234567"}), Read(m_client, 8));
    EXPECT_EQ(std::future_status::timeout, written.wait_for(std::chrono::milliseconds(20)));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "89"}), Read(m_client, 8));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, written.get());
}

TEST_F(PipeDataTest, AWriteBlocksWhileTheBufferIsFull) {
    Join(8);
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, Write(m_client, "01234567"));
    auto written = std::async(std::launch::async, [&] { return Write(m_client, "89"); });
    EXPECT_EQ(std::future_status::timeout, written.wait_for(std::chrono::milliseconds(20)));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "01234567"}), Read(m_server));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, written.get());
}

TEST_F(PipeDataTest, AMessageMayHave64KiB) {
    Join(0);
    std::string message(65536, '\0');
    for (size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<char>(i * 31 >> 8);
    auto written = std::async(std::launch::async, [&] { return Write(m_client, message); });
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, message}), Read(m_server, 100'000));
    EXPECT_EQ(DWORD{ERROR_SUCCESS}, written.get());
    EXPECT_EQ(DWORD{ERROR_NOT_SUPPORTED}, Write(m_client, message + "x"));
}

TEST_F(PipeDataTest, AWriteBlocksWhileManyMessagesAreUnread) {
    Join();
    auto written = std::async(std::launch::async, [&] {
        for (int i = 0; i < 65; ++i)
            Write(m_client, "x");
    });
    EXPECT_EQ(std::future_status::timeout, written.wait_for(std::chrono::milliseconds(20)));
    for (int i = 0; i < 65; ++i)
        EXPECT_EQ((PipeRead{ERROR_SUCCESS, "x"}), Read(m_server));
    written.get();
}

TEST_F(PipeDataTest, WhatAClosedClientSentCanStillBeRead) {
    Join();
    Connect(m_server);
    Write(m_client, "last words");
    CloseHandle(m_client);
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "last "}), Read(m_server, 5));
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "words"}), Read(m_server));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_server));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_server));
}

TEST_F(PipeDataTest, SoWithAServerThatClosed) {
    Join();
    Write(m_server, "last words");
    CloseHandle(m_server);
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "last words"}), Read(m_client));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_client));
}

TEST_F(PipeDataTest, AlsoWhenItHadNotReadAllItself) {
    Join();
    Write(m_client, "never read");
    Write(m_server, "last words");
    CloseHandle(m_server);
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "last words"}), Read(m_client));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(m_client));
}

TEST_F(PipeDataTest, TheOtherEndsCloseEndsAReadThatBlocks) {
    Join();
    auto read = std::async(std::launch::async, [&] { return Read(m_server); });
    CloseHandle(m_client);
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), read.get());
}

TEST_F(PipeDataTest, TheOtherEndsCloseEndsAWriteThatBlocks) {
    Join(0);
    auto written = std::async(std::launch::async, [&] { return Write(m_server, "text"); });
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "t"}), Read(m_client, 1));
    CloseHandle(m_client);
    EXPECT_EQ(DWORD{ERROR_BROKEN_PIPE}, written.get());
}

TEST_F(PipeDataTest, NothingCanBeWrittenToAClosedEnd) {
    Join();
    CloseHandle(m_client);
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, Write(m_server, "text"));
}

TEST_F(PipeDataTest, NothingCanBeWrittenToAClosedServer) {
    Join();
    CloseHandle(m_server);
    EXPECT_EQ(DWORD{ERROR_NO_DATA}, Write(m_client, "text"));
}

TEST_F(PipeDataTest, ADisconnectTakesWhatWasNotRead) {
    Join();
    Write(m_server, "never read");
    EXPECT_TRUE(DisconnectNamedPipe(m_server));
    EXPECT_EQ((PipeRead{ERROR_PIPE_NOT_CONNECTED, ""}), Read(m_client));
    EXPECT_EQ(DWORD{ERROR_PIPE_NOT_CONNECTED}, Write(m_client, "text"));
    EXPECT_EQ((PipeRead{ERROR_PIPE_NOT_CONNECTED, ""}), Read(m_server));
    EXPECT_EQ(DWORD{ERROR_PIPE_NOT_CONNECTED}, Write(m_server, "text"));
}

TEST_F(PipeDataTest, ADisconnectEndsAReadThatBlocks) {
    Join();
    Connect(m_server);
    auto read = std::async(std::launch::async, [&] { return Read(m_client); });
    EXPECT_TRUE(DisconnectNamedPipe(m_server));
    EXPECT_EQ((PipeRead{ERROR_PIPE_NOT_CONNECTED, ""}), read.get());
}

TEST_F(PipeDataTest, ADisconnectEndsAWriteThatBlocks) {
    Join(0);
    auto written = std::async(std::launch::async, [&] { return Write(m_client, "text"); });
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "t"}), Read(m_server, 1));
    EXPECT_TRUE(DisconnectNamedPipe(m_server));
    EXPECT_EQ(DWORD{ERROR_PIPE_NOT_CONNECTED}, written.get());
}

TEST_F(PipeDataTest, AReadThatBlocksCanBeCancelled) {
    Join();
    auto read = std::async(std::launch::async, [&] { return Read(m_server); });
    CancelWhenBlocked(m_server);
    EXPECT_EQ((PipeRead{ERROR_OPERATION_ABORTED, ""}), read.get());
    Write(m_client, "text");
    EXPECT_EQ((PipeRead{ERROR_SUCCESS, "text"}), Read(m_server));
}

TEST_F(PipeDataTest, AWriteThatBlocksCanBeCancelled) {
    Join(0);
    auto written = std::async(std::launch::async, [&] { return Write(m_client, "text"); });
    EXPECT_EQ((PipeRead{ERROR_MORE_DATA, "t"}), Read(m_server, 1));
    CancelWhenBlocked(m_client);
    EXPECT_EQ(DWORD{ERROR_OPERATION_ABORTED}, written.get());
}

TEST_F(PipeDataTest, ClosingTheHandleEndsAReadThatBlocks) {
    for (int round = 0; round < 50; ++round) {
        const HANDLE server = CreateOnly({.room = 0, .maxInstances = 1});
        const HANDLE client = Open();
        auto read = std::async(std::launch::async, [&] { return Read(client); });
        EXPECT_TRUE(CloseHandle(client));
        const DWORD error = read.get().error;
        EXPECT_TRUE(error == ERROR_OPERATION_ABORTED || error == ERROR_INVALID_HANDLE) << error;
        CloseHandle(server);
    }
}

TEST_F(PipeDataTest, RequestsOnOneHandleFollowEachOther) {
    Join();
    auto read = std::async(std::launch::async, [&] { return Read(m_server); });
    auto other = std::async(std::launch::async, [&] { return Read(m_server); });
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
