// Pipes of bytes that only the client writes to.
#include "winhost/tests/PipeFixture.h"

namespace {

class InboundPipeTest : public PipeFixture {
  protected:
    HANDLE CreateInbound(DWORD room = kRoom) {
        return Create({.room = room,
                       .maxInstances = 1,
                       .openMode = PIPE_ACCESS_INBOUND,
                       .pipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT});
    }
    HANDLE OpenToWrite() { return OpenOnly(kName, GENERIC_WRITE); }
    static long Flush(HANDLE end) { return ErrorOf(FlushFileBuffers(end)); }
};

}  // namespace

TEST_F(InboundPipeTest, BytesComeInTheirOrderWithoutRegardToWrites) {
    const HANDLE server = CreateInbound(), client = OpenToWrite();
    Write(client, "one");
    Write(client, "");
    Write(client, "two");
    EXPECT_EQ((PipeRead{0, "on"}), Read(server, 2));
    EXPECT_EQ((PipeRead{0, "etwo"}), Read(server));
    Write(client, "three");
    EXPECT_EQ((PipeRead{0, "three"}), Read(server));
}

TEST_F(InboundPipeTest, AReadBlocksUntilThereIsAByte) {
    const HANDLE server = CreateInbound(), client = OpenToWrite();
    auto read = ReadLater(server);
    Write(client, "");
    EXPECT_EQ(std::future_status::timeout, read.wait_for(std::chrono::milliseconds(20)));
    Write(client, "x");
    EXPECT_EQ((PipeRead{0, "x"}), read.get());
}

TEST_F(InboundPipeTest, WhatAClosedClientWroteCanStillBeRead) {
    const HANDLE server = CreateInbound(), client = OpenToWrite();
    EXPECT_EQ(ERROR_PIPE_CONNECTED, Connect(server));
    Write(client, "rest");
    CloseHandle(client);
    EXPECT_EQ((PipeRead{0, "rest"}), Read(server));
    EXPECT_EQ((PipeRead{ERROR_BROKEN_PIPE, ""}), Read(server));
}

TEST_F(InboundPipeTest, AReadThatBlocksCanBeCancelled) {
    const HANDLE server = CreateInbound();
    OpenToWrite();
    auto read = ReadLater(server);
    CancelWhenBlocked(server);
    EXPECT_EQ((PipeRead{ERROR_OPERATION_ABORTED, ""}), read.get());
}

TEST_F(InboundPipeTest, NeitherEndDoesTheOthersPart) {
    const HANDLE server = CreateInbound();
    EXPECT_EQ(ERROR_ACCESS_DENIED, OpenError(kName, GENERIC_READ));
    EXPECT_EQ(ERROR_ACCESS_DENIED, OpenError(kName, GENERIC_READ | GENERIC_WRITE));
    const HANDLE client = OpenToWrite();
    EXPECT_EQ((PipeRead{ERROR_ACCESS_DENIED, ""}), Read(client));
    EXPECT_EQ(ERROR_ACCESS_DENIED, Write(server, "x"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, Flush(server));
    DWORD mode = PIPE_READMODE_MESSAGE;
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(SetNamedPipeHandleState(client, &mode, nullptr, nullptr)));
}

TEST_F(InboundPipeTest, ASecondInstanceIsOneTooMany) {
    CreateInbound();
    EXPECT_EQ(ERROR_PIPE_BUSY, ErrorOf(CreateInbound()));
}

TEST_F(InboundPipeTest, ARecordOfTheBuffersSizeDoesNotBlockItsWriter) {
    const HANDLE server = CreateInbound(132), client = OpenToWrite();
    EXPECT_EQ(ERROR_SUCCESS, Write(client, std::string(132, 'r')));
    EXPECT_EQ((PipeRead{0, std::string(132, 'r')}), Read(server));
}

// ---- flushing ----

TEST_F(InboundPipeTest, AFlushWaitsUntilAllIsRead) {
    const HANDLE server = CreateInbound(), client = OpenToWrite();
    EXPECT_EQ(ERROR_SUCCESS, Flush(client));
    Write(client, "record");
    auto flushed = std::async(std::launch::async, [&] { return Flush(client); });
    Read(server, 3);
    EXPECT_EQ(std::future_status::timeout, flushed.wait_for(std::chrono::milliseconds(20)));
    Read(server, 3);
    EXPECT_EQ(ERROR_SUCCESS, flushed.get());
}

TEST_F(InboundPipeTest, AFlushEndsWhenTheServerWillNotRead) {
    HANDLE server = CreateInbound();
    HANDLE client = OpenToWrite();
    Write(client, "record");
    CloseHandle(server);
    EXPECT_EQ(ERROR_BROKEN_PIPE, Flush(client));
    server = CreateInbound();
    client = OpenToWrite();
    Write(client, "record");
    EXPECT_TRUE(DisconnectNamedPipe(server));
    EXPECT_EQ(ERROR_PIPE_NOT_CONNECTED, Flush(client));
}

TEST_F(InboundPipeTest, AnythingElseIsNotFlushed) {
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(ERROR_INVALID_HANDLE, Flush(event));
    CloseHandle(event);
    const HANDLE server = Create();
    Open();
    Connect(server);
    EXPECT_EQ(ERROR_SUCCESS, Flush(server));
}
