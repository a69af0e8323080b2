// Writes zel_json_data.txt in the working folder. The file publishes the service's state to any program that
// reads the folder.
#pragma once

#include <mutex>

class IPv4InfoStore;
class NetworkStateStore;

class StatusFile {
  public:
    StatusFile(const IPv4InfoStore& addresses, const NetworkStateStore& interfaces)
        : m_addresses(addresses), m_interfaces(interfaces) {}

    // Rewrites the whole file. A file that cannot be opened is logged and skipped. After DeleteStatusFile
    // this writes nothing, so that a report that finishes after the service has ended does not recreate the
    // file. Any thread.
    void UpdateStatusFile();

    // Deletes the file permanently. A missing file is not an error. Throws std::filesystem::filesystem_error
    // when its existence cannot be determined. Called on the thread that stops the service.
    void DeleteStatusFile();

  private:
    const IPv4InfoStore& m_addresses;
    const NetworkStateStore& m_interfaces;
    std::recursive_mutex m_mutex;  // locked before the mutexes of the stores
    bool m_bDeleted = false;
};
