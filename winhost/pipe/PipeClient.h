// The client's end of a pipe.
#pragma once

#include "winhost/pipe/PipeEnd.h"

namespace winhost {

// CreateFileA on the name of a pipe.
DWORD OpenPipe(const std::string& name, DWORD access, std::shared_ptr<FileObject>& file);

class PipeClient : public PipeEnd {
  public:
    PipeClient(const PipeTerms& terms, DWORD access, std::unique_ptr<PipeConnection> connection)
        : PipeEnd(terms, access, false) {
        m_connection = std::move(connection);
    }
    using PipeEnd::IsUsable;

  private:
    DWORD NeedConnection() override { return ERROR_SUCCESS; }
};

}  // namespace winhost
