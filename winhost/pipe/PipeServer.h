// The server's end: one instance of a pipe.
#pragma once

#include "winhost/pipe/PipeEnd.h"

namespace winhost {

class PipeServer : public PipeEnd {
  public:
    // A new instance, which listens. The errors are CreateNamedPipeA's.
    static DWORD Create(const std::string& name, const PipeTerms& terms, std::shared_ptr<PipeServer>& server);
    ~PipeServer() override;

    // ConnectNamedPipe and DisconnectNamedPipe.
    DWORD Connect();
    DWORD Disconnect();
    // It reads messages, or bytes, from the start.
    DWORD SetReadMode(DWORD mode) override;

  private:
    explicit PipeServer(const PipeTerms& terms) : m_terms(terms) {}
    DWORD NeedConnection() override;
    Reading Reads() const override { return m_terms.inbound ? Reading::Bytes : Reading::Messages; }
    bool Writes() const override { return !m_terms.inbound; }
    void Release() override;

    // All within a request. AcceptClient waits for a client.
    void StopListening();
    bool ClientIsWaiting() const;
    DWORD AcceptClient();

    const PipeTerms m_terms;
    PipeFolder m_folder;
    uint32_t m_number = 0;
    testbed::Descriptor m_file;      // locked; none when released
    testbed::Descriptor m_listener;  // none unless it listens
};

}  // namespace winhost
