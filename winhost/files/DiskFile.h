// An open file or folder of a drive: what it is, who owns it, and who may do what with it.
#pragma once

#include <string>

#include "testbed/Descriptor.h"
#include "winhost/io/FileObject.h"

namespace winhost {

// Whether the path begins with a drive.
bool IsOnDrive(const std::string& name);
// CreateFileA on such a path. `existed` says what OPEN_ALWAYS found.
DWORD OpenDiskFile(const std::string& name, DWORD access, const SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, std::shared_ptr<FileObject>& file, bool& existed);

class DiskFile final : public FileObject {
  public:
    DiskFile(testbed::Descriptor file, DWORD access, std::string path)
        : m_file(std::move(file)), m_access(access), m_path(std::move(path)) {}
    bool Cancel(const OVERLAPPED*) override { return false; }

    bool Allows(DWORD access) const { return (m_access & access) == access; }
    int Descriptor() const { return m_file.Get(); }
    const std::string& Path() const { return m_path; }

  private:
    const testbed::Descriptor m_file;
    const DWORD m_access;
    const std::string m_path;  // when it was opened
};

}  // namespace winhost
