// The table behind every handle of the process, whatever its kind.
//
// A new kind is a class derived from Object (from WaitableObject when threads wait for it, from FileObject
// when it is read and written) in a file of its own; nothing else has to know it. No number is given twice,
// so that a stale handle meets nothing.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include <minwindef.h>

namespace winhost {

class WaitableObject;
class OverlappedFile;

class Object {
  public:
    virtual ~Object() = default;
    // Null for the kinds that no thread waits for. Each line of a log waits for an object, and a cast to a
    // base class costs more than the wait.
    virtual WaitableObject* AsWaitable() { return nullptr; }
    virtual OverlappedFile* AsOverlappedFile() { return nullptr; }
    // True for the kinds that CloseHandle is for; the others have closing calls of their own.
    virtual bool IsClosedByCloseHandle() const { return true; }
    // The handle has gone; a thread that waits for the object or uses it may still hold a reference.
    virtual void OnClose() {}
};

// A lock that is held for moments. Each line of a log takes it, and a std::mutex costs twice as much.
class MomentaryLock {
  public:
    void lock() {
        while (m_isHeld.exchange(true, std::memory_order_acquire))
            std::this_thread::yield();
    }
    void unlock() { m_isHeld.store(false, std::memory_order_release); }

  private:
    std::atomic<bool> m_isHeld{false};
};

class HandleTable {
  public:
    static HandleTable& Instance();

    // Null when the table is full (a quarter of a million handles).
    HANDLE Add(std::shared_ptr<Object> object);
    // Null for a handle that is stale, bogus or a pseudo handle.
    std::shared_ptr<Object> Find(HANDLE handle);
    // The same, and null for an object of another kind.
    template <class Kind>
    std::shared_ptr<Kind> Find(HANDLE handle) {
        std::shared_ptr<Object> object = Find(handle);
        if constexpr (std::is_final_v<Kind>) {
            const bool isOne = object && typeid(*object) == typeid(Kind);
            return isOne ? std::static_pointer_cast<Kind>(std::move(object)) : nullptr;
        } else if constexpr (requires {
                                 { Kind::Of(*object) } -> std::same_as<Kind*>;
                             }) {
            Kind* const kind = object ? Kind::Of(*object) : nullptr;
            return kind ? std::shared_ptr<Kind>(std::move(object), kind) : nullptr;
        } else {
            return std::dynamic_pointer_cast<Kind>(std::move(object));
        }
    }

    // Takes the handle out of the table if it names a Kind, and notifies the object. False when it doesn't.
    template <class Kind>
    bool Close(HANDLE handle) {
        return CloseIf(handle,
                       [](const Object& object) { return dynamic_cast<const Kind*>(&object) != nullptr; });
    }
    // What CloseHandle does.
    bool CloseKernelObject(HANDLE handle) {
        return CloseIf(handle, [](const Object& object) { return object.IsClosedByCloseHandle(); });
    }

    // Handles that are open, so that a test can see a leak.
    size_t Size() const;
    // The kind of each of them, by the name of its class, so that a test can name what leaks.
    std::vector<std::string> Kinds();
    // How often a handle was used, or closed, that had been closed before. On Windows its number may be
    // another object's by then.
    size_t StaleUses() const { return m_staleUses; }
    size_t StaleCloses() const { return m_staleCloses; }

  private:
    static constexpr size_t kMostHandles = 1 << 18;
    // The two lowest bits are 0 as in every Windows handle.
    static constexpr uintptr_t kStep = 4, kFirst = 0x10000;

    HandleTable() = default;
    // A caller may mark a handle in its two lowest bits.
    static uintptr_t NumberOf(HANDLE handle) { return reinterpret_cast<uintptr_t>(handle) & ~(kStep - 1); }
    // True for a handle of an object that is, or was once, in the table.
    bool WasMade(HANDLE handle) const { return NumberOf(handle) >= kFirst && NumberOf(handle) < m_next; }
    bool CloseIf(HANDLE handle, bool (*matches)(const Object&));

    mutable MomentaryLock m_lock;
    std::unordered_map<uintptr_t, std::shared_ptr<Object>> m_objects;
    uintptr_t m_next = kFirst;
    std::atomic<size_t> m_staleUses{0};
    std::atomic<size_t> m_staleCloses{0};
};

}  // namespace winhost
