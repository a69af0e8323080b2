// A pipe with its two ends, and what they say to each other.
#pragma once

#include <future>

#include "winhost/tests/PcFixture.h"

// What a read gave.
struct PipeRead {
    long error;
    std::string data;
    bool operator==(const PipeRead&) const = default;
};
inline void PrintTo(const PipeRead& read, std::ostream* out) {
    *out << "error " << read.error << ", '" << read.data << "'";
}

class PipeFixture : public PcFixture {
  protected:
    static constexpr const char* kName = R"(\\.\pipe\testpipe)";
    static constexpr DWORD kMessages = PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE;
    // Room for what a test writes before it reads.
    static constexpr DWORD kRoom = 4096;

    HANDLE KeepValid(HANDLE handle) { return handle != INVALID_HANDLE_VALUE ? Keep(handle) : handle; }

    // What a test varies of a pipe.
    struct Shape {
        DWORD room = kRoom;
        DWORD maxInstances = PIPE_UNLIMITED_INSTANCES;
        const char* name = kName;
        DWORD openMode = PIPE_ACCESS_DUPLEX;
        DWORD pipeMode = kMessages;
        SECURITY_ATTRIBUTES* attributes = nullptr;
    };
    static HANDLE CreateOnly(const Shape& shape) {
        return CreateNamedPipeA(shape.name, shape.openMode, shape.pipeMode, shape.maxInstances, shape.room,
                                shape.room, 0, shape.attributes);
    }
    HANDLE Create(const Shape& shape) { return KeepValid(CreateOnly(shape)); }
    HANDLE Create() { return Create(Shape()); }
    // The error of a creation that fails.
    long CreateError(const Shape& shape) { return ErrorOf(Create(shape)); }
    // A client as it opens the pipe.
    HANDLE OpenOnly(const char* name = kName, DWORD access = GENERIC_READ | GENERIC_WRITE, DWORD flags = 0) {
        return KeepValid(CreateFileA(name, access, 0, nullptr, OPEN_EXISTING, flags, nullptr));
    }
    long OpenError(const char* name = kName, DWORD access = GENERIC_READ | GENERIC_WRITE, DWORD flags = 0) {
        return ErrorOf(OpenOnly(name, access, flags));
    }
    // A client that is ready to read.
    HANDLE Open() {
        const HANDLE client = OpenOnly();
        DWORD mode = PIPE_READMODE_MESSAGE;
        if (client == INVALID_HANDLE_VALUE) return client;
        EXPECT_TRUE(SetNamedPipeHandleState(client, &mode, nullptr, nullptr));
        return client;
    }

    static long Connect(HANDLE server) { return ErrorOf(ConnectNamedPipe(server, nullptr)); }
    static long Write(HANDLE end, const std::string& data) {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(data.size());
        const long error = ErrorOf(WriteFile(end, data.data(), size, &written, nullptr));
        EXPECT_EQ(error == ERROR_SUCCESS ? data.size() : 0, written);
        return error;
    }
    static PipeRead Read(HANDLE end, DWORD room = 512) {
        std::string data(room, '\0');
        DWORD read = 0;
        const long error = ErrorOf(ReadFile(end, data.data(), room, &read, nullptr));
        data.resize(read);
        return {error, data};
    }

    // On a thread of their own.
    static std::future<PipeRead> ReadLater(HANDLE end) {
        return std::async(std::launch::async, [=] { return Read(end); });
    }
    static std::future<long> WriteLater(HANDLE end, const std::string& data) {
        return std::async(std::launch::async, [=] { return Write(end, data); });
    }
    static std::future<long> ConnectLater(HANDLE server) {
        return std::async(std::launch::async, [=] { return Connect(server); });
    }

    // Ends a request that another thread blocks in: waits until there is one.
    static void CancelWhenBlocked(HANDLE end) {
        while (!CancelIoEx(end, nullptr))
            ASSERT_EQ(ERROR_NOT_FOUND, GetLastError());
    }
};
