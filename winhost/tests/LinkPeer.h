// The firmware's end of the mailbox for one test: listens on a Unix socket and speaks the frames by hand.
#pragma once

#include <string>

#include "firmware/link/LinkMemory.h"
#include "firmware/link/LinkProtocol.h"
#include "testbed/Descriptor.h"
#include "testbed/SharedMemory.h"

// All waits give up after ten seconds with an exception, which fails the test.
class LinkPeer {
  public:
    struct Frame {
        mpmlink::Header header{};
        std::string payload;
        bool wasInMemory = false;
    };

    // One handle of the device.
    class Connection {
      public:
        explicit Connection(testbed::Descriptor socket) : m_socket(std::move(socket)) {}

        // A large request comes as a request with its input.
        Frame Receive();
        // Waits for the host to end the connection; false when it sends a frame instead.
        bool AwaitEnd();
        // False while something that was sent has not been taken from the socket.
        bool AllTaken() const;

        void Respond(const Frame& request, uint32_t error, const std::string& payload = {});
        void SendMessage(const std::string& bytes);
        // Through the memory that the host has offered.
        void SendLargeMessage(const std::string& bytes);
        void SendHeader(const mpmlink::Header& header);
        void SendBytes(const void* bytes, size_t size);
        void Close() { m_socket.Close(); }

      private:
        size_t ReceiveSome(char* bytes, size_t size);
        void TakeInput(Frame& frame);
        testbed::Descriptor m_socket;
        testbed::SharedMemory<mpmlink::LinkMemory> m_memory;
    };

    explicit LinkPeer(const std::string& path);

    std::string Address() const { return "unix:" + m_path; }
    Connection Accept();
    // Stops listening; connections that stand go on.
    void Close() { m_listener.Close(); }

  private:
    const std::string m_path;
    testbed::Descriptor m_listener;
};
