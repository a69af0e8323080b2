// What a call that is made often keeps of the PC's description, made anew when the description has changed.
#pragma once

#include <type_traits>

#include "winhost/pc/Pc.h"

namespace winhost {

// One value for each thread and each Make; no lock and no copy of the description while nothing changes.
template <class Value, class Make>
const Value& CachedFromPc(Make make) {
    // The main thread asks also while the process ends, when its thread_locals are gone.
    static_assert(std::is_trivially_destructible_v<Value>);
    thread_local uint64_t revision = 0;
    thread_local Value value{};
    Pc& pc = Pc::Instance();
    // Read first: a change that comes between is noticed by the next call.
    if (const uint64_t now = pc.Revision(); now != revision) {
        value = make(pc.Description());
        revision = now;
    }
    return value;
}

}  // namespace winhost
