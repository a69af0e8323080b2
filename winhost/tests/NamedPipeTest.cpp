// How named pipes come to be, are connected and end.
#include <algorithm>

#include "winhost/tests/PipeFixture.h"

namespace {

class NamedPipeTest : public PipeFixture {
  protected:
    // The client that a server which has disconnected the last one takes next.
    HANDLE OpenAgain(HANDLE server) {
        auto connected = ConnectLater(server);
        HANDLE client;
        while ((client = Open()) == INVALID_HANDLE_VALUE)
            EXPECT_EQ(ERROR_PIPE_BUSY, GetLastError());
        connected.get();
        return client;
    }
};

TEST_F(NamedPipeTest, AClientThatComesEndsTheWaitForIt) {
    const HANDLE server = Create();
    auto connected = ConnectLater(server);
    EXPECT_NE(INVALID_HANDLE_VALUE, Open());
    // ConnectNamedPipe reports the client that was quicker.
    const long error = connected.get();
    EXPECT_TRUE(error == ERROR_SUCCESS || error == ERROR_PIPE_CONNECTED) << error;
}

TEST_F(NamedPipeTest, AClientThatIsThereAlreadyOrHasGoneIsTold) {
    const HANDLE server = Create(), client = Open();
    for (const long expected : {ERROR_PIPE_CONNECTED, ERROR_NO_DATA}) {
        EXPECT_EQ(expected, Connect(server));
        EXPECT_EQ(expected, Connect(server));
        CloseHandle(client);
    }
}

TEST_F(NamedPipeTest, APipeThatIsNotThereOrClosedIsNotFound) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, OpenError());
    CloseHandle(Create());
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, OpenError());
}

TEST_F(NamedPipeTest, AnInstanceServesOneClient) {
    Create();
    Open();
    EXPECT_EQ(ERROR_PIPE_BUSY, OpenError());
}

TEST_F(NamedPipeTest, EachInstanceServesAClientOfItsOwn) {
    const HANDLE first = Create(), second = Create();
    const HANDLE one = Open(), other = Open();
    Write(one, "one");
    Write(other, "other");
    std::vector<std::string> received{Read(first).data, Read(second).data};
    std::sort(received.begin(), received.end());
    EXPECT_EQ((std::vector<std::string>{"one", "other"}), received);
}

TEST_F(NamedPipeTest, NoMoreInstancesThanTheFirstAllows) {
    Create({.maxInstances = 2});
    Create({.maxInstances = 2});
    EXPECT_EQ(ERROR_PIPE_BUSY, CreateError({.maxInstances = 2}));
}

TEST_F(NamedPipeTest, ManyInstancesMayBeHad) {
    for (int i = 0; i < 60; ++i)
        ASSERT_NE(INVALID_HANDLE_VALUE, Create());
    for (int i = 0; i < 60; ++i)
        ASSERT_NE(INVALID_HANDLE_VALUE, Open());
    EXPECT_EQ(ERROR_PIPE_BUSY, OpenError());
}

TEST_F(NamedPipeTest, AClosedInstanceMakesRoomForAnother) {
    for (int i = 0; i < 10; ++i) {
        const HANDLE server = CreateOnly({.room = 0, .maxInstances = 1});
        ASSERT_NE(INVALID_HANDLE_VALUE, server);
        CloseHandle(server);
    }
}

TEST_F(NamedPipeTest, LaterInstancesAgreeWithTheFirst) {
    Create({.maxInstances = 5});
    EXPECT_EQ(ERROR_ACCESS_DENIED, CreateError({.maxInstances = 6}));
}

TEST_F(NamedPipeTest, NamesAreComparedWithoutRegardToCase) {
    Create({.name = R"(\\.\pipe\UserConsent Feature.1)"});
    EXPECT_EQ(ERROR_SUCCESS, OpenError(R"(\\.\PIPE\userconsent feature.1)"));
}

TEST_F(NamedPipeTest, NamesMayHoldSeparators) {
    ASSERT_NE(INVALID_HANDLE_VALUE, Create({.name = R"(\\.\pipe\a\..b)"}));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, OpenError(R"(\\.\pipe\a)"));
    EXPECT_EQ(ERROR_SUCCESS, OpenError(R"(\\.\pipe\a/..b)"));
}

