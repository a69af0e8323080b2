// The client's end of a pipe.
#pragma once

#include "winhost/pipe/PipeEnd.h"

namespace winhost {

// CreateFileA on the name of a pipe.
DWORD OpenPipe(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file);

class PipeClient : public PipeEnd {
  public:
    explicit PipeClient(std::unique_ptr<PipeConnection> connection) { m_connection = std::move(connection); }
    using PipeEnd::IsUsable;

    DWORD SetReadMode(DWORD mode) override;

  private:
    DWORD NeedConnection() override { return ERROR_SUCCESS; }
    bool ReadsMessages() const override { return m_readsMessages; }

    bool m_readsMessages = false;
};

}  // namespace winhost
