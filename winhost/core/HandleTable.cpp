#include "winhost/core/HandleTable.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>

namespace winhost {

namespace {

std::string ClassNameOf(const Object& object) {
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(object).name(), nullptr, nullptr, nullptr), &std::free);
    return name.get();
}

}  // namespace

// Never destroyed: detached threads use their handles until the process is gone.
HandleTable& HandleTable::Instance() {
    static HandleTable& table = *new HandleTable;
    return table;
}

// The two lowest bits are 0 as in every Windows handle, and the highest too; 0 and the pseudo handles are
// never made.
HANDLE HandleTable::Encode(Place place) {
    return reinterpret_cast<HANDLE>(static_cast<uintptr_t>((place.use << kSlotBits | place.slot) << 2));
}

bool HandleTable::Decode(HANDLE handle, Place& place) {
    // A caller may mark a handle in its two lowest bits.
    const uintptr_t value = reinterpret_cast<uintptr_t>(handle) >> 2;
    if (value >> (kSlotBits + kUseBits)) return false;
    place = {static_cast<uint32_t>(value) & ((1u << kSlotBits) - 1),
             static_cast<uint32_t>(value >> kSlotBits)};
    return place.use != 0;
}

HandleTable::Slot* HandleTable::Locate(Shard& shard, Place place) {
    const uint32_t index = place.slot / kShards;
    if (index >= shard.slots.size()) return nullptr;
    Slot& slot = shard.slots[index];
    return slot.object && slot.uses == place.use ? &slot : nullptr;
}

HANDLE HandleTable::Add(std::shared_ptr<Object> object) {
    const uint32_t number = m_nextShard.fetch_add(1, std::memory_order_relaxed) % kShards;
    Shard& shard = m_shards[number];
    std::lock_guard lock(shard.mutex);
    uint32_t index = static_cast<uint32_t>(shard.slots.size());
    if (!shard.free.empty()) {
        index = shard.free.front();
        shard.free.pop_front();
    } else {
        if (index * kShards + number >= 1u << kSlotBits) return nullptr;
        shard.slots.emplace_back();
    }
    Slot& slot = shard.slots[index];
    slot.object = std::move(object);
    ++m_size;
    return Encode({index * kShards + number, slot.uses});
}

std::shared_ptr<Object> HandleTable::Find(HANDLE handle) {
    Place place;
    if (!Decode(handle, place)) return nullptr;
    Shard& shard = m_shards[place.slot % kShards];
    std::lock_guard lock(shard.mutex);
    const Slot* slot = Locate(shard, place);
    if (!slot) ++m_staleUses;
    return slot ? slot->object : nullptr;
}

std::vector<std::string> HandleTable::Kinds() {
    std::vector<std::string> kinds;
    for (Shard& shard : m_shards) {
        std::lock_guard lock(shard.mutex);
        for (const Slot& slot : shard.slots)
            if (slot.object) kinds.push_back(ClassNameOf(*slot.object));
    }
    return kinds;
}

bool HandleTable::CloseIf(HANDLE handle, bool (*matches)(const Object&)) {
    Place place;
    if (!Decode(handle, place)) return false;
    std::shared_ptr<Object> object;
    {
        Shard& shard = m_shards[place.slot % kShards];
        std::lock_guard lock(shard.mutex);
        Slot* slot = Locate(shard, place);
        if (!slot) ++m_staleCloses;
        if (!slot || !matches(*slot->object)) return false;
        object = std::move(slot->object);
        // Use 0 is left out: a handle that has it was never made.
        slot->uses = slot->uses % ((1u << kUseBits) - 1) + 1;
        shard.free.push_back(place.slot / kShards);
    }
    --m_size;
    object->OnClose();
    return true;
}

}  // namespace winhost
