// The programs that this process has started on its PC and that have not been reaped yet. They are known from
// their start on, when Linux doesn't tell their marks yet.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "winhost/process/ProcessList.h"

namespace winhost {

class Children {
  public:
    static Children& Instance();

    // `root` is the mark of the PC that it runs on.
    void Add(const std::string& root, const ProcessEntry& child);
    void Remove(DWORD id);
    std::optional<ProcessEntry> Find(const std::string& root, DWORD id) const;
    std::vector<DWORD> IdsOn(const std::string& root) const;

  private:
    struct Child {
        std::string root;
        ProcessEntry entry;
    };
    Children() = default;
    mutable std::mutex m_mutex;
    std::map<DWORD, Child> m_children;
};

}  // namespace winhost
