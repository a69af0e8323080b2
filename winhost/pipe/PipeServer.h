// The server's end: one instance of a pipe.
#pragma once

#include "winhost/pipe/PipeEnd.h"

namespace winhost {

class PipeServer : public PipeEnd {
  public:
    // A new instance, which listens. The errors are CreateNamedPipeA's.
    static DWORD Create(const std::string& name, const PipeTerms& terms, bool readsMessages,
                        std::shared_ptr<PipeServer>& server);
    ~PipeServer() override;

    // ConnectNamedPipe and DisconnectNamedPipe.
    DWORD Connect();
    DWORD Disconnect();

  private:
    PipeServer(const PipeTerms& terms, bool readsMessages);
    DWORD NeedConnection() override;
    void Release() override;

    // All within a request. AcceptClient waits for a client.
    bool Listens() const { return m_listener || m_arriving; }
    DWORD Listen();
    void StopListening();
    bool ClientIsWaiting() const;
    DWORD AcceptClient();

    PipeFolder m_folder;
    uint32_t m_number = 0;
    testbed::Descriptor m_file;      // locked; none when released
    testbed::Descriptor m_listener;  // none unless it listens
    testbed::Descriptor m_arriving;  // accepted there, and not yet heard of
};

}  // namespace winhost
