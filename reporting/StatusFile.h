// zel_json_data.txt in the working folder: what the service knows, for whoever reads the folder.
#pragma once

#include <mutex>

class IPv4InfoStore;
class NetworkStateStore;

class StatusFile {
  public:
    StatusFile(const IPv4InfoStore& addresses, const NetworkStateStore& interfaces)
        : m_addresses(addresses), m_interfaces(interfaces) {}

    // Writes the whole file anew. A file that can't be opened is logged and left alone, as is one that has
    // been deleted: a report that ends behind the service's end writes nothing. Any thread.
    void UpdateStatusFile();

    // Removes the file for good; one that is absent is no error. Throws std::filesystem::filesystem_error
    // when it can't be told whether it exists. On the stop's thread.
    void DeleteStatusFile();

  private:
    const IPv4InfoStore& m_addresses;
    const NetworkStateStore& m_interfaces;
    std::recursive_mutex m_mutex;  // taken ahead of those of the stores
    bool m_bDeleted = false;
};
