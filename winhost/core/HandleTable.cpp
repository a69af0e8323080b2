#include "winhost/core/HandleTable.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>

namespace winhost {

namespace {

std::string NameOf(const std::type_info& type) {
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, nullptr), &std::free);
    return name.get();
}

}  // namespace

// Never destroyed: detached threads use their handles until the process is gone.
HandleTable& HandleTable::Instance() {
    static HandleTable& table = *new HandleTable;
    return table;
}

HANDLE HandleTable::Add(std::shared_ptr<Object> object) {
    std::lock_guard lock(m_lock);
    if (m_objects.size() == kMostHandles) return nullptr;
    m_objects.emplace(m_next, std::move(object));
    return reinterpret_cast<HANDLE>(std::exchange(m_next, m_next + kStep));
}

std::shared_ptr<Object> HandleTable::Find(HANDLE handle) {
    std::lock_guard lock(m_lock);
    const auto found = m_objects.find(NumberOf(handle));
    if (found != m_objects.end()) return found->second;
    if (WasMade(handle)) ++m_staleUses;
    return nullptr;
}

size_t HandleTable::Size() const {
    std::lock_guard lock(m_lock);
    return m_objects.size();
}

std::vector<std::string> HandleTable::Kinds() {
    std::vector<const std::type_info*> types;
    {
        std::lock_guard lock(m_lock);
        for (const auto& [number, object] : m_objects)
            types.push_back(&typeid(*object));
    }
    std::vector<std::string> kinds;
    for (const std::type_info* type : types)
        kinds.push_back(NameOf(*type));
    return kinds;
}

bool HandleTable::CloseIf(HANDLE handle, bool (*matches)(const Object&)) {
    std::shared_ptr<Object> object;
    {
        std::lock_guard lock(m_lock);
        const auto found = m_objects.find(NumberOf(handle));
        if (found == m_objects.end()) {
            if (WasMade(handle)) ++m_staleCloses;
            return false;
        }
        if (!matches(*found->second)) return false;
        object = std::move(found->second);
        m_objects.erase(found);
    }
    object->OnClose();
    return true;
}

}  // namespace winhost
