// The table behind every handle of the process, whatever its kind.
//
// A new kind is a class derived from Object (from WaitableObject when threads wait for it, from FileObject
// when it is read and written) in a file of its own; nothing else has to know it. A handle carries the number
// of its slot and a count of the slot's uses, so that a stale one meets nothing.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include <minwindef.h>

namespace winhost {

class Object {
  public:
    virtual ~Object() = default;
    // True for the kinds that CloseHandle is for; the others have closing calls of their own.
    virtual bool IsClosedByCloseHandle() const { return true; }
    // The handle has gone; whoever waits for the object or uses it right now may still hold a reference.
    virtual void OnClose() {}
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
            // Nothing derives from it, so that the class itself is all there is to compare.
            if (!object || typeid(*object) != typeid(Kind)) return nullptr;
            return std::static_pointer_cast<Kind>(std::move(object));
        } else {
            return std::dynamic_pointer_cast<Kind>(std::move(object));
        }
    }

    // Takes the handle out of the table if it names a Kind, and tells the object. False when it doesn't.
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
    size_t Size() const { return m_size; }
    // The kind of each of them, by the name of its class, so that a test can tell what leaks.
    std::vector<std::string> Kinds();
    // How often a handle was used, or closed, that had been closed before. On Windows its number may be
    // another object's by then.
    size_t StaleUses() const { return m_staleUses; }
    size_t StaleCloses() const { return m_staleCloses; }

  private:
    struct Slot {
        std::shared_ptr<Object> object;
        uint32_t uses = 1;
    };
    // Each shard serves the slots whose number is its own, modulo the number of shards.
    struct alignas(64) Shard {
        std::mutex mutex;
        std::deque<Slot> slots;
        std::deque<uint32_t> free;  // the one that was freed longest ago comes first
    };
    static constexpr uint32_t kShards = 16;
    static constexpr uint32_t kSlotBits = 18;
    static constexpr uint32_t kUseBits = 11;
    struct Place {
        uint32_t slot;  // over all shards
        uint32_t use;
    };

    HandleTable() = default;
    static HANDLE Encode(Place place);
    static bool Decode(HANDLE handle, Place& place);
    Slot* Locate(Shard& shard, Place place);
    bool CloseIf(HANDLE handle, bool (*matches)(const Object&));

    std::array<Shard, kShards> m_shards;
    std::atomic<uint32_t> m_nextShard{0};
    std::atomic<size_t> m_size{0};
    std::atomic<size_t> m_staleUses{0};
    std::atomic<size_t> m_staleCloses{0};
};

}  // namespace winhost
