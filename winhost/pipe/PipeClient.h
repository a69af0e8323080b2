// The client's end of a pipe.
#pragma once

#include "winhost/pipe/PipeEnd.h"

namespace winhost {

// CreateFileA on the name of a pipe.
DWORD OpenPipe(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file);

class PipeClient : public PipeEnd {
  public:
    PipeClient(std::unique_ptr<PipeConnection> connection, bool onlyWrites) : m_onlyWrites(onlyWrites) {
        m_connection = std::move(connection);
    }
    using PipeEnd::IsUsable;

    DWORD SetReadMode(DWORD mode) override;

  private:
    DWORD NeedConnection() override { return ERROR_SUCCESS; }
    Reading Reads() const override {
        if (m_onlyWrites) return Reading::Denied;
        return m_readsMessages ? Reading::Messages : Reading::NotYet;
    }
    bool Writes() const override { return true; }

    const bool m_onlyWrites;
    bool m_readsMessages = false;
};

}  // namespace winhost
