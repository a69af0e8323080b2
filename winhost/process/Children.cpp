#include "winhost/process/Children.h"

namespace winhost {

// Never destroyed: the thread that reaps runs until the process is gone.
Children& Children::Instance() {
    static Children& children = *new Children;
    return children;
}

void Children::Add(const std::string& root, const ProcessEntry& child) {
    std::lock_guard lock(m_mutex);
    m_children[child.id] = {root, child};
}

void Children::Remove(DWORD id) {
    std::lock_guard lock(m_mutex);
    m_children.erase(id);
}

std::optional<ProcessEntry> Children::Find(const std::string& root, DWORD id) const {
    std::lock_guard lock(m_mutex);
    const auto found = m_children.find(id);
    if (found == m_children.end() || found->second.root != root) return std::nullopt;
    return found->second.entry;
}

std::vector<DWORD> Children::IdsOn(const std::string& root) const {
    std::lock_guard lock(m_mutex);
    std::vector<DWORD> ids;
    for (const auto& [id, child] : m_children)
        if (child.root == root) ids.push_back(id);
    return ids;
}

}  // namespace winhost