TEST_F(NamedPipeTest, WhatCannotBeCreatedIsRefused) {
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, CreateError({.name = nullptr}));
    EXPECT_EQ(ERROR_INVALID_NAME, CreateError({.name = "testpipe"}));
    EXPECT_EQ(ERROR_INVALID_NAME, CreateError({.name = R"(\\.\pipe\)"}));
    EXPECT_EQ(ERROR_INVALID_NAME, CreateError({.name = R"(\\.\pipe\..)"}));
    EXPECT_EQ(ERROR_INVALID_NAME, CreateError({.name = (kName + std::string(300, 'x')).c_str()}));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, CreateError({.maxInstances = 0}));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, CreateError({.maxInstances = 256}));
}

TEST_F(NamedPipeTest, WhatThisHostHasNotIsRefused) {
    constexpr DWORD kInbound = 1, kNoWait = 1;
    for (const Shape& shape :
         {Shape{.pipeMode = kMessages | kNoWait}, Shape{.pipeMode = PIPE_TYPE_MESSAGE}, Shape{.pipeMode = 0},
          Shape{.openMode = kInbound}, Shape{.openMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED},
          Shape{.room = 65537}})
        EXPECT_EQ(ERROR_NOT_SUPPORTED, CreateError(shape));
    const HANDLE server = Create();
    EXPECT_EQ(ERROR_NOT_SUPPORTED, OpenError(kName, GENERIC_READ));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, OpenError(kName, GENERIC_READ | GENERIC_WRITE, FILE_FLAG_OVERLAPPED));
    OVERLAPPED overlapped{};
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(ConnectNamedPipe(server, &overlapped)));
}

TEST_F(NamedPipeTest, ADisconnectedInstanceTakesNoClientUntilTheNextConnect) {
    const HANDLE server = Create();
    Write(Open(), "left over");
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(ERROR_PIPE_NOT_CONNECTED, ErrorOf(DisconnectNamedPipe(server)));
    EXPECT_EQ(ERROR_PIPE_BUSY, OpenError());
    Write(OpenAgain(server), "new");
    EXPECT_EQ((PipeRead{0, "new"}), Read(server)) << "and nothing of the last client";
}

TEST_F(NamedPipeTest, OnlyTheServerConnectsAndDisconnects) {
    Create();
    const HANDLE client = Open();
    EXPECT_EQ(ERROR_INVALID_FUNCTION, Connect(client));
    EXPECT_EQ(ERROR_INVALID_FUNCTION, ErrorOf(DisconnectNamedPipe(client)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, Connect(INVALID_HANDLE_VALUE));
}

TEST_F(NamedPipeTest, BeforeAClientThereIsNothingToReadOrWrite) {
    const HANDLE server = Create();
    EXPECT_EQ(ERROR_PIPE_LISTENING, Read(server).error);
    EXPECT_EQ(ERROR_PIPE_LISTENING, Write(server, "early"));
}

TEST_F(NamedPipeTest, AConnectThatBlocksCanBeCancelled) {
    const HANDLE server = Create();
    auto connected = ConnectLater(server);
    CancelWhenBlocked(server);
    EXPECT_EQ(ERROR_OPERATION_ABORTED, connected.get());
    // And the instance listens on.
    EXPECT_NE(INVALID_HANDLE_VALUE, Open());
    EXPECT_EQ(ERROR_PIPE_CONNECTED, Connect(server));
}

TEST_F(NamedPipeTest, ThereMayBeNothingToCancel) {
    EXPECT_EQ(ERROR_NOT_FOUND, ErrorOf(CancelIoEx(Create(), nullptr)));
}

TEST_F(NamedPipeTest, ClosingTheHandleEndsAConnectThatBlocks) {
    for (int round = 0; round < 50; ++round) {
        const HANDLE server = CreateOnly({.room = 0, .maxInstances = 1});
        ASSERT_NE(INVALID_HANDLE_VALUE, server);
        auto connected = ConnectLater(server);
        EXPECT_TRUE(CloseHandle(server));
        const long error = connected.get();
        EXPECT_TRUE(error == ERROR_OPERATION_ABORTED || error == ERROR_INVALID_HANDLE) << error;
    }
}

TEST_F(NamedPipeTest, ClosedPipesLeaveNoHandleAndNoDescriptor) {
    const auto handles = winhost::HandleTable::Instance().Size();
    size_t descriptors = 0;
    for (int round = 0; round < 20; ++round) {
        // A thread's first wait opens what the thread waits with.
        if (round == 1) descriptors = OpenDescriptors();
        const HANDLE server = CreateOnly({.room = 0, .maxInstances = 1});
        const HANDLE client =
            CreateFileA(kName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        Connect(server);
        CloseHandle(round % 2 ? server : client);
        CloseHandle(round % 2 ? client : server);
    }
    EXPECT_EQ(descriptors, OpenDescriptors());
    EXPECT_EQ(handles, winhost::HandleTable::Instance().Size());
}

}  // namespace
